#!/usr/bin/env python3
"""Makes the help files from Markdown: make_help.py FOLDER writes Quillmarch_eng.chm and Quillmarch_ger.chm there.

The configuration's pages are docs/configuration.md in English and configuration-ger.md in German, a page for each
section; the others are eng.md and ger.md. Needs chmcmd. Only the Markdown that these files use is understood.
"""
import html
import os
import re
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
LANGUAGES = {
    "eng": ("0x409 English (United States)", os.path.join(HERE, "..", "..", "docs", "configuration.md")),
    "ger": ("0x407 German (Germany)", os.path.join(HERE, "configuration-ger.md")),
}
# File names of the configuration's sections, in the order of its headings.
CONFIGURATION_PAGES = ("configuration", "configuration-change", "configuration-file", "configuration-settings",
                       "configuration-comports", "configuration-balloontips", "configuration-actions")
# What only those can run who have the source; the configuration's page comes with the packages too.
LEFT_OUT = ("Findings of a check",)
STYLE = ("body{font:10pt Segoe UI,Tahoma,sans-serif;margin:1em}table{border-collapse:collapse}"
         "td,th{border:1px solid #bbb;padding:3px 6px;text-align:left;vertical-align:top}"
         "code,pre{font-family:Consolas,Courier New,monospace}pre{background:#eee;padding:6px}")
CODE = re.compile(r"`([^`]*)`")


def ascii_html(text):
    """Entities for what is not ASCII: the viewer guesses code pages."""
    return html.escape(text, quote=False).encode("ascii", "xmlcharrefreplace").decode()


def inline(text):
    spans = []

    def keep(match):
        spans.append("<code>" + ascii_html(match.group(1)) + "</code>")
        return f"\0{len(spans) - 1}\0"

    text = ascii_html(CODE.sub(keep, text))
    text = re.sub(r"\*\*(.+?)\*\*", r"<b>\1</b>", text)
    text = re.sub(r"\[((?:\[[^\]]*\]|[^\[\]])+)\]\(([\w-]+\.html)\)", r'<a href="\2">\1</a>', text)
    # A document that comes with the source alone.
    text = re.sub(r"\[([^\[\]]+)\]\((?:[\w./#-]+\.md[\w#-]*|#[\w-]+)\)", r"\1", text)
    return re.sub("\0(\\d+)\0", lambda match: spans[int(match.group(1))], text)


class Page:
    def __init__(self, name, title):
        self.name, self.title, self.lines, self.keys = name, title, [], []


def split_pages(path, names=None):
    """A page for each heading of the first level, or, with names, for each one of the first two."""
    pages, fenced, skipped = [], False, False
    for line in open(path, encoding="utf-8").read().split("\n"):
        heading = None if fenced else re.fullmatch(r"(#{1,2}) (.*?)(?: \{([\w-]+)\})?", line)
        fenced ^= line.startswith("```")
        skipped = heading.group(2) in LEFT_OUT if heading else skipped
        if skipped:
            continue
        if heading and (names or len(heading.group(1)) == 1):
            if names and len(pages) == len(names):
                sys.exit(f"make_help: {path}: no file name for the page '{heading.group(2)}'")
            pages.append(Page(names[len(pages)] if names else heading.group(3), heading.group(2)))
        elif pages:
            pages[-1].lines.append(line)
    return pages


def table(page, rows):
    """Codes in the first column that are keys become targets and go into the index."""
    out = ["<table>"]
    for number, row in enumerate(rows):
        if number == 1:
            continue
        tag = "th" if number == 0 else "td"
        cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", row.strip()[1:-1])]
        anchors = ""
        if page.title.startswith("[") and number:
            for key in re.findall(r"`([A-Za-z]\w*)`", cells[0]):
                page.keys.append(key)
                anchors += f'<a id="{key}" name="{key}"></a>'
        out.append("<tr>" + "".join(f"<{tag}>{anchors if not at else ''}{inline(cell)}</{tag}>"
                                    for at, cell in enumerate(cells)) + "</tr>")
    return out + ["</table>"]


def render(page):
    out, at, lines = [], 0, page.lines
    while at < len(lines):
        line = lines[at]
        start = at
        at += 1
        if line.startswith("```"):
            while not lines[at].startswith("```"):
                at += 1
            out.append("<pre>" + "\n".join(map(ascii_html, lines[start + 1:at])) + "</pre>")
            at += 1
        elif line.startswith("|"):
            while at < len(lines) and lines[at].startswith("|"):
                at += 1
            out += table(page, lines[start:at])
        elif re.match(r"###? ", line):
            out.append(f"<h2>{inline(line.lstrip('#').strip())}</h2>")
        elif re.match(r"- |\d+\. ", line):
            kind = "ul" if line.startswith("-") else "ol"
            while at < len(lines) and re.match(r"- |\d+\. ", lines[at]):
                at += 1
            items = [inline(re.sub(r"^(- |\d+\. )", "", item)) for item in lines[start:at]]
            out.append(f"<{kind}>" + "".join(f"<li>{item}</li>" for item in items) + f"</{kind}>")
        elif line.strip():
            out.append(f"<p>{inline(line)}</p>")
    title = ascii_html(page.title)
    return (f'<html><head><meta http-equiv="Content-Type" content="text/html; charset=us-ascii"><title>{title}</title>'
            f"<style>{STYLE}</style></head><body><h1>{title}</h1>\n" + "\n".join(out) + "\n</body></html>\n")


def list_object(name, local):
    return (f'<li><object type="text/sitemap"><param name="Name" value="{ascii_html(name)}">'
            f'<param name="Local" value="{local}"></object>\n')


def write(path, text):
    with open(path, "w", encoding="ascii", newline="\r\n") as handle:
        handle.write(text)


def make(language, out):
    code, configuration = LANGUAGES[language]
    work = os.path.join(out, "help-" + language)
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    pages = split_pages(os.path.join(HERE, language + ".md"))
    pages[3:3] = split_pages(configuration, CONFIGURATION_PAGES)
    for page in pages:
        write(os.path.join(work, page.name + ".html"), render(page))
    head = "<html><body>\n<ul>\n"
    contents = index = ""
    previous = ""
    for page in pages:
        inner = page.name.startswith("configuration-")
        contents += "<ul>\n" * (inner and not previous.startswith("configuration-"))
        contents += "</ul>\n" * (not inner and previous.startswith("configuration-"))
        contents += list_object(page.title, page.name + ".html")
        previous = page.name
    for key, name in sorted({(key, page.name) for page in pages for key in page.keys}, key=lambda item: item[0].lower()):
        index += list_object(key, f"{name}.html#{key}")
    write(os.path.join(work, "contents.hhc"), head + contents + "</ul>\n</body></html>\n")
    write(os.path.join(work, "index.hhk"), head + index + "</ul>\n</body></html>\n")
    name = f"Quillmarch_{language}.chm"
    write(os.path.join(work, "help.hhp"),
          f"[OPTIONS]\nCompatibility=1.1 or later\nCompiled file={name}\nContents file=contents.hhc\nIndex file=index.hhk\n"
          f"Default topic=overview.html\nFull-text search=Yes\nLanguage={code}\nTitle=Quillmarch\n\n[FILES]\n"
          + "".join(page.name + ".html\n" for page in pages))
    done = subprocess.run(["chmcmd", "--no-html-scan", "help.hhp"], cwd=work, capture_output=True, text=True)
    if done.returncode or not os.path.exists(os.path.join(work, name)):
        sys.exit("make_help: chmcmd has failed:\n" + done.stdout + done.stderr)
    shutil.move(os.path.join(work, name), os.path.join(out, name))
    shutil.rmtree(work)


if __name__ == "__main__":
    for each in LANGUAGES:
        make(each, sys.argv[1])
