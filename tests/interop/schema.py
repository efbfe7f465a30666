#!/usr/bin/env python3
"""Checks every document of JSON that the tool makes against doc/lxavi.schema.json. Usage: schema.py LXAVI SAMPLES"""

import json
import pathlib
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from material import LXAVI, SAMPLES, InScratchFolder, corpus, lxavi, made_files  # noqa: E402
from plainwriter import audio, avi, mpeg4_frame, text, video  # noqa: E402

SCHEMA = pathlib.Path(__file__).parents[2] / "doc" / "lxavi.schema.json"
DEBIAN_PYTHON = "/usr/bin/python3"  # which has the package python3-jsonschema
VALIDATOR = """
import json, jsonschema, pathlib, sys
schema = json.loads(pathlib.Path(sys.argv[1]).read_text())
jsonschema.Draft202012Validator.check_schema(schema)
for path in sys.argv[2:]:
    document = json.loads(pathlib.Path(path).read_text())
    kind = "manifest" if path.endswith("manifest.json") else "chosen" if "fields" in document else document["command"]
    chosen = {"$ref": "#/$defs/" + kind, "$defs": schema["$defs"]}
    for error in jsonschema.Draft202012Validator(chosen).iter_errors(document):
        print(f"{path}: {list(error.absolute_path)}: {error.message[:300]}")
"""


def has_validator():
    return subprocess.run([DEBIAN_PYTHON, "-c", "import jsonschema"], capture_output=True, check=False).returncode == 0


@unittest.skipUnless(has_validator(), "python3-jsonschema is not installed")
class Schema(InScratchFolder):
    def wrong(self, paths):
        result = subprocess.run([DEBIAN_PYTHON, "-c", VALIDATOR, SCHEMA, *map(str, paths)], capture_output=True, text=True, check=False)
        self.assertEqual(result.stderr, "")
        return result.stdout

    @staticmethod
    def incomplete(paths):
        """The documents with a row that does not have all columns. (--fields leaves some out, therefore none is required.)"""
        defined = json.loads(SCHEMA.read_text())["$defs"]
        found = []
        for path in paths:
            document = json.loads(path.read_text())
            columns = set(defined[document["command"]]["properties"].get("rows", {}).get("items", {}).get("properties", {}))
            found += [path for row in document.get("rows", []) if not columns <= set(row)]
        return found

    def document(self, number, *arguments, **options):
        result = lxavi(*arguments, "--json", **options)
        self.assertIn(result.returncode, (0, 1), result.stderr)
        path = self.folder / f"{number:04}.json"
        path.write_text(result.stdout)
        return [path] if result.stdout else []

    def test_every_command_prints_what_the_schema_says(self):
        strange = avi([video(b"XVID"), audio(), text(), (b"mids", b"\0" * 4, (1, 1, 0), b"")],
                      [(0, b"dc", mpeg4_frame(True), True), (1, b"wb", bytes(100), True), (2, b"tx", b"hello", True)])
        files = sorted(SAMPLES.glob("*.avi")) + made_files() + corpus()
        files += [self.file(strange, "strange.avi"), self.file(SAMPLES.joinpath("mpeg4_mp3.avi").read_bytes()[:100000], "cut.avi"),
                  self.file(avi([audio()], [(0, b"wb", bytes(100), True)]), "sound.avi")]
        documents = []
        for path in files:
            for command in (("info",), ("info", "--default-mode"), ("chunks", "--limit", "20"), ("index",), ("seek", "1s"), ("step", "--count", "2"),
                            ("check",), ("check", "--default-mode"), ("report",), ("repair", "-o", self.folder / "copy.avi", "--force"),
                            ("extract", "--out", self.folder / f"out{len(documents)}")):
                documents += self.document(len(documents), command[0], path, *command[1:])
            documents += self.folder.glob("out*/manifest.json")
        commands = {json.loads(path.read_text())["command"] for path in set(documents)}
        self.assertEqual(commands, {"info", "chunks", "index", "seek", "step", "check", "report", "repair", "extract"})
        self.assertGreater(len(documents), 100)
        self.assertEqual(self.incomplete(set(documents)), [])
        self.assertEqual(self.wrong(set(documents)), "")

    def test_other_ways_to_read_and_write_keep_to_the_schema(self):
        sample = SAMPLES / "mpeg4_mp3.avi"
        data = sample.read_bytes()
        unfinished = self.file(data[:data.rindex(b"idx1")], "unfinished.avi")
        documents = self.document(0, "repair", unfinished, "--in-place") + self.document(1, "info", unfinished, "--rebuild")
        piped = subprocess.run([LXAVI, "info", "-", "--json"], input=data, capture_output=True, check=True)
        documents.append(self.folder / "0002.json")
        documents[-1].write_bytes(piped.stdout)
        documents += self.document(3, "extract", sample, "--out", self.folder / "part", "--from", "2s", "--to", "3s", "--raw")
        documents.append(self.folder / "part" / "manifest.json")
        documents += self.document(5, "chunks", sample, "--fields", "n,crc32")
        for number, (command, fields) in enumerate({("info",): "streams.0.codec,texts", ("seek", "1s"): "landed_ms", ("report",): "summary.errors,streams",
                                                    ("repair", "-o", self.folder / "copy.avi"): "chunks"}.items()):
            documents += self.document(20 + number, command[0], sample, *command[1:], "--fields", fields)
        name = self.folder / "bytes\udcff and \x1b control.avi"
        name.write_bytes(data)
        documents += self.document(6, "info", name)
        self.assertEqual(self.wrong(documents), "")

    def test_the_check_can_fail(self):
        path = self.document(0, "info", SAMPLES / "mpeg4_mp3.avi")[0]
        for change in ({"size_bytes": "many"}, {"schema_version": 2}, {"surprise": 1}):
            path.write_text(json.dumps(json.loads(path.read_text()) | change))
            self.assertIn("0000.json", self.wrong([path]))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
