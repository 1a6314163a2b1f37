// What the balloon of a port says: one device is named once, its ports are listed, and the whole is a command line that
// the child process reads back in whole tokens.
// Thread: a callback timer's. No lock: records are read while the engine may change them, as everywhere.
#pragma once

#include "platform/win32.h"

struct CComPort;

// The timers that end in a balloon. One id for each direction: of a burst of events the last one speaks for all.
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

// A timer's procedure: composes the balloon and starts the child process that shows it. id: one of the two above.
// portIndex: of the port whose event it was. Nobody waits for the child.
void ShowBalloonForPort_TimerProc(DWORD id, ULONG_PTR portIndex);

// Composes the balloon of a timer. id: one of the two above; the direction. port: of the event; its friendly name is
// filled in if it has none. *balloon is only written when a balloon is due.
// Returns: whether one is due; the log says why not.
bool ComposePortBalloon(DWORD id, CComPort* port, PortBalloon* balloon);

// Writes the child's parameters. listStart: where the list of ports begins in balloon->Text. What would bring the
// child's whole command line to 512 characters is cut: the list at a comma, then the title.
void BuildBalloonParameters(PortBalloon* balloon, size_t listStart);
