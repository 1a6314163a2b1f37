// The port table on a machine that grows: 64, 512 and 4096 ports, 64 on each hub, two on each device. The first
// snapshot, the listing and both scans, with their calls to the machine.
#include "bench/Calls.h"
#include "bench/Marks.h"

#include "simwin/devices/Devices.h"
#include "simwin/devices/PlugAndPlay.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"

#include "inventory/CComPorts.h"
#include "inventory/CUsbHubs.h"
#include "inventory/CUsbRoothubs.h"
#include "support/LogFile.h"
#include "support/ProcessState.h"

#include <cstdio>
#include <string>

namespace bench {
namespace {

constexpr int PortsOfADevice = 2, DevicesOfAHub = 32, PortsOfAHub = PortsOfADevice * DevicesOfAHub;
constexpr int SmallTable = 64, MiddleTable = 512, LargeTable = 4096;
constexpr DWORD StartMs = 10'000; // more than the slowest driver needs
constexpr char ControllerId[] = "PCI\\VEN_8086&DEV_9D2F\\3&11583659&0&A0";
constexpr char RootHubId[] = "USB\\ROOT_HUB30\\4&1b2c3d4e&0";

int g_ports; // plugged in so far
std::string g_wrong;

void Plug(const machine::DeviceDescription& description) {
    std::string wrong;
    machine::DeviceNode* node = machine::AddDevice(description, &wrong);
    g_wrong += wrong;
    if (node) {
        machine::AttachNode(*node, machine::Cause::Outside);
    }
}

machine::DeviceDescription Device(std::string id, machine::DeviceKind kind, std::string parent, int hubPort) {
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

void PlugRootHub() {
    g_wrong = machine::BuildDevices({});
    Plug(Device(ControllerId, machine::DeviceKind::Controller, "", 0));
    machine::DeviceDescription rootHub = Device(RootHubId, machine::DeviceKind::RootHub, ControllerId, 0);
    rootHub.ports = LargeTable / PortsOfAHub;
    Plug(rootHub);
}

void PlugAdapter(const std::string& hubId, int hub, int socket) {
    char text[96];
    std::snprintf(text, sizeof(text), "USB\\VID_10C4&PID_EA70\\%02X%02X0001", hub, socket);
    const std::string adapter = text;
    Plug(Device(adapter, machine::DeviceKind::Composite, hubId, socket));
    for (int function = 0; function < PortsOfADevice; ++function) {
        std::snprintf(text, sizeof(text), "USB\\VID_10C4&PID_EA70&MI_%02d\\7&%02x%02x0001&0&%04d", function, hub,
                      socket, function);
        machine::DeviceDescription port = Device(text, machine::DeviceKind::Port, adapter, 0);
        port.service = "silabser";
        port.portName = "COM" + std::to_string(++g_ports);
        port.kernelName = {"\\Device\\Silabser" + std::to_string(g_ports)};
        Plug(port);
    }
}

// The machine only ever grows, so the sizes are measured in rising order.
void GrowTo(int ports) {
    if (g_ports == 0) {
        PlugRootHub();
    }
    while (g_ports < ports) {
        const int hub = g_ports / PortsOfAHub + 1;
        const std::string hubId = "USB\\VID_05E3&PID_0610\\H" + std::to_string(hub);
        machine::DeviceDescription description = Device(hubId, machine::DeviceKind::Hub, RootHubId, hub);
        description.ports = DevicesOfAHub;
        Plug(description);
        for (int socket = 1; socket <= DevicesOfAHub; ++socket) {
            PlugAdapter(hubId, hub, socket);
        }
    }
    Sleep(StartMs);
}

// Everything that the first snapshot of the service makes.
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

// The table of this size; an error if the machine or the table is not what it should be.
bool Prepare(benchmark::State& state) {
    const int ports = static_cast<int>(state.range(0));
    GrowTo(ports);
    if (!g_pComPorts || g_pComPorts->PortCount != ports) {
        MakeTables();
    }
    if (g_wrong.empty() && g_ports == ports && g_pComPorts->PortCount == ports &&
        g_pComPorts->Ports[ports - 1]->szPortName[0] != 0 && g_pComPorts->Ports[ports - 1]->UsbPort[0] != 0) {
        return true;
    }
    std::fprintf(stderr, "%d ports on the machine, %d in the table %s\n", g_ports,
                 static_cast<int>(g_pComPorts->PortCount), g_wrong.c_str());
    state.SkipWithError("the table does not have the ports of the machine");
    return false;
}

template<typename Work>
void Measure(benchmark::State& state, Work work) {
    if (!Prepare(state)) {
        return;
    }
    const std::uint64_t callsBefore = CountAllCalls();
    for (auto _ : state) {
        work();
        GoOnCalling();
    }
    const double ports = static_cast<double>(state.range(0)), rounds = static_cast<double>(state.iterations());
    state.counters["calls/port"] = static_cast<double>(CountAllCalls() - callsBefore) / (ports * rounds);
    state.counters["time/port"] =
        benchmark::Counter(ports, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Snapshot(benchmark::State& state) {
    Measure(state, MakeTables);
}

// With the log on at the level of the listing, or it writes nothing.
void Listing(benchmark::State& state) {
    machine::TheFiles().Write(szIniFile, "[Settings]\r\nWriteDebugOutput=1\r\nLogLevel=1\r\n");
    LogFile_Init(/*rotate=*/0);
    Measure(state, [] {
        g_pComPorts->ListPorts();
        machine::CurrentProcess()->debugOutput.clear();
    });
    LogFile_Exit();
    g_Log = {};
}

void SameNames(benchmark::State& state) {
    Measure(state, [] { g_pComPorts->ScanSamePorts(); });
}

void SameParents(benchmark::State& state) {
    Measure(state, [] { g_pComPorts->ScanSameParents(); });
}

// How much more one port costs in a table eight times as large.
std::function<double(const Measured&)> TimeGrowth(const std::string& benchmark) {
    return [benchmark](const Measured& measured) {
        const double small = measured.Nanoseconds(benchmark + "/" + std::to_string(MiddleTable)) / MiddleTable;
        const double large = measured.Nanoseconds(benchmark + "/" + std::to_string(LargeTable)) / LargeTable;
        return small > 0 && large > 0 ? large / small : NotMeasured;
    };
}

std::function<double(const Measured&)> CallGrowth(const std::string& benchmark) {
    return [benchmark](const Measured& measured) {
        const double small = measured.Counter(benchmark + "/" + std::to_string(SmallTable), "calls/port");
        const double large = measured.Counter(benchmark + "/" + std::to_string(LargeTable), "calls/port");
        return small > 0 && large > 0 ? large / small : NotMeasured;
    };
}

// All work at one size before the next one, since the machine does not shrink.
[[maybe_unused]] const bool g_registered = [] {
    for (const int ports : {SmallTable, MiddleTable, LargeTable}) {
        benchmark::RegisterBenchmark("Ports/Snapshot", Snapshot)->Arg(ports)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("Ports/Listing", Listing)->Arg(ports)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("Ports/SameNames", SameNames)->Arg(ports)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("Ports/SameParents", SameParents)->Arg(ports)->Unit(benchmark::kMillisecond);
    }
    return true;
}();

// Each port asks the machine for itself alone: the calls grow as the ports do. Only the searches of the table, one for
// each port, may take eight times as long in a table eight times as large. The listing searches nothing, but 4096
// records are more than the caches hold.
const Mark g_snapshotCalls("calls for a port of the first snapshot, 4096 ports against 64",
                           CallGrowth("Ports/Snapshot"), Wanted::AtMost, 1.05);
const Mark g_listingCalls("calls for a port of the listing, 4096 ports against 64", CallGrowth("Ports/Listing"),
                          Wanted::AtMost, 1.05);
const Mark g_snapshotTime("time for a port of the first snapshot, 4096 ports against 512", TimeGrowth("Ports/Snapshot"),
                          Wanted::AtMost, 8);
const Mark g_listingTime("time for a port of the listing, 4096 ports against 512", TimeGrowth("Ports/Listing"),
                         Wanted::AtMost, 4);
const Mark g_namesTime("time for a port of the scan of equal names, 4096 ports against 512",
                       TimeGrowth("Ports/SameNames"), Wanted::AtMost, 8);
const Mark g_parentsTime("time for a port of the scan of equal parents, 4096 ports against 512",
                         TimeGrowth("Ports/SameParents"), Wanted::AtMost, 8);

} // namespace
} // namespace bench
