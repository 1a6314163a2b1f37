// The record of one balloon tip: what a child was asked to show, and, with the same layout, the message by which a
// program on the same machine gives a visible balloon new texts. Plain data; each owner of a shared record states its
// guard.
#pragma once

#include <cstddef>

#include "platform/win32.h"

constexpr LONG MaxPipeShowTimeMs = 60000;

// Texts are ANSI, ended by zero inside their fields, the rest of each field zero.
struct FreeBalloonInfo {
    LONG ShowTime; // milliseconds until the balloon closes by itself
    LONG CharSet;  // of both fonts; 1 is the default set
    char Title[120];
    char Text1[256]; // may hold the marker that moves what follows it to the right edge
    char Text2[768]; // a second block, may be empty
    LONG Icon;       // resource id
    LONG Reserved;   // 0
};
static_assert(sizeof(FreeBalloonInfo) == 1160 && offsetof(FreeBalloonInfo, Icon) == 1152);

// Character sets whose texts are read from right to left.
constexpr LONG HebrewCharSet = 177;
constexpr LONG ArabicCharSet = 178;

constexpr bool ReadsRightToLeft(LONG charSet) {
    return charSet == HebrewCharSet || charSet == ArabicCharSet;
}

// Makes a record from outside safe to use: each text ends inside its field, the time is 0 to 60000 ms.
inline void MakeRecordSafe(FreeBalloonInfo* record) {
    record->Title[sizeof(record->Title) - 1] = 0;
    record->Text1[sizeof(record->Text1) - 1] = 0;
    record->Text2[sizeof(record->Text2) - 1] = 0;
    if (record->ShowTime < 0) {
        record->ShowTime = 0;
    } else if (record->ShowTime > MaxPipeShowTimeMs) {
        record->ShowTime = MaxPipeShowTimeMs;
    }
}
