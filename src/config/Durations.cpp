#include "config/Durations.h"

#include <cstring>

constexpr size_t LongestDuration = 63;

namespace {
struct DurationUnit {
    char letter;
    DWORD milliseconds;
};
} // namespace

constexpr DurationUnit DurationUnits[] = {
    {'s', 1'000},
    {'m', 60'000},
    {'h', 3'600'000},
    {'d', 86'400'000},
};

static DWORD MillisecondsOfUnit(char letter) {
    for (const DurationUnit& unit : DurationUnits) {
        if (unit.letter == letter) {
            return unit.milliseconds;
        }
    }
    return 1;
}

DWORD ParseDuration(const char* text) {
    if (strlen(text) > LongestDuration) {
        return 0;
    }
    const DWORD number = static_cast<DWORD>(StrToIntA(text));
    for (const char* at = text; *at != 0; ++at) {
        const char lower = static_cast<char>(*at | 0x20);
        if (lower >= 'a' && lower <= 'z') {
            return number * MillisecondsOfUnit(lower);
        }
    }
    return number;
}
