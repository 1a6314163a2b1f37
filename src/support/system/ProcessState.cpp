#include "support/system/ProcessState.h"

LONG g_Mode;
DWORD g_DebugMode;
DWORD g_StopRequested;
DWORD g_InitialSnapshot;
HWND g_hwndMain;

CRITICAL_SECTION CS_main;
CRITICAL_SECTION CS_assign;

char szExePath[260];
char szExeDir[260];
char szWindowsDir[32];
char szSystemDir[64];
char szUserSid[260];
char szIniFile[260];
char szVersionLine[64];
