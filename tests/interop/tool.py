#!/usr/bin/env python3
"""Tests the command-line tool: options, output and exit status. Usage: tool.py LXAVI SAMPLES"""

import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import unittest
import wave

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from material import LXAVI, SAMPLES, InScratchFolder, lxavi  # noqa: E402
from plainwalker import walk  # noqa: E402
from plainwriter import audio, avi, mpeg4_frame, text, video  # noqa: E402

NEEDS_MEDIA_TOOL = unittest.skipUnless(shutil.which("ffmpeg"), "no media tool")

MPEG4, MJPEG, TWO, DV = (SAMPLES / f"{n}.avi" for n in ("mpeg4_mp3", "mjpeg_pcm", "two_audio", "dv_opendml"))


def payload_of(path, chunk):
    return path.read_bytes()[chunk.offset + 8:chunk.offset + 8 + chunk.size]


def report(*arguments):
    """The JSON of a command that prints a report."""
    result = lxavi(*arguments, "--json")
    assert result.returncode in (0, 1), result.stderr
    return json.loads(result.stdout)


def table(*arguments):
    """The rows of a command that prints a table."""
    return report(*arguments)["rows"]


def findings(path, *options):
    return {row["code"]: row for row in table("check", path, *options)}


class Tool(InScratchFolder):
    # ---- Wrong input ----

    def test_wrong_usage_is_status_2(self):
        for arguments in ((), ("nonsense",), ("info",), ("seek", MPEG4), ("chunks", MPEG4, "--audio", "8"),
                          ("chunks", MPEG4, "--round", "sideways"), ("info", MPEG4, "--json", "--csv"), ("--nonsense",),
                          ("step", MPEG4), ("extract", MPEG4), ("info", MPEG4, "more"), ("report", MPEG4),
                          ("chunks", MPEG4, "--limit", "-1"), ("seek", MPEG4, "-5"), ("seek", MPEG4, ""),
                          ("step", MPEG4, "--count", "-5"), ("seek", MPEG4, "99999999999"), ("seek", MPEG4, "1:60"),
                          ("seek", MPEG4, "1:2:3:4"), ("seek", MPEG4, "12.5"), ("seek", MPEG4, "0x10"), ("seek", MPEG4, "1e3"),
                          ("info", MPEG4, "--budget", "4gb"), ("info", MPEG4, "--budget", "1tb"), ("info", MPEG4, "--log", "loud"),
                          ("check", MPEG4, "--fail-on", "never"), ("step", MPEG4, "--count", "1", "--mode", "sideways"),
                          ("extract", MPEG4, "--out", self.folder, "--from", "5", "--to", "4"), ("repair", "-", "--in-place"),
                          ("report", MPEG4, "-o", self.folder / "x.html", "--fields", "nothing"),
                          ("repair", MPEG4, "-o", self.folder / "x.avi", "--fields", "nothing"),
                          ("info", MPEG4, "--fields", "nothing"), ("chunks", MPEG4, "--fields", "size_bytes,nothing")):
            with self.subTest(arguments=arguments):
                result = lxavi(*arguments)
                self.assertEqual(result.returncode, 2, arguments)
                self.assertEqual(result.stdout, "")
                command = f"{arguments[0]} " if len(arguments) > 1 else ""
                if arguments in (("info",),):
                    command = "info "
                self.assertRegex(result.stderr, rf"\Alxavi: .+\nlxavi: `lxavi {command}--help` shows the usage\n\Z")

    def test_the_usage_says_what_is_wrong(self):
        for arguments, words in ((("nonsense",), "there is no command 'nonsense'"), (("-X",), "there is no option '-X'"),
                                 ((), "which command?"), (("seek", MPEG4, "soon"), "'soon' is no time"),
                                 (("chunks", MPEG4, "--audio", "8"), "--audio: '8' is no whole number from 0 to 7"),
                                 (("chunks", MPEG4, "--round", "sideways"), "'sideways' is none of down|nearest|up"),
                                 (("chunks", MPEG4, "--fields", "colour"), "there is no 'colour'; there are: n, stream,"),
                                 (("info", MPEG4, "--fields", "index.colour"), "there is no 'index.colour'; there are: kind,")):
            self.assertIn(words, lxavi(*arguments).stderr)

    def test_help_and_version(self):
        self.assertEqual(lxavi("--version").stdout, "lxavi 0.2.0\n")
        self.assertEqual(lxavi("-V").stdout, "lxavi 0.2.0\n")
        self.assertIn("Exit status", lxavi("--help").stdout)
        help_ = lxavi("chunks", "--help").stdout
        for words in ("BYTES [1048576]", "down|nearest|up [down]", "seek, enter, leave, header", "Examples:"):
            self.assertIn(words, help_)
        self.assertEqual(lxavi("chunks", "--help").returncode, 0)

    def test_refused_input_is_status_1_with_the_file_and_the_code(self):
        good = MPEG4.read_bytes()
        cases = (("/no/such/file", "LX_ERR_AVIREAD_OPEN"), (self.file(b"", "empty"), "LX_ERR_AVIREAD_EOF"),
                 (self.file(good[:1000], "cut"), "LX_ERR_AVIREAD_EOF"),
                 (self.file(b"RIFF\x04\0\0\0WAVE", "wave"), "LX_ERR_AVIREAD_NOT_AVI"), (self.folder, "LX_ERR_AVIREAD_OPEN"))
        for command in (("info",), ("chunks",), ("index",), ("check",), ("extract", "--out", self.folder / "x")):
            for path, code in cases:
                result = lxavi(command[0], path, *command[1:])
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, rf"^lxavi: {path}: .* \({code}\)\n$")

    def test_errors_name_the_cause(self):
        self.assertIn("No such file or directory", lxavi("info", "/no/such/file").stderr)
        self.assertIn("is a directory", lxavi("info", self.folder).stderr)
        self.assertIn("is empty", lxavi("info", self.file(b"", "empty")).stderr)
        self.assertIn("Not a directory", lxavi("info", MPEG4 / "more").stderr)
        out = self.folder / "film.avi" / "streams"
        self.file(b"", "film.avi")
        self.assertRegex(lxavi("extract", MPEG4, "--out", out).stderr, f"^lxavi: {out}: cannot be made: Not a directory")

    @unittest.skipIf(os.geteuid() == 0, "root may read everything")
    def test_a_file_without_permission(self):
        path = self.file(MPEG4.read_bytes())
        path.chmod(0)
        self.assertIn("Permission denied", lxavi("info", path).stderr)

    def test_control_characters_of_names_are_escaped(self):
        result = lxavi("info", "no\x1b[31m\nfile\udcff")
        self.assertEqual(result.stderr, "lxavi: no\\x1B[31m\\x0Afile\\xFF: cannot be opened: No such file or directory "
                                        "(LX_ERR_AVIREAD_OPEN)\n")
        self.assertIn("no\\x0Acommand", lxavi("no\ncommand").stderr)

    def test_a_track_that_does_not_exist_is_an_error_of_every_command(self):
        for command in (("chunks",), ("seek", "0"), ("extract", "--out", self.folder / "out")):
            with self.subTest(command=command):
                result = lxavi(command[0], MPEG4, *command[1:], "--audio", "1")
                self.assertEqual(result.returncode, 1)
                self.assertIn("there is no audio track 1: the only one is 0", result.stderr)
        self.assertIn("there are 0 to 1", lxavi("chunks", TWO, "--audio", "2").stderr)
        self.assertIn("there is no subtitle track", lxavi("chunks", MPEG4, "--subtitle", "0").stderr)

    def test_numbers_are_decimal(self):
        self.assertEqual(lxavi("chunks", MPEG4, "--csv", "--limit", "010").stdout.count("\n"), 11)
        self.assertEqual(report("info", MPEG4, "--budget", "0100000")["index"]["budget_bytes"], 100000)
        for text, size in (("64kb", 65536), ("064KB", 65536), ("1mb", 1 << 20), ("3gb", 3 << 30)):
            self.assertEqual(report("info", MPEG4, "--budget", text)["index"]["budget_bytes"], size)

    def test_times_have_many_forms(self):
        for text, msec in (("1500", 1500), ("0010", 10), ("1500ms", 1500), ("1.5s", 1500), ("2s", 2000), ("0:01.5", 1500),
                           ("1:23.5", 83500), ("01:02:03.250", 3723250), ("90:00", 5400000), ("0:0:0", 0), ("4294967295", 2**32 - 1),
                           ("0.0004s", 0), ("0.0006s", 1)):
            self.assertEqual(report("seek", MPEG4, text)["asked_ms"], msec, text)

    def test_log_levels_have_names(self):
        levels = [re.sub(r"0x[0-9a-f]{6,}", "", lxavi("index", MPEG4, "--csv", "--log", log).stderr)
                  for log in ("seek,header", "0x120", "288")]
        self.assertTrue(levels[0])
        self.assertEqual(levels[0], levels[1])
        self.assertEqual(levels[0], levels[2])

    # ---- Standard streams ----

    def run_with(self, redirection, *arguments):
        command = " ".join(shlex.quote(str(a)) for a in (LXAVI, *arguments))
        return subprocess.run(["sh", "-c", f"exec {command} {redirection}"], capture_output=True, text=True, check=False)

    def test_messages_that_cannot_be_printed_are_dropped(self):
        for redirection in ("2>&-", "2>/dev/full", "0<&- 1>&- 2>&-"):
            with self.subTest(redirection=redirection):
                for arguments, status in ((("info", "/no/such/file"), 1), (("nonsense",), 2), (("info", MPEG4, "--log", "all"), 0),
                                          (("chunks", MPEG4, "--from", "5s"), 0), (("seek", MPEG4, "soon"), 2)):
                    self.assertEqual(self.run_with(redirection, *arguments).returncode, status, arguments)

    def test_messages_do_not_land_in_files(self):
        for redirection in ("0<&- 1>&- 2>&-", "0<&- 2>&-", "1>&- 2>&-", "2>&-"):
            with self.subTest(redirection=redirection):
                out = self.folder / "out"
                result = self.run_with(redirection, "extract", MJPEG, "--out", out, "--force", "--log", "all")
                self.assertEqual(result.returncode, 0)
                whole = b"".join(payload_of(MJPEG, c) for c in walk(MJPEG).chunks if c.stream == 0)
                self.assertEqual((out / "stream00_video.mjpeg").read_bytes(), whole)

    def test_output_that_cannot_be_written_is_status_1(self):
        for command in (("info", MPEG4), ("seek", MPEG4, "1000"), ("check", MPEG4), ("chunks", MPEG4, "--json")):
            with open("/dev/full", "w") as full:
                result = subprocess.run([LXAVI, *map(str, command)], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual(result.returncode, 1, command)
            self.assertIn("lxavi: standard output: No space left on device", result.stderr)

    def test_standard_input_is_a_name_of_its_own(self):
        for command in (("chunks", "--csv"), ("info", "--fields", "streams")):
            with open(MPEG4, "rb") as data:
                redirected = subprocess.run([LXAVI, command[0], "-", *command[1:]], stdin=data, capture_output=True, text=True,
                                            check=False)
            self.assertEqual(redirected.stdout, lxavi(command[0], MPEG4, *command[1:]).stdout)

    def piped(self, path, *arguments):
        return subprocess.run([LXAVI, *map(str, arguments)], input=path.read_bytes(), capture_output=True, check=False)

    def test_a_pipe_is_delivered_and_not_checked(self):
        piped = self.piped(MJPEG, "chunks", "--csv", "-")
        column = lambda rows, n: [row.split(",")[n] for row in rows[1:]]  # noqa: E731
        lines, seekable = piped.stdout.decode().splitlines(), lxavi("chunks", "--csv", MJPEG).stdout.splitlines()
        self.assertEqual(column(lines, 10), column(seekable, 10))  # offsets
        self.assertEqual(column(lines, 12), column(seekable, 12))  # crc32
        piped = self.piped(MJPEG, "check", "-")
        self.assertEqual(piped.returncode, 1)
        self.assertIn(b"standard input: cannot be checked: it is no regular file", piped.stderr)
        info = json.loads(self.piped(MJPEG, "info", "-", "--json").stdout)
        self.assertEqual((info["size_bytes"], info["quirks"], info["can_seek"]), (None, None, False))
        self.assertEqual((info["index"]["kind"], info["index"]["idx1_records"]), (None, None))
        self.assertIn("the index, the size", info["unknown_because_of_pipe"])
        out = self.folder / "out"
        self.assertEqual(self.piped(MJPEG, "extract", "-", "--out", out).returncode, 0)
        whole = b"".join(payload_of(MJPEG, c) for c in walk(MJPEG).chunks if c.stream == 0)
        self.assertEqual((out / "stream00_video.mjpeg").read_bytes(), whole)

    def test_a_truncated_file_is_delivered_as_far_as_it_goes(self):
        path = self.file(MPEG4.read_bytes()[:100000])
        result = lxavi("chunks", path, "--csv")
        self.assertEqual(result.returncode, 1)
        self.assertGreater(result.stdout.count("\n"), 50)
        self.assertIn("LX_ERR_AVIREAD_EOF", result.stderr)
        self.assertEqual(lxavi("check", path).returncode, 1)
        extracted = lxavi("extract", path, "--out", self.folder / "out")
        self.assertEqual(extracted.returncode, 1)
        self.assertTrue((self.folder / "out" / "manifest.json").exists())

    # ---- info, index, seek, step ----

    def test_info_tells_streams_and_index(self):
        info = report("info", TWO)
        self.assertEqual([s["type"] for s in info["streams"]], ["video", "audio", "audio"])
        self.assertEqual([s["track"] for s in info["streams"]], [0, 0, 1])
        self.assertEqual([s["codec"] for s in info["streams"]], ["H.264", "MP3", "PCM"])
        self.assertEqual(info["index"]["kind"], "idx1, relative offsets")
        self.assertEqual((info["index"]["key_frames"], info["index"]["key_frames_stored"], info["index"]["step"]), (7, 7, 1))
        self.assertEqual(report("info", MJPEG)["index"]["kind"], "idx1, absolute offsets")
        dv = report("info", DV)
        self.assertEqual(dv["index"]["kind"], "OpenDML, super index")
        self.assertEqual((dv["index"]["usable_for_seeking"], dv["index"]["obstacle"]), (True, "none"))
        self.assertEqual(dv["mode"], "format")
        self.assertEqual([s["index_chunks"] for s in dv["streams"]], [1, 1])
        self.assertIn("stream 0", lxavi("info", TWO).stdout)
        self.assertIn("index.kind,", lxavi("info", TWO, "--csv").stdout)

    def test_info_tells_durations_and_rates(self):
        info = report("info", TWO)
        self.assertEqual([s["duration_us"] for s in info["streams"]], [5040000, 5041632, 5000000])  # 193 * 32 / 1225 s
        self.assertEqual([s["chunks"] for s in info["streams"]], [126, 193, 40])
        self.assertEqual([s["payload_bytes"] for s in info["streams"]], [16585, 40333, 80000])
        self.assertEqual([s["bit_rate_bps"] for s in info["streams"]], [26325, 64000, 128000])
        self.assertEqual([s["counted_in"] for s in info["streams"]], ["the index"] * 3)
        self.assertEqual((info["duration_us"], info["size_bytes"], info["bit_rate_bps"]), (5041632, 159976, 253848))
        self.assertIn("0:00:05.042", lxavi("info", TWO).stdout)

    def test_a_thinned_table_of_two_joined_files_is_told_as_it_is(self):
        data = MJPEG.read_bytes()
        joined = self.file(data + data)  # only the first file's index counts
        index = report("info", joined, "--budget", "70000")["index"]
        self.assertEqual((index["key_frames"], index["key_frames_stored"], index["step"]), (60, 60, 1))

    def test_audio_alone_has_a_duration(self):
        path = self.file(avi([audio()], [(0, b"wb", bytes(1600), True) for _ in range(40)]))  # 16000 bytes a second
        info = report("info", path)
        self.assertEqual(info["streams"][0]["duration_us"], 4000000)
        self.assertEqual(info["duration_us"], 4000000)
        self.assertEqual(info["index"]["obstacle"], "there is no video stream")
        self.assertEqual(lxavi("check", path).returncode, 0)

    def test_heights_are_positive(self):
        data = bytearray(MPEG4.read_bytes())
        at = data.index(b"strf") + 8 + 8
        height = struct.unpack_from("<i", data, at)[0]
        struct.pack_into("<i", data, at, -height)
        video = report("info", self.file(data))["streams"][0]
        self.assertEqual((video["height"], video["row_order"]), (height, "top row first"))
        self.assertTrue(report("info", MPEG4)["streams"][0]["row_order"].startswith("bottom row first"))

    def test_texts_are_told_by_their_meaning(self):
        data = MPEG4.read_bytes()
        movi = data.index(b"movi") - 8
        def text(code, value):
            return code + struct.pack("<I", len(value)) + value + b"\0" * (len(value) % 2)
        texts = text(b"INAM", b"<script>alert(1)</script>\0") + text(b"IART", "Bj\xf6rk".encode("latin-1")) + text(b"IXYZ", b"a\x1bb")
        info = b"LIST" + struct.pack("<I", 4 + len(texts)) + b"INFO" + texts
        path = self.file(data[:movi] + info + data[movi:])
        told = [t for t in report("info", path)["texts"] if t["code"] != "ISFT"]
        self.assertEqual(told, [{"code": "INAM", "name": "title", "text": "<script>alert(1)</script>"},
                                {"code": "IART", "name": "artist", "text": "Bj\xf6rk"},
                                {"code": "IXYZ", "name": "IXYZ", "text": "a\x1bb"}])
        self.assertIn("a\\x1Bb", lxavi("info", path).stdout)

    def test_interleaved_dv_and_further_video_streams_have_their_names(self):
        data = bytearray(DV.read_bytes())
        at = data.index(b"vids")
        data[at:at + 4] = b"iavs"
        self.assertEqual(report("info", self.file(data))["streams"][0]["kind"], "DV type 1: video with its audio inside")
        data = bytearray(TWO.read_bytes())
        at = data.index(b"auds", data.index(b"auds") + 4)
        data[at:at + 4] = b"vids"
        streams = report("info", self.file(data))["streams"]
        self.assertEqual([(s["type"], s.get("main")) for s in streams], [("video", True), ("audio", None), ("video", False)])

    def test_default_mode_keeps_the_oddities(self):
        dv = report("info", DV, "--default-mode")
        self.assertIn("one word off", dv["index"]["obstacle"])
        self.assertEqual(dv["mode"], "default")
        self.assertEqual([q[:3] for q in dv["quirks"]], ["Q39"])
        self.assertEqual([k["frame"] for k in table("index", DV)], [0, 1, 2, 3])
        self.assertEqual(table("index", MJPEG)[0]["offset"], table("index", MJPEG, "--default-mode")[0]["offset"])
        self.assertNotEqual(table("index", TWO)[0]["offset"], table("index", TWO, "--default-mode")[0]["offset"])

    def test_seek_reports_the_landing_against_the_request(self):
        seek = report("seek", DV, "70")
        self.assertEqual((seek["asked_ms"], seek["landed_ms"], seek["off_by_ms"]), (70, 66, -4))
        self.assertEqual((seek["first_key_frame_ms"], seek["last_key_frame_ms"]), (0, 100))
        self.assertTrue(seek["first_video"]["key"])
        result = lxavi("chunks", DV, "--from", "70", "--csv", "--limit", "1")
        self.assertIn("asked for 70 ms, landed on the key frame at 66 ms", result.stderr)

    def test_a_budget_thins_the_table_or_refuses_it(self):
        self.assertEqual(report("info", MJPEG, "--budget", "70000")["index"]["leaves"], 1)
        self.assertIn("LX_ERR_AVIREAD_NO_MEMORY", report("info", MJPEG, "--budget", "100")["index"]["obstacle"])
        self.assertEqual(lxavi("index", MJPEG, "--budget", "100").returncode, 1)
        self.assertEqual(lxavi("chunks", MJPEG, "--budget", "100", "--csv").returncode, 0)  # delivers all

    def test_index_lists_every_track(self):
        header = lxavi("index", TWO, "--csv").stdout.splitlines()[0]
        self.assertEqual(header, "n,leaf,item,frame,time_ms,offset,a0_frame,a0_offset,a0_bytes,a1_frame,a1_offset,a1_bytes")

    def test_chunks_has_its_header_line(self):
        header = lxavi("chunks", TWO, "--csv", "--limit", "1").stdout.splitlines()
        self.assertEqual(header[0], "n,stream,type,track,frame,byte_position,size_bytes,key,drm,jumped,offset,time_ms,crc32")
        self.assertEqual(len(header), 2)

    def test_seek_lands_on_a_key_frame_and_resumes_audio(self):
        for rounding, time in (("down", 1040), ("up", 2040), ("nearest", 1040)):
            seek = report("seek", MPEG4, "1500", "--round", rounding)
            self.assertEqual(seek["landed_ms"], time)
            self.assertTrue(seek["first_video"]["key"])
            self.assertEqual(seek["first_video"]["time_ms"], time)
            self.assertLess(abs(seek["audio_minus_video_ms"]), 100)

    def test_steps_go_from_key_frame_to_key_frame(self):
        keys = [k["frame"] for k in table("index", MPEG4)]
        self.assertEqual([s["frame"] for s in table("step", MPEG4, "--count", "4")], keys[:5])
        self.assertEqual([s["frame"] for s in table("step", MPEG4, "--count", "2", "--mode", "trick")], keys[:3])
        back = table("step", MPEG4, "--count", "9", "--mode", "back", "--from", "3000")
        self.assertEqual([s["frame"] for s in back], [keys[2], keys[1], keys[0], keys[0]])
        self.assertFalse(back[-1]["found"])

    def test_a_jump_over_key_frames_has_a_row_for_each_length(self):
        keys = [k["frame"] for k in table("index", MPEG4)]
        forward = table("step", MPEG4, "--count", "3", "--mode", "jump")
        self.assertEqual([(s["n"], s["found"], s["frame"]) for s in forward], [(n, True, keys[n]) for n in range(4)])
        back = table("step", MPEG4, "--count", "-9", "--mode", "jump", "--from", "3000")
        self.assertEqual([(s["n"], s["found"], s["frame"]) for s in back],
                         [(0, True, keys[2]), (1, True, keys[1]), (2, True, keys[0]), (3, False, keys[0])])
        far = table("step", MPEG4, "--count", "100", "--mode", "jump")
        self.assertEqual([s["found"] for s in far], [True] * len(keys) + [False])

    def test_jumps_in_a_file_without_an_index_are_refused(self):
        data = bytearray(MPEG4.read_bytes())
        at = data.rindex(b"idx1")
        data[at:at + 4] = b"xxxx"
        path = self.file(data)
        self.assertIn("LX_ERR_AVIREAD_NO_INDEX", lxavi("seek", path, "1000").stderr)
        self.assertEqual(lxavi("chunks", path, "--from", "1000").returncode, 1)
        self.assertEqual(lxavi("chunks", path, "--csv").returncode, 0)

    def test_rebuild_makes_every_command_work_without_an_index(self):
        data = MPEG4.read_bytes()
        path = self.file(data[:data.rindex(b"idx1")])
        for arguments in (("index",), ("seek", "3000"), ("step", "--count", "3"), ("chunks", "--from", "3000"),
                          ("index", "--csv"), ("step", "--count", "2", "--mode", "back", "--from", "3000")):
            with self.subTest(arguments=arguments):
                self.assertEqual(lxavi(arguments[0], path, *arguments[1:]).returncode, 1)
                for rebuild in ("--rebuild", "--rebuild=auto", "--rebuild=always"):
                    rebuilt = lxavi(arguments[0], path, *arguments[1:], rebuild)
                    self.assertEqual(rebuilt.returncode, 0, rebuilt.stderr)
                    self.assertEqual(rebuilt.stdout, lxavi(arguments[0], MPEG4, *arguments[1:]).stdout)
        self.assertEqual(lxavi("chunks", path, "--csv", "--rebuild").stderr, "")
        for folder, source in (("a", path), ("b", MPEG4)):
            options = ("--rebuild",) if folder == "a" else ()
            self.assertEqual(lxavi("extract", source, "--out", self.folder / folder, "--from", "2000", *options).returncode, 0)
        for name in ("stream00_video.m4v", "stream01_audio.mp3"):
            self.assertEqual((self.folder / "a" / name).read_bytes(), (self.folder / "b" / name).read_bytes())

    def test_rebuild_is_refused_where_it_cannot_work(self):
        self.assertEqual(lxavi("index", MPEG4, "--rebuild=sometimes").returncode, 2)
        self.assertEqual(lxavi("check", MPEG4, "--rebuild").returncode, 2)
        self.assertIn("LX_ERR_AVIREAD_NO_INDEX", lxavi("index", MPEG4, "--rebuild=always", "--default-mode").stderr)
        self.assertIn("LX_ERR_AVIREAD_NO_MEMORY", lxavi("index", MPEG4, "--rebuild", "--budget", "100").stderr)
        with open(MPEG4, "rb") as data:
            piped = subprocess.run([LXAVI, "index", "/dev/stdin", "--rebuild"], input=data.read(), capture_output=True,
                                   check=False)
        self.assertIn(b"LX_ERR_AVIREAD_NO_INDEX", piped.stderr)

    # ---- extract ----

    def extract(self, path, *options, status=0):
        out = self.folder / "out"
        result = lxavi("extract", path, "--out", out, "--force", *options)
        self.assertEqual(result.returncode, status, result.stderr)
        manifest = json.loads((out / "manifest.json").read_text())
        for stream in manifest["streams"]:
            self.assertTrue((out / stream["file"]).exists())
        self.assertEqual([p.name for p in out.glob("*.partial")], [])
        return out, {s["stream"]: s for s in manifest["streams"]}

    def left_out(self):
        manifest = json.loads((self.folder / "out" / "manifest.json").read_text())
        return {entry["stream"]: entry["why"] for entry in manifest["left_out"]}

    def test_pcm_becomes_a_wav_file(self):
        out, streams = self.extract(MJPEG)
        with wave.open(str(out / streams[1]["file"])) as audio:
            self.assertEqual((audio.getnchannels(), audio.getframerate(), audio.getsampwidth()), (1, 8000, 2))
            self.assertEqual(audio.getnframes() * 2, streams[1]["payload_bytes"])

    def media(self, name, *options):
        path = self.folder / name
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=96x64:rate=25:duration=2", "-f", "lavfi",
                        "-i", "sine=sample_rate=44100:duration=2", *options, str(path)], check=True)
        return path

    @staticmethod
    def decoded(path, stream):
        """Digest of what a stream decodes to, without times."""
        return subprocess.run(["ffmpeg", "-v", "error", "-i", str(path), "-map", f"0:{stream}", "-f", "hash", "-"],
                              capture_output=True, text=True, check=True).stdout

    @NEEDS_MEDIA_TOOL
    def test_all_that_a_wav_file_can_hold_becomes_one(self):
        for codec, form, tag in (("pcm_u8", "u8", 1), ("pcm_s16le", "s16", 1), ("pcm_s24le", "s24", 0xFFFE), ("pcm_f32le", "f32", 0xFFFE),
                                 ("pcm_alaw", "al", 6), ("pcm_mulaw", "ul", 7), ("adpcm_ms", "ms", 2), ("adpcm_ima_wav", "ima", 0x11)):
            with self.subTest(codec=codec):
                path = self.media(form + ".avi", "-c:v", "mpeg4", "-c:a", codec)
                out, streams = self.extract(path)
                wav = (out / streams[1]["file"]).read_bytes()
                self.assertEqual((wav[:4], wav[8:16]), (b"RIFF", b"WAVEfmt "))
                self.assertEqual(struct.unpack_from("<I", wav, 4)[0], len(wav) - 8)
                self.assertEqual(struct.unpack_from("<H", wav, 20)[0], tag)
                self.assertEqual(b"fact" in wav[:80], tag != 1)
                self.assertEqual(self.decoded(out / streams[1]["file"], 0), self.decoded(path, 1))

    @NEEDS_MEDIA_TOOL
    def test_the_extension_of_a_format_is_kept(self):
        path = self.media("six.avi", "-c:v", "mpeg4", "-af", "pan=5.1|c0=c0|c1=c0|c2=c0|c3=c0|c4=c0|c5=c0", "-c:a", "pcm_s16le")
        out, streams = self.extract(path)
        wav = (out / streams[1]["file"]).read_bytes()
        self.assertEqual(struct.unpack_from("<IH", wav, 16), (40, 0xFFFE))
        strf = path.read_bytes()
        at = strf.index(b"strf", strf.index(b"auds")) + 8
        self.assertEqual(wav[20:60], strf[at:at + 40])
        self.assertEqual(self.decoded(out / streams[1]["file"], 0), self.decoded(path, 1))

    @NEEDS_MEDIA_TOOL
    def test_codecs_without_a_file_format_become_an_avi_file(self):
        for video, audio in (("huffyuv", "wmav2"), ("ffv1", "flac"), ("wmv2", "wmav1"), ("msmpeg4v3", "vorbis"), ("cinepak", "pcm_s16le"),
                             ("libvpx", "mp3"), ("mjpeg", "mp2")):
            with self.subTest(video=video, audio=audio):
                path = self.media("other.avi", "-c:v", video, "-c:a", audio, "-strict", "-2", "-ac", "2", "-g", "10")
                out, streams = self.extract(path)
                for number, extension in ((0, ".mjpeg" if video == "mjpeg" else ".avi"), (1, {"mp3": ".mp3", "mp2": ".mp2", "pcm_s16le": ".wav"}.get(audio, ".avi"))):
                    file = out / streams[number]["file"]
                    self.assertEqual(file.suffix, extension)
                    self.assertEqual(self.decoded(file, 0), self.decoded(path, number))
                if video == "mjpeg":
                    continue
                self.assertEqual(lxavi("check", out / streams[0]["file"]).returncode, 0)
                keys = [row["frame"] for row in table("index", path)]
                self.assertEqual([row["frame"] for row in table("index", out / streams[0]["file"])], keys)

    @NEEDS_MEDIA_TOOL
    def test_frames_with_lengths_get_start_codes_and_parameter_sets(self):
        for encoder, codec, code in (("libx264", "h264", b"H264"), ("libx265", "hevc", b"HEVC")):
            with self.subTest(codec=codec):
                whole = self.media("whole." + codec, "-map", "0:v", "-c:v", encoder, "-g", "10", "-bf", "0", "-pix_fmt", "yuv420p")
                mp4 = self.media("lengths.mp4", "-map", "0:v", "-c:v", encoder, "-g", "10", "-bf", "0", "-pix_fmt", "yuv420p")
                box = b"avcC" if codec == "h264" else b"hvcC"
                data = mp4.read_bytes()
                at = data.index(box)
                config = data[at + 4:at - 4 + struct.unpack_from(">I", data, at - 4)[0]]
                probe = json.loads(subprocess.run(["ffprobe", "-v", "error", "-show_entries", "packet=pos,size,flags", "-of", "json",
                                                   str(mp4)], capture_output=True, text=True, check=True).stdout)
                frames = [(0, b"dc", data[int(p["pos"]):int(p["pos"]) + int(p["size"])], "K" in p["flags"]) for p in probe["packets"]]
                path = self.file(avi([video(code, 25, 96, 64, config)], frames))
                out, streams = self.extract(path)
                extracted = out / streams[0]["file"]
                self.assertEqual(streams[0]["form"], "Annex B elementary stream")
                self.assertTrue(extracted.read_bytes().startswith(b"\0\0\0\1"))
                self.assertEqual(self.decoded(extracted, 0), self.decoded(mp4, 0))
                self.assertEqual(self.decoded(extracted, 0), self.decoded(whole, 0))
                data = bytearray(path.read_bytes())
                last = walk(path).chunks[-1]
                data[last.offset + 8] = 0xFF  # the length of a unit, which then does not fit
                out, streams = self.extract(self.file(data))
                self.assertTrue((out / streams[0]["file"]).read_bytes().endswith(bytes(data[last.offset + 8:last.offset + 8 + last.size])))

    def test_headers_of_mpeg4_come_from_the_format(self):
        headers = b"\0\0\1\xb0\1" + b"\0\0\1\xb5\x09"
        frames = [(0, b"dc", mpeg4_frame(n % 5 == 0), n % 5 == 0) for n in range(10)]
        out, streams = self.extract(self.file(avi([video(b"XVID", data=headers)], frames)))
        self.assertEqual((out / streams[0]["file"]).read_bytes(), headers + b"".join(f[2] for f in frames))
        frames[0] = (0, b"dc", headers + mpeg4_frame(True), True)
        out, streams = self.extract(self.file(avi([video(b"XVID", data=headers)], frames)))
        self.assertEqual((out / streams[0]["file"]).read_bytes(), b"".join(f[2] for f in frames))

    @unittest.skipUnless(os.environ.get("LXAVI_LARGE") and shutil.disk_usage(tempfile.gettempdir()).free > 12 << 30,
                         "LXAVI_LARGE is not set, or not enough room on the disk")
    def test_more_than_4_gib_of_samples_become_rf64(self):
        path = self.folder / "large.avi"
        size, lists_ = 0x3FFFFF00, 5  # bytes of samples in each RIFF list; the file has holes
        streams = [audio(1, 48000, 2, 16)]
        head = avi(streams, [(0, b"wb", b"", True)], index=False)
        with open(path, "wb") as data:
            for n in range(lists_):
                lead = head[8:head.index(b"movi")] if n == 0 else b"AVIXLIST\0\0\0\0"
                lead = lead[:-4] + struct.pack("<I", 4 + 8 + size) + b"movi00wb" + struct.pack("<I", size)
                data.write(b"RIFF" + struct.pack("<I", len(lead) + size) + lead)
                data.write(b"first" if n == 0 else b"later")
                data.seek(size - 5, 1)
            data.truncate(data.tell())
        out, extracted = self.extract(path)
        self.assertEqual((extracted[0]["form"], extracted[0]["payload_bytes"]), ("RF64", size * lists_))
        wav = out / extracted[0]["file"]
        with open(wav, "rb") as data:
            head = data.read(100)
        self.assertEqual(struct.unpack_from("<4sI4s4sIQQQI", head),
                         (b"RF64", 0xFFFFFFFF, b"WAVE", b"ds64", 28, wav.stat().st_size - 8, size * lists_, size * lists_ // 4, 0))
        at = head.index(b"data")
        self.assertEqual((head[at + 4:at + 8], head[at + 8:at + 13]), (b"\xff" * 4, b"first"))
        self.assertEqual(wav.stat().st_size, at + 8 + size * lists_)

    def test_raw_payloads_are_what_the_file_has(self):
        out, streams = self.extract(MJPEG, "--raw")
        for number in (0, 1):
            self.assertEqual(streams[number]["file"], f"stream{number:02}_{streams[number]['type']}.raw")
            whole = b"".join(payload_of(MJPEG, c) for c in walk(MJPEG).chunks if c.stream == number)
            self.assertEqual((out / streams[number]["file"]).read_bytes(), whole)

    @NEEDS_MEDIA_TOOL
    def test_extracted_files_are_opened_by_a_media_tool(self):
        for path, codecs in ((MPEG4, {0: "mpeg4", 1: "mp3"}), (MJPEG, {0: "mjpeg", 1: "pcm_s16le"}),
                             (TWO, {0: "h264", 1: "mp3", 2: "pcm_s16le"}), (DV, {0: "dvvideo", 1: "pcm_s16le"})):
            out, streams = self.extract(path)
            for number, codec in codecs.items():
                probe = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of", "csv=p=0",
                                        str(out / streams[number]["file"])], capture_output=True, text=True, check=True)
                self.assertEqual(probe.stdout.split()[0], codec)

    def test_one_track_can_be_chosen(self):
        _, streams = self.extract(TWO, "--audio", "1")
        self.assertEqual(sorted(streams), [0, 2])

    def test_a_range_starts_at_a_key_frame_and_ends_in_time(self):
        _, whole = self.extract(MPEG4)
        out, part = self.extract(MPEG4, "--from", "2s", "--to", "0:03")
        self.assertEqual(part[0]["chunks"], 49)  # frames of 40 ms, from the key frame at 1040 ms on
        self.assertLess(part[1]["payload_bytes"], whole[1]["payload_bytes"] / 2)
        manifest = json.loads((out / "manifest.json").read_text())
        self.assertEqual((manifest["asked_from_ms"], manifest["asked_to_ms"]), (2000, 3000))
        self.assertEqual((part[0]["begins_us"], part[0]["duration_us"]), (1040000, 1960000))
        self.assertLess(abs(part[1]["begins_us"] - 1040000), 30000)
        self.assertEqual((whole[0]["begins_us"], whole[0]["duration_us"]), (0, 6040000))

    def test_a_range_of_audio_alone_needs_no_key_frame(self):
        path = self.file(avi([audio()], [(0, b"wb", bytes(1600), True) for _ in range(40)]))
        _, part = self.extract(path, "--from", "1s", "--to", "2s")
        self.assertEqual((part[0]["chunks"], part[0]["begins_us"], part[0]["duration_us"]), (10, 1000000, 1000000))

    def test_wrong_fields_are_refused_before_anything_is_written(self):
        out = self.folder / "out"
        self.assertEqual(lxavi("extract", MPEG4, "--out", out, "--fields", "bogus").returncode, 2)
        self.assertFalse(out.exists())

    def test_a_range_holds_audio_that_comes_long_after_its_video(self):
        frames = [(0, b"dc", mpeg4_frame(n % 25 == 0), n % 25 == 0) for n in range(500)]  # 20 s, then all audio
        sound = [(1, b"wb", bytes(16000), True) for _ in range(20)]
        _, part = self.extract(self.file(avi([video(b"XVID"), audio()], frames + sound)), "--to", "5s")
        self.assertEqual((part[0]["chunks"], part[1]["chunks"]), (125, 5))

    def test_existing_files_are_not_overwritten(self):
        out = self.folder / "out"
        self.assertEqual(lxavi("extract", MJPEG, "--out", out).returncode, 0)
        names = sorted(p.name for p in out.iterdir())
        for name in names:
            before = {p.name: p.read_bytes() for p in out.iterdir()}
            for other in names:
                if other != name:
                    (out / other).unlink()
            result = lxavi("extract", MJPEG, "--out", out)
            self.assertEqual(result.returncode, 1)
            self.assertEqual(result.stderr, f"lxavi: {out / name}: exists: --force overwrites it\n")
            self.assertEqual([p.name for p in out.iterdir()], [name])
            self.assertEqual(lxavi("extract", MJPEG, "--out", out, "--force").returncode, 0)
            self.assertEqual({p.name: p.read_bytes() for p in out.iterdir()}, before)
        (out / names[0]).unlink()
        (out / names[0]).mkdir()
        self.assertIn("is no regular file", lxavi("extract", MJPEG, "--out", out, "--force").stderr)

    def test_the_source_is_not_overwritten(self):
        for name in ("stream00_video.mjpeg", "stream01_audio.wav", "manifest.json"):
            source = self.file(MJPEG.read_bytes(), name)
            for force in ((), ("--force",)):
                self.assertIn("is the input, which would be overwritten", lxavi("extract", source, "--out", self.folder, *force).stderr)
            self.assertEqual(source.read_bytes(), MJPEG.read_bytes())
            source.unlink()

    def test_files_appear_when_they_are_complete(self):
        out = self.folder / "out"
        out.mkdir()
        limited = subprocess.run(["sh", "-c", f"ulimit -f 100; exec '{LXAVI}' extract '{MPEG4}' --out '{out}'"],
                                 capture_output=True, text=True, check=False, preexec_fn=lambda: signal.signal(signal.SIGXFSZ, signal.SIG_IGN))
        self.assertEqual(limited.returncode, 1)
        self.assertIn("stream00_video.m4v: cannot be written: File too large", limited.stderr)
        self.assertEqual(list(out.iterdir()), [])

    def test_an_interrupted_extraction_leaves_nothing(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            out = self.folder / f"out{number}"
            with subprocess.Popen([LXAVI, "extract", "-", "--out", out], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) as process:
                process.stdin.write(MPEG4.read_bytes()[:100000])
                process.stdin.flush()
                while not out.exists() or len(list(out.glob("*.partial"))) < 2:  # both streams have begun
                    self.assertIsNone(process.poll())
                process.send_signal(number)
                self.assertEqual(process.wait(), -number)
            self.assertEqual(list(out.iterdir()), [])

    def test_a_damaged_source_gives_what_it_has(self):
        out, streams = self.extract(self.file(MPEG4.read_bytes()[:100000]), status=1)
        self.assertFalse(json.loads((out / "manifest.json").read_text())["complete"])
        self.assertGreater(streams[0]["chunks"], 50)

    def test_nothing_is_dropped_silently(self):
        tracks = [audio() for _ in range(9)]
        chunks_ = [(n, b"wb", bytes(1600), True) for n in range(1, 10)] + [(0, b"dc", mpeg4_frame(True), True)]
        path = self.file(avi([video(b"XVID"), *tracks], chunks_))
        _, streams = self.extract(path)
        self.assertEqual(sorted(streams), list(range(9)))
        self.assertEqual(self.left_out(), {9: "only 8 audio tracks can be played"})
        result = lxavi("extract", path, "--out", self.folder / "again")
        self.assertIn("stream 9 is left out: only 8 audio tracks can be played", result.stderr)
        self.assertEqual(result.returncode, 0)
        self.extract(self.file(avi([video(b"XVID"), audio()], [(0, b"dc", mpeg4_frame(True), True)])))
        self.assertEqual(self.left_out(), {1: "it has no chunks"})
        path = self.file(avi([video(b"XVID")] + [text()] * 18, [(0, b"dc", mpeg4_frame(True), True), (1, b"tx", b"hello", True)]))
        _, streams = self.extract(path)
        self.assertEqual(sorted(streams), [0, 1])
        self.assertEqual({n: why for n, why in self.left_out().items() if n > 16},
                         {n: "only 17 streams can be read; it has 0 chunks" for n in (17, 18)})

    def test_chunks_behind_damage_are_told(self):
        """One chunk is overwritten, or claims too much, or the file is followed by another one."""
        data, chunks_ = MPEG4.read_bytes(), walk(MPEG4).chunks
        middle = chunks_[200]
        self.assertEqual(middle.stream, 0)
        hole, size = bytearray(data), bytearray(data)
        hole[middle.offset:middle.offset + 700] = b"\xAA" * 700
        struct.pack_into("<I", size, middle.offset + 4, 0xAAAA0004)
        left = [sum(chunk.stream == stream for chunk in chunks_[201:]) for stream in (0, 1)]
        all_ = [sum(chunk.stream == stream for chunk in chunks_) for stream in (0, 1)]

        out, streams = self.extract(self.file(hole), status=1)
        self.assertEqual([streams[n]["chunks"] for n in (0, 1)], [all_[0] - 1, all_[1]])
        self.assertEqual(self.left_out(), {None: f"damaged: {chunks_[201].offset - middle.offset} bytes at {middle.offset} are no chunk"})
        self.assertFalse(json.loads((out / "manifest.json").read_text())["complete"])

        out, streams = self.extract(self.file(size), status=1)
        lost = {n: f"not delivered: {left[n]} of {all_[n]} chunks" for n in (0, 1)}
        self.assertEqual(self.left_out(), lost | {None: f"damaged: {chunks_[201].offset - middle.offset} bytes at {middle.offset} are no chunk"})
        self.assertLess((out / streams[0]["file"]).stat().st_size, len(data))  # and not the size that the chunk claims
        claims = f"chunk at {middle.offset}, which claims {0xAAAA0004} bytes and has {len(data) - middle.offset - 8}: the file ends too early"
        self.assertIn(claims, lxavi("extract", self.file(size), "--out", out, "--force").stderr)
        found = [row for row in table("check", self.file(size)) if row["severity"] == "error"]
        self.assertEqual([row["text"] for row in found if row["code"] == "chunks_lost"],
                         [f"{left[n]} of the {all_[n] - (n == 0)} chunks of stream {n} cannot be played: they lie behind damage" for n in (0, 1)])
        self.assertTrue(any(claims in row["text"] for row in found))

        self.extract(self.file(data + data), status=1)
        self.assertEqual(self.left_out(), {n: f"not delivered: {all_[n]} of {2 * all_[n]} chunks" for n in (0, 1)})
        self.extract(self.file(data + data), "--from", "1s", "--to", "2s")  # a range leaves chunks out
        self.assertEqual(self.left_out(), {})
        self.extract(self.file(hole), "--to", "1s")  # the damage lies behind it
        self.assertEqual(self.left_out(), {})
        self.extract(self.file(data[:-100]))  # an index that is cut costs nothing
        self.assertEqual(self.left_out(), {})

    def test_what_is_there_of_a_cut_chunk_is_kept(self):
        payload = bytes(n * 7 % 251 for n in range(200000))
        for stream, suffix in ((audio(), 44), (video(b"ABCD"), None)):
            data = avi([stream], [(0, b"wb" if suffix else b"dc", payload, True)], index=False)
            begin = data.index(b"movi") + 12
            for there in (2, 4000, 65536, 70002, 199998):
                for options in ((), ("--raw",)):
                    out, streams = self.extract(self.file(data[:begin + there]), *options, status=1)
                    written = (out / streams[0]["file"]).read_bytes()
                    self.assertIn(payload[:there], written)
                    self.assertEqual(streams[0]["payload_bytes"], there)
                    if options:
                        self.assertEqual(written, payload[:there])
                    else:
                        self.assertLess(len(written), there + 6000)  # headers
                shutil.rmtree(out)
                piped = subprocess.run([LXAVI, "extract", "-", "--out", out, "--raw"], input=data[:begin + there], capture_output=True, check=False)
                self.assertEqual(piped.returncode, 1)
                self.assertEqual(next(out.glob("stream00*")).read_bytes(), payload[:there])
                shutil.rmtree(out)

    def test_pipes_that_nobody_reads_lose_no_results(self):
        path = self.file(avi([video(b"XVID"), *[audio() for _ in range(9)]], [(0, b"dc", mpeg4_frame(True), True)] + [(9, b"wb", bytes(1600), True)]))
        out = self.folder / "out"
        closed = subprocess.run(["bash", "-c", f"'{LXAVI}' extract '{path}' --out '{out}' 2> >(exec true)"], capture_output=True, check=False)
        self.assertEqual(closed.returncode, 0)
        self.assertTrue((out / "manifest.json").exists())
        with subprocess.Popen([LXAVI, "chunks", MPEG4], stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            process.stdout.close()
            self.assertEqual((process.stderr.read(), process.wait()), (b"", -signal.SIGPIPE))

    def test_severities_are_counted_apart(self):
        """Three gaps between chunks: two are too short for a chunk."""
        data = bytearray(avi([video(b"XVID")], [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(10)], index=False))
        chunks_ = [m.start() for m in re.finditer(b"00dc", data)]
        for n, size in ((7, 4), (5, 16), (3, 4)):
            data[chunks_[n]:chunks_[n]] = bytes(size)
        movi = data.index(b"movi")
        struct.pack_into("<I", data, movi - 4, struct.unpack_from("<I", data, movi - 4)[0] + 24)
        struct.pack_into("<I", data, 4, len(data) - 8)
        gaps = [row for row in table("check", self.file(data)) if row["code"] == "no_chunk"]
        self.assertEqual([(row["severity"], row["places"]) for row in gaps], [("warning", 1), ("error", 1), ("warning", 1)])

    def test_aac_frames_get_headers_where_these_have_numbers(self):
        frames = [(0, b"wb", bytes(100 + n), True) for n in range(3)] + [(0, b"wb", b"", True)]
        for rate, channels, suffix in ((44100, 2, ".aac"), (44099, 2, ".avi"), (44100, 8, ".avi")):
            out, streams = self.extract(self.file(avi([audio(0xFF, rate, channels, 16, 4, sample=0)], frames)))
            extracted = out / streams[0]["file"]
            self.assertEqual(extracted.suffix, suffix)
            if suffix == ".aac":  # 7 more bytes each; low complexity, 44100 Hz, 2 channels; nothing for an empty chunk
                data = extracted.read_bytes()
                self.assertEqual(len(data), 100 + 101 + 102 + 3 * 7)
                self.assertEqual(data[:7], bytes([0xFF, 0xF1, 0x50, 0x80, 107 >> 3, (107 & 7) << 5 | 0x1F, 0xFC]))

    def test_key_frames_of_an_unknown_codec_are_those_of_the_index(self):
        frames = [(0, b"dc", bytes(100 + n), n % 7 == 3) for n in range(30)]
        out, streams = self.extract(self.file(avi([video(b"ABCD")], frames)))
        keys = [row["frame"] for row in table("index", out / streams[0]["file"])]
        self.assertEqual(keys, [0, 3, 10, 17, 24])  # decoding begins at the first frame in any case

    def test_bitmap_subtitles_become_an_avi_file(self):
        pictures = [b"[00:00:00.000-00:00:01.000]" + bytes(20 + n) for n in range(3)]
        chunks_ = [(0, b"dc", mpeg4_frame(True), True)] + [(1, b"sb", picture, True) for picture in pictures]
        out, streams = self.extract(self.file(avi([video(b"XVID"), video(b"DXSB")], chunks_)))
        self.assertEqual((streams[1]["type"], streams[1]["form"]), ("subtitle", "AVI of one stream"))
        extracted = out / streams[1]["file"]
        self.assertEqual([payload_of(extracted, c) for c in walk(extracted).chunks], pictures)

    def test_frames_before_the_first_key_frame_are_extracted(self):
        frames = [(0, b"dc", mpeg4_frame(n % 10 == 5), n % 10 == 5) for n in range(60)]
        _, streams = self.extract(self.file(avi([video(b"XVID")], frames)))
        self.assertEqual(streams[0]["chunks"], 60)

    def test_a_range_holds_the_texts_of_every_track(self):
        chunks_ = [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(25)]
        chunks_ += [(n, b"tx", b"hello", True) for n in (1, 2)]
        _, streams = self.extract(self.file(avi([video(b"XVID"), text(), text()], chunks_)), "--to", "10s")
        self.assertEqual([streams[n]["chunks"] for n in range(3)], [25, 1, 1])

    def test_a_further_video_stream_without_an_index_costs_itself_alone(self):
        frames = [(0, b"dc", mpeg4_frame(n % 10 == 0), n % 10 == 0) for n in range(60)]
        _, streams = self.extract(self.file(avi([video(b"XVID"), video(b"XVID")], frames)), "--from", "1s")
        self.assertEqual((sorted(streams), streams[0]["chunks"]), ([0], 40))
        self.assertIn("cannot jump", self.left_out()[1])

    def test_a_chunk_that_the_source_ends_in_is_filled_up(self):
        frames = [(0, b"dc", bytes(200000), n == 0) for n in range(3)]
        data = avi([video(b"CVID")], frames, index=False)
        out, streams = self.extract(self.file(data[:data.index(b"movi") + 4 + 2 * 200008 + 150000]), status=1)
        self.assertEqual(streams[0]["chunks"], 3)
        self.assertEqual(report("check", out / streams[0]["file"])["summary"]["errors"], 0)

    def test_placeholders_do_not_cost_the_headers(self):
        headers = b"\0\0\1\xb0\1" + b"\0\0\1\xb5\x09"
        frames = [(0, b"dc", b"\x7f", True)] + [(0, b"dc", mpeg4_frame(True), True) for _ in range(3)]
        out, streams = self.extract(self.file(avi([video(b"XVID", data=headers)], frames)))
        self.assertTrue((out / streams[0]["file"]).read_bytes().startswith(b"\x7f" + headers))

    def test_a_link_to_nothing_is_not_replaced(self):
        out = self.folder / "out"
        out.mkdir()
        (out / "manifest.json").symlink_to("nowhere")
        self.assertIn("exists: --force overwrites it", lxavi("extract", MPEG4, "--out", out).stderr)

    def test_further_video_streams_are_extracted_too(self):
        frames = [(n % 2, b"dc", mpeg4_frame(n % 10 < 2, 100 + n), n % 10 < 2) for n in range(40)]
        path = self.file(avi([video(b"XVID"), video(b"XVID")], frames))
        out, streams = self.extract(path)
        self.assertEqual((streams[0]["chunks"], streams[1]["chunks"]), (20, 20))
        for number in (0, 1):
            self.assertEqual((out / streams[number]["file"]).read_bytes(), b"".join(f[2] for f in frames if f[0] == number))
        _, part = self.extract(path, "--from", "450ms")
        self.assertEqual([part[n]["begins_us"] for n in (0, 1)], [400000, 400000])

    def test_unknown_types_are_left_out_and_nothing_is_status_1(self):
        path = self.file(MJPEG.read_bytes().replace(b"vids", b"mids").replace(b"auds", b"xxxx"))
        result = lxavi("extract", path, "--out", self.folder / "out")
        self.assertEqual(result.returncode, 1)
        self.assertIn("nothing was extracted", result.stderr)
        self.assertEqual(self.left_out(), {0: "its type 'mids' is not supported", 1: "its type 'xxxx' is not supported"})

    # ---- check ----

    def test_check_is_quiet_about_good_files(self):
        for path in (MPEG4, MJPEG, TWO, DV):
            result = lxavi("check", path, "--fail-on", "warning")
            self.assertEqual(result.returncode, 0, result.stdout)

    def test_check_delivers_every_track(self):
        for path in (MPEG4, TWO):
            summary = report("check", path)["summary"]
            self.assertEqual(summary["chunks_delivered"], len(walk(path).chunks))

    def test_findings_have_severities_and_a_summary(self):
        data = bytearray(MPEG4.read_bytes())
        struct.pack_into("<I", data, data.index(b"avih") + 8 + 24, 5)  # streams
        path = self.file(data + b"\0" * 100)
        checked = report("check", path)
        self.assertEqual([(r["severity"], r["offset"], r["code"]) for r in checked["rows"]],
                         [("warning", None, "stream_count"), ("note", len(data), "bytes_behind_riff")])
        self.assertEqual(checked["summary"], {"errors": 0, "warnings": 1, "notes": 1, "findings": 2, "findings_printed": 2,
                                              "chunks_delivered": 382})
        for fail_on, status in (("error", 0), ("warning", 1), ("note", 1)):
            self.assertEqual(lxavi("check", path, "--fail-on", fail_on).returncode, status)
        self.assertEqual(lxavi("check", MPEG4, "--fail-on", "note").returncode, 0)
        lines = lxavi("check", path, "--csv").stdout.splitlines()
        self.assertEqual(lines[0], "severity,offset,places,code,text")
        self.assertTrue(lines[1].startswith("warning,,1,stream_count,"))
        self.assertEqual(lines[-1], 'summary,,2,,"0 errors, 1 warning, 1 note; 382 chunks delivered"')
        limited = report("check", path, "--limit", "1")
        self.assertEqual(([r["code"] for r in limited["rows"]], limited["summary"]["findings"]), (["stream_count"], 2))
        for form in ((), ("--csv",)):
            self.assertIn("1 finding not printed", lxavi("check", path, "--limit", "1", *form).stdout)

    def test_a_cut_file_has_an_error(self):
        path = self.file(MPEG4.read_bytes()[:100000])
        self.assertEqual(lxavi("check", path).returncode, 1)
        found = findings(path)
        self.assertEqual((found["beyond_file"]["severity"], found["unreadable_chunk"]["severity"]), ("error", "error"))
        self.assertEqual(found["no_table"]["severity"], "warning")

    def test_neighbours_are_one_finding(self):
        data = MPEG4.read_bytes()
        at = data.rindex(b"idx1")
        chunks_ = walk(MPEG4).chunks
        half = data[:at] + b"idx1" + struct.pack("<I", 16 * 100) + data[at + 8:at + 8 + 1600]
        found = findings(self.file(half))["chunk_not_listed"]
        self.assertEqual((found["severity"], found["offset"], found["places"]), ("warning", chunks_[100].offset, 282))
        self.assertIn(f"(and 281 more, up to {chunks_[-1].offset})", found["text"])
        nowhere = bytearray(data)
        for n in range(20, 30):
            struct.pack_into("<I", nowhere, at + 8 + 16 * n + 8, 0x700000 + n)
        rows_ = table("check", self.file(nowhere))
        self.assertEqual([(r["code"], r["offset"], r["places"]) for r in rows_],
                         [("chunk_not_listed", chunks_[20].offset, 10), ("record_without_chunk", at + 8 + 16 * 20, 10)])

    def test_an_index_in_another_order_lists_its_chunks_all_the_same(self):
        data = bytearray(MPEG4.read_bytes())
        at = data.rindex(b"idx1") + 8
        records = [bytes(data[i:i + 16]) for i in range(at, len(data), 16)]
        data[at:] = b"".join(sorted(records, key=lambda r: r[:4]))  # all video, then all audio
        self.assertEqual(table("check", self.file(data)), [])

    def test_placeholders_are_no_damage(self):
        frames = []
        for n in range(20):  # as writers of packed B-frames do: every third frame says nothing
            frames.append((0, b"dc", b"\0\0\1\xb6\x51\x40\x7f" if n % 3 == 2 else mpeg4_frame(n == 0), n == 0 or n % 6 == 5))
        self.assertEqual(table("check", self.file(avi([video(b"DX50")], frames))), [])

    def test_recovery_points_are_notes(self):
        slice_ = b"\0\0\0\1\x41" + bytes(40)  # no key frame by its own bytes
        key = b"\0\0\0\1\x67" + bytes(10) + b"\0\0\0\1\x68" + bytes(4) + b"\0\0\0\1\x65" + bytes(40)
        path = self.file(avi([video(b"H264")], [(0, b"dc", key if n == 0 else slice_, n % 5 == 0) for n in range(20)]))
        found = [(r["severity"], r["code"]) for r in table("check", path)]
        self.assertEqual(found, [("note", "record_key_flag")] * 3)

    def test_more_than_the_library_reads_is_an_error(self):
        chunks_ = [(0, b"dc", mpeg4_frame(True), True)] + [(n, b"wb", bytes(1600), True) for n in range(1, 10)]
        found = findings(self.file(avi([video(b"XVID")] + [audio()] * 9, chunks_)))
        self.assertEqual(found["too_many_tracks"]["severity"], "error")
        found = findings(self.file(avi([video(b"XVID")] + [text()] * 18, chunks_[:1])))
        self.assertEqual(found["too_many_streams"]["severity"], "error")

    def test_chunks_that_are_not_delivered_are_errors(self):
        self.assertNotIn("chunk_not_delivered", findings(MPEG4, "--default-mode"))
        short = avi([video(b"XVID")], [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(9)] + [(0, b"dc", b"\0", False)])
        found = findings(self.file(short), "--default-mode")  # which does not reach the last four bytes
        self.assertEqual(found["chunk_not_delivered"]["severity"], "error")
        self.assertNotIn("chunk_not_delivered", findings(self.file(short)))

    def test_media_data_that_no_list_holds_are_an_error(self):
        frames = [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(10)]
        data = bytearray(avi([video(b"XVID")], frames))
        movi = data.index(b"movi")
        struct.pack_into("<I", data, movi - 4, 4 + 4 * 108)  # four of the chunks, of 108 bytes each
        found = findings(self.file(data))["chunk_unreachable"]
        self.assertEqual((found["severity"], found["offset"], found["places"]), ("error", movi + 4 + 4 * 108, 6))
        _, streams = self.extract(self.file(data), status=1)
        self.assertEqual(streams[0]["chunks"], 4)
        self.assertEqual(self.left_out(), {0: "not delivered: 6 of 10 chunks"})

    def opendml(self):
        """Two lists, each with 30 frames and an index chunk, and a super index; the places of these."""
        def index(name, wide, base, frames):
            records = b"".join(struct.pack("<II", frame + 8 - base, 100 | (0 if key else 1 << 31)) for frame, key in frames)
            return name + struct.pack("<IHBBI4sQI", 24 + len(records), 2, 0, 1, len(frames), b"00dc", base, 0) + records
        frames = [(0, b"dc", mpeg4_frame(n % 10 == 0), n % 10 == 0) for n in range(30)]
        entry = struct.pack("<IHBBI4sIII", 24 + 2 * 16, 4, 0, 0, 2, b"00dc", 0, 0, 0) + bytes(32)
        plain = avi([video(b"XVID")], frames, index=False)
        strf = plain.index(b"strf")
        strf_end = strf + 8 + struct.unpack_from("<I", plain, strf + 4)[0]
        head = bytearray(plain[:strf_end] + b"indx" + entry)
        struct.pack_into("<I", head, head.index(b"strl") - 4, len(head) - head.index(b"strl"))
        struct.pack_into("<I", head, head.index(b"hdrl") - 4, len(head) - head.index(b"hdrl"))
        data, places = bytes(head), []
        media = b"".join(b"00dc" + struct.pack("<I", 100) + f[2] for f in frames)
        for lead in (b"", b"RIFF\0\0\0\0AVIX"):
            start = len(data) + len(lead) + 12
            chunk = index(b"ix00", 0, start, [(start + 108 * n, frames[n][3]) for n in range(30)])
            places.append((start + len(media), len(chunk)))
            movi = b"LIST" + struct.pack("<I", 4 + len(media) + len(chunk)) + b"movi" + media + chunk
            lead = lead[:4] + struct.pack("<I", 4 + len(movi)) + lead[8:] if lead else lead
            data += lead + movi
            if not lead:
                data = bytearray(data)
                struct.pack_into("<I", data, 4, len(data) - 8)
                data = bytes(data)
        data = bytearray(data)
        at = data.index(b"indx") + 8 + 24
        for n, (offset, size) in enumerate(places):
            struct.pack_into("<QII", data, at + 16 * n, offset, size, 30)
        struct.pack_into("<I", data, data.index(b"strh") + 8 + 32, 60)
        return data, places, at

    def test_every_list_is_compared_with_its_opendml_index(self):
        data, _, _ = self.opendml()
        checked = report("check", self.file(data), "--fail-on", "warning")
        self.assertEqual([r for r in checked["rows"] if r["severity"] != "note"], [])
        self.assertEqual(checked["summary"]["chunks_delivered"], 60)

    def test_a_super_index_that_leads_nowhere_is_told(self):
        for change, code, severity in ((lambda d, at: struct.pack_into("<Q", d, at + 16, 4), "super_index_entry", "warning"),
                                       (lambda d, at: struct.pack_into("<I", d, at + 16 + 8, 99), "super_index_entry", "warning"),
                                       (lambda d, at: struct.pack_into("<I", d, at - 20, 1), "index_chunk_not_listed", "warning"),
                                       (lambda d, at: struct.pack_into("<4s", d, at - 16, b"01dc"), "super_index_stream", "warning"),
                                       (lambda d, at: struct.pack_into("<B", d, d.rindex(b"ix00") + 10, 7), "index_sub_type", "warning"),
                                       (lambda d, at: struct.pack_into("<B", d, d.rindex(b"ix00") + 10, 7), "Q78", "note"),
                                       (lambda d, at: struct.pack_into("<4s", d, d.rindex(b"RIFF"), b"XXXX"), "segment_unreachable", "error")):
            data, _, at = self.opendml()
            change(data, at)
            found = findings(self.file(data))
            self.assertIn(code, found)
            self.assertEqual(found[code]["severity"], severity)

    def test_lengths_and_rates_of_the_headers_are_compared(self):
        frames = [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(10)]
        data = bytearray(avi([video(b"XVID")], frames))
        for length, told in ((10, False), (12, False), (13, True), (8, False), (7, True), (0, True)):
            struct.pack_into("<I", data, data.index(b"strh") + 8 + 32, length)
            self.assertEqual("stream_length" in findings(self.file(data)), told, length)
        struct.pack_into("<I", data, data.index(b"strh") + 8 + 32, 7)
        headers_alone = findings(self.file(data[:data.index(b"movi") + 4]))
        self.assertEqual(headers_alone["stream_length"]["severity"], "error")  # all frames are lost
        struct.pack_into("<I", data, data.index(b"strh") + 8 + 32, 10)
        for frames_told, told in ((10, False), (12, False), (13, True), (0, True)):
            struct.pack_into("<I", data, data.index(b"avih") + 8 + 16, frames_told)
            self.assertEqual("total_frames" in findings(self.file(data)), told, frames_told)
        struct.pack_into("<II", data, data.index(b"strh") + 8 + 20, 0, 0)
        self.assertIn("stream_rate", findings(self.file(data)))

    def test_damage_ends_where_the_next_chunk_begins(self):
        frames = [(0, b"dc", mpeg4_frame(n == 0), n == 0) for n in range(10)]
        data = avi([video(b"XVID")], frames)
        at = data.index(b"movi") + 4 + 3 * 108
        for inserted, severity in ((b"\xaa" * 7, "warning"), (b"\xaa" * 500, "error")):
            damaged = bytearray(data[:at] + inserted + data[at:])
            for field in (4, data.index(b"movi") - 4):
                struct.pack_into("<I", damaged, field, struct.unpack_from("<I", data, field)[0] + len(inserted))
            found = findings(self.file(damaged))
            self.assertEqual((found["no_chunk"]["severity"], found["no_chunk"]["offset"]), (severity, at))
            self.assertIn(f"{len(inserted)} bytes are left over", found["no_chunk"]["text"])
            self.assertNotIn("chunk_outside_structure", found)
        named = bytearray(data)
        named[at:at + 4] = b"ZZZZ"
        self.assertEqual(findings(self.file(named))["unknown_chunk"]["offset"], at)

    def test_what_stands_behind_the_lists_costs_nothing(self):
        for rest in (b"\0" * 5000, b"some text of another program " * 9, b"abc"):
            found = [(r["severity"], r["code"]) for r in table("check", self.file(MPEG4.read_bytes() + rest))]
            self.assertEqual(found, [("note", "bytes_behind_riff")], rest)

    def test_chunks_of_streams_that_the_headers_lack_are_told(self):
        chunks_ = [(n % 3, b"dc" if n % 3 == 0 else b"wb", mpeg4_frame(n == 0), True) for n in range(30)]
        path = self.file(avi([video(b"XVID"), audio()], chunks_))
        found = findings(path)
        self.assertEqual((found["chunk_of_no_stream"]["severity"], found["chunk_of_no_stream"]["places"]), ("error", 10))
        self.assertIn("(repaired)", found["Q76"]["text"])
        self.extract(path)
        self.assertEqual(self.left_out(), {2: "the headers do not describe it; it has 10 chunks"})

    def test_an_index_is_never_extracted(self):
        data = MPEG4.read_bytes()
        lost = walk(MPEG4).chunks[50]
        short = self.file(data[:lost.offset] + data[lost.offset + 8 + lost.size + lost.size % 2:])  # all sizes are stale
        _, streams = self.extract(short)
        self.assertEqual(sum(s["chunks"] for s in streams.values()), len(walk(MPEG4).chunks) - 1)

    def test_an_unfinished_file_is_told_as_such(self):
        data = bytearray(MPEG4.read_bytes())
        data = data[:data.rindex(b"idx1")]
        struct.pack_into("<I", data, 4, 0)
        struct.pack_into("<I", data, data.index(b"movi") - 4, 0)
        found = [(r["severity"], r["code"]) for r in table("check", self.file(data)) if r["severity"] != "note"]
        self.assertEqual(found, [("warning", "no_table"), ("warning", "unfinished_list"), ("warning", "unfinished_list")])

    def test_check_lists_the_quirks_that_a_file_touches(self):
        data = MPEG4.read_bytes()
        movi = data.index(b"movi") - 8
        idx1 = data.rindex(b"idx1")
        cases = (
            ("Q10", data[:movi] + b"abcd\4\0\0\0wxyz" + data[movi:], movi),
            ("Q09", data[:idx1] + b"JUNK\4\0\0\0wxyz" + data[idx1:], idx1),
            ("Q47", data[:idx1] + b"abcd\4\0\0\0wxyz" + data[idx1:], idx1),
            ("Q51", data[:-160], idx1 + 8),
        )
        for quirk, changed, offset in cases:
            found = findings(self.file(changed))
            self.assertEqual((found[quirk]["severity"], found[quirk]["offset"]), ("note", offset), quirk)
            self.assertIn("(repaired)", found[quirk]["text"])
            default = findings(self.file(changed), "--default-mode")
            self.assertEqual(default[quirk]["severity"], "warning")
            self.assertNotIn("(repaired)", default[quirk]["text"])
            self.assertEqual(lxavi("seek", self.file(changed), "3100").returncode, 0)

    def test_an_unknown_stream_type_is_told_with_its_code(self):
        data = bytearray(TWO.read_bytes())
        second = data.index(b"auds", data.index(b"auds") + 4)
        data[second:second + 4] = b"mids"
        path = self.file(data)
        self.assertEqual([s["kind"] for s in report("info", path)["streams"]], ["video", "audio", "unknown: mids"])
        self.assertEqual(findings(path)["unknown_type"]["text"], "stream 2 is of the unknown type 'mids'")

    def test_frame_rates_that_disagree_are_told(self):
        data = bytearray(TWO.read_bytes())
        at = data.index(b"avih") + 8
        for microseconds, told in ((40040, False), (40041, True), (39959, True), (0, False)):
            struct.pack_into("<I", data, at, microseconds)
            path = self.file(data)
            text_ = f"the main header says {microseconds} microseconds per frame, the video stream 40000.000"
            self.assertEqual(report("info", path)["frame_rate_conflict"], text_ if told else "none")
            found = findings(path)
            self.assertEqual(found.get("frame_rates", {}).get("text"), text_ if told else None)
            self.assertEqual("Q58" in found, told)
            self.assertEqual(report("info", path)["duration_us"], report("info", TWO)["duration_us"])

    def test_check_reports_damage_with_its_offset(self):
        data = bytearray(MPEG4.read_bytes())
        at = data.rindex(b"idx1") + 8
        struct.pack_into("<I", data, at + 16 + 8, 0x123456)  # the second record points nowhere
        struct.pack_into("<I", data, at + 32 + 12, 7)  # the third has a wrong size
        first_video = next(i for i in range(30) if data[at + 16 * i:at + 16 * i + 4] == b"00dc" and
                           struct.unpack_from("<I", data, at + 16 * i + 12)[0] > 0 and i > 4)
        flags = struct.unpack_from("<I", data, at + 16 * first_video + 4)[0]
        struct.pack_into("<I", data, at + 16 * first_video + 4, flags ^ 0x10)
        rows_ = table("check", self.file(data))
        found = {r["offset"]: r for r in rows_}
        self.assertIn("points at no chunk", found[at + 16]["text"])
        self.assertIn("index record says 7 bytes", found[at + 32]["text"])
        self.assertIn("key frame", found[at + 16 * first_video]["text"])
        self.assertTrue(any("is not listed by the index" in r["text"] for r in rows_))
        self.assertEqual([r["offset"] for r in rows_], sorted(r["offset"] for r in rows_))
        self.assertTrue(all(r["severity"] == "warning" for r in rows_))

    # ---- All commands ----

    def test_the_examples_of_the_help_work(self):
        """All films of the examples are the same sample, which has two audio tracks."""
        commands = re.findall(r"(?m)^  (\w+) ", lxavi("--help").stdout.split("Subcommands:")[1])
        self.assertEqual(len(commands), 9)
        for command in commands:
            examples = [line.strip() for line in lxavi(command, "--help").stdout.split("Examples:")[1].splitlines() if line.strip()]
            self.assertEqual(len(examples), 2)
            for example in examples:
                for name in ("film.avi", "broken.avi", "unfinished.avi", "cut.avi"):
                    shutil.copy(TWO, self.folder / name)
                result = subprocess.run([pathlib.Path(LXAVI).resolve(), *shlex.split(example)[1:]], cwd=self.folder, capture_output=True, text=True, check=False)
                self.assertNotEqual(result.returncode, 2, (example, result.stderr))
                self.assertNotIn("no AVI file", result.stderr)

    def test_help_that_cannot_be_written_is_status_1(self):
        for command in (("--help",), ("--version",), ("info", "--help"), ("info", MPEG4)):
            with open("/dev/full", "w") as full:
                result = subprocess.run([LXAVI, *command], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual((result.returncode, result.stderr), (1, "lxavi: standard output: No space left on device\n"), command)

    def test_messages_of_the_library_have_no_control_characters(self):
        path = self.file(MPEG4.read_bytes(), "z\x1b[31mq.avi")
        result = lxavi("info", path, "--log", "header")
        self.assertIn("AviReadCore : Opening", result.stderr)
        self.assertIn("z\\x1B[31mq.avi", result.stderr)
        self.assertNotIn("\x1b", result.stderr)
        self.assertNotIn("\x1b", lxavi("report", MPEG4, "-o", self.folder / "r\x1b[31m.html").stdout)

    def test_a_pipe_is_called_standard_input(self):
        data = MPEG4.read_bytes()
        for command, told in ((("report", "-", "-o", self.folder / "x.html"), "cannot be checked: it is no regular file"),
                              (("check", "-"), "cannot be checked: it is no regular file"), (("chunks", "-", "--limit", "1"), "no jumps in this file"),
                              (("chunks", "-", "--from", "1s"), "cannot jump")):
            result = subprocess.run([LXAVI, *command], input=data, capture_output=True, check=False)
            self.assertIn(f"lxavi: standard input: {told}", result.stderr.decode())

    def test_flags_take_no_values(self):
        for flag in ("--json=5", "--csv=false", "--default-mode=maybe"):
            self.assertEqual(lxavi("info", MPEG4, flag).returncode, 2)
        for value in ("2", "nope"):
            refused = lxavi("info", MPEG4, f"--rebuild={value}")
            self.assertEqual(refused.returncode, 2, value)
        self.assertIn("is none of always|auto", refused.stderr)
        self.assertEqual(report("info", MPEG4, "--rebuild=always")["streams"][0]["counted_in"], "the media data")

    def test_memory_does_not_grow_with_the_file(self):
        frames = [(0, b"dc", mpeg4_frame(n % 100 == 0, 8), n % 100 == 0) for n in range(300)]
        launcher = "import os, sys; p = os.spawnv(os.P_NOWAIT, sys.argv[1], sys.argv[1:]); print(os.wait4(p, 0)[2].ru_maxrss)"
        def measured(*command):  # KiB; a small launcher, because a process begins with the size of the one that starts it
            environment = os.environ | {"ASAN_OPTIONS": "quarantine_size_mb=0"}
            result = subprocess.run([sys.executable, "-S", "-c", launcher, LXAVI, *map(str, command)], capture_output=True, text=True,
                                    check=True, env=environment)
            return int(result.stdout.split()[-1])
        small, large = self.file(avi([video(b"XVID")], frames), "small.avi"), self.file(avi([video(b"XVID")], frames * 2000), "large.avi")
        self.assertGreater(large.stat().st_size, 10 << 20)
        for command in ("check", "info"):
            few, many = measured(command, small), measured(command, large)
            self.assertLess(many - few, 6 * 1024, command)
            if few < 20 * 1024:  # a sanitizer needs more for itself
                self.assertLess(many, 24 * 1024, command)
        damaged = bytearray(large.read_bytes())
        records = damaged.rindex(b"idx1") + 8
        for n in range(1, 600000, 2):  # they do not follow each other
            struct.pack_into("<I", damaged, records + 16 * n + 12, 7)
        large.write_bytes(damaged)
        self.assertLess(measured("check", large, "--limit", "3") - measured("check", small), 12 * 1024)
        rows_ = [row for row in table("check", large) if row["code"] == "record_size"]
        self.assertEqual((len(rows_), rows_[-1]["places"], sum(row["places"] for row in rows_)), (10000, 290001, 300000))
        self.assertIn("(and 290000 more, up to", rows_[-1]["text"])

    def test_fields_choose_what_is_printed(self):
        self.assertEqual(lxavi("chunks", MPEG4, "--csv", "--limit", "2", "--fields", "size_bytes,n").stdout,
                         "size_bytes,n\n" + "".join(f"{c.size},{n}\n" for n, c in enumerate(walk(MPEG4).chunks[:2])))
        self.assertEqual(table("index", MPEG4, "--fields", "frame")[1], {"frame": 26})
        self.assertEqual(lxavi("info", TWO, "--csv", "--fields", "streams.0.codec,index.step").stdout,
                         "key,value\nstreams.0.codec,H.264\nindex.step,1\n")
        self.assertEqual(report("info", TWO, "--fields", "index.step,streams.0.codec")["fields"], {"index.step": 1, "streams.0.codec": "H.264"})
        self.assertEqual(list(report("seek", TWO, "0", "--fields", "landed_ms")), ["schema_version", "command", "file", "mode", "fields"])
        self.assertEqual(lxavi("info", TWO, "--csv", "--fields", "texts").stdout, "key,value\ntexts,\n")
        self.assertIn("landed", lxavi("chunks", TWO, "--from", "1s", "--limit", "1").stderr)
        refused = lxavi("chunks", TWO, "--from", "1s", "--fields", "bogus")
        self.assertEqual(refused.returncode, 2)
        self.assertNotIn("landed", refused.stderr)
        self.assertEqual(lxavi("report", TWO, "--fields", "summary.errors").stdout.split(), ["summary.errors", "0"])

    def test_a_check_has_its_summary_as_last_row_of_csv_unless_columns_are_chosen(self):
        path = self.file(MPEG4.read_bytes()[:100000])
        self.assertIn("summary,,", lxavi("check", path, "--csv").stdout.splitlines()[-1])
        rows = lxavi("check", path, "--csv", "--fields", "code").stdout.splitlines()
        self.assertEqual((rows[0], "" in rows), ("code", False))

    def test_colours_are_for_terminals(self):
        path = self.file(MPEG4.read_bytes()[:100000])
        for environment, coloured in (({}, True), ({"NO_COLOR": "1"}, False), ({"NO_COLOR": ""}, True)):
            clean = {k: v for k, v in os.environ.items() if k != "NO_COLOR"} | environment
            result = subprocess.run(["script", "-qec", f"'{LXAVI}' check '{path}'", "/dev/null"], env=clean, capture_output=True,
                                    text=True, check=False)
            self.assertEqual("\x1b[" in result.stdout, coloured, environment)
        self.assertNotIn("\x1b[", lxavi("check", path).stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
