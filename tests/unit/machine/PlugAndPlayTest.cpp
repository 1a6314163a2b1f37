// Devices that arrive, leave, stop and start: what is there at which moment, and who is told.
#include "tests/unit/machine/DevicesOnMachine.h"

namespace {

using namespace devicetest;
using machine::Now;
using machine::SleepMs;

TEST(PlugAndPlay, ArrivesFromTheTopDownAndTellsEachInterfaceAsItGoesUp) {
    std::vector<DeviceDescription> devices = Bench();
    devices[3].plugged = false;
    Build(devices);
    Listener listener;
    Listener::Register("");
    const std::uint64_t start = Now();
    machine::PlugDevice(Usb);
    EXPECT_EQ(ProblemOf(Usb), 0u);
    SleepMs(99);
    ProblemOf(Port, simwin::CR_NO_SUCH_DEVNODE);
    EXPECT_TRUE(Listener::told.empty());
    SleepMs(200);
    const std::vector<std::string> expected = {"+\\\\?\\USB#VID_0403&PID_6001#A702TB52",
                                               "+\\\\?\\FTDIBUS#VID_0403+PID_6001+A702TB52A#0000"};
    ASSERT_EQ(Listener::Texts(), expected);
    EXPECT_EQ(Listener::told[0].atMs - start, 100u);
    EXPECT_EQ(Listener::told[1].atMs - start, 200u);
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0");
    EXPECT_EQ(SerialComm("\\Device\\VCP0"), "COM7");
    EXPECT_EQ(Listener::broadcasts, 0u);
    SleepMs(401);
    EXPECT_EQ(Listener::broadcasts, 1u) << "half a second behind the last change, once for all of them";
}

TEST(PlugAndPlay, LeavesFromTheBottomUpAndComesBackAsTheSameNode) {
    Build(Bench());
    Listener listener;
    Listener::Register(ComPortClass);
    const simwin::DWORD number = Node(Port).number;
    machine::UnplugDevice(Hub);
    SleepMs(1);
    ProblemOf(Port, simwin::CR_NO_SUCH_DEVNODE);
    EXPECT_EQ(TargetOf("COM7"), "");
    EXPECT_EQ(SerialComm("\\Device\\VCP0"), "");
    EXPECT_TRUE(Node(Hub).IsPresent()) << "the hub is the last to go";
    SleepMs(5);
    EXPECT_FALSE(Node(Hub).IsPresent());
    machine::PlugDevice(Hub);
    SleepMs(1000);
    EXPECT_EQ(Node(Port).number, number);
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0");
    EXPECT_EQ(Node(Port).restarts, 0u) << "an unplug is no restart by the product";
    EXPECT_EQ(Listener::told.size(), 2u);
}

TEST(PlugAndPlay, WhatWasPulledOutByItselfStaysAwayWhenItsHubComesBack) {
    Build(Bench());
    machine::UnplugDevice(Usb);
    SleepMs(10);
    machine::ReplugDevice(Hub, 50);
    SleepMs(1000);
    EXPECT_TRUE(Node(Hub).IsRunning());
    EXPECT_FALSE(Node(Usb).IsPresent());
    machine::PlugDevice(Usb);
    SleepMs(1000);
    EXPECT_TRUE(Node(Port).IsRunning());
}

TEST(PlugAndPlay, APlugWhileItIsStillLeavingBringsItBack) {
    Build(Bench());
    machine::ReplugDevice(Hub, 0);
    SleepMs(1000);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0");
}

TEST(PlugAndPlay, ARecipientGetsTheNextNoticeOnlyWhenItHasReturned) {
    std::vector<DeviceDescription> devices = Bench();
    devices[3].plugged = false;
    Build(devices);
    Listener listener;
    const simwin::HDEVNOTIFY notification = Listener::Register("");
    Listener::holds = true;
    machine::PlugDevice(Usb);
    SleepMs(500);
    ASSERT_EQ(Listener::told.size(), 1u);
    Listener::holds = false;
    machine::NotificationReturned returned = std::move(Listener::held);
    returned();
    EXPECT_EQ(Listener::told.size(), 2u);
    EXPECT_TRUE(simwin::UnregisterDeviceNotification(notification));
    machine::UnplugDevice(Usb);
    SleepMs(10);
    EXPECT_EQ(Listener::told.size(), 2u) << "nobody is registered any more";
}

TEST(PlugAndPlay, AMovedDeviceIsKnownByItsNewSocket) {
    std::vector<DeviceDescription> devices = Bench();
    Build(devices);
    machine::MoveDevice(Usb, RootHub, 4);
    SleepMs(1000);
    EXPECT_TRUE(Node(Port).IsRunning());
    EXPECT_EQ(machine::UsbPortOf(Node(Port)), "1-4");
    EXPECT_EQ(machine::DeviceText(Node(Usb), "LocationInformation"), "Port_#0004.Hub_#0001");
}

TEST(PlugAndPlay, AQuietProblemStopsTheDriverAndLeavesTheInterfaceUp) {
    Build(Bench());
    Listener listener;
    Listener::Register(ComPortClass);
    machine::SetDeviceProblem(Port, {43, /*quiet=*/true, false});
    EXPECT_EQ(ProblemOf(Port), 43u);
    EXPECT_EQ(TargetOf("COM7"), "");
    machine::SetDeviceProblem(Port, {0, /*quiet=*/true, false});
    SleepMs(100);
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0");
    EXPECT_TRUE(Listener::told.empty());
    machine::SetDeviceProblem(Port, {43, false, /*sticky=*/true});
    EXPECT_EQ(Listener::told.size(), 1u);
    EXPECT_EQ(ChangeState(Port, simwin::DICS_PROPCHANGE), 0u);
    EXPECT_EQ(ProblemOf(Port), 43u) << "no start clears it";
}

TEST(PlugAndPlay, ADescribedProblemHasItsInterfaceListedButDown) {
    std::vector<DeviceDescription> devices = Bench();
    devices[4].problem = 10;
    Build(devices);
    EXPECT_EQ(ProblemOf(Port), 10u);
    EXPECT_EQ(TargetOf("COM7"), "");
    EXPECT_TRUE(Node(Port).interfaces[0]->registered);
    EXPECT_FALSE(Node(Port).interfaces[0]->up);
    machine::ReplugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(ProblemOf(Port), 0u) << "the next start clears it";
}

TEST(PortDriver, APortThatWasNeverThereGetsTheLowestFreeNumberFromThreeOn) {
    std::vector<DeviceDescription> devices = Bench(nullptr);
    devices.push_back(NamedPort("TEST\\A\\1", "COM3"));
    devices.push_back(NamedPort("TEST\\A\\2", "COM5"));
    devices[3].plugged = false;
    Build(devices);
    EXPECT_FALSE(Node(Port).installed);
    machine::PlugDevice(Usb);
    SleepMs(300);
    EXPECT_EQ(machine::RegistryNameOf(Node(Port)), "COM4");
    EXPECT_EQ(machine::FriendlyNameOf(Node(Port)), "USB Serial Port (COM4)");
    EXPECT_EQ(machine::ComDbNumbers(), (std::vector<unsigned>{3, 4, 5}));
    EXPECT_TRUE(Node(Port).installed);
}

TEST(PortDriver, AKnownPortKeepsItsNameAndAsksNobodyForIt) {
    machine::DevicesDescription description;
    description.devices = Bench();
    description.comDatabase.taken = std::vector<unsigned>{1};
    ASSERT_EQ(machine::BuildDevices(description), "");
    machine::ReplugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(machine::RegistryNameOf(Node(Port)), "COM7");
    EXPECT_EQ(machine::ComDbNumbers(), (std::vector<unsigned>{1}));
}

TEST(PortDriver, WithANameThatExistsItDoesAsItsDriverDoes) {
    std::vector<DeviceDescription> devices;
    devices.push_back(NamedPort("TEST\\FIRST\\1", "COM9"));
    devices.push_back(NamedPort("TEST\\NONAME\\1", "COM9"));
    devices.push_back(NamedPort("TEST\\FAIL\\1", "COM9"));
    devices.back().nameTaken = machine::NameTaken::Fail;
    Build(devices);
    EXPECT_EQ(TargetOf("com9"), "\\Device\\Serial0");
    EXPECT_EQ(SerialComm("\\Device\\Serial1"), "");
    EXPECT_TRUE(Node("TEST\\NONAME\\1").IsRunning());
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\NONAME\\1")), "");
    EXPECT_EQ(ProblemOf("TEST\\FAIL\\1"), 10u);
    machine::AmendDevice("TEST\\NONAME\\1", [] {
        DeviceDescription take;
        take.nameTaken = machine::NameTaken::Take;
        return take;
    }());
    EXPECT_EQ(ChangeState("TEST\\NONAME\\1", simwin::DICS_PROPCHANGE), 0u);
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\NONAME\\1")), "COM9");
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\FIRST\\1")), "");
}

TEST(PortDriver, ANameThatSomebodyElseMadeStaysWhenItStops) {
    Build(Bench());
    ASSERT_TRUE(simwin::DefineDosDeviceA(simwin::DDD_REMOVE_DEFINITION, "COM7", nullptr));
    ASSERT_TRUE(simwin::DefineDosDeviceA(simwin::DDD_RAW_TARGET_PATH, "COM20", "\\Device\\VCP0"));
    EXPECT_EQ(machine::DosNameOf(Node(Port)), "COM20");
    machine::UnplugDevice(Port);
    SleepMs(1);
    EXPECT_EQ(TargetOf("COM20"), "\\Device\\VCP0");
    const simwin::HANDLE handle = simwin::CreateFileA("\\\\.\\COM20", 0, 3, nullptr, simwin::OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(simwin::GetLastError(), simwin::ERROR_FILE_NOT_FOUND);
}

TEST(PortDriver, AHeldKernelDeviceKeepsItsNameTakenAndItsLinkUntilTheHandleGoes) {
    std::vector<DeviceDescription> devices = Bench();
    devices[4].linkGoes = machine::LinkGoes{0, /*withLastHandle=*/true};
    Build(devices);
    const simwin::HANDLE handle = simwin::CreateFileA("\\\\.\\COM7", 0, 3, nullptr, simwin::OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(simwin::CreateFileA("\\\\.\\COM7", 0, 3, nullptr, simwin::OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(simwin::GetLastError(), simwin::ERROR_ACCESS_DENIED);
    machine::ReplugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0") << "the old link is still there";
    ASSERT_NE(Node(Port).driver, nullptr);
    EXPECT_EQ(Node(Port).driver->name, "\\Device\\VCP1");
    simwin::CloseHandle(handle);
    EXPECT_EQ(TargetOf("COM7"), "");
    machine::ReplugDevice(Usb);
    SleepMs(1000);
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0");
}

} // namespace
