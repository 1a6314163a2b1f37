// Opening devices by name, and the requests that the driver of a USB hub answers.
#include "simwin/devices/DeviceCalls.h"
#include "simwin/devices/api.h"
#include "simwin/devices/drivers/Drivers.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"

#include <algorithm>
#include <cstring>

namespace machine {

using namespace simwin;

constexpr std::uint64_t CycleOffAfterMs = 100; // after the request
constexpr std::uint64_t CycleOffMs = 500;      // until it is plugged in again
constexpr std::size_t PrefixLength = 4;        // "\\.\" and "\\?\"

namespace {
struct OpenDevices {};
} // namespace
static OpenDevices* g_openDevices;

namespace {
struct OpenHub : OpenDevice {
    DeviceNode* node = nullptr;
};

struct OpenPort : OpenDevice {
    KernelDevice* device = nullptr;
    void Closed() override {
        if (g_openDevices) {
            CloseKernelDevice(*device);
        }
    }
};

// A name that can be opened although it leads to no device of the tree.
struct OpenOther : OpenDevice {};
} // namespace

static std::unique_ptr<OpenDevice> OpenPortDevice(KernelDevice& device, DWORD* error) {
    if (device.handles > 0) {
        *error = ERROR_ACCESS_DENIED; // a serial port has one user at a time
        return nullptr;
    }
    auto open = std::make_unique<OpenPort>();
    open->device = &device;
    OpenKernelDevice(device);
    return open;
}

static std::unique_ptr<OpenDevice> OpenInterface(const DeviceInterface& path, DWORD* error) {
    DeviceNode* node = path.node;
    if (!path.up) {
        *error = ERROR_FILE_NOT_FOUND;
        return nullptr;
    }
    if (node->driver) {
        return OpenPortDevice(*node->driver, error);
    }
    if (node->IsPort()) { // its interface stayed up without its driver
        *error = ERROR_FILE_NOT_FOUND;
        return nullptr;
    }
    if (!node->IsHub()) {
        return std::make_unique<OpenOther>();
    }
    auto open = std::make_unique<OpenHub>();
    open->node = node;
    return open;
}

// What the description says of a name without a device. The opener may block here: only plain values on the stack.
static std::unique_ptr<OpenDevice> OpenAsSaid(Opens opens, const char* name, DWORD* error) {
    if (opens.hangs) {
        Block(WaitKind::Object, "an open that hangs", NoLimit);
    }
    if (opens.lateMs) {
        SleepMs(opens.lateMs);
    }
    if (opens.error) {
        *error = opens.error;
        return nullptr;
    }
    const DosDefinition* definition = TheDosNames().InForce(name);
    KernelDevice* device = definition ? TheDeviceTree().RunningDevice(definition->target) : nullptr;
    if (device) {
        return OpenPortDevice(*device, error);
    }
    return std::make_unique<OpenOther>();
}

static std::unique_ptr<OpenDevice> OpenByName(const char* name, DWORD, DWORD, DWORD, DWORD* error) {
    const std::size_t length = std::strlen(name);
    const char* bare = length > PrefixLength ? name + PrefixLength : "";
    const DosDefinition* definition = TheDosNames().InForce(bare);
    if (!definition) {
        const DeviceInterface* path = TheDeviceTree().FindInterface(bare);
        if (path) {
            return OpenInterface(*path, error);
        }
        *error = ERROR_FILE_NOT_FOUND;
        return nullptr;
    }
    if (definition->described) {
        return OpenAsSaid(definition->opens, bare, error);
    }
    if (KernelDevice* device = TheDeviceTree().RunningDevice(definition->target)) {
        return OpenPortDevice(*device, error);
    }
    *error = ERROR_FILE_NOT_FOUND;
    return nullptr;
}

RoomPtr MakeOpenDevices() {
    RoomPtr room = MakeRoom(g_openDevices);
    SetDeviceOpener(OpenByName);
    return room;
}

// The device at a hub port as the hub knows it: null at an empty one, and before the hub knows a new device.
static DeviceNode* DeviceAt(const DeviceNode& hub, unsigned port, bool mustBeKnown) {
    for (DeviceNode* child : hub.children) {
        if (child->hubPort != port || !child->IsPresent()) {
            continue;
        }
        const bool known = child->longKnown || Now() >= child->attachedAtMs + hub.said.knowsInMs.value_or(0);
        if (known || !mustBeKnown) {
            return child;
        }
    }
    return nullptr;
}

static DWORD GiveNodeInformation(const DeviceNode& hub, void* out, DWORD size, DWORD& returned) {
    if (size < sizeof(USB_NODE_INFORMATION)) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    USB_NODE_INFORMATION information{};
    USB_HUB_DESCRIPTOR& descriptor = information.u.HubInformation.HubDescriptor;
    descriptor.bDescriptorLength = sizeof(USB_HUB_DESCRIPTOR);
    descriptor.bDescriptorType = 0x29;
    descriptor.bNumberOfPorts = static_cast<UCHAR>(std::min(hub.ports, 255u));
    std::memcpy(out, &information, sizeof(information));
    returned = sizeof(information);
    return 0;
}

static DWORD GiveDriverKey(const DeviceNode& hub, void* out, DWORD size, DWORD& returned) {
    constexpr DWORD Head = offsetof(USB_NODE_CONNECTION_DRIVERKEY_NAME, DriverKeyName);
    if (size < sizeof(USB_NODE_CONNECTION_DRIVERKEY_NAME)) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    USB_NODE_CONNECTION_DRIVERKEY_NAME answer{};
    std::memcpy(&answer, out, Head);
    if (answer.ConnectionIndex == 0 || answer.ConnectionIndex > hub.ports) {
        return ERROR_INVALID_PARAMETER;
    }
    const DeviceNode* device = DeviceAt(hub, answer.ConnectionIndex, true);
    if (!device) {
        return ERROR_GEN_FAILURE;
    }
    const std::u16string key = Utf16FromAnsi(DriverKeyOf(*device));
    const std::size_t keyBytes = (key.size() + 1) * sizeof(char16_t);
    answer.ActualLength = static_cast<ULONG>(Head + keyBytes);
    std::memset(out, 0, size);
    std::memcpy(out, &answer, Head);
    returned = sizeof(answer);
    if (size >= answer.ActualLength) {
        std::memcpy(static_cast<char*>(out) + Head, key.c_str(), keyBytes);
        returned = answer.ActualLength;
    }
    return 0;
}

static bool KnowsCycle(const WindowsVersion& version) {
    const unsigned packed = version.Packed();
    return packed != 0x0500 && packed != 0x0600 && packed != 0x0601;
}

static void CycleLater(DeviceNode& device) {
    After(CycleOffAfterMs, [&device] {
        DetachTree(device, Cause::Product);
        device.isComingBack = !device.pulledOut;
        After(CycleOffMs, [&device] {
            if (!device.pulledOut) {
                AttachNode(device, Cause::Product);
            }
        });
    });
}

static DWORD CyclePort(const DeviceNode& hub, void* out, DWORD size, DWORD& returned) {
    if (size < sizeof(USB_CYCLE_PORT_PARAMS)) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    USB_CYCLE_PORT_PARAMS params{};
    std::memcpy(&params, out, sizeof(params));
    DeviceNode* device = DeviceAt(hub, params.ConnectionIndex, false);
    const DWORD error = !KnowsCycle(TheSetup().version)                                     ? ERROR_NOT_SUPPORTED
                        : params.ConnectionIndex == 0 || params.ConnectionIndex > hub.ports ? ERROR_INVALID_PARAMETER
                        : !device                                                           ? ERROR_GEN_FAILURE
                                                                                            : 0;
    if (!device) {
        return error;
    }
    const std::size_t restart = BeginRestart(*device, "cycle");
    if (error) {
        EndRestart(restart, false);
        return error;
    }
    params.StatusReturned = hub.said.cycleStatus.value_or(0);
    std::memcpy(out, &params, sizeof(params));
    returned = sizeof(params);
    EndRestart(restart, params.StatusReturned == 0);
    if (params.StatusReturned == 0) {
        CycleLater(*device);
    }
    return 0;
}

static DWORD AskHub(DeviceNode& hub, DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize,
                    DWORD& returned) {
    if (!hub.IsRunning()) {
        return ERROR_NO_SUCH_DEVICE;
    }
    if (!out || !in) {
        return ERROR_INVALID_PARAMETER;
    }
    if (in != out) { // the driver works in one buffer
        std::memmove(out, in, std::min(inSize, outSize));
    }
    switch (code) {
    case IOCTL_USB_GET_NODE_INFORMATION:
        return GiveNodeInformation(hub, out, outSize, returned);
    case IOCTL_USB_GET_NODE_CONNECTION_DRIVERKEY_NAME:
        return GiveDriverKey(hub, out, outSize, returned);
    case IOCTL_USB_HUB_CYCLE_PORT:
        return CyclePort(hub, out, outSize, returned);
    default:
        NotModelled("DeviceIoControl", "a request other than node information, driver key and port cycle");
    }
}

// The name under which the device was opened, for the trace and the faults.
static const char* OpenedAs(HANDLE handle) {
    const auto* file = FromHandle<OpenFile>(handle, ObjectKind::File);
    return file && file->device ? file->device->name.c_str() : "";
}

} // namespace machine

namespace simwin {

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned,
                     LPOVERLAPPED overlapped) {
    SIM_CALL("DeviceIoControl", machine::OpenedAs(device), ERROR_INVALID_FUNCTION, ERROR_ACCESS_DENIED,
             ERROR_INVALID_HANDLE, ERROR_GEN_FAILURE, ERROR_NOT_SUPPORTED, ERROR_INVALID_PARAMETER,
             ERROR_INSUFFICIENT_BUFFER, ERROR_NO_SUCH_DEVICE);
    if (overlapped) {
        machine::NotModelled("DeviceIoControl", "overlapped requests");
    }
    DWORD error = simCall.error;
    DWORD given = 0;
    const auto* file = machine::FromHandle<machine::OpenFile>(device, machine::ObjectKind::File);
    auto* hub = file ? dynamic_cast<machine::OpenHub*>(file->device.get()) : nullptr;
    if (error && hub && code == IOCTL_USB_HUB_CYCLE_PORT && in && inSize >= sizeof(USB_CYCLE_PORT_PARAMS)) {
        const ULONG port = static_cast<const USB_CYCLE_PORT_PARAMS*>(in)->ConnectionIndex;
        if (const machine::DeviceNode* asked = machine::DeviceAt(*hub->node, port, false)) {
            machine::NoteFailedRestart(*asked, "cycle");
        }
    }
    if (!error) {
        error = !file  ? ERROR_INVALID_HANDLE
                : !hub ? ERROR_INVALID_FUNCTION
                       : machine::AskHub(*hub->node, code, in, inSize, out, outSize, given);
    }
    if (returned) {
        *returned = given;
    }
    if (error) {
        machine::SetError(error);
    }
    return error == 0;
}

} // namespace simwin
