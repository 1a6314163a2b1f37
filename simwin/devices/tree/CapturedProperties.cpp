#include "simwin/devices/tree/CapturedProperties.h"

#include "simwin/registry/Registry.h"

namespace machine {

constexpr const char* LastKnownParent = "{83da6326-97a6-4088-9453-a1923f573b29}\\000A";
constexpr const char* LastArrivalDate = "{83da6326-97a6-4088-9453-a1923f573b29}\\0066";
constexpr const char* LocationPaths = "{a45c254e-df1c-4efd-8020-67d146a850e0}\\0025";

static const RegistryValue* Stored(const DeviceNode& node, const char* property) {
    return TheRegistry().GetValue(node.enumPath + "\\Properties\\" + property, "");
}

static void Store(const std::string& enumPath, const char* property, std::string_view text) {
    constexpr simwin::DWORD TypeOfTextProperty = 0xFFFF0012;
    if (text.empty()) {
        return;
    }
    std::vector<std::uint8_t> bytes;
    for (const char16_t c : Utf16FromAnsi(text) + u'\0') {
        bytes.push_back(static_cast<std::uint8_t>(c));
        bytes.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    TheRegistry().PutValue(TheRegistry().CreateKey(enumPath + "\\Properties\\" + property), "", TypeOfTextProperty,
                           bytes);
}

// Texts of the property store have types of their own, so they stay in UTF-16 as read.
static std::string FirstText(const RegistryValue* value) {
    if (!value) {
        return {};
    }
    const std::string text =
        AnsiFromUtf16Bytes({reinterpret_cast<const char*>(value->data.data()), value->data.size()});
    return text.substr(0, text.find('\0'));
}

bool StoreCapturedProperties(std::string_view id, std::string_view parent, std::string_view locationPath) {
    const std::string enumPath = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\" + std::string(id);
    if (!TheRegistry().FindKey(enumPath)) {
        return false;
    }
    Store(enumPath, LastKnownParent, parent);
    Store(enumPath, LocationPaths, locationPath);
    return true;
}

std::string LastKnownParentOf(const DeviceNode& node) {
    return FirstText(Stored(node, LastKnownParent));
}

std::string CapturedLocationPath(const DeviceNode& node) {
    return FirstText(Stored(node, LocationPaths));
}

std::uint64_t LastArrivalOf(const DeviceNode& node) {
    const RegistryValue* value = Stored(node, LastArrivalDate);
    std::uint64_t time = 0;
    if (value && value->data.size() == sizeof(time)) {
        for (std::size_t i = sizeof(time); i-- > 0;) {
            time = time << 8 | value->data[i];
        }
    }
    return time;
}

bool HasControlKey(const DeviceNode& node) {
    return TheRegistry().FindKey(node.enumPath + "\\Control") != nullptr;
}

} // namespace machine
