// Devices: the configuration manager, the setup API, DOS names, device notifications and the requests to USB hubs.
// Names, values and layouts are those of the 64-bit SDK. Each operation says which errors it can give; those, and only
// those, a description may inject.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Configuration manager: results.
using CONFIGRET = DWORD;
using DEVINST = DWORD;
using PDEVINST = DEVINST*;
using DEVNODE = DWORD;
using HMACHINE = HANDLE;
inline constexpr CONFIGRET CR_SUCCESS = 0x00;
inline constexpr CONFIGRET CR_DEFAULT = 0x01;
inline constexpr CONFIGRET CR_OUT_OF_MEMORY = 0x02;
inline constexpr CONFIGRET CR_INVALID_POINTER = 0x03;
inline constexpr CONFIGRET CR_INVALID_FLAG = 0x04;
inline constexpr CONFIGRET CR_INVALID_DEVNODE = 0x05;
inline constexpr CONFIGRET CR_INVALID_DEVINST = 0x05;
inline constexpr CONFIGRET CR_INVALID_RES_DES = 0x06;
inline constexpr CONFIGRET CR_INVALID_LOG_CONF = 0x07;
inline constexpr CONFIGRET CR_INVALID_RESOURCEID = 0x0B;
inline constexpr CONFIGRET CR_NO_SUCH_DEVNODE = 0x0D;
inline constexpr CONFIGRET CR_NO_SUCH_DEVINST = 0x0D;
inline constexpr CONFIGRET CR_NO_MORE_LOG_CONF = 0x0E;
inline constexpr CONFIGRET CR_NO_MORE_RES_DES = 0x0F;
inline constexpr CONFIGRET CR_FAILURE = 0x13;
inline constexpr CONFIGRET CR_REMOVE_VETOED = 0x17;
inline constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
inline constexpr CONFIGRET CR_REGISTRY_ERROR = 0x1D;
inline constexpr CONFIGRET CR_NEED_RESTART = 0x22;
inline constexpr CONFIGRET CR_DEVICE_NOT_THERE = 0x24;
inline constexpr CONFIGRET CR_NO_SUCH_VALUE = 0x25;
inline constexpr CONFIGRET CR_NOT_DISABLEABLE = 0x28;
inline constexpr CONFIGRET CR_ACCESS_DENIED = 0x33;
inline constexpr CONFIGRET CR_INVALID_PROPERTY = 0x35;

// --- Configuration manager: problem numbers and status bits of a device node.
inline constexpr ULONG CM_PROB_NOT_CONFIGURED = 1;
inline constexpr ULONG CM_PROB_FAILED_START = 10;
inline constexpr ULONG CM_PROB_REINSTALL = 18;
inline constexpr ULONG CM_PROB_WILL_BE_REMOVED = 21;
inline constexpr ULONG CM_PROB_DISABLED = 22;
inline constexpr ULONG CM_PROB_DEVICE_NOT_THERE = 24;
inline constexpr ULONG CM_PROB_FAILED_INSTALL = 28;
inline constexpr ULONG CM_PROB_FAILED_ADD = 31;
inline constexpr ULONG CM_PROB_FAILED_POST_START = 43;
inline constexpr ULONG CM_PROB_PHANTOM = 45;
inline constexpr ULONG CM_PROB_HELD_FOR_EJECT = 47;
inline constexpr ULONG CM_PROB_DEVICE_RESET = 54;
inline constexpr ULONG DN_ROOT_ENUMERATED = 0x00000001;
inline constexpr ULONG DN_DRIVER_LOADED = 0x00000002;
inline constexpr ULONG DN_ENUM_LOADED = 0x00000004;
inline constexpr ULONG DN_STARTED = 0x00000008;
inline constexpr ULONG DN_HAS_PROBLEM = 0x00000400;
inline constexpr ULONG DN_DISABLEABLE = 0x00002000;
inline constexpr ULONG DN_REMOVABLE = 0x00004000;
inline constexpr ULONG DN_WILL_BE_REMOVED = 0x00040000;
inline constexpr ULONG DN_NT_ENUMERATOR = 0x00800000;
inline constexpr ULONG DN_NT_DRIVER = 0x01000000;

// --- Configuration manager: properties of a node, CM_DRP_ from 1, SPDRP_ of the setup API from 0 in the same order.
inline constexpr ULONG CM_DRP_DEVICEDESC = 0x01;
inline constexpr ULONG CM_DRP_HARDWAREID = 0x02;
inline constexpr ULONG CM_DRP_COMPATIBLEIDS = 0x03;
inline constexpr ULONG CM_DRP_SERVICE = 0x05;
inline constexpr ULONG CM_DRP_CLASS = 0x08;
inline constexpr ULONG CM_DRP_CLASSGUID = 0x09;
inline constexpr ULONG CM_DRP_DRIVER = 0x0A;
inline constexpr ULONG CM_DRP_CONFIGFLAGS = 0x0B;
inline constexpr ULONG CM_DRP_MFG = 0x0C;
inline constexpr ULONG CM_DRP_FRIENDLYNAME = 0x0D;
inline constexpr ULONG CM_DRP_LOCATION_INFORMATION = 0x0E;
inline constexpr ULONG CM_DRP_PHYSICAL_DEVICE_OBJECT_NAME = 0x0F;
inline constexpr ULONG CM_DRP_CAPABILITIES = 0x10;
inline constexpr ULONG CM_DRP_ENUMERATOR_NAME = 0x17;
inline constexpr ULONG CM_DRP_ADDRESS = 0x1D;
inline constexpr ULONG CM_DRP_LOCATION_PATHS = 0x24;
inline constexpr DWORD SPDRP_DEVICEDESC = 0x00;
inline constexpr DWORD SPDRP_HARDWAREID = 0x01;
inline constexpr DWORD SPDRP_COMPATIBLEIDS = 0x02;
inline constexpr DWORD SPDRP_SERVICE = 0x04;
inline constexpr DWORD SPDRP_CLASS = 0x07;
inline constexpr DWORD SPDRP_CLASSGUID = 0x08;
inline constexpr DWORD SPDRP_DRIVER = 0x09;
inline constexpr DWORD SPDRP_CONFIGFLAGS = 0x0A;
inline constexpr DWORD SPDRP_MFG = 0x0B;
inline constexpr DWORD SPDRP_FRIENDLYNAME = 0x0C;
inline constexpr DWORD SPDRP_LOCATION_INFORMATION = 0x0D;
inline constexpr DWORD SPDRP_PHYSICAL_DEVICE_OBJECT_NAME = 0x0E;
inline constexpr DWORD SPDRP_CAPABILITIES = 0x0F;
inline constexpr DWORD SPDRP_ENUMERATOR_NAME = 0x16;
inline constexpr DWORD SPDRP_ADDRESS = 0x1C;
inline constexpr DWORD SPDRP_LOCATION_PATHS = 0x23;

// --- Configuration manager: the tree. A missing node gives CR_NO_SUCH_DEVNODE, number 0 CR_INVALID_DEVNODE.
CONFIGRET CM_Get_Parent(PDEVINST parent, DEVINST node, ULONG flags); // the root has none: CR_NO_SUCH_DEVNODE
CONFIGRET CM_Get_Child(PDEVINST child, DEVINST node, ULONG flags);   // the first in the order of enumeration
CONFIGRET CM_Get_Sibling(PDEVINST sibling, DEVINST node, ULONG flags);
// The instance id in ANSI with its zero; CR_BUFFER_SMALL if it does not fit. Works for absent devices too.
CONFIGRET CM_Get_Device_IDA(DEVINST node, PSTR buffer, ULONG size, ULONG flags);
// Fails with CR_NO_SUCH_DEVNODE for a device that is not there.
CONFIGRET CM_Get_DevNode_Status(PULONG status, PULONG problem, DEVINST node, ULONG flags);
// size: in bytes, before the room, afterwards what is needed. CR_NO_SUCH_VALUE without such a property,
// CR_BUFFER_SMALL if it does not fit. The A form gives texts in ANSI, the W form in UTF-16.
CONFIGRET CM_Get_DevNode_Registry_PropertyA(DEVINST node, ULONG property, PULONG type, PVOID buffer, PULONG size,
                                            ULONG flags);
CONFIGRET CM_Get_DevNode_Registry_PropertyW(DEVINST node, ULONG property, PULONG type, PVOID buffer, PULONG size,
                                            ULONG flags);

// --- Configuration manager: resources. A configuration and each descriptor is a handle that must be freed.
using LOG_CONF = DWORD_PTR;
using PLOG_CONF = LOG_CONF*;
using RES_DES = DWORD_PTR;
using PRES_DES = RES_DES*;
using RESOURCEID = ULONG;
using PRESOURCEID = RESOURCEID*;
inline constexpr ULONG ALLOC_LOG_CONF = 2;
inline constexpr ULONG BOOT_LOG_CONF = 3;
inline constexpr RESOURCEID ResType_All = 0;
inline constexpr RESOURCEID ResType_Mem = 1;
inline constexpr RESOURCEID ResType_IO = 2;
inline constexpr RESOURCEID ResType_DMA = 3;
inline constexpr RESOURCEID ResType_IRQ = 4;
#pragma pack(push, 1)
struct IO_DES {
    DWORD IOD_Count;
    DWORD IOD_Type;
    DWORDLONG IOD_Alloc_Base;
    DWORDLONG IOD_Alloc_End;
    DWORD IOD_DesFlags;
};
struct IRQ_DES {
    DWORD IRQD_Count;
    DWORD IRQD_Type;
    DWORD IRQD_Flags;
    ULONG IRQD_Alloc_Num;
    ULONG64 IRQD_Affinity;
};
#pragma pack(pop)
using IRQ_DES_64 = IRQ_DES;
static_assert(sizeof(IO_DES) == 28 && sizeof(IRQ_DES) == 24);
// CR_NO_MORE_LOG_CONF for a device without resources (of which only ALLOC_LOG_CONF and BOOT_LOG_CONF are known).
CONFIGRET CM_Get_First_Log_Conf(PLOG_CONF configuration, DEVINST node, ULONG flags);
CONFIGRET CM_Free_Log_Conf_Handle(LOG_CONF configuration); // CR_INVALID_LOG_CONF
// previous: the configuration for its first descriptor of the type, or a descriptor. CR_NO_MORE_RES_DES at the end.
CONFIGRET CM_Get_Next_Res_Des(PRES_DES descriptor, RES_DES previous, RESOURCEID type, PRESOURCEID found, ULONG flags);
CONFIGRET CM_Free_Res_Des_Handle(RES_DES descriptor); // CR_INVALID_RES_DES
CONFIGRET CM_Get_Res_Des_Data_Size(PULONG size, RES_DES descriptor, ULONG flags);
CONFIGRET CM_Get_Res_Des_Data(RES_DES descriptor, PVOID buffer, ULONG size, ULONG flags); // CR_BUFFER_SMALL

// --- Configuration manager: stopping and starting. All of them block while devices stop and start.
inline constexpr ULONG CM_DISABLE_UI_NOT_OK = 4;
inline constexpr ULONG CM_REMOVE_UI_OK = 0;
inline constexpr ULONG CM_REMOVE_UI_NOT_OK = 1;
inline constexpr ULONG CM_REMOVE_NO_RESTART = 2;
inline constexpr ULONG CM_SETUP_DEVNODE_READY = 0;
inline constexpr ULONG CM_SETUP_DOWNLOAD = 1;
inline constexpr ULONG CM_SETUP_WRITE_LOG_CONFS = 2;
inline constexpr ULONG CM_SETUP_PROP_CHANGE = 3;
inline constexpr ULONG CM_SETUP_DEVNODE_RESET = 4;
inline constexpr ULONG CM_REENUMERATE_NORMAL = 0;
enum PNP_VETO_TYPE : int {
    PNP_VetoTypeUnknown = 0,
    PNP_VetoLegacyDevice,
    PNP_VetoPendingClose,
    PNP_VetoWindowsApp,
    PNP_VetoWindowsService,
    PNP_VetoOutstandingOpen,
    PNP_VetoDevice,
    PNP_VetoDriver,
    PNP_VetoIllegalDeviceRequest,
    PNP_VetoInsufficientPower,
    PNP_VetoNonDisableable,
    PNP_VetoLegacyDriver,
    PNP_VetoInsufficientRights,
    PNP_VetoAlreadyRemoved
};
using PPNP_VETO_TYPE = PNP_VETO_TYPE*;
CONFIGRET CM_Disable_DevNode(DEVINST node, ULONG flags); // leaves problem 22
CONFIGRET CM_Enable_DevNode(DEVINST node, ULONG flags);  // starts one with problem 22
// READY or RESET starts a node with problem 21, 22 or 24; PROP_CHANGE restarts a running one or starts one with 21.
CONFIGRET CM_Setup_DevNode(DEVINST node, ULONG flags);
CONFIGRET CM_Reenumerate_DevNode_Ex(DEVINST node, ULONG flags, HMACHINE machine); // starts the children
// CR_REMOVE_VETOED with the veto's type and the id of the device that refused; nothing has changed then. Otherwise the
// node stays with problem 21.
CONFIGRET CM_Query_And_Remove_SubTreeW(DEVINST node, PPNP_VETO_TYPE vetoType, LPWSTR vetoName, ULONG nameLength,
                                       ULONG flags);
// The same asking first; a removable node stays with problem 47 until it is unplugged. CR_FAILURE: not removable.
CONFIGRET CM_Request_Device_EjectW(DEVINST node, PPNP_VETO_TYPE vetoType, LPWSTR vetoName, ULONG nameLength,
                                   ULONG flags);
// Blocks until no device install is pending or for `ms`: 0, or WAIT_TIMEOUT.
DWORD CMP_WaitNoPendingInstallEvents(DWORD ms);

// --- Setup API: errors.
inline constexpr DWORD ERROR_CLASS_MISMATCH = 0xE0000201;
inline constexpr DWORD ERROR_NO_DRIVER_SELECTED = 0xE0000203; // what a refusing class installer gives here
inline constexpr DWORD ERROR_NO_SUCH_DEVINST = 0xE000020B;
inline constexpr DWORD ERROR_NO_CLASSINSTALL_PARAMS = 0xE0000215;
inline constexpr DWORD ERROR_NO_SUCH_DEVICE_INTERFACE = 0xE0000225;
inline constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;

// --- Setup API: records. cbSize is filled in by the caller and checked: error 1784 if it is wrong.
using DI_FUNCTION = UINT;
struct SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};
using PSP_DEVINFO_DATA = SP_DEVINFO_DATA*;
struct SP_DEVICE_INTERFACE_DATA {
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};
using PSP_DEVICE_INTERFACE_DATA = SP_DEVICE_INTERFACE_DATA*;
struct SP_DEVICE_INTERFACE_DETAIL_DATA_A {
    DWORD cbSize;
    CHAR DevicePath[1];
};
using PSP_DEVICE_INTERFACE_DETAIL_DATA_A = SP_DEVICE_INTERFACE_DETAIL_DATA_A*;
struct SP_CLASSINSTALL_HEADER {
    DWORD cbSize;
    DI_FUNCTION InstallFunction;
};
using PSP_CLASSINSTALL_HEADER = SP_CLASSINSTALL_HEADER*;
struct SP_PROPCHANGE_PARAMS {
    SP_CLASSINSTALL_HEADER ClassInstallHeader;
    DWORD StateChange;
    DWORD Scope;
    DWORD HwProfile;
};
using PSP_PROPCHANGE_PARAMS = SP_PROPCHANGE_PARAMS*;
struct SP_REMOVEDEVICE_PARAMS {
    SP_CLASSINSTALL_HEADER ClassInstallHeader;
    DWORD Scope;
    DWORD HwProfile;
};
using PSP_REMOVEDEVICE_PARAMS = SP_REMOVEDEVICE_PARAMS*;
static_assert(sizeof(SP_DEVINFO_DATA) == 32 && sizeof(SP_DEVICE_INTERFACE_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A) == 8 && sizeof(SP_PROPCHANGE_PARAMS) == 20 &&
              sizeof(SP_REMOVEDEVICE_PARAMS) == 16);
inline constexpr DWORD SPINT_ACTIVE = 1;
inline constexpr DWORD SPINT_DEFAULT = 2;
inline constexpr DWORD SPINT_REMOVED = 4;
inline constexpr DWORD DIGCF_DEFAULT = 1;
inline constexpr DWORD DIGCF_PRESENT = 2;
inline constexpr DWORD DIGCF_ALLCLASSES = 4;
inline constexpr DWORD DIGCF_PROFILE = 8;
inline constexpr DWORD DIGCF_DEVICEINTERFACE = 16;
inline constexpr DI_FUNCTION DIF_REMOVE = 0x05;
inline constexpr DI_FUNCTION DIF_PROPERTYCHANGE = 0x12;
inline constexpr DWORD DICS_ENABLE = 1;
inline constexpr DWORD DICS_DISABLE = 2;
inline constexpr DWORD DICS_PROPCHANGE = 3;
inline constexpr DWORD DICS_START = 4;
inline constexpr DWORD DICS_STOP = 5;
inline constexpr DWORD DICS_FLAG_GLOBAL = 1;
inline constexpr DWORD DI_REMOVEDEVICE_GLOBAL = 1;

// --- Setup API: device lists. A list is a snapshot of the moment at which it was made; the caller destroys it.
// INVALID_HANDLE_VALUE with 87 if neither a class nor DIGCF_ALLCLASSES is given. Devices in the order of enumeration;
// with DIGCF_DEVICEINTERFACE the interfaces of the class, each device once, its interface at the same index.
HDEVINFO SetupDiGetClassDevsA(const GUID* classGuid, PCSTR enumerator, HWND parent, DWORD flags);
HDEVINFO SetupDiCreateDeviceInfoList(const GUID* classGuid, HWND parent);
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO list);                                // FALSE with 6
BOOL SetupDiEnumDeviceInfo(HDEVINFO list, DWORD index, PSP_DEVINFO_DATA device); // FALSE with 259 at the end
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO list, PSP_DEVINFO_DATA device, const GUID* interfaceClass, DWORD index,
                                 PSP_DEVICE_INTERFACE_DATA data); // FALSE with 259 at the end
// If it does not fit FALSE with 122 and the size needed; the device is filled in anyway.
BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO list, PSP_DEVICE_INTERFACE_DATA data,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_A detail, DWORD size, PDWORD needed,
                                      PSP_DEVINFO_DATA device);
// Adds the interface with this path to the list. FALSE with 0xE0000225 if there is none.
BOOL SetupDiOpenDeviceInterfaceA(HDEVINFO list, PCSTR path, DWORD flags, PSP_DEVICE_INTERFACE_DATA data);
// FALSE with 13 without such a property, with 122 and the size needed without room.
BOOL SetupDiGetDeviceRegistryPropertyA(HDEVINFO list, PSP_DEVINFO_DATA device, DWORD property, PDWORD type,
                                       PBYTE buffer, DWORD size, PDWORD needed);

// --- Setup API: the class installer. The parameters stay with the list's device until they are set again.
BOOL SetupDiSetClassInstallParamsA(HDEVINFO list, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params, DWORD size);
// Blocks while the device stops and starts. FALSE with 0xE0000203 if the class installer refuses, 0xE0000215 without
// parameters, 0xE000020B for a device that is not there, 5 for a caller without the right.
BOOL SetupDiCallClassInstaller(DI_FUNCTION function, HDEVINFO list, PSP_DEVINFO_DATA device);
// Takes the device out of the tree and its keys out of the registry.
BOOL SetupDiRemoveDevice(HDEVINFO list, PSP_DEVINFO_DATA device);

// --- DOS names.
inline constexpr DWORD DDD_RAW_TARGET_PATH = 1;
inline constexpr DWORD DDD_REMOVE_DEFINITION = 2;
inline constexpr DWORD DDD_EXACT_MATCH_ON_REMOVE = 4;
inline constexpr DWORD DDD_NO_BROADCAST_SYSTEM = 8;
// The targets of a name, the one in force first, each with its zero and one more after the last; with a null name all
// names in the same form. Returns the count of characters. 0 with 2 for a missing name, with 122 if it does
// not fit.
DWORD QueryDosDeviceA(LPCSTR name, LPSTR buffer, DWORD size);
// Defines a name on top of its present definitions, or removes a definition: the newest, or with a target the
// newest that leads there. FALSE with 2 if there is none, with 87 for an invalid target.
BOOL DefineDosDeviceA(DWORD flags, LPCSTR name, LPCSTR target);

// --- Device notifications.
inline constexpr DWORD DBT_DEVNODES_CHANGED = 0x0007;
inline constexpr DWORD DBT_DEVICEARRIVAL = 0x8000;
inline constexpr DWORD DBT_DEVICEQUERYREMOVE = 0x8001;
inline constexpr DWORD DBT_DEVICEQUERYREMOVEFAILED = 0x8002;
inline constexpr DWORD DBT_DEVICEREMOVEPENDING = 0x8003;
inline constexpr DWORD DBT_DEVICEREMOVECOMPLETE = 0x8004;
inline constexpr DWORD DBT_DEVICETYPESPECIFIC = 0x8005;
inline constexpr DWORD DBT_CUSTOMEVENT = 0x8006;
inline constexpr DWORD DBT_DEVTYP_OEM = 0;
inline constexpr DWORD DBT_DEVTYP_DEVNODE = 1;
inline constexpr DWORD DBT_DEVTYP_VOLUME = 2;
inline constexpr DWORD DBT_DEVTYP_PORT = 3;
inline constexpr DWORD DBT_DEVTYP_NET = 4;
inline constexpr DWORD DBT_DEVTYP_DEVICEINTERFACE = 5;
inline constexpr DWORD DBT_DEVTYP_HANDLE = 6;
struct DEV_BROADCAST_HDR {
    DWORD dbch_size;
    DWORD dbch_devicetype;
    DWORD dbch_reserved;
};
using PDEV_BROADCAST_HDR = DEV_BROADCAST_HDR*;
struct DEV_BROADCAST_DEVICEINTERFACE_A {
    DWORD dbcc_size;
    DWORD dbcc_devicetype;
    DWORD dbcc_reserved;
    GUID dbcc_classguid;
    char dbcc_name[1];
};
using PDEV_BROADCAST_DEVICEINTERFACE_A = DEV_BROADCAST_DEVICEINTERFACE_A*;
struct DEV_BROADCAST_DEVICEINTERFACE_W {
    DWORD dbcc_size;
    DWORD dbcc_devicetype;
    DWORD dbcc_reserved;
    GUID dbcc_classguid;
    wchar_t dbcc_name[1];
};
using PDEV_BROADCAST_DEVICEINTERFACE_W = DEV_BROADCAST_DEVICEINTERFACE_W*;
struct DEV_BROADCAST_PORT_A {
    DWORD dbcp_size;
    DWORD dbcp_devicetype;
    DWORD dbcp_reserved;
    char dbcp_name[1];
};
using PDEV_BROADCAST_PORT_A = DEV_BROADCAST_PORT_A*;
struct DEV_BROADCAST_PORT_W {
    DWORD dbcp_size;
    DWORD dbcp_devicetype;
    DWORD dbcp_reserved;
    wchar_t dbcp_name[1];
};
using PDEV_BROADCAST_PORT_W = DEV_BROADCAST_PORT_W*;
using DEV_BROADCAST_DEVICEINTERFACE = DEV_BROADCAST_DEVICEINTERFACE_A;
using PDEV_BROADCAST_DEVICEINTERFACE = DEV_BROADCAST_DEVICEINTERFACE_A*;
using DEV_BROADCAST_PORT = DEV_BROADCAST_PORT_A;
using PDEV_BROADCAST_PORT = DEV_BROADCAST_PORT_A*;
static_assert(sizeof(DEV_BROADCAST_DEVICEINTERFACE_A) == 32 && sizeof(DEV_BROADCAST_PORT_A) == 16);
inline constexpr DWORD DEVICE_NOTIFY_WINDOW_HANDLE = 0;
inline constexpr DWORD DEVICE_NOTIFY_SERVICE_HANDLE = 1;
inline constexpr DWORD DEVICE_NOTIFY_ALL_INTERFACE_CLASSES = 4;
// Interface classes only. Null with 13 for an invalid filter, 87 for an invalid recipient or flags.
HDEVNOTIFY RegisterDeviceNotificationA(HANDLE recipient, LPVOID filter, DWORD flags);
BOOL UnregisterDeviceNotification(HDEVNOTIFY notification); // FALSE with 6

// --- Requests to USB hubs.
inline constexpr DWORD IOCTL_USB_GET_NODE_INFORMATION = 0x220408;
inline constexpr DWORD IOCTL_USB_GET_NODE_CONNECTION_DRIVERKEY_NAME = 0x220420;
inline constexpr DWORD IOCTL_USB_HUB_CYCLE_PORT = 0x220444;
#pragma pack(push, 1)
enum USB_HUB_NODE : int {}; // 0: a hub
struct USB_HUB_DESCRIPTOR {
    UCHAR bDescriptorLength;
    UCHAR bDescriptorType;
    UCHAR bNumberOfPorts;
    USHORT wHubCharacteristics;
    UCHAR bPowerOnToPowerGood;
    UCHAR bHubControlCurrent;
    UCHAR bRemoveAndPowerMask[64];
};
struct USB_HUB_INFORMATION {
    USB_HUB_DESCRIPTOR HubDescriptor;
    BOOLEAN HubIsBusPowered;
};
struct USB_MI_PARENT_INFORMATION {
    ULONG NumberOfInterfaces;
};
struct USB_NODE_INFORMATION {
    USB_HUB_NODE NodeType;
    union {
        USB_HUB_INFORMATION HubInformation;
        USB_MI_PARENT_INFORMATION MiParentInformation;
    } u;
};
using PUSB_NODE_INFORMATION = USB_NODE_INFORMATION*;
struct USB_NODE_CONNECTION_DRIVERKEY_NAME {
    ULONG ConnectionIndex;
    ULONG ActualLength;
    WCHAR DriverKeyName[1];
};
using PUSB_NODE_CONNECTION_DRIVERKEY_NAME = USB_NODE_CONNECTION_DRIVERKEY_NAME*;
struct USB_CYCLE_PORT_PARAMS {
    ULONG ConnectionIndex;
    ULONG StatusReturned;
};
using PUSB_CYCLE_PORT_PARAMS = USB_CYCLE_PORT_PARAMS*;
#pragma pack(pop)
static_assert(sizeof(USB_HUB_DESCRIPTOR) == 71 && sizeof(USB_NODE_INFORMATION) == 76 &&
              sizeof(USB_CYCLE_PORT_PARAMS) == 8);
// The three requests above, to a hub that is open. FALSE with 1 for another request or device, 31 for an empty hub
// port, 87 for one that the hub does not have, 50 for a cycle that this Windows does not know, 433 if the hub has gone.
BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned,
                     LPOVERLAPPED overlapped);

} // namespace simwin
