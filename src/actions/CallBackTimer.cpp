#include "actions/CallBackTimer.h"

#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/ScopeGuard.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"

constexpr DWORD LastIdBeforeGenerated = 0x000FFFFF;
constexpr size_t TimerNameChars = 24;
constexpr LONG NoSlot = -1;
constexpr DWORD WaitForThreadsMs = 1000;

// Lock order: table, then record. The table lock makes creation and kill one step each; a finishing thread takes only
// the record lock, so it never waits for a creation.
static CRITICAL_SECTION CS_timerTable;
static CRITICAL_SECTION CS_timerRecord;

namespace {
struct CallbackTimer {
    LONG Delay; // milliseconds
    DWORD Id;   // 0: the slot is free. In use until the thread has finished, including the procedure
    char szName[TimerNameChars];
    ULONG_PTR Context;
    CallbackTimerProc Proc;
    HANDLE hEvent;   // set: the timer is killed. Closed by the timer's thread, with Id, under the record lock
    DWORD IsKilled;  // signalled while it waited: its procedure will not run
    DWORD IsWaiting; // until its thread knows how the wait ended
};

// What a timer's thread needs of its record. The record may be killed in the meantime, but these fields do not change.
struct TimerCall {
    LONG Delay;
    DWORD Id;
    ULONG_PTR Context;
    CallbackTimerProc Proc;
    HANDLE hEvent;
};
} // namespace

// The used slots form a run from the start, so a scan ends at the first null.
static CallbackTimer* Timers[MaxCallbackTimers] QM_GUARDED_BY(CS_timerRecord);
static DWORD g_lastGeneratedId QM_GUARDED_BY(CS_timerTable);
static DWORD g_isProcessEnding QM_GUARDED_BY(CS_timerTable);

static DWORD WINAPI CallbackTimer_ThreadProc(void* param);

static bool HasText(const char* text) {
    return text != nullptr && text[0] != 0;
}

static LONG FindFreeTimerSlot() QM_REQUIRES(CS_timerRecord) {
    for (LONG slot = 0; slot < MaxCallbackTimers; ++slot) {
        if (Timers[slot] == nullptr || Timers[slot]->Id == 0) {
            return slot;
        }
    }
    return NoSlot;
}

// Finds a slot and clears its record. Returns: the slot, or NoSlot when all are taken.
static LONG TakeTimerSlot() QM_REQUIRES(CS_timerTable) QM_EXCLUDES(CS_timerRecord) {
    LockGuard record(CS_timerRecord);
    const LONG slot = FindFreeTimerSlot();
    if (slot == NoSlot) {
        return NoSlot;
    }
    if (Timers[slot] == nullptr) {
        Timers[slot] = new CallbackTimer;
    }
    *Timers[slot] = {};
    return slot;
}

// The first matching timer; with an id, by the id alone. One that was killed and whose thread has not ended yet gives
// way to a later one: otherwise the third creation in a row would signal the first again, and the second would run
// alongside the third.
static CallbackTimer* FindLiveTimer(DWORD id, const char* name) QM_REQUIRES(CS_timerRecord) {
    CallbackTimer* killed = nullptr;
    for (CallbackTimer* timer : Timers) {
        if (timer == nullptr) {
            break;
        }
        const bool fits = timer->Id != 0 && (id != 0 ? timer->Id == id : lstrcmpA(timer->szName, name) == 0);
        if (fits && !timer->IsKilled) {
            return timer;
        }
        if (fits && killed == nullptr) {
            killed = timer;
        }
    }
    return killed;
}

static void FillTimerRecord(LONG slot, LONG delayMs, DWORD id, ULONG_PTR context, CallbackTimerProc proc,
                            const char* name, HANDLE* killEvent) QM_EXCLUDES(CS_timerRecord) {
    LockGuard record(CS_timerRecord);
    CallbackTimer& timer = *Timers[slot];
    timer.Id = id;
    timer.Delay = delayMs;
    timer.Context = context;
    timer.Proc = proc;
    timer.hEvent = CreateEventA(nullptr, /*manualReset=*/FALSE, /*initialState=*/FALSE, nullptr);
    CopyText(timer.szName, name);
    timer.IsWaiting = 1;
    *killEvent = timer.hEvent;
}

void InitCallbackTimers() {
    InitializeCriticalSection(&CS_timerTable);
    InitializeCriticalSection(&CS_timerRecord);
    LockGuard table(CS_timerTable);
    g_lastGeneratedId = LastIdBeforeGenerated;
    g_isProcessEnding = 0;
}

DWORD CreateCallbackTimer(LONG delayMs, DWORD id, ULONG_PTR context, CallbackTimerProc proc, const char* name) {
    LockGuard table(CS_timerTable);
    WriteLog(3, "CreateCallbackTimer(%i, 0x%X, '%s', 0x%p)", delayMs, id, HasText(name) ? name : "--",
             reinterpret_cast<void*>(proc));
    if (id != 0) {
        KillCallbackTimer(id, name);
    }
    if (delayMs < 1 || proc == nullptr) {
        WriteLog(4, "CCT_1");
        return 0;
    }
    if (g_isProcessEnding) {
        return 0;
    }
    const LONG slot = TakeTimerSlot();
    if (slot == NoSlot) {
        WriteLog(1, "no more timers!");
        return 0;
    }
    if (id != 0) {
        KillCallbackTimer(id, name);
    } else {
        id = ++g_lastGeneratedId;
    }

    // Suspended until the record is filled: the thread never sees it half written.
    DWORD threadId = 0;
    const OwnedThread thread = StartWorker(
        CallbackTimer_ThreadProc, reinterpret_cast<void*>(static_cast<LONG_PTR>(slot)), CREATE_SUSPENDED, &threadId);
    if (!thread) {
        return 0;
    }
    HANDLE killEvent = nullptr;
    FillTimerRecord(slot, delayMs, id, context, proc, name, &killEvent);
    WriteLog(3, "thread TimerProc created ThreadId=0x%04X hEvent=0x%p", threadId, killEvent);
    ResumeThread(thread.Get());
    return id;
}

DWORD CreateCallbackTimer(LONG delayMs, DWORD id, ULONG_PTR context, CallbackTimerProc proc) {
    return CreateCallbackTimer(delayMs, id, context, proc, nullptr);
}

DWORD KillCallbackTimer(DWORD id) {
    return KillCallbackTimer(id, nullptr);
}

DWORD KillCallbackTimer(DWORD id, const char* name) {
    if (id == 0 && !HasText(name)) {
        return 0;
    }
    // SetEvent stays inside the record lock: the finishing thread closes the event under it.
    LockGuard table(CS_timerTable);
    LockGuard record(CS_timerRecord);
    CallbackTimer* timer = FindLiveTimer(id, name);
    if (timer == nullptr) {
        return 0;
    }
    timer->IsKilled = timer->IsWaiting;
    const LONG result = SetEvent(timer->hEvent);
    if (HasText(name)) {
        WriteLog(1, "KillCallbackTimer name=%s called SetEvent(0x%p) res=%i", name, timer->hEvent, result);
    } else {
        WriteLog(1, "KillCallbackTimer id=0x%X called SetEvent(0x%p) res=%i", id, timer->hEvent, result);
    }
    return 1;
}

DWORD KillAllCallbackTimers() {
    WriteLog(3, "KillAllCallbackTimers()");
    DWORD signalled = 0;
    LockGuard table(CS_timerTable);
    for (LONG slot = 0; slot < MaxCallbackTimers; ++slot) {
        LockGuard record(CS_timerRecord);
        const CallbackTimer* timer = Timers[slot];
        if (timer == nullptr) {
            break;
        }
        if (timer->Id == 0) {
            continue;
        }
        const BOOL result = SetEvent(timer->hEvent);
        WriteLog(5, "KillCallbackTimer id=0x%X hEvent=0x%p called SetEvent res=0x%X", timer->Id, timer->hEvent,
                 static_cast<DWORD>(result));
        ++signalled;
    }
    return signalled;
}

// Arrival threads outlive the stop and may still create or kill timers, and a procedure may run longer than any wait.
// So the locks stay, a record is freed only after its thread has released it, and no more timers are created.
void ExitCallbackTimers() {
    LockGuard table(CS_timerTable);
    g_isProcessEnding = 1;
    if (KillAllCallbackTimers() != 0) {
        Sleep(WaitForThreadsMs);
    }
    for (LONG slot = 0; slot < MaxCallbackTimers; ++slot) {
        LockGuard record(CS_timerRecord);
        if (Timers[slot] != nullptr && Timers[slot]->Id == 0) {
            delete Timers[slot];
            Timers[slot] = nullptr;
        }
    }
}

static void RunTimer(LONG slot) {
    TimerCall call = {};
    {
        LockGuard record(CS_timerRecord);
        const CallbackTimer& timer = *Timers[slot];
        call = {timer.Delay, timer.Id, timer.Context, timer.Proc, timer.hEvent};
    }
    const DWORD waited = WaitForSingleObject(call.hEvent, static_cast<DWORD>(call.Delay));
    if (waited == WAIT_TIMEOUT) {
        {
            LockGuard record(CS_timerRecord);
            Timers[slot]->IsWaiting = 0;
            Timers[slot]->IsKilled = 0; // too late: it runs, and the next kill finds it first
        }
        WriteLog(5, " before exec timerproc id=%i", static_cast<LONG>(call.Id));
        call.Proc(call.Id, call.Context);
        WriteLog(5, " after exec timerproc id=%i", static_cast<LONG>(call.Id));
    } else {
        WriteLog(4, " timer has been killed");
    }
    LockGuard record(CS_timerRecord);
    CallbackTimer& timer = *Timers[slot];
    timer.Id = 0;
    CloseGlobal<EventKind>(timer.hEvent);
}

static DWORD WINAPI CallbackTimer_ThreadProc(void* param) {
    const WorkerScope worker;
    RunTimer(static_cast<LONG>(reinterpret_cast<LONG_PTR>(param)));
    return 1;
}
