// Names for log lines: the last of each table, its gaps, and what a value outside it gives.
#include "tests/harness/Harness.h"

#include "support/DiagnosticNames.h"

namespace {

template<typename Code>
void Expect(const char* (*name)(Code), std::initializer_list<std::pair<Code, const char*>> rows) {
    for (const auto& [code, text] : rows)
        EXPECT_STREQ(name(code), text);
}

TEST(DiagnosticNames, EachTableEndsWhereItsFallbackBegins) {
    Expect(DeviceTypeName, {{6, "HANDLE"}, {7, "7"}});
    Expect(ConfigRetName, {{0x13, "CR_0x13"}});
    Expect(DevNodeStatusName, {{0x0180200A, "DN_0x180200A"}});
    Expect(ProblemName, {{0, "-"}, {22, "CM_PROB_DISABLED"}, {54, "CM_PROB_DEVICE_RESET"}, {55, "CM_PROB_0x37"}});
    Expect(SessionChangeName, {{9, "SESSION_REMOTE_CONTROL"}, {10, "0xA"}});
    Expect(PowerEventName,
           {{11, "PBT_APMOEMEVENT"}, {12, "PBT_0xC"}, {18, "PBT_APMRESUMEAUTOMATIC"}, {19, "PBT_0x13"}});
    Expect(VetoTypeName, {{6, "Device"}, {13, "AlreadyRemoved"}, {14, "Veto_14"}});
    Expect(ServiceControlName, {{15, "SERVICE_CONTROL_PRESHUTDOWN"}, {16, "SERVICE_CONTROL_0x10"}});
    Expect(WaitResultName, {{0, "ok"}, {1, "WAIT_1"}, {128, "abandoned"}, {258, "timeout"}});
    Expect(SessionStateName, {{9, "Init"}, {10, "WTS_10"}, {-1, "WTS_-1"}});
    Expect(ErrorName, {{0, "ok"}, {4, "4"}, {1460, "TIMEOUT"}});
    Expect(ErrorName, {{0x0FFFFFFF, "268435455"}, {0x10000000, "0x10000000"}});
}

TEST(DiagnosticNames, ARingShowsTenNumbersAtOnce) {
    const char* first = ErrorName(100000);
    for (DWORD i = 1; i < 10; ++i)
        ErrorName(100000 + i);
    EXPECT_STREQ(first, "100000");
    ErrorName(100010);
    EXPECT_STREQ(first, "100010");
}

TEST(DiagnosticNames, TheLastErrorIsReadAndKept) {
    SetLastError(5);
    EXPECT_STREQ(WaitResultName(WAIT_FAILED), "error=5");
    EXPECT_STREQ(LastErrorText(), "ACCESS_DENIED -> Access is denied.  ");
    EXPECT_STREQ(ResultText(0), "err=ACCESS_DENIED");
    EXPECT_STREQ(ResultText(-3), "res=-3");
    EXPECT_STREQ(ErrorText(0x0FFFFFFF), "268435455") << "the system has no text for it";
    EXPECT_EQ(GetLastError(), 5u);
}

} // namespace
