// What a user sees who starts the program by hand: the help file next to the executable.
//
// Called by WinMain on the first thread, with the log ready and no other object of the program.

#pragma once

#include "platform/win32.h"

// Opens the help file in the user's language, German or English. Removes the mark of a downloaded file first, and
// restarts the program elevated when that is not possible here: a marked help file opens empty.
void ShowHelpFile();
