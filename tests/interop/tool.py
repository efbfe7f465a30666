#!/usr/bin/env python3
"""Tests the command-line tool: options, output and exit status. Usage: tool.py LXAVI SAMPLES"""

import json
import pathlib
import shutil
import struct
import subprocess
import sys
import unittest
import wave

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from material import LXAVI, SAMPLES, InScratchFolder, lxavi  # noqa: E402

MPEG4, MJPEG, TWO, DV = (SAMPLES / f"{n}.avi" for n in ("mpeg4_mp3", "mjpeg_pcm", "two_audio", "dv_opendml"))


def report(*arguments):
    result = lxavi(*arguments, "--json")
    assert result.returncode in (0, 1), result.stderr
    return json.loads(result.stdout)


class Tool(InScratchFolder):
    # ---- Wrong input ----

    def test_wrong_usage_is_status_2(self):
        for arguments in ((), ("nonsense",), ("info",), ("seek", MPEG4), ("chunks", MPEG4, "--audio", "8"),
                          ("chunks", MPEG4, "--round", "sideways"), ("info", MPEG4, "--json", "--csv"),
                          ("step", MPEG4), ("extract", MPEG4), ("info", MPEG4, "more")):
            result = lxavi(*arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertTrue(result.stderr)
        self.assertEqual(lxavi("--help").returncode, 0)
        self.assertEqual(lxavi("--version").stdout, "lxavi 0.2.0\n")

    def test_refused_input_is_status_1_with_the_file_and_the_code(self):
        good = MPEG4.read_bytes()
        cases = (("/no/such/file", "LX_ERR_AVIREAD_OPEN"), (self.file(b"", "empty"), "LX_ERR_AVIREAD_EOF"),
                 (self.file(good[:1000], "cut"), "LX_ERR_AVIREAD_EOF"),
                 (self.file(b"RIFF\x04\0\0\0WAVE", "wave"), "LX_ERR_AVIREAD_NOT_AVI"))
        for command in (("info",), ("chunks",), ("index",), ("check",), ("extract", "--out", self.folder / "x")):
            for path, code in cases:
                result = lxavi(command[0], path, *command[1:])
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, rf"^lxavi: {path}: .* \({code}\)\n$")
        self.assertIn("is a directory", lxavi("info", self.folder).stderr)

    def test_arguments_out_of_range_are_status_2(self):
        for arguments in (("chunks", MPEG4, "--limit", "-1"), ("seek", MPEG4, "-5"), ("seek", MPEG4, ""),
                          ("step", MPEG4, "--count", "-5"), ("seek", MPEG4, "99999999999"),
                          ("extract", MPEG4, "--out", self.folder, "--from", "5", "--to", "4")):
            self.assertEqual(lxavi(*arguments).returncode, 2, arguments)

    def test_output_that_cannot_be_written_is_status_1(self):
        for command in (("info", MPEG4), ("seek", MPEG4, "1000"), ("check", MPEG4), ("chunks", MPEG4, "--json")):
            with open("/dev/full", "w") as full:
                result = subprocess.run([LXAVI, *map(str, command)], stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual(result.returncode, 1, command)
        (self.folder / "out" / "stream00_video.mjpeg").mkdir(parents=True)
        self.assertIn("cannot write", lxavi("extract", MJPEG, "--out", self.folder / "out").stderr)

    def test_the_source_is_not_overwritten(self):
        source = self.file(MJPEG.read_bytes(), "stream00_video.mjpeg")
        self.assertIn("would overwrite", lxavi("extract", source, "--out", self.folder).stderr)
        self.assertEqual(source.read_bytes(), MJPEG.read_bytes())

    def test_a_pipe_is_delivered_and_not_checked(self):
        with open(MJPEG, "rb") as data:
            piped = subprocess.run([LXAVI, "chunks", "--csv", "/dev/stdin"], input=data.read(), capture_output=True,
                                   check=False)
        seekable = lxavi("chunks", "--csv", MJPEG).stdout.splitlines()
        lines = piped.stdout.decode().splitlines()
        column = lambda rows, n: [row.split(",")[n] for row in rows[1:]]  # noqa: E731
        self.assertEqual(column(lines, 10), column(seekable, 10))  # offsets
        self.assertEqual(column(lines, 12), column(seekable, 12))  # crc32
        piped = subprocess.run([LXAVI, "check", "/dev/stdin"], input=MJPEG.read_bytes(), capture_output=True, check=False)
        self.assertEqual(piped.returncode, 1)
        self.assertIn(b"no regular file", piped.stderr)
        piped = subprocess.run([LXAVI, "info", "/dev/stdin"], input=MJPEG.read_bytes(), capture_output=True, check=False)
        self.assertEqual(piped.returncode, 0)

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
        self.assertEqual([s["type"] for s in info["stream"]], ["video", "audio", "audio"])
        self.assertEqual([s["track"] for s in info["stream"]], [0, 0, 1])
        self.assertEqual(info["index"]["kind"], "idx1, relative offsets")
        self.assertEqual(info["index"]["key frames found"], info["index"]["key frames stored"])
        self.assertEqual(report("info", MJPEG)["index"]["kind"], "idx1, absolute offsets")
        dv = report("info", DV)
        self.assertEqual(dv["index"]["kind"], "OpenDML, super index")
        self.assertEqual(dv["index"]["usable for seeking"], "yes")
        self.assertEqual(dv["reads"], "format mode")
        self.assertEqual(dv["stream"][0]["index chunks"], 1)
        self.assertIn("stream 0", lxavi("info", TWO).stdout)
        self.assertIn("index.kind,", lxavi("info", TWO, "--csv").stdout)

    def test_default_mode_keeps_the_oddities(self):
        dv = report("info", DV, "--default-mode")
        self.assertIn("one word off", dv["index"]["usable for seeking"])
        self.assertEqual(dv["reads"], "default mode")
        self.assertEqual([q[:3] for q in dv["quirks touched"]], ["Q39"])
        self.assertEqual([k["frame"] for k in report("index", DV)], [0, 1, 2, 3])
        self.assertEqual(report("index", MJPEG)[0]["offset"], report("index", MJPEG, "--default-mode")[0]["offset"])
        self.assertNotEqual(report("index", TWO)[0]["offset"], report("index", TWO, "--default-mode")[0]["offset"])

    def test_seek_reports_the_landing_against_the_request(self):
        seek = report("seek", DV, "70")
        self.assertEqual((seek["asked for ms"], seek["landed on ms"], seek["off by ms"]), (70, 66, -4))
        self.assertEqual(seek["range"], "0:00:00.000 to 0:00:00.100")
        self.assertTrue(seek["first video"]["key"])
        result = lxavi("chunks", DV, "--from", "70", "--csv", "--limit", "1")
        self.assertIn("asked for 70 ms, landed on the key frame at 66 ms", result.stderr)

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
            rows = {r["quirk"]: r for r in report("check", self.file(changed)) if r["quirk"]}
            self.assertEqual(rows[quirk]["offset"], offset, quirk)
            self.assertIn("(repaired)", rows[quirk]["anomaly"])
            default = {r["quirk"]: r for r in report("check", self.file(changed), "--default-mode") if r["quirk"]}
            self.assertNotIn("(repaired)", default[quirk]["anomaly"])
            self.assertEqual(lxavi("seek", self.file(changed), "3100").returncode, 0)

    def test_a_budget_thins_the_table_or_refuses_it(self):
        self.assertEqual(report("info", MJPEG, "--budget", "70000")["index"]["leaves"], 1)
        self.assertIn("LX_ERR_AVIREAD_NO_MEMORY", report("info", MJPEG, "--budget", "100")["index"]["usable for seeking"])
        self.assertEqual(lxavi("index", MJPEG, "--budget", "100").returncode, 1)
        self.assertEqual(lxavi("chunks", MJPEG, "--budget", "100", "--csv").returncode, 0)  # delivers all

    def test_index_lists_every_track(self):
        header = lxavi("index", TWO, "--csv").stdout.splitlines()[0]
        self.assertEqual(header, "n,leaf,item,frame,time_ms,offset,a0_frame,a0_offset,a0_bytes,a1_frame,a1_offset,a1_bytes")

    def test_chunks_has_its_header_line(self):
        header = lxavi("chunks", TWO, "--csv", "--limit", "1").stdout.splitlines()
        self.assertEqual(header[0], "n,stream,type,track,frame,byte_position,size,key,drm,jumped,offset,time_ms,crc32")
        self.assertEqual(len(header), 2)

    def test_seek_lands_on_a_key_frame_and_resumes_audio(self):
        for rounding, time in (("down", 1040), ("up", 2040), ("nearest", 1040)):
            seek = report("seek", MPEG4, "1500", "--round", rounding)
            self.assertEqual(seek["landed on ms"], time)
            self.assertTrue(seek["first video"]["key"])
            self.assertEqual(seek["first video"]["time ms"], time)
            self.assertLess(abs(seek["audio minus video ms"]), 100)

    def test_steps_go_from_key_frame_to_key_frame(self):
        table = [k["frame"] for k in report("index", MPEG4)]
        self.assertEqual([s["frame"] for s in report("step", MPEG4, "--count", "4")], table[:5])
        self.assertEqual([s["frame"] for s in report("step", MPEG4, "--count", "2", "--mode", "trick")], table[:3])
        back = report("step", MPEG4, "--count", "9", "--mode", "back", "--from", "3000")
        self.assertEqual([s["frame"] for s in back], [table[2], table[1], table[0], table[0]])
        self.assertEqual(back[-1]["found"], 0)
        jump = report("step", MPEG4, "--count", "3", "--mode", "jump")
        self.assertEqual(jump[-1]["frame"], table[3])

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

    def extract(self, path, *options):
        out = self.folder / "out"
        result = lxavi("extract", path, "--out", out, *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        manifest = json.loads((out / "manifest.json").read_text())
        for stream in manifest["streams"]:
            self.assertTrue((out / stream["file"]).exists())
        return out, {s["stream"]: s for s in manifest["streams"]}

    def test_pcm_becomes_a_wav_file(self):
        out, streams = self.extract(MJPEG)
        with wave.open(str(out / streams[1]["file"])) as audio:
            self.assertEqual((audio.getnchannels(), audio.getframerate(), audio.getsampwidth()), (1, 8000, 2))
            self.assertEqual(audio.getnframes() * 2, streams[1]["bytes"])

    @unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
    def test_extracted_files_are_opened_by_a_media_tool(self):
        for path, codecs in ((MPEG4, {0: "mpeg4", 1: "mp3"}), (MJPEG, {0: "mjpeg", 1: "pcm_s16le"}),
                             (TWO, {0: "h264", 1: "mp3", 2: "pcm_s16le"})):
            out, streams = self.extract(path)
            for number, codec in codecs.items():
                probe = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of", "csv=p=0",
                                        str(out / streams[number]["file"])], capture_output=True, text=True, check=True)
                self.assertEqual(probe.stdout.strip(), codec)

    def test_one_track_can_be_chosen(self):
        _, streams = self.extract(TWO, "--audio", "1")
        self.assertEqual(sorted(streams), [0, 2])
        self.assertEqual(lxavi("extract", TWO, "--out", self.folder, "--audio", "5").returncode, 1)

    def test_a_range_starts_at_a_key_frame_and_ends_in_time(self):
        _, whole = self.extract(MPEG4)
        _, part = self.extract(MPEG4, "--from", "2000", "--to", "3000")
        self.assertEqual(part[0]["chunks"], 49)  # frames of 40 ms, from the key frame at 1040 ms on
        self.assertLess(part[1]["bytes"], whole[1]["bytes"] / 2)

    # ---- check ----

    def test_check_is_quiet_about_good_files(self):
        for path in (MPEG4, MJPEG, TWO):
            result = lxavi("check", path)
            self.assertEqual(result.returncode, 0, result.stdout)

    def test_an_unknown_stream_type_is_told_with_its_code(self):
        data = bytearray(TWO.read_bytes())
        second = data.index(b"auds", data.index(b"auds") + 4)
        data[second:second + 4] = b"mids"
        path = self.file(data)
        self.assertEqual([s.get("unknown type") for s in report("info", path)["stream"]], [None, None, "mids"])
        self.assertIn("stream 2 is of the unknown type 'mids'", [a["anomaly"] for a in report("check", path)])

    def test_frame_rates_that_disagree_are_told(self):
        data = bytearray(TWO.read_bytes())
        at = data.index(b"avih") + 8
        for microseconds, told in ((40040, False), (40041, True), (39959, True), (0, False)):
            struct.pack_into("<I", data, at, microseconds)
            path = self.file(data)
            text = f"the main header says {microseconds} microseconds per frame, the video stream 40000.000"
            self.assertEqual(report("info", path).get("frame rates disagree"), text if told else None)
            anomalies = report("check", path)
            self.assertEqual(text in [a["anomaly"] for a in anomalies], told)
            self.assertEqual("Q58" in [a["quirk"] for a in anomalies], told)
            self.assertEqual(report("info", path)["duration"], report("info", TWO)["duration"])

    def test_check_reports_damage_with_its_offset(self):
        data = bytearray(MPEG4.read_bytes())
        at = data.rindex(b"idx1") + 8
        struct.pack_into("<I", data, at + 16 + 8, 0x123456)  # the second record points nowhere
        struct.pack_into("<I", data, at + 32 + 12, 7)  # the third has a wrong size
        first_video = next(i for i in range(30) if data[at + 16 * i:at + 16 * i + 4] == b"00dc" and
                           struct.unpack_from("<I", data, at + 16 * i + 12)[0] > 0 and i > 4)
        flags = struct.unpack_from("<I", data, at + 16 * first_video + 4)[0]
        struct.pack_into("<I", data, at + 16 * first_video + 4, flags ^ 0x10)
        anomalies = {a["offset"]: a["anomaly"] for a in report("check", self.file(data))}
        self.assertIn("points at no chunk", anomalies[at + 16])
        self.assertIn("index record says 7 bytes", anomalies[at + 32])
        self.assertIn("key frame", anomalies[at + 16 * first_video])
        self.assertTrue(any("is not listed by the index" in text for text in anomalies.values()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
