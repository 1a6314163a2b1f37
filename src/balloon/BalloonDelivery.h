// Takes a balloon from the command line of its child process to the window and its end. Threads: the parsing thread,
// for which WinMain waits, itself waits for the balloon thread; UpdateBalloon also runs on the pipe's thread. Locks:
// CS_BalloonData around each change of the record.
#pragma once

#include "balloon/FreeBalloonInfo.h"
#include "platform/win32.h"

// Body of the parsing thread: shows what this process's command line requests, until the balloon has closed.
DWORD WINAPI ShowBalloonByCommandLine_ThreadProc(void* param);

// Shows a balloon next to the task bar. showTimeMs: below 0 counts as 0. text2 may be empty. Returns: 1. Blocks until
// the balloon has closed, or for three times the show time, 30 seconds at least.
int ShowFreeBalloonAtSysTray(LONG showTimeMs, LONG charSet, const char* title, const char* text1, const char* text2,
                             LONG icon);

// Passes the record to the visible balloon, or starts one and waits as above. Returns: 1.
int ShowFreeBalloonThreaded(const FreeBalloonInfo& record);

// Adopts a new record and makes the window show it. Any thread. Does not wait for the window.
void UpdateBalloon(const FreeBalloonInfo& record);
