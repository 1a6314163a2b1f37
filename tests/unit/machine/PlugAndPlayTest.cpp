// Devices that arrive, leave, stop and start: what is there at which moment, and who is told.
#include "tests/unit/machine/DevicesOnMachine.h"

namespace {

using namespace devicetest;
using machine::Now;
using machine::SleepMs;

const std::string UsbArrived = "+USB#VID_0403&PID_6001#A702TB52",
                  PortArrived = "+FTDIBUS#VID_0403+PID_6001+A702TB52A#0000";

std::vector<DeviceDescription> UnpluggedBench() {
    std::vector<DeviceDescription> devices = Bench();
    devices[3].plugged = false;
    return devices;
}

TEST(PlugAndPlay, ArrivesFromTheTopDownAndTellsEachInterfaceAsItGoesUp) {
    Build(UnpluggedBench());
    Listener listener("");
    const std::uint64_t start = Now();
    machine::PlugDevice(Usb);
    EXPECT_EQ(ProblemOf(Usb), 0u);
    SleepMs(99);
    ProblemOf(Port, simwin::CR_NO_SUCH_DEVNODE);
    EXPECT_TRUE(Listener::told.empty());
    SleepMs(200);
    EXPECT_EQ(Listener::told, (std::vector<Told>{{start + 100, UsbArrived}, {start + 200, PortArrived}}));
    EXPECT_EQ(TargetOf("COM7"), "\\Device\\VCP0");
    EXPECT_EQ(SerialComm("\\Device\\VCP0"), "COM7");
    EXPECT_EQ(Listener::broadcasts, 0u);
    SleepMs(401);
    EXPECT_EQ(Listener::broadcasts, 1u) << "half a second behind the last change, once for all of them";
}

TEST(PlugAndPlay, LeavesFromTheBottomUpAndComesBackAsTheSameNode) {
    Build(Bench());
    Listener listener(ComPortClass);
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
    machine::ReplugDevice(Hub, 0);
    SleepMs(1000);
    EXPECT_TRUE(Node(Port).IsRunning()) << "plugged in while it was still leaving";
    machine::UnplugDevice(Usb);
    SleepMs(10);
    machine::ReplugDevice(Hub, 50);
    SleepMs(1000);
    EXPECT_TRUE(Node(Hub).IsRunning());
    EXPECT_FALSE(Node(Usb).IsPresent()) << "it was pulled out by itself";
}

TEST(PlugAndPlay, ARecipientGetsTheNextNoticeOnlyWhenItHasReturned) {
    Build(UnpluggedBench());
    Listener listener("");
    Listener::holds = true;
    machine::PlugDevice(Usb);
    SleepMs(500);
    ASSERT_EQ(Listener::told.size(), 1u);
    Listener::holds = false;
    machine::NotificationReturned returned = std::move(Listener::held);
    returned();
    EXPECT_EQ(Listener::told.size(), 2u);
    EXPECT_TRUE(simwin::UnregisterDeviceNotification(listener.handle));
    machine::UnplugDevice(Usb);
    SleepMs(10);
    EXPECT_EQ(Listener::told.size(), 2u) << "nobody is registered any more";
}

TEST(PortDriver, WithANameThatExistsItDoesAsItsDriverDoes) {
    std::vector<DeviceDescription> devices = {NamedPort("TEST\\FIRST\\1", "COM9"), NamedPort("TEST\\NONAME\\1", "COM9"),
                                              NamedPort("TEST\\FAIL\\1", "COM9")};
    devices.back().nameTaken = machine::NameTaken::Fail;
    Build(devices);
    EXPECT_EQ(TargetOf("com9"), "\\Device\\Serial0");
    EXPECT_EQ(SerialComm("\\Device\\Serial1"), "");
    EXPECT_TRUE(Node("TEST\\NONAME\\1").IsRunning());
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\NONAME\\1")), "");
    EXPECT_EQ(ProblemOf("TEST\\FAIL\\1"), 10u);
    DeviceDescription take;
    take.nameTaken = machine::NameTaken::Take;
    machine::AmendDevice("TEST\\NONAME\\1", take);
    EXPECT_EQ(ChangeState("TEST\\NONAME\\1", simwin::DICS_PROPCHANGE), 0u);
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\NONAME\\1")), "COM9");
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\FIRST\\1")), "");
}

TEST(PortDriver, ANameThatSomebodyElseMadeStaysWhenItStops) {
    Build(Bench());
    ASSERT_TRUE(simwin::DefineDosDeviceA(simwin::DDD_REMOVE_DEFINITION, "COM7", nullptr));
    ASSERT_TRUE(simwin::DefineDosDeviceA(simwin::DDD_RAW_TARGET_PATH, "COM20", "\\Device\\VCP0"));
    machine::UnplugDevice(Port);
    SleepMs(1);
    EXPECT_EQ(TargetOf("COM20"), "\\Device\\VCP0");
    EXPECT_EQ(simwin::CreateFileA("\\\\.\\COM20", 0, 3, nullptr, simwin::OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(simwin::GetLastError(), simwin::ERROR_FILE_NOT_FOUND);
}

} // namespace
