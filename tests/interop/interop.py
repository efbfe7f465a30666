#!/usr/bin/env python3
"""Compares what the tool delivers with a plain walker and with general media tools. Usage: interop.py LXAVI SAMPLES"""

import csv
import io
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from material import (LXAVI, SAMPLES, corpus, has_room_for_a_large_file, large_file, made_files, rows, run,  # noqa: E402
                      track_option)
from plainwalker import walk  # noqa: E402

SAMPLE_FILES = sorted(SAMPLES.glob("*.avi"))
FILES = SAMPLE_FILES + made_files()
MODES = ((), ("--default-mode",))


def is_misread(path, *mode):
    """Whether the library misreads the index: default mode reads records that begin at 32 bytes one word off."""
    return "read one word off" in run(LXAVI, "info", str(path), *mode)


class Delivery(unittest.TestCase):
    def expected(self, found, track):
        """The expected delivery: the main video and one audio track. Default mode does not reach short last chunks."""
        audio = [i for i, kind in enumerate(found.types) if kind == b"auds"]
        wanted = {found.types.index(b"vids")} | ({audio[track]} if track < len(audio) else set())
        chunks = [c for c in found.chunks if c.stream in wanted]
        return [(c.stream, c.size, c.crc, c.offset) for c in chunks]

    def test_delivered_chunks_equal_the_plain_walk_for_every_track(self):
        self.assertGreaterEqual(len(FILES), 4)
        for path in FILES:
            found = walk(path)
            for track in range(max(1, found.types.count(b"auds"))):
                for mode in MODES:
                    with self.subTest(file=path.name, track=track, mode=mode):
                        got = [(int(r["stream"]), int(r["size_bytes"]), int(r["crc32"]), int(r["offset"]))
                               for r in rows("chunks", path, *track_option(track), *mode)]
                        want = self.expected(found, track)
                        if mode and want[-1][1] < 4 and found.chunks[-1].offset == want[-1][3]:
                            want.pop()  # default mode does not reach the last four bytes of a plain list
                        self.assertEqual(got, want)

    def test_check_finds_nothing_wrong_with_good_files(self):
        for path in FILES:
            for mode in MODES:
                with self.subTest(file=path.name, mode=mode):
                    result = subprocess.run([LXAVI, "check", str(path), *mode], capture_output=True, text=True,
                                            check=False)
                    if mode and is_misread(path, *mode):
                        self.assertIn("one word off", result.stdout)
                        self.assertIn("Q39", result.stdout)
                    else:
                        self.assertEqual(result.returncode, 0, result.stdout)


class LargeFile(unittest.TestCase):
    """A file of more than 1 GiB, made by a media tool: OpenDML, with several RIFF lists."""

    @unittest.skipUnless(has_room_for_a_large_file(), "no media tool, or not enough room on the disk")
    def test_it_is_delivered_whole_and_seekable_across_its_segments(self):
        path = large_file()
        self.addCleanup(path.unlink)
        self.assertGreater(path.stat().st_size, 1 << 30)
        segments = json.loads(run(LXAVI, "info", str(path), "--json"))["segments"]
        self.assertGreaterEqual(len(segments), 2)
        checked = json.loads(run(LXAVI, "check", str(path), "--json"))  # its index lists the chunks of all segments
        self.assertEqual((checked["summary"]["errors"], checked["summary"]["warnings"]), (0, 0), checked["rows"])
        found = walk(path).chunks
        for mode in MODES:
            got = [(int(r["offset"]), int(r["size_bytes"]), int(r["crc32"])) for r in rows("chunks", path, *mode)]
            self.assertEqual(got, [(c.offset, c.size, c.crc) for c in found])
        frames = [c for c in found if c.stream == 0]
        self.assertEqual(len(rows("index", path, "--budget", "100000000")), len(frames))
        starts = [s["offset"] for s in segments]
        reached = set()
        for frame in range(0, len(frames) - 9, 7):  # the audio ends some frames earlier
            seek = json.loads(run(LXAVI, "seek", str(path), str(40 * frame + 21), "--budget", "100000000", "--json"))
            self.assertEqual(seek["first_video"]["offset"], frames[frame].offset)
            self.assertTrue(seek["first_video"]["key"])
            self.assertTrue(-45 <= seek["audio_minus_video_ms"] <= 0, seek)
            reached.add(sum(frames[frame].offset >= start for start in starts))
        self.assertEqual(reached, set(range(1, len(starts) + 1)))


class KeyFrames(unittest.TestCase):
    @unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
    def test_the_tables_key_frames_are_those_of_the_media_tool(self):
        for path in FILES:
            with self.subTest(file=path.name):
                packets = csv.reader(io.StringIO(run(
                    "ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "packet=pos,flags", "-of",
                    "csv=p=0", str(path))))
                theirs = {int(p[0]) for p in packets if len(p) > 1 and p[1].startswith("K")}
                table = rows("index", path, "--budget", "100000000")
                chunks = {(r["type"], int(r["frame"])): int(r["offset"]) for r in rows("chunks", path)}
                ours = {chunks["video", int(r["frame"])] for r in table}
                self.assertTrue(ours == theirs or {o + 8 for o in ours} == theirs, (sorted(ours)[:5], sorted(theirs)[:5]))

    def test_two_hundred_random_times_with_each_rounding_land_where_the_definition_says(self):
        source = random.Random(7)
        for path in SAMPLE_FILES:
            table = [(int(r["time_ms"]), int(r["frame"])) for r in rows("index", path)]
            crcs = {c.offset: c.crc for c in walk(path).chunks}
            with self.subTest(file=path.name):
                for _ in range(200):
                    self.seek(path, table, crcs, source.randrange(0, table[-1][0] + 500))

    def seek(self, path, table, crcs, time):
        down = max((k for k in table if k[0] <= time), default=table[0])
        up = min((k for k in table if k[0] >= time), default=table[-1])
        nearest = up if up[0] - time < time - down[0] else down
        for rounding, key in (("down", down), ("up", up), ("nearest", nearest)):
            first = next(r for r in rows("chunks", path, "--from", str(time), "--round", rounding, "--limit", "60")
                         if r["type"] == "video")
            self.assertEqual((int(first["frame"]), first["key"]), (key[1], "1"), (time, rounding))
            self.assertEqual(int(first["crc32"]), crcs[int(first["offset"])])


class Corpus(unittest.TestCase):
    """A folder of files by many writers, if the environment names one."""

    @unittest.skipUnless(os.environ.get("LXAVI_CORPUS"), "LXAVI_CORPUS names no folder")
    def test_every_file_is_delivered_or_refused_clearly(self):
        for path, mode in ((path, mode) for path in corpus() for mode in MODES):
            with self.subTest(file=path.name, mode=mode):
                result = subprocess.run([LXAVI, "chunks", str(path), "--csv", *mode], capture_output=True, text=True,
                                        check=False)
                self.assertIn(result.returncode, (0, 1))
                if result.returncode == 1:
                    self.assertRegex(result.stderr, r"lxavi: .*: .* \(LX_ERR_AVIREAD_\w+\)")
                    continue
                found = walk(path)
                got = [(int(r["offset"]), int(r["size_bytes"]), int(r["crc32"]))
                       for r in csv.DictReader(io.StringIO(result.stdout))]
                every = {(c.offset, c.size, c.crc) for c in found.chunks}
                self.assertLessEqual(set(got), every)
                if mode:
                    self.assertGreaterEqual(len(got), 1 if found.chunks else 0)
                else:
                    self.assertEqual(set(got), every)


    @unittest.skipUnless(os.environ.get("LXAVI_CORPUS") and shutil.which("ffprobe"), "no files, or no media tool")
    def test_every_file_agrees_with_the_media_tool(self):
        script = pathlib.Path(__file__).parents[2] / "scripts" / "corpus"
        result = subprocess.run([script, os.environ["LXAVI_CORPUS"], "--lxavi", LXAVI], capture_output=True, text=True,
                                check=False)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
