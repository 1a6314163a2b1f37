// The way of a balloon from the command line of its child process to the window and its end.
// Threads: the parsing thread, on which WinMain waits, waits itself for the balloon thread; UpdateBalloon also runs on
// the pipe's thread. Locks: CS_BalloonData around each change of the record.
#pragma once

#include "balloon/FreeBalloonInfo.h"
#include "platform/win32.h"

// What the parsing thread does: shows what this process's command line asks for, until the balloon has gone.
DWORD WINAPI ShowBalloonByCommandLine_ThreadProc(void* param);

// Shows a balloon beside the task bar. showTimeMs: below 0 counts as 0. text2 may be empty. Returns: 1. Blocks until
// the balloon has gone, or for three times the show time, 30 seconds at least.
int ShowFreeBalloonAtSysTray(LONG showTimeMs, LONG charSet, const char* title, const char* text1, const char* text2,
                             LONG icon);

// Gives the balloon that is up the record, or else starts one and waits as above. Returns: 1.
int ShowFreeBalloonThreaded(const FreeBalloonInfo& record);

// Takes a new record over and lets the window show it. Any thread. Does not wait for the window.
void UpdateBalloon(const FreeBalloonInfo& record);
