#!/usr/bin/env python3
"""Compares extracted streams with the streams of the original, decoded by a media tool: as many frames, and as long.
Usage: extracting.py LXAVI SAMPLES"""

import json
import pathlib
import shutil
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from decoding import EXPLAINED, decoded  # noqa: E402
from material import SAMPLES, InScratchFolder, corpus, lxavi, made_files  # noqa: E402

FILES = sorted(SAMPLES.glob("*.avi")) + made_files() + corpus()


@unittest.skipUnless(shutil.which("ffprobe"), "no media tool")
class Extracting(InScratchFolder):
    def test_extracted_streams_decode_to_the_same(self):
        compared = 0
        for path in FILES:
            out = self.folder / f"{compared:04}"
            lxavi("extract", path, "--out", out)
            if not (out / "manifest.json").exists():
                continue
            for stream in json.loads((out / "manifest.json").read_text())["streams"]:
                both = decoded(out / stream["file"], 0), decoded(path, stream["stream"])
                with self.subTest(file=path.name, stream=stream["stream"]):
                    if (path.name, stream["stream"]) in EXPLAINED:
                        self.assertNotEqual(*both)  # else the explanation is not needed any more
                        continue
                    self.assertIsNotNone(both[1])
                    self.assertEqual(*both)
                compared += 1
            shutil.rmtree(out)
        print(f"{compared} streams compared", file=sys.stderr)
        self.assertGreater(compared, 8)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
