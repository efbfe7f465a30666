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
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from plainwalker import walk  # noqa: E402

LXAVI, SAMPLES = sys.argv[1], pathlib.Path(sys.argv[2])
SCRATCH = tempfile.TemporaryDirectory(prefix="lxavi-interop-")

FFMPEG_FILES = {
    "mpeg4_ac3.avi": "-c:v mpeg4 -g 12 -bf 0 -c:a ac3 -b:a 96k",
    "mjpeg_mp2.avi": "-c:v mjpeg -q:v 9 -c:a mp2 -b:a 64k",
    "h264_mp3.avi": "-c:v libx264 -preset ultrafast -g 30 -bf 0 -c:a libmp3lame -b:a 64k",
    "raw_pcm.avi": "-c:v rawvideo -pix_fmt bgr24 -s 32x24 -c:a pcm_u8",
}
GSTREAMER_FILE = ("videotestsrc num-buffers=50 ! video/x-raw,width=64,height=48,framerate=25/1 ! jpegenc ! avimux name=m "
                  "! filesink location={} audiotestsrc num-buffers=20 samplesperbuffer=1600 "
                  "! audio/x-raw,format=S16LE,rate=16000,channels=2 ! m.")


def run(*arguments):
    return subprocess.run(arguments, check=True, capture_output=True, text=True).stdout


def rows(command, path, *options):
    return list(csv.DictReader(io.StringIO(run(LXAVI, command, str(path), "--csv", *options))))


def made_files():
    """Files that the installed media tools make; none where a tool is missing."""
    folder, files = pathlib.Path(SCRATCH.name), []
    if shutil.which("ffmpeg"):
        for name, codec in FFMPEG_FILES.items():
            subprocess.run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                            "testsrc=size=96x64:rate=25:duration=4", "-f", "lavfi", "-i",
                            "sine=sample_rate=48000:duration=4", *codec.split(), str(folder / name)], check=True)
            files.append(folder / name)
    if shutil.which("gst-launch-1.0"):
        path = folder / "gstreamer.avi"
        if subprocess.run(["gst-launch-1.0", "-q", *GSTREAMER_FILE.format(path).split()],
                          capture_output=True, check=False).returncode == 0:
            files.append(path)
    return files


SAMPLE_FILES = sorted(SAMPLES.glob("*.avi"))
FILES = SAMPLE_FILES + made_files()


def is_misread(path):
    """OpenDML records that begin 32 bytes behind their chunk are read one word off: no table to compare with."""
    return "read one word off" in run(LXAVI, "info", str(path))


class Delivery(unittest.TestCase):
    def expected(self, found, track):
        """What is to be delivered: the main video and one audio track; short last chunks are out of reach."""
        audio = [i for i, kind in enumerate(found.types) if kind == b"auds"]
        wanted = {found.types.index(b"vids")} | ({audio[track]} if track < len(audio) else set())
        chunks = [c for c in found.chunks if c.stream in wanted]
        return [(c.stream, c.size, c.crc, c.offset) for c in chunks]

    def test_delivered_chunks_equal_the_plain_walk_for_every_track(self):
        self.assertGreaterEqual(len(FILES), 4)
        for path in FILES:
            found = walk(path)
            for track in range(max(1, found.types.count(b"auds"))):
                with self.subTest(file=path.name, track=track):
                    got = [(int(r["stream"]), int(r["size"]), int(r["crc32"]), int(r["offset"]))
                           for r in rows("chunks", path, "--audio", str(track))]
                    want = self.expected(found, track)
                    if want[-1][1] < 4 and found.chunks[-1].offset == want[-1][3]:
                        want.pop()  # the last four bytes of a plain list are out of reach
                    self.assertEqual(got, want)

    def test_check_finds_nothing_wrong_with_good_files(self):
        for path in FILES:
            with self.subTest(file=path.name):
                result = subprocess.run([LXAVI, "check", str(path)], capture_output=True, text=True, check=False)
                if is_misread(path):
                    self.assertIn("one word off", result.stdout)
                else:
                    self.assertEqual(result.returncode, 0, result.stdout)


class LargeFile(unittest.TestCase):
    """More than 1 GiB by a media tool: OpenDML, of several RIFF lists."""

    @unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
    @unittest.skipUnless(shutil.disk_usage(SCRATCH.name).free > 4 << 30, "not enough room on the disk")
    def test_it_is_delivered_whole_across_its_segments(self):
        path = pathlib.Path(SCRATCH.name) / "large.avi"
        self.addCleanup(path.unlink)
        subprocess.run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                        "color=c=red:size=1280x720:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=48000", "-frames:v",
                        "400", "-shortest", "-c:v", "rawvideo", "-pix_fmt", "bgr24", "-c:a", "pcm_s16le", str(path)],
                       check=True)
        self.assertGreater(path.stat().st_size, 1 << 30)
        self.assertGreaterEqual(len(json.loads(run(LXAVI, "info", str(path), "--json"))["segments"]), 2)
        got = [(int(r["offset"]), int(r["size"]), int(r["crc32"])) for r in rows("chunks", path)]
        self.assertEqual(got, [(c.offset, c.size, c.crc) for c in walk(path).chunks])


class KeyFrames(unittest.TestCase):
    @unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
    def test_the_tables_key_frames_are_those_of_the_media_tool(self):
        for path in FILES:
            if is_misread(path):
                continue
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
            if is_misread(path):
                continue
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
    """A folder of files by many writers, where the environment names one."""

    @unittest.skipUnless(os.environ.get("LXAVI_CORPUS"), "LXAVI_CORPUS names no folder")
    def test_every_file_is_delivered_or_refused_clearly(self):
        for path in sorted(pathlib.Path(os.environ["LXAVI_CORPUS"]).glob("*.[aA][vV][iI]")):
            with self.subTest(file=path.name):
                result = subprocess.run([LXAVI, "chunks", str(path), "--csv"], capture_output=True, text=True,
                                        check=False)
                self.assertIn(result.returncode, (0, 1))
                if result.returncode == 1:
                    self.assertRegex(result.stderr, r"lxavi: .*: .* \(LX_ERR_AVIREAD_\w+\)")
                    continue
                found = walk(path)
                got = [(int(r["offset"]), int(r["size"]), int(r["crc32"]))
                       for r in csv.DictReader(io.StringIO(result.stdout))]
                every = {(c.offset, c.size, c.crc) for c in found.chunks}
                self.assertLessEqual(set(got), every)
                self.assertGreaterEqual(len(got), 1 if found.chunks else 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
