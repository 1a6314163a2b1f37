// The swap of two ports, of which one vetoes at first.
#include "tests/unit/inventory/PortBuilder.h"

#include "inventory/DeviceControl.h"
#include "inventory/RestartMarks.h"
#include "inventory/SwapPorts.h"
#include "simwin/devices/Devices.h"

namespace {

using machine::DeviceDescription;
using machine::DeviceNode;

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
    port.PortNumber = static_cast<LONG>(machine::ComNumberOf(port.szPortName));
    return port;
}

TEST(SwapPorts, AVetoOfTheSecondPortStartsTheFirstAgain) {
    DeviceDescription second = inventorytest::Port("TEST\\UART\\B", "COM4");
    second.vetoes = 1;
    Build({inventorytest::Port("TEST\\UART\\A", "COM3"), second});
    CComPort a = RecordOf(Node("TEST\\UART\\A")), b = RecordOf(Node("TEST\\UART\\B"));
    EXPECT_EQ(SwapPortNumbers(&a, &b), 2);
    EXPECT_EQ(machine::RegistryNameOf(Node("TEST\\UART\\A")), "COM3");
    EXPECT_EQ(machine::RegistryNameOf(Node("TEST\\UART\\B")), "COM4");
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\UART\\A")), "COM3") << "the first port runs again";
    EXPECT_STREQ(a.szRegPortName, "COM3");
    EXPECT_STREQ(b.szRegPortName, "COM4");
    EXPECT_STREQ(szRestarting1, a.DevPath + 4) << "its arrival is still to come";
    EXPECT_STREQ(szRestarting2, "");
    EXPECT_EQ(SwapPortNumbers(&a, &b), 1) << "it vetoes once only";
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\UART\\A")), "COM4");
    EXPECT_EQ(a.PortNumber, 4);
    EXPECT_EQ(b.PortNumber, 3);
    EXPECT_STREQ(b.szPortName, "COM3");
    EXPECT_STREQ(b.szRegPortName, "COM3");
    EXPECT_STREQ(a.PortNumberText, "4");
    a.DevPath[0] = 0;
    EXPECT_EQ(PerformComPortPropertyChange(&a), 0) << "without a path nothing can be restarted";
    EXPECT_EQ(PerformComPortDisableEnable(&a), 0);
}

} // namespace
