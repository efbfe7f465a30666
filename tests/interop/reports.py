#!/usr/bin/env python3
"""Tests the pages of `lxavi report`: their numbers, what a real browser draws, and that nothing of a file becomes markup.
Usage: reports.py LXAVI SAMPLES FOLDER-FOR-SCREENSHOTS"""

import html.parser
import json
import math
import os
import pathlib
import re
import struct
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from browser import Browser, is_installed  # noqa: E402
from material import SAMPLES, InScratchFolder, lxavi, rows  # noqa: E402
from plainwriter import audio, avi, mpeg4_frame, text, video  # noqa: E402

SCREENSHOTS = pathlib.Path(sys.argv[3])
SAMPLE_FILES = sorted(SAMPLES.glob("*.avi"))
CHARTS = pathlib.Path("/usr/share/javascript/dygraphs")
ATTACK = "<script>alert(1)</script>\"'&<img src=x onerror=alert(1)></script>"
NEEDS_CHARTS = unittest.skipUnless(CHARTS.exists(), "libjs-dygraphs is not installed")
NEEDS_BROWSER = unittest.skipUnless(is_installed() and CHARTS.exists(), "no browser")


class Elements(html.parser.HTMLParser):
    """The elements of a page, and the text of those with an id."""

    def __init__(self, page):
        super().__init__()
        self.tags, self.texts, self._id = [], {}, None
        self.feed(page)

    def handle_starttag(self, tag, attributes):
        self.tags.append(tag)
        self._id = dict(attributes).get("id", tag)

    def handle_data(self, data):
        self.texts[self._id] = self.texts.get(self._id, "") + data


def film(seconds=20, lead=0, keys=25, first_key=0):
    """25 frames a second with a chunk of PCM for every frame, which comes `lead` frames before its time."""
    chunks = []
    for n in range(-max(lead, 0), 25 * seconds + max(-lead, 0)):
        if 0 <= n + lead < 25 * seconds:
            chunks.append((1, b"wb", bytes(640), True))
        if 0 <= n < 25 * seconds:
            chunks.append((0, b"dc", mpeg4_frame(n % keys == first_key, 100 + n % 7), n % keys == first_key))
    return avi([video(b"XVID"), audio()], chunks)


def late_audio(seconds=20):
    """All audio behind all video."""
    frames = [(0, b"dc", mpeg4_frame(n % 25 == 0), n % 25 == 0) for n in range(25 * seconds)]
    return avi([video(b"XVID"), audio()], frames + [(1, b"wb", bytes(16000), True) for _ in range(seconds)])


class Reports(InScratchFolder):
    def page(self, source, *options, name="report.html"):
        out = self.folder / name
        result = lxavi("report", source, "-o", out, "--force", *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        return out

    def data(self, source, *options):
        result = lxavi("report", source, "--json", *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        return json.loads(result.stdout)


class Numbers(Reports):
    """Expected values are worked out by hand from the files that are made here."""

    def test_interleave_of_regular_files(self):
        # one frame and 40 ms of audio by turns: the later of the two waits for 40 ms at most
        track = self.data(self.file(film()))["interleave"][0]
        self.assertEqual((track["needed_ms"], track["track"]), (40, 0))
        self.assertTrue(all(-40 <= least <= most <= 40 for _, least, most in track["lead_ms"]))
        # before each frame comes the audio of the frame `lead` frames later, so that the frame awaits one more
        for lead, ms in ((10, 440), (50, 2040), (-10, 400), (-50, 2000)):
            track = self.data(self.file(film(lead=lead)))["interleave"][0]
            self.assertEqual(track["needed_ms"], ms, lead)
            middle = [point for point in track["lead_ms"] if 5000 <= point[0] <= 15000]
            self.assertTrue(all(abs(least - 40 * lead) <= 40 and abs(most - 40 * lead) <= 40 for _, least, most in middle))

    def test_the_buffer_has_bytes(self):
        # while the first audio is awaited, all 500 frames are read, and none has been played
        track = self.data(self.file(late_audio()))["interleave"][0]
        self.assertEqual((track["needed_ms"], track["needed_bytes"]), (20000, 50000))
        self.assertEqual(track["lead_ms"][0][1], -20000)

    def test_audio_in_long_pieces_is_ahead(self):
        chunks = []
        for second in range(10):  # two seconds of audio before the frame with which it begins
            if second % 2 == 0:
                chunks.append((1, b"wb", bytes(32000), True))
            chunks += [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(25)]
        path = self.file(avi([video(b"XVID"), audio()], chunks))
        track = self.data(path)["interleave"][0]
        self.assertTrue(all(0 <= least <= most <= 2000 for _, least, most in track["lead_ms"]))
        self.assertEqual((track["needed_ms"], track["needed_bytes"]), (2000, 32000))

    def test_a_side_that_ends_early_is_awaited_no_more(self):
        for left in (0, 1):
            whole = [c for n in range(500) for c in ((1, b"wb", bytes(640), True), (0, b"dc", mpeg4_frame(n == 0), n == 0))]
            path = self.file(avi([video(b"XVID"), audio()], [c for n, c in enumerate(whole) if c[0] == left or n < 200]))
            data = self.data(path)
            self.assertEqual(data["interleave"][0]["needed_ms"], 40)
            self.assertTrue(all(-40 <= least <= most <= 40 for _, least, most in data["interleave"][0]["lead_ms"]))
            early = data["streams"][1 - left]
            self.assertEqual((early["end_ms"], early["rate_ms_kbps"][-1]), (4000, [4000, 0.0]))

    def test_a_stream_that_starts_late_is_not_awaited_before(self):
        chunks = [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(250)]
        chunks += [c for n in range(250) for c in ((1, b"wb", bytes(640), True), (0, b"dc", mpeg4_frame(False), False))]
        data = bytearray(avi([video(b"XVID"), audio()], chunks))
        struct.pack_into("<I", data, data.index(b"auds") + 28, 80000)  # 10 s of 8000 samples
        self.assertEqual(self.data(self.file(data))["interleave"][0]["needed_ms"], 40)

    def test_what_a_common_player_cannot_buffer_is_a_finding(self):
        for lead, found in ((20, False), (24, False), (26, True), (-23, False), (-26, True)):
            path = self.file(film(lead=lead))
            codes = [f["code"] for f in self.data(path)["findings"]]
            self.assertEqual("bad_interleave" in codes, found, lead)
            self.assertEqual(codes, [r["code"] for r in json.loads(lxavi("check", path, "--json").stdout)["rows"]])
        finding = next(f for f in self.data(self.file(late_audio()))["findings"] if f["code"] == "bad_interleave")
        self.assertEqual((finding["severity"], finding["time_ms"]), ("warning", 0))

    def test_rates_are_those_of_the_payload(self):
        data = self.data(self.file(film()))
        sound = data["streams"][1]
        self.assertEqual((sound["type"], sound["codec"], sound["chunks"]), ("audio", "PCM", 500))
        for stream in (sound, self.data(self.file(late_audio()))["streams"][1]):  # 16000 bytes a second; one chunk a second
            self.assertEqual((stream["end_ms"], stream["rate_ms_kbps"][-1]), (20000, [20000, 0.0]))
            self.assertTrue(all(abs(rate - 128) < 12 for _, rate in stream["rate_ms_kbps"][:-1]), stream["rate_ms_kbps"])
        # the last column is short: 17 frames of 100 bytes in 680 ms, as in all others 20 kbit/s
        frames = [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(145)]
        rates = self.data(self.file(avi([video(b"XVID")], frames)))["streams"][0]["rate_ms_kbps"]
        self.assertEqual(rates[-2:], [[5120, 20.0], [5800, 0.0]])

    def test_key_frames_and_the_table(self):
        keys = self.data(self.file(film(seconds=40, keys=50)))["key_frames"]
        self.assertEqual((keys["key_frames"], keys["stored"], keys["step"], keys["told_by"]), (20, 20, 1, "the frames"))
        self.assertTrue(all(least == most == 2000 for _, least, most in keys["distance_ms"] + keys["stored_distance_ms"]))
        keys = self.data(self.file(film(seconds=40, keys=1)), "--budget", "70000")["key_frames"]  # 1000, and room for 363
        self.assertEqual((keys["key_frames"], keys["stored"], keys["step"]), (1000, 334, 3))
        self.assertTrue(all(least == most == 40 for _, least, most in keys["distance_ms"]))
        self.assertTrue(all(least == most == 120 for _, least, most in keys["stored_distance_ms"]))

    def test_key_frames_of_an_unknown_codec_come_from_the_index(self):
        frames = [(0, b"dc", bytes(100), n % 5 == 0) for n in range(5000)]
        keys = self.data(self.file(avi([video(b"ABCD")], frames)), "--budget", "70000")["key_frames"]  # 1000, and room for 363
        self.assertEqual((keys["key_frames"], keys["stored"], keys["step"], keys["told_by"]), (1000, 334, 3, "the index"))
        self.assertTrue(all(least == most == 200 for _, least, most in keys["distance_ms"]))

    def test_key_frames_are_those_of_the_main_video(self):
        frames = [(n % 2, b"dc", mpeg4_frame(True) if n % 2 else bytes(100), n % 20 < 2) for n in range(200)]
        keys = self.data(self.file(avi([video(b"ABCD"), video(b"XVID")], frames)))["key_frames"]
        self.assertEqual((keys["key_frames"], keys["told_by"]), (10, "the index"))

    def test_seeks_land_on_the_key_frame_before(self):
        data = self.data(self.file(film(keys=50)))
        self.assertEqual((len(data["seeks_ms"]), data["end_ms"]), (200, 20000))
        for n, (asked, off, gap) in enumerate(data["seeks_ms"]):
            self.assertEqual((asked, off), (19960 * n // 199, -(asked % 2000)))
            self.assertLessEqual(abs(gap), 40)

    def test_sizes_are_counted_in_classes(self):
        sizes = dict(self.data(self.file(film()))["streams"][0]["chunks_by_least_bytes"])
        self.assertEqual(sizes, {91: 500})  # 100 to 106 bytes: from 2^6.5 to 2^7
        chunks = [(0, b"dc", mpeg4_frame(True, 8), True), (0, b"dc", b"", False), (0, b"dc", mpeg4_frame(False, 12), False)]
        sizes = self.data(self.file(avi([video(b"XVID")], chunks)))["streams"][0]["chunks_by_least_bytes"]
        self.assertEqual(sizes, [[0, 1], [8, 1], [12, 1]])  # 12 is the least above 2^3.5

    def test_findings_have_the_time_of_their_place(self):
        data = bytearray(film())
        at = data.rindex(b"idx1") + 8 + 16 * 2 * 250  # the record of the audio at 10 s
        struct.pack_into("<I", data, at + 12, 1)
        finding = next(f for f in self.data(self.file(data))["findings"] if f["code"] == "record_size")
        self.assertEqual((finding["offset"], finding["time_ms"]), (at, 9960))  # before the frame at 10 s

    def test_the_most_severe_findings_are_listed(self):
        """1200 records with a wrong size, each between right ones, and an error behind them."""
        data = bytearray(avi([video(b"XVID")], [(0, b"dc", mpeg4_frame(n == 0, 8), n == 0) for n in range(2400)]))
        records = data.rindex(b"idx1") + 8
        for n in range(1, 2400, 2):
            struct.pack_into("<I", data, records + 16 * n + 12, 7)
        data += b"00dc" + struct.pack("<I", 8) + bytes(8)
        report = self.data(self.file(data))
        self.assertEqual((report["summary"]["errors"], report["summary"]["warnings"]), (1, 1200))
        self.assertEqual((report["summary"]["findings_printed"], len(report["findings"])), (1000, 1000))
        self.assertEqual([f["severity"] for f in report["findings"]], ["warning"] * 999 + ["error"])
        offsets = [f["offset"] for f in report["findings"]]
        self.assertEqual(offsets, sorted(offsets))

    def test_without_video_or_index_there_is_still_a_report(self):
        sound = self.data(self.file(avi([audio()], [(0, b"wb", bytes(16000), True)] * 5)))
        self.assertEqual((sound["interleave"], sound["seeks_ms"], sound["key_frames"]["stored"]), ([], [], 0))
        self.page(self.file(avi([video(b"XVID"), text()], [])))

    def test_large_files_make_small_pages(self):
        frames = [(n % 2, b"wb" if n % 2 else b"dc", bytes(4) if n % 2 else mpeg4_frame(n % 100 == 0, 8), True) for n in range(600)]
        page = self.page(self.file(avi([video(b"XVID"), audio()], frames * 1000)))
        self.assertLess(page.stat().st_size, 2 << 20)


class Pages(Reports):
    @NEEDS_CHARTS
    def test_a_page_holds_the_same_data_as_json(self):
        for path in SAMPLE_FILES:
            page = Elements(self.page(path).read_text())
            embedded = json.loads(page.texts["data"])
            self.assertEqual(embedded.pop("maker"), "lxavi 0.2.0")
            self.assertEqual(embedded, self.data(path))

    @NEEDS_CHARTS
    def test_nothing_of_a_file_becomes_markup(self):
        title = ATTACK.encode() + b"\0"
        texts = b"LIST" + struct.pack("<I", 12 + len(title) + len(title) % 2) + b"INFOINAM" + struct.pack("<I", len(title)) + title
        texts += b"\0" * (len(title) % 2)
        data = avi([video(b"<b>\"")], [(0, b"dc", b"frame", True)], texts)
        path = self.file(data, "<img src=x onerror=alert(1)>\"'&.avi")
        source = self.page(path).read_text()
        plain = Elements(self.page(SAMPLE_FILES[0]).read_text())
        page = Elements(source)
        self.assertEqual(page.tags, plain.tags)
        self.assertEqual(source.count("alert(1)"), source[source.index('id="data"'):].count("alert(1)"))
        self.assertEqual(source.count("<script"), 3)
        self.assertIn(ATTACK, [t["text"] for t in json.loads(page.texts["data"])["info"]["texts"]])
        policy = re.search(r'Policy" content="([^"]*)"', source)[1]
        self.assertRegex(policy, r"^default-src 'none'; script-src 'sha256-\S+=' 'sha256-\S+='; style-src 'sha256-\S+='; "
                                 r"base-uri 'none'; form-action 'none'$")

    @NEEDS_CHARTS
    def test_the_licence_of_the_charts_is_kept(self):
        page = self.page(SAMPLE_FILES[0]).read_text()
        self.assertTrue("Permission is hereby granted, free of charge" in page)
        self.assertFalse("sourceMappingURL" in page)

    def test_without_the_charts_the_error_tells_what_is_missing(self):
        out = self.folder / "report.html"
        result = lxavi("report", SAMPLE_FILES[0], "-o", out, "--charts", self.folder)
        self.assertEqual(result.returncode, 1)
        self.assertIn("dygraph.min.js: cannot be read: reports need the package libjs-dygraphs", result.stderr)
        self.assertFalse(out.exists())
        for name, content in (("dygraph.min.js", "</script>"), ("dygraph.min.css", "p {}"), ("LICENSE.txt", "free")):
            (self.folder / name).write_text(content)
        self.assertIn("has the end of a 'script'", lxavi("report", SAMPLE_FILES[0], "-o", out, "--charts", self.folder).stderr)

    @NEEDS_CHARTS
    def test_files_are_not_overwritten(self):
        out = self.page(SAMPLE_FILES[0])
        self.assertIn("exists: --force overwrites it", lxavi("report", SAMPLE_FILES[0], "-o", out).stderr)
        source = self.file(SAMPLE_FILES[0].read_bytes())
        self.assertIn("is the input", lxavi("report", source, "-o", source, "--force").stderr)
        self.assertEqual(lxavi("report", "/no/such/file", "-o", self.folder / "x.html").returncode, 1)
        self.assertFalse((self.folder / "x.html").exists())


@NEEDS_BROWSER
class InABrowser(Reports):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()

    def drawn(self, chart):
        """The rows that a chart has drawn; what it draws nothing for is null."""
        return self.browser.run(f"const c = window.lxaviCharts.{chart}; return c === undefined ? [] : "
                                "Array.from({length: c.numRows()}, (_, r) => Array.from({length: c.numColumns()}, "
                                "(_, n) => c.getValue(r, n)));")

    def test_every_chart_draws_the_numbers(self):
        for path in SAMPLE_FILES:
            with self.subTest(path.name):
                data = self.data(path)
                self.browser.open(self.page(path))
                self.expect(self.drawn("rates"), [s["rate_ms_kbps"] for s in data["streams"]], 1)
                self.expect(self.drawn("interleave"), [t["lead_ms"] for t in data["interleave"]], 2)
                self.expect(self.drawn("keys"), [data["key_frames"]["distance_ms"], data["key_frames"]["stored_distance_ms"]], 2)
                self.expect(self.drawn("seeks"), [data["seeks_ms"]], 2)
                sizes = {}
                for n, stream in enumerate(data["streams"]):
                    for least, chunks in stream["chunks_by_least_bytes"]:
                        sizes[n, -0.5 if least == 0 else round(2 * math.log2(least)) / 2] = chunks
                got = {(n, row[0]): value for row in self.drawn("sizes") for n, value in enumerate(row[1:]) if value}
                self.assertEqual(got, sizes)
                shown = self.browser.run("return document.body.innerText")
                self.assertIn(str(path), shown)
                for stream in data["info"]["streams"]:
                    self.assertIn(stream["codec"], shown)
                self.expect_quiet()
                SCREENSHOTS.mkdir(parents=True, exist_ok=True)
                self.browser.screenshot(SCREENSHOTS / f"{path.stem}.png")

    def expect(self, drawn, lists, columns):
        """`lists` hold [x, value, …]; the chart has one column for each value of each list."""
        expected = {}
        for number, points in enumerate(lists):
            for x, *values in points:
                for i, value in enumerate(values[:columns]):
                    if value is not None:
                        expected[x, number * columns + i] = value
        got = {(row[0], i): value for row in drawn for i, value in enumerate(row[1:]) if value is not None}
        self.assertEqual(got, expected)
        self.assertTrue(expected or not drawn)

    def expect_quiet(self):
        self.assertEqual(self.browser.console(), [])
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').map(e => e.name)"), [])

    def test_an_attack_shows_as_text(self):
        title = ATTACK.encode() + b"\0" * (2 - len(ATTACK) % 2)
        texts = b"LIST" + struct.pack("<I", 12 + len(title)) + b"INFOINAM" + struct.pack("<I", len(title)) + title
        path = self.file(avi([video(b"<b>\"")], [(0, b"dc", b"frame", True)], texts), "<img src=x onerror=alert(1)>\"'&.avi")
        self.browser.open(self.page(path))
        shown = self.browser.run("return document.body.innerText")
        self.assertIn(ATTACK, shown)
        self.assertIn("<img src=x onerror=alert(1)>\"'&.avi", shown)
        self.assertIn("<b>\"", shown)
        self.assertEqual(self.browser.run("return document.images.length + document.getElementsByTagName('b').length"), 0)
        self.assertIn("<img src=x onerror=alert(1)>\"'&.avi", self.browser.run("return document.title"))
        self.expect_quiet()

    def test_the_policy_forbids_other_code(self):
        path = self.page(SAMPLE_FILES[0])
        path.write_text(path.read_text().replace("</main>", "<script>window.foreign = 1</script><img src='x.png' onerror='window.foreign = 1'></main>"))
        self.browser.open(path)
        self.assertIsNone(self.browser.run("return window.foreign"))
        self.assertTrue(any("Content Security Policy" in line for line in self.browser.console()))

    OVER_TIME = ["rates", "interleave", "keys", "seeks"]

    def place(self, chart, msec, height=0.5):
        """The place of a time in the window, and in the height of a chart."""
        return self.browser.run(f"const c = window.lxaviCharts.{chart}, e = document.getElementById('{chart}'), b = e.getBoundingClientRect();"
                                f"return [b.left + c.toDomXCoord({msec}), b.top + b.height * {height}]")

    def ranges(self):
        return self.browser.run(f"return {self.OVER_TIME}.map(n => window.lxaviCharts[n].xAxisRange())")

    def test_dragging_zooms_all_charts_and_a_double_click_goes_back(self):
        self.browser.open(self.page(self.file(film())))
        for chart in self.OVER_TIME:
            self.browser.run(f"document.getElementById('{chart}').scrollIntoView(); return 1")
            self.browser.point(self.place(chart, 5000), "down", self.place(chart, 7500), self.place(chart, 10000), "up")
            for low, high in self.ranges():
                self.assertAlmostEqual(low, 5000, delta=100)
                self.assertAlmostEqual(high, 10000, delta=100)
            self.browser.point(self.place(chart, 7000), "down", "up", "down", "up")
            self.assertEqual(self.ranges(), [[0, 20000]] * 4, chart)
        self.expect_quiet()

    def test_the_cursor_shows_the_values(self):
        self.browser.open(self.page(self.file(film(keys=50))))
        self.browser.run("document.getElementById('seeks').scrollIntoView(); return 1")
        self.browser.point(self.place("seeks", 2990), self.place("seeks", 3000))
        shown = self.browser.run("return document.getElementById('seeks-values').textContent")
        self.assertRegex(shown, r"^0:00:0[23]\.\d{3}   found minus asked: -\d{3}|-1,0\d\d ms   audio minus video: ")
        self.browser.point((5, 5))
        self.assertEqual(self.browser.run("return document.getElementById('seeks-values').textContent"), "")

    def test_dark_light_and_print(self):
        self.browser.open(self.page(self.file(film())))
        paper, lines = {}, {}
        for scheme in ("light", "dark"):
            self.browser.prefer(scheme)
            paper[scheme] = self.browser.run("return getComputedStyle(document.body).backgroundColor")
            lines[scheme] = self.browser.run("return window.lxaviCharts.rates.getOption('axisLineColor')")
        self.assertEqual(paper, {"light": "rgb(255, 255, 255)", "dark": "rgb(22, 24, 27)"})
        self.assertNotEqual(lines["light"], lines["dark"])
        self.assertTrue(self.browser.printed().startswith(b"%PDF"))
        self.browser.prefer("light")
        self.expect_quiet()

    def test_a_finding_leads_to_its_place(self):
        data = bytearray(film())
        struct.pack_into("<I", data, data.rindex(b"idx1") + 8 + 16 * 2 * 250 + 12, 1)
        self.browser.open(self.page(self.file(data)))
        self.browser.run("document.querySelector('#findings button').click(); return 1")
        low, high = self.browser.run("return window.lxaviCharts.interleave.xAxisRange()")
        self.assertLess(low, 10000)
        self.assertGreater(high, 10000)
        self.assertLess(high - low, 5000)

    def test_damaged_files_draw_what_there_is(self):
        data = SAMPLE_FILES[-1].read_bytes()
        for path in (self.file(data[:len(data) // 2], "cut.avi"), self.file(data[:data.rindex(b"idx1")], "noindex.avi"),
                     self.file(avi([audio()], [(0, b"wb", bytes(16000), True)] * 5), "sound.avi"),
                     self.file(avi([video(b"XVID")], []), "nothing.avi")):
            with self.subTest(path.name):
                self.browser.open(self.page(path))
                self.expect_quiet()
                self.assertIn(path.name, self.browser.run("return document.body.innerText"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
