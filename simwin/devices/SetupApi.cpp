// SetupDi...: lists of devices and interfaces, and the class installer. A list is made once and holds its entries in
// the order of the registry, as Windows reads them there, so that each of them is reached by its index at once.
#include "simwin/devices/ClassInstaller.h"
#include "simwin/devices/Properties.h"
#include "simwin/devices/api.h"
#include "simwin/devices/drivers/Notifications.h"
#include "simwin/devices/drivers/PlugAndPlay.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>

namespace machine {

using namespace simwin;

namespace {
struct ListEntry {
    DeviceNode* node;
    DeviceInterface* deviceInterface; // null in a list of devices
};

// What was set for the class installer of one device.
struct InstallParams {
    DWORD function = 0, change = 0;
};

struct DeviceList : Object {
    DeviceList() : Object(ObjectKind::DeviceList) {}
    std::vector<ListEntry> entries;
    std::string interfaceClass;            // "": all, or a list of devices
    std::map<DWORD, InstallParams> params; // by node
    std::size_t opened = 0;                // entries before this one came with the list
};
} // namespace

static GUID ClassGuidOf(const DeviceNode& node) {
    GUID guid{};
    GuidFromText(DeviceText(node, "ClassGUID"), guid);
    return guid;
}

static DeviceList* ListOf(HDEVINFO handle) {
    auto* list = FromHandle<DeviceList>(handle, ObjectKind::DeviceList);
    if (!list) {
        SetError(ERROR_INVALID_HANDLE);
    }
    return list;
}

static bool HasSize(DWORD given, std::size_t wanted) {
    if (given == wanted) {
        return true;
    }
    SetError(ERROR_INVALID_USER_BUFFER);
    return false;
}

static bool IsGiven(const void* record) {
    if (!record) {
        SetError(ERROR_INVALID_PARAMETER);
    }
    return record;
}

static void GiveDevice(const ListEntry& entry, std::size_t index, SP_DEVINFO_DATA& device) {
    device.ClassGuid = ClassGuidOf(*entry.node);
    device.DevInst = entry.node->number;
    device.Reserved = index + 1;
}

// The entry that a device record stands for; null, with the last error, if it is not in this list.
static const ListEntry* EntryOf(const DeviceList& list, const SP_DEVINFO_DATA* device) {
    if (!IsGiven(device) || !HasSize(device->cbSize, sizeof(*device))) {
        return nullptr;
    }
    if (device->Reserved - 1 < list.entries.size() &&
        list.entries[device->Reserved - 1].node->number == device->DevInst) {
        return &list.entries[device->Reserved - 1];
    }
    SetError(ERROR_INVALID_PARAMETER);
    return nullptr;
}

static const ListEntry* EntryOf(const DeviceList& list, const SP_DEVICE_INTERFACE_DATA* data) {
    if (!IsGiven(data) || !HasSize(data->cbSize, sizeof(*data))) {
        return nullptr;
    }
    if (data->Reserved - 1 < list.entries.size() && list.entries[data->Reserved - 1].deviceInterface) {
        return &list.entries[data->Reserved - 1];
    }
    SetError(ERROR_INVALID_PARAMETER);
    return nullptr;
}

// Null, with the last error, also for a device that was uninstalled since the list was made.
static const ListEntry* InstalledEntry(HDEVINFO handle, const SP_DEVINFO_DATA* device) {
    const DeviceList* list = ListOf(handle);
    const ListEntry* entry = list ? EntryOf(*list, device) : nullptr;
    if (entry && entry->node->uninstalled) {
        SetError(ERROR_NO_SUCH_DEVINST);
        return nullptr;
    }
    return entry;
}

static void GiveInterface(const ListEntry& entry, std::size_t index, SP_DEVICE_INTERFACE_DATA& data) {
    GuidFromText(entry.deviceInterface->classGuid, data.InterfaceClassGuid);
    data.Flags = entry.deviceInterface->up ? SPINT_ACTIVE : 0;
    data.Reserved = index + 1;
}

// What a call is applied to, for the trace and the faults, in lasting memory.
static const char* IdOf(const SP_DEVINFO_DATA* device) {
    const DeviceNode* node = device ? TheDeviceTree().Find(device->DevInst) : nullptr;
    return node ? node->id.c_str() : "";
}

static const char* PathOf(HDEVINFO handle, const SP_DEVICE_INTERFACE_DATA* data) {
    const auto* list = FromHandle<DeviceList>(handle, ObjectKind::DeviceList);
    const bool known = list && data && data->Reserved - 1 < list->entries.size();
    const DeviceInterface* found = known ? list->entries[data->Reserved - 1].deviceInterface : nullptr;
    return found ? found->path.c_str() : "";
}

static void AddInterfaces(DeviceList& list, const InterfaceKeys& interfaces, bool presentOnly) {
    list.entries.reserve(list.entries.size() + interfaces.size());
    for (const auto& [key, deviceInterface] : interfaces) {
        if (!deviceInterface->node->uninstalled && (presentOnly ? deviceInterface->up : deviceInterface->registered)) {
            list.entries.push_back({deviceInterface->node, deviceInterface});
        }
    }
}

static void AddAllInterfaces(DeviceList& list, bool presentOnly) {
    for (const auto& [classGuid, interfaces] : TheDeviceTree().InterfaceClasses()) {
        AddInterfaces(list, interfaces, presentOnly);
    }
}

static void AddDevices(DeviceList& list, const std::string& setupClass, bool presentOnly) {
    for (DeviceNode* node : TheDeviceTree().AllByRegistry()) {
        if ((node->installed || node->IsPresent()) && (!presentOnly || node->IsPresent()) &&
            (setupClass.empty() || EqualNoCase(DeviceText(*node, "ClassGUID"), setupClass))) {
            list.entries.push_back({node, nullptr});
        }
    }
}

} // namespace machine

namespace simwin {

using namespace machine;

HDEVINFO SetupDiGetClassDevsA(const GUID* classGuid, PCSTR enumerator, HWND, DWORD flags) {
    SIM_CALL("SetupDiGetClassDevsA", LastingGuidText(classGuid), ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY,
             ERROR_INVALID_DATA, ERROR_INVALID_PARAMETER);
    if (simCall.error) {
        SetError(simCall.error);
        return INVALID_HANDLE_VALUE;
    }
    constexpr DWORD Known = DIGCF_PRESENT | DIGCF_ALLCLASSES | DIGCF_DEVICEINTERFACE;
    if (flags & ~Known) {
        NotModelled("SetupDiGetClassDevsA", "flags for default interfaces or a hardware profile");
    }
    if (enumerator) {
        NotModelled("SetupDiGetClassDevsA", "an enumerator");
    }
    if (!classGuid && !(flags & DIGCF_ALLCLASSES)) {
        SetError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    auto* list = new DeviceList;
    const bool presentOnly = flags & DIGCF_PRESENT;
    const std::string guid = classGuid && !(flags & DIGCF_ALLCLASSES) ? GuidText(*classGuid) : std::string();
    if (!(flags & DIGCF_DEVICEINTERFACE)) {
        AddDevices(*list, guid, presentOnly);
    } else if (guid.empty()) {
        AddAllInterfaces(*list, presentOnly);
    } else if (const InterfaceKeys* interfaces = TheDeviceTree().InterfacesOf(guid)) {
        AddInterfaces(*list, *interfaces, presentOnly);
    }
    if (flags & DIGCF_DEVICEINTERFACE) {
        list->interfaceClass = guid;
    }
    list->opened = list->entries.size();
    return CurrentProcess()->handles.Open(list);
}

HDEVINFO SetupDiCreateDeviceInfoList(const GUID*, HWND) {
    SIM_CALL("SetupDiCreateDeviceInfoList", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        SetError(simCall.error);
        return INVALID_HANDLE_VALUE;
    }
    return CurrentProcess()->handles.Open(new DeviceList);
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO handle) {
    SIM_CALL("SetupDiDestroyDeviceInfoList", "", ERROR_INVALID_HANDLE);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    return ListOf(handle) && CurrentProcess()->handles.Close(handle);
}

BOOL SetupDiEnumDeviceInfo(HDEVINFO handle, DWORD index, PSP_DEVINFO_DATA device) {
    SIM_CALL("SetupDiEnumDeviceInfo", "", ERROR_INVALID_HANDLE, ERROR_NO_MORE_ITEMS, ERROR_INVALID_PARAMETER);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    const machine::DeviceList* list = ListOf(handle);
    if (!list || !IsGiven(device) || !HasSize(device->cbSize, sizeof(*device))) {
        return FALSE;
    }
    if (index >= list->entries.size()) {
        SetError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    GiveDevice(list->entries[index], index, *device);
    return TRUE;
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO handle, PSP_DEVINFO_DATA device, const GUID* interfaceClass, DWORD index,
                                 PSP_DEVICE_INTERFACE_DATA data) {
    SIM_CALL("SetupDiEnumDeviceInterfaces", "", ERROR_INVALID_HANDLE, ERROR_NO_MORE_ITEMS, ERROR_INVALID_PARAMETER);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    const machine::DeviceList* list = ListOf(handle);
    if (!list || !IsGiven(data) || !HasSize(data->cbSize, sizeof(*data))) {
        return FALSE;
    }
    if (!interfaceClass) {
        SetError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string guid = GuidText(*interfaceClass);
    // The usual walk over a list of this very class: by index.
    if (!device && list->interfaceClass == guid && list->opened == list->entries.size()) {
        if (index < list->entries.size()) {
            GiveInterface(list->entries[index], index, *data);
            return TRUE;
        }
        SetError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    const ListEntry* wanted = device ? EntryOf(*list, device) : nullptr;
    if (device && !wanted) {
        return FALSE;
    }
    DWORD skipped = 0;
    for (std::size_t i = 0; i < list->entries.size(); ++i) {
        const ListEntry& entry = list->entries[i];
        if (!entry.deviceInterface || entry.deviceInterface->classGuid != guid ||
            (wanted && wanted->node != entry.node)) {
            continue;
        }
        if (skipped++ == index) {
            GiveInterface(entry, i, *data);
            return TRUE;
        }
    }
    SetError(ERROR_NO_MORE_ITEMS);
    return FALSE;
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO handle, PSP_DEVICE_INTERFACE_DATA data,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_A detail, DWORD size, PDWORD needed,
                                      PSP_DEVINFO_DATA device) {
    SIM_CALL("SetupDiGetDeviceInterfaceDetailA", PathOf(handle, data), ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER,
             ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_DATA, ERROR_NO_SUCH_DEVICE_INTERFACE);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    const machine::DeviceList* list = ListOf(handle);
    const ListEntry* entry = list ? EntryOf(*list, data) : nullptr;
    if (!entry || (device && !HasSize(device->cbSize, sizeof(*device))) ||
        (detail && !HasSize(detail->cbSize, sizeof(*detail)))) {
        return FALSE;
    }
    if (!detail && size) {
        SetError(ERROR_INVALID_USER_BUFFER);
        return FALSE;
    }
    if (device) {
        GiveDevice(*entry, data->Reserved - 1, *device);
    }
    const std::string& path = entry->deviceInterface->path;
    const auto room = static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) + path.size() + 1);
    if (needed) {
        *needed = room;
    }
    if (!detail || size < room) {
        SetError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(reinterpret_cast<char*>(detail) + offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath), path.c_str(),
                path.size() + 1);
    return TRUE;
}

BOOL SetupDiOpenDeviceInterfaceA(HDEVINFO handle, PCSTR path, DWORD flags, PSP_DEVICE_INTERFACE_DATA data) {
    SIM_CALL("SetupDiOpenDeviceInterfaceA", path ? path : "", ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER,
             ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SUCH_DEVICE_INTERFACE);
    if (flags) {
        NotModelled("SetupDiOpenDeviceInterfaceA", "flags");
    }
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    machine::DeviceList* list = ListOf(handle);
    if (!list || (data && !HasSize(data->cbSize, sizeof(*data)))) {
        return FALSE;
    }
    const std::string_view whole = path ? path : "";
    DeviceInterface* found = whole.size() > 4 ? TheDeviceTree().FindInterface(whole.substr(4)) : nullptr;
    if (!found || !found->registered) {
        SetError(ERROR_NO_SUCH_DEVICE_INTERFACE);
        return FALSE;
    }
    list->entries.push_back({found->node, found});
    if (data) {
        GiveInterface(list->entries.back(), list->entries.size() - 1, *data);
    }
    return TRUE;
}

BOOL SetupDiGetDeviceRegistryPropertyA(HDEVINFO handle, PSP_DEVINFO_DATA device, DWORD property, PDWORD type,
                                       PBYTE buffer, DWORD size, PDWORD needed) {
    SIM_CALL("SetupDiGetDeviceRegistryPropertyA", IdOf(device), ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER,
             ERROR_INVALID_DATA, ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SUCH_DEVINST);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    const ListEntry* entry = InstalledEntry(handle, device);
    if (!entry) {
        return FALSE;
    }
    constexpr DWORD FirstUnknown = 0x25, InvalidProperty = 0xE0000209;
    if (property >= FirstUnknown) {
        SetError(InvalidProperty);
        return FALSE;
    }
    const std::optional<DeviceProperty> found = ReadDeviceProperty(*entry->node, property + 1, false);
    if (!found) {
        SetError(ERROR_INVALID_DATA);
        return FALSE;
    }
    if (type) {
        *type = found->type;
    }
    if (needed) {
        *needed = static_cast<DWORD>(found->data.size());
    }
    if (!buffer || size < found->data.size()) {
        SetError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, found->data.data(), found->data.size());
    return TRUE;
}

BOOL SetupDiSetClassInstallParamsA(HDEVINFO handle, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD size) {
    SIM_CALL("SetupDiSetClassInstallParamsA", IdOf(device), ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER,
             ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    machine::DeviceList* list = ListOf(handle);
    const ListEntry* entry = list ? EntryOf(*list, device) : nullptr;
    if (!entry) {
        return FALSE;
    }
    InstallParams set;
    if (params) {
        if (size < sizeof(*params) || !HasSize(params->cbSize, sizeof(*params))) {
            return FALSE;
        }
        set.function = params->InstallFunction;
        const bool isChange = set.function == DIF_PROPERTYCHANGE;
        if (!isChange && set.function != DIF_REMOVE) {
            NotModelled("SetupDiSetClassInstallParamsA", "parameters other than for a property change or a removal");
        }
        if (size < (isChange ? sizeof(SP_PROPCHANGE_PARAMS) : sizeof(SP_REMOVEDEVICE_PARAMS))) {
            SetError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        const auto* change = reinterpret_cast<const SP_PROPCHANGE_PARAMS*>(params);
        set.change = isChange ? change->StateChange : 0;
        const DWORD scope = isChange ? change->Scope : reinterpret_cast<const SP_REMOVEDEVICE_PARAMS*>(params)->Scope;
        if (scope != DICS_FLAG_GLOBAL) {
            NotModelled("SetupDiSetClassInstallParamsA", "a hardware profile");
        }
    }
    list->params[entry->node->number] = set;
    return TRUE;
}

BOOL SetupDiCallClassInstaller(DI_FUNCTION function, HDEVINFO handle, PSP_DEVINFO_DATA device) {
    SIM_CALL("SetupDiCallClassInstaller", IdOf(device), ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER,
             ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_DRIVER_SELECTED, ERROR_NO_SUCH_DEVINST);
    const machine::DeviceList* list = ListOf(handle);
    const ListEntry* entry = list ? EntryOf(*list, device) : nullptr;
    if (!entry) {
        return FALSE;
    }
    DeviceNode* node = entry->node; // the list may be gone when the device has started
    const auto params = list->params.find(node->number);
    if (params == list->params.end() || params->second.function != function) {
        SetError(ERROR_NO_CLASSINSTALL_PARAMS);
        return FALSE;
    }
    const DWORD change = params->second.change;
    if (simCall.error || !MayChangeDevices()) {
        if (function == DIF_PROPERTYCHANGE) {
            NoteFailedRestart(*node, MeansOfChange(change));
        }
        SetError(simCall.error ? simCall.error : ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (function == DIF_REMOVE) {
        UninstallNode(*node, Cause::Product);
        return TRUE;
    }
    if (const DWORD error = ChangeDeviceState(*node, change)) {
        SetError(error);
        return FALSE;
    }
    return TRUE;
}

BOOL SetupDiRemoveDevice(HDEVINFO handle, PSP_DEVINFO_DATA device) {
    SIM_CALL("SetupDiRemoveDevice", IdOf(device), ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER, ERROR_ACCESS_DENIED,
             ERROR_NO_SUCH_DEVINST);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    const ListEntry* entry = InstalledEntry(handle, device);
    if (!entry) {
        return FALSE;
    }
    if (!MayChangeDevices()) {
        SetError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    UninstallNode(*entry->node, Cause::Product);
    return TRUE;
}

} // namespace simwin
