// Waiting for another program, on the clock of the system under test.
#pragma once

#include "platform/win32.h"

#include <functional>

inline constexpr DWORD PatienceMs = 60000; // a loaded machine may take this long
inline constexpr DWORD StepMs = 25;

// Looks until the condition holds. Returns: false if it never did within PatienceMs.
inline bool WaitUntil(const std::function<bool()>& condition) {
    for (DWORD waited = 0; waited < PatienceMs; waited += StepMs) {
        if (condition()) {
            return true;
        }
        Sleep(StepMs);
    }
    return false;
}
