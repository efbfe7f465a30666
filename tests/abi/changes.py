#!/usr/bin/env python3
"""Changes copies of the headers, and checks that scripts/abi finds each change."""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]

CHANGES = {  # header, text, its replacement, what the difference names
    "a field more": ("lxAviReadTypes.h", "    UInt32 uiChunks; ", "    UInt32 uiMore;\n    UInt32 uiChunks; ", "+  uiMore at 16, 4"),
    "a narrower field": ("lxAviReadTypes.h", "    UInt16 bDrm; ", "    UInt8 bDrm; ", "+  bDrm at 32, 1"),
    "fields in another order": ("lxAviReadTypes.h", "    UInt16 wPriority;\n    UInt16 wLanguage;",
                                "    UInt16 wLanguage;\n    UInt16 wPriority;", "+  wPriority at 14, 2"),
    "a longer array": ("lxAviReadState.h", "UInt32 uiReserved[3];", "UInt32 uiReserved[4];",
                       "+  aviIndxTypeSpecificSection.aviSuperIndex.uiReserved at 12, 16"),
    "another value": ("lxAviReadTypes.h", "LX_ERR_AVIREAD_EOF 0x88019809u", "LX_ERR_AVIREAD_EOF 0x88019809u + 1",
                      "+LX_ERR_AVIREAD_EOF 2281805834"),
    "an enumerator more": ("lxAviReadTypes.h", "LX_AVIREAD_SUMMARY_NONE = 0,",
                           "LX_AVIREAD_SUMMARY_NONE = 0, LX_AVIREAD_SUMMARY_MORE = 9,", "+LX_AVIREAD_SUMMARY_MORE 9"),
    "another parameter": ("lxAviRead.h", "lxAviReadCore_IncreaseOffset(UInt32 count)",
                          "lxAviReadCore_IncreaseOffset(UInt64 count)", "+void lxAviReadCore_IncreaseOffset(UInt64 count)"),
    "another result": ("lxAviRead.h", "LX_AVIREAD_API Bool lxAviReadCore_GetAbortFlag",
                       "LX_AVIREAD_API UInt32 lxAviReadCore_GetAbortFlag", "+UInt32 lxAviReadCore_GetAbortFlag(void)"),
    "a function less": ("lxAviRead.h", "LX_AVIREAD_RESULT lxAviReadCore_SwitchAudioTrack(void);", "",
                        "-UInt32 lxAviReadCore_SwitchAudioTrack(void)"),
    "another variable": ("lxAviRead.h", "LX_AVIREAD_API UInt32 videoTrackNumber;",
                         "LX_AVIREAD_API UInt64 videoTrackNumber;", "+UInt64 videoTrackNumber"),
    "another major version": ("lxAviRead.h", "LX_AVIREAD_VERSION_MAJOR 0", "LX_AVIREAD_VERSION_MAJOR 1",
                              "+liblxAviRead.so.1"),
}


class Changes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lxavi-abi-")
        self.addCleanup(folder.cleanup)
        self.include = pathlib.Path(folder.name) / "include"
        shutil.copytree(ROOT / "include", self.include)

    def check(self):
        return subprocess.run([ROOT / "scripts/abi", "check", "--include", self.include], capture_output=True, text=True,
                              check=False)

    def test_the_headers_are_as_recorded(self):
        result = self.check()
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_comments_and_spaces_do_not_count(self):
        path = self.include / "lxAviRead.h"
        path.write_text(path.read_text().replace("(UInt32 count);", "(UInt32\n    /* bytes */ count);"))
        self.assertEqual(self.check().returncode, 0)

    def test_every_change_is_found(self):
        for name, (header, text, replacement, difference) in CHANGES.items():
            with self.subTest(name):
                path = self.include / header
                original = path.read_text()
                self.assertEqual(original.count(text), 1)
                path.write_text(original.replace(text, replacement))
                result = self.check()
                self.assertEqual(result.returncode, 1)
                self.assertIn(difference + "\n", result.stdout)
                path.write_text(original)


if __name__ == "__main__":
    unittest.main()
