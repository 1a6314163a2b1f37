#include "simwin/devices/build/ExportTree.h"

#include "simwin/devices/build/Guesses.h"
#include "simwin/devices/tree/CapturedProperties.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Notes.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <set>

#include <fmt/format.h>

namespace machine {

constexpr const char* EnumKey = "HKLM\\SYSTEM\\CurrentControlSet\\Enum";
constexpr const char* DeviceClasses = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\DeviceClasses";
constexpr const char* RootId = "HTREE\\ROOT\\0";
constexpr simwin::DWORD RootNumber = 1; // of a root that no export names
constexpr unsigned MostHubPorts = 255;

// The first node whose id begins so; null if there is none.
static DeviceNode* FirstWithId(std::string_view start) {
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (StartsWithNoCase(node->id, start)) {
            return node;
        }
    }
    return nullptr;
}

static DeviceNode* FirstWithService(std::string_view service) {
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (EqualNoCase(ServiceOf(*node), service)) {
            return node;
        }
    }
    return nullptr;
}

static DeviceNode* RootOfTree(std::string_view) {
    return TheDeviceTree().Root();
}

// ACPI\... below the ACPI root; an on-board serial port is behind the bridge to the ISA bus.
static DeviceNode* ParentOnAcpi(std::string_view id) {
    if (StartsWithNoCase(id, "ACPI\\PNP050")) {
        if (DeviceNode* bridge = FirstWithService("msisadrv")) {
            return bridge;
        }
    }
    for (const char* root : {"ACPI_HAL\\PNP0C08\\", "ROOT\\ACPI_HAL\\"}) {
        if (DeviceNode* node = FirstWithId(root)) {
            return node;
        }
    }
    return TheDeviceTree().Root();
}

static DeviceNode* ParentOfAcpiRoot(std::string_view) {
    DeviceNode* node = FirstWithId("ROOT\\ACPI_HAL\\");
    return node ? node : TheDeviceTree().Root();
}

static DeviceNode* ParentOnPci(std::string_view) {
    for (const char* root : {"ACPI\\PNP0A03\\", "ACPI\\PNP0A08\\"}) {
        if (DeviceNode* node = FirstWithId(root)) {
            return node;
        }
    }
    return TheDeviceTree().Root();
}

// FTDIBUS\VID_0403+PID_6001+A702TB52A\0000 hangs below USB\VID_0403&PID_6001\A702TB52: the channel letter is dropped.
// With several channels it hangs below the function of that channel.
static DeviceNode* ParentOnFtdiBus(std::string_view id) {
    const std::string_view middle = id.substr(8, id.rfind('\\') - 8);
    const std::size_t first = middle.find('+');
    const std::size_t second = first == std::string_view::npos ? first : middle.find('+', first + 1);
    if (second == std::string_view::npos || second + 1 >= middle.size()) {
        return nullptr;
    }
    const std::string device = "USB\\" + std::string(middle.substr(0, first)) + "&" +
                               std::string(middle.substr(first + 1, second - first - 1));
    const std::string serial(middle.substr(second + 1));
    const bool byPlace = serial.find('&') != std::string::npos;
    const std::string cut = serial.substr(0, byPlace ? serial.rfind('&') : serial.size() - 1);
    const auto channel = static_cast<unsigned>(byPlace ? serial.back() - '1' : LowerChar(serial.back()) - 'a');
    if (DeviceNode* whole = TheDeviceTree().FindById(device + "\\" + cut)) {
        const std::string function = device + "&MI_0" + std::to_string(channel) + "\\";
        for (DeviceNode* child : whole->children) {
            if (StartsWithNoCase(child->id, function)) {
                return child;
            }
        }
        return whole;
    }
    return TheDeviceTree().FindById(device + "\\" + serial);
}

// The function of a composite device hangs below the device, if there is one only of its kind.
static DeviceNode* ParentOfFunction(std::string_view id) {
    const std::size_t function = FindNoCase(id, "&MI_");
    if (function == std::string_view::npos) {
        return nullptr;
    }
    const std::string device = std::string(id.substr(0, function)) + "\\";
    DeviceNode* only = nullptr;
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (!StartsWithNoCase(node->id, device)) {
            continue;
        }
        if (only) {
            return nullptr;
        }
        only = node;
    }
    return only;
}

static DeviceNode* ParentOnBluetooth(std::string_view id) {
    return StartsWithNoCase(id, "BTHENUM\\")  ? FirstWithId("BTH\\MS_BTHBRB\\")
           : StartsWithNoCase(id, "RFCOMM\\") ? FirstWithId("BTH\\MS_RFCOMM\\")
                                              : FirstWithService("BTHUSB");
}

static DeviceNode* ParentOfCom0Com(std::string_view) {
    DeviceNode* node = FirstWithId("ROOT\\COM0COM\\");
    if (node) {
        return node;
    }
    for (DeviceNode* candidate : TheDeviceTree().All()) {
        if (const RegistryValue* ids = TheRegistry().GetValue(candidate->enumPath, "HardwareID")) {
            if (FindNoCase(ValueText(*ids), "root\\com0com") != std::string::npos) {
                return candidate;
            }
        }
    }
    return nullptr;
}

// MF\PCI#VEN_..&DEV_..\3&11583659&0&B3#Child01 hangs below the card PCI\VEN_..&DEV_..\3&11583659&0&B3.
static DeviceNode* ParentOfCardFunction(std::string_view id) {
    std::string card(id.substr(3, id.rfind("#Child") - 3));
    std::replace(card.begin(), card.end(), '#', '\\');
    return TheDeviceTree().FindById(card);
}

namespace {
struct EnumeratorRule {
    const char* enumerator;
    DeviceNode* (*parent)(std::string_view id);
};
} // namespace
// Buses that hang below the root of the tree by their nature: it replaces an unknown PCI or ACPI root.
constexpr std::array<EnumeratorRule, 14> EnumeratorRules = {{
    {"FTDIBUS", ParentOnFtdiBus},
    {"USB", ParentOfFunction},
    {"BTHENUM", ParentOnBluetooth},
    {"RFCOMM", ParentOnBluetooth},
    {"BTH", ParentOnBluetooth},
    {"COM0COM", ParentOfCom0Com},
    {"MF", ParentOfCardFunction},
    {"ACPI", ParentOnAcpi},
    {"ACPI_HAL", ParentOfAcpiRoot},
    {"PCI", ParentOnPci},
    {"ROOT", RootOfTree},
    {"HTREE", RootOfTree},
    {"SWD", RootOfTree},
    {"SW", RootOfTree},
}};

// The parent of a device of which only the id is known: the device that its enumerator belongs to; null if that is not
// known.
static DeviceNode* ParentByEnumerator(std::string_view id) {
    const std::string_view enumerator = EnumeratorOf(id);
    for (const EnumeratorRule& rule : EnumeratorRules) {
        if (EqualNoCase(rule.enumerator, enumerator)) {
            DeviceNode* parent = rule.parent(id);
            return parent && EqualNoCase(parent->id, id) ? TheDeviceTree().Root() : parent;
        }
    }
    return nullptr;
}

// Of most buses the id names the parent; of these it is the first device of the kind that carries such a bus.
static void NoteGuessedPlace(DeviceNode& node) {
    for (const char* enumerator : {"ACPI", "PCI", "BTH", "BTHENUM", "RFCOMM", "COM0COM"}) {
        if (EqualNoCase(EnumeratorOf(node.id), enumerator)) {
            NoteGuess(node, "it hangs here by its kind, nothing names its parent");
        }
    }
}

// Prefixes of all devices, collected again for each linking: devices may have been added.
static std::map<std::string, DeviceNode*, NoCaseLess> Prefixes() {
    std::map<std::string, DeviceNode*, NoCaseLess> prefixes;
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (const std::string prefix = DeviceText(*node, "ParentIdPrefix"); !prefix.empty()) {
            prefixes.emplace(prefix, node);
        }
    }
    return prefixes;
}

// The device with the longest prefix that the instance begins with; the rest is the bus address.
static DeviceNode* FindByPrefix(const std::map<std::string, DeviceNode*, NoCaseLess>& prefixes, std::string_view id) {
    std::string_view start = InstanceOf(id);
    while (!start.empty()) {
        const auto found = prefixes.find(start);
        if (found != prefixes.end() && !EqualNoCase(found->second->id, id)) {
            return found->second;
        }
        const std::size_t cut = start.rfind('&');
        if (cut == std::string_view::npos) {
            return nullptr;
        }
        start = start.substr(0, cut);
    }
    return nullptr;
}

static std::string IdOfKey(const RegistryKey& key) {
    return key.parent->parent->name + "\\" + key.parent->name + "\\" + key.name;
}

// Whether a key below Enum says what the device is. One that does not may consist of single values set for a device
// that is described elsewhere.
static bool TellsDevice(const RegistryKey& key) {
    constexpr const char* Telling[] = {"ClassGUID", "Class", "Service", "HardwareID", "DeviceDesc", "Driver"};
    return std::any_of(std::begin(Telling), std::end(Telling),
                       [&](const char* name) { return key.FindValue(name) != nullptr; });
}

static void AddNode(const RegistryKey& key) {
    const std::string id = IdOfKey(key);
    DeviceNode* node = TheDeviceTree().Add(id);
    node->installed = true;
    const std::string guid = DeviceText(*node, "ClassGUID");
    node->kind = KindOf(id, ServiceOf(*node), guid.empty() ? DeviceText(*node, "Class") : guid);
    node->printerPort = StartsWithNoCase(id, "ACPI\\PNP040") || EqualNoCase(ServiceOf(*node), "Parport");
    node->attached = true;
    if (EqualNoCase(id, RootId)) {
        TheDeviceTree().MakeRoot(node);
    }
}

static DeviceNode* HubOfNumber(unsigned number) {
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->IsHub() && number && node->hubNumber == number) {
            return node;
        }
    }
    return nullptr;
}

static void TakeHubPort(DeviceNode* node) {
    if (!node->parent || !node->parent->IsHub() || node->kind == DeviceKind::RootHub) {
        return;
    }
    unsigned port = 0, number = 0;
    const bool isReported = ParseHubLocation(DeviceText(*node, "LocationInformation"), port, number);
    const unsigned inId = PortInId(node->id);
    node->hubPort = inId ? inId : isReported && port <= MostHubPorts ? port : 0;
}

namespace {
// A device's name for its hub, and how much it knows of it.
struct HubName {
    DeviceNode* hub;
    unsigned number;
    bool hasControl;
    std::uint64_t arrival;
};
} // namespace

// Numbers that only devices with a serial number name: the number's rank in the sequence of hubs decides which hub is
// meant.
static void NumberByOrder() {
    std::vector<DeviceNode*> hubs;
    std::map<unsigned, const DeviceNode*> named;
    for (DeviceNode* node : TheDeviceTree().All()) {
        unsigned port = 0, number = 0;
        if (node->IsHub()) {
            hubs.push_back(node);
        }
        if (!node->parent && ParseHubLocation(DeviceText(*node, "LocationInformation"), port, number) &&
            !HubOfNumber(number)) {
            named.emplace(number, node);
        }
    }
    for (const auto& [number, device] : named) {
        DeviceNode* hub = number > 0 && number <= hubs.size() ? hubs[number - 1] : nullptr;
        if (!hub || hub->hubNumber) {
            continue;
        }
        hub->hubNumber = number;
        NoteGuess(*hub, "its number is taken from the order of the hubs");
        AddNote(Utf8FromAnsi(fmt::format("hub number {}, on which '{}' is, is taken for '{}', by the order of the hubs",
                                         number, device->id, hub->id)));
    }
}

static void SetFreeHubNumber(DeviceNode& hub) {
    hub.hubNumber = FreeHubNumber();
    if (hub.installed) {
        NoteGuess(hub, "no device names its number, so it got a free one");
    }
}

// Hubs get the numbers that their devices use, the latest arrival first: Windows renumbers hubs when they start in
// another order. Hubs that no device names get free numbers, in sequence.
static void NumberHubs() {
    std::vector<HubName> names;
    for (DeviceNode* node : TheDeviceTree().All()) {
        unsigned port = 0, number = 0;
        if (node->parent && node->parent->IsHub() &&
            ParseHubLocation(DeviceText(*node, "LocationInformation"), port, number) && number) {
            names.push_back({node->parent, number, HasControlKey(*node), LastArrivalOf(*node)});
        }
    }
    std::stable_sort(names.begin(), names.end(), [](const HubName& a, const HubName& b) {
        return a.hasControl != b.hasControl ? a.hasControl : a.arrival > b.arrival;
    });
    for (const HubName& name : names) {
        if (!name.hub->hubNumber && !HubOfNumber(name.number)) {
            name.hub->hubNumber = name.number;
        }
    }
    NumberByOrder();
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->IsHub() && !node->hubNumber) {
            SetFreeHubNumber(*node);
        }
    }
}

// For a device on a hub whose number no other device uses: only the sequence of the hubs can decide.
static DeviceNode* HubByLocation(const DeviceNode& node) {
    unsigned port = 0, number = 0;
    const std::string location = node.said.location ? *node.said.location : DeviceText(node, "LocationInformation");
    return ParseHubLocation(location, port, number) ? HubOfNumber(number) : nullptr;
}

static bool LinkTo(DeviceNode* node, DeviceNode* parent) {
    return parent && parent != node && TheDeviceTree().SetParent(node, parent);
}

std::string_view InstanceOf(std::string_view id) {
    const std::size_t last = id.rfind('\\');
    return last == std::string_view::npos ? id : id.substr(last + 1);
}

std::string_view EnumeratorOf(std::string_view id) {
    return id.substr(0, id.find('\\'));
}

bool ParseHubLocation(std::string_view location, unsigned& port, unsigned& hub) {
    const std::string text(location);
    return StartsWithNoCase(text, "Port_#") && std::sscanf(text.c_str() + 6, "%u.%*4[Hubhub]_#%u", &port, &hub) == 2;
}

unsigned FreeHubNumber() {
    std::set<unsigned> taken;
    for (const DeviceNode* node : TheDeviceTree().All()) {
        taken.insert(node->hubNumber);
    }
    unsigned number = 1;
    while (taken.contains(number)) {
        ++number;
    }
    return number;
}

unsigned PortInId(std::string_view id) {
    const std::string_view instance = InstanceOf(id);
    const std::size_t last = instance.rfind('&');
    // The second character distinguishes an id that Windows made from a serial number.
    const bool isMade = instance.size() > 2 && instance[1] == '&' && last > 1;
    if (!StartsWithNoCase(id, "USB\\VID_") || FindNoCase(id, "&MI_") != std::string_view::npos || !isMade) {
        return 0;
    }
    unsigned port = 0;
    for (const char c : instance.substr(last + 1)) {
        if (c < '0' || c > '9' || port > MostHubPorts) {
            return 0;
        }
        port = port * 10 + static_cast<unsigned>(c - '0');
    }
    return port <= MostHubPorts ? port : 0;
}

void AddExportedDevices(const std::vector<DeviceDescription>& described) {
    std::set<std::string, NoCaseLess> ids;
    for (const DeviceDescription& device : described) {
        ids.insert(device.id);
    }
    if (const RegistryKey* root = TheRegistry().FindKey(EnumKey)) {
        for (const RegistryKey* enumerator : root->created) {
            for (const RegistryKey* device : enumerator->created) {
                for (const RegistryKey* instance : device->created) {
                    if (TellsDevice(*instance) || !ids.contains(IdOfKey(*instance))) {
                        AddNode(*instance);
                    }
                }
            }
        }
    }
    if (!TheDeviceTree().Root()) {
        DeviceNode* root = TheDeviceTree().Add(RootId, RootNumber);
        root->attached = root->installed = true;
        TheDeviceTree().MakeRoot(root);
    }
}

void LinkExportedDevices() {
    const auto prefixes = Prefixes();
    const std::vector<DeviceNode*> nodes = TheDeviceTree().All();
    for (DeviceNode* node : nodes) {
        if (node->root) {
            continue;
        }
        if (LinkTo(node, FindByPrefix(prefixes, node->id)) ||
            LinkTo(node, TheDeviceTree().FindById(LastKnownParentOf(*node)))) {
            TakeHubPort(node);
        }
    }
    NumberHubs();
    for (DeviceNode* node : nodes) {
        if (!node->parent && !node->root && LinkTo(node, HubByLocation(*node))) {
            TakeHubPort(node);
        }
    }
    for (DeviceNode* node : nodes) {
        if (!node->parent && !node->root && LinkTo(node, ParentByEnumerator(node->id))) {
            NoteGuessedPlace(*node);
        }
    }
}

DeviceNode* ParentOfDescribed(DeviceNode& node) {
    const bool canHavePrefix = InstanceOf(node.id).find('&') != std::string_view::npos;
    if (DeviceNode* parent = canHavePrefix ? FindByPrefix(Prefixes(), node.id) : nullptr) {
        return parent;
    }
    if (DeviceNode* hub = HubByLocation(node)) {
        return hub;
    }
    NoteGuessedPlace(node);
    return ParentByEnumerator(node.id);
}

void AddExportedInterfaces() {
    const RegistryKey* classes = TheRegistry().FindKey(DeviceClasses);
    if (!classes) {
        return;
    }
    for (const RegistryKey* deviceClass : classes->created) {
        for (const RegistryKey* entry : deviceClass->created) {
            if (const RegistryValue* instance = entry->FindValue("DeviceInstance")) {
                if (DeviceNode* node = TheDeviceTree().FindById(TextOf(*instance))) {
                    TheDeviceTree().AddInterface(node, deviceClass->name)->registered = true;
                }
            }
        }
    }
}

} // namespace machine
