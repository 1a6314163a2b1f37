// Devices for the tests of the device tree: short descriptions, the product's own calls, and a recipient that writes
// down what it is told.
#pragma once

#include "tests/harness/Harness.h"

#include "simwin/devices/Devices.h"
#include "simwin/devices/Drivers.h"
#include "simwin/devices/Notifications.h"
#include "simwin/devices/PlugAndPlay.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/registry/Registry.h"
#include "simwin/win32.h"

#include <string>
#include <vector>

namespace devicetest {

using machine::DeviceDescription;
using machine::DeviceKind;
using machine::DeviceNode;

inline const char* Controller = "PCI\\VEN_8086&DEV_A36D\\3&1";
inline const char* RootHub = "USB\\ROOT_HUB30\\4&1&0&0";
inline const char* Hub = "USB\\VID_05E3&PID_0608\\5&1&0&2";
inline const char* Usb = "USB\\VID_0403&PID_6001\\A702TB52";
inline const char* Port = "FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000";

inline DeviceDescription Device(const char* id, DeviceKind kind, const char* parent = nullptr, unsigned hubPort = 0) {
    DeviceDescription device;
    device.id = id;
    device.kind = kind;
    if (parent)
        device.parent = parent;
    if (hubPort)
        device.hubPort = hubPort;
    return device;
}

inline DeviceDescription NamedPort(const char* id, const char* name, const char* parent = nullptr) {
    DeviceDescription port = Device(id, DeviceKind::Port, parent);
    port.portName = name;
    return port;
}

// Controller, root hub, a hub on its port 2, and on that hub's port 3 a converter with one port.
inline std::vector<DeviceDescription> Bench() {
    return {Device(Controller, DeviceKind::Controller), Device(RootHub, DeviceKind::RootHub, Controller),
            Device(Hub, DeviceKind::Hub, RootHub, 2), Device(Usb, DeviceKind::Usb, Hub, 3),
            NamedPort(Port, "COM7", Usb)};
}

inline void Build(const std::vector<DeviceDescription>& devices) {
    machine::DevicesDescription description;
    description.devices = devices;
    ASSERT_EQ(machine::BuildDevices(description), "");
}

inline DeviceNode& Node(const char* id) {
    return *machine::TheDeviceTree().FindById(id);
}

inline simwin::DWORD ProblemOf(const char* id, simwin::CONFIGRET expected = simwin::CR_SUCCESS) {
    simwin::ULONG status = 0, problem = 0;
    EXPECT_EQ(simwin::CM_Get_DevNode_Status(&status, &problem, Node(id).number, 0), expected) << id;
    return problem;
}

// The first target of a DOS name, "" if there is no such name.
inline std::string TargetOf(const std::string& name) {
    char target[520];
    return simwin::QueryDosDeviceA(name.c_str(), target, sizeof(target)) ? target : "";
}

inline std::string SerialComm(const char* kernelName) {
    return machine::TheRegistry().GetString("HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM", kernelName);
}

// A state change of the device by its class installer. Gives 0 or the last error.
inline simwin::DWORD ChangeState(const char* id, simwin::DWORD change) {
    using namespace simwin;
    const HDEVINFO list = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    for (DWORD i = 0; SetupDiEnumDeviceInfo(list, i, &device) && device.DevInst != Node(id).number;)
        ++i;
    SP_PROPCHANGE_PARAMS params = {{sizeof(SP_CLASSINSTALL_HEADER), DIF_PROPERTYCHANGE}, change, DICS_FLAG_GLOBAL, 0};
    EXPECT_TRUE(SetupDiSetClassInstallParamsA(list, &device, &params.ClassInstallHeader, sizeof(params)));
    const DWORD error = SetupDiCallClassInstaller(DIF_PROPERTYCHANGE, list, &device) ? 0 : GetLastError();
    SetupDiDestroyDeviceInfoList(list);
    return error;
}

// What a window was told: "+FTDIBUS#..." at a time. It answers at once unless `holds`.
struct Told {
    std::uint64_t atMs;
    std::string what;
    bool operator==(const Told&) const = default;
};
struct Listener {
    static inline std::vector<Told> told;
    static inline unsigned broadcasts = 0;
    static inline bool holds = false;
    static inline machine::NotificationReturned held;
    simwin::HDEVNOTIFY handle;

    // Registers for an interface class by its name in a description, "" for all.
    explicit Listener(const char* guid) {
        machine::SetWindowCheck(nullptr);
        machine::SetTreeChangeBroadcast([] { ++broadcasts; });
        machine::SetWindowRoad([](const machine::NotificationRecipient&, simwin::DWORD event,
                                  const std::vector<std::uint8_t>& data, machine::NotificationReturned returned) {
            const auto* notice = reinterpret_cast<const simwin::DEV_BROADCAST_DEVICEINTERFACE_A*>(data.data());
            const std::string path = notice->dbcc_name;
            const std::string sign = event == simwin::DBT_DEVICEARRIVAL ? "+" : "-";
            told.push_back({machine::Now(), sign + path.substr(4, path.find_last_of('#') - 4)});
            if (holds)
                held = std::move(returned);
            else
                returned();
        });
        simwin::DEV_BROADCAST_DEVICEINTERFACE_A filter{};
        filter.dbcc_size = sizeof(filter);
        filter.dbcc_devicetype = simwin::DBT_DEVTYP_DEVICEINTERFACE;
        const bool all = !machine::GuidFromText(guid, filter.dbcc_classguid);
        handle = simwin::RegisterDeviceNotificationA(reinterpret_cast<simwin::HANDLE>(0x1234), &filter,
                                                     all ? simwin::DEVICE_NOTIFY_ALL_INTERFACE_CLASSES
                                                         : simwin::DEVICE_NOTIFY_WINDOW_HANDLE);
    }
};
inline const char* ComPortClass = "{86e0d1e0-8089-11d0-9ce4-08003e301f73}";

} // namespace devicetest
