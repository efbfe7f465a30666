#!/usr/bin/env python3
"""Checks that the lines of examples that doc/INTEGRATION.md quotes are there, and that each example is below 150 lines."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = {path.name: path.read_text() for path in sorted((ROOT / "examples").glob("*.c"))}

document = " ".join((ROOT / "doc/INTEGRATION.md").read_text().split())
quotes = re.findall(r"`(\w+\.c)`: `([^`]+)`", document)
failed = [f"{name} has no line with: {code}" for name, code in quotes
          if " ".join(code.split()) not in " ".join(EXAMPLES.get(name, "").split())]
failed += [f"{name} has {len(text.splitlines())} lines" for name, text in EXAMPLES.items() if len(text.splitlines()) >= 150]
failed += [f"no rule is shown by {name}" for name in EXAMPLES if name not in dict(quotes)]
print(*failed, f"{len(quotes)} quotes of {len(EXAMPLES)} examples", sep="\n")
sys.exit(bool(failed) or len(quotes) < 30)
