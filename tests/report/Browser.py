"""Chromium, driven through its own debugging pipe, with nothing but Python's library."""

import itertools
import json
import os
import subprocess
import tempfile


class Browser:
    """One page of a browser without a window. Errors of the page's console are kept in `errors`."""

    def __init__(self, program, width=1100, height=900):
        self.profile = tempfile.TemporaryDirectory()
        commands, self.commands = os.pipe()
        self.answers, answers = os.pipe()

        def hand_over():  # the browser reads commands from 3 and answers to 4
            read, write = os.dup(commands), os.dup(answers)
            os.dup2(read, 3)
            os.dup2(write, 4)

        self.process = subprocess.Popen(
            [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--remote-debugging-pipe", "--no-first-run", "--mute-audio",
             f"--user-data-dir={self.profile.name}", f"--window-size={width},{height}"],
            preexec_fn=hand_over, close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.rest = b""
        self.numbers = itertools.count(1)
        self.errors = []
        self.session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def message(self):
        while b"\0" not in self.rest:
            more = os.read(self.answers, 1 << 20)
            if not more:
                raise RuntimeError("the browser has ended")
            self.rest += more
        line, self.rest = self.rest.split(b"\0", 1)
        return json.loads(line)

    def note(self, event):
        kind, what = event.get("method"), event.get("params", {})
        if kind == "Runtime.exceptionThrown":
            self.errors.append(what["exceptionDetails"].get("exception", {}).get("description", str(what)))
        elif kind == "Log.entryAdded" and what["entry"]["level"] == "error":
            self.errors.append(what["entry"]["text"])
        elif kind == "Runtime.consoleAPICalled" and what["type"] in ("error", "assert"):
            self.errors.append(str(what["args"]))
        elif kind == "Network.requestWillBeSent" and not what["request"]["url"].startswith(("file:", "data:")):
            self.errors.append("asks the network: " + what["request"]["url"])

    def call(self, method, **params):
        number = next(self.numbers)
        call = {"id": number, "method": method, "params": params}
        if self.session:
            call["sessionId"] = self.session
        os.write(self.commands, json.dumps(call).encode() + b"\0")
        while True:
            answer = self.message()
            if answer.get("id") == number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.note(answer)

    def run(self, script):
        """The value of an expression in the page; a promise's is waited for."""
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True,
                           userGesture=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"].get("description", script))
        return result["result"].get("value")

    def key(self, key, code="", shift=False):
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=code, modifiers=8 if shift else 0)

    def click(self, selector, x=0.5):
        """A click of the mouse at a share of an element's width."""
        box = self.run(f"""(() => {{ const one = document.querySelector({json.dumps(selector)});
            one.scrollIntoView({{block: "center"}});
            const box = one.getBoundingClientRect(); return [box.left, box.top, box.width, box.height]; }})()""")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=box[0] + x * box[2], y=box[1] + box[3] / 2,
                      button="left", clickCount=1)

    def close(self):
        try:
            self.session = None
            self.call("Browser.close")
        except (RuntimeError, OSError):
            self.process.kill()
        self.process.wait(10)
        os.close(self.commands)
        os.close(self.answers)
        try:
            self.profile.cleanup()
        except OSError:  # a helper of the browser's is still writing
            pass
