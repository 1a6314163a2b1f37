// What a description says about devices, DOS names and ComDB: plain records that the rehearsal or a test fills and
// passes once, before the machine runs (Devices.h: BuildDevices). An optional without value means "as by kind".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

enum class DeviceKind : std::uint8_t { Port, Modem, Controller, RootHub, Hub, Usb, Composite, Other };
const char* DeviceKindName(DeviceKind kind);
std::optional<DeviceKind> DeviceKindFromName(std::string_view name); // "port", "modem", "root-hub", ...

// What a port's driver does when its DOS name exists already.
enum class NameTaken : std::uint8_t { NoName, Fail, Take };
std::optional<NameTaken> NameTakenFromName(std::string_view name); // "no-name", "fail", "take"

// When the DOS name is deleted after its driver stopped: this many ms later, or with the last handle to it.
struct LinkGoes {
    std::uint64_t afterMs = 0;
    bool withLastHandle = false; // "close"
};

struct DeviceDescription {
    std::string id; // 'FTDIBUS\VID_0403+PID_6001+A702TB52A\0000'
    std::optional<std::string> parent;
    std::optional<DeviceKind> kind;
    std::optional<std::string> className; // key `class`
    std::optional<std::string> classGuid; // with braces
    std::optional<std::string> service, description, friendlyName;
    std::optional<std::vector<std::string>> hardwareId; // one text in the description is a list of one
    std::optional<std::string> driverKey;               // '{4d36e978-...}\0003'
    std::optional<std::string> location, locationPath;
    std::optional<std::uint32_t> address, irq, ioPort;
    std::optional<std::string> portName, dosDeviceName;
    std::optional<std::string> nameValue;
    std::optional<NameTaken> nameTaken;
    std::optional<std::vector<std::string>> kernelName; // one for each start, the last one from then on
    std::optional<std::string> kernelNamePath;
    std::optional<std::vector<std::string>> interfaces; // comport, modem, hub, controller, usb, serenum, {guid}
    std::optional<unsigned> hubPort, ports;
    std::optional<std::uint64_t> knowsInMs;
    std::optional<std::uint32_t> cycleStatus;
    std::optional<bool> plugged;
    std::optional<std::uint32_t> problem;
    std::optional<std::uint64_t> startsInMs;
    std::optional<bool> leavesLink;
    std::optional<LinkGoes> linkGoes;
    std::optional<std::uint32_t> vetoes; // how many times; VetoesAlways for `true`, 0 for `false`
    std::optional<bool> refuses;
    std::optional<std::string> heldBy; // a program's path
    std::optional<bool> isProtected;   // key `protected`: its keys refuse the system account
};
inline constexpr std::uint32_t VetoesAlways = 0xFFFFFFFF;

// The result of opening a DOS name that no running device explains.
struct Opens {
    std::uint32_t error = 0;  // 2 gone, 3 no-path, 433 no-device, 5 busy; 0: it opens
    bool hangs = false;       // the opener blocks forever
    std::uint64_t lateMs = 0; // "late 450ms": opens, this much later
};
// "gone", "no-path", "no-device", "busy", "hangs", "ok", or "late" with a duration ("late 450ms"); nothing for another
// text.
std::optional<Opens> OpensFromText(std::string_view text);

struct DosNameDescription {
    std::string name, target;
    std::optional<Opens> opens;
};

struct ComDatabaseDescription {
    std::optional<std::vector<unsigned>> taken; // the numbers whose bits are set; none: as the exports and devices say
    std::optional<std::size_t> size;            // in bytes; 32 unless given
    bool missing = false;
};

struct DevicesDescription {
    std::vector<DeviceDescription> devices; // in the order of the description, amended ones merged in place
    std::vector<DosNameDescription> dosNames;
    ComDatabaseDescription comDatabase;
    std::optional<std::string> connected; // the text with the ids of the devices that are there
};

DeviceDescription MergeDescriptions(const DeviceDescription& base, const DeviceDescription& over);

} // namespace machine
