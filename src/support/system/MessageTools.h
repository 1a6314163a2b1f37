// Message boxes of the tool role, and how it asks for more rights. Each call blocks until the user has answered.
#pragma once

#include "platform/win32.h"

// A message box without owner under the caption "Quill-March-Ward", in front of all windows. flags: as for MessageBoxA.
// Returns: the button.
int ShowMessage(const char* text, UINT flags);

// Restarts this program with administrator rights, by the verb "runas". Logs at level 2. Returns: 1 if it was
// started, else 0 with the last error of the shell.
int ExecuteAsAdmin(const char* parameters);
