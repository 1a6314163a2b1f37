#!/usr/bin/env python3
"""The numbers of a balloon's layout on machines of every look and resolution, from what was drawn.

looks.py TOOL: runs a balloon of title "USB Serial Port" and text "COM7" on each machine of the table.
"""
import json
import subprocess
import sys
import tempfile

# Windows, dots per inch, theme; then the look, the window's width and height, the places of title and text, of the icon
# and its size, the corners' diameter; the close mark's distance from the right, its y and width (0: there is none). At
# 288 dots per inch the theme's line is higher than the probe takes for sound.
ROWS = [
    ("10.0.19045", 96, 'true', "win10", 187, 63, 36, 8, 36, 33, 12, 9, 16, 2, 22, 5, 16),
    ("10.0.19045", 120, 'true', "win10", 249, 81, 45, 11, 45, 44, 15, 13, 20, 2, 28, 7, 20),
    ("10.0.19045", 144, 'true', "win10", 295, 94, 54, 12, 54, 51, 18, 15, 24, 2, 33, 7, 24),
    ("10.0.19045", 192, 'true', "win10", 389, 125, 72, 16, 72, 68, 24, 20, 32, 2, 44, 10, 32),
    ("10.0.19045", 288, 'true', "win10", 576, 185, 108, 24, 108, 102, 36, 30, 48, 2, 66, 15, 48),
    ("6.1.7601", 96, 'true', "themed", 157, 52, 36, 6, 36, 26, 12, 7, 16, 7, 21, 5, 14),
    ("6.1.7601", 120, 'true', "themed", 204, 65, 45, 8, 45, 33, 15, 9, 20, 7, 27, 7, 18),
    ("6.1.7601", 144, 'true', "themed", 235, 76, 54, 9, 54, 39, 18, 11, 24, 7, 32, 7, 22),
    ("6.1.7601", 192, 'true', "themed", 314, 100, 72, 12, 72, 52, 24, 14, 32, 7, 42, 10, 29),
    ("6.1.7601", 288, 'true', "classic", 471, 163, 108, 24, 36, 93, 36, 21, 48, 13, 66, 15, 47),
    ("6.1.7601", 96, 'false', "classic", 157, 57, 36, 8, 12, 31, 12, 7, 16, 13, 22, 5, 15),
    ("6.1.7601", 120, 'false', "classic", 204, 72, 45, 11, 15, 40, 15, 9, 20, 13, 28, 7, 19),
    ("6.1.7601", 144, 'false', "classic", 235, 84, 54, 12, 18, 47, 18, 11, 24, 13, 33, 7, 23),
    ("6.1.7601", 192, 'false', "classic", 314, 110, 72, 16, 24, 62, 24, 14, 32, 13, 44, 10, 31),
    ("6.1.7601", 288, 'false', "classic", 471, 163, 108, 24, 36, 93, 36, 21, 48, 13, 66, 15, 47),
    ("10.0.22631", 96, 'true', "win10", 187, 63, 36, 8, 36, 33, 12, 9, 16, 7, 22, 5, 16),
    ("5.1", 96, 'true', "classic", 157, 57, 36, 8, 12, 31, 12, 7, 16, 13, 24, 5, 17),
    ("5.1", 96, '"broken"', "classic", 157, 57, 36, 8, 12, 31, 12, 7, 16, 13, 22, 5, 15),
    ("5.0", 96, 'true', "classic", 138, 57, 36, 8, 12, 31, 12, 7, 16, 13, 0, 0, 0),
]
NAMES = ("look", "width", "height", "title x", "title y", "text x", "text y", "icon x", "icon y", "icon size", "diameter",
         "close from right", "close y", "close width")

MACHINE = """
[windows]
version = "{}"
dpi = {}
theme = {}
[quillmarch]
role = "user"
account = 'LAB\\anna'
command_line = '-balloon -time=1000 -title="USB Serial Port" -text="COM7"'
[[session]]
user = 'LAB\\anna'
"""


def facts(balloon):
    drawn = balloon["drawn"]
    title, text = [item for item in drawn if "text" in item]
    icon = next(item for item in drawn if item.get("icon") in (102, 202))
    shape = next(item for item in drawn if item.get("shape") == "fill" or item.get("theme") == 3)
    close = next((item for item in drawn
                  if item.get("icon") == 311 or item.get("theme") == 5 or "control" in item),
                 {"from_right": 0, "y": 0, "width": 0})
    return (balloon["look"], balloon["width"], balloon["height"], title["x"], title["y"], text["x"], text["y"],
            icon["x"], icon["y"], icon["width"], shape["diameter"], close["from_right"], close["y"], close["width"])


def main():
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        for row in ROWS:
            name, report = folder + "/machine.toml", folder + "/report.json"
            with open(name, "w") as file:
                file.write(MACHINE.format(*row[:3]))
            subprocess.run([sys.argv[1], "--quiet", "--json", report, name], check=True)
            with open(report) as file:
                balloons = json.load(file)["balloons"]
            came = facts(balloons[0]) if len(balloons) == 1 else ()
            if came != row[3:]:
                failed = 1
                wrong = [f"{n} {c}, not {w}" for n, c, w in zip(NAMES, came, row[3:]) if c != w]
                print(f"Windows {row[0]}, {row[1]} dpi, theme {row[2]}: {', '.join(wrong) or 'no balloon'}")
    return failed


sys.exit(main())
