#include "simwin/devices/drivers/Holders.h"

#include "simwin/devices/drivers/Drivers.h"

#include <vector>

namespace machine {

namespace {
struct HeldPort : Object {
    HeldPort() : Object(ObjectKind::File) {}
    void LastHandleClosed() override;
    KernelDevice* device = nullptr;
    std::string portName;
    Process* program = nullptr;
    simwin::HANDLE handle = nullptr;
};
} // namespace
static std::vector<HeldPort*>* g_held;

void HeldPort::LastHandleClosed() {
    if (!g_held) {
        return;
    }
    std::erase(*g_held, this);
    CloseKernelDevice(*device);
}

RoomPtr MakeHeldPorts() {
    return MakeRoom(g_held);
}

Process* HolderProcess(std::string_view imagePath) {
    for (Process* process : AllProcesses()) {
        if (!process->ended && process->threads.empty() && EqualNoCase(process->imagePath, imagePath)) {
            return process;
        }
    }
    ProcessStart start;
    start.imagePath = imagePath;
    start.commandLine = "\"" + start.imagePath + "\"";
    start.currentDirectory = start.imagePath.substr(0, start.imagePath.rfind('\\'));
    start.rights = Rights::User;
    start.administrator = false;
    return StartScripted(start);
}

bool HoldDevice(DeviceNode& node, Process* program) {
    KernelDevice* device = node.driver;
    if (!device || device->handles > 0 || !program || program->ended) {
        return false;
    }
    OpenKernelDevice(*device);
    auto* held = new HeldPort;
    held->device = device;
    held->portName = DosNameOf(node);
    held->program = program;
    g_held->push_back(held);
    held->handle = program->handles.Open(held);
    return true;
}

void HoldAsSaid(DeviceNode& node) {
    if (!node.said.heldBy || node.wasHeld || !node.driver) {
        return;
    }
    node.wasHeld = true;
    HoldDevice(node, HolderProcess(*node.said.heldBy));
}

std::string HolderOf(const DeviceNode& node) {
    for (const HeldPort* held : *g_held) {
        if (held->device == node.driver && node.driver) {
            return held->program->imagePath;
        }
    }
    return "";
}

bool HoldPort(std::string_view portName, Process* program) {
    const DosDefinition* name = TheDosNames().InForce(portName);
    KernelDevice* device = name ? TheDeviceTree().RunningDevice(name->target) : nullptr;
    return device && HoldDevice(*device->node, program);
}

bool HoldPort(std::string_view portName, std::string_view imagePath) {
    return HoldPort(portName, HolderProcess(imagePath));
}

bool ReleasePort(std::string_view portName) {
    for (const HeldPort* held : *g_held) {
        if (EqualNoCase(held->portName, portName)) {
            return held->program->handles.Close(held->handle);
        }
    }
    // Its name may have changed since.
    const DosDefinition* name = TheDosNames().InForce(portName);
    const KernelDevice* device = name ? TheDeviceTree().RunningDevice(name->target) : nullptr;
    for (const HeldPort* held : *g_held) {
        if (device && held->device == device) {
            return held->program->handles.Close(held->handle);
        }
    }
    return false;
}

void ReleaseAllPorts() {
    while (!g_held->empty()) {
        const HeldPort* held = g_held->back();
        held->program->handles.Close(held->handle);
    }
}

} // namespace machine
