#include "support/system/SupportLocks.h"

CRITICAL_SECTION CS_ResultText;
CRITICAL_SECTION CS_Random;
DWORD g_SupportLocksReady;

void InitSupportLocks() {
    if (g_SupportLocksReady) {
        return;
    }
    InitializeCriticalSection(&CS_ResultText);
    InitializeCriticalSection(&CS_Random);
    g_SupportLocksReady = 1;
}

void ExitSupportLocks() {
    if (!g_SupportLocksReady) {
        return;
    }
    g_SupportLocksReady = 0;
    DeleteCriticalSection(&CS_Random);
    DeleteCriticalSection(&CS_ResultText);
}
