#include "support/texts/TimeTools.h"

#include "support/texts/BoundedText.h"

void FormatDate(char (&text)[32], const char* separator) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    FormatText(text, "%04u%s%02u%s%02u", now.wYear, separator, now.wMonth, separator, now.wDay);
}

void FormatTime(char (&text)[32]) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    FormatText(text, "%02u:%02u:%02u.%u", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds / 100);
}

const char* FileTimeText(const FILETIME& time) {
    static char text[32];
    FILETIME local = {};
    SYSTEMTIME parts = {};
    if (!FileTimeToLocalFileTime(&time, &local) || !FileTimeToSystemTime(&local, &parts)) {
        parts = {}; // an invalid time shows as zeros
    }
    FormatText(text, "%04u-%02u-%02u %02u:%02u:%02u.%03u", parts.wYear, parts.wMonth, parts.wDay, parts.wHour,
               parts.wMinute, parts.wSecond, parts.wMilliseconds);
    return text;
}
