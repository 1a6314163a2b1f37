#include "simwin/devices/tree/DeviceWatch.h"

#include "simwin/kernel/Scheduler.h"

#include <utility>

namespace machine {

namespace {
struct DeviceWatch {
    bool building = false;
    std::vector<DeviceRestart> restarts;
    DeviceObserver observer;
};
} // namespace
static DeviceWatch* g_watch;

RoomPtr MakeDeviceWatch() {
    RoomPtr room = MakeRoom(g_watch);
    TheDosNames().WatchChanges([](const DosNameChange& change) {
        if (g_watch && g_watch->observer.dosNameChanged) {
            g_watch->observer.dosNameChanged(change);
        }
    });
    return room;
}

bool IsBuildingDevices() {
    return g_watch->building;
}

const std::vector<DeviceRestart>& DeviceRestarts() {
    return g_watch->restarts;
}

std::size_t BeginRestart(const DeviceNode& node, const char* means) {
    g_watch->restarts.push_back({Now(), node.id, means, false});
    return g_watch->restarts.size() - 1;
}

void EndRestart(std::size_t restart, bool ok) {
    DeviceRestart& entry = g_watch->restarts[restart];
    entry.ok = ok;
    if (g_watch->observer.restarted) {
        g_watch->observer.restarted(entry);
    }
}

void NoteFailedRestart(const DeviceNode& node, const char* means) {
    EndRestart(BeginRestart(node, means), false);
}

void SetDeviceObserver(DeviceObserver observer) {
    g_watch->observer = std::move(observer);
}

const DeviceObserver& TheDeviceObserver() {
    return g_watch->observer;
}

bool SetBuildingDevices(bool isBuilding) {
    return std::exchange(g_watch->building, isBuilding);
}

} // namespace machine
