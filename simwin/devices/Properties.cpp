#include "simwin/devices/Properties.h"

#include "simwin/devices/api.h"
#include "simwin/devices/build/ExportTree.h"
#include "simwin/kernel/Notes.h"
#include "simwin/registry/Registry.h"

#include <cstring>
#include <string>

namespace machine {

using namespace simwin;

constexpr DWORD TypeText = 1, TypeNumber = 4, TypeTexts = 7; // REG_SZ, REG_DWORD, REG_MULTI_SZ
constexpr DWORD CapabilityRemovable = 4;

namespace {
// Properties kept in the device's key below Enum, by the names of their values.
struct StoredProperty {
    DWORD property;
    const char* value;
};
} // namespace
constexpr StoredProperty Stored[] = {
    {CM_DRP_DEVICEDESC, "DeviceDesc"},       {CM_DRP_HARDWAREID, "HardwareID"},
    {CM_DRP_COMPATIBLEIDS, "CompatibleIDs"}, {CM_DRP_SERVICE, "Service"},
    {CM_DRP_CLASSGUID, "ClassGUID"},         {CM_DRP_DRIVER, "Driver"},
    {CM_DRP_CONFIGFLAGS, "ConfigFlags"},     {CM_DRP_MFG, "Mfg"},
    {CM_DRP_FRIENDLYNAME, "FriendlyName"},   {CM_DRP_LOCATION_INFORMATION, "LocationInformation"},
    {CM_DRP_CAPABILITIES, "Capabilities"},   {CM_DRP_ADDRESS, "Address"},
};

static void Append(std::vector<std::uint8_t>& data, std::string_view text, bool wide) {
    for (const char c : text) {
        const char16_t unit = wide ? Utf16FromAnsiByte(static_cast<unsigned char>(c)) : static_cast<unsigned char>(c);
        data.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        if (wide) {
            data.push_back(static_cast<std::uint8_t>(unit >> 8));
        }
    }
}

static DeviceProperty Text(DWORD type, std::string_view text, bool wide) {
    DeviceProperty property{type, {}};
    Append(property.data, text, wide);
    return property;
}

static std::optional<DeviceProperty> TextOrNone(const std::string& text, bool wide) {
    if (text.empty()) {
        return std::nullopt;
    }
    return Text(TypeText, text + '\0', wide);
}

static std::optional<DeviceProperty> FromRegistry(const DeviceNode& node, const char* value, bool wide) {
    const RegistryValue* stored = TheRegistry().GetValue(node.enumPath, value);
    if (!stored) {
        return std::nullopt;
    }
    if (stored->type == TypeNumber) {
        return DeviceProperty{TypeNumber, stored->data};
    }
    if (stored->type == TypeTexts) {
        const auto* bytes = reinterpret_cast<const char*>(stored->data.data());
        return Text(TypeTexts, {bytes, stored->data.size()}, wide);
    }
    if (stored->type == TypeText || stored->type == 2) {
        return Text(TypeText, ReadableText(TextOf(*stored)) + '\0', wide);
    }
    return DeviceProperty{stored->type, stored->data};
}

static bool IsOnBoard(std::string_view id) {
    return StartsWithNoCase(id, "ACPI\\") || StartsWithNoCase(id, "PCI\\");
}

bool IsRemovableNode(const DeviceNode& node) {
    DWORD capabilities = 0;
    TheRegistry().GetDword(node.enumPath, "Capabilities", capabilities);
    return capabilities & CapabilityRemovable;
}

std::optional<DeviceProperty> ReadDeviceProperty(const DeviceNode& node, DWORD property, bool wide) {
    switch (property) {
    case CM_DRP_CLASS:
        return TextOrNone(ClassNameOf(node), wide);
    case CM_DRP_ENUMERATOR_NAME:
        return TextOrNone(std::string(EnumeratorOf(node.id)), wide);
    case CM_DRP_PHYSICAL_DEVICE_OBJECT_NAME:
        return node.IsPresent() ? TextOrNone(PhysicalNameOf(node), wide) : std::nullopt;
    case CM_DRP_LOCATION_PATHS: {
        const std::string path = node.IsPresent() ? LocationPathOf(node) : std::string();
        if (path.empty()) {
            // Windows would give one, so a rule that uses it behaves differently there.
            if (node.IsPresent() && node.IsPort() && IsOnBoard(node.id)) {
                AddNote(Utf8FromAnsi("cannot tell the location path of '" + node.id +
                                     "': give it as location_path if a rule uses it"));
            }
            return std::nullopt;
        }
        return Text(TypeTexts, path + std::string(2, '\0'), wide);
    }
    default:
        break;
    }
    for (const StoredProperty& stored : Stored) {
        if (stored.property == property) {
            return FromRegistry(node, stored.value, wide);
        }
    }
    return std::nullopt;
}

} // namespace machine
