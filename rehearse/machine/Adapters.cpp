#include "rehearse/machine/Adapters.h"

#include "simwin/devices/build/ExportTree.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace rehearse {

constexpr unsigned MostHubPorts = 255;

static bool HasPort(const machine::DeviceNode& node, const Sockets& sockets) {
    if (!sockets.IsIn(node)) {
        return false;
    }
    return (node.IsPort() && !node.printerPort) ||
           std::any_of(node.children.begin(), node.children.end(),
                       [&](const auto* child) { return HasPort(*child, sockets); });
}

// It is there if everything above it is.
static bool IsReached(const machine::DeviceNode& node, const Sockets& sockets) {
    if (node.root) {
        return true;
    }
    const machine::DeviceNode* parent = sockets.PlaceOf(node).hub;
    return sockets.IsIn(node) && parent && IsReached(*parent, sockets);
}

std::vector<const machine::DeviceNode*> PluggedAdapters(const Sockets& sockets) {
    std::vector<const machine::DeviceNode*> adapters;
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        const machine::DeviceNode* hub = sockets.PlaceOf(*node).hub;
        if (hub && hub->IsHub() && !node->IsHub() && IsReached(*node, sockets) && HasPort(*node, sockets)) {
            adapters.push_back(node);
        }
    }
    return adapters;
}

bool IsRadio(const machine::DeviceNode& adapter) {
    return machine::EqualNoCase(machine::ClassNameOf(adapter), "Bluetooth");
}

// --- Sockets

std::optional<Socket> NextFreeSocket(const machine::DeviceNode& adapter, const Sockets& sockets) {
    const Sockets::Place own = sockets.PlaceOf(adapter);
    const auto isFree = [&](const machine::DeviceNode& hub, unsigned port) {
        return port != (&hub == own.hub ? own.port : 0) && !sockets.OtherOn(&hub, port, &adapter);
    };
    for (unsigned step = 1; step < own.hub->ports; ++step) {
        const unsigned port = (own.port - 1 + step) % own.hub->ports + 1;
        if (isFree(*own.hub, port)) {
            return Socket{own.hub, port};
        }
    }
    for (const machine::DeviceNode* hub : machine::TheDeviceTree().All()) {
        const bool isOther =
            hub->IsHub() && hub != own.hub && IsReached(*hub, sockets) && !machine::HangsBelow(hub, &adapter);
        for (unsigned port = 1; isOther && port <= hub->ports; ++port) {
            if (isFree(*hub, port)) {
                return Socket{hub, port};
            }
        }
    }
    if (!own.hub->said.ports && own.hub->ports < MostHubPorts) {
        return Socket{own.hub, own.hub->ports + 1};
    }
    return std::nullopt;
}

// --- Ids

// The same for the same text on every machine; Windows too puts a hash of the place into such ids.
static std::uint32_t HashOf(std::string_view text) {
    std::uint32_t hash = 2166136261;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(machine::LowerChar(c))) * 16777619;
    }
    return hash;
}

// What the instance ids of devices without a serial number on this hub begin with.
static std::string PrefixOf(const machine::DeviceNode& hub) {
    if (const std::string prefix = machine::DeviceText(hub, "ParentIdPrefix"); !prefix.empty()) {
        return prefix;
    }
    for (const machine::DeviceNode* child : hub.children) {
        if (machine::PortInId(child->id)) {
            const std::string_view instance = machine::InstanceOf(child->id);
            return std::string(instance.substr(0, instance.rfind('&')));
        }
    }
    return fmt::format("7&{:x}&0", HashOf(hub.id));
}

static std::string WithInstance(const std::string& id, std::string_view instance) {
    return id.substr(0, id.rfind('\\') + 1) + std::string(instance);
}

std::string IdOnSocket(const machine::DeviceNode& adapter, const Socket& socket) {
    return machine::PortInId(adapter.id)
               ? WithInstance(adapter.id, fmt::format("{}&{}", PrefixOf(*socket.hub), socket.port))
               : adapter.id;
}

// The next digit or letter, within what a serial number of this kind may hold.
static char NextOf(char c) {
    switch (c) {
    case '9':
        return '0';
    case 'F':
        return 'A';
    case 'f':
        return 'a';
    case 'Z':
        return 'G';
    case 'z':
        return 'g';
    default:
        return static_cast<char>(c + 1);
    }
}

static bool IsLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Counts up from the last character: another unit of the same make looks like that.
static std::string NextSerial(std::string serial) {
    for (std::size_t i = serial.size(); i-- > 0;) {
        if (!IsLetterOrDigit(serial[i])) {
            continue;
        }
        const char next = NextOf(serial[i]);
        const bool isCarried = next < serial[i];
        serial[i] = next;
        if (!isCarried) {
            return serial;
        }
    }
    return serial + "1"; // all of it was at its end
}

std::string IdOfNewcomer(const machine::DeviceNode& adapter, const Socket& socket) {
    std::string id = IdOnSocket(adapter, socket);
    while (!machine::PortInId(id) && machine::TheDeviceTree().FindById(id)) {
        id = WithInstance(id, NextSerial(std::string(machine::InstanceOf(id))));
    }
    return id;
}

// --- Others of the kind

// The id of what hangs below it: with the serial number or the place of the adapter in it, else with a hash that
// Windows made of the adapter above.
static std::string IdBelow(const std::string& id, const std::string& ofAdapter, const std::string& newAdapter) {
    const std::string_view old = machine::InstanceOf(ofAdapter), renewed = machine::InstanceOf(newAdapter);
    if (const std::size_t at = machine::FindNoCase(id, old); at != std::string::npos) {
        return id.substr(0, at) + std::string(renewed) + id.substr(at + old.size());
    }
    const std::vector<std::string> parts = machine::Split(machine::InstanceOf(id), '&');
    const std::uint32_t hash = HashOf(newAdapter + id);
    std::string instance = parts.front();
    for (std::size_t i = 1; i < parts.size(); ++i) {
        instance += "&" + (i == 1 ? fmt::format("{:x}", hash) : parts[i]);
    }
    return WithInstance(id, parts.size() > 1 ? instance : fmt::format("{}&{:x}", instance, hash));
}

static std::vector<std::string> TextsOf(const machine::DeviceNode& node, const char* name) {
    const machine::RegistryValue* value = machine::TheRegistry().GetValue(node.enumPath, name);
    if (!value) {
        return {};
    }
    const std::string bytes(value->data.begin(), value->data.end());
    std::vector<std::string> texts = machine::Split(bytes, '\0');
    std::erase(texts, "");
    return texts;
}

// What is true of the kind, not of the one device: names, numbers, place and state are left out.
static machine::DeviceDescription KindOfDevice(const machine::DeviceNode& node) {
    machine::DeviceDescription kind = node.said;
    if (kind.dosDeviceName && !kind.portName && !kind.nameValue) {
        kind.nameValue = "DosDeviceName";
    }
    kind.portName = kind.dosDeviceName = kind.friendlyName = kind.driverKey = {};
    kind.location = kind.locationPath = kind.kernelNamePath = kind.heldBy = {};
    kind.address = kind.irq = kind.ioPort = kind.problem = {};
    kind.hubPort = {};
    kind.plugged = kind.isProtected = {};
    kind.kind = node.kind;
    const auto take = [](std::optional<std::string>& field, const std::string& text) {
        if (!field && !text.empty()) {
            field = text;
        }
    };
    take(kind.className, machine::ClassNameOf(node));
    take(kind.classGuid, machine::DeviceText(node, "ClassGUID"));
    take(kind.service, machine::ServiceOf(node));
    take(kind.description, machine::DescriptionOf(node));
    if (!kind.hardwareId && !TextsOf(node, "HardwareID").empty()) {
        kind.hardwareId = TextsOf(node, "HardwareID");
    }
    if (!kind.interfaces) {
        kind.interfaces.emplace();
        for (const auto& one : node.interfaces) {
            kind.interfaces->push_back(one->classGuid);
        }
    }
    return kind;
}

std::vector<std::string> PartsOf(const machine::DeviceNode& adapter, const Sockets& sockets) {
    std::vector<std::string> ids;
    std::vector<const machine::DeviceNode*> nodes = {&adapter};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const machine::DeviceNode& node = *nodes[i];
        ids.push_back(node.id);
        std::copy_if(node.children.begin(), node.children.end(), std::back_inserter(nodes),
                     [&](const auto* child) { return sockets.IsIn(*child); });
    }
    return ids;
}

std::vector<machine::DeviceDescription> LikeAdapter(const std::vector<std::string>& parts, const std::string& id,
                                                    const Socket& socket) {
    std::vector<machine::DeviceDescription> devices;
    const machine::DeviceNode& adapter = *machine::TheDeviceTree().FindById(parts.front());
    for (const std::string& part : parts) {
        const machine::DeviceNode& node = *machine::TheDeviceTree().FindById(part);
        machine::DeviceDescription device = KindOfDevice(node);
        const bool isTop = &node == &adapter;
        device.id = isTop ? id : IdBelow(node.id, adapter.id, id);
        device.parent = isTop                     ? socket.hub->id
                        : node.parent == &adapter ? id
                                                  : IdBelow(node.parent->id, adapter.id, id);
        if (isTop) {
            device.hubPort = socket.port;
        }
        devices.push_back(std::move(device));
    }
    return devices;
}

} // namespace rehearse
