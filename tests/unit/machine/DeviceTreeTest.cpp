// Devices that leave and come back: what is there at which moment. The device tree of an export: what hangs below what,
// and what of it is there. And the DOS name space.
#include "tests/harness/Harness.h"

#include "simwin/devices/build/Devices.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/events/Events.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/registry/Registry.h"
#include "simwin/win32.h"

#include <string>
#include <vector>

using namespace simwin;
using machine::DeviceDescription;
using machine::DeviceKind;
using machine::DeviceNode;
using machine::SleepMs;

constexpr char Controller[] = "PCI\\VEN_8086&DEV_A36D\\3&1";
constexpr char RootHub[] = "USB\\ROOT_HUB30\\4&1&0&0";
constexpr char Hub[] = "USB\\VID_05E3&PID_0608\\5&1&0&2";
constexpr char Usb[] = "USB\\VID_0403&PID_6001\\A702TB52";
constexpr char Port[] = "FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000";

static DeviceDescription Device(const char* id, DeviceKind kind, const char* parent = nullptr, unsigned hubPort = 0) {
    DeviceDescription device;
    device.id = id;
    device.kind = kind;
    if (parent) {
        device.parent = parent;
    }
    if (hubPort) {
        device.hubPort = hubPort;
    }
    return device;
}

// Controller, root hub, a hub on its port 2, and on that hub's port 3 a converter with one port.
static std::vector<DeviceDescription> Bench() {
    std::vector<DeviceDescription> devices = {
        Device(Controller, DeviceKind::Controller), Device(RootHub, DeviceKind::RootHub, Controller),
        Device(Hub, DeviceKind::Hub, RootHub, 2), Device(Usb, DeviceKind::Usb, Hub, 3),
        Device(Port, DeviceKind::Port, Usb)};
    devices.back().portName = "COM7";
    return devices;
}

static void Build(const std::vector<DeviceDescription>& devices) {
    machine::DevicesDescription description;
    description.devices = devices;
    ASSERT_EQ(machine::BuildDevices(description), "");
}

static DeviceNode& Node(const char* id) {
    return *machine::TheDeviceTree().FindById(id);
}

static DWORD ProblemOf(const char* id, CONFIGRET expected = CR_SUCCESS) {
    ULONG status = 0, problem = 0;
    EXPECT_EQ(CM_Get_DevNode_Status(&status, &problem, Node(id).number, 0), expected) << id;
    return problem;
}

// The first target of a DOS name, "" if there is no such name.
static std::string TargetOf(const std::string& name) {
    char target[520];
    return QueryDosDeviceA(name.c_str(), target, sizeof(target)) ? target : "";
}

static std::string SerialComm(const char* kernelName) {
    return machine::TheRegistry().GetString("HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM", kernelName);
}

// How many notifications a window of the interface class has got. It answers at once.
static unsigned g_notices = 0;
static void Listen(const char* guid) {
    machine::SetWindowCheck(nullptr);
    machine::SetWindowRoute([](const machine::NotificationRecipient&, DWORD, const std::vector<std::uint8_t>&,
                               const machine::NotificationReturned& returned) {
        ++g_notices;
        returned();
    });
    DEV_BROADCAST_DEVICEINTERFACE_A filter{};
    filter.dbcc_size = sizeof(filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    ASSERT_TRUE(machine::GuidFromText(guid, filter.dbcc_classguid));
    RegisterDeviceNotificationA(reinterpret_cast<HANDLE>(0x1234), &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

TEST(PlugAndPlay, LeavesFromTheBottomUpAndComesBackAsTheSameNode) {
    Build(Bench());
    Listen("{86e0d1e0-8089-11d0-9ce4-08003e301f73}");
    const DWORD number = Node(Port).number;
    machine::UnplugDevice(Hub);
    SleepMs(1);
    ProblemOf(Port, CR_NO_SUCH_DEVNODE);
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
    EXPECT_EQ(g_notices, 2u);
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

namespace {
struct Exported {
    const char *id, *prefix, *location, *service;
};
} // namespace

// As an export of the registry editor would have brought them in.
constexpr Exported Desk[] = {
    {"ACPI\\PNP0501\\1", "", "", "Serial"},
    {"ACPI_HAL\\PNP0C08\\0", "2&daba3ff&0", "", "ACPI"},
    {"ACPI\\PNP0A03\\2&daba3ff&0", "3&61aaa01&0", "", "pci"},
    {"HTREE\\ROOT\\0", "", "", ""},
    {"PCI\\VEN_8086&DEV_7110\\3&61aaa01&0&38", "", "", "msisadrv"},
    {"PCI\\VEN_15AD&DEV_0774\\3&61aaa01&0&88", "5&2891968b&0", "", "usbuhci"},
    {"USB\\ROOT_HUB\\5&2891968b&0", "6&35d1f50b&0", "", "usbhub"},
    {"USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2", "7&1e3a8971&0", "Port_#0002.Hub_#0005", "usbhub"},
    {"USB\\VID_0E0F&PID_0008\\650268328", "", "Port_#0001.Hub_#0005", "BTHUSB"},
    {"USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1", "", "Port_#0001.Hub_#0005", "BTHUSB"},
    {"USB\\VID_0781&PID_5530\\0001", "", "Port_#0003.Hub_#0002", "USBSTOR"},
    {"USB\\VID_0781&PID_5531\\0001", "", "Port_#0003.Hub_#0005", "USBSTOR"}};

static void BuildDesk() {
    machine::Registry& registry = machine::TheRegistry();
    for (const Exported& device : Desk) {
        const std::string key = std::string("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\") + device.id;
        const std::string service = device.service;
        const char* setupClass = service == "Serial" ? "Ports" : service.starts_with("usb") ? "USB" : "System";
        registry.SetString(key, "ClassGUID", machine::SetupClassGuid(setupClass));
        registry.SetString(key, "Service", service);
        if (*device.prefix) {
            registry.SetString(key, "ParentIdPrefix", device.prefix);
        }
        if (*device.location) {
            registry.SetString(key, "LocationInformation", device.location);
        }
    }
    // The last one was removed.
    registry.SetDword("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_0781&PID_5531\\0001", "ConfigFlags", 2);
    Build({});
}

TEST(ExportedTree, FindsParentsByPrefixThenLocationThenEnumerator) {
    BuildDesk();
    const std::pair<const char*, const char*> parents[] = {
        {"USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2", "USB\\ROOT_HUB\\5&2891968b&0"},
        // A root hub's instance is the prefix of its controller itself.
        {"USB\\ROOT_HUB\\5&2891968b&0", "PCI\\VEN_15AD&DEV_0774\\3&61aaa01&0&88"},
        // The hub whose other children carry the number 5; nobody carries the number 2, so that is the second hub's.
        {"USB\\VID_0E0F&PID_0008\\650268328", "USB\\ROOT_HUB\\5&2891968b&0"},
        {"USB\\VID_0781&PID_5530\\0001", "USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2"},
        {"ACPI\\PNP0501\\1", "PCI\\VEN_8086&DEV_7110\\3&61aaa01&0&38"},
        {"ACPI_HAL\\PNP0C08\\0", "HTREE\\ROOT\\0"}};
    for (const auto& [id, parent] : parents) {
        EXPECT_EQ(Node(id).parent->id, parent) << id;
    }
    EXPECT_EQ(Node("ACPI\\PNP0501\\1").number, machine::TheSetup().firstNode) << "in the order of the export";
    EXPECT_EQ(machine::UsbPortOf(Node("USB\\VID_0781&PID_5530\\0001")), "1-2-3");
    EXPECT_FALSE(Node("USB\\VID_0E0F&PID_0008\\650268328").IsPresent()) << "of several in one socket the last is there";
    EXPECT_TRUE(Node("USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1").IsRunning());
    EXPECT_FALSE(Node("USB\\VID_0781&PID_5531\\0001").IsPresent());
}

TEST(DosNames, StackAndUncoverEachOtherAndAreListedInTheirOrder) {
    char before[256], after[256], targets[64];
    const DWORD length = QueryDosDeviceA(nullptr, before, sizeof(before));
    for (const char* name : {"COM30", "COM4"}) {
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, name, "\\Device\\X"));
    }
    ASSERT_EQ(QueryDosDeviceA(nullptr, after, sizeof(after)), length + 11);
    EXPECT_EQ(std::string(after + length - 1, 11), std::string("COM30\0COM4\0", 11));
    EXPECT_EQ(QueryDosDeviceA(nullptr, after, length + 10), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);

    for (const char* target : {"\\Device\\A", "\\Device\\B", "\\Device\\C"}) {
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH | DDD_NO_BROADCAST_SYSTEM, "COM9", target));
    }
    EXPECT_EQ(QueryDosDeviceA("com9", targets, sizeof(targets)), 31u);
    EXPECT_STREQ(targets, "\\Device\\C");
    EXPECT_STREQ(targets + 10, "\\Device\\B");
    EXPECT_TRUE(DefineDosDeviceA(DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE | DDD_RAW_TARGET_PATH, "COM9",
                                 "\\Device\\B"));
    EXPECT_EQ(TargetOf("COM9"), "\\Device\\C");
    EXPECT_TRUE(DefineDosDeviceA(DDD_REMOVE_DEFINITION, "COM9", nullptr));
    EXPECT_EQ(TargetOf("COM9"), "\\Device\\A");
    EXPECT_TRUE(DefineDosDeviceA(DDD_REMOVE_DEFINITION, "COM9", nullptr));
    EXPECT_FALSE(DefineDosDeviceA(DDD_REMOVE_DEFINITION, "COM9", nullptr));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}
