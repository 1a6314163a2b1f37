// The balloon's window: a borderless top-most popup beside the task bar, which takes no focus and closes by time, by a
// click, or when a newer balloon wants its place.
// Thread: FreeBalloon_Init and FreeBalloon_Exit on the first thread; the rest on the balloon thread. Locks: none held
// by the caller.
#pragma once

#include "platform/win32.h"

// Makes the lock, reads the style keys and the colours. Before any other operation of a balloon. instance: of the
// program.
void FreeBalloon_Init(HINSTANCE instance);

// Deletes the lock, unless a thread of the balloon still runs: what it can reach is left to the end of the process.
void FreeBalloon_Exit();

// Sends an older balloon away, makes the window and shows it. After a failure there is no window, or one that is never
// shown; the waits for the balloon thread end the process then. Blocks for 500 ms while an older balloon stands.
void ShowBalloonNow();

// Whether a message of the balloon thread is to be dispatched: no timer but the close timer runs code on it.
bool IsBalloonMessage(const MSG& message);

// The thread that follows the task bar; the window waits for its end when it closes. Takes the handle over.
void SetTrackingThread(HANDLE thread);
