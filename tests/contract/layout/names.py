#!/usr/bin/env python3
"""Lists all constants, types and members that the simulated machine's headers declare, as lines for Layout.cpp.

Usage: names.py SIMWIN-FOLDER OUTPUT. A declaration that is not understood ends it with an error, so that none is left
out in silence.
"""
import pathlib
import re
import sys

NOT_OF_WINDOWS = {"va_list_t"}  # a helper of the headers' own
OF_ANOTHER_AGE = {"PROCESS_ALL_ACCESS"}  # more bits in the SDK's headers for 6.0, which this program compares by
NOT_IN_MINGW = {"ERROR_ELEVATION_REQUIRED"}  # 740, as Microsoft's list of system error codes has it


def statements(text):
    """What stands between the semicolons outside of braces, on one line each."""
    depth, start = 0, 0
    for at, char in enumerate(text):
        depth += (char == "{") - (char == "}")
        if char == ";" and depth == 0:
            yield " ".join(text[start:at].split())
            start = at + 1
    rest = " ".join(text[start:].split())
    if rest:
        yield rest


def members(body, prefix=""):
    for member in statements(body):
        inner = re.fullmatch(r"(?:struct|union) ?\{(.*)\} ?(\w*)", member)
        if inner and inner.group(2):
            yield prefix + inner.group(2)
            yield from members(inner.group(1), prefix + inner.group(2) + ".")
            continue
        if inner:
            yield from members(inner.group(1), prefix)
            continue
        for declarator in member.split(","):
            yield prefix + re.sub(r"\[.*", "", declarator).split()[-1].lstrip("*")


def lines_of(statement):
    """The lines of one declaration, or None for one that is not understood."""
    if match := re.fullmatch(r"inline constexpr \w+ (\w+) = .*", statement):
        return [] if match.group(1) in OF_ANOTHER_AGE | NOT_IN_MINGW else [f"CONSTANT({match.group(1)})"]
    if match := re.fullmatch(r"enum (\w+) : \w+ ?\{(.*)\}", statement):
        names = [item.split("=")[0].strip() for item in match.group(2).split(",")]
        return [f"TYPE({match.group(1)})"] + [f"CONSTANT({name})" for name in names if name]
    if match := re.fullmatch(r"(?:struct|union)(?: \w+\([^)]*\))? (\w+) ?\{(.*)\}", statement):
        name = match.group(1)
        return [f"TYPE({name})"] + [f"MEMBER({name}, {member})" for member in members(match.group(2))]
    if match := re.fullmatch(r"(?:using (\w+) = .*|SIMWIN_DECLARE_HANDLE\((\w+)\))", statement):
        name = match.group(1) or match.group(2)
        return [] if name in NOT_OF_WINDOWS else [f"TYPE({name})"]
    is_function = re.fullmatch(r"(?:\[\[noreturn\]\] )?[\w ]+[ *]+\w+ ?\(.*\)(?: SIMWIN_\w+\(\w+\))?", statement)
    if is_function or re.fullmatch(r"(?:struct \w+|static_assert ?\(.*\)|extern \"C\" .*\))", statement):
        return []
    return None


def header_lines(path):
    text = re.sub(r"//[^\n]*|/\*.*?\*/", "", path.read_text(), flags=re.S)
    text = text.replace("\\\n", " ")
    for name, value in re.findall(r"^#define (\w+) +(.+)$", text, flags=re.M):
        if not name.startswith("SIMWIN_"):
            yield f"CONSTANT({name})"
    text = re.sub(r"^#.*$", "", text, flags=re.M)
    text = re.sub(r"namespace simwin \{(.*)\}\s*$", r"\1", text, flags=re.S)
    for statement in statements(text):
        lines = lines_of(statement)
        if lines is None:
            sys.exit(f"{path}: not understood: {statement}")
        yield from lines


def main():
    folder, output = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    headers = [folder / "kernel" / "types.h"] + sorted(folder.glob("*/api.h"))
    lines = [line for header in headers for line in header_lines(header)]
    if len(lines) < 500:
        sys.exit(f"only {len(lines)} names in {folder}")
    output.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
