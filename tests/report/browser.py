# SPDX-License-Identifier: GPL-2.0
"""A headless Chromium, by its devtools protocol over a pair of pipes."""
import base64
import json
import os
import pathlib
import select
import subprocess
import tempfile
import time

LIMIT = 120

OPTIONS = [
    "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
    "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--disable-extensions",
    "--hide-scrollbars", "--remote-debugging-pipe",
]


class Browser:
    """A browser with one page; use it in a with statement."""

    def __init__(self):
        self.profile = tempfile.TemporaryDirectory(
            ignore_cleanup_errors=True)
        self.number = 0
        self.rest = b""
        self.session = None
        # The loads that are done.
        self.loaded = set()
        # What the page has asked for, and what its console was told.
        self.requests = []
        self.complaints = []

    def __enter__(self):
        commands, self.commands = os.pipe()
        self.answers, answers = os.pipe()
        script = 'exec 3<&"$1" 4>&"$2"; shift 2; exec chromium "$@"'
        self.child = subprocess.Popen(
            ["bash", "-c", script, "bash", str(commands), str(answers),
             *OPTIONS, f"--user-data-dir={self.profile.name}", "about:blank"],
            pass_fds=(commands, answers), stdin=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.session = self.call(
            "Target.attachToTarget", targetId=self.first_page(),
            flatten=True)["sessionId"]
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(domain + ".enable")
        self.call("Page.setLifecycleEventsEnabled", enabled=True)
        return self

    def __exit__(self, *_):
        session, self.session = self.session, None
        try:
            if session:
                self.call("Browser.close")
            self.child.wait(10)
        except (OSError, RuntimeError, subprocess.TimeoutExpired):
            self.child.kill()
            self.child.wait()
        os.close(self.commands)
        os.close(self.answers)
        self.profile.cleanup()

    def message(self, end):
        """The next message of the browser."""
        while b"\0" not in self.rest:
            left = end - time.monotonic()
            ready, _, _ = select.select([self.answers], [], [], max(left, 0))
            if not ready:
                raise RuntimeError("the browser says nothing more")
            got = os.read(self.answers, 1 << 16)
            if not got:
                raise RuntimeError("the browser has ended")
            self.rest += got
        text, self.rest = self.rest.split(b"\0", 1)
        return json.loads(text)

    def note(self, event):
        """Keeps what a test will ask for."""
        what = event.get("params", {})
        kind = event.get("method")
        if kind == "Network.requestWillBeSent":
            self.requests.append(what["request"]["url"])
        elif kind == "Runtime.exceptionThrown":
            self.complaints.append(what["exceptionDetails"]["text"])
        elif kind == "Runtime.consoleAPICalled":
            self.complaints.append(str(what["args"]))
        elif kind == "Log.entryAdded":
            self.complaints.append(what["entry"]["text"])
        elif kind == "Page.lifecycleEvent" and what["name"] == "load":
            self.loaded.add(what["loaderId"])

    def call(self, method, **parameters):
        """Calls a method, and gives its result."""
        self.number += 1
        number = self.number
        request = {"id": number, "method": method, "params": parameters}
        if self.session:
            request["sessionId"] = self.session
        os.write(self.commands, json.dumps(request).encode() + b"\0")
        end = time.monotonic() + LIMIT
        while True:
            answer = self.message(end)
            if answer.get("id") == number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.note(answer)

    def first_page(self):
        """The page that is there from the start, or soon after it."""
        end = time.monotonic() + LIMIT
        while time.monotonic() < end:
            for one in self.call("Target.getTargets")["targetInfos"]:
                if one["type"] == "page":
                    return one["targetId"]
            time.sleep(0.1)
        raise RuntimeError("the browser has no page")

    def open(self, path):
        """Opens a file, and waits until it is shown. Seconds that it took."""
        self.requests.clear()
        self.complaints.clear()
        url = pathlib.Path(path).resolve().as_uri()
        start = time.monotonic()
        # It may be loaded before the answer to this has come.
        load = self.call("Page.navigate", url=url)["loaderId"]
        while load not in self.loaded:
            self.note(self.message(start + LIMIT))
        # Laid out and painted, not only read.
        self.call("Page.captureScreenshot", format="jpeg", quality=1)
        return time.monotonic() - start

    def ask(self, expression):
        """The value of an expression in the page."""
        result = self.call("Runtime.evaluate", expression=expression,
                           returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def look(self, width=1000, dark=False, scripts=True, media="",
             height=900):
        """How the next page is to be shown."""
        self.call("Emulation.setDeviceMetricsOverride", width=width,
                  height=height, deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setEmulatedMedia", media=media, features=[
            {"name": "prefers-color-scheme",
             "value": "dark" if dark else "light"}])
        self.call("Emulation.setScriptExecutionDisabled", value=not scripts)

    def press(self, key, code=0, text=""):
        """Presses a key and lets it go."""
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key,
                      windowsVirtualKeyCode=code,
                      **({"text": text} if text and kind == "keyDown"
                         else {}))

    def picture(self, path, first="body", last="body", margin=0):
        """The page as a picture, from one element of it to another."""
        top, bottom, width = self.ask(f"""[
            document.querySelector({first!r}).getBoundingClientRect().top
                + scrollY,
            document.querySelector({last!r}).getBoundingClientRect().bottom
                + scrollY,
            document.documentElement.clientWidth]""")
        data = self.call(
            "Page.captureScreenshot", format="png", captureBeyondViewport=True,
            clip={"x": 0, "y": max(top - margin, 0), "width": width,
                  "height": bottom - top + 2 * margin, "scale": 1})["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(data))

    def pages(self):
        """The page as it would be printed, as a PDF."""
        return base64.b64decode(self.call("Page.printToPDF")["data"])
