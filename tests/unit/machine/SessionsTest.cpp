// The sessions of the machine: which there are, who has the console, and what a logon and a logoff change.
#include "simwin/sessions/Sessions.h"

#include "platform/win32.h"
#include "tests/harness/Harness.h"

#include <string>

namespace {

// "0 disconnected, 1 active console, 65536 listen" in the order of the list.
std::string Listed() {
    PWTS_SESSION_INFOA sessions = nullptr;
    DWORD count = 0;
    EXPECT_TRUE(WTSEnumerateSessionsA(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count));
    std::string text;
    for (DWORD i = 0; i < count; ++i) {
        static constexpr const char* States[] = {"active", "connected", "", "", "disconnected", "", "listen"};
        text += std::to_string(sessions[i].SessionId) + " " + States[sessions[i].State] +
                (sessions[i].SessionId == WTSGetActiveConsoleSessionId() ? " console, " : ", ");
    }
    WTSFreeMemory(sessions);
    return text;
}

machine::Session Of(unsigned id, const char* user, bool console = false) {
    return {.id = id, .user = user, .console = console};
}

TEST(Sessions, OneIsAtTheConsoleWhoeverLogsOnAndOff) {
    EXPECT_EQ(Listed(), "0 disconnected, 1 connected console, 65536 listen, ");
    machine::LogOn(Of(2, "LAB\\ben"));
    EXPECT_EQ(Listed(), "0 disconnected, 2 active, 1 connected console, 65536 listen, ");
    machine::LogOn(Of(1, "LAB\\anna"));
    EXPECT_EQ(Listed(), "0 disconnected, 2 active, 1 active console, 65536 listen, ");
    machine::LogOn(Of(5, "LAB\\carl", true));
    EXPECT_EQ(Listed(), "0 disconnected, 2 active, 1 disconnected, 5 active console, 65536 listen, ");
    machine::LogOff(2);
    machine::LogOff(5);
    EXPECT_EQ(Listed(), "0 disconnected, 1 disconnected, 6 connected console, 65536 listen, ");
    machine::LogOn(Of(6, "LAB\\dora"));
    EXPECT_EQ(Listed(), "0 disconnected, 1 disconnected, 6 active console, 65536 listen, ");
}

TEST(Sessions, ASessionThatEndedIsUnknown) {
    machine::LogOn(Of(3, "LAB\\anna"));
    LPSTR state = nullptr;
    DWORD bytes = 0;
    EXPECT_TRUE(WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, 3, WTSConnectState, &state, &bytes));
    WTSFreeMemory(state);
    machine::LogOff(3);
    EXPECT_FALSE(WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, 3, WTSConnectState, &state, &bytes));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CTX_WINSTATION_NOT_FOUND});
}

} // namespace
