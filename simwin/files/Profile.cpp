// Settings files as the profile functions read them: straight from the file, by section and key.
#include "simwin/files/Files.h"
#include "simwin/files/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"

#include <algorithm>
#include <cstring>

namespace machine {

const ProfileOverride& TheProfileOverride();

static std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

// Outer blanks and one pair of equal quotes.
static std::string_view TrimValue(std::string_view text) {
    text = TrimBlanks(text);
    const bool quoted = text.size() > 1 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
    return quoted ? text.substr(1, text.size() - 2) : text;
}

namespace {
// Calls `visit` for each line of the file that is a section (isSection) or an entry, with what precedes and follows the
// equals sign (hasValue false: there is none). Ends when it returns false.
struct ProfileLine {
    bool isSection = false, hasValue = false;
    std::string_view name, value;
};
} // namespace
template<typename Visit>
static void ForEachLine(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t end = text.find_first_of("\r\n");
        const std::string_view line = TrimBlanks(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == ';') {
            continue;
        }
        ProfileLine parsed;
        if (line.front() == '[') {
            const std::size_t close = line.find(']');
            if (close == std::string_view::npos) {
                continue;
            }
            parsed.isSection = true;
            parsed.name = TrimBlanks(line.substr(1, close - 1));
        } else {
            const std::size_t equals = line.find('=');
            parsed.hasValue = equals != std::string_view::npos;
            parsed.name = TrimBlanks(line.substr(0, equals));
            if (parsed.hasValue) {
                parsed.value = line.substr(equals + 1);
            }
        }
        if (!visit(parsed)) {
            return;
        }
    }
}

static std::string FileText(const char* file, std::string& path) {
    std::string name = file ? file : "win.ini";
    if (name.find_first_of("\\/:") == std::string::npos) {
        name = WindowsDirectory() + "\\" + name;
    }
    path = ParsePath(name, CurrentProcess()->currentDirectory).full;
    const std::string text = TheFiles().Read(path).value_or("");
    if (!text.starts_with("\xFF\xFE")) {
        return text;
    }
    std::u16string wide;
    for (std::size_t i = 2; i + 1 < text.size(); i += 2) {
        wide.push_back(
            static_cast<char16_t>(static_cast<unsigned char>(text[i]) | static_cast<unsigned char>(text[i + 1]) << 8));
    }
    return AnsiFromUtf16(wide);
}

// The names of all sections, or of the keys of one, each with its zero.
static std::string ListNames(std::string_view text, const char* section) {
    std::string names;
    bool inside = !section;
    bool seen = false;
    ForEachLine(text, [&](const ProfileLine& line) {
        if (!section) {
            if (line.isSection) {
                names.append(line.name).push_back('\0');
            }
            return true;
        }
        if (line.isSection) {
            inside = !seen && EqualNoCase(line.name, section);
            seen = seen || inside;
        } else if (inside && line.hasValue) {
            names.append(line.name).push_back('\0');
        }
        return true;
    });
    return names;
}

// A list that ends with two zeros; one that is too long is cut and gives two characters less than the size.
static simwin::DWORD GiveList(const std::string& names, char* buffer, simwin::DWORD size) {
    if (names.size() + 1 <= size) {
        memcpy(buffer, names.data(), names.size());
        buffer[names.size()] = 0;
        return static_cast<simwin::DWORD>(names.size());
    }
    if (size < 2) {
        memset(buffer, 0, size);
        return 0;
    }
    memcpy(buffer, names.data(), size - 2);
    buffer[size - 2] = buffer[size - 1] = 0;
    return size - 2;
}

static std::optional<std::string> Lookup(const char* section, const char* key, const char* file) {
    std::string path;
    const std::string text = FileText(file, path);
    if (TheProfileOverride()) {
        if (auto replaced = TheProfileOverride()(path, section, key)) {
            return replaced;
        }
    }
    return ProfileValue(text, section, key);
}

namespace {
struct ProfileObject { // file, section and key for the gate; without a destructor
    char text[600];
    ProfileObject(const char* file, const char* section, const char* key) {
        std::size_t length = 0;
        for (const char* part : {file ? file : "win.ini", section ? section : "", key ? key : ""}) {
            if (length && length < sizeof text - 1) {
                text[length++] = '\\';
            }
            const std::size_t more = std::min(strlen(part), sizeof text - 1 - length);
            memcpy(text + length, part, more);
            length += more;
        }
        text[length] = 0;
    }
};
} // namespace

// Converts a text to a number as the system does: overflow wraps, other text is 0.
static simwin::UINT NumberOf(std::string_view text) {
    while (!text.empty() && static_cast<unsigned char>(text.front()) <= ' ') {
        text.remove_prefix(1);
    }
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    simwin::UINT base = 10;
    if (text.starts_with("0x") || text.starts_with("0o") || text.starts_with("0b")) {
        base = text[1] == 'x' ? 16 : text[1] == 'o' ? 8 : 2;
        text.remove_prefix(2);
    }
    simwin::UINT number = 0;
    for (const char c : text) {
        const char small = LowerChar(c);
        const simwin::UINT digit = small >= '0' && small <= '9'   ? static_cast<simwin::UINT>(small - '0')
                                   : small >= 'a' && small <= 'f' ? static_cast<simwin::UINT>(small - 'a' + 10)
                                                                  : base;
        if (digit >= base) {
            break;
        }
        number = number * base + digit;
    }
    return isNegative ? 0 - number : number;
}

std::optional<std::string> ProfileValue(std::string_view text, std::string_view section, std::string_view key) {
    std::optional<std::string> result;
    bool inside = false;
    ForEachLine(text, [&](const ProfileLine& line) {
        if (line.isSection) {
            if (inside) {
                return false; // the first of equal sections counts
            }
            inside = EqualNoCase(line.name, section);
        } else if (inside && EqualNoCase(line.name, key)) {
            if (line.hasValue) {
                result = TrimValue(line.value);
            }
            return false;
        }
        return true;
    });
    return result;
}

} // namespace machine

namespace simwin {

using namespace machine;

DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultText, LPSTR buffer, DWORD size, LPCSTR file) {
    const ProfileObject object(file, section, key);
    SIM_CALL("GetPrivateProfileStringA", object.text, ERROR_FILE_NOT_FOUND);
    if (!buffer || !size) {
        return 0;
    }
    if (!section || !key) {
        std::string path;
        return GiveList(ListNames(FileText(file, path), section), buffer, size);
    }
    const auto found = simCall.error ? std::nullopt : Lookup(section, key, file);
    std::string_view value = defaultText ? defaultText : "";
    while (value.ends_with(' ')) {
        value.remove_suffix(1);
    }
    if (found) {
        value = *found;
    } else {
        SetError(simCall.error ? simCall.error : DWORD{ERROR_FILE_NOT_FOUND});
    }
    value = found ? value : TrimValue(value);
    const std::size_t length = std::min<std::size_t>(value.size(), size - 1);
    memcpy(buffer, value.data(), length);
    buffer[length] = 0;
    return static_cast<DWORD>(length);
}

UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT defaultNumber, LPCSTR file) {
    const ProfileObject object(file, section, key);
    SIM_CALL("GetPrivateProfileIntA", object.text, ERROR_FILE_NOT_FOUND);
    const auto found = simCall.error ? std::nullopt : Lookup(section, key, file);
    return found && !found->empty() ? NumberOf(*found) : static_cast<UINT>(defaultNumber);
}

} // namespace simwin
