#!/usr/bin/env python3
"""Compares the key-frame table from the media data with that from the index, and seeks in files whose index was cut off.
Usage: rebuilding.py LXAVI SAMPLES"""

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
from material import LXAVI, SAMPLES, InScratchFolder, corpus, is_seekable, made_files, rows, run  # noqa: E402
from plainwalker import walk  # noqa: E402

TIMES = 50
BUDGET = ("--budget", "1000000000")
SAMPLE_FILES = sorted(SAMPLES.glob("*.avi"))

# A file for each rule that an installed encoder can test: short groups of pictures, and B-frames where there are some.
ENCODERS = {
    "mpeg4": "-c:v mpeg4 -g 12 -bf 2",
    "xvid": "-c:v libxvid -g 12 -bf 2",  # with placeholders
    "h264": "-c:v libx264 -g 30 -bf 2",
    "h264_units": "-c:v libx264 -g 30 -x264-params aud=1:slices=3",
    "hevc": "-c:v libx265 -x265-params log-level=none:keyint=20 -tag:v HEVC",
    "hevc_open": "-c:v libx265 -x265-params log-level=none:keyint=20:open-gop=1:aud=1 -tag:v HEVC",
    "mpeg1": "-c:v mpeg1video -g 12 -bf 2",
    "mpeg2": "-c:v mpeg2video -g 12 -bf 2",
    "msmpeg4v2": "-c:v msmpeg4v2 -g 12",
    "msmpeg4v3": "-c:v msmpeg4 -g 12",
    "wmv1": "-c:v wmv1 -g 12",
    "wmv2": "-c:v wmv2 -g 12",
    "h263": "-c:v h263 -s 128x96 -g 12",
    "h263p": "-c:v h263p -g 12",
    "flv1": "-c:v flv -g 12",
    "vp8": "-c:v libvpx -g 12",
    "vp9": "-c:v libvpx-vp9 -g 12 -cpu-used 8",
    "vp9_444": "-c:v libvpx-vp9 -g 12 -cpu-used 8 -pix_fmt yuv444p",
    "av1": "-c:v libsvtav1 -g 12 -s 128x96",
    "cinepak": "-c:v cinepak -frames:v 40",
    "ffv1": "-c:v ffv1 -g 12",
    "zmbv": "-c:v zmbv -g 12",
    "mjpeg": "-c:v mjpeg",
    "dv": "-c:v dvvideo -s 720x576 -pix_fmt yuv420p -frames:v 10",
    "huffyuv": "-c:v huffyuv -frames:v 10",
    "utvideo": "-c:v utvideo -frames:v 10",
}
# Frames of these codecs do not tell what they are; and a recovery point is no key frame, whatever the index says.
ONLY_THE_FIRST = {
    "msvideo1": "-c:v msvideo1 -frames:v 40",
    "h264_open": "-c:v libx264 -g 30 -bf 2 -x264-params open-gop=1",
    "h264_refresh": "-c:v libx264 -g 30 -x264-params intra-refresh=1",
}
# The frames of these files tell less than their index: run-length coding has no field for it.
CORPUS_WITHOUT_RULE = ("dillo", "filecopy", "search")


def encode(folder, name, options):
    """Makes a file; None when this machine's media tool has no such encoder."""
    path = folder / f"{name}.avi"
    result = subprocess.run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                             "testsrc2=size=96x64:rate=25:duration=4", "-f", "lavfi", "-i",
                             "sine=sample_rate=8000:duration=4", *options.split(), "-c:a", "pcm_s16le", str(path)],
                            capture_output=True, text=True, check=False)
    return path if result.returncode == 0 else None


def tables(path, *options):
    return rows("index", path, *BUDGET, *options), rows("index", path, *BUDGET, "--rebuild=always", *options)


@unittest.skipUnless(shutil.which("ffmpeg"), "ffmpeg is not installed")
class Encoders(InScratchFolder):
    def test_the_tables_are_equal_for_every_codec_with_a_rule(self):
        made = 0
        for name, options in ENCODERS.items():
            with self.subTest(encoder=name):
                path = encode(self.folder, name, options)
                if path is None:
                    continue
                made += 1
                by_index, by_media_data = tables(path)
                self.assertEqual(by_media_data, by_index)
                self.assertGreater(len(by_index), 1)
        self.assertGreater(made, len(ENCODERS) // 2)

    def test_of_other_codecs_the_first_frame_is_a_key_frame(self):
        for name, options in ONLY_THE_FIRST.items():
            with self.subTest(encoder=name):
                path = encode(self.folder, name, options)
                if path is not None:
                    by_index, by_media_data = tables(path)
                    self.assertEqual(by_media_data, by_index[:1])

    def test_h264_behind_lengths_equals_h264_behind_start_codes(self):
        path = encode(self.folder, "h264", ENCODERS["h264"])
        if path is None:
            self.skipTest("no encoder")
        data, found = path.read_bytes(), walk(path).chunks
        head = bytearray(data[:found[0].offset])
        head[head.rindex(b"movi") - 4:head.rindex(b"movi")] = bytes(4)  # as if the writer was stopped
        body = b"".join(self.with_lengths(data[c.offset:c.offset + 8 + c.size]) for c in found)
        frames = [[r["frame"] for r in table] for table in
                  (rows("index", path), rows("index", self.file(head + body), "--rebuild"))]
        self.assertEqual(frames[1], frames[0])
        self.assertGreater(len(frames[0]), 3)

    def with_lengths(self, chunk):
        """The chunk with lengths of 4 bytes before its units, if it is a video frame."""
        code, payload = chunk[:4], chunk[8:]
        if code == b"00dc":
            units = [u.rstrip(b"\0") for u in payload.split(b"\0\0\1")[1:]]
            payload = b"".join(len(u).to_bytes(4, "big") + u for u in units)
        return code + len(payload).to_bytes(4, "little") + payload + b"\0" * (len(payload) % 2)


class SameTables(InScratchFolder):
    def test_the_tables_of_all_files_are_equal(self):
        for path in SAMPLE_FILES + made_files() + corpus():
            if not walk(path).chunks:
                continue
            with self.subTest(file=path.name):
                if not is_seekable(path):
                    continue
                by_index, by_media_data = tables(path)
                if any(name in path.name for name in CORPUS_WITHOUT_RULE):
                    by_index = by_index[:1]
                self.assertEqual(by_media_data, by_index)

    def test_info_tells_where_the_table_comes_from(self):
        info = json.loads(run(LXAVI, "info", str(SAMPLE_FILES[0]), "--json", "--rebuild=always"))
        self.assertEqual(info["index"]["kind"], "none used: the table comes from the media data")
        info = json.loads(run(LXAVI, "info", str(SAMPLE_FILES[0]), "--json", "--rebuild"))
        self.assertNotIn("media data", info["index"]["kind"])

    def test_a_budget_thins_by_powers_of_two(self):
        path = SAMPLES / "mjpeg_pcm.avi"
        frames = [r["frame"] for r in rows("index", path, "--rebuild=always", "--budget", "70000")]
        self.assertEqual(frames, [r["frame"] for r in rows("index", path, "--budget", "70000")])


@unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
class WithoutIndex(InScratchFolder):
    def test_seeks_land_on_the_media_tools_key_frames(self):
        source = random.Random(18)
        for path in SAMPLE_FILES + made_files() + corpus():
            found = walk(path).chunks
            if not found or not any(c.stream == 0 for c in found):
                continue
            with self.subTest(file=path.name):
                self.compare(path, source)

    def compare(self, path, source):
        keys = self.key_frames(path)
        if any(name in path.name for name in CORPUS_WITHOUT_RULE):
            keys = keys[:1]
        cut = self.file(self.without_indexes(path.read_bytes()))
        self.assertFalse(is_seekable(cut))
        for _ in range(TIMES):
            time = source.randrange(0, keys[-1][0] + 1000)
            seek = json.loads(run(LXAVI, "seek", str(cut), str(time), "--json", "--rebuild", *BUDGET))
            expected = keys[max(0, bisect.bisect_right(keys, (time, 1 << 60)) - 1)]
            self.assertEqual((seek["landed_ms"], seek["first_video"]["offset"]), expected)
            self.assertTrue(seek["first_video"]["key"])

    def without_indexes(self, data):
        """idx1 cut off with all that follows, indx made unknown. Media data stay where they are."""
        end = data.rfind(b"idx1")
        return (data[:end] if end > data.find(b"movi") else data).replace(b"indx", b"JUNK")

    def key_frames(self, path):
        """(time, offset) of the frames that the media tool takes for key frames, by the times of the reader. Of packets
        that it reads twice or behind the media data, only those that are chunks count."""
        packets = csv.reader(io.StringIO(run("ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                                             "packet=pos,flags", "-of", "csv=p=0", str(path))))
        theirs = {int(p[0]) for p in packets if len(p) > 1 and p[0].isdigit() and p[1].startswith("K")}
        ours = [(int(r["time_ms"]), int(r["offset"])) for r in rows("chunks", path) if r["type"] == "video"]
        sizes = {c.offset: c.size for c in walk(path).chunks}
        return [(t, o) for t, o in ours if (o in theirs or o + 8 in theirs) and sizes.get(o, 9) > 8]


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
