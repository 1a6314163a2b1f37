#include "rehearse/machine/Sockets.h"

namespace rehearse {

void Sockets::Happen(const TomlTable& event) {
    const TomlTable *move = event.TableOf("move"), *replug = event.TableOf("replug");
    const machine::DeviceNode* plugged = move     ? NodeIn(*move, "device")
                                         : replug ? NodeIn(*replug, "device")
                                                  : NodeIn(event, "plug");
    if (plugged && (!replug || IsIn(*plugged))) {
        Plug(*plugged);
    }
    if (plugged && move) {
        m_movedTo[plugged] = {NodeIn(*move, "hub"), static_cast<unsigned>(move->NumberOf("hub_port"))};
    }
    if (const machine::DeviceNode* pulled = NodeIn(event, "unplug")) {
        m_isIn[pulled] = Is::Pulled;
    }
}

bool Sockets::IsIn(const machine::DeviceNode& node) const {
    const auto known = m_isIn.find(&node);
    return known == m_isIn.end() ? node.attached : known->second == Is::In;
}

const machine::DeviceNode* Sockets::OtherOn(const machine::DeviceNode* hub, unsigned port,
                                            const machine::DeviceNode* but) const {
    if (!hub || !hub->IsHub() || !port) {
        return nullptr;
    }
    for (const machine::DeviceNode* other : machine::TheDeviceTree().All()) {
        if (other != but && IsIn(*other) && PlaceOf(*other) == Place{hub, port}) {
            return other;
        }
    }
    return nullptr;
}

const machine::DeviceNode* Sockets::OtherOnSocketOf(const machine::DeviceNode& node) const {
    const Place place = PlaceOf(node);
    return OtherOn(place.hub, place.port, &node);
}

Sockets::Place Sockets::PlaceOf(const machine::DeviceNode& node) const {
    const auto moved = m_movedTo.find(&node);
    return moved == m_movedTo.end() ? Place{node.parent, node.hubPort} : moved->second;
}

void Sockets::Plug(const machine::DeviceNode& node) {
    m_isIn[&node] = Is::In;
    for (const machine::DeviceNode* child : node.children) {
        const auto known = m_isIn.find(child);
        if (known == m_isIn.end() || known->second != Is::Pulled) {
            Plug(*child);
        }
    }
}

const machine::DeviceNode* NodeIn(const TomlTable& table, std::string_view key) {
    return table.Has(key) ? machine::TheDeviceTree().FindById(table.TextOf(key)) : nullptr;
}

} // namespace rehearse
