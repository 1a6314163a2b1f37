// Port records made by hand, for tests that need a table but no devices. The records belong to the table until the
// process ends; nobody deletes them, since the product's memory is the product's.
#pragma once

#include "tests/harness/Harness.h"

#include "inventory/ports/CComPorts.h"
#include "simwin/devices/build/Devices.h"
#include "support/texts/BoundedText.h"

#include <string>
#include <vector>

namespace inventorytest {

struct PortRow {
    DWORD devInst = 0;
    const char *path = "", *id = "", *regName = "", *kernelNameCom = "", *kernelNamePath = "", *service = "";
    DWORD sameParent = 0;
};

inline CComPorts* NewTable() {
    static std::vector<CComPorts*> kept; // a leak check meets every table here
    g_pComPorts = new CComPorts;
    kept.push_back(g_pComPorts);
    return g_pComPorts;
}

// Appends a present port whose registry name is also its DOS name in force.
inline CComPort* Put(CComPorts* table, const PortRow& row) {
    CComPort* port = new CComPort;
    port->Index = table->PortCount;
    port->IsUsed = 1;
    port->IsPresent = 1;
    port->DevInst = row.devInst;
    port->SameParentDevInst = row.sameParent;
    CopyText(port->DevPath, row.path);
    CopyText(port->DeviceID, row.id);
    CopyText(port->szRegPortName, row.regName);
    CopyText(port->szPortName, row.regName);
    CopyText(port->szKernelNameCom, row.kernelNameCom);
    CopyText(port->szKernelNameDevPath, row.kernelNamePath);
    CopyText(port->Service, row.service);
    table->Ports[table->PortCount] = port;
    ++table->PortCount;
    return port;
}

// A port as a device of the machine.
inline machine::DeviceDescription Port(const char* id, const char* portName) {
    machine::DeviceDescription port;
    port.id = id;
    port.kind = machine::DeviceKind::Port;
    port.portName = portName;
    port.parent = "HTREE\\ROOT\\0"; // where it is plugged in does not matter
    return port;
}

} // namespace inventorytest
