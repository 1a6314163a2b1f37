// The mode "-ini": opens the configuration in a text editor with the rights to save it, and creates it from a sample
// when there is none.
//
// Called by WinMain on the first thread right after the log head; none of the service's objects exist.

#pragma once

#include "platform/win32.h"

// The samples among the executable's resources.
inline constexpr WORD SampleIniType = 400;
inline constexpr WORD SampleIniEnglish = 500;
inline constexpr WORD SampleIniGerman = 501;

// Blocks while message boxes are open and while the user is asked for elevation. An existing file is never overwritten.
void EditIni();
