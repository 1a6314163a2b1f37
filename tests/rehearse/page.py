#!/usr/bin/env python3
"""The page that --html writes, judged as a browser and a screen reader take it apart.

page.py TOOL: the example with a title and a device's name that are markup, in both languages.
"""
import base64
import hashlib
import html.parser
import os
import re
import subprocess
import sys
import tempfile

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples")
TITLE, NAME = "<b>\"A\" & 'B'</b>", "<script>alert('x')</script>"
VOID = {"meta", "input", "br"}
failures = []


def check(what, holds):
    if not holds:
        failures.append(what)


class Page(html.parser.HTMLParser):
    """Elements as (tag, attributes, text, path of tags and attributes above)."""

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.all, self.open = [], []
        self.feed(text)
        check(f"everything is closed, not {[one[0] for one in self.open]}", not self.open)

    def handle_starttag(self, tag, attrs):
        names = [name for name, _ in attrs]
        check(f"{tag} has each attribute once: {names}", len(names) == len(set(names)))
        element = [tag, dict(attrs), "", list(self.open)]
        self.all.append(element)
        if tag not in VOID:
            self.open.append(element)

    def handle_startendtag(self, tag, attrs):
        self.handle_starttag(tag, attrs)
        if tag not in VOID:
            self.open.pop()

    def handle_endtag(self, tag):
        check(f"</{tag}> closes what was opened last", bool(self.open) and self.open[-1][0] == tag)
        if self.open:
            self.open.pop()

    def handle_data(self, data):
        for element in self.open:
            element[2] += data

    def of(self, tag, inside=None):
        return [e for e in self.all if e[0] == tag and (inside is None or any(up is inside for up in e[3]))]


def digest(text):
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"


def judge_safety(page):
    policy = next(e[1]["content"] for e in page.of("meta") if e[1].get("http-equiv") == "Content-Security-Policy")
    rules = dict(rule.strip().split(" ", 1) for rule in policy.split(";"))
    style, script = page.of("style"), page.of("script")
    check("one style and one script", (len(style), len(script)) == (1, 1))
    check("the policy admits nothing but these two", rules == {
        "default-src": "'none'", "base-uri": "'none'", "form-action": "'none'",
        "style-src": digest(style[0][2]), "script-src": digest(script[0][2])})
    ids = [e[1]["id"] for e in page.all if "id" in e[1]]
    check("ids are unique", len(ids) == len(set(ids)))
    for tag, attributes, _, _ in page.all:
        for name, value in attributes.items():
            check(f"{tag} {name}={value} is inert", not name.startswith("on") and name not in ("style", "src", "srcset", "data"))
            if name in ("href", "xlink:href"):
                check(f"{value} is a place of the page", value[:1] == "#" and value[1:] in ids)
            if name in ("aria-labelledby", "for"):
                check(f"{value} is there", value in ids)
    check("the title is text", [e[2] for e in page.of("h1")] == [TITLE])
    check("a device's name is text", any(NAME in e[2] for e in page.of("td")))


def judge_access(page):
    for table in page.of("table"):
        heads = [e for e in page.of("th", table) if e[1]["scope"] == "col"]
        check("a table has a caption and headings", len(page.of("caption", table)) == 1 and heads and all(e[2] for e in heads))
        for row in page.of("tr", page.of("tbody", table)[0]):
            cells = [e for e in page.all if e[0] in ("th", "td") and e[3] and e[3][-1] is row]
            check("a row begins with its heading and is whole", cells[0][0] == "th" and len(cells) == len(heads))
    for tag, attributes, text, above in page.all:
        hidden = any(up[1].get("aria-hidden") == "true" for up in above)
        if tag == "svg" and not any(up[0] == "svg" for up in above) and not hidden:
            check("a drawing has its text", attributes.get("aria-hidden") or
                  attributes.get("role") == "img" and len(attributes.get("aria-label", "")) > 8)
        if tag in ("button", "a", "summary", "h1", "h2", "h3"):
            check(f"{tag} has a name", text.strip())
        if attributes.get("role") == "region":
            check("a region has a name", attributes.get("aria-label") or attributes.get("aria-labelledby"))
    lanes = [e[1]["aria-label"] for e in page.of("svg") if e[1].get("class") == "lane"]
    bars = [(e[1]["class"], e[2]) for e in page.of("text") if "class" in e[1]]
    check(f"a bar too short for a name has its number until the name fits: {bars}", ("f2 u4", "3") in bars and ("f4", "COM3") in bars)
    check("lanes tell their story in words", any(re.search(r"10[.,]\d+ s COM3; .*COM20", lane) for lane in lanes))


def judge_log(page):
    """What --explain quotes must be the very line to which its event leads."""
    # A line end right after <pre> is no part of the text.
    log = next(e for e in page.of("div") if e[1].get("id") == "all")
    lines = "".join(e[2].removeprefix("\n") for e in page.of("pre", log)).split("\n")
    quotes = 0
    for _, attributes, text, _ in page.of("a"):
        said = re.search(r"(?:says|sagt)(?: of \S+| zu \S+)?: (.*)", text)
        if said:
            quotes += 1
            line = lines[int(attributes["data-l"])]
            check(f"'{said.group(1)}' leads to its line, not '{line}'", said.group(1) in line)
    check("there are quotes", quotes > 5)


def judge_german(page):
    """What is English there must say so, or a screen reader would read it as German."""
    for event in page.of("a") + page.of("td"):
        own = event[2]
        for quoted in [e for e in page.all if e[0] in ("span", "code") and any(up is event for up in e[3])]:
            own = own.replace(quoted[2], "")
        check(f"'{own}' is German", not re.search(r"\b(the|is|has|its|no|for|says)\b", own))


def luminance(colour):
    parts = [int(colour[i:i + 2], 16) / 255 for i in (1, 3, 5)]
    return sum(w * (p / 12.92 if p <= 0.04045 else ((p + 0.055) / 1.055) ** 2.4)
               for w, p in zip((0.2126, 0.7152, 0.0722), parts))


def judge_contrast(style):
    for block in re.findall(r":root \{(.*?)\}", style, re.S):
        colours = dict(re.findall(r"--([\w-]+): (#\w{6})", block))
        for front in ("text", "muted", "accent", "good", "bad", "warn"):
            for back in ("page", "raised") + (("mark", "bar") if front == "text" else ()):
                high, low = sorted((luminance(colours[front]), luminance(colours[back])), reverse=True)
                check(f"{front} on {back} can be read", (high + 0.05) / (low + 0.05) >= 4.5)


def main():
    with tempfile.TemporaryDirectory() as folder:
        with open(os.path.join(EXAMPLES, "desk.toml"), encoding="utf-8") as file:
            machine = file.read()
        machine = re.sub(r'^title .*$', lambda _: f"title = '''{TITLE}'''", machine, flags=re.M)
        machine = machine.replace('"USB Serial Port (COM21)"', f'"{NAME}"')
        machine = re.sub(r'"(machines/desk/desk.reg|desk.ini)"', lambda m: f'"{os.path.abspath(EXAMPLES)}/{m.group(1)}"', machine)
        name = os.path.join(folder, "desk.toml")
        with open(name, "w", encoding="utf-8") as file:
            file.write(machine)

        def page(*options):
            command = [sys.argv[1], "--explain", "--html", "-", *options, name]
            return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode()

        english, german = page(), page("--language", "de")
        check("the same input gives the same bytes", english == page())
        pages = [Page(english), Page(german)]
        for one in pages:
            judge_safety(one)
            judge_access(one)
            judge_log(one)
        judge_german(pages[1])
        judge_contrast(pages[0].of("style")[0][2])
        check("languages are said", [one.of("html")[0][1]["lang"] for one in pages] == ["en", "de"])
        words = [{e[2] for tag in ("h2", "h3", "caption", "th", "button", "dt") for e in one.of(tag) if e[2][:1].isalpha()}
                 for one in pages]
        shared = {word for word in words[0] & words[1] if not re.match(r"(COM|LPT)\d", word)}
        check(f"German words are German, not {shared}", shared <= {"Port", "Ports", "Text", "Windows"})
    for failure in sorted(set(failures)):
        print(failure)
    return 1 if failures else 0


sys.exit(main())
