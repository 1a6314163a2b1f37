#include "simwin/devices/tree/DeviceTree.h"

#include "simwin/devices/tree/CapturedProperties.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include <fmt/format.h>

namespace machine {

constexpr const char* EnumRoot = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\";
constexpr const char* ClassRoot = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Class\\";

static DeviceTree* g_tree;

RoomPtr MakeDeviceTree() {
    return MakeRoom(g_tree);
}

static std::string PathOf(std::string id, std::string_view classGuid) {
    std::replace(id.begin(), id.end(), '\\', '#');
    return "\\\\?\\" + id + "#" + std::string(classGuid);
}

// The digits at the end of a kernel name, at most nine.
static std::size_t StemLength(std::string_view name) {
    std::size_t length = name.size();
    while (length > 0 && name.size() - length < 9 && name[length - 1] >= '0' && name[length - 1] <= '9') {
        --length;
    }
    return length;
}

namespace {
struct CountedName {
    std::string stem;
    std::size_t width;
    unsigned number;
};
} // namespace

static CountedName SplitKernelName(std::string_view name) {
    const std::size_t length = StemLength(name);
    CountedName counted{std::string(name.substr(0, length)), name.size() - length, 0};
    for (const char c : name.substr(length)) {
        counted.number = counted.number * 10 + static_cast<unsigned>(c - '0');
    }
    return counted;
}

static std::string CounterKey(const CountedName& counted) {
    return fmt::format("{}|{}", counted.stem, counted.width);
}

bool InstanceIdLess::operator()(std::string_view a, std::string_view b) const {
    // A key's name sorts before every longer one, so the backslash sorts below all characters.
    const auto rank = [](char c) {
        const char capital = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        return capital == '\\' ? 0 : static_cast<unsigned char>(capital);
    };
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [&](char x, char y) { return rank(x) < rank(y); });
}

DeviceTree& TheDeviceTree() {
    return *g_tree;
}

bool HangsBelow(const DeviceNode* node, const DeviceNode* top) {
    for (; node; node = node->parent) {
        if (node == top) {
            return true;
        }
    }
    return false;
}

DeviceNode* DeviceTree::Find(simwin::DWORD number) const {
    const auto found = m_byNumber.find(number);
    return found == m_byNumber.end() || found->second->uninstalled ? nullptr : found->second;
}

DeviceNode* DeviceTree::FindById(std::string_view id) const {
    const auto found = m_byId.find(id);
    return found == m_byId.end() ? nullptr : found->second;
}

std::vector<DeviceNode*> DeviceTree::All() const {
    std::vector<DeviceNode*> nodes;
    nodes.reserve(m_nodes.size());
    for (const auto& [number, node] : m_byNumber) {
        if (!node->uninstalled) {
            nodes.push_back(node);
        }
    }
    return nodes;
}

std::vector<DeviceNode*> DeviceTree::AllEver() const {
    std::vector<DeviceNode*> nodes;
    nodes.reserve(m_nodes.size());
    for (const auto& [number, node] : m_byNumber) {
        nodes.push_back(node);
    }
    return nodes;
}

std::vector<DeviceNode*> DeviceTree::AllByRegistry() const {
    std::vector<DeviceNode*> nodes;
    nodes.reserve(m_nodes.size());
    for (const auto& [id, node] : m_byId) {
        if (!node->uninstalled) {
            nodes.push_back(node);
        }
    }
    return nodes;
}

// The next unused one.
simwin::DWORD DeviceTree::NextNumber() {
    while (m_byNumber.contains(m_next)) {
        ++m_next;
    }
    return m_next++;
}

DeviceNode* DeviceTree::Add(std::string_view id, simwin::DWORD number) {
    if (m_next == 0) {
        m_next = TheSetup().firstNode;
    }
    DeviceNode* node = m_nodes.emplace_back(std::make_unique<DeviceNode>()).get();
    node->hasOwnNumber = number != 0;
    node->number = number ? number : NextNumber();
    node->id = id;
    node->enumPath = EnumRoot + node->id;
    m_byNumber.emplace(node->number, node);
    m_byId.emplace(node->id, node);
    return node;
}

bool DeviceTree::SetParent(DeviceNode* node, DeviceNode* parent) {
    if (node->parent == parent) {
        return true;
    }
    if (HangsBelow(parent, node)) {
        return false;
    }
    if (node->parent) {
        std::erase(node->parent->children, node);
    }
    node->parent = parent;
    if (!parent) {
        return true;
    }
    auto& children = parent->children;
    const auto place = std::upper_bound(children.begin(), children.end(), node,
                                        [](const DeviceNode* a, const DeviceNode* b) { return a->number < b->number; });
    children.insert(place, node);
    return true;
}

void DeviceTree::MakeRoot(DeviceNode* node) {
    m_root = node;
    node->root = true;
}

DeviceInterface* DeviceTree::AddInterface(DeviceNode* node, std::string_view classGuid) {
    for (const auto& known : node->interfaces) {
        if (EqualNoCase(known->classGuid, classGuid)) {
            return known.get();
        }
    }
    DeviceInterface* made = node->interfaces.emplace_back(std::make_unique<DeviceInterface>()).get();
    made->node = node;
    made->classGuid = Lower(classGuid);
    made->noticePath = PathOf(node->id, made->classGuid);
    made->path = Lower(made->noticePath);
    m_byPath.emplace(made->path.substr(4), made);
    m_byClass[made->classGuid].emplace(Upper(made->path), made);
    return made;
}

void DeviceTree::RemoveInterfaces(DeviceNode* node) {
    for (const auto& gone : node->interfaces) {
        m_byPath.erase(gone->path.substr(4));
        m_byClass[gone->classGuid].erase(Upper(gone->path));
    }
    node->interfaces.clear();
}

DeviceInterface* DeviceTree::FindInterface(std::string_view pathWithoutPrefix) const {
    const auto found = m_byPath.find(pathWithoutPrefix);
    return found == m_byPath.end() || found->second->node->uninstalled ? nullptr : found->second;
}

const InterfaceKeys* DeviceTree::InterfacesOf(std::string_view classGuid) const {
    const auto found = m_byClass.find(classGuid);
    return found == m_byClass.end() ? nullptr : &found->second;
}

KernelDevice* DeviceTree::RunningDevice(std::string_view kernelName) const {
    const auto found = m_kernel.find(kernelName);
    if (found == m_kernel.end()) {
        return nullptr;
    }
    for (const auto& device : found->second) {
        if (device->running) {
            return device.get();
        }
    }
    return nullptr;
}

bool DeviceTree::IsKernelNameTaken(std::string_view kernelName) const {
    return m_kernel.contains(kernelName);
}

KernelDevice* DeviceTree::MakeKernelDevice(DeviceNode* node, std::string_view wanted) {
    std::string name(wanted);
    if (IsKernelNameTaken(name)) {
        CountedName counted = SplitKernelName(wanted);
        Counter& counter =
            m_counters.try_emplace(CounterKey(counted), Counter{counted.number, counted.number}).first->second;
        const bool known = counted.number >= counter.base && counted.number <= counter.next;
        unsigned number = known ? counter.next : counted.number;
        do {
            name = counted.width ? fmt::format("{}{:0{}}", counted.stem, number, counted.width)
                                 : fmt::format("{}{}", counted.stem, number);
            ++number;
        } while (IsKernelNameTaken(name));
        if (known) {
            counter.next = number;
        }
    }
    const auto& device = m_kernel[name].emplace_back(std::make_unique<KernelDevice>());
    device->name = name;
    device->node = node;
    return device.get();
}

void DeviceTree::ReleaseKernelDevice(KernelDevice* device) {
    if (--device->references > 0) {
        return;
    }
    const std::string name = device->name;
    const auto found = m_kernel.find(name);
    std::erase_if(found->second, [device](const auto& known) { return known.get() == device; });
    if (found->second.empty()) {
        m_kernel.erase(found);
        const CountedName counted = SplitKernelName(name);
        if (const auto counter = m_counters.find(CounterKey(counted)); counter != m_counters.end()) {
            Counter& known = counter->second;
            if (counted.number >= known.base && counted.number < known.next) {
                known.next = counted.number;
            }
        }
    }
}

void DeviceTree::Renumber() {
    std::vector<DeviceNode*> nodes;
    for (const auto& [number, node] : m_byNumber) {
        if (!node->hasOwnNumber) {
            nodes.push_back(node);
        }
    }
    std::stable_partition(nodes.begin(), nodes.end(), [](const DeviceNode* node) { return !node->uninstalled; });
    std::erase_if(m_byNumber, [](const auto& entry) { return !entry.second->hasOwnNumber; });
    m_next = TheSetup().firstNode;
    for (DeviceNode* node : nodes) {
        node->number = NextNumber();
        m_byNumber.emplace(node->number, node);
    }
    for (const auto& node : m_nodes) {
        std::sort(node->children.begin(), node->children.end(),
                  [](const DeviceNode* a, const DeviceNode* b) { return a->number < b->number; });
    }
}

void DeviceTree::Forget(DeviceNode* node) {
    node->uninstalled = true;
    for (const auto& deviceInterface : node->interfaces) {
        deviceInterface->registered = deviceInterface->up = false;
    }
}

void DeviceTree::Revive(DeviceNode* node) {
    node->uninstalled = false;
}

std::string ReadableText(std::string_view stored) {
    if (stored.empty() || stored.front() != '@') {
        return std::string(stored);
    }
    const std::size_t last = stored.rfind(';');
    if (last == std::string_view::npos) {
        return std::string(stored);
    }
    const std::string_view tail = stored.substr(last + 1);
    const std::size_t before = last > 0 ? stored.rfind(';', last - 1) : std::string_view::npos;
    if (before == std::string_view::npos || tail.size() < 2 || tail.front() != '(' || tail.back() != ')') {
        return std::string(tail);
    }
    const std::vector<std::string> numbers = Split(tail.substr(1, tail.size() - 2), ',');
    std::string text;
    const std::string_view form = stored.substr(before + 1, last - before - 1);
    for (std::size_t i = 0; i < form.size(); ++i) {
        const std::size_t place = i + 1 < form.size() ? static_cast<std::size_t>(form[i + 1] - '1') : 9;
        if (form[i] == '%' && place < numbers.size()) {
            text += numbers[place];
            ++i;
        } else {
            text += form[i];
        }
    }
    return text;
}

std::string DeviceText(const DeviceNode& node, const char* value) {
    const RegistryValue* stored = TheRegistry().GetValue(node.enumPath, value);
    if (!stored || (stored->type != 1 && stored->type != 2)) {
        return {};
    }
    return ReadableText(TextOf(*stored));
}

std::string ClassNameOf(const DeviceNode& node) {
    std::string name = DeviceText(node, "Class");
    if (!name.empty()) {
        return name;
    }
    const std::string guid = DeviceText(node, "ClassGUID");
    if (guid.empty()) {
        return {};
    }
    // An export of Enum alone has no classes, but the machine that it was made of had.
    const std::string stored = TheRegistry().GetString(ClassRoot + guid, "Class");
    return stored.empty() ? SetupClassName(guid) : stored;
}

std::string ServiceOf(const DeviceNode& node) {
    return DeviceText(node, "Service");
}

std::string DescriptionOf(const DeviceNode& node) {
    return DeviceText(node, "DeviceDesc");
}

std::string DriverKeyOf(const DeviceNode& node) {
    return DeviceText(node, "Driver");
}

std::string PhysicalNameOf(const DeviceNode& node) {
    return fmt::format("\\Device\\{:08x}", node.number);
}

std::string InterfaceTargetOf(const DeviceNode& node) {
    return node.said.kernelNamePath ? *node.said.kernelNamePath : PhysicalNameOf(node);
}

// "PCI bus 2, device 3, function 0", in whatever language: the three numbers.
static bool ReadPciLocation(const DeviceNode& node, unsigned (&numbers)[3]) {
    const std::string location = DeviceText(node, "LocationInformation");
    std::size_t count = 0;
    bool isInNumber = false;
    for (const char c : location) {
        const bool isDigit = c >= '0' && c <= '9';
        if (isDigit && !isInNumber) {
            if (count == std::size(numbers)) {
                return false;
            }
            numbers[count++] = 0;
        }
        if (isDigit) {
            numbers[count - 1] = std::min(numbers[count - 1] * 10 + static_cast<unsigned>(c - '0'), 0xFFFFu);
        }
        isInNumber = isDigit;
    }
    return count == std::size(numbers);
}

// Device and function, two hexadecimal digits each, after the path of the bridge above. A bus behind an unknown bridge
// has no path: which bridge it is cannot be guessed.
static std::string PciPathOf(const DeviceNode& node) {
    unsigned numbers[3] = {};
    if (!ReadPciLocation(node, numbers)) {
        return {};
    }
    const auto [bus, device, function] = numbers;
    std::string above;
    if (node.parent && StartsWithNoCase(node.parent->id, "PCI\\")) {
        above = LocationPathOf(*node.parent);
    } else if (bus == 0) {
        above = "PCIROOT(0)";
    }
    return above.empty() ? std::string() : fmt::format("{}#PCI({:02X}{:02X})", above, device, function);
}

std::string LocationPathOf(const DeviceNode& node) {
    if (node.said.locationPath) {
        return *node.said.locationPath;
    }
    if (!StartsWithNoCase(node.id, "USB\\")) {
        // A USB device may have been moved since then; these stay where they are.
        const std::string captured = CapturedLocationPath(node);
        return captured.empty() && StartsWithNoCase(node.id, "PCI\\") ? PciPathOf(node) : captured;
    }
    const std::string above = node.parent ? LocationPathOf(*node.parent) : std::string();
    if (above.empty()) {
        return {};
    }
    if (node.kind == DeviceKind::RootHub) {
        return above + "#USBROOT(0)";
    }
    if (node.hubPort) {
        return fmt::format("{}#USB({})", above, node.hubPort);
    }
    if (const std::size_t at = FindNoCase(node.id, "&MI_"); at != std::string::npos) {
        return fmt::format("{}#USBMI({})", above, std::strtoul(node.id.c_str() + at + 4, nullptr, 16));
    }
    return {};
}

std::string RegistryNameOf(const DeviceNode& node) {
    const std::string parameters = node.enumPath + "\\Device Parameters";
    const RegistryValue* name = TheRegistry().GetValue(parameters, "PortName");
    if (!name) {
        name = TheRegistry().GetValue(parameters, "DosDeviceName");
    }
    return name ? TextOf(*name) : std::string();
}

std::string DosNameOf(const DeviceNode& node) {
    if (!node.driver) {
        return {};
    }
    const DosNames& names = TheDosNames();
    const auto leadsHere = [&](const std::string& name) {
        const DosDefinition* definition = names.InForce(name);
        return definition && EqualNoCase(definition->target, node.driver->name);
    };
    if (const std::string wanted = RegistryNameOf(node); ComNumberOf(wanted) && leadsHere(wanted)) {
        return wanted;
    }
    std::string lowest;
    for (const std::string& name : names.Names()) {
        if (ComNumberOf(name) && leadsHere(name) && (lowest.empty() || ComNumberOf(name) < ComNumberOf(lowest))) {
            lowest = name;
        }
    }
    return lowest;
}

std::string FriendlyNameOf(const DeviceNode& node) {
    return DeviceText(node, "FriendlyName");
}

std::string UsbPortOf(const DeviceNode& node) {
    std::string chain;
    const DeviceNode* at = &node;
    while (at && !at->IsHub() && !(at->parent && at->parent->IsHub())) {
        at = at->parent;
    }
    for (; at && at->parent && at->parent->IsHub(); at = at->parent) {
        chain = fmt::format("-{}{}", at->hubPort, chain);
    }
    if (!at || !at->parent) {
        return {};
    }
    unsigned controller = 0, count = 0;
    if (const auto* controllers = TheDeviceTree().InterfacesOf(InterfaceClassByName("controller"))) {
        for (const auto& [key, deviceInterface] : *controllers) {
            if (deviceInterface->up && (++count, deviceInterface->node == at->parent)) {
                controller = count;
            }
        }
    }
    return std::to_string(controller) + chain;
}

} // namespace machine
