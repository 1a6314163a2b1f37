#!/usr/bin/env python3
"""Makes a fleet of machines: folders as a capture leaves them, with exports, the list of what is connected and a
machine.toml. The adapters come from the tool's own catalogue, the boards from the examples' exports; which machine has
what is decided by the seed, and machine N is the same in a fleet of any size.

The rules give all adapters of one make a block of numbers that they share. In one machine of forty that has a finding,
which a real fleet would have too: after a sleep from which USB devices come as new arrivals, the first of them takes a
lower number in the block while its holder is still on its way, and is left without a name when that one comes.

Beside the machines it writes fleet.ini, rules for the whole fleet, and former.ini, the rules before.

make_fleet.py TOOL OUT COUNT [--seed N] [--broken N] [--boards FILE...]

--broken N    one machine in N is broken on purpose; broken.txt says how: a cut export, an export that is not there, a
              description that is wrong, a history that does not end in reasonable time, a port for which the tests'
              tool with planted faults crashes, one for which it calls what is not modelled; to any other tool the
              last two are machines like all
--boards FILE exports of real machines, Windows 10 first, in place of the examples'
"""
import argparse
import pathlib
import random
import re
import subprocess
import uuid

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parent.parent / "examples/machines"
ENUM = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Enum"
CONTROL = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Control"
SERVICES = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services"
CLASSES = {"Ports": "{4d36e978-e325-11ce-bfc1-08002be10318}", "USB": "{36fc9e60-c465-11cf-8056-444553540000}",
           "Modem": "{4d36e96d-e325-11ce-bfc1-08002be10318}", "HIDClass": "{745a17a0-74d3-11d0-b6fe-00a0c90f57da}",
           "System": "{4d36e97d-e325-11ce-bfc1-08002be10318}", "USBDevice": "{88bae032-5a81-49f0-bc3d-a4ff138216d6}",
           "MultiportSerial": "{50906cb8-ba12-11d1-bf5d-0000f805f530}"}
WINDOWS = [("10.0.19045", "Windows 10"), ("10.0.22631", "Windows 11"), ("6.1.7601", "Windows 7")]
# The ballast of a machine: what else an export of these branches holds.
BALLAST = [("PCI", "VEN_8086&DEV_{:04X}&SUBSYS_{:04X}1028&REV_0{}", "System", "pci", "@system.inf,%id%;Chipset device"),
           ("ACPI", "PNP0C{:02X}", "System", "", "@machine.inf,%id%;System device"),
           ("PCI", "VEN_10DE&DEV_{:04X}&SUBSYS_{:04X}1043&REV_A{}", "System", "", "@oem1.inf,%id%;Display adapter")]


def text(value):
    return '"%s"' % value.replace("\\", "\\\\").replace('"', '\\"')


def hexed(name, kind, data):
    """A line of the registry editor, wrapped as it wraps."""
    line, lines = f'"{name}"={kind}:', []
    for i, byte in enumerate(data):
        piece = f"{byte:02x}" + ("," if i + 1 < len(data) else "")
        if len(line) + len(piece) > 79:
            lines.append(line + "\\")
            line = "  "
        line += piece
    return "\r\n".join(lines + [line])


def multi(name, texts):
    return hexed(name, "hex(7)", ("\0".join(texts) + "\0\0").encode("utf-16-le"))


def number(value):
    return f"dword:{value:08x}"


def as_unicode(export):
    """The text of an export; one of the old format with its texts as the new one has them."""
    if not export.startswith(b"REGEDIT4"):
        return export.decode("utf-16")

    def widened(found):
        data = bytes.fromhex(re.sub(r"[\\\s,]", "", found[3]))
        return hexed(found[1], f"hex({found[2]})", data.decode("cp1252").encode("utf-16-le"))

    return re.sub(r'"([^"\r\n]*)"=hex\(([127])\):((?:[0-9a-f]{2},?|\\\s+)*)', widened, export.decode("cp1252"))


class Catalogue:
    """Adapters that a USB socket takes: by vendor and product, what hangs below."""

    def __init__(self, tool):
        rows = [line.split("\t") for line in
                subprocess.run([tool, "--catalogue"], check=True, capture_output=True, text=True).stdout.splitlines()[1:]]
        self.kinds, self.functions = [], {}
        for pattern, kind, group, service, name, _, _ in rows:
            found = re.fullmatch(r"USB\\(VID_\w{4}&PID_\w{4})(&MI_\d\d)?\\\*", pattern)
            if not found or group == "-":
                continue
            row = (found[1], kind, group, "" if service == "-" else service, name)
            if found[2]:
                self.functions.setdefault(found[1], []).append((found[2], row))
            elif kind in ("port", "composite"):
                self.kinds.append(row)
        self.kinds = [row for row in self.kinds if row[1] == "port" or row[0] in self.functions]


class Board:
    """An export that a machine is built on: its keys, hubs with the sockets that are free, numbers in use."""

    def __init__(self, path):
        self.blocks = []
        for block in as_unicode(path.read_bytes()).split("\r\n\r\n")[1:]:
            name = block.lstrip("\r\n").split("\r\n", 1)[0].strip("[]")
            if "COM Name Arbiter" not in name:
                self.blocks.append((name, block.strip("\r\n")))
        self.ids = sorted({"\\".join(name.split("\\")[4:7]) for name, _ in self.blocks
                           if name.lower().startswith(ENUM.lower()) and name.count("\\") >= 6})
        prefix = re.compile(r'"ParentIdPrefix"="([^"]+)"')
        self.hubs = [("\\".join(name.split("\\")[4:7]), prefix.search(block)[1]) for name, block in self.blocks
                     if re.search(r'"Service"="(usbhub|USBHUB3)"', block, re.I) and prefix.search(block)]
        self.hub_numbers = {}
        for name, block in self.blocks:
            named = re.search(r'"LocationInformation"="Port_#\d+\.Hub_#(\d+)"', block)
            for hub, start in self.hubs:
                if named and name.rpartition("\\")[2].startswith(start + "&"):
                    self.hub_numbers[hub] = int(named[1])
        for hub, _ in self.hubs:
            free = next(i for i in range(1, 99) if i not in self.hub_numbers.values())
            self.hub_numbers.setdefault(hub, free)
        self.take_sockets()
        taken = [int(m) for _, block in self.blocks for m in re.findall(r'"PortName"="COM(\d+)"', block)]
        self.numbers = set(taken)

    def take_sockets(self):
        """Which sockets are in use. An export also has what was on a socket before: a second one there is not connected,
        since no hub has two devices on one socket. Hubs come first, or what hangs below would lose them."""
        hub_of = {number: hub for hub, number in self.hub_numbers.items()}
        self.taken, self.gone = set(), set()
        is_hub = {hub for hub, _ in self.hubs}
        place = re.compile(r'"LocationInformation"="Port_#(\d+)\.Hub_#(\d+)"')
        found = [("\\".join(name.split("\\")[4:7]), place.search(block)) for name, block in self.blocks
                 if name.count("\\") == 6]
        for device, where in sorted(found, key=lambda one: (one[0] not in is_hub, one[0])):
            if device.startswith("USB\\") and where:
                socket = (hub_of.get(int(where[2])), int(where[1]))
                if socket in self.taken:
                    self.gone.add(device)
                self.taken.add(socket)


class Machine:
    def __init__(self, index, seed, catalogue, boards):
        self.random = random.Random(f"{seed}/{index}")
        self.name = f"PC{index:05}"
        self.version, self.windows = self.random.choices(WINDOWS, [6, 3, 1])[0]
        self.board = boards[1 if self.version.startswith("6") else 0]
        self.catalogue = catalogue
        self.blocks = []
        self.connected = [device for device in self.board.ids if device not in self.board.gone]
        self.numbers, self.driver = set(self.board.numbers), 100
        self.sockets = {hub: [port for port in range(1, 9) if (hub, port) not in self.board.taken]
                        for hub, _ in self.board.hubs}
        for _ in range(self.random.choice([0, 1, 1, 2, 2, 3, 4, 6, 9])):
            self.add_adapter(self.random.random() < 0.8)
        for _ in range(self.random.randrange(40, 60)):
            self.add_ballast()

    def hash(self):
        return f"{self.random.randrange(16**6, 16**8):x}"

    def add(self, device, values, parameters=(), there=True):
        self.blocks.append((f"{ENUM}\\{device}", values))
        self.blocks.append((f"{ENUM}\\{device}\\Device Parameters", list(parameters)))
        if there:
            self.connected.append(device)

    def values(self, device, group, service, name, extra=()):
        self.driver += 1
        driver = f"{CLASSES[group]}\\{self.driver:04}"
        self.blocks.append((f"{CONTROL}\\Class\\{driver}", [f'"DriverDesc"={text(name)}']))
        lines = list(extra) + [f'"Capabilities"={number(0x84)}', f'"ConfigFlags"={number(0)}',
                               f'"ClassGUID"={text(CLASSES[group])}', f'"Driver"={text(driver)}',
                               f'"DeviceDesc"={text("@oem.inf,%id%;" + name)}', '"Mfg"="@oem.inf,%mfg%;Maker"',
                               multi("HardwareID", [device.rpartition("\\")[0] + "&REV_0100", device.rpartition("\\")[0]]),
                               f'"ContainerID"={text("{%s}" % uuid.UUID(int=self.random.getrandbits(128)))}']
        return lines + ([f'"Service"={text(service)}'] if service else [])

    def add_port(self, device, group, service, name, extra, there):
        com = 3
        while com in self.numbers:
            com += 1
        self.numbers.add(com)
        friendly = f'"FriendlyName"={text(f"{name} (COM{com})")}'
        self.add(device, self.values(device, group, service, name, list(extra) + [friendly]),
                 [f'"PortName"={text(f"COM{com}")}', hexed("LatencyTimer", "hex", b"\x10\0\0\0")], there)

    def add_adapter(self, there):
        hub, prefix = self.random.choice(self.board.hubs)
        free = self.sockets[hub]
        if not free:
            return
        socket = free.pop(self.random.randrange(len(free)))
        has_serial = self.random.random() < 0.6
        serial = "".join(self.random.choices("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", k=8)) if has_serial else f"{prefix}&{socket}"
        place = [f'"Address"={number(socket)}',
                 f'"LocationInformation"="Port_#{socket:04}.Hub_#{self.board.hub_numbers[hub]:04}"']
        if self.random.random() < 0.35:
            device = f"USB\\VID_0403&PID_6001\\{serial}"
            self.add(device, self.values(device, "USB", "FTDIBUS", "USB Serial Converter", place), (), there)
            port = f"FTDIBUS\\VID_0403+PID_6001+{serial}{'A' if has_serial else ''}\\0000"
            self.add_port(port, "Ports", "FTSER2K", "USB Serial Port", (), there)
            return
        product, kind, group, service, name = self.random.choice(self.catalogue.kinds)
        device = f"USB\\{product}\\{serial}"
        if kind == "port":
            self.add_port(device, group, service, name, place, there)
            return
        below = f"7&{self.hash()}&0"
        self.add(device, self.values(device, group, service, name, place + [f'"ParentIdPrefix"={text(below)}']), (), there)
        for function, (_, what, group, service, name) in self.catalogue.functions[product]:
            part = f"USB\\{product}{function}\\{below}&00{function[-2:]}"
            if what in ("port", "modem"):
                self.add_port(part, group, service, name, (), there)
            elif group in CLASSES:
                self.add(part, self.values(part, group, service, name), (), there)

    def add_ballast(self):
        bus, pattern, group, service, name = self.random.choice(BALLAST)
        kind = pattern.format(self.random.randrange(0x1000, 0xFFFF), self.random.randrange(0x1000, 0xFFFF),
                              self.random.randrange(9)) if bus != "ACPI" else pattern.format(self.random.randrange(256))
        device = f"{bus}\\{kind}\\{self.random.randrange(2, 6)}&{self.hash()}&0&{self.random.randrange(256):02X}"
        self.add(device, self.values(device, group, service, name,
                                     [multi("CompatibleIDs", [f"{bus}\\CC_{i:04X}" for i in range(4)])]),
                 [f'"MSISupported"={number(1)}'])
        for part in ("WDF", "Interrupt Management", "Interrupt Management\\Affinity Policy"):
            self.blocks.append((f"{ENUM}\\{device}\\Device Parameters\\{part}", [f'"Default"={number(1)}']))

    def export(self, branch):
        blocks = [block for name, block in self.board.blocks if name.lower().startswith(branch.lower())]
        own = sorted((block for block in self.blocks if block[0].startswith(branch)), key=lambda block: block[0].upper())
        blocks += ["\r\n".join([f"[{name}]"] + lines) for name, lines in own]
        if branch == CONTROL:
            # Numbers of devices that are long gone stay taken.
            taken = self.numbers | set(self.random.sample(range(3, 40), self.random.randrange(4)))
            bits = bytearray(32)
            for com in taken:
                bits[(com - 1) // 8] |= 1 << (com - 1) % 8
            blocks.append(f"[{CONTROL}\\COM Name Arbiter]\r\n" + hexed("ComDB", "hex", bytes(bits)))
        return ("Windows Registry Editor Version 5.00\r\n\r\n" + "\r\n\r\n".join(blocks) + "\r\n\r\n").encode("utf-16")

    def write(self, folder):
        folder.mkdir(parents=True)
        exports = {"Enum.reg": ENUM, "Control.reg": CONTROL, "Services.reg": SERVICES}
        for file, branch in exports.items():
            (folder / file).write_bytes(self.export(branch))
        listing = "Microsoft PnP Utility\r\n\r\n" + "".join(
            f"Instance ID:                {device}\r\nStatus:                     Started\r\n\r\n" for device in self.connected)
        (folder / "connected.txt").write_bytes(listing.encode("cp1252"))
        uptime = self.random.randrange(60, 40 * 24 * 3600)
        (folder / "machine.toml").write_text(
            f'title = "{self.name}, {self.windows}"\nregistry = ["Enum.reg", "Control.reg", "Services.reg"]\n'
            f'connected = "connected.txt"\n\n[windows]\nversion = "{self.version}"\ncomputer = "{self.name}"\n'
            f'uptime = "{uptime}s"\n')


def cut_export(folder, chance):
    """In the middle of a line and of a character, as a copy that broke off leaves it."""
    data = (folder / "Enum.reg").read_bytes()
    at = data.rindex("hex(7):".encode("utf-16-le"), 0, chance.randrange(len(data) // 2, len(data)) & ~1)
    (folder / "Enum.reg").write_bytes(data[:at + 15])


def missing_export(folder, _):
    (folder / "Control.reg").unlink()


def wrong_description(folder, _):
    with open(folder / "machine.toml", "a") as file:
        file.write('colour = "red"\n')


def endless(folder, _):
    with open(folder / "machine.toml", "a") as file:
        for second in range(20000):
            file.write(f'[[event]]\nat = "{second + 1}s"\ndevnodes_changed = 10000\n')


def planted(fault):
    """A port that fleet.ini has a rule for."""
    def plant(folder, _):
        device, driver = f"ACPI\\PNP0501\\PLANTED_{fault}", f"{CLASSES['Ports']}\\0099"
        block = "\r\n".join([f"[{ENUM}\\{device}]", '"Service"="Serial"', f'"ClassGUID"={text(CLASSES["Ports"])}',
                             f'"Driver"={text(driver)}', "", f"[{ENUM}\\{device}\\Device Parameters]", '"PortName"="COM77"'])
        with open(folder / "Enum.reg", "ab") as file:
            file.write((block + "\r\n\r\n").encode("utf-16-le"))
        with open(folder / "connected.txt", "ab") as file:
            file.write(f"Instance ID:                {device}\r\n".encode("cp1252"))
    plant.__name__ = fault
    return plant


FAULTS = [cut_export, missing_export, wrong_description, endless, planted("crash"), planted("unmodelled")]


def names(first, last):
    return ",".join(f"COM{com}" for com in range(first, last + 1))


def write_rules(out, catalogue):
    rules = ["; Rules for the whole fleet: a block of numbers for each make.", "", "[Settings]", "WriteLogFile=0", "",
             "[ComPorts10]", r"DeviceID=FTDIBUS\VID_0403+PID_6001+*", "PortNames=" + names(20, 39), ""]
    vendors = sorted({row[0][:8] for row in catalogue.kinds})
    for i, vendor in enumerate(vendors[:12]):
        rules += [f"[ComPorts{11 + i}]", f"DeviceID=USB\\{vendor}&*", "PortNames=" + names(40 + 10 * i, 49 + 10 * i), ""]
    rules += ["[ComPorts90]", r"DeviceID=USB\VID_FFFF&PID_0000\*", "PortName=COM200", "",
              "[ComPorts91]", r"DeviceID=ACPI\PNP0501\PLANTED_*", "PortName=COM201", ""]
    (out / "fleet.ini").write_text("\r\n".join(rules), newline="")
    (out / "former.ini").write_text("\r\n".join(rules).replace(names(20, 39), names(10, 19)), newline="")


def main():
    line = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    line.add_argument("tool")
    line.add_argument("out", type=pathlib.Path)
    line.add_argument("count", type=int)
    line.add_argument("--seed", type=int, default=1)
    line.add_argument("--broken", type=int, default=0)
    line.add_argument("--boards", type=pathlib.Path, nargs=2,
                      default=[EXAMPLES / "rack/rack.reg", EXAMPLES / "till/till.reg"])
    given = line.parse_args()
    catalogue = Catalogue(given.tool)
    boards = [Board(path) for path in given.boards]
    given.out.mkdir(parents=True)
    write_rules(given.out, catalogue)
    broken = []
    for index in range(1, given.count + 1):
        folder = given.out / "machines" / f"PC{index:05}"
        Machine(index, given.seed, catalogue, boards).write(folder)
        if given.broken and index % given.broken == given.broken // 2:
            fault = FAULTS[index // given.broken % len(FAULTS)]
            fault(folder, random.Random(f"{given.seed}/{index}/broken"))
            broken.append(f"{folder.name} {fault.__name__}\n")
    (given.out / "broken.txt").write_text("".join(broken))


if __name__ == "__main__":
    main()
