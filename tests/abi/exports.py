#!/usr/bin/env python3
"""Checks that the library exports exactly the names that its header declares. Usage: exports.py LIBRARY HEADER"""

import re
import subprocess
import sys

library, header = sys.argv[1:]
symbols = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
exported = {line.split()[-1].split("@")[0] for line in symbols.splitlines()}
exported -= {name for name in exported if name.startswith(("__gcov", "mangle_path", "__asan", "__odr_asan", "__ubsan"))}

text = re.sub(r"/\*.*?\*/", "", open(header).read(), flags=re.S)
text = "\n".join(line for line in text.splitlines() if not line.startswith("#"))
functions = set(re.findall(r"(?:LX_AVIREAD_API|LX_AVIREAD_RESULT)[^;(]*?(\w+)\s*\(", text))
variables = set(re.findall(r"extern LX_AVIREAD_API \w+ (\w+)", text))
declared = functions | variables

print(f"{len(declared)} declared, {len(exported)} exported")
for name in sorted(declared - exported):
    print(f"declared, not exported: {name}")
for name in sorted(exported - declared):
    print(f"exported, not declared: {name}")
sys.exit(declared != exported or len(declared) < 50)
