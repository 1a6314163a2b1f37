// What a device notification starts: the restart marks, a removal that the service caused itself, what a removal kills.
#include "actions/CallBackTimer.h"
#include "engine/NewDeviceArrived.h"
#include "engine/PortArrival.h"
#include "inventory/CDeviceArrivals.h"
#include "inventory/RestartMarks.h"
#include "support/InterfaceClasses.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <cstring>

using namespace configtest;

namespace {

constexpr char PortPath[] = "\\\\?\\USB#VID_0403&PID_6001#A1#{86e0d1e0-8089-11d0-9ce4-08003e301f73}";

void Send(DWORD eventCode) {
    std::vector<char> record(sizeof(DEV_BROADCAST_DEVICEINTERFACE_A) + sizeof(PortPath));
    DEV_BROADCAST_DEVICEINTERFACE_A head = {};
    head.dbcc_size = static_cast<DWORD>(record.size());
    head.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    head.dbcc_classguid = InterfaceClass::ComPort;
    memcpy(record.data(), &head, sizeof(head));
    memcpy(record.data() + offsetof(DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name), PortPath, sizeof(PortPath));
    EXPECT_EQ(DeviceChangeMsg(eventCode, reinterpret_cast<DEV_BROADCAST_HDR*>(record.data())), 0u);
}

class DeviceEvents : public testing::Test {
protected:
    DeviceEvents() {
        StartLog();
        InitializeCriticalSection(&CS_main);
        InitCallbackTimers();
        UseIni("[BalloonTips]\nEnabledOnRemoval=1\n");
        table = inventorytest::NewTable();
        g_pDeviceArrivals = new CDeviceArrivals;
    }
    CComPorts* table;
};

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
        CComPort* port = inventorytest::Put(table, {.path = PortPath, .id = "USB\\X", .regName = "COM5"});
        port->OnArrivalDone = 1;
        port->RestartTicker = GetTickCount() - ageOfRestart;
        ComPortRemoved(PortPath);
        EXPECT_EQ(port->IsPresent, isPresent) << ageOfRestart;
        EXPECT_EQ(port->OnArrivalDone, 0u);
        port->IsUsed = 0;
    }
}

TEST_F(DeviceEvents, ARemovalKillsTheWaitingBalloonOfAnArrival) {
    inventorytest::Put(table, {.path = PortPath, .id = "USB\\X", .regName = "COM5"});
    CreateCallbackTimer(1000, 0xBABA0001, 0, [](DWORD, ULONG_PTR) { FAIL() << "the balloon came"; });
    ComPortRemoved(PortPath);
    Sleep(5000);
    EXPECT_TRUE(Logged("   GetTickCount() - P->ChangePortTicker="));
}

} // namespace
