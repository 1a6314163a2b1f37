// Composes the balloon of a port: one device is named once, its ports are listed, and the result is a command line
// whose tokens the child process can read back.
// Thread: a callback timer's. No lock: records are read while the engine may change them, as elsewhere.
#pragma once

#include "platform/win32.h"

struct CComPort;

// The timers that end in a balloon. One id for each direction: the last event of a burst represents all.
constexpr DWORD ArrivalBalloonTimerId = 0xBABA0001;
constexpr DWORD RemovalBalloonTimerId = 0xBABA0000;
inline constexpr char BalloonTimerName[] = "ShowBalloonForPort";

// Icons by resource id.
constexpr LONG PortPresentIcon = 102;
constexpr LONG PortGoneIcon = 103;

struct PortBalloon {
    char Title[120];
    char Text[256];
    LONG ShowTime; // milliseconds
    LONG Icon;
    char Parameters[512]; // of the child, without the program's name
};

// Timer procedure: composes the balloon and starts the child process that shows it. id: one of the two above.
// portIndex: of the port whose event it was. Does not wait for the child.
void ShowBalloonForPort_TimerProc(DWORD id, ULONG_PTR portIndex);

// Composes the balloon of a timer. id: one of the two above; the direction. port: of the event; its friendly name is
// filled in if it has none. *balloon is only written when a balloon is due.
// Returns: whether one is due; if not, the reason is logged.
bool ComposePortBalloon(DWORD id, CComPort* port, PortBalloon* balloon);

// Writes the child's parameters. listStart: where the list of ports begins in balloon->Text. Keeps the child's whole
// command line below 512 characters: cuts the list at a comma, then the title.
void BuildBalloonParameters(PortBalloon* balloon, size_t listStart);
