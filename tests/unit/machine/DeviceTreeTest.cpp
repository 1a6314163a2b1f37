// The device tree that exports tell: what hangs below what, and what of it is there. And the DOS name space.
#include "tests/unit/machine/DevicesOnMachine.h"

#include "simwin/devices/catalogue/Catalogue.h"

namespace {

using namespace devicetest;

struct Exported {
    const char *id, *prefix, *location, *service;
};

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

void BuildDesk(const std::string& connected = "") {
    machine::Registry& registry = machine::TheRegistry();
    for (const Exported& device : Desk) {
        const std::string key = std::string("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\") + device.id;
        const std::string service = device.service;
        const char* setupClass = service == "Serial" ? "Ports" : service.starts_with("usb") ? "USB" : "System";
        registry.SetString(key, "ClassGUID", machine::SetupClassGuid(setupClass));
        registry.SetString(key, "Service", service);
        if (*device.prefix)
            registry.SetString(key, "ParentIdPrefix", device.prefix);
        if (*device.location)
            registry.SetString(key, "LocationInformation", device.location);
    }
    // The last one was removed.
    registry.SetDword("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_0781&PID_5531\\0001", "ConfigFlags", 2);
    machine::DevicesDescription description;
    if (!connected.empty())
        description.connected = connected;
    ASSERT_EQ(machine::BuildDevices(description), "");
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
    for (const auto& [id, parent] : parents)
        EXPECT_EQ(Node(id).parent->id, parent) << id;
    EXPECT_EQ(Node("ACPI\\PNP0501\\1").number, machine::TheSetup().firstNode) << "in the order of the export";
    EXPECT_EQ(machine::UsbPortOf(Node("USB\\VID_0781&PID_5530\\0001")), "1-2-3");
    EXPECT_FALSE(Node("USB\\VID_0E0F&PID_0008\\650268328").IsPresent()) << "of several in one socket the last is there";
    EXPECT_TRUE(Node("USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1").IsRunning());
    EXPECT_FALSE(Node("USB\\VID_0781&PID_5531\\0001").IsPresent());
}

TEST(ExportedTree, AListOfConnectedDevicesDecides) {
    BuildDesk("Instance ID:   USB\\VID_0E0F&PID_0008\\650268328\r\n"
              "Instance ID:   USB\\VID_0781&PID_5530\\00012\r\n");
    EXPECT_TRUE(Node("USB\\VID_0E0F&PID_0008\\650268328").IsRunning());
    EXPECT_TRUE(Node("USB\\ROOT_HUB\\5&2891968b&0").IsRunning()) << "what a device hangs on is there too";
    EXPECT_FALSE(Node("USB\\VID_0E0F&PID_0008\\6&35d1f50b&0&1").IsPresent());
    EXPECT_FALSE(Node("USB\\VID_0781&PID_5530\\0001").IsPresent()) << "its id is only a part of another";
}

TEST(DosNames, StackAndUncoverEachOtherAndAreListedInTheirOrder) {
    using namespace simwin;
    char before[256], after[256], targets[64];
    const DWORD length = QueryDosDeviceA(nullptr, before, sizeof(before));
    for (const char* name : {"COM30", "COM4"})
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, name, "\\Device\\X"));
    ASSERT_EQ(QueryDosDeviceA(nullptr, after, sizeof(after)), length + 11);
    EXPECT_EQ(std::string(after + length - 1, 11), std::string("COM30\0COM4\0", 11));
    EXPECT_EQ(QueryDosDeviceA(nullptr, after, length + 10), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);

    for (const char* target : {"\\Device\\A", "\\Device\\B", "\\Device\\C"})
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH | DDD_NO_BROADCAST_SYSTEM, "COM9", target));
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

} // namespace
