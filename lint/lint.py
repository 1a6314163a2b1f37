#!/usr/bin/env python3
"""The rules of the house, as code. Prints FILE:LINE: what is wrong, a line each, and exits 1 if there is any.

Rules: arrows between folders (read from the table in docs/architecture.md), sizes, banned names by folder,
conditional compilation, operations without the gate, headers without their opening comment, files that nobody
builds or runs, words that do not belong, words that read as translated, formatting (clang-format).
"""
import fnmatch
import os
import re
import subprocess
import sys

MAX_LINES = 700
IS_API = re.compile(r"simwin/\w+/api\.h")
CODE_ROOTS = ("src", "simwin", "rehearse", "tests", "bench", "fuzz")
ORDERED = ("simwin", "rehearse") # whose rooms have an order, each a row of its own

WALKED = ("tests/rehearse/stories/", "tests/rehearse/wrong/", "tests/scenarios/real/") # whose every file a script runs
MAY_NAME = (".h", ".cpp", ".cmake", ".txt", ".sh", ".py", ".toml", ".md", ".def", ".in", ".rc")

BANNED_EVERYWHERE = [
    (re.compile(r"\bstd::w?(wstring|wstring_view)\b|\bwcs[a-z]+\s*\("), "wide functions of the host: WCHAR is 16 bits here"),
    (re.compile(r"\b(TODO|FIXME|XXX)\b"), "a plan belongs into docs/, not into the code"),
    (re.compile(r"^\s*#\s*if\s+0\b"), "dead code"),
    (re.compile(r"(?<![\w:])k[A-Z]\w*"), "a constant is PascalCase"), # clang-tidy says so too, but CI's reads a share of the files
    (re.compile(r"\b[a-z]\w*_(?![\w])"), "a member is m_name"),
]
BANNED_IN_SRC = [
    (re.compile(r"#\s*include\s*<(vector|string|map|set|unordered_map|deque|list|memory|thread|mutex|chrono|"
                r"iostream|sstream|functional|atomic|optional|variant|condition_variable|future|locale|regex|stdexcept)>"),
     "a header of the standard library that drags in its exception or thread code"),
    (re.compile(r"\.substr\s*\("), "string_view::substr throws; write string_view(p, n)"),
    (re.compile(r"\b(throw|try|catch|dynamic_cast|typeid)\b\s*[\({]?"), "no exceptions, no RTTI"),
    (re.compile(r"\bgoto\b"), "no goto"),
    (re.compile(r"\b(CloseHandle|FindClose|RegCloseKey|CloseServiceHandle|SetupDiDestroyDeviceInfoList|FreeLibrary|"
                r"LocalFree)\s*\("), "closed by hand: an owner of support/system/Handles.h does it on every way out"),
    (re.compile(r"\b(strcpy|strcat|sprintf|strncpy|strncat|gets|vsprintf|lstrcpyA|lstrcatA)\s*\("), "an unbounded copy: use BoundedText"),
    (re.compile(r"#\s*include\s*[\"<](simwin/|windows\.h|setupapi\.h)"), "the one door is platform/win32.h"),
    (re.compile(r"\bKeyName::Unchecked\b"), "a key without a row in src/keys/ConfigurationKeys.h"),
]
BANNED_IN_SIMWIN = [
    (re.compile(r"(?<!= )\bdelete\b(?! this)"), "deleted by hand: an owning type does it"),
    (re.compile(r"\bstd::chrono\b|\bclock_gettime\b|\bgettimeofday\b|\btime\s*\(\s*(NULL|nullptr|0)\s*\)|\brandom_device\b|\brand\s*\("),
     "the host's clock or chance"),
    (re.compile(r"#\s*include\s*\"(engine|inventory|config|actions|balloon|host|support|platform)/"),
     "the machine knows nothing of the product"),
]
WORDS = [
    (re.compile(r"\b[Ss]pecification\b|\bspec\.md\b|\b[Tt]he spec\b|\bParts? [1-7]\.[0-9]\b"), "mentions what only issues may mention"),
    (re.compile(r"/w[o]rk/|/tmp/bash_j[o]bs"), "a path of somebody's machine"),
]
# Only in comments and documents: the texts of the product, in quotes or backticks, are what they are.
PLAIN = [
    (re.compile(r"\bbehind\b", re.I), "\"behind\" is for places: after"),
    (re.compile(r"\broads?\b", re.I), "a path, or a way"),
    (re.compile(r"\btold\b", re.I), "logged, reported, notified, given"),
    (re.compile(r"\b(go|goes|going|went) on\b(?! (the|a|its) )", re.I), "continue, run on"),
    (re.compile(r"\bas (it|they) (stands?|stood)\b", re.I), "verbatim, unchanged"),
    (re.compile(r"\b(stands|stood) (behind|in front of|in the log|beside|there)\b", re.I), "is, precedes, follows"),
    (re.compile(r"\b(for ever|anew)\b", re.I), "forever; again"),
    (re.compile(r"\b(cannot|can|could|to) be had\b", re.I), "available; cannot be read, created, found"),
    (re.compile(r"\bstep \d+ of\b|\bmain road\b|\b(the|an) order stays\b|\bas specified\b", re.I), "alludes to a text that is not here"),
]
IN_SPACE = re.compile(r"\b(leav\w*|left|lags?|hides?)\b.*\bbehind\b"                       # left by somebody
                      r"|\b(what is|what they|device|driver|handle|process|state|formatter|bridge|hub|one|object|key|library|"
                      r"service|token|pipe|file) behind\b"                                    # a name's device, a handle's object
                      r"|\bbehind (a|an|the|its|this|that|it|their|other|\w+'s)?\s*(unknown |user's )?"
                      r"(bridge|handle|window|lock|name|hub|CRITICAL_SECTION|`CS_|`?szPortName|`?DevPath|DOS name|wvsprintfA)", re.I)


def read(path):
    with open(path, encoding="utf-8", errors="replace") as handle:
        return handle.read().split("\n")


def strip_comment_and_strings(line):
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])'", "''", line)
    return re.sub(r"//.*", "", line)


def arrows_from_table(text):
    """folder -> folders that it may use, from the rows `| `folder/` | for | may use | ... |`."""
    allowed = {}
    for line in text.split("\n"):
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if len(cells) < 3 or not re.fullmatch(r"`[a-z/]+/`", cells[0]):
            continue
        folder = cells[0].strip("`").rstrip("/")
        allowed[folder] = [use.rstrip("/") for use in re.findall(r"`([a-z/]+?)/?`", cells[2])]
    return allowed


def room_of(path, rooms):
    best = None
    for room in rooms:
        if path.startswith(room + "/") and (best is None or len(room) > len(best)):
            best = room
    return best


def resolve_include(path, name, exists):
    for base in ("", "src/"):
        if exists(base + name):
            return base + name
    beside = os.path.join(os.path.dirname(path), name)
    return beside if exists(beside) else None


def check_arrows(path, lines, allowed, exists=os.path.exists):
    found = []
    rooms = list(allowed)
    own = room_of(path, rooms)
    if own is None:
        return found
    for number, line in enumerate(lines, 1):
        match = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
        if not match:
            continue
        target = resolve_include(path, match.group(1), exists)
        if target and IS_API.fullmatch(target) and own.startswith("simwin/"):
            continue # Windows' own names and values, which every room of the machine may use
        room = room_of(target, rooms) if target else None
        if room and room != own and not any(room == use or room.startswith(use + "/") for use in allowed[own]):
            found.append((path, number, f"{own} may not use {room}"))
    return found


def check_order(allowed):
    """The rooms of the machine, and those of the rehearsal tool, stand in the table from the ground up: each uses rooms
    above its own row, so that there is no cycle."""
    found = []
    for house in ORDERED:
        rooms = [room for room in allowed if room.startswith(house + "/")]
        found += [("docs/architecture.md", 1, f"{room} may not use {use}, whose row comes later: that makes a cycle")
                  for at, room in enumerate(rooms) for use in allowed[room]
                  if use.startswith(house) and use not in rooms[:at] and not any(known.startswith(use + "/") for known in rooms[:at])]
    return found


def check_rooms(folders, allowed):
    """A folder of the machine or the rehearsal tool without a row of its own."""
    return [(folder, 1, "no row in the table of docs/architecture.md") for folder in sorted(folders)
            if folder.startswith(ORDERED) and folder not in allowed]


def check_text(path, lines):
    found = []
    own = os.path.splitext(os.path.basename(path))[0] # what is built for Windows alone has its characters
    rules = BANNED_EVERYWHERE[own.endswith("Windows") or own == "WindowsText":]
    if path.startswith("src/") and path != "src/platform/win32.h":
        rules += BANNED_IN_SRC
    if path.startswith("simwin/"):
        rules += BANNED_IN_SIMWIN
    if path == "src/support/system/Handles.h":
        rules = [rule for rule in rules if not rule[1].startswith("closed by hand")]
    for number, line in enumerate(lines, 1):
        bare = strip_comment_and_strings(line) if "include" not in line else line
        for pattern, why in rules:
            subject = line if "TODO" in pattern.pattern else bare
            if pattern.search(subject):
                found.append((path, number, why))
        if path.startswith("src/") and path != "src/platform/win32.h" and re.match(r"\s*#\s*(if|ifdef|ifndef|elif)\b", line):
            found.append((path, number, "conditional compilation outside platform/win32.h"))
    if path.endswith((".h", ".cpp")) and len(lines) > MAX_LINES:
        found.append((path, len(lines), f"more than {MAX_LINES} lines: look for the second subject"))
    if path.endswith(".h") and not (lines and lines[0].startswith("//")):
        found.append((path, 1, "a header opens with what it is for"))
    return found


def check_words(path, lines):
    return [(path, number, why) for number, line in enumerate(lines, 1) for pattern, why in WORDS if pattern.search(line)]


def prose_of(path, line):
    """What of the line people read as English: the comment of code, all of a document, without quotes and backticks."""
    if path.endswith((".h", ".cpp", ".rc")):
        bare = re.sub(r'"(\\.|[^"\\])*"', lambda text: "~" * len(text.group()), line)
        start = bare.find("//")
        line = line[start:] if start >= 0 else ""
    elif not path.endswith(".md"):
        found = re.search(r"(^|\s)#.*", re.sub(r"\"[^\"]*\"|'[^']*'", lambda text: "~" * len(text.group()), line))
        line = line[found.start():] if found else ""
    return re.sub(r"`[^`]*`|\"[^\"]*\"", "~", line)


def check_plain(path, lines):
    found = []
    before = ""
    fenced = False
    for number, line in enumerate(lines, 1):
        fenced ^= path.endswith(".md") and line.lstrip().startswith("```")
        prose = "" if fenced else prose_of(path, line)
        for pattern, why in PLAIN:
            if pattern.search(prose) and not ("behind" in pattern.pattern[:12] and IN_SPACE.search(before + " " + prose)):
                found.append((path, number, why))
        before = prose
    return found


def declared_operations(lines):
    text = "\n".join(re.sub(r"//.*", "", line) for line in lines)
    names = set()
    for match in re.finditer(r"^(?:\[\[noreturn\]\] )?[A-Za-z_][\w:<>]*[\s\*&]+(?:WINAPIV? |WINAPI )?([A-Za-z_]\w*)\(", text, re.M):
        if not match.group(1).startswith("SIMWIN_") and match.group(1) not in ("__attribute__", "sizeof", "static_assert", "WinMain") and "constexpr" not in match.group(0):
            names.add(match.group(1))
    return names


def check_gates(api_names, sources):
    """Every operation that an api.h declares opens with SIM_CALL under its own name."""
    gated = set()
    for lines in sources.values():
        gated |= set(re.findall(r'SIM_CALL\(\s*"(\w+)"', "\n".join(lines)))
    return [(path, 1, f"operation {name} does not pass the gate")
            for path, names in sorted(api_names.items()) for name in sorted(names) if name not in gated]


def check_asked(api_names, users):
    """Every operation that an api.h declares is one that the product uses, or that a contract test needs on Windows too.
    users: the lines of those files."""
    words = set(re.findall(r"\w+", "\n".join(re.sub(r"//.*", "", line) for lines in users for line in lines)))
    return [(path, 1, f"operation {name}: the product does not use it")
            for path, names in sorted(api_names.items()) for name in sorted(names) if name not in words]


def check_paths(path, lines, exists=os.path.exists):
    """Paths that a document gives as code must be there."""
    found = []
    for number, line in enumerate(lines, 1):
        for name in re.findall(r"`((?:src|simwin|rehearse|tests|bench|fuzz|cmake|lint|packaging|docs|examples)/[\w./-]*)`", line):
            if not exists(name):
                found.append((path, number, f"there is no {name}"))
    return found


def built_patterns(builds):
    """What the build files name: (folder of the build file, pattern, recursive) of each source and glob, with the rooms
    of a foreach written out. builds: path -> lines."""
    patterns = []
    for path, lines in builds.items():
        text = re.sub(r"#.*", "", "\n".join(lines))
        rooms = {name: words.split() for name, words in re.findall(r"foreach\((\w+) ([\w\s]+)\)", text)}
        for command in re.findall(r"\w+\([^()]*\)", text):
            for word in re.findall(r'[^\s"();]+\.(?:cpp|toml)\b', command):
                word = re.sub(r"\$\{(CMAKE_SOURCE_DIR|CMAKE_CURRENT_SOURCE_DIR)\}/", "", word)
                if word == "${QM_LAYOUT}/Layout.cpp":
                    word = "tests/contract/layout/Layout.cpp"
                variable = re.search(r"\$\{(\w+)\}", word)
                values = rooms.get(variable.group(1), []) if variable else [None]
                for value in values:
                    name = word.replace(variable.group(0), value) if variable else word
                    patterns.append((os.path.dirname(path), name, "GLOB_RECURSE" in command))
    return patterns


def is_built(path, patterns):
    for folder, pattern, recursive in patterns:
        bases = {pattern, os.path.join(folder, pattern)}
        for base in bases:
            if fnmatch.fnmatchcase(path, base) and (recursive or path.count("/") == base.count("/")):
                return True
    return False


def check_unused(files, texts):
    """Sources that no build lists, headers that nobody includes, scripts and scenarios that nobody names. texts: path ->
    lines, of every file that may name another one."""
    builds = {path: lines for path, lines in texts.items() if path.endswith((".cmake", "CMakeLists.txt"))}
    patterns = built_patterns(builds)
    words = {path: set(re.findall(r"[\w.-]+", "\n".join(lines))) for path, lines in texts.items()}
    found = []
    for path in files:
        name = os.path.basename(path)
        names = {name, name[:-3]} if name.endswith(".py") else {name} # a module is imported without its ending
        named = any(names & others for other, others in words.items() if other != path)
        if path.endswith(".cpp") and not is_built(path, patterns):
            found.append((path, 1, "a source that no build lists"))
        elif path.endswith(".h") and path.startswith(CODE_ROOTS) and not named:
            found.append((path, 1, "a header that nobody includes"))
        elif path.endswith((".sh", ".py", ".awk")) and not named:
            found.append((path, 1, "a script that nobody calls"))
        elif path.endswith(".toml") and path.startswith("tests/") and not path.startswith(WALKED) and not named:
            if is_built(path, patterns) and "/parts/" not in path:
                continue # the tests' build takes every scenario; parts are included by others
            found.append((path, 1, "a scenario that no run lists"))
    return found


def tracked():
    out = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], capture_output=True, text=True, check=True).stdout
    return [path for path in out.split("\n") if path and os.path.exists(path)]


def check_format(files):
    names = [path for path in files if path.endswith((".h", ".cpp"))]
    found = []
    if not names:
        return found
    run = subprocess.run(["clang-format", "--dry-run", "--Werror", *names], capture_output=True, text=True, check=False)
    for match in re.finditer(r"^(.+?):(\d+):\d+: error: code should be clang-formatted", run.stderr, re.M):
        if not any(entry[0] == match.group(1) for entry in found):
            found.append((match.group(1), int(match.group(2)), "not formatted as .clang-format says"))
    return found


def main():
    os.chdir(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    files = tracked()
    code = {path: read(path) for path in files if path.startswith(CODE_ROOTS) and path.endswith((".h", ".cpp"))}
    allowed = arrows_from_table("\n".join(read("docs/architecture.md")))
    found = []
    if not allowed:
        found.append(("docs/architecture.md", 1, "no table of folders"))
    found += check_order(allowed)
    found += check_rooms({os.path.dirname(path) for path in code}, allowed)
    for path, lines in code.items():
        found += check_text(path, lines)
        found += check_arrows(path, lines, allowed)
    for path in files:
        if path.endswith((".h", ".cpp", ".md", ".toml", ".py", ".sh", ".txt", ".cmake", ".ini", ".json")) and path != "lint/lint.py" and path != "lint/test_lint.py":
            found += check_words(path, read(path))
        if path.endswith((".h", ".cpp", ".rc", ".md", ".toml", ".py", ".sh", ".cmake", "CMakeLists.txt")) or path == "quill":
            found += check_plain(path, read(path)) if not path.startswith(("lint/", "packaging/help/")) else []
    for path in files:
        if path.endswith(".md"):
            found += check_paths(path, read(path))
    apis = {path: declared_operations(lines) for path, lines in code.items() if IS_API.fullmatch(path)}
    found += check_gates(apis, {path: lines for path, lines in code.items() if path.startswith("simwin/")})
    found += check_asked(apis, [lines for path, lines in code.items() if path.startswith(("src/", "tests/contract/"))])
    texts = {path: read(path) for path in files if path.endswith(MAY_NAME) or "." not in os.path.basename(path)}
    found += check_unused(files, texts)
    found += check_format(files)
    for path, number, why in sorted(set(found)):
        print(f"{path}:{number}: {why}")
    print(f"lint: {len(files)} files, {len(set(found))} findings")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
