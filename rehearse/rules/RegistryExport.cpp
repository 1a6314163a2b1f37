#include "rehearse/rules/RegistryExport.h"

#include "rehearse/description/Description.h"

#include "simwin/kernel/Text.h"

#include <charconv>
#include <string_view>

namespace rehearse {

constexpr std::string_view Utf16Mark = "\xFF\xFE";
constexpr std::string_view ConfigurationKey = "\\Tarn Holve\\Quillmarch\\"; // of both views of the registry
constexpr std::string_view Headings[] = {"REGEDIT4", "Windows Registry Editor Version"};

static std::string TextOfExport(const std::string& bytes) {
    return bytes.starts_with(Utf16Mark) ? machine::AnsiFromUtf16Bytes(bytes.substr(Utf16Mark.size())) : bytes;
}

bool IsRegistryExport(const std::string& bytes) {
    const std::string text = TextOfExport(bytes);
    return text.starts_with(Headings[0]) || text.starts_with(Headings[1]);
}

// Takes a text in quotes; a backslash makes the character after it plain. False if there is none.
static bool TakeQuoted(std::string_view& line, std::string& text) {
    text.clear();
    for (std::size_t i = 1; line.starts_with('"') && i < line.size(); ++i) {
        if (line[i] == '"') {
            line.remove_prefix(i + 1);
            return true;
        }
        i += line[i] == '\\' && i + 1 < line.size();
        text += line[i];
    }
    return false;
}

// "Name"="text" and "Name"=dword:0000001f, the types that a configuration has; "" for any other line.
static std::string ValueLine(std::string_view line) {
    constexpr std::string_view Number = "dword:";
    std::string name, value;
    if (!TakeQuoted(line, name) || !line.starts_with('=')) {
        return "";
    }
    line.remove_prefix(1);
    if (line.starts_with(Number)) {
        unsigned number = 0;
        std::from_chars(line.data() + Number.size(), line.data() + line.size(), number, 16);
        return name + "=" + std::to_string(static_cast<int>(number));
    }
    return TakeQuoted(line, value) && !value.empty() ? name + "=" + value : "";
}

// [HKEY_LOCAL_MACHINE\SOFTWARE\...\ComPorts1]: "[ComPorts1]"; "" for any other key.
static std::string SectionLine(std::string_view line) {
    const std::size_t at = machine::FindNoCase(line, ConfigurationKey);
    return at == std::string_view::npos || line.starts_with("[-")
               ? ""
               : "[" + std::string(line.substr(at + ConfigurationKey.size()));
}

std::string IniOfExport(const std::string& file, const std::string& bytes) {
    std::string ini;
    bool isFound = false, isInside = false;
    for (std::string line : machine::Split(TextOfExport(bytes), '\n')) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        std::string made;
        if (line.starts_with('[')) {
            made = SectionLine(line);
            isInside = !made.empty();
            isFound = isFound || isInside;
        } else if (isInside) {
            made = ValueLine(line);
        }
        ini += made + "\r\n";
    }
    if (!isFound) {
        throw InputError({file, 1, 1}, "this export does not hold the configuration, the keys below "
                                       "HKLM\\SOFTWARE\\Tarn Holve\\Quillmarch");
    }
    return ini;
}

} // namespace rehearse
