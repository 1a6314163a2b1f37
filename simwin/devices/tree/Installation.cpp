#include "simwin/devices/tree/Installation.h"

#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

namespace machine {

constexpr const char* ClassRoot = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Class\\";

namespace {
struct DriverKeys {
    std::map<std::string, unsigned, NoCaseLess> next; // by class
};
} // namespace
static DriverKeys* g_driverKeys;

RoomPtr MakeDriverKeys() {
    return MakeRoom(g_driverKeys);
}

static const char* Or(const char* text, const char* other) {
    return text ? text : other;
}

DeviceFacts FactsOf(const DeviceNode& node) {
    const CatalogueEntry* known = FindInCatalogue(node.id);
    if (known && known->kind != node.kind) {
        known = nullptr;
    }
    const KindDefaults defaults = DefaultsOf(node.kind, TheSetup().version);
    DeviceFacts facts;
    facts.className =
        node.said.className.value_or(known ? Or(known->className, defaults.className) : defaults.className);
    if (node.said.classGuid && !node.said.className) {
        if (const std::string name = SetupClassName(*node.said.classGuid); !name.empty()) {
            facts.className = name;
        }
    }
    facts.classGuid = node.said.classGuid.value_or(SetupClassGuid(facts.className));
    if (facts.classGuid.empty()) {
        facts.classGuid = SetupClassGuid("Unknown");
    }
    const char* service = known ? known->service : nullptr;
    if (known && known->serviceX86 && !TheSetup().x64Windows) {
        service = known->serviceX86;
    }
    // An unknown USB port has the driver that comes with Windows; one of the catalogue whose service is not
    // known has none.
    const bool plainUsbPort = !known && node.kind == DeviceKind::Port && StartsWithNoCase(node.id, "USB\\");
    const char* kindsOwn = plainUsbPort ? "usbser" : known && node.IsPort() ? "" : defaults.service.c_str();
    facts.service = node.said.service.value_or(Or(service, kindsOwn));
    const char* plainText = plainUsbPort ? "USB Serial Device" : defaults.description;
    facts.description = node.said.description.value_or(known ? Or(known->description, plainText) : plainText);
    const std::size_t last = node.id.rfind('\\');
    facts.hardwareId = known && known->hardwareId ? known->hardwareId : node.id.substr(0, last);
    facts.capabilities = FindNoCase(node.id, "&MI_") == std::string::npos ? defaults.capabilities : 0;
    if (node.IsPort() && StartsWithNoCase(node.id, "USB\\") && FindNoCase(node.id, "&MI_") == std::string::npos) {
        facts.capabilities = DefaultsOf(DeviceKind::Usb, TheSetup().version).capabilities;
    }
    return facts;
}

static bool IsUsbDevice(const DeviceNode& node) {
    return StartsWithNoCase(node.id, "USB\\") && FindNoCase(node.id, "&MI_") == std::string::npos;
}

static std::vector<std::string> InterfacesByKind(const DeviceNode& node, std::string_view className) {
    std::vector<std::string> names;
    switch (node.kind) {
    case DeviceKind::Port:
    case DeviceKind::Modem:
        if (IsUsbDevice(node)) {
            names.push_back("usb");
        }
        if (node.kind == DeviceKind::Modem) {
            names.push_back("modem");
        } else if (EqualNoCase(className, "Ports") && !node.printerPort) {
            names.push_back("comport");
        }
        break;
    case DeviceKind::Hub:
    case DeviceKind::RootHub:
        names.push_back("hub");
        break;
    case DeviceKind::Controller:
        names.push_back("controller");
        break;
    case DeviceKind::Usb:
    case DeviceKind::Composite:
        names.push_back("usb");
        break;
    case DeviceKind::Other:
        break;
    }
    return names;
}

void MakeInterfaces(DeviceNode& node, std::string_view className) {
    if (node.said.interfaces) {
        TheDeviceTree().RemoveInterfaces(&node);
    }
    for (const std::string& name : node.said.interfaces ? *node.said.interfaces : InterfacesByKind(node, className)) {
        if (const std::string guid = InterfaceClassByName(name); !guid.empty()) {
            TheDeviceTree().AddInterface(&node, guid);
        }
    }
}

// The next driver key of the class: four digits, one above the highest that exists.
static std::string NewDriverKey(const std::string& classGuid) {
    auto [entry, isNew] = g_driverKeys->next.try_emplace(classGuid, 0);
    if (isNew) {
        if (const RegistryKey* key = TheRegistry().FindKey(ClassRoot + classGuid)) {
            for (const auto& [name, subKey] : key->subKeys) {
                if (name.size() == 4 && name.find_first_not_of("0123456789") == std::string::npos) {
                    entry->second = std::max(entry->second, static_cast<unsigned>(std::stoul(name)) + 1);
                }
            }
        }
    }
    return fmt::format("{}\\{:04}", classGuid, entry->second++);
}

static void SetIf(DeviceNode& node, const char* name, const std::optional<std::string>& said,
                  const std::string& otherwise) {
    Registry& registry = TheRegistry();
    if (said) {
        registry.SetString(node.enumPath, name, *said);
    } else if (!otherwise.empty() && !registry.GetValue(node.enumPath, name)) {
        registry.SetString(node.enumPath, name, otherwise);
    }
}

static void SetNames(DeviceNode& node) {
    Registry& registry = TheRegistry();
    const std::string parameters = node.enumPath + "\\Device Parameters";
    if (node.said.portName) {
        registry.SetString(parameters, "PortName", *node.said.portName);
    }
    if (node.said.dosDeviceName) {
        registry.SetString(parameters, "DosDeviceName", *node.said.dosDeviceName);
    }
    const std::string name = node.said.portName.value_or(node.said.dosDeviceName.value_or(""));
    if (node.said.friendlyName) {
        registry.SetString(node.enumPath, "FriendlyName", *node.said.friendlyName);
    } else if (!name.empty()) {
        registry.SetString(node.enumPath, "FriendlyName", DescriptionOf(node) + " (" + name + ")");
    }
}

// Its keys, outermost last, so that nothing is created below a key that already refuses.
static void Protect(const DeviceNode& node) {
    Registry& registry = TheRegistry();
    registry.CreateKey(node.enumPath + "\\Device Parameters");
    registry.ProtectKey(node.enumPath + "\\Device Parameters");
    if (const std::string key = DriverKeyOf(node); !key.empty()) {
        registry.ProtectKey(ClassRoot + key);
    }
    registry.ProtectKey(node.enumPath);
}

void WidenHub(DeviceNode& hub, unsigned port) {
    if (!hub.said.ports && port > hub.ports) {
        hub.ports = port;
    }
}

void PlaceOnHub(DeviceNode& node, DeviceNode& hub, unsigned port) {
    node.hubPort = port;
    WidenHub(hub, port);
    if (!node.said.location) {
        TheRegistry().SetString(node.enumPath, "LocationInformation",
                                fmt::format("Port_#{:04}.Hub_#{:04}", port, hub.hubNumber));
    }
    if (!node.said.address) {
        TheRegistry().SetDword(node.enumPath, "Address", port);
    }
}

void InstallKeys(DeviceNode& node, bool firstTime) {
    Registry& registry = TheRegistry();
    const DeviceFacts facts = FactsOf(node);
    SetIf(node, "DeviceDesc", node.said.description, facts.description);
    if (node.said.location) {
        registry.SetString(node.enumPath, "LocationInformation", *node.said.location);
    }
    if (node.said.address) {
        registry.SetDword(node.enumPath, "Address", *node.said.address);
    }
    if (node.hubPort && node.parent && node.parent->IsHub() &&
        (!registry.GetValue(node.enumPath, "LocationInformation") || node.said.hubPort || node.said.parent)) {
        PlaceOnHub(node, *node.parent, node.hubPort);
    }
    const auto setDword = [&](const char* name, simwin::DWORD value) {
        if (!registry.GetValue(node.enumPath, name)) {
            registry.SetDword(node.enumPath, name, value);
        }
    };
    setDword("Capabilities", facts.capabilities);
    if (node.said.hardwareId) {
        registry.SetMulti(node.enumPath, "HardwareID", *node.said.hardwareId);
    } else if (!registry.GetValue(node.enumPath, "HardwareID")) {
        registry.SetMulti(node.enumPath, "HardwareID", {facts.hardwareId});
    }
    const bool newClass = node.said.className || node.said.classGuid || !registry.GetValue(node.enumPath, "ClassGUID");
    if (newClass) {
        registry.SetString(node.enumPath, "ClassGUID", facts.classGuid);
        registry.SetString(node.enumPath, "Class", facts.className);
    }
    SetIf(node, "Service", node.said.service, facts.service);
    const std::string guid = DeviceText(node, "ClassGUID");
    const std::string driverKey = node.said.driverKey                          ? *node.said.driverKey
                                  : registry.GetValue(node.enumPath, "Driver") ? std::string()
                                                                               : NewDriverKey(guid);
    SetIf(node, "Driver", node.said.driverKey, driverKey);
    if (const std::string key = DriverKeyOf(node); !key.empty() && !registry.GetValue(ClassRoot + key, "DriverDesc")) {
        registry.SetString(ClassRoot + key, "DriverDesc", facts.description);
    }
    setDword("ConfigFlags", 0);
    registry.CreateKey(node.enumPath + "\\Device Parameters");
    if (!firstTime) {
        SetNames(node);
    }
    node.installed = true;
    if (node.said.isProtected.value_or(false)) {
        Protect(node);
    }
}

} // namespace machine
