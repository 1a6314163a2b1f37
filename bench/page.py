#!/usr/bin/env python3
"""The page of a rehearsal on a big machine: how long it takes to write, and to open in a browser without a screen.

page.py TOOL [PORTS]: a machine with that many ports (1000), which all get another number. Prints lines as the other benchmarks do.
"""
import json
import os
import select
import shutil
import subprocess
import sys
import tempfile
import time

BROWSERS = ("chromium", "chromium-browser", "google-chrome", "chrome")
ON_A_HUB = 20
MOST_OPEN_S = 2.0
OPENINGS = 5
LIMIT_S = 120  # for one answer of the browser
CONTROLLER, ROOT_HUB = r"PCI\VEN_8086&DEV_9D2F\3&11583659&0&A0", r"USB\ROOT_HUB30\4&1b2c3d4e&0"
# Resolves when the loaded page has been drawn: the second frame begins after the first one is painted. The answer to a
# navigation comes when the new document is there, so this never meets the one before it.
DRAWN = """new Promise((done) => {
  const drawn = () => requestAnimationFrame(() => requestAnimationFrame(() => done([location.href, performance.now()])));
  if (document.readyState === "complete") drawn(); else addEventListener("load", drawn);
})"""


def device(identity, parent=None, **keys):
    values = {"id": identity, **({"parent": parent} if parent else {}), **keys}
    return "[[device]]\n" + "".join(f"{key} = {value if isinstance(value, int) else repr(value)}\n".replace("\\\\", "\\")
                                    for key, value in values.items())


def describe(folder, ports):
    """A machine with hubs of twenty adapters, a rule for each hub that wants twenty other numbers."""
    machine = [f'title = "{ports} ports move"\n[quillmarch]\nini = "big.ini"\n[windows]\nversion = "10.0.19045"\n',
               device(CONTROLLER), device(ROOT_HUB, CONTROLLER, ports=ports // ON_A_HUB + 1)]
    rules = ["[Settings]\nWriteLogfile=0\n"]
    for port in range(ports):
        hub, socket = port // ON_A_HUB + 1, port % ON_A_HUB + 1
        hub_id = rf"USB\VID_05E3&PID_0610\H{hub:02}"
        if socket == 1:
            machine.append(device(hub_id, ROOT_HUB, hub_port=hub, ports=ON_A_HUB))
            numbers = ",".join(f"COM{2001 + port + i}" for i in range(ON_A_HUB))
            rules.append(f"[ComPorts{hub}]\nDeviceID=*&PID_EA60\\P{hub:02}*\nPortNames={numbers}\n")
        machine.append(device(rf"USB\VID_10C4&PID_EA60\P{hub:02}{socket:02}", hub_id, hub_port=socket,
                              port_name=f"COM{port + 1}"))
    for name, parts in (("big.toml", machine), ("big.ini", rules)):
        with open(os.path.join(folder, name), "w", encoding="ascii", newline="") as file:
            file.write("".join(parts))
    return os.path.join(folder, "big.toml")


class Browser:
    """Chromium by its own pipes: commands on descriptor 3, answers on 4, each ended by a zero byte."""

    def __init__(self, program, folder):
        command_read, self.commands = os.pipe()
        self.answers, answer_write = os.pipe()
        # A descriptor that is 3 or 4 already would be overwritten by the other one.
        script = 'exec "$@" 3<&"$IN" 4>&"$OUT"'
        self.process = subprocess.Popen(
            ["bash", "-c", script, "bash", program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
             "--remote-debugging-pipe", "--window-size=1280,900", f"--user-data-dir={folder}", "about:blank"],
            env={**os.environ, "IN": str(command_read), "OUT": str(answer_write)},
            pass_fds=(command_read, answer_write), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(command_read)
        os.close(answer_write)
        self.buffer, self.number = b"", 0

    def message(self):
        while b"\0" not in self.buffer:
            if not select.select([self.answers], [], [], LIMIT_S)[0]:
                raise RuntimeError("the browser does not answer")
            part = os.read(self.answers, 1 << 20)
            if not part:
                raise RuntimeError("the browser has ended")
            self.buffer += part
        text, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(text)

    def ask(self, method, session=None, **parameters):
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters}
        if session:
            request["sessionId"] = session
        os.write(self.commands, json.dumps(request).encode() + b"\0")
        while True:
            message = self.message()
            if message.get("id") == self.number:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']['message']}")
                return message["result"]

    def open(self, file):
        """Seconds from the start of the navigation until the loaded page was drawn, in a new tab."""
        target = self.ask("Target.createTarget", url="about:blank")["targetId"]
        session = self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.ask("Page.navigate", session, url="file://" + file)
        answer = self.ask("Runtime.evaluate", session, expression=DRAWN, awaitPromise=True, returnByValue=True)
        place, drawn = answer["result"]["value"]
        if place != "file://" + file:
            raise RuntimeError(f"the browser shows {place}")
        self.ask("Target.closeTarget", targetId=target)
        return drawn / 1000

    def close(self):
        self.process.terminate()
        self.process.wait()


def line(name, value, mark=None):
    verdict = "noted" if mark is None else "met" if value <= mark else "missed"
    print(f"{name:66} {value:10.3f}  {'-' if mark is None else f'at most {mark:.4g}':14} {verdict}")


def main():
    tool, ports = sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    with tempfile.TemporaryDirectory() as folder:
        machine, page = describe(folder, ports), os.path.join(folder, "page.html")
        start = time.monotonic()
        subprocess.run([tool, "--quiet", "--html", page, machine], check=True)
        line(f"seconds to rehearse {ports} ports that move, and to write the page", time.monotonic() - start)
        line("megabytes of that page", os.path.getsize(page) / 1e6)
        program = next(filter(None, map(shutil.which, BROWSERS)), None)
        if not program:
            print("the opening of the page is not measured: no Chromium is installed")
            return 0
        browser = Browser(program, os.path.join(folder, "profile"))
        try:
            line("seconds to open it, the fastest of five", min(browser.open(page) for _ in range(OPENINGS)), MOST_OPEN_S)
        finally:
            browser.close()
    return 0


sys.exit(main())
