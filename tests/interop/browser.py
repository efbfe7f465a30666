"""A headless browser for tests, by the protocol of its driver. It needs nothing but Debian's chromium-driver."""

import base64
import json
import pathlib
import re
import shutil
import subprocess
import urllib.request


def is_installed():
    return shutil.which("chromedriver") is not None and shutil.which("chromium") is not None


class Browser:
    def __init__(self):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        port = next(found[1] for line in self.driver.stdout if (found := re.search(r"started successfully on port (\d+)", line)))
        self.base = f"http://127.0.0.1:{port}/session"
        options = {"args": ["--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1100,2400"]}
        wanted = {"browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        self.base += "/" + self.call("", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]

    def call(self, path, arguments=None, method=None):
        body = None if arguments is None else json.dumps(arguments).encode()
        request = urllib.request.Request(self.base + path, body, {"Content-Type": "application/json"}, method=method)
        with urllib.request.urlopen(request, timeout=60) as reply:
            return json.load(reply)["value"]

    def open(self, path):
        self.call("/url", {"url": pathlib.Path(path).resolve().as_uri()})

    def run(self, script):
        """The value that the script returns."""
        return self.call("/execute/sync", {"script": script, "args": []})

    def console(self):
        return [entry["message"] for entry in self.call("/se/log", {"type": "browser"})]

    def screenshot(self, path):
        path.write_bytes(base64.b64decode(self.call("/screenshot")))

    def prefer(self, scheme):
        """light or dark. The page hears of it when the browser draws its next frame, so this waits for one."""
        self.call("/goog/cdp/execute", {"cmd": "Emulation.setEmulatedMedia",
                                        "params": {"features": [{"name": "prefers-color-scheme", "value": scheme}]}})
        self.run("return new Promise(drawn => requestAnimationFrame(() => requestAnimationFrame(drawn)))")

    def printed(self):
        """The page as a PDF."""
        return base64.b64decode(self.call("/print", {"background": False}))

    def point(self, *steps):
        """Moves a mouse: each step is a place (x, y) of the window, "down" or "up"."""
        names = {"down": {"type": "pointerDown", "button": 0}, "up": {"type": "pointerUp", "button": 0}}
        moves = [names[step] if isinstance(step, str) else
                 {"type": "pointerMove", "duration": 50, "x": round(step[0]), "y": round(step[1])} for step in steps]
        mouse = {"type": "pointer", "id": "mouse", "parameters": {"pointerType": "mouse"}, "actions": moves}
        self.call("/actions", {"actions": [mouse]})

    def close(self):
        try:
            self.call("", method="DELETE")
        finally:
            self.driver.kill()
            self.driver.communicate()
