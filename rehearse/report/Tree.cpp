#include "rehearse/report/Tree.h"

#include "simwin/devices/build/Guesses.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace rehearse {

constexpr std::size_t Indent = 3;

// What a reader of rules looks for; the rest of a machine is only counted.
static bool IsWorthALine(const machine::DeviceNode& node) {
    if (node.IsPort() || node.IsHub() || node.kind == machine::DeviceKind::Controller) {
        return true;
    }
    if (node.parent && (node.parent->IsHub() || machine::EqualNoCase(machine::ClassNameOf(node), "Bluetooth"))) {
        return true;
    }
    return std::any_of(node.children.begin(), node.children.end(),
                       [](const auto* child) { return IsWorthALine(*child); });
}

// "COM7", and what the registry says if that is another name.
static std::string NamesOf(const machine::DeviceNode& node) {
    const std::string name = machine::DosNameOf(node), registered = machine::RegistryNameOf(node);
    std::string text = name.empty() ? "no name" : name;
    if (name != registered) {
        text += registered.empty() ? ", none in the registry" : fmt::format(", {} in the registry", registered);
    }
    if (const std::string holder = machine::HolderOf(node); !holder.empty()) {
        text += ", held by " + holder;
    }
    return text;
}

static std::string WhatIs(const machine::DeviceNode& node) {
    if (node.IsPort()) {
        return NamesOf(node);
    }
    if (node.IsHub()) {
        return fmt::format("hub {}", node.hubNumber);
    }
    return "";
}

static std::string StateOf(const machine::DeviceNode& node) {
    if (node.IsPresent()) {
        return node.problem ? fmt::format("problem {}", node.problem) : "";
    }
    if (!node.whyAbsent.empty() && !node.attached) {
        return "not there: " + node.whyAbsent;
    }
    return node.attached ? "not there: what it hangs below is not there" : "not there";
}

static void Add(std::string& text, const std::string& part, const char* between) {
    if (!part.empty()) {
        text += (text.empty() ? "" : between) + part;
    }
}

namespace {
class Printer {
public:
    std::string Print() {
        for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
            if (!node->parent) {
                Line(*node, 0);
            }
        }
        return m_text;
    }

private:
    void Line(const machine::DeviceNode& node, std::size_t depth) {
        const std::string margin(depth * Indent, ' ');
        std::string facts, places;
        Add(facts, WhatIs(node), "; ");
        Add(facts, node.root ? "" : machine::DescriptionOf(node), "; ");
        Add(facts, StateOf(node), "; ");
        const bool isOnHub = node.parent && node.parent->IsHub() && node.hubPort;
        m_text += fmt::format("{}{}{}{}{}\n", margin, isOnHub ? fmt::format("socket {}: ", node.hubPort) : "", node.id,
                              facts.empty() ? "" : "  ", facts);
        Add(places, machine::DeviceText(node, "LocationInformation"), " | ");
        if (node.IsPresent()) {
            Add(places, machine::LocationPathOf(node), " | ");
        }
        if (const std::string usbPort = machine::UsbPortOf(node); node.IsPort() && !usbPort.empty()) {
            Add(places, "UsbPort " + usbPort, " | ");
        }
        if (!places.empty()) {
            m_text += fmt::format("{}  at {}\n", margin, places);
        }
        if (!machine::GuessOf(node).empty()) {
            m_text += fmt::format("{}  ? {}\n", margin, machine::GuessOf(node));
        }
        Children(node, depth + 1);
    }

    void Children(const machine::DeviceNode& node, std::size_t depth) {
        std::vector<const machine::DeviceNode*> shown(node.children.begin(), node.children.end());
        std::erase_if(shown, [](const auto* child) { return !IsWorthALine(*child); });
        if (node.IsHub()) {
            std::stable_sort(shown.begin(), shown.end(),
                             [](const auto* a, const auto* b) { return a->hubPort < b->hubPort; });
        }
        for (const machine::DeviceNode* child : shown) {
            Line(*child, depth);
        }
        const std::string margin(depth * Indent, ' ');
        if (const std::size_t others = node.children.size() - shown.size()) {
            m_text += fmt::format("{}({} other {})\n", margin, others, others == 1 ? "device" : "devices");
        }
        if (const std::string empty = EmptySockets(node); !empty.empty()) {
            m_text += fmt::format("{}empty: {}\n", margin, empty);
        }
    }

    // The sockets of a hub that nothing is in now.
    static std::string EmptySockets(const machine::DeviceNode& hub) {
        std::string text;
        for (unsigned first = 1; hub.IsHub() && first <= hub.ports; ++first) {
            unsigned last = first;
            while (last <= hub.ports && !IsTaken(hub, last)) {
                ++last;
            }
            if (last > first + 1) {
                Add(text, fmt::format("sockets {} to {}{}", first, last - 1, UsbPorts(hub, first, last - 1)), ", ");
            } else if (last > first) {
                Add(text, fmt::format("socket {}{}", first, UsbPorts(hub, first, first)), ", ");
            }
            first = last;
        }
        return text;
    }

    // What a rule can say of a socket before anything is in it: its first number is in no other line of the tree.
    static std::string UsbPorts(const machine::DeviceNode& hub, unsigned first, unsigned last) {
        const std::string above = machine::UsbPortOf(hub);
        if (!hub.IsPresent() || above.empty()) {
            return "";
        }
        return fmt::format(" (UsbPort {}-{}{})", above, first,
                           first == last ? "" : fmt::format(" to {}-{}", above, last));
    }

    static bool IsTaken(const machine::DeviceNode& hub, unsigned port) {
        return std::any_of(hub.children.begin(), hub.children.end(),
                           [port](const auto* child) { return child->hubPort == port && child->IsPresent(); });
    }

    std::string m_text;
};
} // namespace

std::string MachineTree() {
    std::string text;
    for (const machine::MachineNote& note : machine::AllNotes()) {
        text += "note: " + note.text + "\n";
    }
    const std::vector<machine::DeviceNode*> nodes = machine::TheDeviceTree().All();
    const bool hasGuess =
        std::any_of(nodes.begin(), nodes.end(), [](const auto* node) { return !machine::GuessOf(*node).empty(); });
    text += machine::Utf8FromAnsi(Printer().Print());
    if (hasGuess) {
        text += "\n? marks a guess: nothing says it, and the rehearsal took the likeliest.\n"
                "The registry does not say how many sockets a hub has: 4, or up to the last one in use, unless "
                "`ports` of a\n[[device]] does.\n";
    }
    return text;
}

} // namespace rehearse
