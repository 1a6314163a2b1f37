#include "simwin/devices/drivers/Drivers.h"

#include "simwin/devices/api.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <utility>

namespace machine {

constexpr const char* SerialComm = "HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM";
constexpr const char* Arbiter = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";
constexpr unsigned FirstChosenNumber = 3; // COM1 and COM2 are left to the ports on the board

namespace {
// Kernel names of drivers that the catalogue knows by service only: devices of the exports.
struct ServiceKernelName {
    const char* service;
    const char* kernelName;
};
} // namespace
constexpr ServiceKernelName ServiceKernelNames[] = {
    {"Serial", "\\Device\\Serial0"},
    {"usbser", "\\Device\\USBSER000"},
    {"FTSER2K", "\\Device\\VCP0"},
    {"silabser", "\\Device\\Silabser0"},
    {"slabser", "\\Device\\slabser0"},
    {"Ser2pl", "\\Device\\ProlificSerial0"},
    {"BTHMODEM", "\\Device\\BthModem0"},
    {"Parport", "\\Device\\Parallel0"},
    {"Ser2plx86", "\\Device\\ProlificSerial0"},
    {"CH341SER_A64", "\\Device\\Serial1"},
    {"CH341SER", "\\Device\\Serial1"},
    {"com0com", "\\Device\\com0com10"},
};

static std::string WantedKernelName(const DeviceNode& node) {
    if (node.said.kernelName && !node.said.kernelName->empty()) {
        const auto& names = *node.said.kernelName;
        return names[std::min<std::size_t>(node.starts, names.size() - 1)];
    }
    const std::string service = ServiceOf(node);
    const CatalogueEntry* entry = FindInCatalogue(node.id);
    if (entry && entry->kernelName &&
        (!entry->service || service.empty() || EqualNoCase(entry->service, service) ||
         (entry->serviceX86 && EqualNoCase(entry->serviceX86, service)))) {
        return entry->kernelName;
    }
    for (const ServiceKernelName& known : ServiceKernelNames) {
        if (EqualNoCase(known.service, service)) {
            return known.kernelName;
        }
    }
    return service.empty() ? DefaultsOf(node.kind, TheSetup().version).kernelName : "\\Device\\" + service + "0";
}

static std::string ParametersOf(const DeviceNode& node) {
    return node.enumPath + "\\Device Parameters";
}

// The name that the driver reads; "" if the value is missing or empty.
static std::string WantedDosName(const DeviceNode& node) {
    const std::string parameters = ParametersOf(node);
    const char* value = "PortName";
    if (node.said.nameValue) {
        value = node.said.nameValue->c_str();
    } else if ((node.said.dosDeviceName && !node.said.portName) || !TheRegistry().GetValue(parameters, "PortName")) {
        value = "DosDeviceName";
    }
    return TheRegistry().GetString(parameters, value);
}

// The driver's own link, if the name is still in force by it.
static void RemoveLink(const std::string& name, DefinitionId link) {
    const DosDefinition* definition = TheDosNames().InForce(name);
    if (definition && definition->id == link) {
        TheDosNames().RemoveDefinition(name, link, "driver");
    }
}

static void LetLinkGo(const DeviceNode& node, KernelDevice& device) {
    if (!device.link || node.said.leavesLink.value_or(false)) {
        return;
    }
    const LinkGoes goes = node.said.linkGoes.value_or(LinkGoes{});
    if (goes.withLastHandle && device.handles > 0) {
        device.deleteLinkWithLastHandle = true;
    } else if (!goes.withLastHandle && goes.afterMs > 0) {
        After(goes.afterMs, [name = device.linkName, link = device.link] { RemoveLink(name, link); });
    } else {
        RemoveLink(device.linkName, device.link);
    }
}

static const RegistryValue* ComDb() {
    return TheRegistry().GetValue(Arbiter, "ComDB");
}

// The lowest number from COM3 on that is free in ComDB, 0 if there is none.
static unsigned ChooseNumber() {
    if (const RegistryValue* bits = ComDb()) {
        const auto count = static_cast<unsigned>(bits->data.size() * 8);
        for (unsigned number = FirstChosenNumber; number <= count; ++number) {
            if (!ComDbTest(number)) {
                return number;
            }
        }
        return 0;
    }
    unsigned number = FirstChosenNumber;
    while (TheDosNames().InForce("COM" + std::to_string(number))) {
        ++number;
    }
    return number;
}

bool ComDbTest(unsigned number) {
    const RegistryValue* bits = ComDb();
    if (!bits || number == 0 || (number - 1) / 8 >= bits->data.size()) {
        return false;
    }
    return bits->data[(number - 1) / 8] >> (number - 1) % 8 & 1;
}

void ComDbSet(unsigned number) {
    const RegistryValue* bits = ComDb();
    if (!bits || number == 0 || (number - 1) / 8 >= bits->data.size() || ComDbTest(number)) {
        return;
    }
    std::vector<std::uint8_t> data = bits->data;
    data[(number - 1) / 8] = static_cast<std::uint8_t>(data[(number - 1) / 8] | 1u << (number - 1) % 8);
    TheRegistry().SetBinary(Arbiter, "ComDB", data);
}

std::vector<unsigned> ComDbNumbers() {
    std::vector<unsigned> numbers;
    if (const RegistryValue* bits = ComDb()) {
        for (unsigned number = 1; number <= bits->data.size() * 8; ++number) {
            if (ComDbTest(number)) {
                numbers.push_back(number);
            }
        }
    }
    return numbers;
}

bool HasPortName(const DeviceNode& node) {
    const std::string parameters = ParametersOf(node);
    return TheRegistry().GetValue(parameters, "PortName") || TheRegistry().GetValue(parameters, "DosDeviceName");
}

void InstallPort(DeviceNode& node) {
    const unsigned number = ChooseNumber();
    if (number == 0) {
        return;
    }
    ComDbSet(number);
    const std::string name = "COM" + std::to_string(number);
    TheRegistry().SetString(ParametersOf(node), "PortName", name);
    if (!node.said.friendlyName || node.uninstalled) {
        TheRegistry().SetString(node.enumPath, "FriendlyName", DescriptionOf(node) + " (" + name + ")");
    }
}

simwin::DWORD StartPortDriver(DeviceNode& node) {
    KernelDevice* device = TheDeviceTree().MakeKernelDevice(&node, WantedKernelName(node));
    ++node.starts;
    std::string name = WantedDosName(node);
    DosNames& names = TheDosNames();
    if (!name.empty() && names.InForce(name)) {
        switch (node.said.nameTaken.value_or(NameTaken::NoName)) {
        case NameTaken::NoName:
            name.clear();
            break;
        case NameTaken::Take:
            names.RemoveName(name, "driver");
            break;
        case NameTaken::Fail:
            device->running = false;
            TheDeviceTree().ReleaseKernelDevice(device);
            return simwin::CM_PROB_FAILED_START;
        }
    }
    node.driver = device;
    if (name.empty()) {
        return 0;
    }
    device->linkName = name;
    device->link = names.Define(name, device->name, "driver");
    if (!node.printerPort) {
        TheRegistry().SetString(SerialComm, device->name, name);
    }
    return 0;
}

void StopPortDriver(DeviceNode& node) {
    KernelDevice* device = node.driver;
    if (!device) {
        return;
    }
    node.driver = nullptr;
    device->running = false;
    LetLinkGo(node, *device);
    TheRegistry().DeleteValue(SerialComm, device->name);
    TheDeviceTree().ReleaseKernelDevice(device);
}

void DropPortDriver(DeviceNode& node) {
    KernelDevice* device = std::exchange(node.driver, nullptr);
    if (!device) {
        return;
    }
    device->running = false;
    TheDeviceTree().ReleaseKernelDevice(device);
}

void OpenKernelDevice(KernelDevice& device) {
    ++device.handles;
    ++device.references;
}

void CloseKernelDevice(KernelDevice& device) {
    if (--device.handles == 0 && !device.running && device.deleteLinkWithLastHandle) {
        RemoveLink(device.linkName, device.link);
    }
    TheDeviceTree().ReleaseKernelDevice(&device);
}

} // namespace machine
