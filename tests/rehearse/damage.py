#!/usr/bin/env python3
"""Rehearses on damaged exports and hives: each run ends with 0, or with 2 and one line that begins with a place, in
time. Usage: damage.py TOOL [COUNT [SEED]]"""
import concurrent.futures
import os
import random
import re
import subprocess
import sys
import tempfile

import hive

LIMIT_SECONDS = 5
HERE = os.path.dirname(os.path.abspath(__file__))
EXPORTS = [os.path.join(HERE, "../../examples/machines", name, name + ".reg") for name in ("desk", "bench", "till")]
PLACE = re.compile(r"^[^:]+:\d+:\d+: .+")


def cut(chance, data):
    return data[:chance.randrange(len(data))]


def flip(chance, data):
    damaged = bytearray(data)
    for _ in range(chance.choice((1, 1, 3, 20, 200))):
        damaged[chance.randrange(len(damaged))] ^= 1 << chance.randrange(8)
    return bytes(damaged)


def overwrite(chance, data):
    at, length = chance.randrange(len(data)), chance.choice((1, 4, 64, 4096))
    filler = chance.choice((b"\0", b"\xff", b'"', b"[", b"\\"))
    return data[:at] + filler * length + data[at + length:]


def remove(chance, data):
    at = chance.randrange(len(data))
    return data[:at] + data[at + chance.choice((1, 2, 40, 3000)):]


def repeat(chance, data):
    at = chance.randrange(len(data))
    return data[:at] + data[max(0, at - chance.choice((1, 7, 500))):]


def rehearse(tool, folder, number, data, how):
    registry = os.path.join(folder, f"{number}.bin")
    with open(registry, "wb") as file:
        file.write(data)
    machine = os.path.join(folder, f"{number}.toml")
    with open(machine, "w", encoding="utf-8") as file:
        file.write(f'registry = ["{number}.bin"]\n')
    try:
        run = subprocess.run([tool, "--quiet", machine], capture_output=True, text=True, errors="replace",
                             timeout=LIMIT_SECONDS)
    except subprocess.TimeoutExpired:
        return None, f"{how}: longer than {LIMIT_SECONDS} s"
    lines = run.stderr.rstrip("\n").split("\n") if run.stderr else []
    if run.returncode == 0 and not lines or run.returncode == 2 and len(lines) == 1 and PLACE.match(lines[0]):
        os.remove(registry)
        os.remove(machine)
        return run.returncode, None
    return run.returncode, f"{how}: exit code {run.returncode}: {run.stderr[-300:]!r}"


def main():
    tool, count = os.path.abspath(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else 60
    chance = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 1)
    whole = [(os.path.basename(path), open(path, "rb").read()) for path in EXPORTS]
    whole += [("hive of " + os.path.basename(path), hive.hive_of(path)) for path in EXPORTS]
    ends, wrong = {0: 0, 2: 0}, []
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = []
        for number in range(count):
            name, data = whole[number % len(whole)]
            damage = chance.choice((cut, flip, overwrite, remove, repeat))
            how = f"{number}: {damage.__name__} of {name}"
            runs.append(pool.submit(rehearse, tool, folder, number, damage(chance, data), how))
        for run in runs:
            code, failure = run.result()
            ends[code] = ends.get(code, 0) + 1
            if failure:
                wrong.append(failure)
    for failure in wrong[:20]:
        print(failure)
    print(f"{count} damaged files: {ends[0]} rehearsed, {ends[2]} refused, {len(wrong)} wrong")
    # A tool that refuses everything, or nothing, would prove nothing.
    sys.exit(1 if wrong or count >= 30 and not (ends[0] and ends[2]) else 0)


if __name__ == "__main__":
    main()
