#!/usr/bin/env python3
"""Tests lxavi repair: copies of damaged files, and files completed in place. Usage: repairing.py LXAVI SAMPLES INTERRUPT

INTERRUPT is a library that ends the tool after so many writes."""

import csv
import io
import json
import os
import pathlib
import random
import shutil
import signal
import struct
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from material import (LXAVI, SAMPLES, InScratchFolder, corpus, has_room_for_a_large_file, large_file,  # noqa: E402
                      lxavi, made_files, rows, run)
from plainwalker import walk  # noqa: E402

INTERRUPT = sys.argv[3]
CUTS = 200
NEEDS_MEDIA_TOOL = unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")


def packets(path):
    """(size, checksum) of each packet by stream, as the media tool reads them. It does not parse payloads."""
    out = subprocess.run(["ffprobe", "-v", "error", "-fflags", "+noparse+nofillin", "-show_entries",
                          "packet=stream_index,size,data_hash", "-show_data_hash", "crc32", "-of", "csv=p=0", str(path)],
                         capture_output=True, text=True, check=False).stdout
    streams = {}
    for line in csv.reader(io.StringIO(out)):
        if len(line) >= 3:
            streams.setdefault(line[0], []).append((line[1], line[2]))
    return streams


def chunks(path):
    return [(c.code, c.size, c.crc) for c in walk(path).chunks]


def without_index(data):
    """The file up to its index."""
    return data[:data.rindex(b"idx1")]


def unfinished(data):
    """The same as its writer had it before the end: sizes and counts of 0."""
    data = bytearray(without_index(data))
    struct.pack_into("<I", data, 4, 0)
    struct.pack_into("<I", data, data.index(b"movi") - 4, 0)
    struct.pack_into("<I", data, data.index(b"avih") + 8 + 16, 0)
    at = data.find(b"strh")
    while at >= 0:
        struct.pack_into("<I", data, at + 8 + 32, 0)
        at = data.find(b"strh", at + 4)
    return bytes(data)


MPEG4, MJPEG, TWO, DV = (SAMPLES / f"{n}.avi" for n in ("mpeg4_mp3", "mjpeg_pcm", "two_audio", "dv_opendml"))


class Repair(InScratchFolder):
    def repaired(self, path, *options, name="out.avi"):
        out = self.folder / name
        result = lxavi("repair", path, "-o", out, "--force", "--json", *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        return out, json.loads(result.stdout)

    def assert_good(self, path):
        result = lxavi("check", path)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


class Copies(Repair):
    def test_a_good_file_stays_what_it_is(self):
        for path in (MPEG4, MJPEG, TWO, DV):
            with self.subTest(file=path.name):
                out, report = self.repaired(path)
                self.assert_good(out)
                self.assertEqual(chunks(out), chunks(path))
                self.assertEqual((report["places_left_out"], report["left_out_bytes"], report["riff_lists"]), (0, 0, 1))
                self.assertEqual(report["chunks"], len(chunks(path)))
                table = [(r["frame"], r["time_ms"], r["a0_frame"], r["a0_bytes"]) for r in rows("index", path)]
                self.assertEqual([(r["frame"], r["time_ms"], r["a0_frame"], r["a0_bytes"]) for r in rows("index", out)],
                                 table)
                again, _ = self.repaired(out, name="again.avi")
                self.assertEqual(again.read_bytes(), out.read_bytes())

    def test_headers_of_an_unfinished_file_are_filled_in(self):
        for path in (MPEG4, MJPEG, TWO):
            with self.subTest(file=path.name):
                out, _ = self.repaired(self.file(unfinished(path.read_bytes())))
                whole, _ = self.repaired(path, name="whole.avi")
                self.assertEqual(out.read_bytes(), whole.read_bytes())
                original = json.loads(run(LXAVI, "info", str(path), "--json"))
                info = json.loads(run(LXAVI, "info", str(out), "--json"))
                self.assertEqual([s["header"] for s in info["streams"]], [s["header"] for s in original["streams"]])
                self.assertEqual(info["duration_us"], original["duration_us"])

    def test_damage_is_left_out_and_counted(self):
        data = MPEG4.read_bytes()
        found = walk(MPEG4).chunks
        at = found[100].offset
        middle = found[200].offset
        damaged = data[:at] + b"\xAA" * 1000 + data[at:middle] + struct.pack("<4sI", b"00dc", 0x7FFFFFFF) + data[middle + 8:]
        out, report = self.repaired(self.file(damaged))
        self.assert_good(out)
        self.assertEqual(chunks(out), chunks(MPEG4)[:200] + chunks(MPEG4)[201:])
        self.assertEqual(report["places_left_out"], 2)
        self.assertEqual(report["left_out_bytes"], 1000 + found[201].offset - middle)

    def test_lists_of_records_are_resolved_and_palettes_kept(self):
        data = MJPEG.read_bytes()
        found = walk(MJPEG).chunks
        head, body = bytearray(data[:found[0].offset]), data[found[0].offset:data.rindex(b"idx1")]
        head[-8:-4] = bytes(4)  # the size of the list: its writer was stopped
        palette = b"00pc" + struct.pack("<I", 6) + b"\0\1\0\0\1\2"
        split = found[50].offset - found[0].offset
        record = b"LIST" + struct.pack("<I", 4 + split) + b"rec " + body[:split]
        out, report = self.repaired(self.file(head + record + palette + b"JUNK\4\0\0\0abcd" + body[split:]))
        self.assert_good(out)
        self.assertEqual(chunks(out), chunks(MJPEG))
        self.assertEqual((report["chunks"], report["left_out_bytes"]), (len(found) + 1, 0))
        self.assertEqual(out.read_bytes().count(palette), 1)
        self.assertIn((b"00pc", 0x100), [entry[:2] for entry in walk(out).idx1])

    def test_codec_data_names_and_texts_are_kept(self):
        data = TWO.read_bytes()
        at = data.index(b"LIST", data.index(b"hdrl"))
        self.assertEqual(data[at + 8:at + 12], b"strl")
        name = b"strn\6\0\0\0Kino\0\0"
        size, hdrl = struct.unpack_from("<I", data, at + 4)[0], struct.unpack_from("<I", data, 16)[0]
        data = bytearray(data[:at + 8 + size] + name + data[at + 8 + size:])
        struct.pack_into("<I", data, at + 4, size + len(name))
        struct.pack_into("<I", data, 16, hdrl + len(name))
        movi = data.index(b"movi") - 8
        info = b"LIST" + struct.pack("<I", 4 + 14 + 12) + b"INFO" + b"INAM\6\0\0\0Titel\0" + b"IART\4\0\0\0Ich\0"
        out, _ = self.repaired(self.file(data[:movi] + info + data[movi:]))
        written = out.read_bytes()
        self.assertEqual(written.count(name), 1)
        self.assertEqual(written.count(info[12:]), 1)
        for kept in (b"strf", b"vprp"):
            self.assertEqual(written.count(kept), bytes(data).count(kept))

    def test_an_index_knows_key_frames_of_a_codec_without_a_rule(self):
        data = bytearray(MPEG4.read_bytes())
        for handler in (b"FMP4", b"XVID", b"xvid", b"DX50"):
            data = data.replace(handler, b"abcd")
        path = self.file(data)
        keys = [r["frame"] for r in rows("index", path)]
        self.assertGreater(len(keys), 3)
        out, _ = self.repaired(path)
        self.assertEqual([r["frame"] for r in rows("index", out)], keys)
        cut, report = self.repaired(self.file(without_index(bytes(data))))
        self.assertEqual([r["frame"] for r in rows("index", cut)], ["0"])
        self.assertEqual(report["key_frames"], 1)

    def test_nothing_is_overwritten_without_being_told(self):
        path, out = self.file(MJPEG.read_bytes()), self.folder / "out.avi"
        out.write_bytes(b"mine")
        result = lxavi("repair", path, "-o", out)
        self.assertEqual(result.returncode, 1)
        self.assertIn("--force", result.stderr)
        self.assertEqual(out.read_bytes(), b"mine")
        self.assertEqual(lxavi("repair", path, "-o", out, "--force").returncode, 0)
        self.assertIn("would be overwritten", lxavi("repair", path, "-o", path, "--force").stderr)
        (self.folder / "link.avi").symlink_to(path)
        self.assertIn("would be overwritten", lxavi("repair", path, "-o", self.folder / "link.avi", "--force").stderr)
        self.assertEqual(path.read_bytes(), MJPEG.read_bytes())

    def test_names_for_unfinished_outputs_belong_to_nobody_else(self):
        data = unfinished(MJPEG.read_bytes())
        source = self.file(data, "film.avi.partial")
        self.assertEqual(lxavi("repair", source, "-o", self.folder / "film.avi").returncode, 0)
        self.assertEqual(source.read_bytes(), data)
        self.assert_good(self.folder / "film.avi")
        os.link(source, self.folder / "other.avi.partial")
        self.assertEqual(lxavi("repair", source, "-o", self.folder / "other.avi").returncode, 0)
        self.assertEqual(source.read_bytes(), data)
        self.assertEqual(sorted(p.name for p in self.folder.iterdir()),
                         ["film.avi", "film.avi.partial", "other.avi", "other.avi.partial"])
        self.assertEqual((self.folder / "film.avi").stat().st_mode & 0o777, 0o666 & ~self.umask())

    def umask(self):
        mask = os.umask(0)
        os.umask(mask)
        return mask

    def test_only_regular_files_are_replaced(self):
        os.mkfifo(self.folder / "pipe")
        for out in (self.folder, self.folder / "pipe", "/dev/null"):
            result = lxavi("repair", MPEG4, "-o", out, "--force")
            self.assertEqual(result.returncode, 1)
            self.assertIn("is no regular file", result.stderr)

    def test_media_data_behind_damaged_lists_are_found(self):
        found = walk(MPEG4).chunks
        data = without_index(MPEG4.read_bytes())
        first, second, third = data[:found[100].offset], data[found[100].offset:found[200].offset], data[found[200].offset:]
        avix = [b"RIFF" + struct.pack("<I", len(body) + 16) + b"AVIXLIST" + struct.pack("<I", len(body) + 4) + b"movi" + body
                for body in (second, third)]
        head = bytearray(first)
        struct.pack_into("<I", head, head.index(b"movi") - 4, len(head) - head.index(b"movi"))
        struct.pack_into("<I", head, 4, len(head) - 8)
        broken = avix[0][:4] + struct.pack("<I", 0xFFFFFFFF) + avix[0][8:]
        for name, content, outside in (("whole", head + avix[0] + avix[1], 0), ("hole", head + avix[0] + bytes(999) + avix[1], 1),
                                       ("size", head + broken + avix[1], 0)):
            with self.subTest(damage=name):
                out, report = self.repaired(self.file(content))
                self.assertEqual(chunks(out), chunks(MPEG4))
                self.assertEqual(report["left_out_behind_lists_bytes"] > 0, outside > 0)
                self.assert_good(out)

    def test_an_unfinished_file_goes_on_behind_damage(self):
        data, found = unfinished(MPEG4.read_bytes()), walk(MPEG4).chunks
        at = found[100].offset
        out, report = self.repaired(self.file(data[:at] + bytes(777) + data[at:]))
        self.assertEqual(chunks(out), chunks(MPEG4))
        self.assertEqual(report["left_out_bytes"], 777)

    def test_the_index_is_no_media_data(self):
        data = bytearray(MPEG4.read_bytes())
        struct.pack_into("<I", data, data.index(b"movi") - 4, len(data) - data.index(b"movi") + 5000)
        out, _ = self.repaired(self.file(data))
        self.assertEqual(chunks(out), chunks(MPEG4))

    def test_a_file_of_audio_alone_gets_its_length(self):
        data = bytearray(MJPEG.read_bytes())
        self.assertEqual(data.count(b"vids"), 1)
        data = data.replace(b"vids", b"mids")
        struct.pack_into("<I", data, data.index(b"auds") + 32, 0)
        out, _ = self.repaired(self.file(data))
        info = json.loads(run(LXAVI, "info", str(out), "--json"))["streams"][1]
        size = sum(c.size for c in walk(MJPEG).chunks if c.stream == 1)
        self.assertEqual(info["header"]["length"], size // info["header"]["sample_bytes"])

    def test_long_texts_are_cut_once(self):
        data = MPEG4.read_bytes()
        movi = data.index(b"movi") - 8
        text = b"INAM" + struct.pack("<I", 70000) + b"t" * 70000
        info = b"LIST" + struct.pack("<I", 4 + len(text)) + b"INFO" + text
        out, _ = self.repaired(self.file(data[:movi] + info + data[movi:]))
        again, _ = self.repaired(out, name="again.avi")
        self.assertEqual(again.read_bytes(), out.read_bytes())

    def test_the_default_mode_is_not_that_of_repairs(self):
        out, _ = self.repaired(MPEG4, "--default-mode", "--budget", "100")
        self.assert_good(out)

    def test_wrong_usage_and_wrong_input(self):
        for arguments in (("repair", MPEG4), ("repair", MPEG4, "-o", "x", "--in-place"), ("repair",)):
            self.assertEqual(lxavi(*arguments).returncode, 2, arguments)
        empty, none = self.file(b"", "empty"), self.file(MPEG4.read_bytes()[:3000], "none")
        for path, why in ((self.folder, "is a directory"), (empty, "LX_ERR_AVIREAD_EOF"), (none, "LX_ERR_AVIREAD_EOF")):
            result = lxavi("repair", path, "-o", self.folder / "out.avi")
            self.assertEqual(result.returncode, 1)
            self.assertIn(why, result.stderr)
        self.assertIn("No such file", lxavi("repair", MPEG4, "-o", self.folder / "no" / "out.avi").stderr)

        self.assertEqual(sorted(p.name for p in self.folder.iterdir()), ["empty", "none"])

    @NEEDS_MEDIA_TOOL
    def test_copies_of_good_files_have_the_packets_of_the_originals(self):
        for path in [MPEG4, MJPEG, TWO, DV] + made_files() + corpus():
            with self.subTest(file=path.name):
                if not walk(path).chunks:
                    continue
                out, _ = self.repaired(path)
                theirs, ours = packets(path), packets(out)
                for stream, expected in theirs.items():
                    count = sum(c.stream == int(stream) and c.size > 0 for c in walk(path).chunks)
                    got = ours.get(stream, [])
                    self.assertEqual(got, expected[:len(got)])
                    self.assertGreaterEqual(len(got), count)  # behind the media data the media tool finds leftovers

    @NEEDS_MEDIA_TOOL
    def test_cut_files_keep_every_whole_packet(self):
        source = random.Random(18)
        files = [f for f in [MPEG4, MJPEG, TWO] + made_files() + corpus() if len(walk(f).chunks) > 8]
        for n in range(CUTS):
            path = files[n % len(files)]
            data, found = path.read_bytes(), walk(path).chunks
            at = source.randrange(found[1].offset, found[-1].offset)
            with self.subTest(file=path.name, at=at):
                cut = self.file(data[:at])
                out, _ = self.repaired(cut)
                self.assert_good_apart_from_streams_without_chunks(out)
                self.assertEqual(chunks(out), [(c.code, c.size, c.crc) for c in found if c.offset + 8 + c.size <= at])
                left = at - max(c.offset + 8 + c.size for c in found if c.offset + 8 + c.size <= at)
                theirs, ours = packets(cut), packets(out)
                for stream in set(theirs) | set(ours):
                    got, expected = ours.get(stream, []), theirs.get(stream, [])
                    self.assertEqual(got, expected[:len(got)])
                    # what the media tool has besides, in one packet or more, is of the chunk that was cut
                    self.assertLessEqual(sum(int(size) for size, _ in expected[len(got):]), left)

    def assert_good_apart_from_streams_without_chunks(self, path):
        result = lxavi("check", path, "--json")
        found = [f["text"] for f in json.loads(result.stdout)["rows"] if f["severity"] != "note"]
        if any(c.code[2:] in (b"dc", b"db") for c in walk(path).chunks):
            self.assertEqual(found, [])

    @unittest.skipUnless(has_room_for_a_large_file(), "no media tool, or not enough room on the disk")
    def test_a_large_copy_has_a_list_per_gib_and_super_indexes(self):
        path = large_file()
        self.addCleanup(path.unlink)
        original = [(r["stream"], r["size_bytes"], r["crc32"]) for r in rows("chunks", path)]
        out, report = self.repaired(path)
        self.addCleanup(out.unlink)
        self.assertEqual((report["riff_lists"], report["index"]), (2, "OpenDML super indexes, and idx1"))
        self.assert_good(out)
        self.assertEqual([(r["stream"], r["size_bytes"], r["crc32"]) for r in rows("chunks", out)], original)
        info = json.loads(run(LXAVI, "info", str(out), "--json"))
        self.assertEqual(info["index"]["kind"], "OpenDML, super index")
        self.assertEqual(info["frames_in_file"], 450)
        self.assertLess(info["frames_in_first_list"], 450)
        table = rows("index", out, "--budget", "100000000")
        self.assertEqual(table, rows("index", out, "--budget", "100000000", "--rebuild=always"))
        self.assertEqual(len(table), 450)


class InPlace(Repair):
    def complete(self, path, status=0):
        result = lxavi("repair", path, "--in-place", "--json")
        self.assertEqual(result.returncode, status, result.stderr)
        return json.loads(result.stdout)["corrected"] if status == 0 else result.stderr

    def test_an_unfinished_file_is_completed(self):
        for source in (MPEG4, MJPEG, TWO):
            with self.subTest(file=source.name):
                path = self.file(unfinished(source.read_bytes()))
                corrected = self.complete(path)
                self.assertIn("index", corrected)
                self.assertIn("size of the media data", corrected)
                self.assert_good(path)
                self.assertEqual(chunks(path), chunks(source))
                self.assertEqual([r["frame"] for r in rows("index", path)], [r["frame"] for r in rows("index", source)])
                self.assertEqual(json.loads(run(LXAVI, "info", str(path), "--json"))["streams"],
                                 json.loads(run(LXAVI, "info", str(source), "--json"))["streams"])
                done = path.read_bytes()
                self.assertEqual(self.complete(path), [])
                self.assertEqual(path.read_bytes(), done)

    def test_a_pad_byte_is_added(self):
        data = MPEG4.read_bytes()
        odd = next(c for c in walk(MPEG4).chunks if c.size % 2 == 1)
        path = self.file(data[:odd.offset + 8 + odd.size])
        self.assertIn("pad byte of the last chunk", self.complete(path))
        self.assert_good(path)

    def test_other_files_are_refused_and_not_touched(self):
        data = MPEG4.read_bytes()
        last = walk(MPEG4).chunks[-1]
        middle = walk(MPEG4).chunks[200].offset
        cases = ((data[:last.offset + 9], "9 bytes of its media data are cut or damaged"),
                 (without_index(data) + b"abcdefgh", "8 bytes follow its media data"),
                 (data[:middle] + bytes(50) + data[middle + 50:], "of its media data are cut or damaged"),
                 (DV.read_bytes() + b"RIFF\x18\0\0\0AVIXLIST\x0c\0\0\0movi00dc\0\0\0\0", "several lists"),
                 (self.with_short_header(without_index(data)), "its headers are damaged"),
                 (self.completed(MPEG4) + b"TAG" + bytes(125), "128 bytes follow its index"),
                 (self.completed(MPEG4)[:-16] + b"x" * 16, "it has another index"))
        for content, why in cases:
            path = self.file(content)
            self.assertIn(why, self.complete(path, 1))
            self.assertEqual(path.read_bytes(), content)
        path = self.file(unfinished(data))
        if os.geteuid() != 0:
            path.chmod(0o400)
            self.assertIn("cannot be written: Permission denied", self.complete(path, 1))

    def completed(self, source):
        path = self.file(unfinished(source.read_bytes()), "completed.avi")
        self.complete(path)
        return path.read_bytes()

    def with_short_header(self, data):
        """The first stream header has 32 bytes, and no room for a length."""
        data, at = bytearray(data), data.index(b"strh")
        del data[at + 8 + 32:at + 8 + 56]
        struct.pack_into("<I", data, at + 4, 32)
        for code in (b"hdrl", b"strl"):
            size = data.index(code) - 4
            struct.pack_into("<I", data, size, struct.unpack_from("<I", data, size)[0] - 24)
        return bytes(data)

    def test_padding_at_the_end_of_the_media_data_stays(self):
        index = struct.pack("<4sIHBBI4sQI", b"ix00", 24, 2, 0, 1, 0, b"00db", 0, 0)
        data = without_index(MJPEG.read_bytes()) + b"JUNK\x07\0\0\0abcdefg\0" + index
        path = self.file(unfinished(data + b"idx1"))
        self.complete(path)
        self.assert_good(path)
        self.assertEqual(chunks(path), chunks(MJPEG))
        self.assertEqual(self.complete(path), [])

    def test_the_index_stands_at_an_even_offset(self):
        data = bytearray(unfinished(MJPEG.read_bytes()))
        middle = walk(MJPEG).chunks[50].offset
        shifted = bytes(data[:middle]) + b"\0" + bytes(data[middle:])
        path = self.file(shifted)
        before = path.read_bytes()
        self.assertIn("1 bytes of its media data are cut or damaged", self.complete(path, 1))
        self.assertEqual(path.read_bytes(), before)

    def test_the_extended_header_counts_the_frames_too(self):
        data = bytearray(unfinished(DV.read_bytes()[:DV.read_bytes().rindex(b"idx1")] + b"idx1"))
        dmlh = data.index(b"dmlh") + 8
        struct.pack_into("<I", data, dmlh, 77)
        path = self.file(data)
        self.assertIn("number of frames", self.complete(path))
        self.assertEqual(struct.unpack_from("<I", path.read_bytes(), dmlh)[0], 4)
        self.assert_good(path)

    def test_wherever_it_is_killed_the_file_plays_as_before_and_the_next_run_finishes(self):
        for source in (MPEG4, MJPEG):
            broken = unfinished(source.read_bytes())
            path = self.file(broken)
            self.complete(path)
            done = path.read_bytes()
            before = self.playable(self.file(broken))
            for n in range(1, 100):
                path = self.file(broken)
                result = lxavi("repair", path, "--in-place",
                               env={**os.environ, "LD_PRELOAD": INTERRUPT, "INTERRUPT_AFTER": str(n)})
                with self.subTest(file=source.name, writes=n):
                    self.assertEqual(self.playable(path), before)
                    self.complete(path)
                    self.assertEqual(path.read_bytes(), done)
                if result.returncode != -signal.SIGKILL:
                    break
            self.assertEqual(result.returncode, 0)
            self.assertGreater(n, 6)

    def playable(self, path):
        """What is delivered, and by the media tool, if there is one."""
        delivered = [(r["offset"], r["size_bytes"], r["time_ms"], r["crc32"]) for r in rows("chunks", path)]
        return delivered, packets(path) if shutil.which("ffprobe") else None


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
