#include "inventory/CComPorts.h"
#include "inventory/CDosDeviceNames.h"
#include "inventory/CUsbHubs.h"
#include "inventory/CUsbRoothubs.h"
#include "inventory/ProblemDevices.h"
#include "simwin/devices/Devices.h"
#include "simwin/devices/PlugAndPlay.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "support/LogFile.h"
#include "support/ProcessState.h"

#include "tests/harness/Harness.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <string>
#include <vector>

namespace {

using inventorytest::NewTable;

constexpr DWORD StartMs = 5000;

machine::DeviceNode* Plug(const machine::DeviceDescription& description) {
    static const std::string built = machine::BuildDevices({});
    EXPECT_EQ("", built);
    std::string wrong;
    machine::DeviceNode* node = machine::AddDevice(description, &wrong);
    EXPECT_NE(nullptr, node) << wrong;
    machine::AttachNode(*node, machine::Cause::Outside);
    Sleep(StartMs);
    return node;
}

machine::DeviceDescription Port(const char* id, const char* portName) {
    machine::DeviceDescription port;
    port.id = id;
    port.kind = machine::DeviceKind::Port;
    port.portName = portName;
    return port;
}

const CComPort* RecordOf(const CComPorts* table, const machine::DeviceNode* node) {
    const int index = table->FindPortIdxByDevInst(node->number);
    return index >= 0 ? table->Ports[index] : nullptr;
}

const char* PathOf(const machine::DeviceNode* node) {
    return node->interfaces[0]->path.c_str();
}

TEST(PortSnapshot, RegistryNamesAndDosNamesComeTogetherInTheRecord) {
    const auto* onBoard = Plug(Port("ACPI\\PNP0501\\1", "COM1"));
    const auto* unnamed = Plug(Port("FTDIBUS\\VID_0403+PID_6001+A1\\0000", ""));
    machine::DeviceDescription otherValue = Port("FTDIBUS\\VID_0403+PID_6001+A2\\0000", "");
    otherValue.portName.reset();
    otherValue.dosDeviceName = "COM9";
    const auto* withDosDeviceName = Plug(otherValue);
    machine::DeviceDescription both = Port("USB\\VID_12D1&PID_1003\\1", "COM11");
    both.interfaces = {"comport", "modem"};
    const auto* twoInterfaces = Plug(both);
    const auto* printer = Plug(Port("ACPI\\PNP0400\\1", "LPT1"));
    ASSERT_EQ(1, CreateDosName("COM40", "\\Device\\Nobody"));
    ASSERT_EQ(1, CreateDosName("COMPORT", "\\Device\\Nobody"));

    CComPorts* table = NewTable();
    g_InitialSnapshot = 1;
    EXPECT_EQ(table->CreateSnapshot(0), table->PortCount);
    g_InitialSnapshot = 0;

    ASSERT_NE(nullptr, RecordOf(table, onBoard));
    EXPECT_STREQ("COM1", RecordOf(table, onBoard)->szPortName);
    EXPECT_EQ(1, RecordOf(table, onBoard)->PortNumber);
    EXPECT_STREQ("ISA", RecordOf(table, onBoard)->BusTypeName);
    EXPECT_EQ(0u, RecordOf(table, onBoard)->SameParentDevInst);
    EXPECT_GE(GetTickCount() - RecordOf(table, onBoard)->ArrivalTicker, 60000u);
    EXPECT_EQ(1u, RecordOf(table, onBoard)->IsPresent);

    ASSERT_NE(nullptr, RecordOf(table, unnamed));
    EXPECT_STREQ("COM0", RecordOf(table, unnamed)->szRegPortName);
    EXPECT_STREQ("", RecordOf(table, unnamed)->szPortName);
    EXPECT_EQ(0, RecordOf(table, unnamed)->PortNumber);

    // A port that runs without the value "PortName" is none at the start, and is one when it arrives.
    EXPECT_EQ(nullptr, RecordOf(table, withDosDeviceName));
    EXPECT_NE(-1, table->AddNewPort(PathOf(withDosDeviceName)));
    ASSERT_NE(nullptr, RecordOf(table, withDosDeviceName));
    EXPECT_STREQ("COM9", RecordOf(table, withDosDeviceName)->szRegPortName);

    EXPECT_EQ(nullptr, RecordOf(table, printer));
    int records = 0;
    for (LONG i = 0; i < table->PortCount; ++i) {
        records += table->Ports[i]->DevInst == twoInterfaces->number ? 1 : 0;
    }
    EXPECT_EQ(1, records);

    ASSERT_NE(nullptr, table->FindPortByComPort("COM40"));
    EXPECT_EQ(0u, table->FindPortByComPort("COM40")->RecordValid);
    EXPECT_EQ(nullptr, table->FindPortByComPort("COMPORT"));
    EXPECT_EQ(1u, table->FindPortByComPort("COM1")->RecordValid);
}

TEST(PortSnapshot, OfTwoDevicesWithOneNameTheLinkDecides) {
    // Another driver's port: one of the same driver could own the link as well, and nobody could tell.
    machine::DeviceDescription late = Port("USB\\VID_10C4&PID_EA60\\0001", "COM7");
    late.nameTaken = machine::NameTaken::NoName;
    const auto* owner = Plug(Port("FTDIBUS\\VID_0403+PID_6001+A1\\0000", "COM7"));
    const auto* loser = Plug(late);
    CComPorts* table = NewTable();
    table->CreateSnapshot(0);
    ASSERT_NE(nullptr, RecordOf(table, owner));
    ASSERT_NE(nullptr, RecordOf(table, loser));
    EXPECT_STREQ("COM7", RecordOf(table, owner)->szPortName);
    EXPECT_EQ(0u, RecordOf(table, owner)->MarkedForRestart);
    EXPECT_STREQ("", RecordOf(table, loser)->szPortName);
    EXPECT_EQ(1u, RecordOf(table, loser)->MarkedForRestart);
    EXPECT_STREQ("COM7", RecordOf(table, loser)->szRegPortName);
}

TEST(PortSnapshot, APortThatComesBackTakesUpItsRecord) {
    auto* node = Plug(Port("FTDIBUS\\VID_0403+PID_6001+A1\\0000", "COM7"));
    CComPorts* table = NewTable();
    EXPECT_EQ(-1, table->AddNewPort(nullptr));
    EXPECT_EQ(-1, table->AddNewPort("\\\\?"));
    EXPECT_EQ(-1, table->AddNewPort("\\\\?\\nobody"));
    const int index = table->AddNewPort(PathOf(node));
    ASSERT_EQ(0, index);
    const CComPort* record = table->Ports[0];
    machine::DetachTree(*node, machine::Cause::Outside);
    Sleep(StartMs);
    EXPECT_EQ(0, table->RemovePort(PathOf(node)));
    EXPECT_EQ(0u, record->IsPresent);
    machine::AttachNode(*node, machine::Cause::Outside);
    Sleep(StartMs);
    EXPECT_EQ(0, table->AddNewPort(PathOf(node)));
    EXPECT_EQ(record, table->Ports[0]);
    EXPECT_EQ(1u, record->IsPresent);
    EXPECT_STREQ("COM7", record->szPortName);
    EXPECT_EQ(1, table->PortCount);
}

TEST(PortSnapshot, AUsbPortIsNamedByItsSocket) {
    machine::DeviceDescription controller, rootHub, hub, adapter;
    controller.id = "PCI\\VEN_15AD&DEV_0774\\1";
    controller.kind = machine::DeviceKind::Controller;
    rootHub.id = "USB\\ROOT_HUB\\1";
    rootHub.kind = machine::DeviceKind::RootHub;
    rootHub.parent = controller.id;
    rootHub.ports = 4;
    hub.id = "USB\\VID_0E0F&PID_0002\\1";
    hub.kind = machine::DeviceKind::Hub;
    hub.parent = rootHub.id;
    hub.hubPort = 4;
    hub.ports = 7;
    adapter.id = "USB\\VID_0403&PID_6001\\A1";
    adapter.kind = machine::DeviceKind::Usb;
    adapter.parent = hub.id;
    adapter.hubPort = 3;
    machine::DeviceDescription port = Port("FTDIBUS\\VID_0403+PID_6001+A1\\0000", "COM7");
    port.parent = adapter.id;
    for (const auto* description : {&controller, &rootHub, &hub}) {
        Plug(*description);
    }
    const auto* socket = Plug(adapter);
    const auto* node = Plug(port);
    g_pUsbRoothubs = new CUsbRoothubs;
    g_pUsbRoothubs->CreateSnapshot();
    g_pUsbHubs = new CUsbHubs;
    g_pUsbHubs->CreateSnapshot();
    CComPorts* table = NewTable();
    table->CreateSnapshot(0);
    const CComPort* record = RecordOf(table, node);
    ASSERT_NE(nullptr, record);
    EXPECT_STREQ("USB", record->BusTypeName);
    EXPECT_STREQ("1-4-3", record->UsbPort);
    EXPECT_EQ(0x0104030000000000ull, record->UsbPortChain);
    EXPECT_EQ(3u, record->UsbPortNumber);
    EXPECT_EQ(socket->number, record->UsbDevInst);
    EXPECT_EQ(socket->parent->number, record->HubDevInst);
    EXPECT_EQ(socket->parent->number, record->SameParentDevInst);
}

// The whole machine at its limit: the table is full by the snapshot, and one more port arrives.
TEST(PortSnapshot, APortTooManyIsRefusedAndTheOthersStayAsTheyAre) {
    machine::DevicesDescription description;
    for (int i = 0; i < kMaxPorts; ++i) {
        const std::string number = std::to_string(i + 1);
        machine::DeviceDescription port = Port(("ROOT\\PORTS\\" + number).c_str(), ("COM" + number).c_str());
        port.kernelName = {"\\Device\\Virtual" + number};
        description.devices.push_back(port);
    }
    ASSERT_EQ("", machine::BuildDevices(description));
    CComPorts* table = NewTable();
    ASSERT_EQ(kMaxPorts, table->CreateSnapshot(0));
    EXPECT_STREQ("COM4096", table->Ports[kMaxPorts - 1]->szPortName);
    std::vector<CComPort> before;
    for (const CComPort* port : table->Ports) {
        before.push_back(*port);
    }

    machine::DeviceDescription late = Port("ROOT\\PORTS\\LATE", "COM5000");
    late.plugged = false;
    const machine::DeviceNode* node = machine::AddDevice(late);
    machine::PlugDevice(node->id);
    Sleep(StartMs);
    machine::TheFiles().Write("C:\\Limit.ini", "[Settings]\r\nWriteDebugOutput=1\r\nLogLevel=1\r\n");
    CopyText(szIniFile, "C:\\Limit.ini");
    LogFile_Init(0);
    EXPECT_EQ(-1, table->AddNewPort(PathOf(node)));
    EXPECT_EQ(0, table->AddPort(0, node->number, PathOf(node)));
    EXPECT_NE(std::string::npos, machine::CurrentProcess()->debugOutput.find("ERROR: more than 4096 ports -> abort"));
    LogFile_Exit();
    EXPECT_EQ(kMaxPorts, table->PortCount);
    for (int i = 0; i < kMaxPorts; ++i) {
        ASSERT_EQ(0, memcmp(&before[static_cast<size_t>(i)], table->Ports[i], sizeof(CComPort))) << i;
    }
    EXPECT_EQ(nullptr, table->FindPortByComPort("COM5000"));
}

TEST(ProblemDevices, AHealedPortIsRemovedAndAnUnchangedProblemLeftAlone) {
    auto* node = Plug(Port("FTDIBUS\\VID_0403+PID_6001+A1\\0000", "COM7"));
    CComPorts* table = NewTable();
    ASSERT_EQ(0, table->AddNewPort(PathOf(node)));
    CComPort* record = table->Ports[0];
    char name[4];
    EXPECT_EQ(1, GetPortNameByDevInst(node->number, name, sizeof(name)));
    EXPECT_STREQ("COM", name); // cut to its room
    EXPECT_EQ(0, GetPortNameByDevInst(99999, name, sizeof(name)));
    table->FindNewProblemDevices();
    table->FindRemovedProblemDevices();
    EXPECT_EQ(1u, record->IsPresent);
    record->Problem = 10; // as noted at an earlier look; the device runs now
    table->FindRemovedProblemDevices();
    EXPECT_EQ(0u, record->IsPresent);
    EXPECT_EQ(0u, record->Problem);
    table->FindRemovedProblemDevices();
    EXPECT_EQ(0u, record->Problem);
}

} // namespace
