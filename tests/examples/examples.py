#!/usr/bin/env python3
"""Runs the examples on samples, made files and damaged files, and compares what they say with the tool.
Usage: examples.py LXAVI SAMPLES FOLDER_OF_THE_EXAMPLES [--valgrind]"""

import json
import os
import pathlib
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import wave

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "interop"))
from material import SAMPLES, made_files, rows, track_option  # noqa: E402

EXAMPLES = pathlib.Path(sys.argv[3])
VALGRIND = (["valgrind", "-q", "--error-exitcode=99", "--leak-check=full", "--show-leak-kinds=all"]
            if "--valgrind" in sys.argv and shutil.which("valgrind") else [])
MJPEG, TWO = SAMPLES / "mjpeg_pcm.avi", SAMPLES / "two_audio.avi"
DEFINED = (0, 1)  # what an example may say about a file: played to the end, or not


def example(name, *arguments, watched=False):
    command = [*(VALGRIND if watched else []), EXAMPLES / f"example_{name}", *arguments]
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, errors="replace",
                          timeout=120, check=False)


def files():
    return sorted(SAMPLES.glob("*.avi")) + made_files()


def total(path, *options):
    """Chunks and bytes that the tool delivers."""
    sizes = [int(row["size_bytes"]) for row in rows("chunks", path, *options)]
    return len(sizes), sum(sizes)


class Examples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lxavi-examples-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def expect_played(self, result, chunks, size):
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertRegex(result.stdout, rf"\n{chunks} chunks, {size} bytes: The media data has ended\.\n$")

    # ---- play ----

    def test_play_delivers_what_the_tool_delivers(self):
        for path in files():
            with self.subTest(path.name):
                self.expect_played(example("play", path), *total(path))

    def test_play_lists_what_the_media_tool_lists(self):
        if not shutil.which("ffprobe"):
            self.skipTest("ffprobe is not installed")
        codec_data = self.folder / "codec_data.avi"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=96x64:rate=25:duration=1", "-c:v",
                        "ffvhuff", str(codec_data)], check=True)
        for path in [*files(), codec_data]:
            with self.subTest(path.name):
                listed = re.findall(r"stream \d+: (\w+) track \d+, ([\d.]+) s, (\d+) chunks, (\d+) bytes, format (\d+) b",
                                    example("play", path).stdout)
                probed = json.loads(subprocess.run(
                    ["ffprobe", "-v", "error", "-count_packets", "-show_streams", "-of", "json", str(path)],
                    capture_output=True, check=True).stdout)["streams"]
                self.assertEqual(len(listed), len(probed))
                for (kind, seconds, chunks, _, format_bytes), stream in zip(listed, probed):
                    self.assertEqual(kind, {"video": "vids", "audio": "auds"}[stream["codec_type"]])
                    if "duration" in stream:  # it is unknown of uncompressed audio
                        self.assertAlmostEqual(float(seconds), float(stream["duration"]), delta=0.05)
                    if kind == "vids":  # an empty chunk repeats a frame, and is no packet
                        empty = sum(row["size_bytes"] == "0" for row in rows("chunks", path) if row["type"] == "video")
                        self.assertEqual(int(chunks) - empty, int(stream["nb_read_packets"]))
                    if kind == "vids" and int(format_bytes) > 40:
                        self.assertEqual(int(format_bytes) - 40, stream["extradata_size"])
                if path == codec_data:
                    self.assertGreater(int(listed[0][4]), 40)

    def test_play_follows_its_commands(self):
        video, first, second = (len([row for row in rows("chunks", TWO, "--audio", track) if row["type"] == kind])
                                for kind, track in (("video", "0"), ("audio", "0"), ("audio", "1")))
        self.expect_played(example("play", TWO, "audio=1"), video + second, 16585 + 80000)
        played = example("play", TWO, "seek=2.2", "play=0.5", "audio=1", "seek=0")
        self.assertIn("seek to 2.200 s: key frame at 1.640 s\n", played.stdout)
        self.assertIn("seek to 0.000 s: key frame at 0.000 s\n", played.stdout)
        count = int(re.search(r"\n(\d+) chunks", played.stdout)[1])
        self.assertGreater(count, video + second + 13)  # 0.5 s, and all of the file with the second track
        self.assertLess(count, video + second + 13 + first)
        self.assertIn("what is jump=1?", example("play", TWO, "jump=1").stderr)

    def test_play_seeks_behind_the_end_too(self):
        whole = int(re.search(r"\n(\d+) chunks", example("play", TWO).stdout)[1])
        again = example("play", TWO, "play=1000", "seek=0")
        self.assertEqual(int(re.search(r"\n(\d+) chunks", again.stdout)[1]), 2 * whole)

    def test_play_without_an_index_plays_to_the_end(self):
        path = self.folder / "no_index.avi"
        path.write_bytes(TWO.read_bytes().replace(b"idx1", b"JUNK"))
        result = example("play", path, "seek=2")
        self.expect_played(result, *total(TWO))
        self.assertNotIn("seek to", result.stdout)
        self.assertIn("no index", result.stderr)

    def test_play_stops_by_ctrl_c_also_while_a_read_waits(self):
        data = TWO.read_bytes()
        pipe = self.folder / "pipe"
        os.mkfifo(pipe)
        player = subprocess.Popen([str(EXAMPLES / "example_play"), str(pipe)], stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        with open(pipe, "wb") as writer:
            writer.write(data[:len(data) // 2])
            writer.flush()
            while b"frame 20 " not in player.stderr.read(64):
                self.assertIsNone(player.poll())
            time.sleep(0.3)  # until the reader waits for the other half
            started = time.monotonic()
            player.send_signal(signal.SIGINT)
            output = player.communicate(timeout=20)[0]
        self.assertLess(time.monotonic() - started, 10)
        self.assertEqual(player.returncode, 1)
        self.assertIn(b"The call was aborted.", output)

    def test_play_leaks_nothing_and_reads_nothing_wrong(self):
        for path in sorted(SAMPLES.glob("*.avi")):
            result = example("play", path, "seek=1", "play=0.5", "audio=1", "seek=0.2", watched=True)
            self.assertEqual(result.returncode, 0, result.stderr[-3000:])
        cut = self.folder / "cut.avi"
        cut.write_bytes(TWO.read_bytes()[:60000])
        self.assertEqual(example("play", cut, "seek=1", watched=True).returncode, 1)

    # ---- The others ----

    def test_memory_plays_as_many_chunks_as_play(self):
        for path in files():
            with self.subTest(path.name):
                result = example("memory", path)
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertEqual(result.stdout, f"{total(path)[0]} chunks: The media data has ended.\n")

    def test_memory_plays_a_recording_that_was_stopped(self):
        whole = TWO.read_bytes()
        cut = self.folder / "cut.avi"
        cut.write_bytes(whole[:whole.rindex(b"idx1")])  # the RIFF list claims more than there is
        self.assertEqual(example("memory", cut).stdout, f"{total(TWO)[0]} chunks: The media data has ended.\n")

    def test_thumbnails_are_key_frames_that_open(self):
        for path in files():
            with self.subTest(path.name):
                folder = self.folder / path.name
                folder.mkdir()
                result = example("thumbnails", path, 5, folder)
                self.assertEqual(result.returncode, 0, result.stderr)
                keys = {row["frame"]: int(row["size_bytes"]) for row in rows("chunks", path)
                        if row["type"] == "video" and row["key"] == "1"}
                written = re.findall(r"/(\d+\.\w+): frame (\d+) at ([\d.]+) s, (\d+) bytes", result.stdout)
                self.assertEqual(len(written), len(list(folder.iterdir())))
                self.assertTrue(0 < len(written) <= 5)
                for name, frame, _, size in written:
                    self.assertEqual(int(size), keys[frame])
                    self.assertEqual((folder / name).stat().st_size, int(size))
                if name.endswith(".jpg"):
                    self.expect_pictures(folder)

    def expect_pictures(self, folder):
        for path in folder.iterdir():
            data = path.read_bytes()
            self.assertTrue(data.startswith(b"\xff\xd8") and b"\xff\xd9" in data[-4:])
            if shutil.which("ffmpeg"):
                decoded = subprocess.run(["ffmpeg", "-v", "error", "-i", str(path), "-f", "rawvideo", "-"],
                                         capture_output=True, check=False)
                self.assertEqual(decoded.stderr, b"")
                self.assertGreater(len(decoded.stdout), 1000)

    def test_thumbnails_of_a_file_without_an_index_are_the_same(self):
        data = MJPEG.read_bytes()
        path = self.folder / "cut.avi"
        path.write_bytes(data[:data.rindex(b"idx1")])
        lines = [example("thumbnails", p, 3, self.folder).stdout for p in (path, MJPEG)]
        self.assertEqual(lines[0], lines[1])
        self.assertEqual(lines[0].count(" at "), 3)

    def test_the_samples_pictures_are_at_equal_distances(self):
        result = example("thumbnails", MJPEG, 3, self.folder)
        self.assertEqual(re.findall(r"at ([\d.]+) s", result.stdout), ["0.000", "1.933", "3.933"])
        self.assertTrue((self.folder / "003.jpg").exists())

    def test_remux_audio_writes_every_track_whole(self):
        for path in files():
            with self.subTest(path.name):
                folder = self.folder / path.name
                folder.mkdir()
                result = example("remux_audio", path, folder)
                self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
                tracks = sum(row["value"] == "audio" and row["key"].endswith(".type") for row in rows("info", path))
                for track in range(8):
                    sizes = [int(row["size_bytes"]) for row in rows("chunks", path, *track_option(track))
                             if row["type"] == "audio"] if track < tracks else []
                    self.expect_wav(folder / f"track-{track}.wav", len(sizes), sum(sizes), result.stdout)

    def expect_wav(self, path, chunks, size, output):
        if chunks == 0:
            self.assertFalse(path.exists())
            return
        self.assertIn(f"{path}: {chunks} chunks, {size} bytes\n", output)
        data = path.read_bytes()
        riff, riff_size, form, format_bytes = struct.unpack("<4sI8sI", data[:20])
        self.assertEqual((riff, form), (b"RIFF", b"WAVEfmt "))
        self.assertEqual(riff_size + 8, len(data))
        head = 20 + format_bytes + format_bytes % 2
        self.assertEqual(data[head:head + 8], b"data" + struct.pack("<I", size))
        self.assertEqual(len(data), head + 8 + size + size % 2)
        if data[20:22] == b"\x01\0":
            with wave.open(str(path)) as sound:
                self.assertEqual(sound.getnframes(), size // (sound.getnchannels() * sound.getsampwidth()))

    # ---- Wrong input ----

    def test_wrong_usage_is_status_2(self):
        for name, arguments in (("play", ()), ("memory", ()), ("memory", ("/no/such/file",)), ("thumbnails", (MJPEG, 3)),
                                ("remux_audio", (MJPEG,))):
            result = example(name, *arguments)
            self.assertEqual(result.returncode, 2)
            self.assertIn(f"usage: {name} FILE", result.stderr)

    def test_refused_files_are_status_1_with_the_reason(self):
        empty = self.folder / "empty.avi"
        empty.write_bytes(b"")
        for name, more in (("play", ()), ("thumbnails", (3, self.folder)), ("remux_audio", (self.folder,))):
            for path, reason in (("/no/such/file", "cannot be opened"), (empty, "ends too early"),
                                 (self.folder, "A read has failed")):
                result = example(name, path, *more)
                self.assertEqual(result.returncode, 1)
                self.assertIn(reason, result.stdout + result.stderr)
        self.assertEqual(example("memory", empty).returncode, 1)
        self.assertEqual(example("thumbnails", MJPEG, 3, "/no/such/folder").returncode, 1)
        self.assertEqual(example("remux_audio", MJPEG, "/no/such/folder").returncode, 1)
        self.assertEqual(example("memory", self.folder).returncode, 2)
        full = example("remux_audio", MJPEG, self.full_disk())
        self.assertEqual(full.returncode, 1)

    def full_disk(self):
        """A folder in which the file of the first track is full from the start."""
        folder = self.folder / "full"
        folder.mkdir()
        (folder / "track-0.wav").symlink_to("/dev/full")
        return folder

    def test_thumbnails_has_a_limit(self):
        for count in ("-1", "4294967295"):
            self.assertEqual(example("thumbnails", MJPEG, count, self.folder).returncode, 0)
            self.assertLessEqual(len(list(self.folder.glob("*.jpg"))), 999)

    def test_damaged_files_end_every_example(self):
        rng = random.Random(1)
        for turn in range(30):
            data = bytearray(rng.choice((TWO, MJPEG)).read_bytes())
            for _ in range(rng.choice((1, 20, 200))):
                data[rng.randrange(len(data) if turn % 2 else 5000)] = rng.randrange(256)
            path = self.folder / "damaged.avi"
            path.write_bytes(bytes(data[:rng.randrange(len(data))]) if turn % 3 == 0 else bytes(data))
            for name, more in (("play", ("seek=1", "audio=1")), ("memory", ()), ("thumbnails", (4, self.folder)),
                               ("remux_audio", (self.folder,))):
                result = example(name, path, *more)
                self.assertIn(result.returncode, DEFINED, f"{name}, turn {turn}: {result.stderr[-2000:]}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
