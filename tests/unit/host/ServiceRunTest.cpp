// The running service in situations that no rehearsal reaches: a stop that nothing answers, and controls at odd times.
// The test is the service's process, its thread the dispatcher's.
#include "tests/unit/host/HostSetup.h"

#include "host/SessionEvents.h"

#include "simwin/sessions/Sessions.h"

#include "actions/CallBackTimer.h"
#include "config/CCfgReader.h"
#include "config/CSettings.h"

using namespace hosttest;

// A service process as WinMain has it just before the dispatcher.
static void StartOfService() {
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

// Runs the service to its stop.
static void RunWithStopAt(std::uint64_t atMs) {
    machine::At(atMs, machine::Due::Outside, [] { machine::PostServiceControl(Name, SERVICE_CONTROL_STOP, 0, {}); });
    EXPECT_TRUE(g_pService->Start());
}

static std::uint64_t FirstReportMs(DWORD state) {
    for (const machine::ServiceReport& report : machine::ServiceReports()) {
        if (report.state == state) {
            return report.atMs;
        }
    }
    return ~0ull;
}

// What an arrival does that keeps the main lock for long.
static DWORD WINAPI HoldMainLock_ThreadProc(LPVOID) {
    EnterCriticalSection(&CS_main);
    Sleep(60000);
    LeaveCriticalSection(&CS_main);
    return 0;
}

TEST(ServiceRun, AHolderThatHangsDoesNotHoldUpTheStopForEver) {
    StartOfService();
    machine::Process* own = machine::CurrentProcess();
    machine::At(5000, machine::Due::Outside, [own] {
        machine::ResumeThreadOf(machine::CreateThreadOf(own, [] { return HoldMainLock_ThreadProc(nullptr); }));
    });
    RunWithStopAt(5001);
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 5001u + 12 * 900);
}

TEST(ServiceRun, AStopDuringTheInitialisationStillEndsTheService) {
    StartOfService();
    machine::AddFault({.call = "CMP_WaitNoPendingInstallEvents", .on = "*", .delayMs = 5000});
    RunWithStopAt(1500);
    EXPECT_EQ(FirstReportMs(SERVICE_RUNNING), ~0ull) << "RUNNING after STOP_PENDING";
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 1500u + 4 * 900);
}

TEST(ServiceRun, AStopAtTheEndOfTheInitialisationIsNotOvertaken) {
    StartOfService();
    machine::AddFault({.call = "CMP_WaitNoPendingInstallEvents", .on = "*", .delayMs = 4500});
    machine::AddFault({.call = "SetServiceStatus", .on = "STOP_PENDING", .delayMs = 100});
    RunWithStopAt(4450);
    EXPECT_EQ(FirstReportMs(SERVICE_RUNNING), ~0ull) << "RUNNING while STOP_PENDING is being reported";
    EXPECT_EQ(FirstReportMs(SERVICE_STOPPED), 4550u);
}

TEST(ServiceRun, WithoutTheServiceManagerTheDispatcherComesBackAtOnce) {
    StartOfProgram();
    g_pService->IsServiceProcess = 1;
    EXPECT_FALSE(g_pService->Start());
    EXPECT_EQ(GetLastError(), ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    EXPECT_EQ(g_pService->IsServiceProcess, 0u);
}

TEST(Controls, ADeviceEventAfterTheStopDoesNotWaitForTheLock) {
    StartOfService();
    CreateThread(nullptr, 0, HoldMainLock_ThreadProc, nullptr, 0, nullptr);
    Sleep(1);
    g_StopRequested = 1;
    g_pService->HandlerEx(SERVICE_CONTROL_DEVICEEVENT, 7, nullptr, nullptr);
    EXPECT_EQ(machine::Now(), 1u);
    EXPECT_FALSE(Logged("WM_DEVICE_CHANGE"));
}

TEST(SessionEvents, ALogonIsFollowedUntilItsSessionAnswers) {
    StartOfProgram();
    const WTSSESSION_NOTIFICATION notification = {sizeof(notification), 3};
    // How long it takes, in ms.
    const auto logOn = [&] {
        const std::uint64_t startMs = machine::Now();
        SessionChangeMsg(WTS_SESSION_LOGON, &notification);
        return machine::Now() - startMs;
    };
    SessionChangeMsg(WTS_SESSION_LOGOFF, &notification);
    EXPECT_FALSE(Logged("WTSQuerySessionInformation")) << "a logoff is only traced";
    EXPECT_EQ(logOn(), 10u + 19 * 500);
    EXPECT_EQ(CountLogged(" -> abort"), 1);
    machine::After(1200, [] { machine::DefineSession({.id = 3, .user = "LAB\\anna"}); });
    EXPECT_EQ(logOn(), 10u + 3 * 500 + 1000);
    EXPECT_EQ(CountLogged(" state=Active"), 1);
    machine::DefineSession({.id = 3, .user = "LAB\\anna", .state = WTSDisconnected});
    EXPECT_EQ(logOn(), 10u) << "no wait after a first answer";
    EXPECT_EQ(CountLogged(" -> abort"), 2);
}
