#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/NameClaims.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "support/system/InterfaceClasses.h"

#include "tests/unit/Log.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <cstring>
#include <iterator>
#include <vector>

using inventorytest::NewTable;
using inventorytest::Put;

// Two arrivals meet only when the turn changes between two calls.
const harness::WithSetup Shuffled([](machine::Setup& setup) { setup.seed = 7; });

TEST(PortTable, APathIsFoundWhateverItsPrefixAndCase) {
    CComPorts* table = NewTable();
    EXPECT_EQ(-1, table->FindPortIdxByDevicePath("\\\\?\\usb#1")) << "in an empty table";
    EXPECT_EQ(-1, table->FindPortIdxByDevInst(0));
    table->AddVirtualPort("COM3", "\\Device\\Gone");
    Put(table, {.path = "\\\\?\\usb#vid_0403#a1#{guid}"});
    Put(table, {.path = "\\\\?\\usb#vid_0403#a2#{guid}"})->IsPresent = 0;
    Put(table, {.path = "\\\\?\\usb#vid_0403#a3#{guid}"})->IsUsed = 0;
    EXPECT_EQ(1, table->FindPortIdxByDevicePath("\\\\.\\USB#vid_0403#A1#{guid}"));
    EXPECT_EQ(2, table->FindPortIdxByDevicePath("\\\\?\\usb#vid_0403#a2#{guid}"));
    for (const char* path : {"\\\\?\\usb#vid_0403#a3#{guid}", "\\\\?\\usb#vid_0403#a1#{guid", "\\\\?\\", "x", ""}) {
        EXPECT_EQ(-1, table->FindPortIdxByDevicePath(path)) << path;
    }
    EXPECT_EQ(-1, table->FindPortIdxByDevicePath(nullptr));
}

TEST(PortTable, ANameBelongsToThePortThatTheLinkLeadsTo) {
    CComPorts* table = NewTable();
    ASSERT_EQ(1, CreateDosName("COM45", "\\Device\\VCP1"));
    Put(table, {.regName = "COM45", .kernelNameCom = "\\Device\\VCP1"})->IsPresent = 0;
    CComPort* claims = Put(table, {.regName = "com45", .kernelNameCom = "\\Device\\VCP0"});
    Put(table, {.regName = "COM45", .kernelNameCom = "\\Device\\VCP1"})->Problem = 10;
    CComPort* owner = Put(table, {.regName = "COM45", .kernelNameCom = "\\Device\\VCP1"});
    EXPECT_EQ(claims, table->FindPortByComPort("COM45"));
    EXPECT_EQ(owner->Index, table->FindPortByComPort("COM45", claims));
    EXPECT_EQ(owner->Index, table->FindPortByComPort("COM45", nullptr));
    EXPECT_EQ(-1, table->FindPortByComPort("COM45", owner));
    EXPECT_EQ(nullptr, table->FindPortByComPort("COM450"));
}

TEST(PortTable, TheLastSlotIsTakenAndOneMoreRefused) {
    CComPorts* table = NewTable();
    for (int i = 0; i < MaxPorts; ++i) {
        ASSERT_EQ(i, table->AddVirtualPort("COM12", "\\Device\\Gone")) << i;
    }
    const CComPort* first = table->Ports[0];
    EXPECT_EQ(0u, first->RecordValid);
    EXPECT_EQ(12, first->PortNumber);
    EXPECT_STREQ("12", first->PortNumberText);
    EXPECT_EQ(0x8000000Cu, first->DevInst);
    const std::vector<CComPort*> before(std::begin(table->Ports), std::end(table->Ports));
    std::vector<CComPort> records;
    for (const CComPort* record : before) {
        records.push_back(*record);
    }
    logtest::StartLog();
    EXPECT_EQ(-1, table->FindFreePortSlot());
    EXPECT_EQ(0, table->AddVirtualPort("COM8", "\\Device\\Gone"));
    EXPECT_EQ(0, table->AddPort(0, 1000, "\\\\?\\late"));
    EXPECT_TRUE(logtest::Logged("ERROR: more than 4096 ports -> abort"));
    EXPECT_EQ(MaxPorts, table->PortCount);
    for (int i = 0; i < MaxPorts; ++i) {
        EXPECT_TRUE(before[i] == table->Ports[i] && std::memcmp(before[i], &records[i], sizeof(CComPort)) == 0) << i;
    }
    table->Ports[9]->IsUsed = 0; // a slot that is given up is the next to be taken
    EXPECT_EQ(9, table->AddVirtualPort("COM9", "\\Device\\Gone"));
    EXPECT_EQ(MaxPorts, table->PortCount);
}

TEST(PortTable, AFullOneGivesUpTheRecordThatHasBeenAbsentLongestAndWaitsForNothing) {
    CComPorts* table = NewTable();
    Sleep(60'000);
    for (DWORD i = 0; i < MaxPorts; ++i) {
        CComPort* port = Put(table, {.devInst = 5000 + i, .id = "FTDIBUS\\OLD"});
        port->IsPresent = 0;
        port->RemovalTicker = GetTickCount() - 1000 - i;
    }
    // From the longest absent on: there, marked, waiting for a restart, just restarted.
    table->Ports[MaxPorts - 1]->IsPresent = 1;
    table->Ports[MaxPorts - 2]->MarkedForRestart = 1;
    AwaitRestart(table->Ports[MaxPorts - 3], GetTickCount());
    table->Ports[MaxPorts - 4]->RestartTicker = GetTickCount() - 4999;
    logtest::StartLog();
    EXPECT_EQ(1, table->AddPort(0, 1000, "\\\\?\\new"));
    EXPECT_EQ(MaxPorts - 5, table->FindPortIdxByDevInst(1000));
    EXPECT_EQ(1, logtest::CountLogged("more than 4096 ports -> Ports[4091] id=FTDIBUS\\OLD, absent longest, gives up"));
    EXPECT_EQ(MaxPorts, table->PortCount);
}

static DWORD WINAPI AddPorts(void* firstDevInst) {
    const DWORD first = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(firstDevInst));
    for (DWORD i = 0; i < 20; ++i) {
        char path[64];
        FormatText(path, "\\\\?\\port#%u", first + i);
        g_pComPorts->AddPort(0, first + i, path);
    }
    return 0;
}

TEST(PortTable, TwoArrivalsNeverGetOneSlotNorOneDeviceTwoRecords) {
    const CComPorts* table = NewTable();
    // The second thread brings ten devices of the first once more, and ten new ones.
    for (ULONG_PTR i = 0; i < 2; ++i) {
        CreateThread(nullptr, 0, AddPorts, reinterpret_cast<void*>(1000 + 10 * i), 0, nullptr);
    }
    Sleep(100'000);
    ASSERT_EQ(30, table->PortCount);
    for (LONG i = 0; i < table->PortCount; ++i) {
        EXPECT_NE(-1, table->FindPortIdxByDevInst(static_cast<DWORD>(1000 + i))) << i;
        EXPECT_EQ(i, table->Ports[i]->Index);
    }
}

TEST(PortTable, PortsAreOrderedByChainThenLocationThenId) {
    // In each of these one precedes the next one.
    using Position = std::tuple<ULONGLONG, const char*, const char*>;
    const std::vector<Position> orders[] = {
        {{0, "", "A"}, {0x0104000000000000, "Z", "Z"}, {0x0104020000000000, "A", "A"}, {0x0104030000000000, "", "A"}},
        {{7, "Port 1", "A"}, {7, "Port 1", "B"}, {7, "Port 1a", "B"}, {7, "Port 1b", "A"}},
        {{7, "Port 2", "B"}, {7, "Port 10", "A"}},
        {{7, "Port_#0004.Hub_#0001", "B"}, {7, "Port_#0004.Hub_#0002", "A"}},
        {{7, "", "A"}, {7, "Port 1", "B"}},
        {{7, "Port 1", "A"}, {7, "", "B"}}};
    for (const std::vector<Position>& order : orders) {
        std::vector<CComPort> ports;
        for (const auto& [chain, location, id] : order) {
            CComPort& port = ports.emplace_back();
            port.UsbPortChain = chain;
            CopyText(port.Location, location);
            CopyText(port.DeviceID, id);
        }
        for (size_t i = 0; i + 1 < ports.size(); ++i) {
            const CComPort *a = &ports[i], *b = &ports[i + 1];
            EXPECT_LT(ComparePortsByPosition(&a, &b), 0) << a->Location << " against " << b->Location;
            EXPECT_GT(ComparePortsByPosition(&b, &a), 0) << a->Location << " against " << b->Location;
            EXPECT_EQ(ComparePortsByPosition(&a, &a), 0);
        }
    }
}

TEST(DeviceArrivals, AFullListWritesOverTheOldestEntryAndAKnownPathMovesItsTick) {
    g_pDeviceArrivals = new CDeviceArrivals;
    char path[64];
    for (DWORD i = 0; i < MaxDeviceArrivals + 2; ++i) {
        FormatText(path, "\\\\?\\usb#%u", i);
        g_pDeviceArrivals->AddDeviceArrival(path, &interface_class::UsbDevice);
    }
    EXPECT_EQ(MaxDeviceArrivals, g_pDeviceArrivals->Count);
    EXPECT_EQ(1u, g_pDeviceArrivals->LastIndex);
    EXPECT_STREQ("\\\\?\\usb#4096", g_pDeviceArrivals->Arrivals[0]->DevPath);
    EXPECT_STREQ("\\\\?\\usb#4097", g_pDeviceArrivals->Arrivals[1]->DevPath);
    EXPECT_STREQ("\\\\?\\usb#2", g_pDeviceArrivals->Arrivals[2]->DevPath);

    const std::string longPath = "\\\\?\\" + std::string(300, 'x'); // longer than what is stored of it
    g_pDeviceArrivals->AddDeviceArrival(longPath.c_str(), &interface_class::UsbDevice);
    EXPECT_EQ(0u, g_pDeviceArrivals->GetDeviceArrivalTicker(0)) << "no node was found: nobody's arrival";
    g_pDeviceArrivals->Arrivals[2]->DevInst = 77;
    const DWORD firstTick = g_pDeviceArrivals->GetDeviceArrivalTicker(77);
    Sleep(1500);
    EXPECT_EQ(77u, g_pDeviceArrivals->AddDeviceArrival(longPath.c_str(), &interface_class::UsbDevice));
    EXPECT_EQ(2u, g_pDeviceArrivals->LastIndex);
    EXPECT_EQ(g_pDeviceArrivals->GetDeviceArrivalTicker(77) - firstTick, 1500u);
}
