#!/usr/bin/env python3
"""Random balloons under seeded schedules: children, clicks, mice, bars that move, tool tips, pipe messages, failing calls.

balloon-storm.py TOOL SEEDS [FIRST]: each seed makes a description and runs it. Nothing may hang, crash or wait forever,
each balloon goes, none stays longer than the waits allow, and each appears on the screen.
"""
import json
import random
import subprocess
import sys
import tempfile

PROGRAM = r'"C:\Program Files\Quillmarch\Quillmarch.exe"'
LONGEST_MS = 60_000
FAULTS = [("SetTimer", 8), ("GetDC", 8), ("CreateCompatibleDC", 8), ("CreateCompatibleBitmap", 8),
          ("UpdateLayeredWindow", 8), ("CreateWindowExA", 8), ("CreateNamedPipeA", 231), ("CreateThread", 8),
          ("CreateRoundRectRgn", 8), ("LoadImageA", 1814), ("SystemParametersInfoA", 87), ("CreateFontIndirectA", 8),
          ("PeekNamedPipe", 109), ("GetWindowRect", 1400), ("RegisterClassA", 8), ("PostMessageA", 1816)]


def table(name, **keys):
    lines = [f"{key} = {value}" for key, value in keys.items()]
    return f"[[{name}]]\n" + "\n".join(lines) + "\n"


def event(draw, user, number):
    """A random thing that happens outside, as keys of an event."""
    at = draw.choice([0, 10, 300, 410, 500, 910, 1000, 2000, draw.randrange(60_000)]) + draw.choice([0, 0, 5000, 20_000])
    keys = {"at": f'"{at}ms"'}
    session = 1 if user == "anna" else 2
    place = f"x = {draw.randrange(1920)}, y = {draw.randrange(1080)}"
    kind = draw.randrange(8)
    if kind < 2:
        title = draw.choice(["USB Serial Port", "", "t" * 119, "a !! b"])
        text = draw.choice(["COM7", "COM5 !! FTDI", "", "x" * 200, "__pad__"])
        time = draw.choice([0, 1, 500, 3000, 9000, 20_000, 2**31 - 1, -5])
        line = f'{PROGRAM} -balloon -time={time} -title="{title}" -text="{text}" -charset={draw.choice([1, 177])}'
        keys |= {"run": f"'{line}'", "user": rf"'LAB\{user}'"}
    elif kind == 2:
        keys["click"] = draw.choice(['"balloon"', f'{{ on = "balloon", button = "right", session = {session} }}',
                                     f"{{ {place}, session = {session} }}"])
    elif kind == 3:
        keys["mouse"] = draw.choice(['{ on = "balloon" }', f'{{ on = "balloon", x = {draw.randrange(200)}, y = 10 }}'])
    elif kind == 4:
        edge = draw.choice(["top", "bottom", "left", "right"])
        keys["move_taskbar"] = draw.choice([f'{{ edge = "{edge}", size = {draw.randrange(120)} }}', "{ gone = true }",
                                            '{ rect = [32000, 0, 32060, 40] }', f'{{ edge = "{edge}", hidden = true }}'])
    elif kind == 5:
        keys["tooltip"] = f'{{ name = "tip{number % 2}", x = {draw.choice([1600, 1500])}, y = {draw.choice([960, 990])}, ' \
                          f'width = {draw.choice([100, 200, 220])}, session = {session}, ' \
                          f'gone = {draw.choice(["true", "false"])} }}'
    elif kind == 6:
        keys["window"] = f'{{ name = "game", style = 0x94000000, session = {session}, gone = true }}'
    else:
        keys["pipe"] = draw.choice([
            f'{{ user = \'LAB\\{user}\', title = "n{number}", text1 = "u{number}", time = {draw.choice([0, 4000, -1])} }}',
            f"{{ user = 'LAB\\{user}', silent = \"{draw.choice([1, 900, 3000])}ms\" }}",
            f'{{ user = \'LAB\\{user}\', raw = "exit\\u0000" }}',
            f'{{ user = \'LAB\\{user}\', size = {draw.randrange(1400)}, clients = 3 }}'])
    return table("event", **keys)


def description(seed):
    draw = random.Random(seed)
    version = draw.choice(["10.0.19045", "10.0.22631", "6.1.7601", "5.1", "5.0"])
    text = f'[windows]\nversion = "{version}"\ndpi = {draw.choice([96, 144, 192])}\n' \
           f'tooltip_fade = {draw.choice(["true", "false"])}\n'
    suppress = draw.choice(["", "[BalloonTips]\nSuppressWindowsBalloons=1\n"])
    text += f'[quillmarch]\nrole = "user"\naccount = \'LAB\\anna\'\ncommand_line = "-balloon -time=4000"\n' \
            f'ini_text = """\n{suppress}"""\n'
    text += "".join(table("session", id=number, user=rf"'LAB\{user}'") for number, user in ((1, "anna"), (2, "ben")))
    text += "".join(event(draw, draw.choice(["anna", "anna", "ben"]), number) for number in range(draw.randrange(4, 40)))
    for _ in range(draw.choice([0, 0, 1, 3])):
        call, error = draw.choice(FAULTS)
        text += table("fault", call=f'"{call}"', error=error, after=draw.randrange(12), times=draw.choice([1, 5]))
    return text


def judge(report):
    for balloon in report["balloons"]:
        if balloon["until_ms"] is None or balloon["until_ms"] - balloon["at_ms"] > LONGEST_MS:
            yield f"a balloon stays from {balloon['at_ms']} ms to {balloon['until_ms']}"
        if balloon["x"] < 0 or balloon["y"] < 0 or balloon["x"] >= 1920 or balloon["y"] >= 1080:
            yield f"a balloon stands at {balloon['x']}, {balloon['y']}"
    for process in report["processes"]:
        if process["image"].endswith("Quillmarch.exe") and process["exit_code"] != 0:
            yield f"a child has the exit code {process['exit_code']}"


def main():
    first = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    failed = shown = 0
    with tempfile.TemporaryDirectory() as folder:
        name, report = folder + "/storm.toml", folder + "/report.json"
        for seed in range(first, first + int(sys.argv[2])):
            with open(name, "w") as file:
                file.write(description(seed))
            run = subprocess.run([sys.argv[1], "--quiet", "--seed", str(seed), "--json", report, name],
                                 capture_output=True, text=True)
            wrong = [run.stderr.strip().split("\n")[-1]] if run.returncode else []
            if not run.returncode:
                with open(report) as file:
                    facts = json.load(file)
                wrong += judge(facts)
                shown += len(facts["balloons"])
            for line in wrong:
                failed = 1
                print(f"seed {seed}: {line}")
    if not shown:
        print("no balloon was shown at all")
    return failed or not shown


sys.exit(main())
