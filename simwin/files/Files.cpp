#include "simwin/files/Files.h"

#include "simwin/files/api.h"
#include "simwin/kernel/Clock.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Security.h"

#include <algorithm>

namespace machine {

// Only the system and administrators may write: the system's and the programs' folders.
constexpr const char* ProgramsSddl = "O:BAG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200A9;;;BU)";
// A drive's root: users may make folders, and work freely inside those, but create no files in the root itself.
constexpr const char* DriveSddl = "O:BAG:SYD:(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200A9;;;BU)(A;;LC;;;AU)"
                                  "(A;OICIIO;0x1301BF;;;AU)";

constexpr const char* SystemFiles[] = {"advapi32.dll", "cfgmgr32.dll", "comctl32.dll", "gdi32.dll",    "kernel32.dll",
                                       "netapi32.dll", "ntdll.dll",    "ole32.dll",    "setupapi.dll", "shell32.dll",
                                       "shlwapi.dll",  "user32.dll",   "version.dll",  "winmm.dll",    "wtsapi32.dll"};

static std::shared_ptr<const SecurityDescriptor> FromSddl(const char* text) {
    return std::make_shared<const SecurityDescriptor>(*ParseSddl(text));
}

static std::string SystemFileVersion() {
    const WindowsVersion& version = TheSetup().version;
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." + std::to_string(version.build) +
           ".1";
}

// Characters that no name may contain.
static bool IsBadNameChar(char c) {
    return (c >= 0 && c < ' ') || std::string_view("<>\"|*?:").find(c) != std::string_view::npos;
}

// What the room keeps besides the files themselves.
struct FileRoom {
    Files files;
    DeviceOpener opener, pipeOpener;
    ProfileOverride profile;
};

static FileRoom* g_room;

static Files& RoomFiles() {
    return g_room->files;
}

static void DescribeSystem() {
    Files& files = RoomFiles();
    const std::string windows = WindowsDirectory(), system = SystemDirectory();
    const Setup& setup = TheSetup();
    for (const std::string& folder :
         {windows, std::string("C:\\Program Files"), std::string("C:\\Program Files (x86)")}) {
        files.MakeFolder(folder)->security = FromSddl(ProgramsSddl);
    }
    for (const char* name : SystemFiles) {
        files.Write(system + "\\" + name, "MZ")->fileVersion = SystemFileVersion();
    }
    if (setup.version.Packed() >= 0x0501) {
        files.Write(system + "\\uxtheme.dll", "MZ")->fileVersion = SystemFileVersion();
    }
    if (setup.version.Packed() >= 0x0603) {
        files.Write(system + "\\Shcore.dll", "MZ")->fileVersion = SystemFileVersion();
    }
    for (const std::string& name : {windows + "\\notepad.exe", windows + "\\explorer.exe", system + "\\cmd.exe"}) {
        files.Write(name, "MZ")->fileVersion = SystemFileVersion();
    }
    files.MakeFolder(windows + "\\Temp");
    files.Write(setup.directory + "\\" + setup.executable, "MZ");
}

RoomPtr MakeFiles() {
    RoomPtr room = MakeRoom(g_room);
    DescribeSystem();
    return room;
}

Files& TheFiles() {
    return RoomFiles();
}

void SetDeviceOpener(DeviceOpener opener) {
    g_room->opener = std::move(opener);
}

void SetPipeOpener(DeviceOpener opener) {
    g_room->pipeOpener = std::move(opener);
}

const DeviceOpener& TheOpenerOf(const char* name) {
    return StartsWithNoCase(name, "\\\\.\\pipe\\") ? g_room->pipeOpener : g_room->opener;
}

void SetProfileOverride(ProfileOverride source) {
    g_room->profile = std::move(source);
}

const ProfileOverride& TheProfileOverride() {
    return g_room->profile;
}

simwin::DWORD OpenDevice::Read(void*, simwin::DWORD, simwin::DWORD*) {
    return simwin::ERROR_INVALID_FUNCTION;
}

simwin::DWORD OpenDevice::Write(const void*, simwin::DWORD, simwin::DWORD*) {
    return simwin::ERROR_INVALID_FUNCTION;
}

void OpenFile::LastHandleClosed() {
    if (device) {
        device->Closed();
    }
    if (!node) {
        return;
    }
    std::erase(node->holders, &holder);
    if (node->deletePending && node->holders.empty() && g_room) {
        RoomFiles().Unlink(node.get());
    }
}

std::string FileNode::Path() const {
    if (!parent) {
        return name;
    }
    const std::string folderPath = parent->Path();
    return folderPath.ends_with('\\') ? folderPath + name : folderPath + "\\" + name;
}

std::string FolderOfPath(std::string_view fullPath) {
    const std::size_t slash = fullPath.rfind('\\');
    if (slash == std::string_view::npos || slash + 1 == fullPath.size()) {
        return {};
    }
    return std::string(fullPath.substr(0, slash == 2 ? 3 : slash));
}

std::string NameOfPath(std::string_view fullPath) {
    return std::string(fullPath.substr(fullPath.rfind('\\') + 1));
}

ParsedPath ParsePath(std::string_view path, std::string_view currentDirectory) {
    ParsedPath result;
    std::string text(path);
    std::replace(text.begin(), text.end(), '/', '\\');
    if (text.starts_with("\\\\?\\")) {
        text.erase(0, 4);
    }
    std::string base(currentDirectory.empty() ? "C:" : currentDirectory);
    if (text.starts_with("\\\\")) {
        result.error = 53; // ERROR_BAD_NETPATH
        return result;
    }
    const auto isLetter = [](char c) { return LowerChar(c) >= 'a' && LowerChar(c) <= 'z'; };
    if (text.size() >= 2 && text[1] == ':' && isLetter(text[0])) {
        const bool rooted = text.size() > 2 && text[2] == '\\';
        const bool sameDrive = LowerChar(base[0]) == LowerChar(text[0]);
        base = rooted || !sameDrive ? text.substr(0, 2) : base;
        text.erase(0, 2);
    } else if (text.starts_with('\\')) {
        base.resize(2);
    }
    result.endsInBackslash = text.ends_with('\\');
    std::vector<std::string> names = Split(base, '\\');
    const std::string drive = Upper(names[0]);
    names.erase(names.begin());
    const std::vector<std::string> more = Split(text, '\\');
    for (std::size_t i = 0; i < more.size(); ++i) {
        std::string name = more[i];
        if (name.empty() || name == ".") {
            continue;
        }
        if (name == "..") {
            if (!names.empty()) {
                names.pop_back();
            }
            continue;
        }
        const std::size_t colon = name.find(':');
        if (colon != std::string::npos && i + 1 == more.size()) {
            result.stream = name.substr(colon + 1);
            name.resize(colon);
            if (EndsWithNoCase(result.stream, ":$DATA")) {
                result.stream.resize(result.stream.size() - 6);
            }
            if (result.stream.empty() || std::any_of(result.stream.begin(), result.stream.end(), IsBadNameChar)) {
                result.error = simwin::ERROR_INVALID_NAME;
            }
        }
        while (name.ends_with('.') || name.ends_with(' ')) {
            name.pop_back();
        }
        if (name.empty() || std::any_of(name.begin(), name.end(), IsBadNameChar)) {
            result.error = simwin::ERROR_INVALID_NAME;
        }
        names.push_back(name);
    }
    result.full = drive;
    for (const std::string& name : names) {
        if (!name.empty()) {
            result.full += "\\" + name;
        }
    }
    if (result.full.size() == 2) {
        result.full += '\\';
    }
    // A substituted drive represents a folder.
    const Drive* described = TheFiles().FindDrive(drive[0]);
    if (described && !described->substitutedFor.empty()) {
        const std::string rest = result.full.substr(2);
        result.full = described->substitutedFor + (rest == "\\" ? "" : rest);
    }
    return result;
}

Files::Files() {
    SetDrive('C', {});
}

Drive& Files::SetDrive(char letter, const Drive& drive) {
    const char capital = Upper(std::string(1, letter))[0];
    m_drives[capital] = drive;
    auto& root = m_roots[capital];
    if (!root) {
        root = std::make_shared<FileNode>();
        root->name = std::string(1, capital) + ":\\";
        root->folder = true;
        root->security = FromSddl(DriveSddl);
        root->createdTime = root->writeTime = FileTimeNow();
    }
    return m_drives[capital];
}

const Drive* Files::FindDrive(char letter) const {
    const auto found = m_drives.find(Upper(std::string(1, letter))[0]);
    return found == m_drives.end() ? nullptr : &found->second;
}

FileNode* Files::DriveRoot(char letter) {
    const auto found = m_roots.find(Upper(std::string(1, letter))[0]);
    return found == m_roots.end() ? nullptr : found->second.get();
}

FileNode* Files::Find(std::string_view path) {
    const ParsedPath parsed = ParsePath(path, "C:");
    if (parsed.error || parsed.full.size() < 3) {
        return nullptr;
    }
    FileNode* node = DriveRoot(parsed.full[0]);
    for (const std::string& name : Split(std::string_view(parsed.full).substr(3), '\\')) {
        if (!node || name.empty()) {
            break;
        }
        const auto found = node->entries.find(name);
        node = found == node->entries.end() ? nullptr : found->second.get();
    }
    if (!node || parsed.stream.empty()) {
        return node;
    }
    const auto found = node->streams.find(parsed.stream);
    return found == node->streams.end() ? nullptr : found->second.get();
}

std::string Files::ThroughLinks(std::string path, bool last) {
    constexpr int MostLinks = 16; // of a name; more are a ring
    for (int followed = 0; followed < MostLinks; ++followed) {
        std::size_t end = path.find('\\', 3);
        const FileNode* link = nullptr;
        for (; !link; end = path.find('\\', end + 1)) {
            const bool isLast = end == std::string::npos;
            if (isLast && !last) {
                return path;
            }
            const FileNode* node = Find(path.substr(0, end));
            if (node && !node->link.empty()) {
                link = node;
            }
            if (link || isLast) {
                break;
            }
        }
        if (!link) {
            return path;
        }
        path = link->link + (end == std::string::npos ? std::string() : path.substr(end));
    }
    return path;
}

FileNode* Files::AddEntry(FileNode* folder, std::string_view name, bool isFolder, std::string_view owner) {
    auto node = std::make_shared<FileNode>();
    node->name = name;
    node->parent = folder;
    node->folder = isFolder;
    node->attributes = isFolder ? 0 : simwin::FILE_ATTRIBUTE_ARCHIVE;
    node->createdTime = node->writeTime = FileTimeNow();
    node->security = std::make_shared<const SecurityDescriptor>(InheritFrom(*folder->security, isFolder, owner));
    folder->writeTime = node->writeTime;
    return folder->entries.emplace(std::string(name), node).first->second.get();
}

FileNode* Files::MakeFolder(std::string_view path) {
    const ParsedPath parsed = ParsePath(path, "C:");
    if (parsed.error) {
        return nullptr;
    }
    if (!DriveRoot(parsed.full[0])) {
        SetDrive(parsed.full[0], {});
    }
    FileNode* node = DriveRoot(parsed.full[0]);
    for (const std::string& name : Split(std::string_view(parsed.full).substr(3), '\\')) {
        if (name.empty()) {
            continue;
        }
        const auto found = node->entries.find(name);
        node = found != node->entries.end() ? found->second.get() : AddEntry(node, name, true, SidAdministrators);
        if (!node->folder) {
            return nullptr;
        }
    }
    return node;
}

FileNode* Files::Write(std::string_view path, std::string_view content) {
    const ParsedPath parsed = ParsePath(path, "C:");
    if (parsed.error || NameOfPath(parsed.full).empty()) {
        return nullptr;
    }
    FileNode* node = Find(parsed.full);
    if (!node) {
        FileNode* folder = MakeFolder(FolderOfPath(parsed.full));
        node = folder ? AddEntry(folder, NameOfPath(parsed.full), false, SidAdministrators) : nullptr;
    }
    if (!node || node->folder) {
        return nullptr;
    }
    if (!parsed.stream.empty()) {
        auto& stream = node->streams[parsed.stream];
        if (!stream) {
            stream = std::make_shared<FileNode>();
        }
        stream->name = parsed.stream;
        stream->parent = node;
        stream->security = node->security;
        stream->content = content;
        return stream.get();
    }
    node->content = content;
    node->writeTime = std::max(FileTimeNow(), node->writeTime + 1);
    return node;
}

std::optional<std::string> Files::Read(std::string_view path) {
    const FileNode* node = Find(path);
    if (!node || node->folder) {
        return std::nullopt;
    }
    return node->content;
}

void Files::Unlink(FileNode* node) {
    FileNode* parent = node->parent;
    if (!parent) {
        return;
    }
    Grow(node, -static_cast<std::int64_t>(node->content.size()));
    node->parent = nullptr;
    parent->writeTime = std::max(FileTimeNow(), parent->writeTime);
    auto& list = parent->folder ? parent->entries : parent->streams;
    const auto found = list.find(node->name);
    if (found != list.end() && found->second.get() == node) {
        list.erase(found); // the node may be gone after this line
    }
}

bool Files::Delete(std::string_view path) {
    FileNode* node = Find(path);
    if (!node || !node->parent) {
        return false;
    }
    Unlink(node);
    return true;
}

bool Files::Move(FileNode* node, std::string_view to) {
    const ParsedPath parsed = ParsePath(to, "C:");
    FileNode* folder = parsed.error ? nullptr : Find(FolderOfPath(parsed.full));
    if (!folder || !folder->folder || !node->parent) {
        return false;
    }
    const auto found = node->parent->entries.find(node->name);
    const std::shared_ptr<FileNode> moved = found->second;
    node->parent->entries.erase(found);
    node->parent->writeTime = folder->writeTime = FileTimeNow();
    node->name = NameOfPath(parsed.full);
    node->parent = folder;
    folder->entries[node->name] = moved;
    return true;
}

std::string Files::FullPath(std::string_view path, std::string_view currentDirectory) const {
    const ParsedPath parsed = ParsePath(path, currentDirectory);
    return parsed.error ? std::string() : parsed.full;
}

void Files::Refuse(std::string_view path, std::string_view account) {
    FileNode* node = Find(path);
    if (!node) {
        node = MakeFolder(path);
    }
    if (node) {
        node->refusedAccounts.emplace_back(account);
    }
}

bool Files::Grow(const FileNode* node, std::int64_t bytes) {
    while (node->parent) {
        node = node->parent;
    }
    const auto found = m_drives.find(node->name[0]);
    if (!node->folder || found == m_drives.end() || found->second.freeBytes == ~0ull) {
        return true;
    }
    std::uint64_t& freeBytes = found->second.freeBytes;
    if (bytes > 0 && static_cast<std::uint64_t>(bytes) > freeBytes) {
        return false;
    }
    freeBytes -= static_cast<std::uint64_t>(bytes);
    return true;
}

// What Windows makes of some wildcards before it compares.
constexpr char UpToLastDot = '<', UpToADot = '>', DotOrEnd = '"';

static bool MatchesMarks(std::string_view name, std::string_view pattern) {
    if (pattern.empty()) {
        return name.empty();
    }
    const char mark = pattern[0];
    const std::string_view rest = pattern.substr(1);
    if (mark == '*' || mark == UpToLastDot) {
        const std::size_t dot = name.rfind('.');
        const std::size_t most = mark == '*' || dot == std::string_view::npos ? name.size() : dot;
        for (std::size_t taken = 0; taken <= most; ++taken) {
            if (MatchesMarks(name.substr(taken), rest)) {
                return true;
            }
        }
        return false;
    }
    if (mark == UpToADot && (name.empty() || name[0] == '.')) {
        return MatchesMarks(name, rest);
    }
    if (mark == DotOrEnd && name.empty()) {
        return MatchesMarks(name, rest);
    }
    if (name.empty()) {
        return false;
    }
    const bool fits = mark == UpToADot || (mark == DotOrEnd ? name[0] == '.' : LowerChar(mark) == LowerChar(name[0]));
    return fits && MatchesMarks(name.substr(1), rest);
}

bool MatchesFilePattern(std::string_view name, std::string_view pattern) {
    if (pattern == "*.*") {
        return true;
    }
    const std::size_t last = pattern.find_last_not_of(". ");
    if (last != std::string_view::npos && !pattern.ends_with("*.")) {
        pattern = pattern.substr(0, last + 1); // dots and blanks at the end are no part of a name
    }
    std::string marked(pattern);
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
        if (pattern[i] == '?') {
            marked[i] = UpToADot;
        } else if (pattern[i] == '.' && (next == '?' || next == '*')) {
            marked[i] = DotOrEnd;
        } else if (pattern[i] == '*' && next == '.') {
            marked[i] = UpToLastDot;
        }
    }
    if (marked.ends_with('.') && marked.size() > 1 && marked[marked.size() - 2] == UpToLastDot) {
        marked.pop_back(); // "*.": names without an extension
    }
    return MatchesMarks(name, marked);
}

} // namespace machine
