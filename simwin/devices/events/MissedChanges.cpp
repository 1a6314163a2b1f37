#include "simwin/devices/events/MissedChanges.h"

#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/events/Events.h"
#include "simwin/kernel/Scheduler.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace machine {

namespace {
struct Missed {
    DeviceNode* node;
    bool wasThere, isThere;
    bool wentAway = false;
    DeviceNode* hub = nullptr; // where it is now, if it was moved
    unsigned hubPort = 0;
};
} // namespace
static std::vector<Missed>* g_missed; // in the order of the first change of each

RoomPtr MakeMissedChanges() {
    return MakeRoom(g_missed);
}

static Missed& MissedOf(DeviceNode& node) {
    const auto known =
        std::find_if(g_missed->begin(), g_missed->end(), [&](const Missed& missed) { return missed.node == &node; });
    return known != g_missed->end() ? *known : g_missed->emplace_back(Missed{&node, node.attached, node.attached});
}

static void Notice(const Missed& missed) {
    const std::string id = missed.node->id;
    if (!missed.isThere) {
        UnplugDevice(id);
    } else if (missed.hub) {
        MoveDevice(id, missed.hub->id, missed.hubPort, 0);
    } else if (missed.wasThere && missed.wentAway) {
        ReplugDevice(id, 0);
    } else if (!missed.wasThere) {
        PlugDevice(id);
    }
}

static void Apply(const Missed& missed) {
    DeviceNode& node = *missed.node;
    node.attached = missed.isThere;
    node.pulledOut = !missed.isThere;
    if (!missed.isThere) {
        return;
    }
    node.crowdedOut = false;
    if (missed.hub) {
        PutOnHub(node, *missed.hub, missed.hubPort);
    }
    AttachBelow(node);
}

void MissPlug(DeviceNode& node) {
    MissedOf(node).isThere = true;
}

void MissUnplug(DeviceNode& node) {
    Missed& missed = MissedOf(node);
    missed.isThere = false;
    missed.wentAway = true;
}

void MissReplug(DeviceNode& node, std::uint64_t offMs) {
    if (!MissedOf(node).isThere) {
        return;
    }
    MissUnplug(node);
    At(Now() + offMs, Due::Outside, [&node] { PlugDevice(node.id); });
}

void MissMove(DeviceNode& node, DeviceNode& hub, unsigned hubPort) {
    MissUnplug(node);
    Missed& missed = MissedOf(node);
    missed.isThere = true;
    missed.hub = &hub;
    missed.hubPort = hubPort;
}

void NoticeMissedChanges() {
    for (const Missed& missed : std::exchange(*g_missed, {})) {
        Notice(missed);
    }
}

void ApplyMissedChanges() {
    for (const Missed& missed : std::exchange(*g_missed, {})) {
        Apply(missed);
    }
}

} // namespace machine
