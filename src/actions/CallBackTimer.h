// One-shot timers, the one way to defer work. Each is a thread of its own that waits for its delay and then calls the
// procedure, so a procedure may block as long as it likes. A timer has a numeric id and optionally a name; creating one
// with an id in use replaces the waiting timer.
// Thread: any, also a timer's own procedure. Locks: the table and record locks of this unit, held for the length of
// each operation and never while a procedure runs.
#pragma once

#include "platform/win32.h"

constexpr LONG MaxCallbackTimers = 100;

// Runs on the timer's own thread, with no lock held. The procedure frees what it owns through `context`; if a timer is
// killed its procedure does not run, and the context stays with the caller.
using CallbackTimerProc = void (*)(DWORD id, ULONG_PTR context);

// Called once at process start, before any timer.
void InitCallbackTimers();

// delayMs: from 1 on; below that, or with a null proc, a waiting timer with the id is killed and none is created.
// id: 0 picks one that no caller uses. name: below 24 characters, a longer one is cut; may be null. The text is
// copied.
// Returns: the id, or 0 when no timer was created (delay, no proc, 100 timers in use, no thread).
DWORD CreateCallbackTimer(LONG delayMs, DWORD id, ULONG_PTR context, CallbackTimerProc proc, const char* name);
DWORD CreateCallbackTimer(LONG delayMs, DWORD id, ULONG_PTR context, CallbackTimerProc proc);

// Signals the first live timer with the id, or with an id of 0 and a name the first with exactly that name. Never
// waits: a procedure that runs already runs to its end. Returns: 1 when one was signalled, else 0.
DWORD KillCallbackTimer(DWORD id);
DWORD KillCallbackTimer(DWORD id, const char* name);

// Signals every live timer. Returns: their number.
DWORD KillAllCallbackTimers();

// The end of the process: kills all timers and, if there were any, gives their threads one second. Records and locks
// that a thread can still reach are kept until the process ends. May be called twice. Blocks for up to a second.
void ExitCallbackTimers();
