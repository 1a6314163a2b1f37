// The running service: states, controls, the stop. The test is the service's process, its thread the dispatcher's.
#include "tests/unit/host/HostSetup.h"

#include "host/PowerEvents.h"
#include "host/SessionEvents.h"

#include "simwin/sessions/Sessions.h"

#include "actions/CallBackTimer.h"
#include "config/CCfgReader.h"
#include "config/CSettings.h"
#include "support/WorkerThreads.h"

namespace {

using namespace hosttest;

// A service process as WinMain has it just before the dispatcher.
void StartOfService() {
    StartOfProgram();
    DefineTheService();
    machine::AdoptServiceProcess(Name, machine::CurrentProcess());
    g_Mode = ModeService;
    g_pService->IsServiceProcess = 1;
    g_pCfgReader = new CCfgReader(szIniFile, nullptr, nullptr);
    g_pCfgReader->CreateSnapshot("test");
    g_pSettings = new CSettings;
    g_pSettings->ReadSettings();
    InitializeCriticalSection(&CS_main);
    InitializeCriticalSection(&CS_assign);
    InitCallbackTimers();
}

void PostAt(std::uint64_t atMs, DWORD control, DWORD eventType = 0) {
    machine::At(atMs, machine::Due::Outside,
                [control, eventType] { machine::PostServiceControl(Name, control, eventType, {}); });
}

int ReportsOf(DWORD state, DWORD waitHint) {
    int count = 0;
    for (const machine::ServiceReport& report : machine::ServiceReports())
        if (report.state == state && report.waitHint == waitHint)
            ++count;
    return count;
}

std::uint64_t FirstReportMs(DWORD state) {
    for (const machine::ServiceReport& report : machine::ServiceReports())
        if (report.state == state)
            return report.atMs;
    return ~0ull;
}

DWORD g_HoldMs;

// What an arrival does that keeps the main lock for long.
DWORD WINAPI HoldMainLock_ThreadProc(LPVOID) {
    EnterCriticalSection(&CS_main);
    Sleep(g_HoldMs);
    LeaveCriticalSection(&CS_main);
    return 0;
}

void HoldMainLock(DWORD ms) {
    g_HoldMs = ms;
    CloseHandle(CreateThread(nullptr, 0, HoldMainLock_ThreadProc, nullptr, 0, nullptr));
}

// Runs the service and lets somebody hold the main lock from just before the stop on.
void RunAndStopBehindHolder(DWORD holdMs) {
    StartOfService();
    g_HoldMs = holdMs;
    machine::Process* own = machine::CurrentProcess();
    machine::At(5000, machine::Due::Outside, [own] {
        machine::ResumeThreadOf(machine::CreateThreadOf(own, [] { return HoldMainLock_ThreadProc(nullptr); }));
    });
    PostAt(5001, SERVICE_CONTROL_STOP);
    EXPECT_TRUE(g_pService->Start());
}

TEST(ServiceRun, ReportsItsStatesInOrder) {
    StartOfService();
    PostAt(3000, SERVICE_CONTROL_STOP);
    EXPECT_TRUE(g_pService->Start());
    std::vector<DWORD> states;
    for (const machine::ServiceReport& report : machine::ServiceReports())
        states.push_back(report.state);
    const std::vector<DWORD> expected = {SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING, SERVICE_STOPPED};
    EXPECT_EQ(states, expected);
    EXPECT_EQ(ReportsOf(SERVICE_START_PENDING, 61000), 1);
    EXPECT_EQ(machine::Now(), 3000u);
}

TEST(ServiceRun, StopWaitsForWhoHoldsTheMainLock) {
    RunAndStopBehindHolder(3000);
    EXPECT_EQ(LogCount("waiting for CS_main"), 4);
    EXPECT_EQ(ReportsOf(SERVICE_STOP_PENDING, 1000), 4);
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 5001u + 4 * 900);
}

TEST(ServiceRun, AHolderThatHangsDoesNotHoldUpTheStopForEver) {
    RunAndStopBehindHolder(60000);
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 5001u + 12 * 900);
}

TEST(ServiceRun, AStopDuringTheInitialisationStillEndsTheService) {
    StartOfService();
    machine::AddFault({.call = "CMP_WaitNoPendingInstallEvents", .on = "*", .delayMs = 5000});
    PostAt(1500, SERVICE_CONTROL_STOP);
    EXPECT_TRUE(g_pService->Start());
    EXPECT_EQ(FirstReportMs(SERVICE_RUNNING), ~0ull) << "RUNNING behind STOP_PENDING";
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 1500u + 4 * 900);
    EXPECT_EQ(LogCount("ISVC_3"), 0);
}

TEST(ServiceRun, AnInitialisationThatHangsIsReportedForEighteenSecondsOnly) {
    StartOfService();
    machine::AddFault({.call = "CMP_WaitNoPendingInstallEvents", .on = "*", .delayMs = 40000});
    PostAt(25000, SERVICE_CONTROL_STOP);
    EXPECT_TRUE(g_pService->Start());
    EXPECT_EQ(ReportsOf(SERVICE_START_PENDING, 2000), 18);
    EXPECT_EQ(FirstReportMs(SERVICE_RUNNING), 19000u);
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 25000u);
    EXPECT_EQ(LiveWorkers(), 1) << "the initialisation still works: nothing that it can reach may be freed";
}

TEST(ServiceRun, WithoutTheServiceManagerTheDispatcherComesBackAtOnce) {
    StartOfProgram();
    g_pService->IsServiceProcess = 1;
    EXPECT_FALSE(g_pService->Start());
    EXPECT_EQ(GetLastError(), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    EXPECT_EQ(g_pService->IsServiceProcess, 0u);
}

TEST(Controls, UnknownOnesAreRefusedAndTheOthersAreNot) {
    StartOfService();
    for (const DWORD control : {2u, 3u, 4u, 12u, 13u, 15u})
        EXPECT_EQ(g_pService->HandlerEx(control, 0, nullptr, nullptr), NO_ERROR) << control;
    for (const DWORD control : {0u, 6u, 10u, 16u, 128u})
        EXPECT_EQ(g_pService->HandlerEx(control, 0, nullptr, nullptr), ERROR_CALL_NOT_IMPLEMENTED) << control;
    EXPECT_EQ(LogCount("SERVICE_CONTROL_CONTNUE\n"), 1);
    EXPECT_EQ(LogCount("PowerEventMsg"), 0) << "no power event before RUNNING";
}

TEST(Controls, ADeviceEventAfterTheStopDoesNotWaitForTheLock) {
    StartOfService();
    HoldMainLock(60000);
    Sleep(1);
    g_StopRequested = 1;
    g_pService->HandlerEx(SERVICE_CONTROL_DEVICEEVENT, 7, nullptr, nullptr);
    EXPECT_EQ(machine::Now(), 1u);
    EXPECT_EQ(LogCount("WM_DEVICE_CHANGE"), 0);
}

TEST(PowerEvents, OnlyTwoResumeCodesCheckThePortsAndOnlyWhenAskedTo) {
    StartOfService();
    struct Row {
        DWORD event;
        bool isAsked;
        int sleeps, resumes;
    };
    for (const Row& row : {Row{0, true, 0, 0}, Row{4, true, 1, 0}, Row{5, true, 1, 0}, Row{6, true, 0, 1},
                           Row{7, true, 0, 0}, Row{8, true, 0, 0}, Row{18, true, 0, 1}, Row{18, false, 0, 1}}) {
        machine::CurrentProcess()->debugOutput.clear();
        g_pSettings->CheckPortsOnResume = row.isAsked;
        EXPECT_EQ(PowerEventMsg(row.event, nullptr), 1u);
        EXPECT_EQ(LogCount(" System APM Sleep"), row.sleeps) << row.event;
        EXPECT_EQ(LogCount(" System APM Resume"), row.resumes) << row.event;
        EXPECT_EQ(LogCount("ISVC_4"), 0) << "there is no table yet to check";
        EXPECT_EQ(LogCount("PowerEventMsg end"), 1) << row.event;
    }
}

TEST(SessionEvents, ALogonIsFollowedUntilItsSessionAnswers) {
    StartOfProgram();
    const WTSSESSION_NOTIFICATION notification = {sizeof(notification), 3};
    SessionChangeMsg(WTS_SESSION_LOGOFF, &notification);
    EXPECT_EQ(LogCount("WTSQuerySessionInformation"), 0) << "a logoff is only traced";

    std::uint64_t startMs = machine::Now();
    SessionChangeMsg(WTS_SESSION_LOGON, &notification);
    EXPECT_EQ(machine::Now() - startMs, 10u + 19 * 500);
    EXPECT_EQ(LogCount(" retry in 500ms"), 19);
    EXPECT_EQ(LogCount(" -> abort"), 1);

    startMs = machine::Now();
    machine::After(1200, [] { machine::DefineSession({.id = 3, .user = "LAB\\anna"}); });
    SessionChangeMsg(WTS_SESSION_LOGON, &notification);
    EXPECT_EQ(machine::Now() - startMs, 10u + 3 * 500 + 1000);
    EXPECT_EQ(LogCount(" state=Active"), 1);
    EXPECT_EQ(LogCount(" -> abort"), 1);

    machine::DefineSession({.id = 3, .user = "LAB\\anna", .state = WTSDisconnected});
    startMs = machine::Now();
    SessionChangeMsg(WTS_SESSION_LOGON, &notification);
    EXPECT_EQ(machine::Now() - startMs, 10u) << "no wait after a first answer";
    EXPECT_EQ(LogCount(" -> abort"), 2);
}

} // namespace
