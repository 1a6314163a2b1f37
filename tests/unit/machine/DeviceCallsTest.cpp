// What the calls of the product do to devices: restarts, removals, requests to hubs, properties.
#include "tests/unit/machine/DevicesOnMachine.h"

namespace {

using namespace devicetest;
using namespace simwin;
using machine::Now;
using machine::SleepMs;

TEST(ClassInstaller, APropertyChangeBlocksUntilTheDeviceRunsAgain) {
    Build(Bench());
    Listener listener(ComPortClass);
    const std::uint64_t start = Now();
    machine::TheRegistry().SetString(Node(Port).enumPath + "\\Device Parameters", "PortName", "COM20");
    EXPECT_EQ(ChangeState(Port, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(Now() - start, 150u) << "50 ms of pause and 100 ms of start";
    EXPECT_EQ(TargetOf("COM7"), "");
    EXPECT_EQ(SerialComm("\\Device\\VCP0"), "COM20");
    EXPECT_EQ(Node(Port).restarts, 1u);
    ASSERT_EQ(Listener::told.size(), 2u);
    EXPECT_EQ(Listener::told[0].atMs, start);
    EXPECT_EQ(Listener::told[1].atMs, start + 150);
}

TEST(ClassInstaller, OnlyAnEnableEndsADisable) {
    Build(Bench());
    EXPECT_EQ(ChangeState(Usb, DICS_DISABLE), 0u);
    ProblemOf(Port, CR_NO_SUCH_DEVNODE);
    EXPECT_EQ(ChangeState(Usb, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(ProblemOf(Usb), 22u);
    machine::ReplugDevice(Hub);
    SleepMs(1000);
    EXPECT_EQ(ProblemOf(Usb), 22u);
    EXPECT_EQ(ChangeState(Usb, DICS_ENABLE), 0u);
    SleepMs(200);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(Node(Port).restarts, 1u) << "stopped by the disable, started by the enable";
}

TEST(ConfigurationManager, QueryAndRemoveAsksAllBelowAndTakesThemAway) {
    std::vector<DeviceDescription> devices = Bench();
    devices[4].vetoes = 1;
    Build(devices);
    PNP_VETO_TYPE type = PNP_VetoTypeUnknown;
    WCHAR name[260];
    EXPECT_EQ(CM_Query_And_Remove_SubTreeW(Node(Usb).number, &type, name, 260, CM_REMOVE_NO_RESTART), CR_REMOVE_VETOED);
    EXPECT_EQ(type, PNP_VetoDevice);
    EXPECT_EQ(machine::AnsiFromUtf16(reinterpret_cast<const char16_t*>(name)), Port);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(CM_Query_And_Remove_SubTreeW(Node(Usb).number, &type, name, 260, CM_REMOVE_NO_RESTART), CR_SUCCESS);
    EXPECT_EQ(ProblemOf(Usb), 21u);
    ProblemOf(Port, CR_NO_SUCH_DEVNODE);
    EXPECT_EQ(CM_Setup_DevNode(Node(Usb).number, CM_SETUP_DEVNODE_READY), CR_SUCCESS);
    SleepMs(100);
    EXPECT_TRUE(Node(Port).IsRunning());
    ASSERT_EQ(machine::DeviceRestarts().size(), 2u);
    EXPECT_FALSE(machine::DeviceRestarts()[0].ok) << "the one that was vetoed";
    EXPECT_TRUE(machine::DeviceRestarts()[1].ok);
}

TEST(ConfigurationManager, EjectTakesARemovableNodeUntilItIsUnplugged) {
    Build(Bench());
    PNP_VETO_TYPE type = PNP_VetoTypeUnknown;
    EXPECT_EQ(CM_Request_Device_EjectW(Node(Port).number, &type, nullptr, 0, 0), CR_REMOVE_VETOED);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(CM_Request_Device_EjectW(Node(Usb).number, &type, nullptr, 0, 0), CR_SUCCESS);
    EXPECT_EQ(ChangeState(Usb, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(ProblemOf(Usb), 47u);
    machine::ReplugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(ProblemOf(Usb), 0u);
}

TEST(ConfigurationManager, PropertiesComeAsWindowsGivesThem) {
    Build(Bench());
    machine::TheRegistry().SetString(Node(Port).enumPath, "DeviceDesc", "@msports.inf,%x%;Communications Port");
    machine::TheRegistry().SetString(Node(Port).enumPath, "LocationInformation",
                                     "@pci.sys,#1;PCI bus %1, device %2, function %3;(0,7,12)");
    char text[64];
    ULONG size = 0, type = 0;
    const auto get = [&](ULONG property, ULONG room) {
        size = room;
        return CM_Get_DevNode_Registry_PropertyA(Node(Port).number, property, &type, text, &size, 0);
    };
    EXPECT_EQ(get(CM_DRP_LOCATION_INFORMATION, sizeof(text)), CR_SUCCESS);
    EXPECT_STREQ(text, "PCI bus 0, device 7, function 12");
    EXPECT_EQ(get(CM_DRP_DEVICEDESC, 20), CR_SUCCESS);
    EXPECT_STREQ(text, "Communications Port");
    EXPECT_EQ(get(CM_DRP_DEVICEDESC, 19), CR_BUFFER_SMALL);
    EXPECT_EQ(size, 20u);
    EXPECT_EQ(get(CM_DRP_ADDRESS, sizeof(text)), CR_NO_SUCH_VALUE);
}

TEST(Hubs, ACycledDeviceLeavesLaterAndComesBack) {
    Build(Bench());
    USB_CYCLE_PORT_PARAMS params = {3, 0};
    DWORD returned = 0;
    const HANDLE hub =
        CreateFileA(Node(Hub).interfaces[0]->path.c_str(), 0x40000000, 3, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_TRUE(DeviceIoControl(hub, IOCTL_USB_HUB_CYCLE_PORT, &params, sizeof(params), &params, sizeof(params),
                                &returned, nullptr));
    SleepMs(99);
    EXPECT_TRUE(Node(Port).IsRunning());
    SleepMs(3);
    EXPECT_FALSE(Node(Usb).IsPresent());
    SleepMs(497);
    EXPECT_FALSE(Node(Usb).IsPresent());
    SleepMs(300);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(Node(Port).restarts, 1u);
    EXPECT_EQ(machine::DeviceRestarts()[0].device, Usb);
}

} // namespace
