#include "rehearse/html/Lanes.h"

#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/kernel/Scheduler.h"

namespace rehearse::html {

static Stretch StretchOf(const machine::DeviceNode& port) {
    Stretch stretch;
    stretch.fromMs = machine::Now();
    if (!port.IsPresent()) {
        return stretch;
    }
    stretch.heldBy = machine::HolderOf(port);
    stretch.problem = port.problem;
    stretch.name = port.printerPort ? machine::RegistryNameOf(port) : machine::DosNameOf(port);
    if (port.problem) {
        stretch.state = LaneState::Problem;
    } else if (!port.IsRunning()) {
        stretch.state = LaneState::Stopped;
    } else {
        stretch.state = stretch.name.empty() ? LaneState::Nameless : LaneState::Named;
    }
    if (stretch.state != LaneState::Named) {
        stretch.name.clear();
    }
    return stretch;
}

void Lanes::Watch() {
    NoteAll();
    m_watch.emplace([this](const machine::DeviceNode* port) {
        if (!port) {
            NoteAll();
        } else if (port->IsPort()) {
            NotePort(*port);
        }
    });
}

void Lanes::Close() {
    m_watch.reset();
    NoteAll();
    m_endMs = machine::Now();
}

void Lanes::NotePort(const machine::DeviceNode& port) {
    std::vector<Stretch>& lane = m_lanes[port.id];
    const Stretch now = StretchOf(port);
    if (lane.empty() && now.fromMs > 0) {
        lane.emplace_back(); // it was never there before
    }
    if (!lane.empty() && lane.back().IsLike(now)) {
        return;
    }
    if (!lane.empty() && lane.back().fromMs == now.fromMs) {
        lane.pop_back(); // what lasts no time is nothing to see
        if (!lane.empty() && lane.back().IsLike(now)) {
            return;
        }
    }
    lane.push_back(now);
}

void Lanes::NoteAll() {
    for (const machine::DeviceNode* node : machine::TheDeviceTree().AllEver()) {
        if (node->IsPort()) {
            NotePort(*node);
        }
    }
}

} // namespace rehearse::html
