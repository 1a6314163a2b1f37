"""Makes the image of a program for the simulated machine: an archive of its objects, to be linked into a tool once. What
a simulated process may write lies in one section, `qm_data`, so that the machine can give each process its own; code
lies in `qm_code`. No name of the program meets one of the tool: all begin with `image_`, except WinMain. With
--for-tests only its operators new and delete do; tests then call its functions by their names. An object that writes anywhere else is refused: it would be shared by all processes.

Usage: image.py [--for-tests] [--sanitized] --archive FILE [--objcopy P] [--nm P] [--objdump P] [--ar P] OBJECT...
"""
import argparse
import concurrent.futures
import os
import re
import subprocess
import sys

DATA = (".data", ".bss", ".data.rel", ".data.rel.local")
READ_ONLY_AFTER_START = re.compile(r"\.data\.rel\.ro\b")
OF_SANITIZERS = re.compile(r"asan_globals|\.(init|fini)_array\b|__sancov_")
OPERATOR = re.compile(r"_Z(n[wa]|d[la])")


def output(*line):
    return subprocess.run(line, check=True, capture_output=True, text=True).stdout


def renamed(options):
    """Old and new names of all symbols that get another one."""
    names = set()
    for line in output(options.nm, "-g", "-P", "--defined-only", *options.objects).splitlines():
        part = line.split()
        if len(part) < 2:
            continue
        name = part[0]
        if OPERATOR.match(name) or not options.for_tests:
            names.add(name)
    # Constructors and destructors come in groups with a name of their own; by the same one the linker would take the
    # tests' group in place of the image's.
    names |= {re.sub(r"([CD])[012](?=[EI])", r"\g<1>5", name) for name in names}
    names.discard("WinMain")
    return "".join(f"{name} image_{name}\n" for name in sorted(names))


def sections(options):
    """Per object, its sections with what objdump says of them."""
    found, name = {}, None
    for line in output(options.objdump, "-h", "-w", *options.objects).splitlines():
        if head := re.match(r"(.*):\s+file format ", line):
            name = head[1]
            found[name] = []
        elif name and (row := re.match(r"\s*\d+\s+(\S+)\s+([0-9a-f]+)\s", line)):
            found[name].append((row[1], int(row[2], 16), line))
    return found


def changes(options, path, own):
    """objcopy's options for the sections of one object."""
    line = []
    for name, size, flags in own:
        if name in DATA:
            line += ["--set-section-flags", f"{name}=alloc,load,contents,data",
                     "--rename-section", f"{name}=qm_data,alloc,load,contents,data"]
        elif "CODE" in flags and name.startswith(".text") and not options.pe:
            line += ["--rename-section", f"{name}=qm_code"]
        elif size and "ALLOC" in flags and "READONLY" not in flags and not READ_ONLY_AFTER_START.match(name):
            if not (options.sanitized and OF_SANITIZERS.match(name)):
                sys.exit(f"{path}: section {name} would be shared by all processes")
    return line


def main():
    parser = argparse.ArgumentParser()
    for tool in ("objcopy", "nm", "objdump", "ar"):
        parser.add_argument(f"--{tool}", default=tool)
    parser.add_argument("--archive", required=True)
    parser.add_argument("--for-tests", action="store_true")
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--pe", action="store_true")
    parser.add_argument("objects", nargs="+")
    options = parser.parse_args()

    work = options.archive + ".objects"
    os.makedirs(work, exist_ok=True)
    names = os.path.join(work, "names")
    wanted = renamed(options)
    isSame = os.path.exists(names) and open(names).read() == wanted and \
        os.path.getmtime(names) > os.path.getmtime(__file__)
    if not isSame:
        with open(names, "w") as file:
            file.write(wanted)
    common = os.path.commonpath([os.path.dirname(path) for path in options.objects])
    made, lines = [], []
    for path, own in sections(options).items():
        copy = os.path.join(work, os.path.relpath(path, common).replace(os.sep, "_"))
        made.append(copy)
        if not (isSame and os.path.exists(copy) and os.path.getmtime(copy) > os.path.getmtime(path)):
            lines.append([options.objcopy, f"--redefine-syms={names}", *changes(options, path, own), path, copy])
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(lambda line: output(*line), lines))
    if os.path.exists(options.archive):
        os.remove(options.archive)
    output(options.ar, "qcsT", options.archive, *made)


main()
