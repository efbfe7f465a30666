#!/usr/bin/env python3
"""Writes the lines of code in the README as a program that seeks. Usage: readme_example.py README OUTPUT"""

import pathlib
import re
import sys

readme, output = map(pathlib.Path, sys.argv[1:])
lines = re.search(r"```c\n(.*?)```", readme.read_text(), re.S)[1].replace('"film.avi"', "argv[1]")
lines = lines.replace("lxAviReadCore_NextChunk(", "const UInt32 result = lxAviReadCore_NextChunk(")
body = "".join(f"    {line}\n" for line in lines.splitlines())
output.write_text(f"""#include "lxAviRead.h"

int main(int argc, char** argv)
{{
    (void)argc;
{body}    /* the last key frame, or the audio that plays with it */
    const int bPlayed = result == LX_OK && jumped == 1 && chunk.uiSize > 0;
    lxAviReadCore_Close();
    return bPlayed ? 0 : 1;
}}
""")
