#include "simwin/devices/build/Devices.h"

#include "simwin/devices/api.h"
#include "simwin/devices/build/ExportPresence.h"
#include "simwin/devices/build/ExportTree.h"
#include "simwin/devices/build/Guesses.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/devices/tree/Installation.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>

namespace machine {

constexpr const char* Arbiter = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";
constexpr std::size_t ComDbBytes = 32;
constexpr unsigned HubPorts = 4;

namespace {
struct DevicesRoom {
    std::vector<DosNameDescription> dosNames; // described
};
} // namespace
static DevicesRoom* g_devices;

RoomPtr MakeDevices() {
    return MakeRoom(g_devices);
}

static bool IsNeverThere(const DeviceNode& node) {
    return node.IsPort() && !node.printerPort && !node.installed && !node.said.portName && !node.said.dosDeviceName;
}

// From Windows 10 on the class driver takes every device that says it is a serial one (CDC ACM).
static bool IsServedAsSerial(const DeviceDescription& said) {
    if (TheSetup().version.major < 10 || !said.hardwareId) {
        return false;
    }
    return std::any_of(said.hardwareId->begin(), said.hardwareId->end(),
                       [](const std::string& id) { return StartsWithNoCase(id, "USB\\Class_02&SubClass_02"); });
}

static DeviceKind KindOfDescription(const DeviceDescription& said) {
    if (said.kind) {
        return *said.kind;
    }
    const CatalogueEntry* known = FindInCatalogue(said.id);
    if (known && !said.className && !said.classGuid) {
        return known->kind;
    }
    if (said.ports || said.knowsInMs || said.cycleStatus) { // what only a hub has
        return DeviceKind::Hub;
    }
    if (!known && !said.service && !said.className && IsServedAsSerial(said)) {
        return DeviceKind::Port;
    }
    const std::string fallback = known && known->className ? known->className : "";
    return KindOf(said.id, said.service.value_or(known && known->service ? known->service : ""),
                  said.className ? *said.className : said.classGuid.value_or(fallback));
}

// The lowest free hub port.
static unsigned FreePort(const DeviceNode& hub, const DeviceNode& node) {
    for (unsigned port = 1;; ++port) {
        if (std::none_of(hub.children.begin(), hub.children.end(),
                         [&](const DeviceNode* child) { return child != &node && child->hubPort == port; })) {
            return port;
        }
    }
}

// Its hub port: the described one, else by the last number of an id that follows the socket, else the lowest free one.
static unsigned PortOnHub(DeviceNode& node, const DeviceNode& hub) {
    if (node.said.hubPort) {
        return *node.said.hubPort;
    }
    unsigned port = 0, number = 0;
    if (node.said.location && ParseHubLocation(*node.said.location, port, number) && port) {
        return port;
    }
    if (const unsigned inId = PortInId(node.id)) {
        return inId;
    }
    if (node.said.address && *node.said.address) {
        return *node.said.address;
    }
    NoteGuess(node, "nothing names its socket, so it got the first free one");
    return FreePort(hub, node);
}

static void CountHub(DeviceNode& node) {
    if (!node.IsHub()) {
        return;
    }
    if (!node.hubNumber) {
        node.hubNumber = FreeHubNumber();
    }
    if (!node.ports) {
        node.ports = node.said.ports.value_or(HubPorts);
    }
}

// Adopts what is newly described, into the node alone.
static void TakeDescription(DeviceNode& node, const DeviceDescription& description) {
    node.said = MergeDescriptions(node.said, description);
    node.said.id = node.id;
    node.vetoesLeft = node.said.vetoes.value_or(0);
    if (node.said.problem) {
        node.problem = *node.said.problem;
    }
    if (node.said.kind) {
        node.kind = *node.said.kind;
    }
    if (node.said.ports) {
        node.ports = *node.said.ports;
    }
}

// A described device, new or of the exports.
static void AddDescribed(const DeviceDescription& description) {
    DeviceTree& tree = TheDeviceTree();
    DeviceNode* node = tree.FindById(description.id);
    if (!node) {
        node = tree.Add(description.id);
        node->kind = KindOfDescription(description);
        node->attached = true;
        const CatalogueEntry* known = FindInCatalogue(node->id);
        node->printerPort =
            node->kind == DeviceKind::Port && (EqualNoCase(description.service.value_or(""), "Parport") ||
                                               (known && known->service && EqualNoCase(known->service, "Parport")));
    }
    TakeDescription(*node, description);
    if (description.plugged) {
        node->attached = *description.plugged;
        node->crowdedOut = false;
    }
    CountHub(*node);
}

// Puts it below its parent, which may come later in the description. Returns what is wrong, "" for nothing.
static std::string LinkDescribed(const DeviceDescription& description) {
    DeviceNode* node = TheDeviceTree().FindById(description.id);
    DeviceNode* parent = description.parent ? TheDeviceTree().FindById(*description.parent) : nullptr;
    if (description.parent && !parent) {
        return fmt::format("device '{}': there is no parent '{}'", description.id, *description.parent);
    }
    if (!parent && !node->parent && !node->root) {
        parent = ParentOfDescribed(*node);
    }
    if (!parent && !node->parent && !node->root) {
        return fmt::format("device '{}': nothing tells where it is plugged in; name its parent", node->id);
    }
    if (parent && !node->root && !TheDeviceTree().SetParent(node, parent)) {
        return fmt::format("device '{}': it hangs below itself", node->id);
    }
    return {};
}

// Once its place is known: socket, keys, interfaces.
static std::string FinishDescribed(DeviceNode& node) {
    if (node.parent && node.parent->IsHub() && node.kind != DeviceKind::RootHub) {
        DeviceNode& hub = *node.parent;
        const unsigned port = node.said.hubPort || !node.hubPort ? PortOnHub(node, hub) : node.hubPort;
        if (port == 0 || (hub.said.ports && port > hub.ports)) {
            return fmt::format("device '{}': hub '{}' has no port {}", node.id, hub.id, port);
        }
        WidenHub(hub, port);
        node.hubPort = port;
    }
    if (!IsNeverThere(node)) {
        InstallKeys(node, false);
    }
    MakeInterfaces(node, FactsOf(node).className);
    for (const auto& deviceInterface : node.interfaces) {
        deviceInterface->registered |= !IsNeverThere(node);
    }
    return {};
}

// Of several devices described for one socket, such as sketch and bootloader of a board, one can be plugged in.
static std::string FindSharedSocket(const DevicesDescription& description) {
    std::map<std::pair<DeviceNode*, unsigned>, DeviceNode*> sockets;
    for (const DeviceDescription& device : description.devices) {
        DeviceNode* node = TheDeviceTree().FindById(device.id);
        const bool isOnHub = node->parent && node->parent->IsHub() && node->hubPort;
        if (!isOnHub || !node->attached) {
            continue;
        }
        const auto [socket, isFree] = sockets.try_emplace({node->parent, node->hubPort}, node);
        if (!isFree) {
            return fmt::format("device '{}': it is plugged in on port {} of its hub, where another described device is",
                               node->id, node->hubPort);
        }
    }
    return {};
}

static void SetComDatabase(const DevicesDescription& description) {
    Registry& registry = TheRegistry();
    const ComDatabaseDescription& said = description.comDatabase;
    if (said.missing) {
        registry.DeleteValue(Arbiter, "ComDB");
        return;
    }
    const RegistryValue* there = registry.GetValue(Arbiter, "ComDB");
    if (!there || said.taken || said.size) {
        std::vector<std::uint8_t> bits = there && !said.taken ? there->data : std::vector<std::uint8_t>();
        bits.resize(said.size.value_or(there && !said.taken ? bits.size() : ComDbBytes));
        registry.SetBinary(Arbiter, "ComDB", bits);
    }
    if (said.taken) {
        for (const unsigned number : *said.taken) {
            ComDbSet(number);
        }
        return;
    }
    for (const DeviceDescription& device : description.devices) {
        for (const auto& name : {device.portName, device.dosDeviceName}) {
            if (name) {
                ComDbSet(ComNumberOf(*name));
            }
        }
    }
}

// Devices of the exports: their sockets, interfaces and hubs.
static void FinishExported() {
    for (DeviceNode* node : TheDeviceTree().All()) {
        CountHub(*node);
        MakeInterfaces(*node, ClassNameOf(*node));
        if (node->hubPort && node->parent && node->parent->IsHub()) {
            WidenHub(*node->parent, node->hubPort);
        }
        for (const auto& deviceInterface : node->interfaces) {
            deviceInterface->registered = true;
        }
    }
    AddExportedInterfaces();
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->hubPort && node->parent && node->parent->IsHub()) {
            WidenHub(*node->parent, node->hubPort);
        }
    }
}

// Interrupt and I/O port from the description; on-board ports have had the same ones since the first boards.
static void GiveResources() {
    struct OnBoard {
        std::uint32_t ioPort, irq;
    };
    constexpr OnBoard Usual[] = {{0x3F8, 4}, {0x2F8, 3}, {0x3E8, 4}, {0x2E8, 3}};
    std::size_t next = 0;
    for (DeviceNode* node : TheDeviceTree().All()) {
        const bool onBoard = node->IsPort() && FindNoCase(node->id, "PNP0501\\") != std::string::npos;
        const OnBoard* usual = onBoard && next < std::size(Usual) ? &Usual[next++] : nullptr;
        node->ioPort = node->said.ioPort ? node->said.ioPort : usual ? std::optional(usual->ioPort) : std::nullopt;
        node->irq = node->said.irq ? node->said.irq : usual ? std::optional(usual->irq) : std::nullopt;
    }
}

// The port that FTDI's bus driver makes below an adapter: its serial number gets the letter of the channel, an instance
// that Windows made up does not. "" for other adapters, whose ports' ids do not follow from theirs.
static std::string PortIdBelow(const DeviceNode& adapter) {
    const std::size_t instance = adapter.id.rfind('\\'), kind = adapter.id.find('\\') + 1;
    if (!EqualNoCase(ServiceOf(adapter), "FTDIBUS") || instance <= kind || FindNoCase(adapter.id, "&MI_") < instance) {
        return "";
    }
    std::string name = adapter.id.substr(kind) + (adapter.id.find('&', instance) == std::string::npos ? "A" : "");
    std::replace(name.begin(), name.end(), '\\', '+');
    std::replace(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(instance - kind), '&', '+');
    return "FTDIBUS\\" + name + "\\0000";
}

// Windows would look for a driver; the machine does not know what would come of such an adapter. One that is known may
// bring its ports as devices of their own, which nothing makes but the exports and the description.
static void NoteUnknownAdapters() {
    for (const DeviceNode* node : TheDeviceTree().All()) {
        const bool mayBringPorts = node->kind == DeviceKind::Usb || node->kind == DeviceKind::Composite;
        if (!mayBringPorts || !node->children.empty() || node->said.kind || node->said.className ||
            node->said.classGuid) {
            continue;
        }
        const bool isDescribed = !node->said.id.empty();
        if (FindInCatalogue(node->id)) {
            if (isDescribed) {
                const std::string port = PortIdBelow(*node);
                AddNote(Utf8FromAnsi(fmt::format("'{}' brings its ports as devices of their own: describe them with it "
                                                 "as their parent{}",
                                                 node->id, port.empty() ? "" : fmt::format(", as '{}'", port))));
            }
        } else if (ServiceOf(*node).empty() && (isDescribed || DeviceText(*node, "ClassGUID").empty())) {
            AddNote(Utf8FromAnsi(fmt::format("no driver is known for '{}': it brings no port; describe its port or "
                                             "give `kind`",
                                             node->id)));
        }
    }
}

static std::string Build(const DevicesDescription& description) {
    AddExportedDevices(description.devices);
    LinkExportedDevices();
    if (std::string wrong = SettleExportedPresence(description.connected); !wrong.empty()) {
        return wrong;
    }
    FinishExported();
    for (const DeviceDescription& device : description.devices) {
        AddDescribed(device);
    }
    for (const DeviceDescription& device : description.devices) {
        if (std::string wrong = LinkDescribed(device); !wrong.empty()) {
            return wrong;
        }
    }
    for (const DeviceDescription& device : description.devices) {
        if (std::string wrong = FinishDescribed(*TheDeviceTree().FindById(device.id)); !wrong.empty()) {
            return wrong;
        }
    }
    if (std::string wrong = FindSharedSocket(description); !wrong.empty()) {
        return wrong;
    }
    LeaveOutUnplaced();
    YieldSocketsToDescribed();
    NoteUnknownAdapters();
    SetComDatabase(description);
    TheRegistry().CreateKey("HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM");
    g_devices->dosNames = description.dosNames;
    for (const DosNameDescription& name : description.dosNames) {
        SetDosName(name);
    }
    GiveResources();
    RunAllAtStart();
    return {};
}

void RunAllAtStart() {
    const bool wasBuilding = SetBuildingDevices(true);
    for (DeviceNode* node : TheDeviceTree().AllEver()) {
        RunAtStart(*node);
    }
    SetBuildingDevices(wasBuilding);
}

void MakeLastingDosNames() {
    for (const DosNameDescription& name : g_devices->dosNames) {
        if (name.opens && (!name.opens->error || name.opens->error == simwin::ERROR_ACCESS_DENIED)) {
            SetDosName(name);
        }
    }
}

std::string BuildDevices(const DevicesDescription& description) {
    SetBuildingDevices(true);
    std::string wrong = Build(description);
    SetBuildingDevices(false);
    return wrong;
}

DeviceNode* AddDevice(const DeviceDescription& description, std::string* wrong) {
    DeviceDescription away = description;
    away.plugged = false;
    AddDescribed(away);
    std::string found = LinkDescribed(away);
    DeviceNode* node = TheDeviceTree().FindById(description.id);
    if (found.empty()) {
        found = FinishDescribed(*node);
    }
    if (wrong) {
        *wrong = found;
    }
    if (node && found.empty()) {
        node->irq = node->said.irq;
        node->ioPort = node->said.ioPort;
    }
    return found.empty() ? node : nullptr;
}

void AmendDevice(std::string_view id, const DeviceDescription& description) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    const simwin::DWORD problem = node->problem;
    TakeDescription(*node, description);
    node->problem = problem; // a running device must not stumble over a new description
    if (node->installed) {
        InstallKeys(*node, false);
    }
}

} // namespace machine
