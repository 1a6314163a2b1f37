// The swap of two ports; records that neither the catalogue's devices nor a rehearsal produce.
#include "inventory/devices/DeviceControl.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/NameClaims.h"
#include "inventory/names/RestartMarks.h"
#include "inventory/names/SwapPorts.h"
#include "inventory/ports/ProblemDevices.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/kernel/Call.h"
#include "support/system/ProcessState.h"
#include "tests/unit/inventory/PortBuilder.h"

using machine::DeviceDescription;
using machine::DeviceNode;

static void Build(const std::vector<DeviceDescription>& devices) {
    machine::DevicesDescription description;
    description.devices = devices;
    ASSERT_EQ(machine::BuildDevices(description), "");
}

static DeviceNode& Node(const std::string& id) {
    return *machine::TheDeviceTree().FindById(id);
}

// The record as the port table would hold it.
static CComPort RecordOf(const DeviceNode& node) {
    CComPort port;
    port.DevInst = node.number;
    CopyText(port.DevPath, node.interfaces.front()->path.c_str());
    CopyText(port.szRegPortName, machine::RegistryNameOf(node).c_str());
    CopyText(port.szPortName, machine::DosNameOf(node).c_str());
    CopyText(port.szRegEnumPath, node.enumPath.substr(sizeof("HKLM\\") - 1).c_str());
    port.PortNumber = static_cast<LONG>(machine::ComNumberOf(port.szPortName));
    return port;
}

TEST(SwapPorts, BothRecordsHaveTheOthersNumberInAllFields) {
    Build({inventorytest::Port("TEST\\UART\\A", "COM3"), inventorytest::Port("TEST\\UART\\B", "COM4")});
    CComPort a = RecordOf(Node("TEST\\UART\\A")), b = RecordOf(Node("TEST\\UART\\B"));
    EXPECT_EQ(SwapPortNumbers(&a, &b), AssignmentOutcome::Changed);
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\UART\\A")), "COM4");
    EXPECT_EQ(a.PortNumber, 4);
    EXPECT_STREQ(a.PortNumberText, "4");
    EXPECT_EQ(b.PortNumber, 3);
    EXPECT_STREQ(b.szPortName, "COM3");
    EXPECT_STREQ(b.szRegPortName, "COM3");
    a.DevPath[0] = 0;
    EXPECT_EQ(PerformComPortPropertyChange(&a), 0) << "without a path nothing can be restarted";
    EXPECT_EQ(PerformComPortDisableEnable(&a), 0);
}

using inventorytest::Port;

static const CComPort* RecordOf(const CComPorts* table, const char* id) {
    const int index = table->FindPortIdxByDevInst(machine::TheDeviceTree().FindById(id)->number);
    return index >= 0 ? table->Ports[index] : nullptr;
}

TEST(PortSnapshot, RegistryNamesAndDosNamesComeTogetherInTheRecord) {
    constexpr char OnBoard[] = "ACPI\\PNP0501\\1", Unnamed[] = "FTDIBUS\\VID_0403+PID_6001+A1\\0000",
                   OtherValue[] = "FTDIBUS\\VID_0403+PID_6001+A2\\0000", Twice[] = "USB\\VID_12D1&PID_1003\\1";
    machine::DevicesDescription description;
    description.devices = {Port(OnBoard, "COM1"), Port(Unnamed, ""), Port(OtherValue, ""), Port(Twice, "COM11"),
                           Port("ACPI\\PNP0400\\1", "LPT1")};
    description.devices[2].portName.reset();
    description.devices[2].dosDeviceName = "COM9";
    description.devices[3].interfaces = {"comport", "modem"};
    ASSERT_EQ(machine::BuildDevices(description), "");
    ASSERT_EQ(1, CreateDosName("COM40", "\\Device\\Nobody"));
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "COMPORT", "\\Device\\Nobody"));
    CComPorts* table = inventorytest::NewTable();
    g_InitialSnapshot = 1;
    EXPECT_EQ(table->CreateSnapshot(0), 5) << "the board's, the one without a name, the modem once, COM9 and COM40";

    const CComPort* port = RecordOf(table, OnBoard);
    ASSERT_NE(nullptr, port);
    EXPECT_STREQ("COM1", port->szPortName);
    EXPECT_EQ(1u, port->RecordValid);
    EXPECT_GE(GetTickCount() - port->ArrivalTicker, 60000u);
    const CComPort* nameless = RecordOf(table, Unnamed);
    ASSERT_NE(nullptr, nameless);
    EXPECT_STREQ("COM0", nameless->szRegPortName);
    EXPECT_STREQ("", nameless->szPortName);
    EXPECT_EQ(0, nameless->PortNumber);
    EXPECT_EQ(0u, table->FindPortByComPort("COM40")->RecordValid);
    EXPECT_EQ(nullptr, table->FindPortByComPort("COMPORT"));

    // A port that runs without the value "PortName" is none at the start, and is one when it arrives.
    EXPECT_EQ(nullptr, RecordOf(table, OtherValue));
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(OtherValue);
    EXPECT_NE(-1, table->AddNewPort(node->interfaces[0]->path.c_str()));
    EXPECT_STREQ("COM9", RecordOf(table, OtherValue)->szRegPortName);
    for (const char* path : {"\\\\?", "\\\\?\\nobody"}) {
        EXPECT_EQ(-1, table->AddNewPort(path));
    }
    EXPECT_EQ(-1, table->AddNewPort(nullptr));
    char name[4];
    EXPECT_EQ(1, GetPortNameByDevInst(port->DevInst, name, sizeof(name)));
    EXPECT_STREQ("COM", name) << "cut to its room";
    EXPECT_EQ(0, GetPortNameByDevInst(99999, name, sizeof(name)));

    // A problem that was noted earlier and is gone: the device runs, and comes as new. One that has not changed stays,
    // one that was gone is left to its arrival, and what this service restarts to the end of the restart.
    CComPort* scanned = table->Ports[port->Index];
    const auto isLeft = [&](DWORD problem) {
        scanned->Problem = problem;
        table->FindRemovedProblemDevices();
        return scanned->IsPresent;
    };
    EXPECT_EQ(1u, isLeft(0));
    EXPECT_EQ(1u, isLeft(45));
    scanned->RestartTicker = GetTickCount() - 4999;
    EXPECT_EQ(1u, isLeft(10));
    scanned->RestartTicker = 0;
    SetRestartMark(szRestarting2, scanned->DevPath + sizeof("\\\\?\\") - 1);
    EXPECT_EQ(1u, isLeft(10));
    szRestarting2[0] = 0;
    EXPECT_EQ(0u, isLeft(10));
    EXPECT_EQ(0u, port->Problem);
}

// Each finds the other's name in force and its own not yet marked: without an owner neither would be moved away.
TEST(NameClaims, OfTwoPortsReadAtOneTimeOneOwnsTheLink) {
    Build({Port("TEST\\UART\\A", "COM3"), Port("TEST\\UART\\B", "COM4")});
    CComPorts* table = inventorytest::NewTable();
    for (const char* id : {"TEST\\UART\\A", "TEST\\UART\\B"}) {
        inventorytest::Put(table,
                           {.devInst = Node(id).number, .regName = "COM3", .kernelNameCom = "\\Device\\USBSER000"});
    }
    machine::AddFault({.call = "CM_Get_DevNode_Status", .on = "*", .delayMs = 20, .times = 0});
    for (CComPort* port : {table->Ports[0], table->Ports[1]}) {
        const auto mark = [](void* record) -> DWORD { return MarkCopiedName(static_cast<CComPort*>(record)), 0; };
        CloseHandle(CreateThread(nullptr, 0, mark, port, 0, nullptr));
    }
    Sleep(1000);
    EXPECT_EQ(1, table->Ports[0]->HasCopiedName + table->Ports[1]->HasCopiedName);
}
