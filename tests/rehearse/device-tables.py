#!/usr/bin/env python3
"""Compares the devices that the tool makes of two captured exports with what the captures say of themselves: each
device of the classes Ports, Modem and USB, with parent, hub, socket, location and presence. The newer capture holds the
true parents and location paths too: the tool is also given a copy without them, and must come to the same.
Exits with 77 where the exports do not lie beside the checkout. Usage: device-tables.py TOOL"""
import os
import re
import subprocess
import sys
import tempfile

import hive

HERE = os.path.dirname(os.path.abspath(__file__))
MACHINES = os.path.join(HERE, "../../../shared/machines")
ENUM = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum\\"
CLASSES = {"{4d36e978-e325-11ce-bfc1-08002be10318}": "Ports", "{4d36e96d-e325-11ce-bfc1-08002be10318}": "Modem",
           "{36fc9e60-c465-11cf-8056-444553540000}": "USB"}
PARENT = "\\Properties\\{83da6326-97a6-4088-9453-a1923f573b29}\\000A"
ARRIVAL = "\\Properties\\{83da6326-97a6-4088-9453-a1923f573b29}\\0066"
PATHS = "\\Properties\\{a45c254e-df1c-4efd-8020-67d146a850e0}\\0025"
failures = []


def check(device, what, came, wanted):
    if came != wanted:
        failures.append(f"{device}: {what} is '{came}', not '{wanted}'")


def table_of(tool, registry):
    with tempfile.NamedTemporaryFile("w", suffix=".toml") as machine:
        machine.write(f"registry = ['{registry}']\n")
        machine.flush()
        lines = subprocess.run([tool, "--devices", machine.name], capture_output=True, text=True, check=True).stdout.splitlines()
    names = lines[0].split("\t")
    return {row[0]: dict(zip(names, row)) for row in (line.split("\t") for line in lines[1:])}


def judge(tool, name, hub_numbers, parents):
    """hub_numbers: of the hubs that devices name. parents: of the devices that neither prefix nor capture place."""
    path = os.path.join(MACHINES, name)
    keys = {key[len(ENUM):]: values for key, values in hive.read_export(path).items() if key.lower().startswith(ENUM.lower())}
    devices = {key: values for key, values in keys.items() if key.count("\\") == 2}
    prefixes = {hive.text_of(values["ParentIdPrefix"]).lower(): key for key, values in devices.items() if "ParentIdPrefix" in values}
    table, judged, sockets = table_of(tool, path), [], {}
    for device, values in devices.items():
        if hive.text_of(values.get("ClassGUID")).lower() not in CLASSES and not device.upper().startswith("USB\\"):
            continue
        row, instance = table[device], device.rsplit("\\", 1)[1].lower()
        judged.append(device)
        by_prefix = next((prefixes[instance[:at]] for at in range(len(instance), 0, -1)
                          if prefixes.get(instance[:at], device) != device), None)
        captured = hive.text_of(keys.get(device + PARENT, {}).get(""))
        check(device, "parent", row["parent"], captured or by_prefix or parents[device])
        location = re.match(r"Port_#(\d+)\.Hub_#(\d+)", hive.text_of(values.get("LocationInformation")))
        check(device, "socket", row["socket"], str(int(location.group(1))) if location else "-")
        if location:
            check(row["parent"], "hub number", table[row["parent"]]["hub"], str(int(location.group(2))))
            arrival = keys.get(device + ARRIVAL, {}).get("", (0, bytes(8)))[1]
            sockets.setdefault((row["parent"], row["socket"]), []).append((int.from_bytes(arrival, "little"), len(judged), device))
        if device + PATHS in keys:
            check(device, "location path", row["location path"], hive.text_of(keys[device + PATHS][""]))
    for number, hub in hub_numbers.items():
        check(hub, "hub number", table[hub]["hub"], str(number))
    numbers = [row["hub"] for row in table.values() if row["hub"] != "-"]
    check(name, "count of different hub numbers", len(set(numbers)), len(numbers))
    there = {max(claims)[2] for claims in sockets.values()}
    for claims in sockets.values():
        for _, _, device in claims:
            wanted = "there" if device in there else "not there: another device is on its socket"
            check(device, "state", table[device]["state"], wanted)
    for device in judged:
        print("\t".join(table[device].values()))
    return table, judged


def without_properties(path, folder):
    """A copy of an export that tells no parents, paths and dates."""
    text = open(path, "rb").read().decode("utf-16")
    kept = [part for part in re.split(r"(?=^\[)", text, flags=re.M) if "\\Properties" not in part.split("\n", 1)[0]]
    copy = os.path.join(folder, "plain.reg")
    with open(copy, "wb") as file:
        file.write("".join(kept).encode("utf-16"))
    return copy


def main():
    tool = os.path.abspath(sys.argv[1])
    if not os.path.isdir(MACHINES):
        print("left out: no captured exports beside the checkout")
        sys.exit(77)
    print("found captured exports beside the checkout")
    root_hub = "USB\\ROOT_HUB30\\5&20be2fcd&0&0"
    full, judged = judge(tool, "win10-1709.reg", {5: "USB\\ROOT_HUB\\5&2891968b&0", 2: root_hub}, {})
    count = len(judged)
    bridge = "PCI\\VEN_8086&DEV_7110&SUBSYS_197615AD&REV_08\\3&18d45aa6&0&38"
    count += len(judge(tool, "workstation-2ports.reg",
                       {1: "USB\\ROOT_HUB\\5&391b2433&0", 2: "USB\\ROOT_HUB20\\5&25f23b66&0"},
                       {"ACPI\\PNP0501\\1": bridge, "ACPI\\PNP0501\\2": bridge,
                        "USB\\VID_03F0&PID_3207\\AA951D0000007252": "USB\\ROOT_HUB20\\5&25f23b66&0"})[1])
    with tempfile.TemporaryDirectory() as folder:
        plain = table_of(tool, without_properties(os.path.join(MACHINES, "win10-1709.reg"), folder))
        for device in judged:
            if device.startswith("ACPI"):
                check(device, "location path without the capture's", plain[device]["location path"], "-")
                continue
            for column in ("parent", "hub", "socket", "location path"):
                check(device, column + " without the capture's", plain[device][column], full[device][column])
    for failure in failures:
        print(failure)
    print(f"{count} devices of two captured exports, {len(failures)} differences")
    sys.exit(1 if failures or count < 30 else 0)


if __name__ == "__main__":
    main()
