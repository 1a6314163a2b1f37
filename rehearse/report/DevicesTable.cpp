#include "rehearse/report/DevicesTable.h"

#include "simwin/devices/tree/DeviceTree.h"

#include <fmt/format.h>

namespace rehearse {

static std::string StateOf(const machine::DeviceNode& node) {
    if (node.IsPresent()) {
        return node.problem ? fmt::format("problem {}", node.problem) : "there";
    }
    if (!node.whyAbsent.empty() && !node.attached) {
        return "not there: " + node.whyAbsent;
    }
    return node.attached ? "not there: what it hangs below is not there" : "not there";
}

static std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

static std::string NumberOrDash(unsigned number) {
    return number ? std::to_string(number) : "-";
}

std::string DevicesTable() {
    std::string text = "device\tclass\tparent\thub\tsocket\tlocation\tlocation path\tstate\n";
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        const bool isOnHub = node->parent && node->parent->IsHub() && node->hubPort;
        text += fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\n", node->id, OrDash(machine::ClassNameOf(*node)),
                            node->parent ? node->parent->id : "-", NumberOrDash(node->hubNumber),
                            isOnHub ? std::to_string(node->hubPort) : "-",
                            OrDash(machine::DeviceText(*node, "LocationInformation")),
                            OrDash(machine::LocationPathOf(*node)), StateOf(*node));
    }
    return machine::Utf8FromAnsi(text);
}

} // namespace rehearse
