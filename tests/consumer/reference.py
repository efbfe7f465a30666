#!/usr/bin/env python3
"""Opens the reference in a browser without a display: every link leads somewhere, and the search finds functions offline.
Usage: reference.py FOLDER_OF_THE_PAGES"""

import html.parser
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

PAGES = pathlib.Path(sys.argv[1]).resolve()


class Links(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.targets, self.anchors = [], set()
        self.feed(path.read_text())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("id", "name") and value:
                self.anchors.add(value)
            if name in ("href", "src") and value and not value.startswith(("http:", "https:", "mailto:", "javascript:", "data:")):
                self.targets.append(value)


class Reference(unittest.TestCase):
    def test_every_link_leads_somewhere(self):
        pages = {path.name: Links(path) for path in PAGES.glob("*.html")}
        self.assertGreater(len(pages), 10)
        checked = 0
        for name, page in pages.items():
            for target in page.targets:
                path, _, anchor = urllib.parse.unquote(target).partition("#")
                path = path or name
                self.assertTrue((PAGES / path).exists(), f"{name}: {target}")
                if anchor and path in pages:
                    self.assertIn(anchor, pages[path].anchors, f"{name}: {target}")
                checked += 1
        self.assertGreater(checked, 500)

    @unittest.skipUnless(shutil.which("chromium"), "chromium is not installed")
    def test_the_browser_shows_the_guide_and_the_search_finds_functions(self):
        script = ("<script>window.onload=function(){document.title='found '+(typeof searchData!=='undefined'?"
                  "JSON.stringify(searchData).match(/lxAviReadCore_SeekToTime/g).length:0);};</script>")
        index = next(path for path in (PAGES / "search").glob("*.js") if "SeekToTime" in path.read_text())
        with tempfile.TemporaryDirectory() as folder:
            page = PAGES / "search_test.html"
            page.write_text(f"<html><head><script src='search/{index.name}'></script>{script}</head><body></body></html>")
            try:
                for url, wanted in ((PAGES / "index.html", "The life of a session"), (page, "<title>found [1-9]")):
                    shown = subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu", f"--user-data-dir={folder}",
                                            "--virtual-time-budget=5000", "--dump-dom", f"file://{url}"], capture_output=True,
                                           text=True, timeout=60, check=False).stdout
                    self.assertIsNotNone(re.search(wanted, shown), f"{url}: {shown[:300]}")
            finally:
                page.unlink()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
