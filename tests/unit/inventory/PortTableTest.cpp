#include "inventory/CComPorts.h"
#include "inventory/CDeviceArrivals.h"
#include "inventory/CDosDeviceNames.h"
#include "inventory/DeviceTree.h"
#include "support/InterfaceClasses.h"

#include "tests/harness/Harness.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <string>

namespace {

using inventorytest::NewTable;
using inventorytest::Put;

// Two arrivals meet only when the turn changes between two calls.
const harness::WithSetup Shuffled([](machine::Setup& setup) { setup.seed = 7; });

TEST(PortTable, AnEmptyTableFindsNothing) {
    const CComPorts* table = NewTable();
    EXPECT_EQ(-1, table->FindPortIdxByDevInst(0));
    EXPECT_EQ(-1, table->FindPortIdxByDevicePath("\\\\?\\usb#1"));
    EXPECT_EQ(nullptr, table->FindPortByComPort("COM1"));
    EXPECT_EQ(-1, table->FindPortByComPort("COM1", nullptr));
    EXPECT_EQ(0, table->FindFreePortSlot());
}

TEST(PortTable, APathIsFoundWhateverItsPrefixAndCase) {
    CComPorts* table = NewTable();
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
    CComPort* absent = Put(table, {.regName = "COM45", .kernelNameCom = "\\Device\\VCP1"});
    absent->IsPresent = 0;
    CComPort* claims = Put(table, {.regName = "com45", .kernelNameCom = "\\Device\\VCP0"});
    CComPort* broken = Put(table, {.regName = "COM45", .kernelNameCom = "\\Device\\VCP1"});
    broken->Problem = 10;
    CComPort* owner = Put(table, {.regName = "COM45", .kernelNameCom = "\\Device\\VCP1"});
    EXPECT_EQ(claims, table->FindPortByComPort("COM45"));
    EXPECT_EQ(owner->Index, table->FindPortByComPort("COM45", claims));
    EXPECT_EQ(owner->Index, table->FindPortByComPort("COM45", nullptr));
    EXPECT_EQ(-1, table->FindPortByComPort("COM45", owner));
    EXPECT_EQ(nullptr, table->FindPortByComPort("COM450"));
}

TEST(PortTable, AVirtualRecordHoldsItsNumber) {
    CComPorts* table = NewTable();
    const int index = table->AddVirtualPort("COM12", "\\Device\\Modem7");
    const CComPort* port = table->FindPortByComPort("COM12");
    ASSERT_NE(nullptr, port);
    EXPECT_EQ(table->Ports[index], port);
    EXPECT_EQ(0u, port->RecordValid);
    EXPECT_EQ(12, port->PortNumber);
    EXPECT_STREQ("12", port->PortNumberText);
    EXPECT_EQ(0x8000000Cu, port->DevInst);
    EXPECT_FALSE(IsRealDevInst(port->DevInst));
    EXPECT_STREQ("Unknown", port->BusTypeName);
}

TEST(PortTable, TheLastSlotIsTakenAndOneMoreRefused) {
    CComPorts* table = NewTable();
    for (int i = 0; i < kMaxPorts; ++i) {
        ASSERT_EQ(i, table->AddVirtualPort("COM7", "\\Device\\Gone")) << i;
    }
    const CComPort* first = table->Ports[0];
    EXPECT_EQ(-1, table->FindFreePortSlot());
    EXPECT_EQ(0, table->AddVirtualPort("COM8", "\\Device\\Gone"));
    EXPECT_EQ(0, table->AddPort(0, 1000, "\\\\?\\late"));
    EXPECT_EQ(kMaxPorts, table->PortCount);
    EXPECT_EQ(first, table->Ports[0]);
    EXPECT_STREQ("COM7", first->szRegPortName);
    EXPECT_EQ(nullptr, table->FindPortByComPort("COM8"));
    table->Ports[9]->IsUsed = 0; // a slot that is given up is the next to be taken
    EXPECT_EQ(9, table->AddVirtualPort("COM9", "\\Device\\Gone"));
    EXPECT_EQ(kMaxPorts, table->PortCount);
}

DWORD WINAPI AddPorts(void* firstDevInst) {
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
    HANDLE threads[2] = {};
    for (ULONG_PTR i = 0; i < 2; ++i) {
        threads[i] = CreateThread(nullptr, 0, AddPorts, reinterpret_cast<void*>(1000 + 10 * i), 0, nullptr);
        ASSERT_NE(nullptr, threads[i]);
    }
    WaitForSingleObject(threads[0], INFINITE);
    WaitForSingleObject(threads[1], INFINITE);
    ASSERT_EQ(30, table->PortCount);
    for (DWORD devInst = 1000; devInst < 1030; ++devInst) {
        EXPECT_NE(-1, table->FindPortIdxByDevInst(devInst)) << devInst;
    }
    for (LONG i = 0; i < table->PortCount; ++i) {
        EXPECT_EQ(i, table->Ports[i]->Index);
    }
}

struct PositionRow {
    ULONGLONG chainA, chainB;
    const char *locationA, *locationB;
    const char *idA, *idB;
    int order; // sign of a against b
};

constexpr PositionRow Positions[] = {
    {0x0104000000000000, 0x0104020000000000, "Z", "A", "Z", "A", -1},
    {0x0104030000000000, 0x0104020000000000, "A", "Z", "A", "Z", 1},
    {7, 7, "Port 2", "Port 10", "B", "A", -1},
    {7, 7, "Port_#0004.Hub_#0001", "Port_#0004.Hub_#0002", "B", "A", -1},
    {7, 7, "Port 1a", "Port 1b", "B", "A", -1},
    {7, 7, "Port 1", "Port 1", "B", "A", 1},
    {7, 7, "", "Port 1", "A", "B", -1},
    {7, 7, "Port 1", "", "B", "A", 1},
    {0, 0, "", "", "A", "A", 0},
};

TEST(PortTable, PortsAreOrderedByChainThenLocationThenId) {
    for (const PositionRow& row : Positions) {
        CComPort a;
        CComPort b;
        a.UsbPortChain = row.chainA;
        b.UsbPortChain = row.chainB;
        CopyText(a.Location, row.locationA);
        CopyText(b.Location, row.locationB);
        CopyText(a.DeviceID, row.idA);
        CopyText(b.DeviceID, row.idB);
        const CComPort* pointers[] = {&a, &b};
        const LONGLONG result = ComparePortsByPosition(&pointers[0], &pointers[1]);
        const std::string what = std::string(row.locationA) + " against " + row.locationB;
        EXPECT_EQ(row.order, (result > 0) - (result < 0)) << what;
        const LONGLONG reverse = ComparePortsByPosition(&pointers[1], &pointers[0]);
        EXPECT_EQ((result > 0) - (result < 0), (reverse < 0) - (reverse > 0)) << what;
    }
}

struct BusRow {
    const char *id, *parentId, *grandParentId;
    int bus;
};

constexpr BusRow Buses[] = {
    {"ACPI\\PNP0501\\1", "ACPI_HAL\\PNP0C08\\0", "USB\\X\\1", kBusIsa},
    {"Root\\*PNP0501\\PnPBIOS_0", "HTREE\\ROOT\\0", "", kBusIsa},
    {"PCI\\VEN_9710&DEV_9835\\3", "ACPI\\PNP0A03\\0", "", kBusPci},
    {"MF\\PCI#VEN_9710\\CHILD0000", "pci\\VEN_9710&DEV_9835\\3", "ACPI\\PNP0A03\\0", kBusPci},
    {"PCMCIA\\MODEM\\1", "PCI\\VEN_1180\\2", "", kBusPcmcia},
    {"FTDIBUS\\VID_0403\\0000", "USB\\VID_0403\\A1", "USB\\ROOT_HUB\\4", kBusUsb},
    {"USB\\VID_067B\\5", "USB\\ROOT_HUB30\\4", "PCI\\VEN_8086\\3", kBusUsb}, // both above it: the nearer bus
    {"PORT\\1", "NUSB\\HUB\\1", "PCI\\VEN_8086\\3", kBusUsb},
    {"NUSB\\1", "ROOT\\1", "HTREE\\ROOT\\0", kBusUnknown}, // the ending counts above the port alone
    {"USBPRINT\\1", "USBSTOR\\1", "", kBusUnknown},
    {"", "", "", kBusUnknown},
};

TEST(DeviceTree, TheBusIsReadFromTheEnumerators) {
    for (const BusRow& row : Buses) {
        CComPort port;
        CopyText(port.DeviceID, row.id);
        CopyText(port.ParentDeviceID, row.parentId);
        CopyText(port.GrandParentDeviceID, row.grandParentId);
        EXPECT_EQ(row.bus, GetBusType(&port)) << row.id;
    }
}

TEST(DeviceArrivals, AFullListWritesOverTheOldestEntry) {
    g_pDeviceArrivals = new CDeviceArrivals;
    char path[64];
    for (DWORD i = 0; i < kMaxDeviceArrivals + 2; ++i) {
        FormatText(path, "\\\\?\\usb#%u", i);
        g_pDeviceArrivals->AddDeviceArrival(path, &InterfaceClass::UsbDevice);
        if (i == kMaxDeviceArrivals - 1) {
            EXPECT_STREQ("\\\\?\\usb#0", g_pDeviceArrivals->Arrivals[0]->DevPath);
        }
    }
    EXPECT_EQ(kMaxDeviceArrivals, g_pDeviceArrivals->Count);
    EXPECT_EQ(1u, g_pDeviceArrivals->LastIndex);
    EXPECT_STREQ("\\\\?\\usb#4096", g_pDeviceArrivals->Arrivals[0]->DevPath);
    EXPECT_STREQ("\\\\?\\usb#4097", g_pDeviceArrivals->Arrivals[1]->DevPath);
    EXPECT_STREQ("\\\\?\\usb#2", g_pDeviceArrivals->Arrivals[2]->DevPath);
}

TEST(DeviceArrivals, AKnownPathMovesItsTickAndKeepsItsNode) {
    g_pDeviceArrivals = new CDeviceArrivals;
    const std::string path = "\\\\?\\" + std::string(300, 'x'); // longer than what is stored of it
    g_pDeviceArrivals->AddDeviceArrival(path.c_str(), &InterfaceClass::UsbDevice);
    EXPECT_EQ(0u, g_pDeviceArrivals->GetDeviceArrivalTicker(0)); // no node was found: nobody's arrival
    g_pDeviceArrivals->Arrivals[0]->DevInst = 77;
    const DWORD firstTick = g_pDeviceArrivals->GetDeviceArrivalTicker(77);
    EXPECT_NE(0u, firstTick);
    Sleep(1500);
    EXPECT_EQ(77u, g_pDeviceArrivals->AddDeviceArrival(path.c_str(), &InterfaceClass::UsbDevice));
    EXPECT_EQ(1u, g_pDeviceArrivals->Count);
    EXPECT_GE(g_pDeviceArrivals->GetDeviceArrivalTicker(77) - firstTick, 1500u);
}

} // namespace
