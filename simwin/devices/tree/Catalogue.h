// What the machine knows about kinds of devices by their id alone: the facts of a family of serial devices (class,
// service, kernel name, texts), and what Windows gives a kind when nothing better is known.
#pragma once

#include "simwin/devices/tree/Description.h"
#include "simwin/kernel/Setup.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace machine {

// One row: devices whose id fits the wildcard. A null text is not known. The first matching row is used.
struct CatalogueEntry {
    const char* pattern; // '*' any run, '?' one character, ignoring case
    DeviceKind kind;
    const char* className;
    const char* service;
    const char* serviceX86; // where the driver's service has another name on x86 Windows
    const char* description;
    const char* kernelName;
    const char* hardwareId;
};
const CatalogueEntry* FindInCatalogue(std::string_view id);
// All rows with their sources, for people: columns with a tab between them.
std::string CatalogueTable();

// The kind of a device by its id, service and setup class (name or GUID); Other if nothing more is known.
DeviceKind KindOf(std::string_view id, std::string_view service, std::string_view classNameOrGuid);

// Setup classes: GUID in braces, lower case, and name; "" for an unknown one.
std::string SetupClassGuid(std::string_view className);
std::string SetupClassName(std::string_view guid);

// Interface classes by the names of a description ("comport", "modem", "hub", "controller", "usb", "serenum") or a GUID
// in braces, which is given in lower case; "" for another text.
std::string InterfaceClassByName(std::string_view name);

// What a kind is on this Windows when the description and the catalogue say nothing.
struct KindDefaults {
    const char* className;
    std::string service;
    const char* description;
    const char* kernelName;
    std::uint64_t startsInMs;
    std::uint32_t capabilities;
};
KindDefaults DefaultsOf(DeviceKind kind, const WindowsVersion& version);

} // namespace machine
