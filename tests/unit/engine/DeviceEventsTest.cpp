// What a device notification starts: the restart marks, a removal that the service caused itself, what a removal kills,
// what the user hears of it; the registration.
#include "actions/CallBackTimer.h"
#include "engine/NewDeviceArrived.h"
#include "engine/PortArrival.h"
#include "host/CService.h"
#include "inventory/names/RestartMarks.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/OsVersion.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <cstring>

using namespace configtest;

constexpr char PortPath[] = "\\\\?\\USB#VID_0403&PID_6001#A1#{86e0d1e0-8089-11d0-9ce4-08003e301f73}";

static void Send(DWORD eventCode, const char* path = PortPath, const GUID& interfaceClass = interface_class::ComPort,
                 DWORD deviceType = DBT_DEVTYP_DEVICEINTERFACE) {
    std::vector<char> record(sizeof(DEV_BROADCAST_DEVICEINTERFACE_A) + strlen(path));
    DEV_BROADCAST_DEVICEINTERFACE_A head = {};
    head.dbcc_size = static_cast<DWORD>(record.size());
    head.dbcc_devicetype = deviceType;
    head.dbcc_classguid = interfaceClass;
    memcpy(record.data(), &head, sizeof(head));
    memcpy(record.data() + offsetof(DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name), path, strlen(path) + 1);
    EXPECT_EQ(DeviceChangeMsg(eventCode, reinterpret_cast<DEV_BROADCAST_HDR*>(record.data())), 0u);
}

// Makes a window of the thread, which answers from the given time on.
static DWORD WINAPI SlowWindow_ThreadProc(LPVOID answersAfterMs) {
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = MainWndProc;
    windowClass.lpszClassName = "Slow";
    RegisterClassA(&windowClass);
    g_hwndMain = CreateWindowExA(0, "Slow", "", 0, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    Sleep(static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(answersAfterMs)));
    MSG message;
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        DispatchMessageA(&message);
    }
    return 0;
}

namespace {
class DeviceEvents : public testing::Test {
protected:
    DeviceEvents() {
        StartLog();
        InitializeCriticalSection(&CS_main);
        InitCallbackTimers();
        UseIni("[BalloonTips]\nEnabledOnRemoval=1\n");
        m_table = inventorytest::NewTable();
        g_pDeviceArrivals = new CDeviceArrivals;
    }
    CComPorts* m_table;
};
} // namespace

TEST_F(DeviceEvents, OnlyTheArrivalClearsARestartMark) {
    CopyText(szRestarting1, "usb#vid_0403&pid_6001#a1");
    CopyText(szRestarting2, "USB#OTHER");
    for (int i = 0; i < 2; ++i) {
        Send(DBT_DEVICEREMOVECOMPLETE);
        EXPECT_FALSE(Logged("ComPortRemoved("));
        EXPECT_STRNE(szRestarting1, "");
    }
    Send(DBT_DEVICEARRIVAL);
    EXPECT_STREQ(szRestarting1, "");
    EXPECT_STRNE(szRestarting2, "");
    Sleep(100);
    EXPECT_FALSE(Logged("ComPortArrived("));
    EXPECT_FALSE(Logged("DeviceArrivals["));
    Send(DBT_DEVICEREMOVECOMPLETE);
    EXPECT_TRUE(Logged("ComPortRemoved("));
}

TEST_F(DeviceEvents, ARemovalByOurOwnRestartLeavesThePortPresent) {
    for (const auto& [ageOfRestart, isPresent] : {std::pair(4999u, 1u), std::pair(5000u, 0u)}) {
        CComPort* port = inventorytest::Put(m_table, {.path = PortPath, .id = "USB\\X", .regName = "COM5"});
        port->OnArrivalDone = 1;
        port->RestartTicker = GetTickCount() - ageOfRestart;
        ComPortRemoved(PortPath);
        EXPECT_EQ(port->IsPresent, isPresent) << ageOfRestart;
        EXPECT_EQ(port->OnArrivalDone, 0u);
        port->IsUsed = 0;
    }
}

TEST_F(DeviceEvents, ARemovalKillsTheWaitingBalloonOfAnArrival) {
    inventorytest::Put(m_table, {.path = PortPath, .id = "USB\\X", .regName = "COM5"});
    CreateCallbackTimer(1000, 0xBABA0001, 0, [](DWORD, ULONG_PTR) { FAIL() << "the balloon came"; });
    ComPortRemoved(PortPath);
    Sleep(5000);
    EXPECT_TRUE(Logged("   GetTickCount() - P->ChangePortTicker="));
}

// Both sides of each limit, for the arrival and, with the ticks exchanged, for the removal; with the wrap of the tick
// count between the two ticks, and then between them and now.
TEST_F(DeviceEvents, AFlickerIsNotReported) {
    for (const bool isAfterWrap : {false, true}) {
        if (isAfterWrap) {
            Sleep(1500 - GetTickCount());
        }
        for (const auto& [gap, ageOfChange, isReported] :
             {std::tuple(1000u, 2000u, false), std::tuple(1001u, 2000u, true), std::tuple(1000u, 1999u, true)}) {
            UseIni("[BalloonTips]\nEnabled=1\nEnabledOnRemoval=0\n");
            CComPort port = {};
            port.RemovalTicker = isAfterWrap ? GetTickCount() - 2000 : 0xFFFFFF00u;
            port.ArrivalTicker = port.RemovalTicker + gap;
            port.ChangePortTicker = GetTickCount() - ageOfChange;
            EXPECT_EQ(IsArrivalBalloonDue(&port), isReported) << gap << " " << ageOfChange;
            std::swap(port.ArrivalTicker, port.RemovalTicker);
            EXPECT_TRUE(IsArrivalBalloonDue(&port)) << "it has not been away";
            EXPECT_FALSE(IsRemovalToBeReported(&port));
            UseIni("[BalloonTips]\nEnabled=0\nEnabledOnRemoval=1\n");
            EXPECT_EQ(IsRemovalToBeReported(&port), isReported) << gap << " " << ageOfChange;
            EXPECT_FALSE(IsArrivalBalloonDue(&port));
        }
    }
    EXPECT_EQ(CountLogged("P->ArrivalTicker - P->RemovalTicker=1000   ageof(P->ChangePortTicker)=2000"), 2);
    EXPECT_EQ(CountLogged("P->ArrivalTicker - P->RemovalTicker=4294966296   GetTickCount() - P->ChangePortTicker=2000"),
              2);
}

TEST_F(DeviceEvents, TheClassAndThePathDecideWhatIsDone) {
    const GUID other = {0x12345678, 1, 2, {3}};
    for (const char* path : {"\\\\?\\USB#Root_Hub30#1#{}", "\\\\?\\usb#ROOT_HUB#2#{}"}) {
        Send(DBT_DEVICEARRIVAL, path, interface_class::UsbHub);
        Send(DBT_DEVICEREMOVECOMPLETE, path, interface_class::UsbHub);
    }
    EXPECT_EQ(CountLogged("-------------------- +R+ ---------------------"), 2);
    EXPECT_EQ(CountLogged("-------------------- -R- ---------------------"), 2);
    EXPECT_FALSE(Logged("H+ -") || Logged("-H-"));
    ClearLog();
    for (const GUID& known : {interface_class::SerenumBusEnumerator, other}) {
        Send(DBT_DEVICEARRIVAL, "\\\\?\\X#root#1#{}", known);
        Send(DBT_DEVICEREMOVECOMPLETE, "\\\\?\\X#root#1#{}", known);
    }
    EXPECT_EQ(CountLogged("DeviceArrivals[2]"), 2) << "ports may have come along with it";
    EXPECT_EQ(CountLogged("--- +S+ ---"), 1);
    EXPECT_EQ(CountLogged("--- +"), 1);
    EXPECT_FALSE(Logged("--- -"));
    Send(DBT_DEVICEQUERYREMOVE, PortPath, interface_class::ComPort, DBT_DEVTYP_PORT);
    EXPECT_FALSE(Logged("DBT_DEVICEQUERYREMOVE"));
    Send(DBT_DEVICEQUERYREMOVE);
    EXPECT_TRUE(Logged("DBT_DEVICEQUERYREMOVE"));
    // Any program can send the window a code that has no record, and any number as its address.
    EXPECT_EQ(DeviceChangeMsg(DBT_DEVNODES_CHANGED, reinterpret_cast<DEV_BROADCAST_HDR*>(16)), 0u);
    EXPECT_EQ(DeviceChangeMsg(DBT_DEVICEARRIVAL, nullptr), 0u);
    EXPECT_EQ(DeviceChangeMsg(0x8006, reinterpret_cast<DEV_BROADCAST_HDR*>(16)), 0u);
    EXPECT_TRUE(Logged("WM_DEVICE_CHANGE wParam=00008006"));
    EXPECT_EQ(CountLogged("WM_DEVICE_CHANGE wParam=00008001"), 2);
    EXPECT_FALSE(Logged("ComPort"));
}

TEST_F(DeviceEvents, AllClassesAreOneRegistrationButOnWindows2000) {
    UseIni("[Settings]\nRegisterAllDevClasses=1\n");
    CreateThread(nullptr, 0, SlowWindow_ThreadProc, nullptr, 0, nullptr);
    Sleep(1);
    for (const auto& [version, count] : {std::pair(0x0500u, 5), std::pair(0x0501u, 1)}) {
        ClearLog();
        g_os.VersionBcd = version;
        RegisterDeviceNotifications(g_hwndMain, DEVICE_NOTIFY_WINDOW_HANDLE);
        EXPECT_EQ(CountLogged("RegisterDeviceNotification("), count);
        EXPECT_EQ(Logged("RegisterDeviceNotification(ALL) hDevNotify=0x"), count == 1);
        EXPECT_FALSE(Logged(" failed  err="));
    }
}

TEST_F(DeviceEvents, AServiceAsksItsWindowUntilItAnswersWithinAHundredMilliseconds) {
    g_pService = new CService;
    for (const auto& [answersAfter, isService, silences, ms] :
         {std::tuple(99, 1u, 0, 99u), std::tuple(101, 1u, 1, 1100u), std::tuple(1201, 1u, 2, 2200u),
          std::tuple(1201, 0u, 0, 100u)}) {
        ClearLog();
        g_pService->IsServiceProcess = isService;
        CreateThread(nullptr, 0, SlowWindow_ThreadProc, reinterpret_cast<LPVOID>(ULONG_PTR(answersAfter)), 0, nullptr);
        Sleep(0);
        const DWORD start = GetTickCount();
        RegisterDeviceNotifications(g_hwndMain, DEVICE_NOTIFY_WINDOW_HANDLE);
        EXPECT_EQ(GetTickCount() - start, ms) << answersAfter;
        EXPECT_EQ(CountLogged("msgwin no response"), silences) << answersAfter;
        EXPECT_EQ(CountLogged("RegisterDeviceNotification("), 5);
    }
}
