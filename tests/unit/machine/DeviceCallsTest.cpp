// What the calls of the product do to devices: restarts, removals, requests to hubs, and the lists of the setup API.
#include "tests/unit/machine/DevicesOnMachine.h"

#include <cstring>

namespace {

using namespace devicetest;
using namespace simwin;
using machine::Now;
using machine::SleepMs;

TEST(ClassInstaller, APropertyChangeBlocksUntilTheDeviceRunsAgain) {
    Build(Bench());
    Listener listener;
    Listener::Register(ComPortClass);
    const std::uint64_t start = Now();
    machine::TheRegistry().SetString(Node(Port).enumPath + "\\Device Parameters", "PortName", "COM20");
    EXPECT_EQ(ChangeState(Port, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(Now() - start, 150u) << "50 ms of pause and 100 ms of start";
    EXPECT_EQ(TargetOf("COM7"), "");
    EXPECT_EQ(TargetOf("COM20"), "\\Device\\VCP0");
    EXPECT_EQ(SerialComm("\\Device\\VCP0"), "COM20");
    EXPECT_EQ(Node(Port).restarts, 1u);
    ASSERT_EQ(Listener::told.size(), 2u);
    EXPECT_EQ(Listener::told[0].atMs, start);
    EXPECT_EQ(Listener::told[1].atMs, start + 150);
    ASSERT_EQ(machine::DeviceRestarts().size(), 1u);
    EXPECT_EQ(machine::DeviceRestarts()[0].means, "property-change");
    EXPECT_TRUE(machine::DeviceRestarts()[0].ok);
}

TEST(ClassInstaller, ARestartOfTheDeviceAboveCountsForThePortToo) {
    Build(Bench());
    EXPECT_EQ(ChangeState(Usb, DICS_PROPCHANGE), 0u);
    EXPECT_TRUE(Node(Usb).IsRunning());
    SleepMs(100);
    EXPECT_EQ(Node(Port).restarts, 1u);
    EXPECT_EQ(machine::DeviceRestarts()[0].device, Usb);
}

TEST(ClassInstaller, NothingStopsIfTheDeviceIsHeldOrVetoesAndARefusalIsAnError) {
    std::vector<DeviceDescription> devices = Bench();
    devices[4].vetoes = 1;
    devices.push_back(NamedPort("TEST\\REFUSES\\1", "COM4"));
    devices.back().refuses = true;
    devices.push_back(NamedPort("TEST\\HELD\\1", "COM5"));
    devices.back().heldBy = "C:\\Tools\\term.exe";
    Build(devices);
    EXPECT_EQ(ChangeState(Usb, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(Node(Port).restarts, 0u);
    EXPECT_EQ(ChangeState(Port, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(Node(Port).restarts, 1u) << "it vetoes once only";
    EXPECT_EQ(ChangeState("TEST\\REFUSES\\1", DICS_PROPCHANGE), 0xE0000203u);
    EXPECT_EQ(ChangeState("TEST\\HELD\\1", DICS_DISABLE), 0u);
    EXPECT_TRUE(Node("TEST\\HELD\\1").IsRunning());
    EXPECT_TRUE(machine::ReleasePort("COM5"));
    EXPECT_EQ(ChangeState("TEST\\HELD\\1", DICS_DISABLE), 0u);
    EXPECT_EQ(ProblemOf("TEST\\HELD\\1"), 22u);
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
    EXPECT_EQ(ProblemOf(Usb), 0u);
    SleepMs(100);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(Node(Port).restarts, 1u);
    ASSERT_EQ(machine::DeviceRestarts().size(), 2u);
    EXPECT_FALSE(machine::DeviceRestarts()[0].ok) << "the one that was vetoed";
    EXPECT_TRUE(machine::DeviceRestarts()[1].ok);
    EXPECT_EQ(machine::DeviceRestarts()[1].means, "remove-and-setup");
}

TEST(ConfigurationManager, EjectTakesARemovableNodeUntilItIsUnplugged) {
    Build(Bench());
    PNP_VETO_TYPE type = PNP_VetoTypeUnknown;
    EXPECT_EQ(CM_Request_Device_EjectW(Node(Port).number, &type, nullptr, 0, 0), CR_REMOVE_VETOED);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(CM_Request_Device_EjectW(Node(Usb).number, &type, nullptr, 0, 0), CR_SUCCESS);
    EXPECT_EQ(ProblemOf(Usb), 47u);
    EXPECT_EQ(ChangeState(Usb, DICS_PROPCHANGE), 0u);
    EXPECT_EQ(ProblemOf(Usb), 47u);
    machine::ReplugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(ProblemOf(Usb), 0u);
}

TEST(ConfigurationManager, AnUninstalledDeviceIsNewWhenItComesBack) {
    Build(Bench());
    const DWORD number = Node(Port).number;
    machine::UnplugDevice(Usb);
    SleepMs(10);
    const HDEVINFO list = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    for (DWORD i = 0; SetupDiEnumDeviceInfo(list, i, &device); ++i)
        if (device.DevInst == number) {
            EXPECT_TRUE(SetupDiRemoveDevice(list, &device));
        }
    SetupDiDestroyDeviceInfoList(list);
    EXPECT_EQ(machine::TheRegistry().FindKey(Node(Port).enumPath), nullptr);
    char id[200];
    EXPECT_EQ(CM_Get_Device_IDA(number, id, sizeof(id), 0), CR_NO_SUCH_DEVNODE);
    machine::PlugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(machine::RegistryNameOf(Node(Port)), "COM3");
    EXPECT_EQ(Node(Port).number, number);
    EXPECT_EQ(machine::ComDbNumbers(), (std::vector<unsigned>{3, 7})) << "the old number stays taken";
}

TEST(ConfigurationManager, PropertiesComeAsWindowsGivesThem) {
    Build(Bench());
    machine::TheRegistry().SetString(Node(Port).enumPath, "DeviceDesc", "@msports.inf,%x%;Communications Port");
    machine::TheRegistry().SetString(Node(Usb).enumPath, "LocationInformation",
                                     "@pci.sys,#1;PCI bus %1, device %2, function %3;(0,7,12)");
    char text[64];
    ULONG size = sizeof(text), type = 0;
    ASSERT_EQ(CM_Get_DevNode_Registry_PropertyA(Node(Port).number, CM_DRP_DEVICEDESC, &type, text, &size, 0),
              CR_SUCCESS);
    EXPECT_STREQ(text, "Communications Port");
    EXPECT_EQ(size, 20u);
    size = sizeof(text);
    ASSERT_EQ(CM_Get_DevNode_Registry_PropertyA(Node(Usb).number, CM_DRP_LOCATION_INFORMATION, &type, text, &size, 0),
              CR_SUCCESS);
    EXPECT_STREQ(text, "PCI bus 0, device 7, function 12");
    size = 10;
    EXPECT_EQ(CM_Get_DevNode_Registry_PropertyA(Node(Port).number, CM_DRP_DEVICEDESC, &type, text, &size, 0),
              CR_BUFFER_SMALL);
    EXPECT_EQ(size, 20u);
    EXPECT_EQ(CM_Get_DevNode_Registry_PropertyA(Node(Port).number, CM_DRP_ADDRESS, &type, text, &size, 0),
              CR_NO_SUCH_VALUE);
}

TEST(ConfigurationManager, InterruptAndIoPortAreHandedOutByDescriptors) {
    std::vector<DeviceDescription> devices = {NamedPort("ACPI\\PNP0501\\1", "COM1"),
                                              NamedPort("ACPI\\PNP0501\\2", "COM2")};
    devices[1].irq = 11;
    Build(devices);
    LOG_CONF configuration = 0;
    RES_DES descriptor = 0, next = 0;
    ASSERT_EQ(CM_Get_First_Log_Conf(&configuration, Node("ACPI\\PNP0501\\2").number, ALLOC_LOG_CONF), CR_SUCCESS);
    ASSERT_EQ(CM_Get_Next_Res_Des(&descriptor, configuration, ResType_IRQ, nullptr, 0), CR_SUCCESS);
    IRQ_DES irq{};
    ASSERT_EQ(CM_Get_Res_Des_Data(descriptor, &irq, sizeof(irq), 0), CR_SUCCESS);
    EXPECT_EQ(irq.IRQD_Alloc_Num, 11u);
    EXPECT_EQ(CM_Get_Next_Res_Des(&next, descriptor, ResType_IRQ, nullptr, 0), CR_NO_MORE_RES_DES);
    ASSERT_EQ(CM_Get_Next_Res_Des(&next, configuration, ResType_IO, nullptr, 0), CR_SUCCESS);
    IO_DES io{};
    ASSERT_EQ(CM_Get_Res_Des_Data(next, &io, sizeof(io), 0), CR_SUCCESS);
    EXPECT_EQ(io.IOD_Alloc_Base, 0x2F8u);
    EXPECT_EQ(CM_Free_Log_Conf_Handle(configuration), CR_SUCCESS);
    EXPECT_EQ(CM_Free_Log_Conf_Handle(configuration), CR_INVALID_LOG_CONF);
}

class Hubs : public testing::Test {
protected:
    static HANDLE Open() {
        const std::string path = Node(Hub).interfaces[0]->path;
        return CreateFileA(path.c_str(), 0x40000000, 3, nullptr, OPEN_EXISTING, 0, nullptr);
    }
    // The driver key at a port; "" with the last error.
    static std::string KeyAt(HANDLE hub, ULONG port) {
        alignas(8) BYTE buffer[128] = {};
        std::memcpy(buffer, &port, sizeof(port));
        DWORD returned = 0;
        if (!DeviceIoControl(hub, IOCTL_USB_GET_NODE_CONNECTION_DRIVERKEY_NAME, buffer, sizeof(buffer), buffer,
                             sizeof(buffer), &returned, nullptr))
            return {};
        return machine::AnsiFromUtf16(reinterpret_cast<const char16_t*>(buffer + 8));
    }
    static DWORD Cycle(ULONG port) {
        const HANDLE hub = Open();
        USB_CYCLE_PORT_PARAMS params = {port, 0};
        DWORD returned = 0;
        const BOOL done = DeviceIoControl(hub, IOCTL_USB_HUB_CYCLE_PORT, &params, sizeof(params), &params,
                                          sizeof(params), &returned, nullptr);
        const DWORD error = done ? params.StatusReturned : GetLastError();
        CloseHandle(hub);
        return error;
    }
};

TEST_F(Hubs, AnswerForTheirPortsAsSoonAsTheyKnowTheDevice) {
    std::vector<DeviceDescription> devices = Bench();
    devices[2].knowsInMs = 300;
    Build(devices);
    const HANDLE hub = Open();
    USB_NODE_INFORMATION information{};
    DWORD returned = 0;
    ASSERT_TRUE(DeviceIoControl(hub, IOCTL_USB_GET_NODE_INFORMATION, &information, sizeof(information), &information,
                                sizeof(information), &returned, nullptr));
    EXPECT_EQ(reinterpret_cast<const BYTE*>(&information)[6], 4);
    EXPECT_EQ(KeyAt(hub, 3), machine::DriverKeyOf(Node(Usb)));
    EXPECT_EQ(KeyAt(hub, 1), "");
    EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
    EXPECT_EQ(KeyAt(hub, 5), "");
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    machine::ReplugDevice(Usb, 10);
    SleepMs(11 + 200);
    EXPECT_TRUE(Node(Usb).IsRunning());
    EXPECT_EQ(KeyAt(hub, 3), "");
    SleepMs(100);
    EXPECT_EQ(KeyAt(hub, 3), machine::DriverKeyOf(Node(Usb)));
    machine::UnplugDevice(Hub);
    SleepMs(10);
    EXPECT_EQ(KeyAt(hub, 3), "");
    EXPECT_EQ(GetLastError(), ERROR_NO_SUCH_DEVICE);
    CloseHandle(hub);
}

TEST_F(Hubs, ACycledDeviceLeavesLaterAndComesBack) {
    Build(Bench());
    EXPECT_EQ(Cycle(3), 0u);
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
    EXPECT_EQ(Cycle(1), ERROR_GEN_FAILURE);
}

TEST_F(Hubs, ACycleThatTheHubRefusesDoesNothing) {
    std::vector<DeviceDescription> devices = Bench();
    devices[2].cycleStatus = 5;
    Build(devices);
    EXPECT_EQ(Cycle(3), 5u);
    SleepMs(1000);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_FALSE(machine::DeviceRestarts()[0].ok);
}

TEST(SetupApi, InterfaceListsHoldAbsentDevicesUnlessAskedForPresentOnes) {
    std::vector<DeviceDescription> devices = Bench();
    devices.push_back(NamedPort("TEST\\AWAY\\1", "COM9"));
    devices.back().plugged = false;
    devices.push_back(Device("TEST\\NEVER\\1", DeviceKind::Port));
    devices.back().plugged = false;
    Build(devices);
    GUID guid{};
    machine::GuidFromText(ComPortClass, guid);
    const auto paths = [&](DWORD flags) {
        std::vector<std::string> found;
        const HDEVINFO list = SetupDiGetClassDevsA(&guid, nullptr, nullptr, DIGCF_DEVICEINTERFACE | flags);
        SP_DEVICE_INTERFACE_DATA data{};
        data.cbSize = sizeof(data);
        for (DWORD i = 0; SetupDiEnumDeviceInterfaces(list, nullptr, &guid, i, &data); ++i) {
            alignas(8) char buffer[260];
            auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer);
            detail->cbSize = sizeof(*detail);
            SP_DEVINFO_DATA fromInterface{}, fromDevice{};
            fromInterface.cbSize = fromDevice.cbSize = sizeof(fromDevice);
            DWORD needed = 0;
            EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailA(list, &data, nullptr, 0, &needed, nullptr));
            EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
            EXPECT_TRUE(SetupDiGetDeviceInterfaceDetailA(list, &data, detail, needed, nullptr, &fromInterface));
            EXPECT_TRUE(SetupDiEnumDeviceInfo(list, i, &fromDevice));
            EXPECT_EQ(fromInterface.DevInst, fromDevice.DevInst) << "device and interface at one index";
            found.push_back(detail->DevicePath);
        }
        EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
        EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));
        return found;
    };
    const std::string port = "\\\\?\\ftdibus#vid_0403+pid_6001+a702tb52a#0000#" + std::string(ComPortClass);
    EXPECT_EQ(paths(0), (std::vector<std::string>{port, "\\\\?\\test#away#1#" + std::string(ComPortClass)}));
    EXPECT_EQ(paths(DIGCF_PRESENT), (std::vector<std::string>{port}));
    EXPECT_EQ(TargetOf(port.substr(4)), machine::PhysicalNameOf(Node(Port)));
    machine::UnplugDevice(Port);
    SleepMs(1);
    EXPECT_EQ(TargetOf(port.substr(4)), "") << "the path is a name only while the interface is up";
}

TEST(PendingInstalls, AreWaitedForAsLongAsTheCallerWants) {
    EXPECT_EQ(CMP_WaitNoPendingInstallEvents(5000), 0u) << "none are pending unless they are described";
    EXPECT_EQ(Now(), 0u);
}

} // namespace
