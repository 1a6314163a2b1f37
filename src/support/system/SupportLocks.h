// The two locks of the general tools: that of the ring of ResultText and that of the seed of Random. The program's
// start creates them before the first other thread, the balloon child deletes them at its end. Without them the tools
// work unlocked, which is safe while the process has one thread.
#pragma once

#include "platform/win32.h"

extern CRITICAL_SECTION CS_ResultText;
extern CRITICAL_SECTION CS_Random;
extern DWORD g_supportLocksReady;

void InitSupportLocks();
void ExitSupportLocks();
