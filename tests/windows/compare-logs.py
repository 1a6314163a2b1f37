"""Compares the logs of one debug run on the simulated machine and under Wine: compare.py SIMULATED WINE.

Times, handles, node numbers and paths of the installation are made equal. What else may differ is listed below with its
reason; any other line that differs fails, and so does a known difference that no longer shows.
"""
import difflib
import re
import sys

EQUAL = [
    (r"^\S+ \( *\d+\) \{\d+\} ", ""),  # time, milliseconds since the line before, thread
    (r"0x[0-9A-F]{16}", "HANDLE"),
    (r"PerformComPortPropertyChange\(\d+", "PerformComPortPropertyChange(NODE"),
    (r"g_hwndMain=\d+", "g_hwndMain=WINDOW"),
    (r"^(<\d> (?:AddPort|UpdatePort)\(\d+), \d+,", r"\1, NODE,"),
    (r"\b(IsDevicePresent|GetDeviceArrivalTicker|CM_\w+_DevNode)\(\d+", r"\1(NODE"),
    (r" dev=\d+", " dev=NODE"),
    (r"(Ticker|Tick|time|Diff)=\d+", r"\1=TIME"),
    (r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}", "MOMENT"),
    (r"C:\\[^,']*\\(Bed|bed)\\?", "FOLDER\\\\"),
    (r"C:\\Program Files\\Quillmarch\\?", "FOLDER\\\\"),
    (r"FOLDER\\(Bed|Quillmarch)\.", r"FOLDER\\PROGRAM."),
]
# What the two machines are: accounts, versions, the other names of the object manager.
LEFT_OUT = (r"^<\d> (ddn\d+=|Date=|Path=|LogFile=|CmdLine=|CurDir=|TickCount=|Quillmarch\.EXE |sid=|UAC=|OS version="
            r"|userbytoken=|user=|NetUserGetLocalGroups\(|SetCurrentUserInfo\(\): )")
# Known differences: what is made equal, None leaves the line out, and why.
KNOWN = [
    (r"kndp='[^']*'", "kndp=''", "Wine has no DOS names of interface paths"),
    (r"(Control\\Class\\)(\{[-0-9a-f]+\}\\\d{4})?", r"\1", "the planted devices have no driver key"),
    (r"^<1> (SetupDiCallClassInstaller\(DIF_PROPERTYCHANGE\)\.\.\.| res=[01]| err=(0xE0000203|INSUFFICIENT_BUFFER))$", None,
     "Wine refuses the property change one call before the class installer, which refuses it on the simulated machine"),
    (r"^<\d> (CService::Run -> after ServiceMsgLoop|KillAllCallbackTimers\(\)|CCfgReader::~CCfgReader\(\)"
     r"|CCfgReader::DeleteSnapshot\(destructor\)|<-+ /Quillmarch WinMain -+)$", None,
     "nobody closes the window of the debug run on the simulated machine"),
    (r"^<3> ( not WTSActive -> ignore| WTSQuerySessionInformation err=ok|session\(\d+\) state=\w+)$", None,
     "Wine has no sessions to ask"),
]


def read(path, used):
    lines = []
    for line in open(path, encoding="latin-1"):
        line = line.rstrip("\r\n")
        for pattern, replacement in EQUAL:
            line = re.sub(pattern, replacement, line)
        line = re.sub(r"\{[-0-9A-Fa-f]{36}\}", lambda match: match.group().lower(), line)
        if re.match(LEFT_OUT, line):
            continue
        for index, (pattern, replacement, _) in enumerate(KNOWN):
            if line is not None and re.search(pattern, line):
                used.setdefault(index, set()).add(re.search(pattern, line).group())
                line = None if replacement is None else re.sub(pattern, replacement, line)
        if line is not None:
            lines.append(line)
    return lines


used_simulated, used_wine = {}, {}
simulated, wine = read(sys.argv[1], used_simulated), read(sys.argv[2], used_wine)
faults = [line for line in difflib.unified_diff(simulated, wine, "simulated", "wine", lineterm="", n=0)
          if not line.startswith(("---", "+++", "@@"))]
different = len(faults)
for index, (_, _, why) in enumerate(KNOWN):
    if used_simulated.get(index) == used_wine.get(index):
        faults.append(f"no longer different: {why}")
    else:
        print(f"logs differ: {why}")
if len(wine) < 200:
    faults.append(f"the log of Wine has {len(wine)} lines only")
for fault in faults:
    print("logs:", fault, file=sys.stderr)
print(f"logs of the debug run: {len(simulated)} lines of the simulated machine, {len(wine)} of Wine, {different} different, "
      f"{len(KNOWN)} known reasons")
sys.exit(1 if faults else 0)
