// Counts the threads that work on the process-wide objects besides the one that will end the process: arrivals, timers,
// the initialisation. The end of WinMain does not wait for them, since an arrival may hang in a device call for many
// seconds; it checks here whether it may free what they could reach, and otherwise keeps all of it until the process
// ends. Any thread, no lock: one counter, changed by interlocked operations.
#pragma once

#include "platform/win32.h"
#include "support/system/Handles.h"

// Creates a counted thread; its procedure holds a WorkerScope. flags: as for CreateThread. threadId: may be null.
// Returns: the thread; nothing, with the last error, if it could not be created, and then it is not counted.
OwnedThread StartWorker(LPTHREAD_START_ROUTINE procedure, void* parameter, DWORD flags = 0, DWORD* threadId = nullptr);

// Called by starters that create their own threads, before they do, so that no thread exists uncounted.
void WorkerStarting();

// Called as the thread's last step, and by the starter if the thread could not be created.
void WorkerEnded();

// Returns: the threads that were counted and have not ended.
LONG LiveWorkers();

// The thread's side as a scope: the worker counts as ended when the scope ends.
class WorkerScope {
public:
    WorkerScope() = default;
    ~WorkerScope() { WorkerEnded(); }
    WorkerScope(const WorkerScope&) = delete;
    WorkerScope& operator=(const WorkerScope&) = delete;
};
