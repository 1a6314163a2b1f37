// A small window with which a process in the user's session gets hold of the foreground: Windows opens a program in
// front only for the process that has it, and one that a service started has not.
// Used by the execute mode alone, whose first thread calls it; the window has a thread of its own.
#pragma once

#include "platform/win32.h"

inline constexpr char ForeWindowClass[] = "Quillmarch_ForeWndClass";

// Opens the window and waits for it for at most 3 seconds. title: cut at 31 characters.
// Returns: the window, which lives until it is closed; null if it did not come.
HWND StartForeWindow(const char* title);

// Brings the window to the front against the user's will: by the input of the window that is there, else by a click of
// its own. Without success everything stays as it is.
void ForceMyDummyWindowToForeground(HWND window);

// Logs a window at level 3 as what=its text and class.
void LogWindow(const char* what, HWND window);
