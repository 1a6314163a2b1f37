// What the product relies on from Windows, tested through Windows' own names: the same source runs on the simulated
// machine and, cross-built, under Wine. Expectations are what Windows documents. Where Wine is known to differ, the
// expectation is marked, so that the difference is recorded next to the test and is noticed when it disappears.
#pragma once

#include "platform/win32.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

namespace contract {

// A last error that no operation returns: an operation that sets one must replace it.
inline constexpr DWORD NoError = 0x20000042;

#if defined(_WIN32)
inline bool IsWine() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}
#else
inline bool IsWine() {
    return false;
}
#endif

// A documented result: it must come on the simulated machine and on Windows, and must not come under Wine, which is
// known to differ; there it is printed, so that it can be counted, and fails as soon as Wine agrees.
inline void CheckKnownDifference(bool agrees, const char* expression, const char* reason, const char* file, int line) {
    if (!IsWine()) {
        if (!agrees) {
            ADD_FAILURE_AT(file, line) << expression << "\n  (known to differ under Wine: " << reason << ")";
        }
        return;
    }
    if (agrees) {
        ADD_FAILURE_AT(file, line) << expression << "\n  holds under Wine by now, take the mark away: " << reason;
    }
    std::printf("known difference: %s: %s\n", reason, expression);
}
#define KNOWN_DIFFERENCE(reason, expression)                                                                           \
    contract::CheckKnownDifference((expression), #expression, reason, __FILE__, __LINE__)

// A documented result that the simulated machine does not give: nothing in the product needs it. On Windows it must
// come; on the machine it fails as soon as it does, so that the mark is removed. Wine is not tested.
inline void CheckMachineDifference(bool agrees, const char* expression, const char* reason, const char* file,
                                   int line) {
#if defined(_WIN32)
    const bool isAsExpected = agrees || IsWine();
#else
    const bool isAsExpected = !agrees;
#endif
    if (!isAsExpected) {
        ADD_FAILURE_AT(file, line) << expression << "\n  (the simulated machine differs: " << reason << ")";
    }
}
#define MACHINE_DIFFERS(reason, expression)                                                                            \
    contract::CheckMachineDifference((expression), #expression, reason, __FILE__, __LINE__)

// A folder of the test's own for files, empty at its start.
inline std::string TempFolder() {
    char path[MAX_PATH];
    const DWORD length = ExpandEnvironmentStringsA("%TEMP%", path, sizeof(path));
    return std::string(path, length ? length - 1 : 0);
}

inline std::string TempFile(const char* name) {
    return TempFolder() + "\\QuillmarchContract_" + name;
}

// The error of an operation that returns FALSE, 0 if it returned TRUE.
template<typename Operation>
DWORD ErrorOf(Operation operation) {
    SetLastError(NoError);
    return operation() ? 0 : GetLastError();
}
#define EXPECT_ERROR(error, operation)                                                                                 \
    EXPECT_EQ(contract::ErrorOf([&] { return (operation); }), static_cast<DWORD>(error)) << #operation

} // namespace contract
