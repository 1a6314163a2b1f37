// What a user sees who starts the program by hand: the help file beside the executable.
//
// Called by WinMain on the first thread, with the log ready and no other object of the program.

#pragma once

#include "platform/win32.h"

// Opens the help file in the user's language, German or English. Takes the mark of a downloaded file from it first,
// and starts the program again elevated when that is not possible here: a marked help file opens empty.
void ShowHelpFile();
