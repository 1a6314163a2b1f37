"""Checks the help files: help.py FOLDER. Extracts the topics of both, and fails on a dead link or target, a topic or key
that one language lacks, a key without an example, a table of contents or an index that leads nowhere.
"""
import html
import os
import re
import subprocess
import sys
import tempfile

REPOSITORY = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
failures = []


def fail_unless(condition, text):
    if not condition:
        failures.append(text)


def documented_keys():
    """The first column of every table below a heading in brackets."""
    keys, inside = set(), False
    for line in open(os.path.join(REPOSITORY, "docs", "configuration.md"), encoding="utf-8"):
        if line.startswith("## "):
            inside = line.startswith("## [")
        elif inside and line.startswith("| `"):
            keys.update(re.findall(r"`([A-Za-z]\w*)`", line.split("|")[1]))
    return keys


def read_help(path):
    """File name -> content of everything in it that has an extension."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["chmls", "extractall", path, folder], check=True, capture_output=True)
        return {name: open(os.path.join(folder, name), encoding="ascii").read()
                for name in os.listdir(folder) if re.search(r"\.(html|hhc|hhk)$", name)}


def check(language, folder, keys):
    files = read_help(os.path.join(folder, f"Quillmarch_{language}.chm"))
    topics = {name for name in files if name.endswith(".html")}
    targets = topics | {f"{name}#{at}" for name in topics for at in re.findall(r'<a id="([^"]*)"', files[name])}
    links = [(name, link) for name in files
             for link in re.findall(r'href="([^"]*)"|name="Local" value="([^"]*)"', files[name], re.I)]
    for name, link in links:
        link = "".join(link)
        fail_unless(link in targets, f"{language}: {name} links to {link}")
    listed = set(re.findall(r'name="Local" value="([^"#]*)"', files["contents.hhc"]))
    fail_unless(listed == topics, f"{language}: not in the table of contents: {sorted(topics - listed)}")
    indexed = set(re.findall(r'name="Name" value="(\w*)"', files["index.hhk"]))
    fail_unless(indexed == keys, f"{language}: the index and the documented keys differ: {sorted(indexed ^ keys)}")
    shown = html.unescape("\n".join(part for name in topics for part in re.findall(
        r"<(?:pre|code)>(.*?)</(?:pre|code)>", files[name], re.S)))
    for key in keys:
        stem = re.sub(r"\d$", "", key)
        fail_unless(re.search(rf"^{stem}\d?=\S", shown, re.M), f"{language}: no example of {key}")
    for name in topics:
        text = re.sub(r"<pre>.*?</pre>|<code>.*?</code>", "", files[name], flags=re.S)
        fail_unless(not re.search(r"\]\(|\*\*|`|\||\0", text), f"{language}: {name} shows marks of the source")
    return topics, len(links)


known = documented_keys()
fail_unless(len(known) > 40, f"only {len(known)} keys found in docs/configuration.md")
english, english_links = check("eng", sys.argv[1], known)
german, german_links = check("ger", sys.argv[1], known)
fail_unless(english == german, f"topics of one language alone: {sorted(english ^ german)}")
for failure in failures:
    print("help:", failure, file=sys.stderr)
print(f"help: {len(english)} topics, {len(known)} keys in two languages, {english_links + german_links} links, "
      f"{len(failures)} faults")
sys.exit(1 if failures else 0)
