#!/usr/bin/env python3
"""Faulty configurations, each with the one line that --rules prints for it; good ones without any; the catalogue in
the documents; rules against machines, and two configurations compared. Usage: rules.py TOOL"""
import json
import os
import re
import subprocess
import sys
import tempfile

TOOL = os.path.abspath(sys.argv[1])
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")

S = "[Settings]\n"
P = "[ComPorts1]\n"
G = "BusType=USB\nPortName=COM5\n"  # makes the section above it good
A = "[OnArrival]\nBusType=USB\nopen1=x.exe\n"
REG = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarn Holve\\Quillmarch\\ComPorts1]\n"
REG += '"DeviceID"="FTDIBUS\\\\*"\n"Class"=dword:00000004\n"PortName"="COM5"\n'
R = "[BalloonTips]\nEnabled=1\n[OnRemoval]\nBusType=USB\nopen1=x.exe\n"

# A text, and LINE:COLUMN: what is printed; after dots, one line among others.
FAULTY = [
    (S + ";" * 0x100000, "1:1: QM101 the file has 1 MiB or more: no section counts"),
    ("\ufeff[ComPorts1]\n" + G, "1:1: QM102 the UTF-8 mark loses the section [ComPorts1]; save as ANSI, or as UTF-16 with a mark"),
    (P + "FriendlyName=*M\u00fcller*\nPortName=COM5\n", "2:14: QM103 '*M\u00fcller*' is UTF-8, the product reads '*M\u00c3\u00bcller*'; save as ANSI, or as UTF-16 with a mark"),
    ((P + "FriendlyName=\u0416\nPortName=COM5\n").encode("utf-16"), "2:14: QM104 a character that the ANSI code page lacks is read as '?'"),
    (("; plain\n" + S).encode("utf-16-le"), "1:2: QM105 the line ends at a zero byte; save as ANSI, or as UTF-16 with a mark"),
    (P + "IRQ=1\n" * 301, "... 302:1: QM106 [ComPorts1] has more than 300 keys: reading ends here, all that follows is lost"),
    (P + G + "  PortName2=COM6\n", "4:1: QM107 'PortName2=COM6' is indented and does not count; begin in the first column"),
    (P + G + " [ComPorts2]\n", "4:1: QM107 '[ComPorts2]' is indented and does not count; begin in the first column; the keys below it go to [ComPorts1]"),
    (P + G + "// the scale\n", "4:1: QM108 '// the scale' does not count; a comment begins with ';'"),
    (P + G + "PortName2 COM6\n", "4:1: QM108 'PortName2 COM6' has no '=' and does not count; a comment begins with ';'"),
    ("LogLevel=3\n" + S, "1:1: QM109 'LogLevel=3' stands before the first section and does not count"),
    ("[Settings] ; main\n", "1:1: QM110 '[Settings] ; main' is no section, with text after the ']'; write [Settings] alone; the keys below it do not count"),
    (P + G + "[ComPorts2\n", "4:1: QM110 '[ComPorts2' is no section, it lacks the ']'; the keys below it go to [ComPorts1]"),
    (P + G + "[ComPorts2 of the workshop upstairs]\n", "4:1: QM110 '[ComPorts2 of the workshop upstairs]' is no section, it has more than 31 characters; the keys below it go to [ComPorts1]"),
    (P + "DeviceID=FTDIBUS\\* ; scale\nPortName=COM5\n", "2:10: QM111 '; scale' belongs to the value of DeviceID; give the comment a line of its own"),
    (S + "MaxPortNumber=\t64\n", "2:15: QM112 a tab precedes the value: MaxPortNumber is read as 0; use blanks, or nothing"),
    (P + 'DeviceID="FTDIBUS\\*"\nPortName=COM5\n', "2:10: QM113 the quotes belong to the value of DeviceID, which no port fits; leave them out"),
    ("[ComPort1]\n" + G, "1:2: QM201 no section has the name [ComPort1], its keys do not count; did you mean [ComPorts1]?"),
    (P + G + "[ComPorts01]\n" + G, "4:2: QM202 [ComPorts01] is [ComPorts1] of line 1 again, its keys do not count; join the two"),
    ("[ComPorts101]\n" + G, "1:2: QM203 [ComPorts101] is above 99, its keys do not count; numbers are 1 to 99"),
    ("[ComPorts100]\n" + G, "1:2: QM203 [ComPorts100] is [ComPorts], the section that is tried last; numbers are 1 to 99"),
    ("[ComPorts0]\n" + G, "1:2: QM204 [ComPorts0] is never tried; numbers are 1 to 99"),
    ("[Settings1]\nMaxPortNumber=9\n", "1:2: QM204 nobody reads [Settings1]; write [Settings]"),
    ("[OnRemovalRequest]\nBusType=USB\nopen1=x.exe\n", "1:2: QM204 no event runs [OnRemovalRequest]; OnRemoval runs"),
    ("[ComPorts1x]\n" + G, "1:2: QM205 [ComPorts1x] is read as [ComPorts1]; write [ComPorts1]"),
    (P + "PortNmae2=COM6\n" + G, "2:1: QM211 [ComPorts1] has no key PortNmae2; did you mean PortName2?"),
    (P + "PortName10=COM6\n" + G, "2:1: QM211 [ComPorts1] has no key PortName10; PortName takes no number, or one digit from 1 to 9"),
    (P + "MaxPortNumber=9\n" + G, "2:1: QM211 [ComPorts1] has no key MaxPortNumber; it belongs into [Settings]"),
    (P + G + "PORTNAME=COM6\n", "4:1: QM212 PORTNAME is in line 3 already, this one counts; remove one"),
    (S + "LogLevel=1\nLogLevel=4\n", "3:1: QM212 LogLevel is in line 2 already, that one counts; remove one"),
    (A + "md51=9e107d9d372bb6826bd81d3542a419d6\n", "4:1: QM213 md51 is read and logged, without any effect; remove it"),
    (A + "delay2=5s\n", "4:1: QM214 delay2 is not read, there is no open2; add open2, or mind the digit"),
    (S + "CheckPortsOnResume=on\n", "2:20: QM301 CheckPortsOnResume=on is read as 0, so off; write 1"),
    (S + 'MaxPortNumber="128"\n', "2:15: QM301 MaxPortNumber=\"128\" is read as 0; write it without quotes"),
    (S + "WaitNoPendingInstallEventsOnInit=+5\n", "2:34: QM301 WaitNoPendingInstallEventsOnInit=+5 is read as 0; write it without the plus sign"),
    (S + "MaxPortNumber=0x40\n", "2:15: QM301 MaxPortNumber=0x40 is read as 0; write it in decimal"),
    ("[BalloonTips]\nTimeout=5s\n", "2:9: QM301 Timeout=5s is read as 5; write digits alone"),
    (S + "MaxPortNumber=4294967297\n", "2:15: QM301 MaxPortNumber=4294967297 is too large and is read as 1"),
    ("[BalloonTips]\nBackColor=#203040\n", "2:11: QM301 BackColor=#203040 is no number that the product reads; 0xRRGGBB, such as 0xFFFFFF"),
    ("[BalloonTips]\nTimeout=500\n", "2:9: QM302 Timeout=500 counts as 1000; 1000 to 60000"),
    (S + "RemoteSessions=3\n", "2:16: QM302 RemoteSessions=3: programs and balloons go to nobody; 0, 1 or 2"),
    ("[BalloonTips]\nTextRemoved=" + "x" * 64 + "\n", "2:13: QM303 TextRemoved has 64 characters, more than 63: it counts as absent; shorten it"),
    (A + "delay1=500ms\n", "4:8: QM304 delay1=500ms is read as 30000000 ms; write 500"),
    (A + "wait1=2h30m\n", "4:7: QM304 wait1=2h30m is read as 7200000 ms; a number, or a number with s, m, h or d"),
    (A + "wait1=100d\n", "4:7: QM304 wait1=100d is read as 50065408 ms; 0 to one day"),
    (P + "BusType=USB\nPortNames=COM51 - COM54\n", "3:11: QM305 PortNames=COM51 - COM54: a range is not known, only the names that stand there count; name each: COM51,COM52,COM53,COM54"),
    (P + G + "PortNames=COM7,8\n", "4:11: QM305 PortNames=COM7,8: 8 is passed over, COM is missing; write COM8"),
    (P + G + "PortName1=COM0\n", "4:11: QM305 PortName1=COM0: 'COM0' is no number that counts; COM1 to COM65536"),
    (P + "BusType=USB\nPortNames=" + ",".join(f"COM{i}" for i in range(1, 258)) + "\n", "3:11: QM306 [ComPorts1] wants 257 numbers, the first 256 count; want fewer"),
    (P + G + "PortName2=COM5\n", "4:11: QM307 [ComPorts1] wants COM5 twice; remove one"),
    (S + "ComNameArbiterClean=5..20\n", "2:21: QM308 ComNameArbiterClean=5..20: '5..20' is no number and no range; 5-20,30"),
    (A + "WindowStyle1=small\n", "4:14: QM309 WindowStyle1=small is shown as normal; min, max, hidden, noactivate or normal"),
    (S + "WriteLogfile=yes\n", "2:14: QM310 WriteLogfile=yes is off, only the first character counts; write 1"),
    (P + "DeviceID=\n" + G, "2:1: QM401 DeviceID is empty and counts as absent, [ComPorts1] fits more ports; give it a value, or remove it"),
    (P + "DeviceID=" + "x" * 260 + "\n" + G, "2:10: QM402 DeviceID has 260 characters, more than 259: the criterion counts as absent, [ComPorts1] fits more ports; put '*' in the place of a part"),
    ("[ComPorts]\nPortName=COM5\n", "1:2: QM403 [ComPorts] has no criterion and fits no port; say which ports it means"),
    (P + "BusType=USB\n", "1:2: QM404 [ComPorts1] wants no number that counts: its ports stay as they are; add PortName"),
    (P + G + "[ComPorts2]\nBusType=usb\nDeviceID=FTDIBUS\\*\nPortName=COM6\n", "4:2: QM405 [ComPorts2] never wins: [ComPorts1] of line 1 fits every port that it fits; give this one the lower number"),
    (P + G + "[ComPorts2]\nClass=Modem\nPortNames=COM6,COM5\n", "6:11: QM406 COM5 is wanted by [ComPorts1] of line 1 too; of two ports that are there at a time one will not get it"),
    (P + "DeviceID=USB\\VID_0403&PID_6001\nPortName=COM5\n", "2:10: QM407 no port fits DeviceID=USB\\VID_0403&PID_6001; a device's id has three parts, and the pattern means the whole of it: add \\*"),
    (P + "IoPort=0x3F8\nPortName=COM5\n", "2:8: QM407 no port fits IoPort=0x3F8; the value is a hexadecimal number without a prefix, such as 3F8"),
    ("[OnArrival]\nBusType=USB\n", "1:2: QM501 [OnArrival] has no entry and runs nothing; add open1"),
    (A + "force1=0\n", "4:1: QM502 force1 0: the entry never runs; remove the key"),
    (R + "delay1=2s\n", "6:1: QM503 delay1 in [OnRemoval]: the port has gone by then, the entry never runs; use afterdelay of the entry before it"),
    ("[OnRemoval]\nBusType=USB\nopen1=x.exe\n", "1:2: QM504 [OnRemoval] never runs: EnabledOnRemoval of [BalloonTips] is 0; write EnabledOnRemoval=1 below [BalloonTips]"),
    (A + "open2=y.exe %PortNumer% %UsbPort%\n", "4:13: QM505 no placeholder has the name %PortNumer%, the text stays; did you mean %PortNumber%?"),
    ((REG + '"PortNmae2"="COM6"\n').encode("utf-16"), "7:1: QM211 [ComPorts1] has no key PortNmae2; did you mean PortName2?"),
    (R + 'open2=y.exe "%PortName%"\n', "6:14: QM506 %PortName% is always empty in [OnRemoval]; %PortNumber% still is what it was"),
]
# Good, however odd: a value that says what it is read as is no fault.
GOOD = [
    "", "; a comment\n  ; an indented one\n\n" + S + "\tLogLevel=4 ; all of it\nMaxPortNumber=64 ; enough\nEventLog=0\nCheckPortsOnStartup=no\n",
    "\r\n".join(["[COMPORTS7]", "deviceid = FTDIBUS\\*", "FriendlyName=Modem #2", "PortName=COM7 ; the scale", "PortName2=", "PortNames=\"COM8, com9\""]),
    P + G + "[ComPorts2]\nClass=Modem\nPortName=COM6\n[ComPorts]\nDeviceID=USB\\*\nBusType=PCI\nPortName=COM9\n",
    A + "open=\"%ProgramFiles%\\x.exe\" /p:%20 100% \"%FRIENDLYNAME%\"\nwait1=2 min\nopen2=x.cmd %TEMP%\nWindowStyle2=Minimized\nrestricted2=1\n",
    (P + "FriendlyName=*M\u00fcller*\nPortName=COM5\n").encode("utf-16"), (P + "FriendlyName=*M\u00fcller*\nPortName=COM5\n").encode("cp1252"),
]


def run(*arguments):
    return subprocess.run([TOOL, *arguments], capture_output=True, check=False, encoding="utf-8")


def check(folder, text, expected):
    name = os.path.join(folder, "my.ini")
    with open(name, "wb") as file:
        file.write(text if isinstance(text, bytes) else text.encode())
    came = run("--rules", name)
    lines = came.stdout.splitlines()[:-1]
    if expected and expected[0].startswith("... "):
        lines, expected = lines[-1:], [expected[0][4:]]
    if lines != [f"{name}:{line}" for line in expected] or came.returncode != (1 if expected else 0):
        print(f"failed: {text[:200]!r}\n  expected: {expected}\n  came: {came.returncode} {came.stdout}{came.stderr}")
        return 1
    return 0


def example(name):
    return os.path.join(ROOT, "examples", name)


def expect(what, came, expected):
    if came != expected:
        print(f"failed: {what}\n  expected: {expected}\n  came: {came}")
    return came != expected


def check_machines(folder):
    """The product's own choice of a section is the table's on every example; each reason names one port."""
    failures = 0
    for name in ("desk", "till", "bench"):
        report = json.loads(run("--rules", example(name + ".ini"), example(name + ".toml"), "--json", "-").stdout)
        failures += expect(f"{name}: the product's choices", report["differences"], [])
        if name == "desk":
            failures += expect("who takes what", [(port["port"], port["section"], port["sections"]) for port in report["ports"]], DESK)
    name = os.path.join(folder, "idle.ini")
    with open(name, "w", encoding="ascii") as file:
        file.write("[ComPorts3]\nUsbPort=9-7-1\nBusType=USB\nPortName=COM9\n[ComPorts4]\nDeviceID=USB\\VID_0403&PID_6001\\AR*\nPortName=COM8\n")
    machine, export = os.path.join(folder, "registry.toml"), os.path.join(folder, "my.reg")
    with open(export, "w", encoding="ascii") as file:
        file.write(REG.replace('"Class"=dword:00000004\n', "").replace("ComPorts1", "OnRemoval7") + REG.split("\n\n")[1].replace('"Class"=dword:00000004\n', ""))
    with open(machine, "w", encoding="utf-8") as file:
        file.write(f"include = ['{example('desk.toml')}']\nregistry = ['{example('machines/desk/desk.reg')}', '{export}']\n")
    ports = json.loads(run("--rules", export, machine, "--json", "-").stdout)["ports"]
    failures += expect("an export of the rules, on its machine", [port["section"] for port in ports], ["", "[ComPorts1]", "[ComPorts1]"])
    failures += expect("a file for that machine", "--rules an export of it" in run("--rules", name, machine).stderr, True)
    actions = json.loads(run(machine, "--quiet", "--json", "-").stdout)["verdict"]["actions"]
    failures += expect("an action that ran for nothing", [(one["rule"], one["took"]) for one in actions], [("OnRemoval7", [])])
    came = run("--rules", name, example("desk.toml"), "--strict")
    crowd = run("--rules", example("till.ini"), example("till.toml")).stdout
    failures += expect("three ports and one number", "[ComPorts5] takes 3 ports (COM4, COM7, COM8) and wants 1 number: " in crowd, True)
    failures += expect("sections that fit nothing", (came.returncode, came.stdout[-len(IDLE):]), (1, IDLE))
    return failures


def compare(folder, old_text, new_text, machine, what):
    names = [os.path.join(folder, name) for name in ("old.ini", "new.ini")]
    for name, text in zip(names, (old_text, new_text)):
        with open(name, "w", encoding="cp1252") as file:
            file.write(text)
    came = run("--compare", names[0], "--ini", names[1], example(machine), "--strict", "--json", os.path.join(folder, "c.json"))
    with open(os.path.join(folder, "c.json"), encoding="utf-8") as file:
        report = json.load(file)
    touched = [(port["old"], port["new"], port["new_section"], port["named"]) for port in report["ports"] if port["touched"]]
    rules = [(rule["section"], rule["change"], rule["what"]) for rule in report["rules"]]
    return lambda *expected: expect(what, (came.returncode, rules, touched), expected)


def check_compare(folder):
    with open(example("rack.ini"), encoding="cp1252") as file:
        rack = file.read()
    with open(example("desk.ini"), encoding="cp1252") as file:
        desk = file.read()
    failures = compare(folder, rack, rack.replace("PortName=COM44\n", "PortName=COM200\n"), "rack.toml", "one rule of the rack")(
        0, [("[ComPorts15]", "changed", "PortName=COM44 -> COM200")], [("COM44", "COM200", "[ComPorts15]", True)])
    # The number of a port whose rule stays is taken by a new rule.
    failures += compare(folder, desk, desk + "[ComPorts5]\nBusType=ISA\nPortName=COM20\n", "desk.toml", "a port beside")(
        1, [("[ComPorts5]", "new", "")], BESIDE)
    failures += compare(folder, desk, desk + "[ComPorts9]\nDeviceID=FTDIBUS\\*\nPortName=COM20\n", "desk.toml", "a shadow")(
        0, [("[ComPorts9]", "new", "")] + [(f"[ComPorts{i}]", "shadowed", "by [ComPorts9]") for i in (10, 90)], SHADOW)
    return failures


DESK = [
    ("COM1", "", {"[ComPorts10]": "DeviceID", "[ComPorts90]": "DeviceID"}),
    ("COM3", "[ComPorts10]", {"[ComPorts10]": "takes it", "[ComPorts90]": "fits too"}),
    ("COM21", "[ComPorts90]", {"[ComPorts10]": "DeviceID", "[ComPorts90]": "takes it"}),
]
IDLE = "[ComPorts3] fits no port of this machine; nearest COM3: UsbPort is 3-7-1, not 9-7-1\n[ComPorts4] fits no port of this machine; nearest COM21: DeviceID is FTDIBUS\\VID_0403+PID_6001+AR0JFBPEA\\0000, not USB\\VID_0403&PID_6001\\AR*; did you mean ParentDeviceID?\n"
BESIDE = [("COM20", "COM3", "[ComPorts10]", False), ("COM1", "COM20", "[ComPorts5]", True)]
SHADOW = [("COM20", "COM3", "[ComPorts9]", True), ("COM21", "COM20", "[ComPorts9]", True)]


def main():
    failures = 0
    with tempfile.TemporaryDirectory() as folder:
        for text, line in FAULTY:
            failures += check(folder, text, [line] if line else [])
        for text in GOOD:
            failures += check(folder, text, [])
        failures += check_machines(folder) + check_compare(folder)
    shipped = [f"examples/{name}.ini" for name in ("bench", "desk", "rack", "till")] + ["src/resources/sample_eng.ini", "src/resources/sample_ger.ini"]
    for name in shipped:
        came = run("--rules", os.path.join(ROOT, name))
        if came.returncode != 0:
            failures += 1
            print("failed: a false alarm", came.stdout, came.stderr)
    catalogue = run("--print-findings").stdout
    with open(os.path.join(ROOT, "docs", "configuration.md"), encoding="utf-8") as file:
        if catalogue not in file.read():
            failures += 1
            print("failed: docs/configuration.md lacks the catalogue as --print-findings prints it")
    untested = set(re.findall(r"QM\d+", catalogue)) - set(re.findall(r"QM\d+", str(FAULTY)))
    if untested:
        failures += 1
        print("failed: no faulty file for", sorted(untested))
    if run("--rules", os.path.join(ROOT, "no-such.ini")).returncode != 2:
        failures += 1
        print("failed: the exit code of a file that is not there")
    return 1 if failures else 0


sys.exit(main())
