// A small window with which a process in the user's session takes the foreground: Windows opens a program in front only
// for the process that has it, which a program started by a service does not.
// Called by the first thread of the execute mode only; the window has a thread of its own.
#pragma once

#include "platform/win32.h"

inline constexpr char ForeWindowClass[] = "Quillmarch_ForeWndClass";

// Opens the window and waits for it for at most 3 seconds. title: cut at 31 characters.
// Returns: the window, which lives until it is closed; null if it did not open.
HWND StartForeWindow(const char* title);

// Brings the window to the front despite Windows' restrictions: by attaching to the foreground window's input, else by
// a click of its own. On failure nothing changes.
void ForceMyDummyWindowToForeground(HWND window);

// Logs a window at level 3 as what=its text and class.
void LogWindow(const char* what, HWND window);
