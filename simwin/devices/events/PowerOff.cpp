// What power-off and the next start mean for devices.
#include "simwin/devices/api.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PendingInstalls.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/events/Events.h"
#include "simwin/devices/events/MissedChanges.h"

#include <algorithm>
#include <iterator>

namespace machine {

// Problems of this one run of Windows: a driver that failed to start or to go, a device to be removed or ejected.
static bool IsCuredByStart(simwin::DWORD problem) {
    constexpr simwin::DWORD Cured[] = {10, 14, 21, 24, 38, 43, 45, 47};
    return std::find(std::begin(Cured), std::end(Cured), problem) != std::end(Cured);
}

static void PowerOffDevice(DeviceNode& node) {
    ++node.startSerial;
    DropPortDriver(node);
    for (const auto& deviceInterface : node.interfaces) {
        deviceInterface->up = false;
    }
    node.state = DeviceState::Absent;
    if (node.returnsAfterLeaving || node.isComingBack) {
        node.attached = true;
    }
    if (node.isComingBack && node.comesBackOn) {
        PutOnHub(node, *node.comesBackOn, node.comesBackOnPort);
    }
    node.leaving = node.returnsAfterLeaving = node.isComingBack = false;
    node.comesBackOn = nullptr;
    node.stoppedByProduct = node.quietStart = false;
    node.openRestart.reset();
    if (IsCuredByStart(node.problem)) {
        node.problem = node.stickyProblem;
    }
}

void PowerOffDevices() {
    for (DeviceNode* node : TheDeviceTree().AllEver()) {
        PowerOffDevice(*node);
    }
    ForgetTreeChange();
    ForgetInstalls();
    TheDosNames().Reset();
}

void StartDevicesAnew() {
    TheDeviceTree().Renumber();
    ApplyMissedChanges();
    for (DeviceNode* node : TheDeviceTree().AllEver()) { // also what got its problem while the machine was off
        if (IsCuredByStart(node->problem)) {
            node->problem = node->stickyProblem;
        }
    }
    MakeLastingDosNames();
    RunAllAtStart();
}

} // namespace machine
