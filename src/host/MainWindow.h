// The window of a debug run, which takes the place of the service's control handler: it receives the device events and
// ends the run when it is closed. Its messages are pumped by `CService::Run` on the first thread.
//
// Called by WinMain in a debug run only, on the first thread, before the initialisation thread starts.

#pragma once

#include "platform/win32.h"

inline constexpr char MainWindowClass[] = "Quillmarch_MainWndClass";
inline constexpr char MainWindowTitle[] = "Quillmarch";

// Creates the window, stores it in `g_hwndMain` and registers the device notifications for it.
// Returns: 0 always; `g_hwndMain` stays null when it failed, a message box has said why.
int CreateMainWindowProc(HINSTANCE hInstance);
