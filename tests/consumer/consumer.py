#!/usr/bin/env python3
"""Installs a build, moves the tree, and builds programs against it as somebody else would: with pkg-config, with CMake,
shared and static, in C99 and C++17. Usage: consumer.py BUILD SAMPLES"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD, SAMPLES = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE / "project"
TWO = SAMPLES / "two_audio.avi"
CHUNKS = "359 chunks, version "  # 126 of video, 193 and 40 of audio


def run(*command, **options):
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


class Consumer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="lxavi-consumer-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.first = cls.folder / "first"
        cls.prefix = cls.folder / "a prefix/that moved"
        run("cmake", "--install", BUILD, "--prefix", cls.first)
        cls.prefix.parent.mkdir()
        shutil.move(cls.first, cls.prefix)

    def compile(self, compiler, source, output, *more, static=False):
        """Compiles one file with what pkg-config says, and returns the program. Static: with our libraries as archives, and
        the others, which Debian has only as shared libraries, as they are."""
        environment = {"PKG_CONFIG_PATH": str(self.prefix / "lib/pkgconfig"), "PATH": "/usr/bin:/bin"}
        mode = ["--static"] if static else []
        # a space in the prefix is escaped for the shell
        flags = run("pkg-config", *mode, "--cflags", "--libs", "lxAviRead", "lxDbg", env=environment).strip()
        program = self.folder / output
        if static:
            flags = re.sub(r"-l(lx\w+)", r"-l:lib\1.a", flags)
        run("sh", "-c", f"{compiler} '{source}' {flags} {' '.join(more)} -o '{program}'", env=environment)
        return program

    def run_path(self):
        return f"'-Wl,-rpath,{self.prefix}/lib'"

    def test_pkg_config_in_c99(self):
        program = self.compile("cc -std=c99 -Wall -Wextra -pedantic -Werror", PROJECT / "consumer.c", "c99", self.run_path())
        self.assertIn(CHUNKS, run(program, TWO))

    def test_pkg_config_in_cxx17(self):
        program = self.compile("c++ -std=c++17 -Wall -Wextra -pedantic -Werror", PROJECT / "consumer.cpp", "cxx17",
                               self.run_path())
        self.assertEqual(run(program, TWO), "key frame at 1640 ms\n")

    def test_pkg_config_static(self):
        program = self.compile("cc -std=c99", PROJECT / "consumer.c", "static", static=True)
        self.assertIn(CHUNKS, run(program, TWO))
        self.assertNotIn("liblx", run("readelf", "-d", program))

    def test_the_installed_examples_compile(self):
        for source in (self.prefix / "share/doc/lxAviRead/examples").glob("*.c"):
            program = self.compile("cc -std=c99", source, source.stem, self.run_path())
            self.assertEqual(subprocess.run([program], capture_output=True, check=False).returncode, 2)

    def test_cmake_package(self):
        build = self.folder / "build"
        run("cmake", "-S", PROJECT, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        for name in ("consumer_c", "consumer_static"):
            self.assertIn(CHUNKS, run(build / name, TWO))
        self.assertEqual(run(build / "consumer_cxx", TWO), "key frame at 1640 ms\n")
        self.assertNotIn("lxAviRead", run("readelf", "-d", build / "consumer_static"))

    def test_cmake_package_of_another_version_is_refused(self):
        result = subprocess.run(["cmake", "-S", PROJECT, "-B", self.folder / "other", "-G", "Ninja", "-DWANTED_VERSION=9.9",
                                 f"-DCMAKE_PREFIX_PATH={self.prefix}"], capture_output=True, text=True, check=False)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("9.9", result.stderr)

    def test_the_tool_runs_where_the_tree_lies(self):
        self.assertRegex(run(self.prefix / "bin/lxavi", "--version"), r"^lxavi \d+\.\d+\.\d+\n$")
        libraries = run("ldd", self.prefix / "bin/lxavi")
        for name in ("lxAviRead", "lxDbg", "lxArith"):
            self.assertRegex(libraries, rf"lib{name}\.so\.\d+ => .*{self.prefix}")

    def test_the_tool_brings_its_manual_and_completions(self):
        pages = {self.prefix / "share/man/man1/lxavi.1": "lxavi", self.prefix / "share/man/man3/lxaviread.3": "lxaviread"}
        for page, name in pages.items():
            self.assertIn(f"\n{name} \\- ", page.read_text())
        completion = self.prefix / "share/bash-completion/completions/lxavi"
        script = (f"source '{completion}'; COMP_WORDS=(lxavi chunks --au); COMP_CWORD=2; compopt() {{ :; }}; _lxavi; "
                  "echo ${COMPREPLY[@]}; COMP_WORDS=(lxavi ex); COMP_CWORD=1; _lxavi; echo ${COMPREPLY[@]}")
        self.assertEqual(run("bash", "-c", script), "--audio\nextract\n")
        (self.prefix / "a film.avi").touch()
        script = (f"source '{completion}'; cd '{self.prefix}'; compopt() {{ :; }}; COMP_CWORD=2; "
                  "for COMP_WORDS in 'lxavi info a\\ f' 'lxavi info --rebuild=al' 'lxavi repair -'; do eval \"COMP_WORDS=($COMP_WORDS)\"; "
                  "_lxavi; printf '%s|' \"${COMPREPLY[@]}\"; echo; done; COMP_WORDS=(lxavi info --log se); COMP_CWORD=3; _lxavi; echo ${COMPREPLY[@]}; "
                  "COMP_WORDS=(lxavi info --rebuild = al); COMP_CWORD=4; _lxavi; echo ${COMPREPLY[@]}; "
                  "COMP_WORDS=(lxavi seek --round =); COMP_CWORD=3; _lxavi; echo ${COMPREPLY[@]}; "
                  "COMP_WORDS=(lxavi extract --out b); COMP_CWORD=3; _lxavi; echo ${COMPREPLY[@]}")
        file, rebuild, repair, log, value, rounding, folder = run("bash", "-c", script).splitlines()
        self.assertEqual((file, rebuild, log), ("a film.avi|", "--rebuild=always|", "seek"))
        self.assertEqual((value, rounding, folder), ("always", "down nearest up", "bin"))
        self.assertLessEqual({"-o", "--output", "--in-place", "-h"}, set(repair.split("|")))
        (self.prefix / "a film.avi").unlink()
        if shutil.which("zsh"):
            run("zsh", "-n", self.prefix / "share/zsh/site-functions/_lxavi")
        self.assertIn("'chunks:List the delivered chunks'", (self.prefix / "share/zsh/site-functions/_lxavi").read_text())

    def test_nothing_names_another_place(self):
        for path in self.prefix.rglob("*"):
            if path.suffix in (".pc", ".cmake", ".h"):
                text = path.read_text()
                for place in (self.first, "/usr/local", HERE.parents[1]):
                    self.assertNotIn(str(place), text, path.name)

    def test_the_libraries_have_versions(self):
        for name in ("lxAviRead", "lxDbg", "lxArith"):
            link = self.prefix / f"lib/lib{name}.so"
            soname = link.readlink()
            self.assertRegex(str(soname), rf"^lib{name}\.so\.\d+$")
            self.assertIn(f"[{soname}]", run("readelf", "-d", link))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
