// How many threads work on the process-wide objects beside the one that will end the process: arrivals, timers, the
// initialisation. The end of WinMain does not wait for them, an arrival may sit in a device call for many seconds; it
// asks here whether it may free what they could reach, and leaves all of it to the end of the process otherwise. Any
// thread, no lock: one counter that is changed by interlocked operations.
#pragma once

#include "platform/win32.h"
#include "support/system/Handles.h"

// Makes a counted thread; its procedure holds a WorkerScope. flags: as for CreateThread. threadId: may be null.
// Returns: the thread; nothing, with the last error, if there is none, and then nothing is counted.
OwnedThread StartWorker(LPTHREAD_START_ROUTINE procedure, void* parameter, DWORD flags = 0, DWORD* threadId = nullptr);

// Called by a starter of its own kind before it makes the thread, so that no thread exists that was not counted.
void WorkerStarting();

// Called as the thread's last step, and by the starter if the thread could not be made.
void WorkerEnded();

// Returns: the threads that were counted and have not ended.
LONG LiveWorkers();

// The thread's side as a scope: the worker has ended when the scope ends.
class WorkerScope {
public:
    WorkerScope() = default;
    ~WorkerScope() { WorkerEnded(); }
    WorkerScope(const WorkerScope&) = delete;
    WorkerScope& operator=(const WorkerScope&) = delete;
};
