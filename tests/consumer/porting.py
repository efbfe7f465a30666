#!/usr/bin/env python3
"""Does what doc/PORTING.md says: builds the library with its one line, with each platform, and plays a file with it.
Usage: porting.py SAMPLES"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SAMPLES = pathlib.Path(sys.argv[1]).resolve()
ROOT = pathlib.Path(__file__).resolve().parents[2]
LINE = re.search(r"```sh\n(c\+\+ .*?)```", (ROOT / "doc/PORTING.md").read_text(), re.S)[1]
PLAYED = "319 chunks, 56918 bytes: The media data has ended."

# A program for the minimal debug library. It is compiled as C and as C++.
DEBUG_TEST = r"""
#include "lxDbgMinimal.h"
#include <stdio.h>
#include <string.h>

static char last[2000];
static int lines;

static void Keep(void* context, const char* line)
{
    snprintf(last, sizeof last, "%s", line);
    *(int*)context += 1;
}

#define EXPECT(condition) if (!(condition)) { printf("line %d: %s, last: %s\n", __LINE__, #condition, last); return 1; }

int main(void)
{
    lxDbg_Unit_t unit = 7, again = 7;
    char name[100], text[3000];
    EXPECT(lxDbg_RegisterModule(NULL, "a") == 1 && lxDbg_RegisterModule(&unit, NULL) == 1);
    EXPECT(lxDbg_RegisterModule(&unit, "reader") == 0 && unit == 1);
    EXPECT(lxDbg_RegisterModule(&again, "reader") == 0 && again == 1);
    lxDbg_Print(unit, 0x10, "dropped %d", 1); /* there is no sink */
    lxDbg_AssertError("a", "b", "c", 1);
    lxDbg_SetSink(Keep, &lines);
    lxDbg_Print(unit, 0x8100, "chunk %d of %s", 3, "film");
    EXPECT(lines == 1 && strcmp(last, "reader 8100: chunk 3 of film") == 0);
    lxDbg_Print(99, 1, "x");
    EXPECT(strcmp(last, "global 1: x") == 0);
    lxDbg_AssertError("a != b", lxDbg_StrAssertFormat("%s %d", "because", 5), "file.c", 12);
    EXPECT(lines == 3 && strcmp(last, "file.c:12: a != b does not hold: because 5") == 0);
    memset(text, 'x', sizeof text - 1);
    text[sizeof text - 1] = '\0';
    lxDbg_Print(unit, 1, "%s", text);
    EXPECT(strlen(last) == 511);
    EXPECT(strlen(lxDbg_StrAssertFormat("%s", text)) == 511);
    lxDbg_AssertError(text, text, text, 1);
    EXPECT(strlen(last) == 1023);
    EXPECT(lxDbg_RegisterModule(&unit, text) == 0 && unit == 2); /* a name is cut */
    EXPECT(lxDbg_RegisterModule(&again, text) == 0 && again == 2);
    for (int i = 3; i < (int)LX_DBG_UNITS; ++i) {
        snprintf(name, sizeof name, "unit %d", i);
        EXPECT(lxDbg_RegisterModule(&unit, name) == 0 && unit == (lxDbg_Unit_t)i);
    }
    EXPECT(lxDbg_RegisterModule(&unit, "one more") == 1 && unit == LX_DBG_GLOBAL_UNIT);
    return 0;
}
"""


def run(command, folder):
    result = subprocess.run(["sh", "-c", command], cwd=folder, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise AssertionError(f"{command}\n{result.stdout}{result.stderr}")
    return result.stdout


class Porting(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lxavi-porting-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name in ("demux", "include", "platform", "examples"):
            (self.folder / name).symlink_to(ROOT / name)

    def play(self, program="cc -std=c99 examples/play.c"):
        run(f"{program} -Iinclude -Iplatform/include -Iplatform/minimal -L. -llxAviRead -Wl,-rpath,$PWD -o play", self.folder)
        return run(f"./play '{SAMPLES / 'two_audio.avi'}'", self.folder)

    def test_the_line_builds_a_library_that_plays(self):
        run(LINE, self.folder)
        self.hear_messages()
        self.assertIn(PLAYED, self.play())
        needed = run("readelf -d liblxAviRead.so | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\]/\\1/p'", self.folder)
        self.assertEqual(needed, "libc.so.6\n")

    def test_the_library_asks_the_c_library_for_what_the_document_says(self):
        run(LINE.replace("-Os", "-O0"), self.folder) # nothing is expanded inline
        wanted = set(run("nm -D -u liblxAviRead.so", self.folder).split()) - {"U", "w"}
        wanted = {name.split("@")[0] for name in wanted if not name.startswith(("_ITM", "__cxa_finalize", "__gmon"))}
        document = (ROOT / "doc/PORTING.md").read_text()
        own = {"snprintf", "vsnprintf", "strncmp"}  # of the minimal debug library
        self.assertEqual({name for name in wanted - own if f"`{name}`" not in document}, set())

    def test_the_line_builds_without_messages(self):
        run(LINE.replace("-D_GNU_SOURCE", "-D_GNU_SOURCE -DLX_AVIREAD_NO_MESSAGES"), self.folder)
        self.assertIn(PLAYED, self.play())
        self.assertNotIn("Found movi LIST", run("strings -a liblxAviRead.so", self.folder))

    def test_the_template_is_enough_to_play(self):
        run(LINE.replace("platform/minimal/lxDbg.c", "platform/template/lxDbg.c"), self.folder)
        self.assertIn(PLAYED, self.play())

    def test_the_minimal_debug_library_is_c_and_cxx(self):
        (self.folder / "test.c").write_text(DEBUG_TEST)
        for compiler in ("cc -std=c99 -x c", "c++ -std=c++11 -x c++"):
            run(f"{compiler} -Wall -Wextra -Wconversion -Wno-format-truncation -Werror -pedantic -fsanitize=address,undefined "
                "-Iplatform/include -Iplatform/minimal test.c platform/minimal/lxDbg.c -o test && ./test", self.folder)

    def hear_messages(self):
        (self.folder / "hear.c").write_text(r"""
#include "lxAviRead.h"
#include "lxDbgMinimal.h"
#include <stdio.h>
static void Print(void* context, const char* line) { (void)context; puts(line); }
int main(int argc, char** argv)
{
    Bool indexed;
    lxDbg_SetSink(Print, NULL);
    kvStbDbg_DbgUnit[LX_DBG_GLOBAL_UNIT] = 0x100;
    (void)argc;
    return lxAviReadCore_Open(0, argv[1], 1, 0, 1, &indexed) == LX_OK && lxAviReadCore_Close() == LX_OK ? 0 : 1;
}
""")
        self.assertIn("lxAviRead 100: AviReadCore : Found movi LIST chunk", self.play("cc -std=c99 hear.c"))

    def test_cmake_builds_with_the_minimal_platform_also_a_static_program(self):
        options = ("-DLXAVIREAD_PLATFORM=minimal -DLXAVIREAD_ARCHIVES=ON -DLXAVIREAD_TESTS=OFF -DLXAVIREAD_TOOLS=OFF "
                   "-DCMAKE_BUILD_TYPE=MinSizeRel -DLXAVIREAD_MESSAGES=OFF")
        run(f"cmake -S '{ROOT}' -B build -G Ninja {options} && cmake --build build && "
            "cmake --install build --prefix installed", self.folder)
        run("cc -std=c99 -static examples/play.c -o play "
            "$(PKG_CONFIG_PATH=installed/lib/pkgconfig pkg-config --static --cflags --libs lxAviRead)", self.folder)
        self.assertIn(PLAYED, run(f"./play '{SAMPLES / 'two_audio.avi'}'", self.folder))
        self.assertNotIn("NEEDED", run("readelf -d play", self.folder))
        self.assertTrue((self.folder / "installed/include/lxAviRead/lxDbgMinimal.h").exists())

    def test_a_big_endian_processor_is_refused(self):
        core = "-Iinclude -Iplatform/include -Idemux/comps/lxAviRead/src/core/src"
        source = "demux/comps/lxAviRead/src/core/src/AviReadcore/StreamList.cpp"
        result = subprocess.run(["sh", "-c", f"c++ -std=c++20 -D_GNU_SOURCE -U__BYTE_ORDER__ "
                                 f"-D__BYTE_ORDER__=__ORDER_BIG_ENDIAN__ {core} -fsyntax-only {source}"],
                                cwd=self.folder, capture_output=True, text=True, check=False)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("lxAviRead needs a little-endian processor", result.stderr)


if __name__ == "__main__":
    assert shutil.which("cmake")
    unittest.main(argv=sys.argv[:1])
