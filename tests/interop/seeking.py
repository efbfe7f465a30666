#!/usr/bin/env python3
"""Compares where the tool's seeks land with where a general media tool lands. Usage: seeking.py LXAVI SAMPLES"""

import bisect
import csv
import io
import json
import pathlib
import random
import shutil
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from material import LXAVI, SAMPLES, corpus, is_seekable, made_files, rows, run, track_option  # noqa: E402

TIMES = 50
HEADER = 8  # the media tool reports the position of a packet's payload, our tool the position of the chunk


class Packets:
    """The packets of the video stream, as the media tool reports them."""

    def __init__(self, path):
        self.packets = self._probe(path)
        self.keys = [p for p in self.packets if p[2]]

    @staticmethod
    def _probe(path, *options):
        """(time in seconds, position of the chunk, whether it is a key frame) of each packet."""
        result = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", *options, "-show_entries",
                                 "packet=dts_time,pos,flags", "-of", "csv=p=0", str(path)],
                                capture_output=True, text=True, check=False)
        packets = []
        for line in csv.reader(io.StringIO(result.stdout)):
            if len(line) >= 3 and line[1].lstrip("-").isdigit():
                packets.append((None if line[0] == "N/A" else float(line[0]), int(line[1]) - HEADER, "K" in line[2]))
        return packets

    @staticmethod
    def landings(path, seconds):
        """The packet at which each seek to one of these times lands."""
        intervals = ",".join(f"{s:.6f}%+#1" for s in seconds)
        return Packets._probe(path, "-read_intervals", intervals)


class Timeline:
    """The packets of one stream with their times, as the media tool reports them. It does not parse the payloads, so
    that a packet is what the file has as a chunk, or a part of a large chunk."""

    def __init__(self, path, stream):
        result = subprocess.run(["ffprobe", "-v", "error", "-fflags", "+noparse+nofillin", "-select_streams", str(stream),
                                 "-show_entries", "packet=dts_time,pos,size", "-of", "csv=p=0", str(path)],
                                capture_output=True, text=True, check=False)
        lines = [line for line in csv.reader(io.StringIO(result.stdout)) if len(line) >= 3 and line[2].isdigit()]
        # (position of the payload, its size, time in milliseconds)
        self.packets = sorted((int(pos), int(size), 1000 * float(time)) for time, size, pos in (l[:3] for l in lines)
                              if time != "N/A")
        times = [packet[2] for packet in self.packets]
        self.longest = max((b - a for a, b in zip(times, times[1:])), default=1000)

    def at(self, position):
        """The packet that holds the byte at a position, or None."""
        index = bisect.bisect_right(self.packets, (position, 1 << 62)) - 1
        packet = self.packets[index] if index >= 0 else (0, 0, 0)
        return packet if packet[0] <= position < packet[0] + packet[1] else None


def seek(path, time, audio=0):
    return json.loads(run(LXAVI, "seek", str(path), str(time), "--json", "--budget", "1000000000", *track_option(audio)))


class Film:
    """One file, with the results of our tool and of the media tool."""

    def __init__(self, path):
        self.path = path
        self.packets = Packets(path)
        self.table = [(int(r["time_ms"]), int(r["frame"])) for r in rows("index", path, "--budget", "1000000000")]
        self.delivered = rows("chunks", path)
        self.video = {int(r["frame"]): r for r in self.delivered if r["type"] == "video"}
        info = json.loads(run(LXAVI, "info", str(path), "--json"))
        self.frame = info["frame_us"]
        self.streams = info["streams"]
        # The clocks differ: the main header has whole microseconds per frame, the stream header has a fraction.
        self.drift = 2 + self.table[-1][0] // 2000
        self.end = sum(info["segments"][-1].values())

    def is_placeholder(self, offset):
        """Whether a frame of 0 bytes or 1 byte stands there; it repeats the frame before. The media tool leaves out
        frames of 0 bytes, and reports some frames of 1 byte as key frames, although no index says so."""
        with open(self.path, "rb") as data:
            data.seek(offset + 4)
            return int.from_bytes(data.read(4), "little") <= 1

    def key_offsets(self):
        return {int(self.video[frame]["offset"]) for _, frame in self.table}

    def times(self, source):
        """Random times. None is so close to a key frame that the two clocks could choose different key frames. All are
        in the first half of a frame, because the media tool rounds a time to the nearest frame."""
        last, times = self.table[-1][0] + 500, []
        for _ in range(100 * TIMES):
            time = source.randrange(0, last)
            early = time * 1000 % self.frame < self.frame * 0.4
            if early and all(time - key > self.drift or time < key - self.drift or key == 0 for key, _ in self.table):
                times.append(time)
        return times[:TIMES]


@unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
class Seeking(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.source = random.Random(11)
        files = sorted(SAMPLES.glob("*.avi")) + made_files() + corpus()
        cls.refused = [path.name for path in files if not is_seekable(path)]
        films = [Film(path) for path in files if path.name not in cls.refused]
        cls.foreign = [film.path.name for film in films if not film.packets.keys]
        cls.films = [film for film in films if film.packets.keys]

    def test_key_frames_are_those_of_the_media_tool(self):
        for film in self.films:
            with self.subTest(file=film.path.name):
                ours, theirs = film.key_offsets(), {key[1] for key in film.packets.keys}
                self.assertTrue(all(film.is_placeholder(o) for o in ours ^ theirs), sorted(ours ^ theirs))

    def test_fifty_random_times_land_where_the_media_tool_lands(self):
        seeks = 0
        for film in self.films:
            with self.subTest(file=film.path.name):
                times = film.times(self.source)
                theirs = Packets.landings(film.path, [time / 1000 for time in times])
                for time, packet in zip(times, theirs):
                    landed = seek(film.path, time)
                    self.check_landing(film, landed, time)
                    self.check_audio(film, landed)
                    self.assertEqual(landed["first_video"]["offset"], packet[1], (landed, packet))
                    seeks += 1
        print(f"{len(self.films)} files, {seeks} seeks; not seekable: {self.refused}; not read by the media tool: "
              f"{self.foreign}", file=sys.stderr)
        self.assertGreaterEqual(seeks, TIMES * 5)

    def check_landing(self, film, landed, time):
        down = max((k for k in film.table if k[0] <= time), default=film.table[0])
        self.assertEqual(landed["landed_ms"], down[0], time)
        self.assertTrue(landed["first_video"]["key"])
        self.assertEqual(landed["first_video"]["offset"], int(film.video[down[1]]["offset"]))

    def check_audio(self, film, landed):
        """Audio has to resume with the chunk that plays at the key frame's time, or one chunk earlier, never later."""
        audio, video = landed.get("first_audio"), landed["first_video"]
        if not audio:
            return
        self.assertLessEqual(audio["time_ms"], video["time_ms"], landed)
        starts = [int(r["time_ms"]) for r in film.delivered if r["type"] == "audio"]
        behind = [start for start in starts if start > audio["time_ms"]]
        if len(behind) > 1:
            self.assertGreaterEqual(behind[1], video["time_ms"], landed)

    def test_from_there_on_every_chunk_is_delivered(self):
        for film in self.films:
            with self.subTest(file=film.path.name):
                for time in film.times(self.source)[:4]:
                    landed = seek(film.path, time)["first_video"]["offset"]
                    got = rows("chunks", film.path, "--from", str(time), "--budget", "1000000000")
                    ours = [(int(r["offset"]), int(r["size_bytes"])) for r in got if r["type"] == "video"]
                    want = [(int(r["offset"]), int(r["size_bytes"])) for r in film.video.values() if int(r["offset"]) >= landed]
                    self.assertEqual(ours, want)
                    # Behind the media data the media tool can find leftovers of another file.
                    theirs = [p[1] for p in film.packets.packets if landed <= p[1] < film.end]
                    self.assertEqual([offset for offset, size in ours if size > 0], theirs)
                    self.check_audio_from(film, got)

    def check_audio_from(self, film, got):
        """Checks all delivered chunks of the track. The trim can have removed the beginning of the first chunk."""
        ours = [r for r in got if r["type"] == "audio"]
        if not ours:
            return
        all_of_track = [r for r in film.delivered if r["type"] == "audio"]
        rest = [r for r in all_of_track if int(r["frame"]) >= int(ours[0]["frame"])]
        self.assertEqual([(r["offset"], r["crc32"], r["frame"], r["byte_position"]) for r in ours[1:]],
                         [(r["offset"], r["crc32"], r["frame"], r["byte_position"]) for r in rest[1:]])
        end = int(rest[0]["byte_position"]) + int(rest[0]["size_bytes"])
        self.assertEqual(int(ours[0]["byte_position"]) + int(ours[0]["size_bytes"]), end)


# Streams whose packet times in the media tool are wrong. Its decoder gives 19 frames of 72 ms; its packets have the time of
# blocks of 576 bytes, eight frames in each.
WRONG_PACKET_TIMES = {("strongcourage+fuzzing-corpus__avi_bear_mpeg4asp_mp3.avi", 1)}


@unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
class Times(unittest.TestCase):
    """Compares times of chunks with the times of the media tool's packets of the same bytes."""

    @classmethod
    def setUpClass(cls):
        cls.source = random.Random(12)
        cls.files = sorted(SAMPLES.glob("*.avi")) + made_files() + corpus()

    def test_audio_after_a_seek_has_the_time_of_its_bytes(self):
        chunks, worst = 0, 0.0
        for path in self.files:
            if not is_seekable(path):
                continue
            film = Film(path)
            audio = [i for i, stream in enumerate(film.streams) if stream["type"] == "audio"]
            for track, stream in enumerate(audio):
                timeline = Timeline(path, stream)
                for time in film.times(self.source):
                    with self.subTest(file=path.name, track=track, time=time):
                        off = self.difference(seek(path, time, track), timeline, film.streams[stream])
                        worst = max(worst, off)
                        chunks += 1
        print(f"{chunks} chunks after a seek, at most {worst:.3f} ms or packets off", file=sys.stderr)
        self.assertGreaterEqual(chunks, TIMES * 5)

    def difference(self, landed, timeline, stream):
        """How far the time of the first audio chunk is off: in milliseconds for PCM, else in packets."""
        audio = landed["first_audio"]
        if not audio or audio["size_bytes"] == 0:
            return 0.0
        packet = timeline.at(audio["offset"] + HEADER)
        self.assertIsNotNone(packet, landed)
        pcm = stream["codec"].startswith("PCM")
        # a trim, or a packet that is a part of the chunk, begins at another byte
        ahead = 1000 * (audio["offset"] + HEADER - packet[0]) / max(stream["stated_bps"] // 8, 1) if pcm else 0
        off = abs(audio["time_ms"] - packet[2] - ahead) / (1 if pcm else timeline.longest)
        self.assertLess(off, 1.001, (landed, packet))
        return off

    def test_the_last_packet_of_each_stream_has_its_time(self):
        streams = 0
        for path in self.files:
            ours = {}
            tracks = max(1, sum(1 for s in json.loads(run(LXAVI, "info", str(path), "--json"))["streams"]
                                if s["type"] == "audio"))
            for track in range(tracks):
                for row in delivered(path, track):
                    if row["type"] != "subtitle" and int(row["size_bytes"]) > 0:
                        ours.setdefault(int(row["stream"]), []).append((int(row["offset"]) + HEADER, int(row["time_ms"])))
            for stream, chunks in ours.items():
                timeline = Timeline(path, stream)
                known = [chunk for chunk in chunks if timeline.at(chunk[0])]
                if not known or (path.name, stream) in WRONG_PACKET_TIMES:
                    continue
                with self.subTest(file=path.name, stream=stream):
                    position, time = known[-1]
                    self.assertLessEqual(abs(time - timeline.at(position)[2]), timeline.longest + 1)
                    streams += 1
        print(f"{streams} streams end with the media tool", file=sys.stderr)
        self.assertGreaterEqual(streams, 5)


def delivered(path, track):
    """The chunks that the tool delivers, up to the end of the file or to damage."""
    result = subprocess.run([LXAVI, "chunks", str(path), "--csv", *track_option(track)], capture_output=True, text=True,
                            check=False)
    return list(csv.DictReader(io.StringIO(result.stdout)))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
