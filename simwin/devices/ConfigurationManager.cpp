// CM_...: the device tree, the properties and the resources of its nodes, and the calls that stop and start them.
#include "simwin/devices/ClassInstaller.h"
#include "simwin/devices/DeviceCalls.h"
#include "simwin/devices/Properties.h"
#include "simwin/devices/api.h"
#include "simwin/devices/drivers/PendingInstalls.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace machine {

namespace {
// What a LOG_CONF or RES_DES represents. The numbers are counters, so that they are the same in each run.
struct ResourceHandle {
    DeviceNode* node;
    simwin::RESOURCEID type; // ResType_All: the configuration itself
};
struct Resources {
    std::map<simwin::DWORD_PTR, ResourceHandle> handles;
    simwin::DWORD_PTR next = 0x1000;
};
} // namespace
static Resources* g_resources;

RoomPtr MakeDeviceResources() {
    return MakeRoom(g_resources);
}

static simwin::DWORD_PTR NewResourceHandle(DeviceNode* node, simwin::RESOURCEID type) {
    g_resources->handles.emplace(++g_resources->next, ResourceHandle{node, type});
    return g_resources->next;
}

static const ResourceHandle* FindResource(simwin::DWORD_PTR handle) {
    const auto found = g_resources->handles.find(handle);
    return found == g_resources->handles.end() ? nullptr : &found->second;
}

static simwin::CONFIGRET FreeResource(simwin::DWORD_PTR handle, bool isConfiguration, simwin::CONFIGRET ifInvalid) {
    const ResourceHandle* found = FindResource(handle);
    if (!found || (found->type == simwin::ResType_All) != isConfiguration) {
        return ifInvalid;
    }
    g_resources->handles.erase(handle);
    return simwin::CR_SUCCESS;
}

static bool HasResource(const DeviceNode& node, simwin::RESOURCEID type) {
    return type == simwin::ResType_IO ? node.ioPort.has_value() : type == simwin::ResType_IRQ && node.irq.has_value();
}

// The id of a node for the trace and the faults; it lives as long as the machine.
static const char* IdOf(simwin::DEVINST number) {
    const DeviceNode* node = TheDeviceTree().Find(number);
    return node ? node->id.c_str() : "";
}

static const char* IdOfResource(simwin::DWORD_PTR handle) {
    const ResourceHandle* found = FindResource(handle);
    return found ? found->node->id.c_str() : "";
}

static simwin::CONFIGRET Missing(simwin::DEVINST number) {
    return number == 0 ? simwin::CR_INVALID_DEVNODE : simwin::CR_NO_SUCH_DEVNODE;
}

static DeviceNode* PresentNode(simwin::DEVINST number) {
    DeviceNode* node = TheDeviceTree().Find(number);
    return node && node->IsPresent() ? node : nullptr;
}

// Returns: the injected error if there is one, else whether a present device was found.
static simwin::CONFIGRET FindPresent(simwin::DEVINST number, simwin::CONFIGRET injected, DeviceNode** found) {
    *found = PresentNode(number);
    return injected ? injected : *found ? simwin::CR_SUCCESS : Missing(number);
}

static simwin::ULONG StatusOf(const DeviceNode& node) {
    using namespace simwin;
    ULONG status = DN_NT_ENUMERATOR | DN_NT_DRIVER | DN_DISABLEABLE;
    if (node.IsRunning()) {
        status |= DN_DRIVER_LOADED | DN_STARTED;
    }
    if (node.problem) {
        status |= DN_HAS_PROBLEM;
    }
    if (node.problem == CM_PROB_WILL_BE_REMOVED) {
        status |= DN_WILL_BE_REMOVED;
    }
    if (IsRemovableNode(node)) {
        status |= DN_REMOVABLE;
    }
    if (StartsWithNoCase(node.id, "ROOT\\") || node.root) {
        status |= DN_ROOT_ENUMERATED;
    }
    return status;
}

static simwin::CONFIGRET GetProperty(simwin::DEVINST number, simwin::ULONG property, simwin::PULONG type, void* buffer,
                                     simwin::PULONG size, bool wide) {
    using namespace simwin;
    const DeviceNode* node = TheDeviceTree().Find(number);
    if (!node) {
        return Missing(number);
    }
    if (!size) {
        return CR_INVALID_POINTER;
    }
    if (property == 0 || property > CM_DRP_LOCATION_PATHS) {
        return CR_INVALID_PROPERTY;
    }
    const std::optional<DeviceProperty> found = ReadDeviceProperty(*node, property, wide);
    if (!found) {
        return CR_NO_SUCH_VALUE;
    }
    if (type) {
        *type = found->type;
    }
    const ULONG room = *size;
    *size = static_cast<ULONG>(found->data.size());
    if (!buffer || room < *size) {
        return CR_BUFFER_SMALL;
    }
    std::memcpy(buffer, found->data.data(), found->data.size());
    return CR_SUCCESS;
}

// The name of the device that refused, as a wide text cut to the buffer.
static void GiveVeto(const RemovalVeto& veto, simwin::PPNP_VETO_TYPE type, wchar_t* name, simwin::ULONG length) {
    if (type) {
        *type = static_cast<simwin::PNP_VETO_TYPE>(veto.type);
    }
    if (!name || length == 0) {
        return;
    }
    const std::u16string id = Utf16FromAnsi(veto.refusing->id);
    const std::size_t count = std::min<std::size_t>(id.size(), length - 1);
    for (std::size_t i = 0; i < count; ++i) {
        name[i] = static_cast<wchar_t>(id[i]);
    }
    name[count] = 0;
}

static void CheckFlags(const char* call, simwin::ULONG flags, simwin::ULONG known) {
    if (flags & ~known) {
        NotModelled(call, "flags other than those that are declared");
    }
}

} // namespace machine

namespace simwin {

using namespace machine;

CONFIGRET CM_Get_Parent(PDEVINST parent, DEVINST node, ULONG flags) {
    SIM_CALL("CM_Get_Parent", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_FAILURE);
    CheckFlags("CM_Get_Parent", flags, 0);
    DeviceNode* found = nullptr;
    if (const CONFIGRET failure = FindPresent(node, simCall.error, &found)) {
        return failure;
    }
    if (!found->parent) {
        return CR_NO_SUCH_DEVNODE;
    }
    *parent = found->parent->number;
    return CR_SUCCESS;
}

CONFIGRET CM_Get_Child(PDEVINST child, DEVINST node, ULONG flags) {
    SIM_CALL("CM_Get_Child", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_FAILURE);
    CheckFlags("CM_Get_Child", flags, 0);
    DeviceNode* found = nullptr;
    if (const CONFIGRET failure = FindPresent(node, simCall.error, &found)) {
        return failure;
    }
    for (const DeviceNode* candidate : found->children) {
        if (candidate->IsPresent()) {
            *child = candidate->number;
            return CR_SUCCESS;
        }
    }
    return CR_NO_SUCH_DEVNODE;
}

CONFIGRET CM_Get_Sibling(PDEVINST sibling, DEVINST node, ULONG flags) {
    SIM_CALL("CM_Get_Sibling", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_FAILURE);
    CheckFlags("CM_Get_Sibling", flags, 0);
    DeviceNode* found = nullptr;
    if (const CONFIGRET failure = FindPresent(node, simCall.error, &found)) {
        return failure;
    }
    if (!found->parent) {
        return CR_NO_SUCH_DEVNODE;
    }
    const auto& siblings = found->parent->children; // by number
    auto next = std::upper_bound(siblings.begin(), siblings.end(), found,
                                 [](const DeviceNode* a, const DeviceNode* b) { return a->number < b->number; });
    next = std::find_if(next, siblings.end(), [](const DeviceNode* candidate) { return candidate->IsPresent(); });
    if (next == siblings.end()) {
        return CR_NO_SUCH_DEVNODE;
    }
    *sibling = (*next)->number;
    return CR_SUCCESS;
}

CONFIGRET CM_Get_Device_IDA(DEVINST node, PSTR buffer, ULONG size, ULONG flags) {
    SIM_CALL("CM_Get_Device_IDA", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_BUFFER_SMALL, CR_FAILURE);
    CheckFlags("CM_Get_Device_IDA", flags, 0);
    if (simCall.error) {
        return simCall.error;
    }
    const DeviceNode* found = TheDeviceTree().Find(node);
    if (!found) {
        return Missing(node);
    }
    if (!buffer) {
        return CR_INVALID_POINTER;
    }
    if (size < found->id.size() + 1) {
        return CR_BUFFER_SMALL;
    }
    std::memcpy(buffer, found->id.c_str(), found->id.size() + 1);
    return CR_SUCCESS;
}

CONFIGRET CM_Get_DevNode_Status(PULONG status, PULONG problem, DEVINST node, ULONG flags) {
    SIM_CALL("CM_Get_DevNode_Status", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_FAILURE);
    CheckFlags("CM_Get_DevNode_Status", flags, 0);
    DeviceNode* found = nullptr;
    if (const CONFIGRET failure = FindPresent(node, simCall.error, &found)) {
        return failure;
    }
    if (!status || !problem) {
        return CR_INVALID_POINTER;
    }
    *status = StatusOf(*found);
    *problem = found->problem;
    return CR_SUCCESS;
}

CONFIGRET CM_Get_DevNode_Registry_PropertyA(DEVINST node, ULONG property, PULONG type, PVOID buffer, PULONG size,
                                            ULONG flags) {
    SIM_CALL("CM_Get_DevNode_Registry_PropertyA", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_NO_SUCH_VALUE,
             CR_BUFFER_SMALL, CR_REGISTRY_ERROR, CR_FAILURE);
    CheckFlags("CM_Get_DevNode_Registry_PropertyA", flags, 0);
    return simCall.error ? simCall.error : GetProperty(node, property, type, buffer, size, false);
}

CONFIGRET CM_Get_DevNode_Registry_PropertyW(DEVINST node, ULONG property, PULONG type, PVOID buffer, PULONG size,
                                            ULONG flags) {
    SIM_CALL("CM_Get_DevNode_Registry_PropertyW", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_NO_SUCH_VALUE,
             CR_BUFFER_SMALL, CR_REGISTRY_ERROR, CR_FAILURE);
    CheckFlags("CM_Get_DevNode_Registry_PropertyW", flags, 0);
    return simCall.error ? simCall.error : GetProperty(node, property, type, buffer, size, true);
}

CONFIGRET CM_Get_First_Log_Conf(PLOG_CONF configuration, DEVINST node, ULONG flags) {
    SIM_CALL("CM_Get_First_Log_Conf", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_NO_MORE_LOG_CONF,
             CR_FAILURE);
    DeviceNode* found = nullptr;
    if (const CONFIGRET failure = FindPresent(node, simCall.error, &found)) {
        return failure;
    }
    if (flags != ALLOC_LOG_CONF && flags != BOOT_LOG_CONF) {
        NotModelled("CM_Get_First_Log_Conf", "a configuration that is neither the allocated nor the boot one");
    }
    // Allocated resources go with the driver; what the firmware set up stays.
    if ((!found->irq && !found->ioPort) || (flags == ALLOC_LOG_CONF && !found->IsRunning())) {
        return CR_NO_MORE_LOG_CONF;
    }
    if (configuration) {
        *configuration = NewResourceHandle(found, ResType_All);
    }
    return CR_SUCCESS;
}

CONFIGRET CM_Free_Log_Conf_Handle(LOG_CONF configuration) {
    SIM_CALL("CM_Free_Log_Conf_Handle", IdOfResource(configuration), CR_INVALID_LOG_CONF);
    return simCall.error ? simCall.error : FreeResource(configuration, /*isConfiguration=*/true, CR_INVALID_LOG_CONF);
}

CONFIGRET CM_Get_Next_Res_Des(PRES_DES descriptor, RES_DES previous, RESOURCEID type, PRESOURCEID found, ULONG flags) {
    SIM_CALL("CM_Get_Next_Res_Des", IdOfResource(previous), CR_NO_MORE_RES_DES, CR_INVALID_RES_DES, CR_FAILURE);
    CheckFlags("CM_Get_Next_Res_Des", flags, 0);
    if (simCall.error) {
        return simCall.error;
    }
    const ResourceHandle* from = FindResource(previous);
    if (!from) {
        return CR_INVALID_RES_DES;
    }
    if (type != ResType_IO && type != ResType_IRQ) {
        NotModelled("CM_Get_Next_Res_Des", "a resource that is neither an I/O range nor an interrupt");
    }
    // There is at most one descriptor of a type, so none after one of this type.
    if (from->type == type || !HasResource(*from->node, type)) {
        return CR_NO_MORE_RES_DES;
    }
    if (found) {
        *found = type;
    }
    *descriptor = NewResourceHandle(from->node, type);
    return CR_SUCCESS;
}

CONFIGRET CM_Free_Res_Des_Handle(RES_DES descriptor) {
    SIM_CALL("CM_Free_Res_Des_Handle", IdOfResource(descriptor), CR_INVALID_RES_DES);
    return simCall.error ? simCall.error : FreeResource(descriptor, /*isConfiguration=*/false, CR_INVALID_RES_DES);
}

CONFIGRET CM_Get_Res_Des_Data_Size(PULONG size, RES_DES descriptor, ULONG flags) {
    SIM_CALL("CM_Get_Res_Des_Data_Size", IdOfResource(descriptor), CR_INVALID_RES_DES, CR_FAILURE);
    CheckFlags("CM_Get_Res_Des_Data_Size", flags, 0);
    if (simCall.error) {
        return simCall.error;
    }
    const ResourceHandle* found = FindResource(descriptor);
    if (!found || found->type == ResType_All) {
        return CR_INVALID_RES_DES;
    }
    *size = found->type == ResType_IO ? sizeof(IO_DES) : sizeof(IRQ_DES);
    return CR_SUCCESS;
}

CONFIGRET CM_Get_Res_Des_Data(RES_DES descriptor, PVOID buffer, ULONG size, ULONG flags) {
    SIM_CALL("CM_Get_Res_Des_Data", IdOfResource(descriptor), CR_INVALID_RES_DES, CR_BUFFER_SMALL, CR_FAILURE);
    CheckFlags("CM_Get_Res_Des_Data", flags, 0);
    if (simCall.error) {
        return simCall.error;
    }
    constexpr DWORDLONG LastOfSerial = 7; // a serial port has eight registers
    const ResourceHandle* found = FindResource(descriptor);
    if (!found || found->type == ResType_All) {
        return CR_INVALID_RES_DES;
    }
    if (found->type == ResType_IO) {
        const DWORDLONG base = found->node->ioPort.value_or(0);
        const IO_DES io = {0, 0, base, base + LastOfSerial, 1};
        if (size < sizeof(io)) {
            return CR_BUFFER_SMALL;
        }
        std::memcpy(buffer, &io, sizeof(io));
        return CR_SUCCESS;
    }
    const IRQ_DES irq = {0, 0, 0, found->node->irq.value_or(0), ~0ull};
    if (size < sizeof(irq)) {
        return CR_BUFFER_SMALL;
    }
    std::memcpy(buffer, &irq, sizeof(irq));
    return CR_SUCCESS;
}

static CONFIGRET ChangeByNode(DEVINST node, DWORD change, CONFIGRET injected) {
    DeviceNode* found = PresentNode(node);
    if (!found) {
        return injected ? injected : Missing(node);
    }
    if (injected || !MayChangeDevices()) {
        NoteFailedRestart(*found, MeansOfChange(change));
        return injected ? injected : CR_ACCESS_DENIED;
    }
    return ChangeDeviceState(*found, change) == 0 ? CR_SUCCESS : CR_FAILURE;
}

CONFIGRET CM_Disable_DevNode(DEVINST node, ULONG flags) {
    SIM_CALL("CM_Disable_DevNode", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_ACCESS_DENIED,
             CR_NOT_DISABLEABLE, CR_REMOVE_VETOED, CR_NEED_RESTART, CR_FAILURE);
    CheckFlags("CM_Disable_DevNode", flags, 0);
    return ChangeByNode(node, DICS_DISABLE, simCall.error);
}

CONFIGRET CM_Enable_DevNode(DEVINST node, ULONG flags) {
    SIM_CALL("CM_Enable_DevNode", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_ACCESS_DENIED, CR_NEED_RESTART,
             CR_FAILURE);
    CheckFlags("CM_Enable_DevNode", flags, 0);
    return ChangeByNode(node, DICS_ENABLE, simCall.error);
}

CONFIGRET CM_Setup_DevNode(DEVINST node, ULONG flags) {
    SIM_CALL("CM_Setup_DevNode", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_ACCESS_DENIED, CR_INVALID_FLAG,
             CR_FAILURE);
    if (simCall.error) {
        if (const DeviceNode* asked = PresentNode(node)) {
            NoteFailedRestart(*asked, "remove-and-setup");
        }
        return simCall.error;
    }
    DeviceNode* found = PresentNode(node);
    if (!found) {
        return Missing(node);
    }
    if (!MayChangeDevices()) {
        return CR_ACCESS_DENIED;
    }
    if (flags == CM_SETUP_DEVNODE_READY || flags == CM_SETUP_DEVNODE_RESET) {
        SetUpDevice(*found);
    } else if (flags != CM_SETUP_PROP_CHANGE) {
        NotModelled("CM_Setup_DevNode", "flags other than ready, reset and property change");
    }
    return CR_SUCCESS;
}

CONFIGRET CM_Reenumerate_DevNode_Ex(DEVINST node, ULONG flags, HMACHINE remote) {
    SIM_CALL("CM_Reenumerate_DevNode_Ex", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_ACCESS_DENIED,
             CR_FAILURE);
    if (simCall.error) {
        if (const DeviceNode* asked = PresentNode(node)) {
            NoteFailedRestart(*asked, "reenumerate");
        }
        return simCall.error;
    }
    if (remote) {
        NotModelled("CM_Reenumerate_DevNode_Ex", "another machine");
    }
    CheckFlags("CM_Reenumerate_DevNode_Ex", flags, 0);
    DeviceNode* found = PresentNode(node);
    if (!found) {
        return Missing(node);
    }
    if (!MayChangeDevices()) {
        return CR_ACCESS_DENIED;
    }
    ReenumerateDevice(*found);
    return CR_SUCCESS;
}

CONFIGRET CM_Query_And_Remove_SubTreeW(DEVINST node, PPNP_VETO_TYPE vetoType, LPWSTR vetoName, ULONG nameLength,
                                       ULONG flags) {
    SIM_CALL("CM_Query_And_Remove_SubTreeW", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_ACCESS_DENIED,
             CR_REMOVE_VETOED, CR_FAILURE);
    CheckFlags("CM_Query_And_Remove_SubTreeW", flags, CM_REMOVE_NO_RESTART);
    if (simCall.error) {
        if (const DeviceNode* asked = PresentNode(node)) {
            NoteFailedRestart(*asked, "remove-and-setup");
        }
        return simCall.error;
    }
    DeviceNode* found = PresentNode(node);
    if (!found) {
        return Missing(node);
    }
    if (!MayChangeDevices()) {
        return CR_ACCESS_DENIED;
    }
    const RemovalVeto veto = QueryAndRemove(*found);
    if (!veto.refusing) {
        return CR_SUCCESS;
    }
    GiveVeto(veto, vetoType, vetoName, nameLength);
    return CR_REMOVE_VETOED;
}

CONFIGRET CM_Request_Device_EjectW(DEVINST node, PPNP_VETO_TYPE vetoType, LPWSTR vetoName, ULONG nameLength,
                                   ULONG flags) {
    SIM_CALL("CM_Request_Device_EjectW", IdOf(node), CR_NO_SUCH_DEVNODE, CR_INVALID_DEVNODE, CR_ACCESS_DENIED,
             CR_REMOVE_VETOED, CR_FAILURE);
    CheckFlags("CM_Request_Device_EjectW", flags, 0);
    DeviceNode* found = nullptr;
    if (const CONFIGRET failure = FindPresent(node, simCall.error, &found)) {
        return failure;
    }
    const RemovalVeto veto = EjectDevice(*found);
    if (!veto.refusing) {
        return CR_SUCCESS;
    }
    GiveVeto(veto, vetoType, vetoName, nameLength);
    return CR_REMOVE_VETOED;
}

DWORD CMP_WaitNoPendingInstallEvents(DWORD ms) {
    SIM_CALL("CMP_WaitNoPendingInstallEvents", "", WAIT_TIMEOUT);
    if (simCall.error) {
        return simCall.error;
    }
    return WaitForInstalls(ms) ? 0 : WAIT_TIMEOUT;
}

} // namespace simwin
