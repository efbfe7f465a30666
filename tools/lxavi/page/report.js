// Fills the page of `lxavi report` from the JSON in it. All that comes from the file is put in as text, never as markup.
'use strict';

(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const element = id => document.getElementById(id);
  const charts = {}; // by the id of their elements
  window.lxaviCharts = charts; // so that others can ask what was drawn

  // The page has legends of its own. Those of the library need inline styles, which the page's policy forbids.
  Dygraph.PLUGINS = Dygraph.PLUGINS.filter(plugin => plugin !== Dygraph.Plugins.Legend);

  // ---- Texts ----

  const grouped = value => Number(value).toLocaleString('en');

  const counted = (number, what) => grouped(number) + ' ' + what + (number === 1 ? '' : 's');

  function clock(value) {
    const msec = Math.round(value);
    const seconds = Math.floor(Math.abs(msec) / 1000);
    const two = value => String(value).padStart(2, '0');
    const whole = [Math.floor(seconds / 3600), two(Math.floor(seconds / 60) % 60), two(seconds % 60)].join(':');
    return (msec < 0 ? '-' : '') + whole + '.' + String(Math.abs(msec) % 1000).padStart(3, '0');
  }

  // For an axis that shows `range` milliseconds.
  function shortClock(msec, range) {
    const text = clock(msec).replace(/^0:/, '');
    return range < 10000 ? text.slice(0, -2) : text.slice(0, -4);
  }

  // Values have their units at the ends of their names.
  function shown(name, value) {
    if (value === null || value === undefined) return 'not known';
    if (typeof value === 'boolean') return value ? 'yes' : 'no';
    if (Array.isArray(value)) return value.length ? value.join(', ') : 'none';
    if (typeof value !== 'number') return String(value);
    if (name.endsWith('duration_us')) return clock(value / 1000);
    const units = { _us: ' µs', _ms: ' ms', _bytes: ' bytes', _bps: ' bit/s', _hz: ' Hz', _fps: ' frames/s' };
    const unit = Object.keys(units).find(suffix => ('_' + name).endsWith(suffix));
    return grouped(value) + (unit ? units[unit] : '');
  }

  function title(name) {
    return name.replace(/_(us|ms|bytes|bps|hz|fps)$/, '').replaceAll('_', ' ');
  }

  function append(parent, name, text, className) {
    const child = parent.appendChild(document.createElement(name));
    if (text !== undefined) child.textContent = text;
    if (className) child.className = className;
    return child;
  }

  const isPlain = value => value === null || typeof value !== 'object' || (Array.isArray(value) && typeof value[0] !== 'object');

  // One column for each object. A name that an object does not have leaves an empty cell.
  function addTable(caption, objects, heads = []) {
    const table = append(element('info'), 'table');
    append(table, 'caption', caption);
    if (heads.length) {
      const row = append(table, 'tr');
      append(row, 'th');
      heads.forEach(head => append(row, 'td', head));
    }
    const names = new Set(objects.flatMap(object => Object.keys(object).filter(name => isPlain(object[name]))));
    for (const name of names) {
      const row = append(table, 'tr');
      append(row, 'th', title(name));
      objects.forEach(object => append(row, 'td', name in object ? shown(name, object[name]) : ''));
    }
  }

  function showInfo() {
    const info = data.info;
    document.title = data.file + ' – lxavi report';
    element('file').textContent = data.file;
    element('maker').textContent = data.maker;
    const { errors, warnings, notes } = data.summary;
    element('verdict').textContent = [counted(errors, 'error'), counted(warnings, 'warning'), counted(notes, 'note')].join(', ');
    element('verdict').className = errors ? 'error' : warnings ? 'warning' : 'note';
    addTable('File', [info]);
    addTable('Index', [info.index]);
    if (info.texts.length) {
      addTable('Texts', [Object.fromEntries(info.texts.map(text => [text.code + ' (' + text.name + ')', text.text]))]);
    }
    if (info.streams.length) addTable('Streams', info.streams, info.streams.map((stream, number) => 'stream ' + number));
  }

  // ---- Charts ----

  const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
  const hues = ['#3b7dd8', '#d8733b', '#3ba55d', '#a557c4', '#c4a017', '#c43b6e', '#2aa7b0', '#8a6d3b', '#6b7280', '#7a9a01'];
  let marked = null; // time of the finding that was chosen, in milliseconds
  let isZooming = false;

  const wholeFile = () => [0, Math.max(data.end_ms, 1)];

  function zoomAll(range) {
    isZooming = true;
    for (const chart of Object.values(charts)) {
      if (chart.isOverTime) chart.updateOptions({ dateWindow: range });
    }
    isZooming = false;
  }

  function drawMark(canvas, area, chart) {
    if (marked === null || !chart.isOverTime) return;
    const x = chart.toDomXCoord(marked);
    canvas.strokeStyle = colour('--error');
    canvas.beginPath();
    canvas.moveTo(x, area.y);
    canvas.lineTo(x, area.y + area.h);
    canvas.stroke();
  }

  function drawLimits(canvas, area, chart, limits) {
    canvas.strokeStyle = colour('--warning');
    canvas.setLineDash([6, 4]);
    for (const limit of limits) {
      const y = chart.toDomYCoord(limit);
      if (y < area.y || y > area.y + area.h) continue;
      canvas.beginPath();
      canvas.moveTo(area.x, y);
      canvas.lineTo(area.x + area.w, y);
      canvas.stroke();
    }
    canvas.setLineDash([]);
  }

  // Names in the colours of their lines. A line of several columns is named once.
  function addLegend(id, labels, colours) {
    const legend = append(element(id).parentNode, 'p', undefined, 'legend');
    element(id).before(legend);
    labels.forEach((label, i) => {
      append(legend, 'span', '■ ').style.color = colours[i % colours.length];
      append(legend, 'span', label + '   ');
    });
  }

  // The values under the cursor.
  function told(place, points, unit) {
    const known = points.filter(p => Number.isFinite(p.yval));
    return [place, ...known.map(p => p.name + ': ' + grouped(p.yval) + ' ' + unit)].join('   ');
  }

  // `rows` have the value of the x axis first. `labels` name the columns behind it.
  function draw(id, rows, labels, options) {
    if (!rows.length) {
      element(id).textContent = 'There is nothing to draw.';
      element(id).classList.add('empty');
      return;
    }
    const { unit, limits = [], isOverTime = true, point = clock, axisPoint = null, colours = hues, ...more } = options;
    const values = element(id + '-values');
    addLegend(id, labels, colours);
    element(id).setAttribute('role', 'img');
    element(id).setAttribute('aria-label', labels.join(', '));
    const ofAxis = (x, granularity, get, drawn) => shortClock(x, drawn.xAxisRange()[1] - drawn.xAxisRange()[0]);
    const chart = new Dygraph(element(id), rows, {
      labels: ['x', ...labels],
      colors: labels.map((label, i) => colours[i % colours.length]),
      axisLineColor: colour('--line'),
      gridLineColor: colour('--grid'),
      connectSeparatedPoints: true,
      strokeWidth: 1.5,
      highlightCircleSize: 3,
      labelsKMB: false,
      dateWindow: isOverTime ? wholeFile() : null,
      axes: {
        x: { axisLabelFormatter: axisPoint || ofAxis, axisLabelWidth: 60 },
        y: { axisLabelFormatter: grouped, axisLabelWidth: 90 },
      },
      underlayCallback: (canvas, area, drawn) => {
        drawLimits(canvas, area, drawn, limits);
        drawMark(canvas, area, drawn);
      },
      highlightCallback: (event, x, points) => { values.textContent = told(point(x), points, unit); },
      unhighlightCallback: () => { values.textContent = ''; },
      zoomCallback: (from, to) => {
        if (isOverTime && !isZooming) zoomAll(charts[id].isZoomed('x') ? [from, to] : wholeFile());
      },
      ...more,
    });
    chart.isOverTime = isOverTime;
    charts[id] = chart;
  }

  // Rows of several lists of [x, value, …]: one column for each value of each list.
  function joined(lists, columns) {
    const rows = new Map();
    lists.forEach((list, number) => {
      for (const [x, ...values] of list) {
        if (!rows.has(x)) rows.set(x, Array(lists.length * columns).fill(null));
        values.slice(0, columns).forEach((value, i) => { rows.get(x)[number * columns + i] = value; });
      }
    });
    return [...rows].sort((a, b) => a[0] - b[0]).map(([x, values]) => [x, ...values]);
  }

  const nameOf = stream => 'stream ' + stream.stream + ' (' + stream.type + ', ' + stream.codec + ')';

  function drawRates() {
    const rates = joined(data.streams.map(s => s.rate_ms_kbps), 1);
    draw('rates', rates, data.streams.map(nameOf), { unit: 'kbit/s', stepPlot: true, includeZero: true });
  }

  function drawInterleave() {
    const tracks = data.interleave;
    const needs = tracks.map(t => 'With audio track ' + t.track + ' a player needs a buffer of ' + grouped(t.needed_ms) +
      ' ms and ' + grouped(t.needed_bytes) + ' bytes.');
    element('interleave-text').textContent = tracks.length === 0 ? 'The file does not have both video and audio.' :
      'How far audio is ahead of the video in the file (above 0), or behind it (below 0), in milliseconds: the least and ' +
      'the most. ' + needs.join(' ') + ' The dashed lines are the limit of common players: ' +
      grouped(tracks[0].common_ms) + ' ms; they have room for ' + grouped(tracks[0].common_bytes) + ' bytes.';
    const labels = tracks.flatMap(t => ['track ' + t.track + ' least', 'track ' + t.track + ' most']);
    const limit = tracks.length ? tracks[0].common_ms : 0;
    const values = tracks.flatMap(t => t.lead_ms.flatMap(point => [point[1], point[2]]));
    const most = values.reduce((a, b) => Math.max(a, b), limit);
    const least = values.reduce((a, b) => Math.min(a, b), -limit);
    draw('interleave', joined(tracks.map(t => t.lead_ms), 2), labels, {
      unit: 'ms',
      limits: [limit, -limit],
      colours: hues.flatMap(hue => [hue, hue]),
      valueRange: [least * 1.1, most * 1.1],
    });
  }

  // Of 1st, 2nd, 3rd, 4th, 11th, 21st.
  function ordinalEnding(number) {
    const isTeen = Math.floor(number / 10) % 10 === 1;
    return (!isTeen && ['th', 'st', 'nd', 'rd'][number % 10]) || 'th';
  }

  function drawKeyFrames() {
    const keys = data.key_frames;
    const ordinal = grouped(keys.step || 1) + ordinalEnding(keys.step);
    element('keys-text').textContent = counted(keys.key_frames, 'key frame') + ' by ' + keys.told_by + '. The table holds ' +
      grouped(keys.stored) + (keys.step > 1 ? ', every ' + ordinal + ', because its budget has no room for more' : '') +
      '. The chart shows the distances to the next one, in milliseconds.';
    const distances = joined([keys.distance_ms, keys.stored_distance_ms], 2);
    draw('keys', distances, ['key frames, least', 'key frames, most', 'in the table, least', 'in the table, most'], {
      unit: 'ms', includeZero: true, drawPoints: true, colours: [hues[0], hues[0], hues[1], hues[1]],
    });
  }

  function drawSeeks() {
    const count = data.seeks_ms.length;
    element('seeks-text').textContent = count === 0 ? 'There is no key-frame table: seeks are not possible.' :
      counted(count, 'seek') + ' to times that are spread over the file: how far the key frame that is found lies from the ' +
      'time that was asked for, and how far the audio begins from that key frame, in milliseconds.';
    draw('seeks', data.seeks_ms, ['found minus asked', 'audio minus video'], {
      unit: 'ms', drawPoints: true, connectSeparatedPoints: false,
    });
  }

  function drawSizes() {
    // two classes for each doubling; empty chunks stand to the left of those of one byte
    const place = bytes => bytes === 0 ? -0.5 : Math.round(2 * Math.log2(bytes)) / 2;
    const bytes = x => x < 0 ? '0' : grouped(Math.ceil(2 ** x));
    const isBorder = x => Math.abs(2 * x - Math.round(2 * x)) < 1e-9; // of a class; what lies between has the same bytes
    const classes = joined(data.streams.map(s => s.chunks_by_least_bytes), 1);
    const filled = new Map(classes.map(([least, ...chunks]) => [place(least), chunks]));
    const most = Math.max(...filled.keys());
    const rows = [];
    for (let x = Math.min(...filled.keys()); x <= most + 0.5; x += 0.5) {
      rows.push([x, ...data.streams.map((s, i) => (filled.get(x) || [])[i] || 0)]);
    }
    draw('sizes', rows, data.streams.map(nameOf), {
      unit: 'chunks', isOverTime: false, point: x => bytes(x) + ' bytes', axisPoint: x => (isBorder(x) ? bytes(x) : ''), stepPlot: true, includeZero: true,
      fillGraph: true,
    });
  }

  // ---- Findings ----

  function show(msec) {
    const half = Math.max(data.end_ms / 40, 500);
    marked = msec;
    zoomAll([Math.max(msec - half, 0), Math.min(msec + half, Math.max(data.end_ms, half))]);
    element('rates').scrollIntoView({ behavior: 'smooth' });
  }

  function listFindings() {
    const found = data.findings;
    const left = data.summary.findings - found.length;
    const all = 'A time leads to its place in the charts.';
    const some = 'The ' + grouped(found.length) + ' most severe ones of ' + grouped(data.summary.findings) +
      '; `lxavi check` lists all.';
    element('findings-text').textContent = found.length === 0 ? 'None.' : left > 0 ? some : all;
    if (found.length) {
      const head = append(element('findings'), 'tr');
      ['severity', 'time', 'offset', 'finding'].forEach(name => append(head, 'th', name));
    }
    for (const finding of found) {
      const row = append(element('findings'), 'tr');
      append(row, 'td', finding.severity, finding.severity);
      const place = append(row, 'td');
      if (finding.time_ms !== null) {
        append(place, 'button', clock(finding.time_ms)).addEventListener('click', () => show(finding.time_ms));
      }
      append(row, 'td', finding.offset === null ? '' : grouped(finding.offset));
      append(row, 'td', finding.text + (finding.places > 1 ? ' (' + grouped(finding.places) + ' places)' : ''));
    }
  }

  function drawAll() {
    drawRates();
    drawInterleave();
    drawKeyFrames();
    drawSeeks();
    drawSizes();
  }

  function recolour() {
    for (const chart of Object.values(charts)) {
      chart.updateOptions({ axisLineColor: colour('--line'), gridLineColor: colour('--grid') });
    }
  }

  showInfo();
  listFindings();
  drawAll();
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', recolour);
  for (const event of ['beforeprint', 'afterprint']) {
    addEventListener(event, () => { recolour(); Object.values(charts).forEach(chart => chart.resize()); });
  }
})();
