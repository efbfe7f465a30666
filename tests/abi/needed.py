#!/usr/bin/env python3
"""Checks that the library needs exactly these libraries at load time. Usage: needed.py LIBRARY NAME …"""

import re
import subprocess
import sys

library, *expected = sys.argv[1:]
dynamic = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True).stdout
needed = re.findall(r"\(NEEDED\).*\[(\S+?)\.so[^\]]*\]", dynamic)
wanted = sorted(name if name.startswith("lib") else "lib" + name for name in expected)
print("needed:", " ".join(sorted(needed)))
sys.exit(sorted(needed) != wanted)
