// Restarts, removals and the swap of two ports, on devices that veto, refuse, leave and come back.
#include "tests/harness/Harness.h"

#include "inventory/CComPorts.h"
#include "inventory/DeviceControl.h"
#include "inventory/RestartMarks.h"
#include "inventory/SwapPorts.h"
#include "simwin/devices/Devices.h"
#include "simwin/registry/Registry.h"
#include "support/BoundedText.h"
#include "support/ProcessState.h"

namespace {

using machine::DeviceDescription;
using machine::DeviceKind;
using machine::DeviceNode;

DeviceDescription Port(const std::string& id, const char* portName) {
    DeviceDescription device;
    device.id = id;
    device.kind = DeviceKind::Port;
    device.portName = portName;
    device.kernelName = {"\\Device\\" + id.substr(id.rfind('\\') + 1) + "0"};
    return device;
}

void Build(const std::vector<DeviceDescription>& devices) {
    machine::DevicesDescription description;
    description.devices = devices;
    ASSERT_EQ(machine::BuildDevices(description), "");
}

DeviceNode& Node(const std::string& id) {
    return *machine::TheDeviceTree().FindById(id);
}

// The record as the port table would hold it.
CComPort RecordOf(const DeviceNode& node) {
    CComPort port;
    port.DevInst = node.number;
    CopyText(port.DevPath, node.interfaces.front()->path.c_str());
    CopyText(port.szRegPortName, machine::RegistryNameOf(node).c_str());
    CopyText(port.szPortName, machine::DosNameOf(node).c_str());
    CopyText(port.szRegEnumPath, node.enumPath.substr(sizeof("HKLM\\") - 1).c_str());
    CopyText(port.szKernelNameCom, node.driver != nullptr ? node.driver->name.c_str() : "");
    port.PortNumber = static_cast<LONG>(machine::ComNumberOf(port.szPortName));
    return port;
}

struct TwoPorts {
    DeviceDescription first = Port("TEST\\UART\\A", "COM3");
    DeviceDescription second = Port("TEST\\UART\\B", "COM4");
    CComPort a, b;

    int Swap() {
        Build({first, second});
        a = RecordOf(Node(first.id));
        b = RecordOf(Node(second.id));
        return SwapPortNumbers(&a, &b);
    }
    void ExpectUnchanged() {
        EXPECT_EQ(machine::RegistryNameOf(Node(first.id)), "COM3");
        EXPECT_EQ(machine::RegistryNameOf(Node(second.id)), "COM4");
        EXPECT_EQ(machine::DosNameOf(Node(first.id)), "COM3") << "the first port runs again";
        EXPECT_EQ(machine::DosNameOf(Node(second.id)), "COM4");
        EXPECT_STREQ(a.szRegPortName, "COM3");
        EXPECT_STREQ(b.szRegPortName, "COM4");
    }
};

TEST(SwapPorts, BothPortsRunUnderEachOthersNumbers) {
    TwoPorts ports;
    ASSERT_EQ(ports.Swap(), 1);
    EXPECT_EQ(machine::DosNameOf(Node(ports.first.id)), "COM4");
    EXPECT_EQ(machine::DosNameOf(Node(ports.second.id)), "COM3");
    EXPECT_EQ(machine::RegistryNameOf(Node(ports.first.id)), "COM4");
    EXPECT_EQ(ports.a.PortNumber, 4);
    EXPECT_EQ(ports.b.PortNumber, 3);
    EXPECT_STREQ(ports.a.szPortName, "COM4");
    EXPECT_STREQ(ports.b.szRegPortName, "COM3");
    EXPECT_STREQ(ports.a.PortNumberText, "4");
    EXPECT_STREQ(ports.a.szKernelNameCom, "\\Device\\A0") << "left for the next update";
    EXPECT_STREQ(szRestarting1, ports.a.DevPath + 4) << "the mark stands until the arrival";
}

TEST(SwapPorts, AVetoOfTheSecondPortStartsTheFirstAgain) {
    TwoPorts ports;
    ports.second.vetoes = machine::VetoesAlways;
    EXPECT_EQ(ports.Swap(), 2);
    ports.ExpectUnchanged();
    EXPECT_STREQ(szRestarting1, ports.a.DevPath + 4) << "its arrival is still to come";
    EXPECT_STREQ(szRestarting2, "");
}

TEST(DeviceControl, APropertyChangeTakesTheRegistryNameOverOnSuccessOnly) {
    struct Row {
        const char* id;
        bool refuses;
        const char* regName;
        int result;
        const char* portName;
        const char* numberText;
        LONG number;
    };
    const Row rows[] = {
        {"TEST\\UART\\A", false, "COM23", 1, "COM23", "23", 23},
        {"TEST\\UART\\B", false, "GPS1", 1, "GPS1", "", 0},
        {"TEST\\UART\\C", true, "COM24", 0, "COM12", "12", 12},
    };
    std::vector<DeviceDescription> devices;
    for (const Row& row : rows) {
        devices.push_back(Port(row.id, ("COM" + std::to_string(10 + devices.size())).c_str()));
        devices.back().refuses = row.refuses;
    }
    Build(devices);
    for (const Row& row : rows) {
        CComPort port = RecordOf(Node(row.id));
        CopyText(port.szRegPortName, row.regName);
        CopyText(port.PortNumberText, port.szPortName + 3);
        port.MarkedForRestart = 1;
        EXPECT_EQ(PerformComPortPropertyChange(&port), row.result) << row.id;
        EXPECT_STREQ(port.szPortName, row.portName);
        EXPECT_STREQ(port.PortNumberText, row.numberText) << row.id;
        EXPECT_EQ(port.PortNumber, row.number) << row.id;
        // Both hold before the installer is called, whatever it says.
        EXPECT_EQ(port.MarkedForRestart, 0u) << row.id;
        EXPECT_NE(port.RestartTicker, 0u) << row.id;
        EXPECT_EQ(port.ChangePortTicker != 0, row.result == 1) << row.id;
    }
    CComPort pathless = RecordOf(Node(rows[0].id));
    pathless.DevPath[0] = 0;
    pathless.MarkedForRestart = 1;
    EXPECT_EQ(PerformComPortPropertyChange(&pathless), 0);
    EXPECT_EQ(PerformComPortDisableEnable(&pathless), 0);
    EXPECT_EQ(pathless.MarkedForRestart, 1u);
    EXPECT_EQ(pathless.RestartTicker, 0u);
}

TEST(DeviceControl, ADisabledDeviceIsEnabledByARestart) {
    Build({Port("TEST\\UART\\A", "COM3")});
    DeviceNode& node = Node("TEST\\UART\\A");
    ASSERT_EQ(CM_Disable_DevNode(node.number, 0), CR_SUCCESS);
    ASSERT_EQ(node.problem, 22u);
    EXPECT_EQ(RestartDev(node.number), 1);
    EXPECT_TRUE(node.IsRunning());
    EXPECT_EQ(RestartDev(0x7FFFFFFF), 0) << "a node that never was";
}

TEST(DeviceControl, ADelayedUninstallSparesWhatCameBackAndEndsWithTheService) {
    struct Row {
        const char* id;
        bool plugged, stop, installed;
    };
    const Row rows[] = {
        {"TEST\\UART\\BACK", true, false, true},
        {"TEST\\UART\\GONE", false, false, false},
        {"TEST\\UART\\STOP", false, true, true},
    };
    std::vector<DeviceDescription> devices;
    for (const Row& row : rows) {
        devices.push_back(Port(row.id, "COM5"));
        devices.back().plugged = row.plugged;
    }
    Build(devices);
    for (const Row& row : rows) {
        UninstallDeviceByDevInstDelayed(Node(row.id).number, 4500);
        Sleep(3900);
        EXPECT_TRUE(Node(row.id).installed) << row.id << " before the delay is over";
        g_StopRequested = row.stop ? 1 : 0;
        Sleep(3000);
        const DeviceNode* node = machine::TheDeviceTree().FindById(row.id);
        EXPECT_EQ(node != nullptr && node->installed, row.installed) << row.id;
    }
    g_StopRequested = 0;
}

} // namespace
