#include "support/system/SupportLocks.h"

CRITICAL_SECTION CS_ResultText;
CRITICAL_SECTION CS_Random;
DWORD g_supportLocksReady;

void InitSupportLocks() {
    if (g_supportLocksReady) {
        return;
    }
    InitializeCriticalSection(&CS_ResultText);
    InitializeCriticalSection(&CS_Random);
    g_supportLocksReady = 1;
}

void ExitSupportLocks() {
    if (!g_supportLocksReady) {
        return;
    }
    g_supportLocksReady = 0;
    DeleteCriticalSection(&CS_Random);
    DeleteCriticalSection(&CS_ResultText);
}
