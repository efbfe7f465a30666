#!/usr/bin/env python3
"""Builds the Debian packages twice, in different folders and at different times, and looks at what came out: they are equal,
hardened, free of findings, and install, link and run in a bare Debian. It takes minutes, so `./check release` runs it."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
VERSION = ".".join(re.findall(r"#define LX_AVIREAD_VERSION_\w+ (\d+)", (ROOT / "include/lxAviRead.h").read_text()))


def run(*command, **options):
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{result.stdout[-3000:]}{result.stderr[-3000:]}")
    return result.stdout


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="lxavi-packages-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.first = cls.build("first", {})
        cls.second = cls.build("another-place/below", {"TZ": "Asia/Tokyo", "LC_ALL": "C"})

    @classmethod
    def build(cls, name, environment):
        """Builds the committed tree, and returns the folder of the packages."""
        tree = cls.folder / name / f"lxaviread-{VERSION}"
        tree.mkdir(parents=True)
        archive = cls.folder / "tree.tar"
        run("git", "-C", ROOT, "archive", "-o", archive, "HEAD")
        run("tar", "xf", archive, "-C", tree)
        run("dpkg-buildpackage", "-us", "-uc", cwd=tree, env={**os.environ, **environment})
        return tree.parent

    def packages(self, pattern="*.deb"):
        return sorted(self.first.glob(pattern))

    def test_the_same_source_gives_the_same_packages(self):
        self.assertEqual(len(self.packages()), 8)
        for package in self.packages():
            run("cmp", package, self.second / package.name)

    def test_lintian_has_no_finding(self):
        report = run("lintian", "--no-cfg", "-EI", next(self.first.glob("*_amd64.changes")))
        self.assertEqual([line for line in report.splitlines() if re.match(r"[EWI]: ", line)], [])

    def test_everything_is_hardened(self):
        for package in (self.packages("gstreamer1.0-lxavi_*.deb") + self.packages("liblxaviread0_*.deb") +
                        self.packages("lxavi_*.deb")):
            tree = self.folder / "tree" / package.stem
            tree.parent.mkdir(exist_ok=True)
            run("dpkg-deb", "-x", package, tree)
            for path in [*tree.rglob("*.so.*.*.*"), *tree.rglob("libgst*.so"), *tree.glob("usr/bin/*")]:
                text = run("hardening-check", "--nopie", "--nostackprotector", "--nofortify", "--nocfprotection", path)
                self.assertIn("Read-only relocations: yes", text)
                self.assertIn("Immediate binding: yes", text)
                if "lxArith" not in path.name:
                    self.assertRegex(run("hardening-check", "--nopie", "--nofortify", "--nocfprotection", path),
                                     "Stack protected: yes")
        self.assertIn("Independent Executable: yes", run("hardening-check", "--nocfprotection", path))

    @unittest.skipUnless(os.geteuid() == 0 and shutil.which("mmdebstrap"), "needs root and mmdebstrap")
    def test_a_bare_debian_installs_links_and_runs_them(self):
        root = self.folder / "debian"
        names = [path.name for path in self.packages() if "dbgsym" not in path.name]
        depends = ("gcc,libc6-dev,pkg-config,libfmt9,libspdlog1.10,libssl3,libstdc++6,zlib1g,"
                   "gstreamer1.0-tools,libgstreamer-plugins-base1.0-0")
        run("mmdebstrap", "--variant=minbase", f"--include={depends}", "bookworm", root)
        for path in [*(self.first / name for name in names), ROOT / "samples/two_audio.avi", ROOT / "examples/play.c"]:
            shutil.copy(path, root / "tmp")
        script = ("cd /tmp && dpkg -i " + " ".join(names) + " >/dev/null && cc play.c $(pkg-config --cflags --libs lxAviRead) "
                  "-o play && ./play two_audio.avi && lxavi info two_audio.avi && lxavi --version && "
                  "gst-launch-1.0 lxavisrc location=two_audio.avi name=s s.video_0 ! fakesink")
        output = run("chroot", root, "sh", "-ec", script)
        self.assertIn("319 chunks, 56918 bytes: The media data has ended.", output)
        self.assertIn(f"lxavi {VERSION}\n", output)
        self.assertIn('Got EOS from element "pipeline0".', output)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
