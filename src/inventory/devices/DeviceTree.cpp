#include "inventory/devices/DeviceTree.h"

#include "inventory/devices/DeviceProperties.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

// Real trees have some twenty levels. A walk ends here at the latest, also when a node is its own ancestor.
constexpr int MaxLevels = 64;
// A bus has at most some hundred devices.
constexpr int MaxSiblings = 4096;

// The text of an id before its first backslash: "USB", "PCI", "FTDIBUS".
static void CopyEnumerator(const char* deviceId, char (&enumerator)[260]) {
    CopyText(enumerator, deviceId);
    CutAtChar(enumerator, '\\');
}

static bool IsMotherboardPort(const CComPort* port) {
    return StrStrIA(port->DeviceID, "ACPI\\PNP0501") != nullptr ||
           StrStrIA(port->DeviceID, "ROOT\\*PNP0501\\") != nullptr;
}

static bool BeginsGroup(DWORD ancestor) {
    if (IsUsbHubDevice(ancestor)) {
        return true;
    }
    char id[260] = {};
    return ReadDeviceId(ancestor, id) && (StartsWithNoCase(id, "PCI") || StartsWithNoCase(id, "ROOT"));
}

DWORD GetParentDevInst(DWORD devInst) {
    DEVINST parent = 0;
    return CM_Get_Parent(&parent, devInst, 0) == CR_SUCCESS ? parent : 0;
}

int GetBusType(const CComPort* port) {
    if (IsMotherboardPort(port)) {
        return BusIsa;
    }
    char parentService[64] = {};
    if (ReadDeviceText(port->ParentDevInst, CM_DRP_SERVICE, parentService) && IsSameNoCase(parentService, "msisadrv")) {
        return BusIsa;
    }
    char own[260];
    char parent[260];
    char grandParent[260];
    CopyEnumerator(port->DeviceID, own);
    CopyEnumerator(port->ParentDeviceID, parent);
    CopyEnumerator(port->GrandParentDeviceID, grandParent);
    // From the highest index down: a USB port has PCI above it too.
    for (int bus = BusUsb; bus >= BusPci; --bus) {
        const char* name = BusTypeNames[bus];
        if (IsSameNoCase(own, name) || IsSameNoCase(parent, name) || IsSameNoCase(grandParent, name) ||
            EndsWithNoCase(parent, name) || EndsWithNoCase(grandParent, name)) {
            return bus;
        }
    }
    return BusUnknown;
}

DWORD GetSameParentDevInst(DWORD devInst) {
    char id[260] = {};
    if (ReadDeviceId(devInst, id) && StartsWithNoCase(id, "ACPI\\PNP")) {
        return 0;
    }
    DWORD node = devInst;
    for (int level = 0; level < MaxLevels; ++level) {
        node = GetParentDevInst(node);
        if (node == 0) {
            return 0;
        }
        if (BeginsGroup(node)) {
            return node;
        }
    }
    return 0;
}

DWORD GetUsbDevInst(DWORD devInst) {
    DWORD node = devInst;
    for (int level = 0; level < MaxLevels; ++level) {
        const DWORD parent = GetParentDevInst(node);
        if (parent == 0) {
            return 0;
        }
        if (IsUsbHubDevice(parent)) {
            return node;
        }
        node = parent;
    }
    return 0;
}

DWORD GetHubDevInst(DWORD devInst) {
    const DWORD usbDevInst = GetUsbDevInst(devInst);
    return usbDevInst != 0 ? GetParentDevInst(usbDevInst) : 0;
}

bool IsUsbHubDevice(DWORD devInst) {
    char text[1024] = {};
    if (ReadDeviceId(devInst, text) && StrStrA(text, "_HUB") != nullptr) {
        return true;
    }
    if (ReadDeviceText(devInst, CM_DRP_HARDWAREID, text) && StrStrA(text, "HUB") != nullptr) {
        return true;
    }
    if (ReadDeviceText(devInst, CM_DRP_SERVICE, text) &&
        (StrStrIA(text, "hub") != nullptr || StrStrIA(text, "HCIh") != nullptr)) {
        return true;
    }
    return ReadDeviceText(devInst, CM_DRP_DEVICEDESC, text) &&
           (StrStrIA(text, "USB Hub") != nullptr || StrStrIA(text, "USB-Hub") != nullptr ||
            EndsWithNoCase(text, "hub"));
}

bool HasWorkingChild(DWORD devInst) {
    DEVINST child = 0;
    CONFIGRET result = CM_Get_Child(&child, devInst, 0);
    for (int count = 0; result == CR_SUCCESS && count < MaxSiblings; ++count) {
        ULONG status = 0;
        ULONG problem = 0;
        if (CM_Get_DevNode_Status(&status, &problem, child, 0) == CR_SUCCESS && problem == 0) {
            return true;
        }
        result = CM_Get_Sibling(&child, child, 0);
    }
    return false;
}
