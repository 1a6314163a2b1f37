#include "simwin/devices/build/Devices.h"

#include "simwin/devices/api.h"
#include "simwin/devices/build/ExportPresence.h"
#include "simwin/devices/build/ExportTree.h"
#include "simwin/devices/build/Guesses.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/tree/Catalogue.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>

namespace machine {

constexpr const char* ClassRoot = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Class\\";
constexpr const char* Arbiter = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";
constexpr std::size_t ComDbBytes = 32;
constexpr unsigned HubPorts = 4;

namespace {
struct DevicesRoom {
    bool building = false;
    std::vector<DeviceRestart> restarts;
    std::vector<DosNameDescription> dosNames; // described
    DeviceObserver observer;
    std::map<std::string, unsigned, NoCaseLess> nextDriverKey; // by class
};
} // namespace
static DevicesRoom* g_devices;

static void Create() {
    g_devices = new DevicesRoom;
    TheDosNames().WatchChanges([](const DosNameChange& change) {
        if (g_devices && g_devices->observer.dosNameChanged) {
            g_devices->observer.dosNameChanged(change);
        }
    });
}

static void Destroy() {
    delete g_devices;
    g_devices = nullptr;
}

static Room g_room(64, Create, Destroy);

static const char* Or(const char* text, const char* other) {
    return text ? text : other;
}

namespace {
// The node's facts, from the description, the catalogue, its kind.
struct Facts {
    std::string className, classGuid, service, description, hardwareId;
    std::uint32_t capabilities;
};
} // namespace

static Facts FactsOf(const DeviceNode& node) {
    const CatalogueEntry* known = FindInCatalogue(node.id);
    if (known && known->kind != node.kind) {
        known = nullptr;
    }
    const KindDefaults defaults = DefaultsOf(node.kind, TheSetup().version);
    Facts facts;
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

static void MakeInterfaces(DeviceNode& node, std::string_view className) {
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
    auto [entry, isNew] = g_devices->nextDriverKey.try_emplace(classGuid, 0);
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

// A hub that is not described has as many hub ports as it needs.
static void WidenHub(DeviceNode& hub, unsigned port) {
    if (!hub.said.ports && port > hub.ports) {
        hub.ports = port;
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
                AddNote(Utf8FromAnsi(fmt::format("'{}' brings its ports as devices of their own: describe them with it "
                                                 "as their parent",
                                                 node->id)));
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
    const Facts facts = FactsOf(node);
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

void SetDosName(const DosNameDescription& name) {
    if (name.target.empty()) {
        TheDosNames().RemoveNewest(name.name, "outside");
        return;
    }
    TheDosNames().Define(name.name, name.target, "outside");
    if (name.opens) {
        TheDosNames().SetOpens(name.name, *name.opens);
    }
}

bool IsBuildingDevices() {
    return g_devices->building;
}

void RunAllAtStart() {
    const bool wasBuilding = std::exchange(g_devices->building, true);
    for (DeviceNode* node : TheDeviceTree().AllEver()) {
        RunAtStart(*node);
    }
    g_devices->building = wasBuilding;
}

void MakeLastingDosNames() {
    for (const DosNameDescription& name : g_devices->dosNames) {
        if (name.opens && (!name.opens->error || name.opens->error == simwin::ERROR_ACCESS_DENIED)) {
            SetDosName(name);
        }
    }
}

std::string BuildDevices(const DevicesDescription& description) {
    g_devices->building = true;
    std::string wrong = Build(description);
    g_devices->building = false;
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

const std::vector<DeviceRestart>& DeviceRestarts() {
    return g_devices->restarts;
}

std::size_t BeginRestart(const DeviceNode& node, const char* means) {
    g_devices->restarts.push_back({Now(), node.id, means, false});
    return g_devices->restarts.size() - 1;
}

void EndRestart(std::size_t restart, bool ok) {
    DeviceRestart& entry = g_devices->restarts[restart];
    entry.ok = ok;
    if (g_devices->observer.restarted) {
        g_devices->observer.restarted(entry);
    }
}

void NoteFailedRestart(const DeviceNode& node, const char* means) {
    EndRestart(BeginRestart(node, means), false);
}

void SetDeviceObserver(DeviceObserver observer) {
    g_devices->observer = std::move(observer);
}

const DeviceObserver& TheDeviceObserver() {
    return g_devices->observer;
}

} // namespace machine
