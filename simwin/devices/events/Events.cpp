#include "simwin/devices/events/Events.h"

#include "simwin/devices/build/Devices.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/events/MissedChanges.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Scheduler.h"

#include <algorithm>

namespace machine {

static DeviceNode* NodeOrNew(std::string_view id) {
    if (DeviceNode* node = TheDeviceTree().FindById(id)) {
        return node;
    }
    DeviceDescription description;
    description.id = id;
    return AddDevice(description);
}

void PlugDevice(std::string_view id) {
    DeviceNode* node = NodeOrNew(id);
    if (!node) {
        return;
    }
    if (IsMachineDown()) {
        MissPlug(*node);
        return;
    }
    node->pulledOut = node->crowdedOut = false;
    AttachBelow(*node);
    AttachNode(*node, Cause::Outside);
}

void UnplugDevice(std::string_view id) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    if (IsMachineDown()) {
        MissUnplug(*node);
        return;
    }
    node->pulledOut = true;
    DetachTree(*node, Cause::Outside);
}

void ReplugDevice(std::string_view id, std::uint64_t offMs) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    if (IsMachineDown()) {
        MissReplug(*node, offMs);
        return;
    }
    if (!node->IsPresent()) {
        return;
    }
    DetachTree(*node, Cause::Outside);
    node->isComingBack = true;
    After(offMs, [node] { AttachNode(*node, Cause::Outside); });
}

void MoveDevice(std::string_view id, std::string_view hubId, unsigned hubPort, std::uint64_t offMs) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    DeviceNode* hub = TheDeviceTree().FindById(hubId);
    if (!node || !hub || HangsBelow(hub, node)) {
        return;
    }
    if (IsMachineDown()) {
        MissMove(*node, *hub, hubPort);
        return;
    }
    const std::uint64_t leaves = DetachTree(*node, Cause::Outside);
    node->isComingBack = true;
    node->comesBackOn = hub;
    node->comesBackOnPort = hubPort;
    After(std::max(offMs, leaves), [node, hub, hubPort] {
        node->pulledOut = node->crowdedOut = false;
        PutOnHub(*node, *hub, hubPort);
        AttachNode(*node, Cause::Outside);
    });
}

void SetDeviceProblem(std::string_view id, const ProblemEvent& event) {
    DeviceNode* node = TheDeviceTree().FindById(id);
    if (!node) {
        return;
    }
    if (event.number == 0) {
        node->problem = 0;
        node->stickyProblem = 0;
        if (node->IsPresent() && !node->IsRunning()) {
            node->quietStart = event.quiet;
            StartNode(*node, Cause::Outside);
        }
    } else if (!event.quiet || !node->IsPresent()) {
        if (node->IsPresent()) {
            StopTree(*node, true, Cause::Outside);
        }
        node->problem = event.number;
        node->stickyProblem = event.sticky ? event.number : 0;
    } else {
        StopQuietly(*node);
        node->problem = event.number;
        node->stickyProblem = event.sticky ? event.number : 0;
    }
    if (!node->IsPresent()) {
        return;
    }
    TellOfDevice(*node, "problem");
    if (event.quiet) {
        NoteTreeChange(true);
    }
}

void BroadcastTreeChanges(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        SendTreeChange(true);
    }
}

void CalmDown() {
    EndFaults();
    ReleaseAllPorts();
    for (DeviceNode* node : TheDeviceTree().All()) {
        node->vetoesLeft = 0;
        node->said.refuses = false;
        node->said.cycleStatus = 0;
        node->said.heldBy.reset();
        if (node->problem != 0) {
            SetDeviceProblem(node->id, {});
        }
    }
}

void ReplugAllDevices(std::uint64_t offMs) {
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->IsPresent() && node->parent && node->parent->IsHub() && node->kind != DeviceKind::RootHub &&
            !(node->parent->parent && node->parent->parent->IsHub())) {
            ReplugDevice(node->id, offMs);
        }
    }
}

} // namespace machine
