// Date and time as text. Local time of the machine. Any thread, but the static text of FileTimeText is for one thread
// at a time.
#pragma once

#include "platform/win32.h"

// "%04u%s%02u%s%02u": year, month, day of now with a separator between.
void FormatDate(char (&text)[32], const char* separator);

// "%02u:%02u:%02u.%u": hours, minutes, seconds and tenths of now.
void FormatTime(char (&text)[32]);

// "%04u-%02u-%02u %02u:%02u:%02u.%03u" of a file time as local time; static text, valid until the next call.
const char* FileTimeText(const FILETIME& time);
