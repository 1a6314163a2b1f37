// What a process of the program knows about itself: mode, paths, the two main locks and the flags that all folders
// read. Everything is zero at the start; WinMain fills the texts before it starts a thread, and they never change
// afterwards. Lock order in the whole program: CS_main, then CS_assign, then the short locks.
#pragma once

#include "platform/win32.h"

// Values of g_Mode. The index is also that of the table of modes in the program start.
inline constexpr LONG ModeNul = 0;
inline constexpr LONG ModeService = 1;
inline constexpr LONG ModeDebug = 2;
inline constexpr LONG ModeNonservice = 3;
inline constexpr LONG ModeSetRegArbiter = 4;
inline constexpr LONG ModeBalloon = 5;
inline constexpr LONG ModeIni = 6;
inline constexpr LONG ModeExec = 7;
inline constexpr LONG ModeCount = 8;

extern LONG g_Mode;             // one of the modes above
extern DWORD g_DebugMode;       // 1 in a debug run
extern DWORD g_StopRequested;   // set by the stop; single word, read without a lock
extern DWORD g_InitialSnapshot; // 1 while the first snapshot of the port table runs
extern HWND g_hwndMain;         // main window of a debug run, null in a service run

extern CRITICAL_SECTION CS_main;   // the processing of device events as a whole
extern CRITICAL_SECTION CS_assign; // the renaming loop

extern char szExePath[260];    // full path of the executable
extern char szExeDir[260];     // its folder, without trailing backslash
extern char szWindowsDir[32];  // GetWindowsDirectoryA
extern char szSystemDir[64];   // GetSystemDirectoryA
extern char szUserSid[260];    // text of the process user's SID
extern char szIniFile[260];    // szExePath with the extension ".INI"
extern char szVersionLine[64]; // "Quillmarch.EXE V… Win32 build …"
