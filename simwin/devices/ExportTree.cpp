#include "simwin/devices/ExportTree.h"

#include "simwin/devices/api.h"
#include "simwin/devices/catalogue/Catalogue.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <set>

namespace machine {

namespace {

constexpr const char* EnumKey = "HKLM\\SYSTEM\\CurrentControlSet\\Enum";
constexpr const char* DeviceClasses = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\DeviceClasses";
constexpr const char* RootId = "HTREE\\ROOT\\0";
constexpr simwin::DWORD RootNumber = 1; // of a root that no export names
constexpr simwin::DWORD ConfigDisabled = 1;
constexpr simwin::DWORD ConfigRemoved = 2;

// The first node whose id begins so; null if there is none.
DeviceNode* FirstWithId(std::string_view start) {
    for (DeviceNode* node : TheDeviceTree().All())
        if (StartsWithNoCase(node->id, start))
            return node;
    return nullptr;
}

DeviceNode* FirstWithService(std::string_view service) {
    for (DeviceNode* node : TheDeviceTree().All())
        if (EqualNoCase(ServiceOf(*node), service))
            return node;
    return nullptr;
}

DeviceNode* RootOfTree(std::string_view) {
    return TheDeviceTree().Root();
}

// ACPI\... below the ACPI root; a serial port on the board sits behind the bridge to the ISA bus.
DeviceNode* ParentOnAcpi(std::string_view id) {
    if (StartsWithNoCase(id, "ACPI\\PNP050"))
        if (DeviceNode* bridge = FirstWithService("msisadrv"))
            return bridge;
    for (const char* root : {"ACPI_HAL\\PNP0C08\\", "ROOT\\ACPI_HAL\\"})
        if (DeviceNode* node = FirstWithId(root))
            return node;
    return TheDeviceTree().Root();
}

DeviceNode* ParentOfAcpiRoot(std::string_view) {
    DeviceNode* node = FirstWithId("ROOT\\ACPI_HAL\\");
    return node ? node : TheDeviceTree().Root();
}

DeviceNode* ParentOnPci(std::string_view) {
    for (const char* root : {"ACPI\\PNP0A03\\", "ACPI\\PNP0A08\\"})
        if (DeviceNode* node = FirstWithId(root))
            return node;
    return TheDeviceTree().Root();
}

// FTDIBUS\VID_0403+PID_6001+A702TB52A\0000 hangs below USB\VID_0403&PID_6001\A702TB52: the letter of the channel goes.
// With several channels it hangs below the function of that channel.
DeviceNode* ParentOnFtdiBus(std::string_view id) {
    const std::string_view middle = id.substr(8, id.rfind('\\') - 8);
    const std::size_t first = middle.find('+');
    const std::size_t second = first == std::string_view::npos ? first : middle.find('+', first + 1);
    if (second == std::string_view::npos || second + 1 >= middle.size())
        return TheDeviceTree().Root();
    const std::string device = "USB\\" + std::string(middle.substr(0, first)) + "&" +
                               std::string(middle.substr(first + 1, second - first - 1));
    const std::string serial(middle.substr(second + 1));
    const bool byPlace = serial.find('&') != std::string::npos;
    const std::string cut = serial.substr(0, byPlace ? serial.rfind('&') : serial.size() - 1);
    const auto channel = static_cast<unsigned>(byPlace ? serial.back() - '1' : LowerChar(serial.back()) - 'a');
    if (DeviceNode* whole = TheDeviceTree().FindById(device + "\\" + cut)) {
        const std::string function = device + "&MI_0" + std::to_string(channel) + "\\";
        for (DeviceNode* child : whole->children)
            if (StartsWithNoCase(child->id, function))
                return child;
        return whole;
    }
    DeviceNode* whole = TheDeviceTree().FindById(device + "\\" + serial);
    return whole ? whole : TheDeviceTree().Root();
}

DeviceNode* ParentOnBluetooth(std::string_view id) {
    DeviceNode* node = StartsWithNoCase(id, "BTHENUM\\")  ? FirstWithId("BTH\\MS_BTHBRB\\")
                       : StartsWithNoCase(id, "RFCOMM\\") ? FirstWithId("BTH\\MS_RFCOMM\\")
                                                          : FirstWithService("BTHUSB");
    return node ? node : TheDeviceTree().Root();
}

DeviceNode* ParentOfCom0Com(std::string_view) {
    DeviceNode* node = FirstWithId("ROOT\\COM0COM\\");
    if (node)
        return node;
    for (DeviceNode* candidate : TheDeviceTree().All())
        if (const RegistryValue* ids = TheRegistry().GetValue(candidate->enumPath, "HardwareID"))
            if (FindNoCase(ValueText(*ids), "root\\com0com") != std::string::npos)
                return candidate;
    return TheDeviceTree().Root();
}

// MF\PCI#VEN_..&DEV_..\3&11583659&0&B3#Child01 hangs below the card PCI\VEN_..&DEV_..\3&11583659&0&B3.
DeviceNode* ParentOfCardFunction(std::string_view id) {
    std::string card(id.substr(3, id.rfind("#Child") - 3));
    std::replace(card.begin(), card.end(), '#', '\\');
    DeviceNode* node = TheDeviceTree().FindById(card);
    return node ? node : TheDeviceTree().Root();
}

struct EnumeratorRule {
    const char* enumerator;
    DeviceNode* (*parent)(std::string_view id);
};
constexpr std::array<EnumeratorRule, 10> EnumeratorRules = {{
    {"FTDIBUS", ParentOnFtdiBus},
    {"BTHENUM", ParentOnBluetooth},
    {"RFCOMM", ParentOnBluetooth},
    {"BTH", ParentOnBluetooth},
    {"COM0COM", ParentOfCom0Com},
    {"MF", ParentOfCardFunction},
    {"ACPI", ParentOnAcpi},
    {"ACPI_HAL", ParentOfAcpiRoot},
    {"PCI", ParentOnPci},
    {"ROOT", RootOfTree},
}};

// Prefixes of all devices, made anew for each linking: devices may have been added.
std::map<std::string, DeviceNode*, NoCaseLess> Prefixes() {
    std::map<std::string, DeviceNode*, NoCaseLess> prefixes;
    for (DeviceNode* node : TheDeviceTree().All())
        if (const std::string prefix = DeviceText(*node, "ParentIdPrefix"); !prefix.empty())
            prefixes.emplace(prefix, node);
    return prefixes;
}

// The device with the longest prefix that the instance begins with; what is left behind it is the bus address.
DeviceNode* FindByPrefix(const std::map<std::string, DeviceNode*, NoCaseLess>& prefixes, std::string_view id,
                         std::string* busAddress) {
    std::string_view start = InstanceOf(id);
    const std::string_view whole = start;
    while (!start.empty()) {
        const auto found = prefixes.find(start);
        if (found != prefixes.end() && !EqualNoCase(found->second->id, id)) {
            if (busAddress)
                *busAddress = start.size() < whole.size() ? whole.substr(start.size() + 1) : "";
            return found->second;
        }
        const std::size_t cut = start.rfind('&');
        if (cut == std::string_view::npos)
            return nullptr;
        start = start.substr(0, cut);
    }
    return nullptr;
}

unsigned DecimalOf(const std::string& text) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(text.c_str(), &end, 10);
    return end && *end == 0 && !text.empty() ? static_cast<unsigned>(number) : 0;
}

// Does the id stand in the text, not as a part of a longer one?
bool StandsIn(const std::string& text, std::string_view id) {
    for (std::size_t at = FindNoCase(text, id); at != std::string::npos; at = FindNoCase(text, id, at + 1)) {
        const char before = at > 0 ? text[at - 1] : '\n';
        const std::size_t end = at + id.size();
        const char behind = end < text.size() ? text[end] : '\n';
        const auto isOutside = [](char c) {
            return c == '\n' || c == '\r' || c == ' ' || c == '\t' || c == '"' || c == '\'' || c == ',' || c == ';' ||
                   c == ':';
        };
        if (isOutside(before) && isOutside(behind))
            return true;
    }
    return false;
}

std::string IdOfKey(const RegistryKey& key) {
    return key.parent->parent->name + "\\" + key.parent->name + "\\" + key.name;
}

// Whether a key below Enum tells what the device is. One that does not may be made of single values that somebody set
// for a device which is described elsewhere.
bool TellsDevice(const RegistryKey& key) {
    constexpr const char* Telling[] = {"ClassGUID", "Class", "Service", "HardwareID", "DeviceDesc", "Driver"};
    return std::any_of(std::begin(Telling), std::end(Telling),
                       [&](const char* name) { return key.FindValue(name) != nullptr; });
}

void AddNode(const RegistryKey& key) {
    const std::string id = IdOfKey(key);
    DeviceNode* node = TheDeviceTree().Add(id);
    node->installed = true;
    const std::string guid = DeviceText(*node, "ClassGUID");
    node->kind = KindOf(id, ServiceOf(*node), guid.empty() ? DeviceText(*node, "Class") : guid);
    node->printerPort = StartsWithNoCase(id, "ACPI\\PNP040") || EqualNoCase(ServiceOf(*node), "Parport");
    node->attached = true;
    if (EqualNoCase(id, RootId))
        TheDeviceTree().MakeRoot(node);
}

// A device that sits on a hub: by the bus address behind the hub's prefix, or by its location.
void LinkByLocation(DeviceNode* node, const std::map<unsigned, DeviceNode*>& hubByNumber,
                    const std::vector<DeviceNode*>& hubs) {
    unsigned port = 0, number = 0;
    if (!ParseHubLocation(DeviceText(*node, "LocationInformation"), port, number))
        return;
    DeviceNode* hub = nullptr;
    if (const auto known = hubByNumber.find(number); known != hubByNumber.end())
        hub = known->second;
    else if (number > 0 && number <= hubs.size())
        hub = hubs[number - 1];
    if (hub && TheDeviceTree().SetParent(node, hub))
        node->hubPort = port;
}

} // namespace

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

DeviceNode* ParentByEnumerator(std::string_view id) {
    const std::string_view enumerator = EnumeratorOf(id);
    for (const EnumeratorRule& rule : EnumeratorRules)
        if (EqualNoCase(rule.enumerator, enumerator)) {
            DeviceNode* parent = rule.parent(id);
            return parent && EqualNoCase(parent->id, id) ? TheDeviceTree().Root() : parent;
        }
    return TheDeviceTree().Root();
}

void AddExportedDevices(const std::vector<DeviceDescription>& described) {
    std::set<std::string, NoCaseLess> ids;
    for (const DeviceDescription& device : described)
        ids.insert(device.id);
    if (const RegistryKey* root = TheRegistry().FindKey(EnumKey))
        for (const RegistryKey* enumerator : root->created)
            for (const RegistryKey* device : enumerator->created)
                for (const RegistryKey* instance : device->created)
                    if (TellsDevice(*instance) || !ids.contains(IdOfKey(*instance)))
                        AddNode(*instance);
    if (!TheDeviceTree().Root()) {
        DeviceNode* root = TheDeviceTree().Add(RootId, RootNumber);
        root->attached = root->installed = true;
        TheDeviceTree().MakeRoot(root);
    }
}

void LinkExportedDevices() {
    DeviceTree& tree = TheDeviceTree();
    const auto prefixes = Prefixes();
    std::vector<DeviceNode*> hubs;
    std::map<unsigned, DeviceNode*> hubByNumber; // by what the children of a hub call it
    for (DeviceNode* node : tree.All()) {
        if (node->IsHub())
            hubs.push_back(node);
        if (node->parent || node->root)
            continue;
        std::string address;
        DeviceNode* parent = FindByPrefix(prefixes, node->id, &address);
        if (!parent)
            continue;
        if (!tree.SetParent(node, parent) || !parent->IsHub())
            continue;
        unsigned port = 0, number = 0;
        if (ParseHubLocation(DeviceText(*node, "LocationInformation"), port, number))
            hubByNumber.emplace(number, parent);
        node->hubPort = DecimalOf(address) ? DecimalOf(address) : port;
    }
    for (DeviceNode* node : tree.All())
        if (!node->parent && !node->root)
            LinkByLocation(node, hubByNumber, hubs);
    for (DeviceNode* node : tree.All())
        if (!node->parent && !node->root && !tree.SetParent(node, ParentByEnumerator(node->id)))
            tree.SetParent(node, tree.Root());
}

void SettleExportedPresence(const std::optional<std::string>& connected) {
    std::map<std::pair<DeviceNode*, unsigned>, DeviceNode*> sockets;
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->root)
            continue;
        if (connected) {
            node->attached = StandsIn(*connected, node->id);
            continue;
        }
        simwin::DWORD flags = 0;
        TheRegistry().GetDword(node->enumPath, "ConfigFlags", flags);
        if (flags & ConfigDisabled)
            node->problem = simwin::CM_PROB_DISABLED;
        if (flags & ConfigRemoved) {
            node->attached = false;
            node->crowdedOut = true;
            continue;
        }
        if (!node->hubPort)
            continue;
        DeviceNode*& socket = sockets[{node->parent, node->hubPort}];
        if (socket) {
            socket->attached = false;
            socket->crowdedOut = true;
        }
        socket = node;
    }
    if (!connected)
        return;
    // What is there hangs somewhere: whatever is above it is there too.
    for (DeviceNode* node : TheDeviceTree().All())
        if (node->attached)
            for (DeviceNode* above = node->parent; above; above = above->parent)
                above->attached = true;
}

void AddExportedInterfaces() {
    const RegistryKey* classes = TheRegistry().FindKey(DeviceClasses);
    if (!classes)
        return;
    for (const RegistryKey* deviceClass : classes->created)
        for (const RegistryKey* entry : deviceClass->created)
            if (const RegistryValue* instance = entry->FindValue("DeviceInstance"))
                if (DeviceNode* node = TheDeviceTree().FindById(TextOf(*instance)))
                    TheDeviceTree().AddInterface(node, deviceClass->name)->registered = true;
}

} // namespace machine
