// The device tree that exports tell: what hangs below what, and what of it is there. And the DOS name space.
#include "tests/unit/machine/DevicesOnMachine.h"

#include "simwin/devices/catalogue/Catalogue.h"

namespace {

using namespace devicetest;
using machine::SleepMs;

constexpr const char* Enum = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\";

struct Exported {
    const char* id;
    const char* prefix;
    const char* location;
    const char* service;
    simwin::DWORD configFlags;
};

// As an export of the registry editor would have brought them in.
void Export(const std::vector<Exported>& devices) {
    machine::Registry& registry = machine::TheRegistry();
    for (const Exported& device : devices) {
        const std::string key = Enum + std::string(device.id);
        const std::string service = device.service;
        registry.SetString(key, "ClassGUID",
                           machine::SetupClassGuid(service == "Serial"             ? "Ports"
                                                   : service.substr(0, 3) == "usb" ? "USB"
                                                                                   : "System"));
        if (*device.prefix)
            registry.SetString(key, "ParentIdPrefix", device.prefix);
        if (*device.location)
            registry.SetString(key, "LocationInformation", device.location);
        registry.SetString(key, "Service", device.service);
        registry.SetDword(key, "ConfigFlags", device.configFlags);
    }
}

void ExportDesk() {
    Export({{"ACPI\\PNP0501\\1", "", "", "Serial", 0},
            {"ACPI_HAL\\PNP0C08\\0", "2&daba3ff&0", "", "ACPI", 0},
            {"ACPI\\PNP0A03\\2&daba3ff&0", "3&61aaa01&0", "", "pci", 0},
            {"HTREE\\ROOT\\0", "", "", "", 0},
            {"PCI\\VEN_8086&DEV_7110\\3&61aaa01&0&38", "", "", "msisadrv", 0},
            {"PCI\\VEN_15AD&DEV_0774\\3&61aaa01&0&88", "5&2891968b&0", "", "usbuhci", 0},
            {"USB\\ROOT_HUB\\5&2891968b&0", "6&35d1f50b&0", "", "usbhub", 0},
            {"USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2", "7&1e3a8971&0", "Port_#0002.Hub_#0005", "usbhub", 0},
            {"USB\\VID_0E0F&PID_0008\\650268328", "", "Port_#0001.Hub_#0005", "BTHUSB", 0},
            {"USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1", "", "Port_#0001.Hub_#0005", "BTHUSB", 0},
            {"USB\\VID_0781&PID_5530\\0001", "", "Port_#0003.Hub_#0002", "USBSTOR", 0},
            {"USB\\VID_0781&PID_5531\\0001", "", "Port_#0003.Hub_#0005", "USBSTOR", 2}});
}

std::string ParentOf(const char* id) {
    return Node(id).parent->id;
}

TEST(ExportedTree, FindsParentsByPrefixThenLocationThenEnumerator) {
    ExportDesk();
    Build({});
    EXPECT_EQ(ParentOf("USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2"), "USB\\ROOT_HUB\\5&2891968b&0");
    EXPECT_EQ(Node("USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2").hubPort, 2u);
    EXPECT_EQ(ParentOf("USB\\ROOT_HUB\\5&2891968b&0"), "PCI\\VEN_15AD&DEV_0774\\3&61aaa01&0&88")
        << "a root hub's instance is the prefix of its controller itself";
    EXPECT_EQ(ParentOf("USB\\VID_0E0F&PID_0008\\650268328"), "USB\\ROOT_HUB\\5&2891968b&0")
        << "the hub whose other children carry the number 5";
    EXPECT_EQ(ParentOf("USB\\VID_0781&PID_5530\\0001"), "USB\\VID_0E0F&PID_0002\\6&35d1f50b&0&2")
        << "nobody carries the number 2: the second hub";
    EXPECT_EQ(ParentOf("ACPI\\PNP0501\\1"), "PCI\\VEN_8086&DEV_7110\\3&61aaa01&0&38");
    EXPECT_EQ(ParentOf("ACPI_HAL\\PNP0C08\\0"), "HTREE\\ROOT\\0");
    EXPECT_EQ(Node("ACPI\\PNP0501\\1").number, machine::TheSetup().firstNode) << "in the order of the export";
    EXPECT_EQ(machine::UsbPortOf(Node("USB\\VID_0781&PID_5530\\0001")), "1-2-3");
}

TEST(ExportedTree, OfSeveralInOneSocketTheLastIsThereAndNoneThatWasRemoved) {
    ExportDesk();
    Build({});
    EXPECT_FALSE(Node("USB\\VID_0E0F&PID_0008\\650268328").IsPresent());
    EXPECT_TRUE(Node("USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1").IsRunning());
    EXPECT_FALSE(Node("USB\\VID_0781&PID_5531\\0001").IsPresent());
    machine::ReplugDevice("USB\\ROOT_HUB\\5&2891968b&0");
    SleepMs(1000);
    EXPECT_FALSE(Node("USB\\VID_0E0F&PID_0008\\650268328").IsPresent());
}

TEST(ExportedTree, AListOfConnectedDevicesDecides) {
    ExportDesk();
    machine::DevicesDescription description;
    description.connected = "Instance ID:   USB\\VID_0E0F&PID_0008\\650268328\r\n"
                            "Instance ID:   USB\\VID_0781&PID_5530\\00012\r\n";
    ASSERT_EQ(machine::BuildDevices(description), "");
    EXPECT_TRUE(Node("USB\\VID_0E0F&PID_0008\\650268328").IsRunning());
    EXPECT_TRUE(Node("USB\\ROOT_HUB\\5&2891968b&0").IsRunning()) << "what a device hangs on is there too";
    EXPECT_FALSE(Node("USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1").IsPresent());
    EXPECT_FALSE(Node("USB\\VID_0781&PID_5530\\0001").IsPresent()) << "its id is only a part of another";
}

TEST(DescribedTree, APortOfTheCatalogueNeedsNothingButItsId) {
    Build({Device(Usb, DeviceKind::Usb)});
    machine::PlugDevice(Port);
    SleepMs(100);
    EXPECT_EQ(ParentOf(Port), Usb);
    EXPECT_EQ(machine::ServiceOf(Node(Port)), "FTSER2K");
    EXPECT_EQ(machine::ClassNameOf(Node(Port)), "Ports");
    EXPECT_EQ(machine::FriendlyNameOf(Node(Port)), "USB Serial Port (COM3)");
    EXPECT_EQ(TargetOf("COM3"), "\\Device\\VCP0");
}

TEST(DescribedTree, WhatCannotBeIsRefused) {
    machine::DevicesDescription description;
    description.devices = {NamedPort("TEST\\A\\1", "COM3", "TEST\\MISSING\\1")};
    EXPECT_NE(machine::BuildDevices(description), "");
    description.devices = Bench();
    description.devices[2].ports = 2;
    EXPECT_NE(machine::BuildDevices(description), "") << "the hub has no port 3";
}

TEST(DosNames, StackAndUncoverEachOther) {
    using namespace simwin;
    Build({});
    const auto define = [](const char* target) {
        return DefineDosDeviceA(DDD_RAW_TARGET_PATH | DDD_NO_BROADCAST_SYSTEM, "COM9", target);
    };
    ASSERT_TRUE(define("\\Device\\A"));
    ASSERT_TRUE(define("\\Device\\B"));
    ASSERT_TRUE(define("\\Device\\C"));
    char targets[64];
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

TEST(DosNames, AreListedInTheOrderInWhichTheyWereMade) {
    using namespace simwin;
    Build({});
    char before[256], after[256];
    const DWORD length = QueryDosDeviceA(nullptr, before, sizeof(before));
    for (const char* name : {"COM30", "COM4", "COM12"})
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, name, "\\Device\\X"));
    ASSERT_EQ(QueryDosDeviceA(nullptr, after, sizeof(after)), length + 17);
    EXPECT_EQ(std::string(after + length - 1, 17), std::string("COM30\0COM4\0COM12\0", 17));
    EXPECT_EQ(QueryDosDeviceA(nullptr, after, length + 16), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(DosNames, OpenAsTheDescriptionSays) {
    using namespace simwin;
    machine::DevicesDescription description;
    description.dosNames = {{"COM8", "\\Device\\Gone0", machine::OpensFromText("no-device")},
                            {"COM9", "\\Device\\Gone1", machine::OpensFromText("late 450ms")},
                            {"COM10", "\\Device\\Gone2", std::nullopt}};
    ASSERT_EQ(machine::BuildDevices(description), "");
    const auto open = [](const char* path) {
        const HANDLE handle = CreateFileA(path, 0, 3, nullptr, OPEN_EXISTING, 0, nullptr);
        return handle == INVALID_HANDLE_VALUE ? GetLastError() : (CloseHandle(handle), 0u);
    };
    EXPECT_EQ(open("\\\\.\\COM8"), ERROR_NO_SUCH_DEVICE);
    const std::uint64_t start = machine::Now();
    EXPECT_EQ(open("\\\\.\\COM9"), 0u);
    EXPECT_EQ(machine::Now() - start, 450u);
    EXPECT_EQ(open("\\\\.\\COM10"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(open("\\\\.\\COM11"), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(machine::OpensFromText("late").has_value());
    EXPECT_FALSE(machine::OpensFromText("later").has_value());
}

} // namespace
