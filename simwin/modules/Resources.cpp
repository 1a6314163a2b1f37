#include "simwin/modules/Resources.h"

#include "simwin/files/Files.h"
#include "simwin/host/Program.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/modules/api.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace machine {

constexpr std::uint16_t NumberMark = 0xFFFF; // precedes a type or name that is a number
constexpr std::string_view VersionType = "#16";

namespace {
struct ResourceRoom {
    bool read = false;
    std::vector<Resource> resources;
};
} // namespace
static ResourceRoom* g_resources;
RoomPtr MakeResources() {
    return MakeRoom(g_resources);
}

[[noreturn]] static void Broken(const std::string& what) {
    StopRun(Verdict::BrokenRule, "resources: " + what);
}

namespace {
// Reads numbers of a compiled resource file with bounds.
struct ResReader {
    const std::span<const std::uint8_t> bytes;
    std::size_t at = 0;

    template<typename T>
    T Take() {
        T value;
        if (bytes.size() - at < sizeof value) {
            Broken("the file ends in the middle of a header");
        }
        std::memcpy(&value, bytes.data() + at, sizeof value);
        at += sizeof value;
        return value;
    }
    std::string TakeId() {
        const auto first = Take<std::uint16_t>();
        if (first == NumberMark) {
            return "#" + std::to_string(Take<std::uint16_t>());
        }
        std::u16string text;
        for (std::uint16_t c = first; c; c = Take<std::uint16_t>()) {
            text.push_back(static_cast<char16_t>(c));
        }
        return Upper(AnsiFromUtf16(text));
    }
    void Align() { at = (at + 3) & ~std::size_t{3}; }
};
} // namespace

static void ReadResources() {
    ResourceRoom& room = *g_resources;
    room.read = true;
    const std::span<const std::uint8_t> bytes = host::ImageResources();
    ResReader reader{bytes};
    while (reader.at + 8 <= bytes.size()) {
        const std::size_t start = reader.at;
        const auto dataSize = reader.Take<std::uint32_t>();
        const auto headerSize = reader.Take<std::uint32_t>();
        Resource resource;
        resource.type = reader.TakeId();
        resource.name = reader.TakeId();
        reader.Align();
        reader.Take<std::uint32_t>(); // data version
        reader.Take<std::uint16_t>(); // memory flags
        resource.language = reader.Take<std::uint16_t>();
        reader.at = start + headerSize;
        if (reader.at > bytes.size() || bytes.size() - reader.at < dataSize) {
            Broken("the file ends in the middle of a resource");
        }
        resource.data = bytes.subspan(reader.at, dataSize);
        reader.at += dataSize;
        reader.Align();
        if (dataSize) {
            room.resources.push_back(std::move(resource));
        }
    }
}

// --- Version information: nested blocks of a length, a value's length, a type, a name in UTF-16 and the value.

static void PutWord(std::vector<std::uint8_t>& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value));
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
}

static void AlignTo4(std::vector<std::uint8_t>& bytes) {
    while (bytes.size() % 4) {
        bytes.push_back(0);
    }
}

// Opens a block and returns its place; EndBlock writes the length. valueLength in bytes, for texts in characters.
static std::size_t BeginBlock(std::vector<std::uint8_t>& bytes, const char* name, std::size_t valueLength, bool text) {
    AlignTo4(bytes);
    const std::size_t start = bytes.size();
    PutWord(bytes, 0);
    PutWord(bytes, valueLength);
    PutWord(bytes, text);
    for (const char* at = name; *at; ++at) {
        PutWord(bytes, static_cast<unsigned char>(*at));
    }
    PutWord(bytes, 0);
    AlignTo4(bytes);
    return start;
}

static void EndBlock(std::vector<std::uint8_t>& bytes, std::size_t start) {
    const std::size_t length = bytes.size() - start;
    bytes[start] = static_cast<std::uint8_t>(length);
    bytes[start + 1] = static_cast<std::uint8_t>(length >> 8);
}

static void PutText(std::vector<std::uint8_t>& bytes, const char* name, const std::string& text) {
    const std::size_t start = BeginBlock(bytes, name, text.size() + 1, true);
    for (const char c : text) {
        PutWord(bytes, static_cast<unsigned char>(c));
    }
    PutWord(bytes, 0);
    EndBlock(bytes, start);
}

// What a system library carries: its number and its maker.
static std::vector<std::uint8_t> SystemVersionInfo(const std::string& version) {
    simwin::WORD parts[4] = {};
    const std::vector<std::string> numbers = Split(version, '.');
    for (std::size_t i = 0; i < numbers.size() && i < 4; ++i) {
        std::from_chars(numbers[i].data(), numbers[i].data() + numbers[i].size(), parts[i]);
    }
    simwin::VS_FIXEDFILEINFO fixed = {};
    fixed.dwSignature = 0xFEEF04BD;
    fixed.dwStrucVersion = 0x10000;
    fixed.dwFileVersionMS = fixed.dwProductVersionMS = static_cast<simwin::DWORD>(parts[0]) << 16 | parts[1];
    fixed.dwFileVersionLS = fixed.dwProductVersionLS = static_cast<simwin::DWORD>(parts[2]) << 16 | parts[3];
    fixed.dwFileFlagsMask = 0x3F;
    fixed.dwFileOS = 0x40004;
    fixed.dwFileType = 2;
    std::vector<std::uint8_t> bytes;
    const std::size_t root = BeginBlock(bytes, "VS_VERSION_INFO", sizeof fixed, false);
    const auto* raw = reinterpret_cast<const std::uint8_t*>(&fixed);
    bytes.insert(bytes.end(), raw, raw + sizeof fixed);
    const std::size_t strings = BeginBlock(bytes, "StringFileInfo", 0, true);
    const std::size_t table = BeginBlock(bytes, "040904B0", 0, true);
    PutText(bytes, "CompanyName", "Microsoft Corporation");
    PutText(bytes, "FileVersion", version);
    EndBlock(bytes, table);
    EndBlock(bytes, strings);
    const std::size_t variables = BeginBlock(bytes, "VarFileInfo", 0, true);
    const std::size_t translation = BeginBlock(bytes, "Translation", 4, false);
    PutWord(bytes, 0x0409);
    PutWord(bytes, 0x04B0);
    EndBlock(bytes, translation);
    EndBlock(bytes, variables);
    EndBlock(bytes, root);
    return bytes;
}

namespace {
// A block inside version information, with bounds.
struct VersionBlock {
    const std::uint8_t* start = nullptr;
    std::size_t length = 0, valueAt = 0, valueLength = 0;
    bool text = false;
    std::string name;
};
} // namespace

static std::size_t Word(const std::uint8_t* at) {
    return static_cast<std::size_t>(at[0] | at[1] << 8);
}

constexpr std::size_t BlockHeader = 6;

// Reads the block at `start` of at most `room` bytes; false if it is not a block.
static bool ReadBlock(const std::uint8_t* start, std::size_t room, VersionBlock& block) {
    if (room < BlockHeader) {
        return false;
    }
    block.start = start;
    block.length = std::min(Word(start), room);
    block.text = Word(start + 4) != 0;
    std::size_t at = BlockHeader;
    block.name.clear();
    for (;; at += 2) {
        if (at + 2 > block.length) {
            return false;
        }
        const std::size_t c = Word(start + at);
        if (!c) {
            break;
        }
        block.name += static_cast<char>(c);
    }
    block.valueAt = (at + 2 + 3) & ~std::size_t{3};
    block.valueLength = Word(start + 2) * (block.text ? 2 : 1);
    return block.valueAt <= block.length || block.valueLength == 0;
}

static bool FindChildBlock(const VersionBlock& parent, std::string_view name, VersionBlock& child) {
    std::size_t at = (parent.valueAt + parent.valueLength + 3) & ~std::size_t{3};
    while (at < parent.length && ReadBlock(parent.start + at, parent.length - at, child)) {
        if (EqualNoCase(child.name, name)) {
            return true;
        }
        if (!child.length) {
            return false;
        }
        at = (at + child.length + 3) & ~std::size_t{3};
    }
    return false;
}

// After the information come a mark and the room for texts converted to ANSI.
constexpr std::uint32_t RoomMark = 0x58324546; // "FE2X"
constexpr std::size_t RoomHeader = 8;

static bool IsProgramFile(const std::string& path) {
    return EqualNoCase(path, TheSetup().directory + "\\" + TheSetup().executable);
}

const std::vector<Resource>& ProgramResources() {
    if (!g_resources->read) {
        ReadResources();
    }
    return g_resources->resources;
}

const Resource* FindProgramResource(std::string_view type, std::string_view name) {
    for (const Resource& resource : ProgramResources()) {
        if (EqualNoCase(resource.type, type) && EqualNoCase(resource.name, name)) {
            return &resource;
        }
    }
    return nullptr;
}

std::string ResourceId(simwin::LPCSTR id) {
    const auto value = reinterpret_cast<simwin::ULONG_PTR>(id);
    return value < 0x10000 ? "#" + std::to_string(value) : Upper(id);
}

} // namespace machine

namespace simwin {

using namespace machine;

static bool IsProgramModule(HMODULE module) {
    return !module || module == reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(0x140000000));
}

HRSRC FindResourceA(HMODULE module, LPCSTR name, LPCSTR type) {
    SIM_CALL("FindResourceA", "", ERROR_RESOURCE_DATA_NOT_FOUND, ERROR_RESOURCE_TYPE_NOT_FOUND,
             ERROR_RESOURCE_NAME_NOT_FOUND);
    if (!IsProgramModule(module)) {
        NotModelled("FindResourceA", "resources of a library");
    }
    DWORD error = simCall.error;
    if (!error) {
        const std::string wanted = ResourceId(type);
        if (const Resource* found = FindProgramResource(wanted, ResourceId(name))) {
            return reinterpret_cast<HRSRC>(const_cast<Resource*>(found));
        }
        const auto& all = ProgramResources();
        const bool hasType = std::any_of(all.begin(), all.end(), [&](const Resource& r) { return r.type == wanted; });
        error = all.empty() ? ERROR_RESOURCE_DATA_NOT_FOUND
                : hasType   ? ERROR_RESOURCE_NAME_NOT_FOUND
                            : ERROR_RESOURCE_TYPE_NOT_FOUND;
    }
    SetError(error);
    return nullptr;
}

HGLOBAL LoadResource(HMODULE, HRSRC resource) {
    SIM_CALL("LoadResource", "", ERROR_RESOURCE_DATA_NOT_FOUND);
    if (simCall.error || !resource) {
        SetError(simCall.error ? simCall.error : DWORD{ERROR_INVALID_HANDLE});
        return nullptr;
    }
    return const_cast<std::uint8_t*>(reinterpret_cast<const Resource*>(resource)->data.data());
}

LPVOID LockResource(HGLOBAL data) {
    SIM_CALL("LockResource", "");
    return data;
}

DWORD SizeofResource(HMODULE, HRSRC resource) {
    SIM_CALL("SizeofResource", "");
    if (!resource) {
        SetError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return static_cast<DWORD>(reinterpret_cast<const Resource*>(resource)->data.size());
}

BOOL GetFileVersionInfoA(LPCSTR file, DWORD, DWORD size, LPVOID data) {
    SIM_CALL("GetFileVersionInfoA", file, ERROR_FILE_NOT_FOUND, ERROR_RESOURCE_DATA_NOT_FOUND);
    DWORD error = simCall.error;
    std::vector<std::uint8_t> bytes;
    if (!error) {
        ParsedPath path = ParsePath(file ? file : "", CurrentProcess()->currentDirectory);
        const FileNode* node = path.error ? nullptr : TheFiles().Find(path.full);
        if (!node && file && std::string_view(file).find_first_of(":\\/") == std::string_view::npos) {
            path = ParsePath(file, SystemDirectory()); // where libraries are looked for
            node = path.error ? nullptr : TheFiles().Find(path.full);
        }
        if (!node || node->folder) {
            error = ERROR_FILE_NOT_FOUND;
        } else if (IsProgramFile(path.full)) {
            if (const Resource* version = FindProgramResource(VersionType, "#1")) {
                bytes.assign(version->data.begin(), version->data.end());
            }
        } else if (!node->fileVersion.empty()) {
            bytes = SystemVersionInfo(node->fileVersion);
        }
        if (!error && bytes.empty()) {
            error = ERROR_RESOURCE_DATA_NOT_FOUND;
        }
    }
    if (error) {
        SetError(error);
        return FALSE;
    }
    AlignTo4(bytes);
    const std::size_t kept = std::min<std::size_t>(bytes.size(), size);
    std::memcpy(data, bytes.data(), kept);
    if (size >= kept + RoomHeader) {
        const auto room = static_cast<std::uint32_t>(size - kept - RoomHeader);
        std::memcpy(static_cast<char*>(data) + kept, &RoomMark, sizeof RoomMark);
        std::memcpy(static_cast<char*>(data) + kept + sizeof RoomMark, &room, sizeof room);
    }
    return TRUE;
}

BOOL VerQueryValueA(LPCVOID data, LPCSTR block, LPVOID* value, PUINT size) {
    SIM_CALL("VerQueryValueA", block, ERROR_RESOURCE_TYPE_NOT_FOUND);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    VersionBlock found;
    const std::size_t whole = Word(bytes);
    bool is = !simCall.error && ReadBlock(bytes, whole, found);
    for (const std::string& name : Split(block, '\\')) {
        VersionBlock child;
        if (name.empty() || !is) {
            continue;
        }
        is = FindChildBlock(found, name, child);
        found = child;
    }
    if (!is) {
        *size = 0;
        SetError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return FALSE;
    }
    if (!found.text || !found.valueLength) {
        *value = const_cast<std::uint8_t*>(found.start + found.valueAt);
        *size = static_cast<UINT>(found.valueLength);
        return TRUE;
    }
    // A text is converted to ANSI after the information, at a place of its own.
    const std::size_t end = (whole + 3) & ~std::size_t{3};
    std::uint32_t mark, room;
    std::memcpy(&mark, bytes + end, sizeof mark);
    std::memcpy(&room, bytes + end + sizeof mark, sizeof room);
    const std::size_t place = static_cast<std::size_t>(found.start + found.valueAt - bytes) / 2;
    std::u16string wide;
    for (std::size_t i = 0; i + 1 < found.valueLength; i += 2) {
        wide.push_back(static_cast<char16_t>(Word(found.start + found.valueAt + i)));
    }
    const std::string text = AnsiFromUtf16(wide);
    if (mark != RoomMark || place + text.size() > room) {
        NotModelled("VerQueryValueA", "a text without room after the information");
    }
    char* to = reinterpret_cast<char*>(const_cast<std::uint8_t*>(bytes)) + end + RoomHeader + place;
    std::memcpy(to, text.data(), text.size());
    *value = to;
    *size = static_cast<UINT>(text.size());
    return TRUE;
}

} // namespace simwin
