#!/usr/bin/env python3
"""Writes the example in the header as a program. Usage: header_example.py HEADER OUTPUT"""

import pathlib
import re
import sys

header, output = map(pathlib.Path, sys.argv[1:])
example = re.search(r"@code\n(.*?) \*  @endcode", header.read_text(), re.S)[1]
lines = [re.sub(r"^ \*(  )?", "", line) for line in example.splitlines()]
output.write_text('#include "lxAviRead.h"\n\n' + "\n".join(lines) + """

int main(int argc, char** argv) { return argc == 2 && PlayFile(argv[1]) == LX_AVIREAD_END_OF_MEDIA ? 0 : 1; }
""")
