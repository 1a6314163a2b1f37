#include "support/WorkerThreads.h"

static volatile LONG g_LiveWorkers;

void WorkerStarting() {
    (void)InterlockedIncrement(&g_LiveWorkers);
}

void WorkerEnded() {
    (void)InterlockedDecrement(&g_LiveWorkers);
}

LONG LiveWorkers() {
    return InterlockedCompareExchange(&g_LiveWorkers, 0, 0);
}
