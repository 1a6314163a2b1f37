#include "bench/GrowingMachine.h"

#include "simwin/devices/build/Devices.h"
#include "simwin/devices/drivers/PlugAndPlay.h"

#include "inventory/ports/CComPorts.h"
#include "inventory/usb/CUsbHubs.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "support/system/ProcessState.h"

#include <cstdio>
#include <utility>

namespace bench {
constexpr int PortsOfADevice = 2, DevicesOfAHub = 32, PortsOfAHub = PortsOfADevice * DevicesOfAHub;
constexpr DWORD StartMs = 10'000; // more than the slowest driver needs
constexpr char ControllerId[] = "PCI\\VEN_8086&DEV_9D2F\\3&11583659&0&A0";
constexpr char RootHubId[] = "USB\\ROOT_HUB30\\4&1b2c3d4e&0";

static int g_ports; // plugged in so far
static std::string g_wrong;

static void Plug(const machine::DeviceDescription& description) {
    std::string wrong;
    machine::DeviceNode* node = machine::AddDevice(description, &wrong);
    g_wrong += wrong;
    if (node) {
        machine::AttachNode(*node, machine::Cause::Outside);
    }
}

static machine::DeviceDescription Device(std::string id, machine::DeviceKind kind, std::string parent, int hubPort) {
    machine::DeviceDescription description;
    description.id = std::move(id);
    description.kind = kind;
    if (!parent.empty()) {
        description.parent = std::move(parent);
    }
    if (hubPort > 0) {
        description.hubPort = static_cast<unsigned>(hubPort);
    }
    return description;
}

static void PlugRootHub() {
    g_wrong = machine::BuildDevices({});
    Plug(Device(ControllerId, machine::DeviceKind::Controller, "", 0));
    machine::DeviceDescription rootHub = Device(RootHubId, machine::DeviceKind::RootHub, ControllerId, 0);
    rootHub.ports = LargestMachine / PortsOfAHub;
    Plug(rootHub);
}

// The next port, with the hub and the device that it needs first.
static void PlugPort() {
    const int hub = g_ports / PortsOfAHub + 1;
    const int socket = g_ports % PortsOfAHub / PortsOfADevice + 1, function = g_ports % PortsOfADevice;
    const std::string hubId = "USB\\VID_05E3&PID_0610\\H" + std::to_string(hub);
    if (g_ports % PortsOfAHub == 0) {
        machine::DeviceDescription description = Device(hubId, machine::DeviceKind::Hub, RootHubId, hub);
        description.ports = DevicesOfAHub;
        Plug(description);
    }
    char text[96];
    std::snprintf(text, sizeof(text), "USB\\VID_10C4&PID_EA70\\%02X%02X0001", hub, socket);
    const std::string adapter = text;
    if (function == 0) {
        Plug(Device(adapter, machine::DeviceKind::Composite, hubId, socket));
    }
    std::snprintf(text, sizeof(text), "USB\\VID_10C4&PID_EA70&MI_%02d\\7&%02x%02x0001&0&%04d", function, hub, socket,
                  function);
    machine::DeviceDescription port = Device(text, machine::DeviceKind::Port, adapter, 0);
    port.service = "silabser";
    port.portName = "COM" + std::to_string(++g_ports);
    port.kernelName = {"\\Device\\Silabser" + std::to_string(g_ports)};
    Plug(port);
}

std::string GrowTo(int ports) {
    if (g_ports == 0) {
        PlugRootHub();
    }
    while (g_ports < ports) {
        PlugPort();
    }
    Sleep(StartMs);
    return g_wrong;
}

void MakeTables() {
    if (!g_pUsbRoothubs) {
        g_pUsbRoothubs = new CUsbRoothubs;
        g_pUsbHubs = new CUsbHubs;
        g_pComPorts = new CComPorts;
    }
    g_InitialSnapshot = 1;
    g_pUsbRoothubs->CreateSnapshot();
    g_pUsbHubs->CreateSnapshot();
    g_pComPorts->CreateSnapshot(/*reason=*/0);
    g_InitialSnapshot = 0;
}

bool PrepareTable(int ports) {
    const std::string wrong = GrowTo(ports);
    if (!g_pComPorts || g_pComPorts->PortCount != ports) {
        MakeTables();
    }
    if (wrong.empty() && g_ports == ports && g_pComPorts->PortCount == ports &&
        g_pComPorts->Ports[ports - 1]->szPortName[0] != 0 && g_pComPorts->Ports[ports - 1]->UsbPort[0] != 0) {
        return true;
    }
    std::fprintf(stderr, "%d ports on the machine, %d in the table %s\n", g_ports,
                 static_cast<int>(g_pComPorts->PortCount), wrong.c_str());
    return false;
}

} // namespace bench
