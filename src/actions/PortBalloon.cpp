#include "actions/PortBalloon.h"

#include "actions/ProcessCreation.h"
#include "config/CSettings.h"
#include "inventory/devices/DeviceProperties.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/FriendlyName.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"
#include "support/texts/NumberTools.h"
#include "support/texts/QuickSort.h"
#include "support/texts/StringTools.h"

constexpr DWORD MinStayMs = 5000;      // a device that leaves sooner is not reported as removed
constexpr DWORD SameArrivalMs = 30000; // ports of one device that arrived within it are listed together
constexpr DWORD SameRemovalMs = 5000;  // the same for ports that left
constexpr LONG ShowTimePerPortMs = 500;
constexpr size_t DevicePathPrefix = 4; // "\\?\"
constexpr size_t MaxChildLine = 511;   // the child ignores a command line of 512 characters or more
constexpr size_t QuoteChars = 2;       // the child counts the quotes when it cuts a value
constexpr size_t MaxTitleChars = 119 - QuoteChars;
constexpr size_t MaxTextChars = 255 - QuoteChars;
constexpr DWORD NoBalloonTick = 0;
constexpr char ParameterFormat[] = "-balloon -bt=%u -time=%i -title=\"%s\" -text=\"%s\" -icon=%i";

namespace {
struct ListedPorts {
    const CComPort* Ports[MaxSame];
    LONG Count;
};
} // namespace

// A quote in a device's name must not end the value: what follows it would become options of the child.
static void MakeQuotable(char* text) {
    for (char* at = text; *at != 0; ++at) {
        if (*at == '"') {
            *at = '\'';
        } else if (static_cast<BYTE>(*at) < ' ' || *at == 0x7F) {
            *at = ' ';
        }
    }
}

static void EnsureFriendlyName(CComPort* port) {
    if (port->FriendlyName[0] != 0) {
        return;
    }
    if (!ReadDeviceText(port->DevInst, CM_DRP_FRIENDLYNAME, port->FriendlyName)) {
        CopyText(port->FriendlyNameNoCom, "NoName Device");
        return;
    }
    CopyText(port->FriendlyNameNoCom, port->FriendlyName);
    StripComFromFriendlyName(port->FriendlyNameNoCom);
    WriteLog(3, "got friendlyname from reg: '%s' '%s'", port->FriendlyName, port->FriendlyNameNoCom);
}

static void LogGroup(const CComPort* port) {
    WriteLog(4, "P->SameParentCount=%u", static_cast<DWORD>(port->SameParentCount));
    const DWORD now = GetTickCount();
    for (LONG i = 0; i < port->SameParentCount; ++i) {
        const CComPort* member = g_pComPorts->Ports[port->Same[i]];
        if (member != nullptr) {
            WriteLog(4, " Same[%i] port=%s present=%u age=%u agerem=%-9u chdone=%i", i, member->szRegPortName,
                     member->IsPresent, now - member->ArrivalTicker, now - member->RemovalTicker,
                     static_cast<LONG>(member->PortChangeDone));
        }
    }
}

static bool CameTogether(const CComPort* port, const CComPort* member) {
    const DWORD difference = TickDifference(member->ArrivalTicker, port->ArrivalTicker);
    WriteLog(4, "td=%u   %u %u", difference, member->ArrivalTicker, port->ArrivalTicker);
    if (difference >= SameArrivalMs || TextLength(member->DevPath) < DevicePathPrefix) {
        return false;
    }
    char target[DosTargetSize];
    if (!QueryDosName(member->DevPath + DevicePathPrefix, target)) {
        WriteLog(4, "qdd err=%s -> skip", LastErrorName());
        return false;
    }
    WriteLog(4, "%s added", member->szRegPortName);
    return true;
}

static bool IsListed(DWORD id, const CComPort* port, const CComPort* member) {
    const bool isArrival = id == ArrivalBalloonTimerId;
    if (!member->PortChangeDone || (member->IsPresent != 0) != isArrival) {
        return false;
    }
    return isArrival ? CameTogether(port, member) : GetTickCount() - member->RemovalTicker < SameRemovalMs;
}

static void FindListedPorts(DWORD id, const CComPort* port, ListedPorts* listed) {
    WriteLog(4, "building port list out of %u ports...", static_cast<DWORD>(port->SameParentCount));
    for (LONG i = 0; i < port->SameParentCount && i < MaxSame; ++i) {
        const CComPort* member = g_pComPorts->Ports[port->Same[i]];
        if (member == nullptr) {
            continue;
        }
        WriteLog(4, "P[%i] %s   pcd=%i pr=%i", member->Index, member->szPortName,
                 static_cast<LONG>(member->PortChangeDone), static_cast<LONG>(member->IsPresent));
        if (IsListed(id, port, member)) {
            listed->Ports[listed->Count++] = member;
        }
    }
    QuickSort(static_cast<void*>(listed->Ports), static_cast<size_t>(listed->Count),
              sizeof(void*), // the elements are pointers
              ComparePortsByPosition);
}

static const char* NameInList(const CComPort* port) {
    return port->szRegPortName[0] != 0 ? port->szRegPortName : "???";
}

// Appends the ports that came or left together and sets their common name as title. Returns: their number.
static LONG NameGroup(DWORD id, const CComPort* port, PortBalloon* balloon) {
    ListedPorts listed = {};
    FindListedPorts(id, port, &listed);
    const char* names[MaxSame] = {};
    for (LONG i = 0; i < listed.Count; ++i) {
        const char* separator = i == 0 ? "" : ", ";
        const char* name = NameInList(listed.Ports[i]);
        names[i] = listed.Ports[i]->FriendlyNameNoCom;
        // A name that does not fit is left out whole, as are all after it: half a name is another port's.
        if (TextLength(balloon->Text) + TextLength(separator) + TextLength(name) <= MaxTextChars) {
            AppendText(balloon->Text, separator);
            AppendText(balloon->Text, name);
        }
    }
    GetCommonPart(names, static_cast<DWORD>(listed.Count), balloon->Title, sizeof(balloon->Title));
    if (balloon->Title[0] == 0) {
        FormatText(balloon->Title, "%s Device", port->BusTypeName);
    }
    return listed.Count;
}

bool ComposePortBalloon(DWORD id, CComPort* port, PortBalloon* balloon) {
    WriteLog(1, "ShowBalloonForPort_TimerProc(%s, %u, '%s', '%s', %u)",
             id == ArrivalBalloonTimerId ? "arrival" : "removal", static_cast<DWORD>(port->Index), port->szRegPortName,
             port->FriendlyName, port->IsPresent);
    if (port->SameParentCount == 0) {
        WriteLog(1, "P->SameParentCount == 0 -> abort");
        return false;
    }
    if (!port->PortChangeDone) {
        WriteLog(1, "P->PortChangeDone == 0 -> abort");
        return false;
    }
    EnsureFriendlyName(port);
    PortBalloon made = {};
    made.Icon = PortPresentIcon;
    const bool isPresent = port->IsPresent != 0;
    if (!isPresent) {
        const DWORD stayMs = GetTickCount() - port->ArrivalTicker;
        if (stayMs < MinStayMs) {
            WriteLog(2, "device is gone even arrived %u ms before -> no balloon", stayMs);
            return false;
        }
        CopyText(made.Text, g_pSettings->TextRemoved);
        AppendText(made.Text, ": ");
        made.Icon = PortGoneIcon;
    }
    const size_t listStart = TextLength(made.Text);
    LogGroup(port);
    LONG namedPorts = 1;
    if (port->SameParentCount == 1) {
        CopyText(made.Title, port->FriendlyNameNoCom);
        AppendText(made.Text, NameInList(port));
    } else {
        namedPorts = NameGroup(id, port, &made);
    }
    if (made.Text[0] == 0) {
        WriteLog(1, "oops, no text -> no balloon");
        return false;
    }
    made.ShowTime = (isPresent ? g_pSettings->Timeout : g_pSettings->TimeoutOnRemoval) + ShowTimePerPortMs * namedPorts;
    BuildBalloonParameters(&made, listStart);
    *balloon = made;
    return true;
}

// The number of characters that the program's name and the following blank take of the child's command line.
static size_t ProgramChars() {
    const bool isQuoted = StrChrA(szExePath, ' ') != nullptr;
    return TextLength(szExePath) + (isQuoted ? QuoteChars : 0) + 1;
}

static void CutText(char* text, size_t maxChars) {
    if (TextLength(text) > maxChars) {
        text[maxChars] = 0;
    }
}

// Cuts the list at a comma as often as needed. Keeps its first port.
static void CutList(char* text, size_t listStart, size_t maxChars) {
    while (TextLength(text) > maxChars) {
        char* comma = StrRChrA(text + listStart, nullptr, ',');
        if (comma == nullptr) {
            return;
        }
        *comma = 0;
    }
}

void BuildBalloonParameters(PortBalloon* balloon, size_t listStart) {
    MakeQuotable(balloon->Title);
    MakeQuotable(balloon->Text);
    CutText(balloon->Title, MaxTitleChars);
    CutList(balloon->Text, listStart, MaxTextChars);
    CutText(balloon->Text, MaxTextChars);
    const size_t fixedChars = ProgramChars() + FormatText(balloon->Parameters, ParameterFormat, NoBalloonTick,
                                                          balloon->ShowTime, "", "", balloon->Icon);
    const size_t room = fixedChars < MaxChildLine ? MaxChildLine - fixedChars : 0;
    const size_t titleChars = TextLength(balloon->Title);
    CutList(balloon->Text, listStart, room > titleChars ? room - titleChars : 0);
    const size_t textChars = TextLength(balloon->Text);
    CutText(balloon->Title, room > textChars ? room - textChars : 0);
    CutText(balloon->Text, room);
    FormatText(balloon->Parameters, ParameterFormat, NoBalloonTick, balloon->ShowTime, balloon->Title, balloon->Text,
               balloon->Icon);
}

void ShowBalloonForPort_TimerProc(DWORD id, ULONG_PTR portIndex) {
    PortBalloon balloon;
    if (ComposePortBalloon(id, g_pComPorts->Ports[portIndex], &balloon)) {
        (void)CreateProcessEx(szExePath, balloon.Parameters, /*dir=*/"", SW_HIDE, NormalPriority, UserType::normal,
                              /*phProcess=*/nullptr);
    }
}
