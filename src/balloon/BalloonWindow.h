// The balloon's window: a borderless top-most popup next to the task bar, which takes no focus and closes after a time,
// on a click, or when a newer balloon wants its place.
// Thread: FreeBalloon_Init and FreeBalloon_Exit on the first thread; the rest on the balloon thread. Locks: none held
// by the caller.
#pragma once

#include "platform/win32.h"

// Creates the lock, reads the style keys and the colours. Before any other operation of a balloon. instance: of the
// program. program.
void FreeBalloon_Init(HINSTANCE instance);

// Deletes the lock, unless a thread of the balloon still runs: what it can reach is kept until the process ends.
void FreeBalloon_Exit();

// Closes an older balloon, creates the window and shows it. After a failure there is no window, or one that is never
// shown; the waits for the balloon thread then end the process. Blocks for 500 ms while an older balloon is up.
void ShowBalloonNow();

// Whether to dispatch a message of the balloon thread: no timer but the close timer runs code on it.
bool IsBalloonMessage(const MSG& message);

// The thread that follows the task bar; the window waits for its end when it closes. Takes ownership of the handle.
void SetTrackingThread(HANDLE thread);
