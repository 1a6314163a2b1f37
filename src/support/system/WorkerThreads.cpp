#include "support/system/WorkerThreads.h"

#include "support/system/Handles.h"

static volatile LONG g_liveWorkers;

OwnedThread StartWorker(LPTHREAD_START_ROUTINE procedure, void* parameter, DWORD flags, DWORD* threadId) {
    DWORD id = 0;
    WorkerStarting();
    OwnedThread thread(CreateThread(nullptr, 0, procedure, parameter, flags, &id));
    if (!thread) {
        const LastErrorKeeper keep;
        WorkerEnded();
    }
    if (threadId) {
        *threadId = id;
    }
    return thread;
}

void WorkerStarting() {
    (void)InterlockedIncrement(&g_liveWorkers);
}

void WorkerEnded() {
    (void)InterlockedDecrement(&g_liveWorkers);
}

LONG LiveWorkers() {
    return InterlockedCompareExchange(&g_liveWorkers, 0, 0);
}
