// Names for log lines: the first and the last of each table, its gaps, and what a value outside it gives.
#include "tests/harness/Harness.h"

#include "support/DiagnosticNames.h"
#include "support/InterfaceClasses.h"
#include "support/SupportLocks.h"

namespace {

TEST(DiagnosticNames, EachTableEndsWhereItsFallbackBegins) {
    struct Row {
        const char* (*name)(DWORD);
        DWORD code;
        const char* text;
    };
    const auto state = [](DWORD code) { return SessionStateName(static_cast<LONG>(code)); };
    for (const Row& row : {
             Row{DeviceTypeName, 0, "OEM"},
             Row{DeviceTypeName, 3, "PORT"},
             Row{DeviceTypeName, 6, "HANDLE"},
             Row{DeviceTypeName, 7, "7"},
             Row{ConfigRetName, 0x13, "CR_0x13"},
             Row{DevNodeStatusName, 0x0180200A, "DN_0x180200A"},
             Row{ProblemName, 0, "-"},
             Row{ProblemName, 1, "CM_PROB_NOT_CONFIGURED"},
             Row{ProblemName, 10, "CM_PROB_FAILED_START"},
             Row{ProblemName, 21, "CM_PROB_WILL_BE_REMOVED"},
             Row{ProblemName, 22, "CM_PROB_DISABLED"},
             Row{ProblemName, 45, "CM_PROB_PHANTOM"},
             Row{ProblemName, 54, "CM_PROB_DEVICE_RESET"},
             Row{ProblemName, 55, "CM_PROB_0x37"},
             Row{SessionChangeName, 5, "SESSION_LOGON"},
             Row{SessionChangeName, 9, "SESSION_REMOTE_CONTROL"},
             Row{SessionChangeName, 10, "0xA"},
             Row{PowerEventName, 0, "PBT_APMQUERYSUSPEND"},
             Row{PowerEventName, 7, "PBT_APMRESUMESUSPEND"},
             Row{PowerEventName, 11, "PBT_APMOEMEVENT"},
             Row{PowerEventName, 12, "PBT_0xC"},
             Row{PowerEventName, 17, "PBT_0x11"},
             Row{PowerEventName, 18, "PBT_APMRESUMEAUTOMATIC"},
             Row{PowerEventName, 19, "PBT_0x13"},
             Row{VetoTypeName, 5, "OutstandingOpen"},
             Row{VetoTypeName, 6, "Device"},
             Row{VetoTypeName, 13, "AlreadyRemoved"},
             Row{VetoTypeName, 14, "Veto_14"},
             Row{ServiceControlName, 0, "SERVICE_CONTROL_0"},
             Row{ServiceControlName, 11, "SERVICE_CONTROL_DEVICEEVENT"},
             Row{ServiceControlName, 15, "SERVICE_CONTROL_PRESHUTDOWN"},
             Row{ServiceControlName, 16, "SERVICE_CONTROL_0x10"},
             Row{WaitResultName, 0, "ok"},
             Row{WaitResultName, 1, "WAIT_1"},
             Row{WaitResultName, 128, "abandoned"},
             Row{WaitResultName, 258, "timeout"},
             Row{state, 0, "Active"},
             Row{state, 4, "Disconnected"},
             Row{state, 9, "Init"},
             Row{state, 10, "WTS_10"},
             Row{state, 0xFFFFFFFF, "WTS_-1"},
             Row{ErrorName, 0, "ok"},
             Row{ErrorName, 5, "ACCESS_DENIED"},
             Row{ErrorName, 4, "4"},
             Row{ErrorName, 433, "NO_SUCH_DEVICE"},
             Row{ErrorName, 1460, "TIMEOUT"},
             Row{ErrorName, 0x0FFFFFFF, "268435455"},
             Row{ErrorName, 0x10000000, "0x10000000"},
             Row{ErrorName, 0x80070005, "0x80070005"},
         }) {
        EXPECT_STREQ(row.name(row.code), row.text);
    }
    SetLastError(6);
    EXPECT_STREQ(WaitResultName(WAIT_FAILED), "error=6");
}

TEST(DiagnosticNames, ARingShowsSeveralNumbersAtOnce) {
    const char* first = ErrorName(100000);
    for (DWORD i = 1; i < 10; ++i) {
        ErrorName(100000 + i);
    }
    EXPECT_STREQ(first, "100000");
    ErrorName(100010);
    EXPECT_STREQ(first, "100010");
}

TEST(DiagnosticNames, TheLastErrorIsReadAndKept) {
    SetLastError(5);
    EXPECT_STREQ(LastErrorName(), "ACCESS_DENIED");
    EXPECT_STREQ(LastErrorText(), "ACCESS_DENIED -> Access is denied.  ");
    EXPECT_STREQ(ResultText(0), "err=ACCESS_DENIED");
    EXPECT_STREQ(ResultText(-3), "res=-3");
    EXPECT_STREQ(ErrorText(0x0FFFFFFF), "268435455") << "the system has no text for it";
    EXPECT_EQ(GetLastError(), 5u);
    InitSupportLocks();
    EXPECT_STREQ(ResultText(0), "err=ACCESS_DENIED");
    EXPECT_EQ(GetLastError(), 5u);
    ExitSupportLocks();
}

TEST(DiagnosticNames, AGuidIsComparedByteByByte) {
    EXPECT_STREQ(DeviceGuidName(InterfaceClass::ComPort), "GUID_DEVINTERFACE_COMPORT");
    EXPECT_STREQ(DeviceGuidName(InterfaceClass::SerialPortService), "SerialPortServiceClass_UUID");
    GUID other = InterfaceClass::ComPort;
    other.Data4[7] = 0x0A;
    EXPECT_STREQ(DeviceGuidName(other), "{86E0D1E0-8089-11D0-9CE4-08003E301F0A}");
}

} // namespace
