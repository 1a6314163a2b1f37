#!/usr/bin/env python3
"""Which functions of the product nothing reaches from its entry point: the linker collects their sections. Compared
with a list of those that may be there all the same.

reach.py COMPILER LIST OBJECT... - each line of LIST: a function, then ": " and why it stays.
"""
import re
import subprocess
import sys
import tempfile

ENTRY = "WinMain"


def collected(compiler, objects):
    """The sections that the linker throws away, of functions with external linkage that are no templates nor inline."""
    own = set()
    table = subprocess.run(["nm", "--defined-only", *objects], capture_output=True, text=True, check=True).stdout
    for match in re.finditer(r"^[0-9a-f]+ T (\S+)$", table, re.M):
        own.add(match.group(1))
    if ENTRY not in own:
        sys.exit(f"reach: no {ENTRY} in the objects")
    with tempfile.NamedTemporaryFile("w", suffix=".map") as script:
        script.write(f"{{ global: {ENTRY}; local: *; }};\n")
        script.flush()
        link = subprocess.run([compiler, "-shared", "-Wl,--gc-sections,--print-gc-sections", f"-Wl,--version-script={script.name}",
                               "-o", "/dev/null", *objects], capture_output=True, text=True, check=False)
    if link.returncode != 0:
        sys.exit("reach: " + link.stderr[-2000:])
    removed = set(re.findall(r"removing unused section '\.text\.(?:unlikely\.)?([^']+)'", link.stderr))
    # The replaced operators new and delete are there in all their forms, so that none of them is the library's.
    names = sorted(name for name in removed & own if not re.match("_Z(nw|na|dl|da)", name))
    return set(subprocess.run(["c++filt", *names], capture_output=True, text=True, check=True).stdout.split("\n")) - {""} if names else set()


def main():
    compiler, listed, objects = sys.argv[1], sys.argv[2], sys.argv[3:]
    with open(listed, encoding="utf-8") as handle:
        lines = [line for line in handle.read().split("\n") if line and not line.startswith("#")]
    kept = {line.split(": ")[0] for line in lines}
    unreached = collected(compiler, objects)
    for name in sorted(unreached - kept):
        print(f"{name}: nothing reaches it from {ENTRY}; call it, remove it, or say in {listed} why it stays")
    for name in sorted(kept - unreached):
        print(f"{name}: is reached, or not there any more; take it out of {listed}")
    return 1 if unreached != kept else 0


if __name__ == "__main__":
    sys.exit(main())
