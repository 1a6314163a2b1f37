// What a device notification starts: the restart marks, the classes, the burst of changed device nodes, a removal that
// the service caused itself.
#include "actions/CallBackTimer.h"
#include "engine/NewDeviceArrived.h"
#include "engine/PortArrival.h"
#include "inventory/CDeviceArrivals.h"
#include "inventory/RestartMarks.h"
#include "support/InterfaceClasses.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <cstring>
#include <vector>

using namespace configtest;

namespace {

constexpr char PortPath[] = "\\\\?\\USB#VID_0403&PID_6001#A1#{86e0d1e0-8089-11d0-9ce4-08003e301f73}";

void Send(DWORD eventCode, const GUID& interfaceClass, const std::string& path, bool wide = false) {
    std::vector<char> record(sizeof(DEV_BROADCAST_DEVICEINTERFACE_A) + 2 * path.size() + 2);
    DEV_BROADCAST_DEVICEINTERFACE_A head = {};
    head.dbcc_size = static_cast<DWORD>(record.size());
    head.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    head.dbcc_classguid = interfaceClass;
    memcpy(record.data(), &head, sizeof(head));
    char* name = record.data() + offsetof(DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name);
    for (const char c : path) {
        *name++ = c;
        if (wide) {
            *name++ = 0;
        }
    }
    *name = 0;
    EXPECT_EQ(DeviceChangeMsg(eventCode, reinterpret_cast<DEV_BROADCAST_HDR*>(record.data())), 0u);
}

class DeviceEvents : public testing::Test {
protected:
    DeviceEvents() {
        StartLog();
        InitializeCriticalSection(&CS_main);
        InitializeCriticalSection(&CS_assign);
        InitCallbackTimers();
        UseIni("");
        table = inventorytest::NewTable();
        g_pDeviceArrivals = new CDeviceArrivals;
    }
    CComPorts* table;
};

TEST_F(DeviceEvents, OnlyTheArrivalClearsARestartMark) {
    CopyText(szRestarting1, "usb#vid_0403&pid_6001#a1");
    CopyText(szRestarting2, "USB#OTHER");
    for (int i = 0; i < 2; ++i) {
        Send(DBT_DEVICEREMOVECOMPLETE, InterfaceClass::ComPort, PortPath);
        EXPECT_FALSE(Logged("ComPortRemoved("));
        EXPECT_STRNE(szRestarting1, "");
    }
    Send(DBT_DEVICEARRIVAL, InterfaceClass::ComPort, PortPath);
    EXPECT_STREQ(szRestarting1, "");
    EXPECT_STRNE(szRestarting2, "");
    Sleep(100);
    EXPECT_FALSE(Logged("ComPortArrived("));
    EXPECT_FALSE(Logged("DeviceArrivals["));
    Send(DBT_DEVICEREMOVECOMPLETE, InterfaceClass::ComPort, PortPath);
    EXPECT_TRUE(Logged("ComPortRemoved("));
    Send(DBT_DEVICEARRIVAL, InterfaceClass::ComPort, PortPath, /*wide=*/true);
    Sleep(20'000);
    EXPECT_TRUE(Logged(std::string("ComPortArrived(") + PortPath + ")..."));
    EXPECT_TRUE(Logged("port not added"));
}

TEST_F(DeviceEvents, EachClassHasItsLines) {
    struct Row {
        GUID interfaceClass;
        const char* path;
        const char* arrival;
        const char* removal; // null: a removal says nothing
    };
    const GUID other = {1, 2, 3, {}};
    for (const Row& row : {
             Row{InterfaceClass::ComPort, "\\\\?\\a",
                 "+C+ |+++ New COM-Port DevPath=", "-C- |+++ Removed COM-Port DevPath="},
             Row{InterfaceClass::Modem, "\\\\?\\b", "+M+ |+++ New Modem DevPath=", "-M- |+++ Removed Modem DevPath="},
             Row{InterfaceClass::UsbDevice, "\\\\?\\c",
                 "+U+ |+++ New USB-Device DevPath=", "-U- |+++ Removed USB-Device DevPath="},
             Row{InterfaceClass::SerenumBusEnumerator, "\\\\?\\d",
                 "+S+ |+++ New SerialBusEnumerator-Device DevPath=", nullptr},
             Row{InterfaceClass::UsbHub, "\\\\?\\e#ROOT_hub",
                 "+R+ |+++ New USB RootHub DevPath=", "-R- |+++ Removed USB RootHub DevPath="},
             Row{InterfaceClass::UsbHub, "\\\\?\\f",
                 "+H+ |+++ New USB Hub DevPath=", "-H- |+++ Removed USB Hub DevPath="},
             Row{other, "\\\\?\\g", nullptr, nullptr},
         }) {
        for (const bool isArrival : {true, false}) {
            machine::CurrentProcess()->debugOutput.clear();
            Send(isArrival ? DBT_DEVICEARRIVAL : DBT_DEVICEREMOVECOMPLETE, row.interfaceClass, row.path);
            const char* lines = isArrival ? row.arrival : row.removal;
            EXPECT_EQ(CountLogged(" DevPath="), (lines != nullptr ? 1 : 0) + (isArrival ? 1 : 0)) << row.path;
            if (lines != nullptr) {
                const std::string both = lines;
                EXPECT_TRUE(Logged("-------------------- " + both.substr(0, 4) + "---------------------")) << both;
                EXPECT_TRUE(Logged(both.substr(5) + row.path)) << both;
            }
            EXPECT_EQ(CountLogged("DeviceArrivals["), isArrival ? 1 : 0) << row.path;
        }
    }
    Sleep(30'000);
}

TEST_F(DeviceEvents, ABurstOfChangedNodesIsLookedAtOnceAndASecondLater) {
    for (int i = 0; i < 10; ++i) {
        DeviceChangeMsg(DBT_DEVNODES_CHANGED, nullptr);
        Sleep(100);
    }
    Sleep(890);
    EXPECT_EQ(CountLogged(" before exec timerproc"), 0);
    Sleep(5000);
    EXPECT_EQ(CountLogged(" before exec timerproc"), 1);
}

TEST_F(DeviceEvents, OtherEventsAreOnlyWritten) {
    DEV_BROADCAST_HDR volume = {};
    volume.dbch_devicetype = 2;
    DeviceChangeMsg(DBT_DEVICEARRIVAL, &volume);
    EXPECT_EQ(CountLogged("WM_DEVICE_CHANGE wParam="), 0);
    DeviceChangeMsg(DBT_DEVICEQUERYREMOVE, &volume);
    EXPECT_EQ(CountLogged("DBT_DEVICEQUERYREMOVE"), 0);
    EXPECT_TRUE(Logged("WM_DEVICE_CHANGE wParam=00008001"));
    Send(DBT_DEVICEQUERYREMOVE, InterfaceClass::ComPort, PortPath);
    EXPECT_EQ(CountLogged("DBT_DEVICEQUERYREMOVE"), 1);
    EXPECT_EQ(CountLogged("WM_DEVICE_CHANGE wParam=00008001"), 2);
}

TEST_F(DeviceEvents, ARemovalByOurOwnRestartLeavesThePortPresent) {
    struct Row {
        DWORD ageOfRestart;
        DWORD isPresent;
    };
    for (const Row& row : {Row{4999, 1}, Row{5000, 0}}) {
        CComPort* port = inventorytest::Put(table, {.path = PortPath, .id = "USB\\X", .regName = "COM5"});
        port->OnArrivalDone = 1;
        port->RestartTicker = GetTickCount() - row.ageOfRestart;
        ComPortRemoved(PortPath);
        EXPECT_EQ(port->IsPresent, row.isPresent) << row.ageOfRestart;
        EXPECT_EQ(port->OnArrivalDone, 0u);
        port->IsUsed = 0;
    }
    EXPECT_EQ(CountLogged(" port is restarting -> ignore removal"), 1);
    ComPortRemoved("\\\\?\\unknown");
    EXPECT_TRUE(Logged(" not found"));
}

TEST_F(DeviceEvents, ARemovalKillsTheWaitingBalloonOfAnArrival) {
    CComPort* port = inventorytest::Put(table, {.path = PortPath, .id = "USB\\X", .regName = "COM5"});
    CreateCallbackTimer(1000, 0xBABA0001, 0, [](DWORD, ULONG_PTR) { FAIL() << "the balloon came"; });
    UseIni("[BalloonTips]\nEnabledOnRemoval=1\n");
    port->ArrivalTicker = GetTickCount() - 1000;
    ComPortRemoved(PortPath);
    Sleep(5000);
    EXPECT_TRUE(Logged("   GetTickCount() - P->ChangePortTicker="));
}

} // namespace
