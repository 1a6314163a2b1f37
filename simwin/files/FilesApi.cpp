#include "simwin/files/Files.h"
#include "simwin/files/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Clock.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/pipes/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

const DeviceOpener& TheOpenerOf(const char* name);

using simwin::BOOL;
using simwin::DWORD;

constexpr DWORD ReadData = 0x1, WriteData = 0x2, AppendData = 0x4, DeleteChild = 0x40, ReadAttributes = 0x80;
constexpr DWORD DeleteRight = 0x10000, AddFile = 0x2, ListFolder = 0x1, Execute = 0x20;
constexpr DWORD SettableAttributes = simwin::FILE_ATTRIBUTE_READONLY | simwin::FILE_ATTRIBUTE_HIDDEN |
                                     simwin::FILE_ATTRIBUTE_SYSTEM | simwin::FILE_ATTRIBUTE_ARCHIVE;

namespace {
// What a name leads to: the file if it exists, else the folder in which it could be created, else an error.
struct Place {
    ParsedPath path;
    FileNode* folder = nullptr;
    FileNode* node = nullptr;
    DWORD error = 0; // 2 or 3 if it does not exist, 123 and others if it cannot be
};
} // namespace

static Place FindPlace(const char* name, bool throughLink = false) {
    Place place;
    if (!name || !*name) {
        place.error = simwin::ERROR_PATH_NOT_FOUND;
        return place;
    }
    place.path = ParsePath(name, CurrentProcess()->currentDirectory);
    place.error = place.path.error;
    if (place.error) {
        return place;
    }
    place.path.full = TheFiles().ThroughLinks(place.path.full, throughLink);
    const std::string folderPath = FolderOfPath(place.path.full);
    if (folderPath.empty()) { // a drive's root
        place.node = TheFiles().Find(place.path.full);
        place.error = place.node ? 0 : simwin::ERROR_PATH_NOT_FOUND;
        return place;
    }
    place.folder = TheFiles().Find(folderPath);
    if (!place.folder || !place.folder->folder) {
        place.folder = nullptr;
        place.error = simwin::ERROR_PATH_NOT_FOUND;
        return place;
    }
    place.node = TheFiles().Find(place.path.full);
    if (place.node && !place.path.stream.empty()) {
        const auto found = place.node->streams.find(place.path.stream);
        place.folder = place.node;
        place.node = found == place.node->streams.end() ? nullptr : found->second.get();
    }
    if (place.node && place.path.endsInBackslash && !place.node->folder) {
        place.error = simwin::ERROR_INVALID_NAME;
    }
    if (!place.node) {
        place.error = simwin::ERROR_FILE_NOT_FOUND;
    }
    return place;
}

// A described refusal, of the file or of a folder above it.
static bool IsRefused(const FileNode* node, const Caller& caller) {
    for (; node; node = node->parent) {
        for (const std::string& account : node->refusedAccounts) {
            if (account == "*" || caller.Is(SidOfAccount(account))) {
                return true;
            }
        }
    }
    return false;
}

static bool MayAccess(const FileNode* node, const Caller& caller, DWORD access) {
    if (IsRefused(node, caller)) {
        return false;
    }
    DWORD wanted = MapGeneric(access, FileMapping);
    // A folder's own rights allow its entries to be queried and deleted.
    if (node->parent && node->parent->folder) {
        if (GrantedAccess(*node->parent->security, caller, ListFolder, FileMapping)) {
            wanted &= ~ReadAttributes;
        }
        if (GrantedAccess(*node->parent->security, caller, DeleteChild, FileMapping)) {
            wanted &= ~DeleteRight;
        }
    }
    return !wanted || GrantedAccess(*node->security, caller, wanted, FileMapping);
}

namespace {
struct ShareRule {
    DWORD rights, share;
};
} // namespace
constexpr ShareRule ShareRules[] = {{ReadData | Execute, simwin::FILE_SHARE_READ},
                                    {WriteData | AppendData, simwin::FILE_SHARE_WRITE},
                                    {DeleteRight, simwin::FILE_SHARE_DELETE}};
constexpr DWORD SharedRights = ReadData | Execute | WriteData | AppendData | DeleteRight;

// Every opener must allow what the others do; one that neither reads, writes nor deletes is not checked.
static bool Shares(const FileNode* node, DWORD access, DWORD share) {
    if (!(access & SharedRights)) {
        return true;
    }
    for (const FileNode::Holder* holder : node->holders) {
        if (!(holder->access & SharedRights)) {
            continue;
        }
        for (const ShareRule& rule : ShareRules) {
            if (((access & rule.rights) && !(holder->share & rule.share)) ||
                ((holder->access & rule.rights) && !(share & rule.share))) {
                return false;
            }
        }
    }
    return true;
}

DWORD AttributesOf(const FileNode* node) {
    const DWORD link = node->link.empty() ? 0 : simwin::FILE_ATTRIBUTE_REPARSE_POINT;
    if (node->folder || link) {
        return (node->folder ? simwin::FILE_ATTRIBUTE_DIRECTORY : 0) | link | node->attributes;
    }
    return node->attributes ? node->attributes : simwin::FILE_ATTRIBUTE_NORMAL;
}

static bool IsDeviceName(const char* name) {
    const bool device = strncmp(name, "\\\\.\\", 4) == 0, verbatim = strncmp(name, "\\\\?\\", 4) == 0;
    return device || (verbatim && !(name[4] && name[5] == ':'));
}

static simwin::HANDLE OpenHandle(OpenFile* file, DWORD access) {
    return CurrentProcess()->handles.Open(file, access);
}

// The opener may block, and the thread may never return: nothing with a destructor lives here before it has.
static simwin::HANDLE OpenDeviceHandle(const char* name, DWORD access, DWORD share, DWORD flags) {
    const DeviceOpener& opener = TheOpenerOf(name);
    if (!opener) {
        return FailOpen(simwin::ERROR_FILE_NOT_FOUND);
    }
    DWORD error = simwin::ERROR_FILE_NOT_FOUND;
    std::unique_ptr<OpenDevice> device = opener(name, access, share, flags, &error);
    if (!device) {
        return FailOpen(error);
    }
    if (device->name.empty()) {
        device->name = name;
    }
    auto* file = new OpenFile;
    file->device = std::move(device);
    return OpenHandle(file, MapGeneric(access, FileMapping));
}

static void Touch(FileNode* node) {
    const bool stream = node->parent && !node->parent->folder;
    FileNode* timed = stream ? node->parent : node;
    timed->writeTime = std::max(FileTimeNow(), timed->writeTime + 1);
}

// What the disposition and the attributes mean for a file that exists. 0: continue.
static DWORD CheckExisting(const FileNode* node, DWORD rights, DWORD disposition, DWORD flags) {
    if (disposition == simwin::CREATE_NEW) {
        return node->folder ? simwin::ERROR_ACCESS_DENIED : simwin::ERROR_FILE_EXISTS;
    }
    if (node->deletePending) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    const bool rewrites = disposition == simwin::CREATE_ALWAYS;
    if (node->folder) {
        return !rewrites && (flags & simwin::FILE_FLAG_BACKUP_SEMANTICS) ? 0 : simwin::ERROR_ACCESS_DENIED;
    }
    if ((node->attributes & simwin::FILE_ATTRIBUTE_READONLY) && (rewrites || (rights & (WriteData | AppendData)))) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    constexpr DWORD Kept = simwin::FILE_ATTRIBUTE_HIDDEN | simwin::FILE_ATTRIBUTE_SYSTEM;
    return rewrites && (node->attributes & Kept & ~flags) ? simwin::ERROR_ACCESS_DENIED : 0;
}

// Opens a file that exists, emptied if it is to be recreated. Returns: 0 or the error.
static DWORD TakeExisting(FileNode* node, DWORD rights, DWORD share, DWORD disposition, DWORD flags) {
    if (const DWORD error = CheckExisting(node, rights, disposition, flags)) {
        return error;
    }
    if (!MayAccess(node, CurrentCaller(), rights)) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    const bool rewrites = disposition == simwin::CREATE_ALWAYS;
    if (!Shares(node, rights | (rewrites ? WriteData : 0), share)) {
        return simwin::ERROR_SHARING_VIOLATION;
    }
    if (rewrites) {
        TheFiles().Grow(node, -static_cast<std::int64_t>(node->content.size()));
        node->content.clear();
        Touch(node);
        node->attributes = (flags & SettableAttributes) | simwin::FILE_ATTRIBUTE_ARCHIVE;
    }
    return 0;
}

// Creates the file, or the stream with its file, where there is none. Returns: 0 or the error.
static DWORD MakeFile(Place& place, DWORD flags, const simwin::SECURITY_ATTRIBUTES* security) {
    const Caller caller = CurrentCaller();
    static_assert(AddFile == WriteData); // a new file needs from its folder what a new stream needs from its file
    if (place.folder->deletePending || IsRefused(place.folder, caller) ||
        !GrantedAccess(*place.folder->security, caller, AddFile, FileMapping)) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    const bool isNew = place.folder->folder;
    FileNode* node = isNew ? TheFiles().Write(place.path.full, "") : place.folder;
    if (!node) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    if (isNew) {
        node->attributes = (flags & SettableAttributes) | simwin::FILE_ATTRIBUTE_ARCHIVE;
        auto own = std::make_shared<SecurityDescriptor>(*node->security);
        own->owner = caller.Is(SidAdministrators) ? Sid(SidAdministrators) : caller.user;
        void* described = security ? security->lpSecurityDescriptor : nullptr;
        const auto given = ParseBinary(described, described ? CurrentProcess()->heap.Size(described) : 0);
        if (given && given->hasDacl) {
            own->dacl = given->dacl;
            own->isProtected = given->isProtected;
        }
        node->security = std::move(own);
    }
    const std::string& stream = place.path.stream;
    place.node = stream.empty() ? node : TheFiles().Write(place.path.full + ":" + stream, "");
    return 0;
}

static std::shared_ptr<FileNode> Shared(FileNode* node) {
    if (!node->parent) {
        return std::shared_ptr<FileNode>(node, [](FileNode*) {}); // a drive's root stays
    }
    const auto& list = node->parent->folder ? node->parent->entries : node->parent->streams;
    return list.find(node->name)->second;
}

// The open file of a handle, or null with the last error 6, or 5 if it was opened with none of the rights (0: any).
static OpenFile* UseFile(simwin::HANDLE handle, DWORD anyOfRights = 0) {
    auto* file = FromHandle<OpenFile>(handle, ObjectKind::File);
    if (!file) {
        SetError(simwin::ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (anyOfRights && !(CurrentProcess()->handles.Entry(handle)->access & anyOfRights)) {
        SetError(simwin::ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return file;
}

namespace {
// What a call on a handle is applied to: the path of its file or the name of its device. Lives on the stack of the
// call, so it has no destructor.
struct FileObject {
    char text[simwin::MAX_PATH + 40];

    explicit FileObject(simwin::HANDLE handle) {
        text[0] = 0;
        const auto* file = FromHandle<OpenFile>(handle, ObjectKind::File);
        if (!file) {
            return;
        }
        const std::string name = file->device ? file->device->name : file->node->Path();
        text[name.copy(text, sizeof text - 1)] = 0;
    }
};
} // namespace

// Whether a file may be deleted or renamed now.
static DWORD CheckRemoval(const Place& place) {
    if (place.error) {
        return place.error;
    }
    const FileNode* node = place.node;
    if (!node->parent || node->deletePending || !MayAccess(node, CurrentCaller(), DeleteRight)) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    constexpr DWORD ShareAll = simwin::FILE_SHARE_READ | simwin::FILE_SHARE_WRITE | simwin::FILE_SHARE_DELETE;
    return Shares(node, DeleteRight, ShareAll) ? 0 : simwin::ERROR_SHARING_VIOLATION;
}

static bool HasOpenFiles(const FileNode* folder) {
    for (const auto& [name, node] : folder->entries) {
        if (!node->holders.empty() || HasOpenFiles(node.get())) {
            return true;
        }
    }
    return false;
}

bool MayExecute(const FileNode* node) {
    return MayAccess(node, CurrentCaller(), Execute);
}

bool MayListFolder(const FileNode* folder) {
    return MayAccess(folder, CurrentCaller(), ListFolder);
}

} // namespace machine

namespace simwin {

using namespace machine;

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flags, HANDLE templateFile) {
    SIM_CALL("CreateFileA", name, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
             ERROR_SHARING_VIOLATION, ERROR_DISK_FULL, ERROR_NOT_READY, ERROR_GEN_FAILURE, ERROR_BUSY,
             ERROR_SEM_TIMEOUT, ERROR_NO_SUCH_DEVICE, ERROR_WRITE_PROTECT);
    if (simCall.error) {
        return FailOpen(simCall.error);
    }
    if (templateFile) {
        NotModelled("CreateFileA", "a template file");
    }
    constexpr DWORD KnownFlags = SettableAttributes | FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS |
                                 FILE_FLAG_SEQUENTIAL_SCAN | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
    if (flags & ~KnownFlags) {
        NotModelled("CreateFileA", "flags other than those that are declared");
    }
    if (disposition < CREATE_NEW || disposition > OPEN_ALWAYS) {
        NotModelled("CreateFileA", "dispositions other than those that are declared");
    }
    if (!name) {
        return FailOpen(ERROR_PATH_NOT_FOUND);
    }
    if (IsDeviceName(name)) {
        return OpenDeviceHandle(name, access, share, flags);
    }

    const DWORD rights = MapGeneric(access, FileMapping);
    Place place = FindPlace(name, /*throughLink=*/true);
    const bool existed = place.node && !place.error;
    const bool mayMake = disposition != OPEN_EXISTING && !place.path.endsInBackslash;
    DWORD error = place.error;
    if (existed) {
        error = TakeExisting(place.node, rights, share, disposition, flags);
    } else if (error == ERROR_FILE_NOT_FOUND && mayMake) {
        error = MakeFile(place, flags, security);
    }
    if (error) {
        return FailOpen(error);
    }

    auto* file = new OpenFile;
    file->node = Shared(place.node);
    file->holder = {rights, share};
    file->node->holders.push_back(&file->holder);
    const bool tellsThatItWas = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
    SetError(existed && tellsThatItWas ? DWORD{ERROR_ALREADY_EXISTS} : DWORD{ERROR_SUCCESS});
    return OpenHandle(file, rights);
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, LPDWORD read, LPVOID overlapped) {
    const FileObject object(file);
    SIM_CALL("ReadFile", object.text, ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED, ERROR_NOT_READY, ERROR_GEN_FAILURE);
    if (read) {
        *read = 0;
    }
    if (overlapped) {
        NotModelled("ReadFile", "overlapped reading");
    }
    if (simCall.error) {
        return Fail(simCall.error);
    }
    OpenFile* open = UseFile(file, ReadData);
    if (!open) {
        return FALSE;
    }
    if (open->device) {
        DWORD moved = 0;
        const DWORD error = open->device->Read(buffer, bytes, &moved);
        if (read) {
            *read = moved;
        }
        return error ? Fail(error) : TRUE;
    }
    if (open->node->folder) {
        return Fail(ERROR_INVALID_FUNCTION);
    }
    const std::string& content = open->node->content;
    const std::uint64_t left = open->position < content.size() ? content.size() - open->position : 0;
    const auto count = static_cast<DWORD>(std::min<std::uint64_t>(left, bytes));
    if (count) {
        memcpy(buffer, content.data() + open->position, count);
    }
    open->position += count;
    if (read) {
        *read = count;
    }
    return TRUE;
}

BOOL WriteFile(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
    constexpr DWORD AfterTheEnd = 0xFFFFFFFF;
    const FileObject object(file);
    SIM_CALL("WriteFile", object.text, ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED, ERROR_DISK_FULL, ERROR_GEN_FAILURE);
    if (written) {
        *written = 0;
    }
    if (overlapped && (overlapped->Offset != AfterTheEnd || overlapped->OffsetHigh != AfterTheEnd)) {
        NotModelled("WriteFile", "overlapped writing");
    }
    if (simCall.error) {
        return Fail(simCall.error);
    }
    OpenFile* open = UseFile(file, WriteData | AppendData);
    if (!open) {
        return FALSE;
    }
    if (open->device) {
        DWORD moved = 0;
        const DWORD error = open->device->Write(data, bytes, &moved);
        if (written) {
            *written = moved;
        }
        return error ? Fail(error) : TRUE;
    }
    std::string& content = open->node->content;
    if (overlapped) {
        open->position = content.size();
    }
    const std::uint64_t end = open->position + bytes;
    if (end > content.size()) {
        if (!TheFiles().Grow(open->node.get(), static_cast<std::int64_t>(end - content.size()))) {
            return Fail(ERROR_DISK_FULL);
        }
        content.resize(end);
    }
    if (bytes) {
        memcpy(content.data() + open->position, data, bytes);
        Touch(open->node.get());
    }
    open->position = end;
    if (written) {
        *written = bytes;
    }
    return TRUE;
}

DWORD GetFileSize(HANDLE file, LPDWORD high) {
    const FileObject object(file);
    SIM_CALL("GetFileSize", object.text, ERROR_INVALID_HANDLE);
    if (simCall.error) {
        SetError(simCall.error);
        return INVALID_FILE_SIZE;
    }
    const OpenFile* open = UseFile(file);
    if (!open) {
        return INVALID_FILE_SIZE;
    }
    if (open->device) {
        SetError(ERROR_INVALID_FUNCTION);
        return INVALID_FILE_SIZE;
    }
    if (high) {
        *high = static_cast<DWORD>(std::uint64_t{open->node->content.size()} >> 32);
    }
    return static_cast<DWORD>(open->node->content.size());
}

BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* lastAccess, FILETIME* lastWrite) {
    const FileObject object(file);
    SIM_CALL("GetFileTime", object.text, ERROR_INVALID_HANDLE);
    if (simCall.error) {
        return Fail(simCall.error);
    }
    const OpenFile* open = UseFile(file);
    if (!open) {
        return FALSE;
    }
    if (open->device) {
        return Fail(ERROR_INVALID_FUNCTION);
    }
    const FileNode* node = open->node.get();
    const FileNode* timed = node->parent && !node->parent->folder ? node->parent : node;
    if (creation) {
        *creation = ToFileTime(timed->createdTime);
    }
    if (lastAccess) {
        *lastAccess = ToFileTime(timed->writeTime);
    }
    if (lastWrite) {
        *lastWrite = ToFileTime(timed->writeTime);
    }
    return TRUE;
}

BOOL DeleteFileA(LPCSTR name) {
    SIM_CALL("DeleteFileA", name, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
             ERROR_SHARING_VIOLATION);
    if (simCall.error) {
        return Fail(simCall.error);
    }
    const Place place = FindPlace(name);
    if (const DWORD error = CheckRemoval(place)) {
        return Fail(error);
    }
    if (place.node->folder || (place.node->attributes & FILE_ATTRIBUTE_READONLY)) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (place.node->holders.empty()) {
        TheFiles().Unlink(place.node);
    } else {
        place.node->deletePending = true;
    }
    return TRUE;
}

BOOL MoveFileA(LPCSTR from, LPCSTR to) {
    SIM_CALL("MoveFileA", from, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
             ERROR_SHARING_VIOLATION, ERROR_ALREADY_EXISTS);
    if (simCall.error) {
        return Fail(simCall.error);
    }
    const Place source = FindPlace(from);
    if (const DWORD error = CheckRemoval(source)) {
        return Fail(error);
    }
    if (source.node->folder && HasOpenFiles(source.node)) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    const Place target = FindPlace(to);
    if (target.node && target.node != source.node) {
        return Fail(ERROR_ALREADY_EXISTS);
    }
    if (!target.path.stream.empty() || !source.path.stream.empty()) {
        NotModelled("MoveFileA", "a stream");
    }
    if (!target.node && target.error != ERROR_FILE_NOT_FOUND) {
        return Fail(target.error);
    }
    const Caller caller = CurrentCaller();
    const bool allowed = target.folder && !IsRefused(target.folder, caller) &&
                         GrantedAccess(*target.folder->security, caller, AddFile, FileMapping);
    if (!allowed) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    return TheFiles().Move(source.node, target.path.full) ? TRUE : Fail(ERROR_PATH_NOT_FOUND);
}

DWORD GetFileAttributesA(LPCSTR name) {
    SIM_CALL("GetFileAttributesA", name, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
             ERROR_INVALID_NAME, ERROR_NOT_READY);
    DWORD error = simCall.error;
    if (!error && name && IsDeviceName(name)) {
        error = ERROR_INVALID_NAME;
    }
    if (!error) {
        const Place place = FindPlace(name);
        error = place.error;
        // What is below a refused folder looks the same whether it exists or not.
        const FileNode* asked = place.node ? place.node : place.folder;
        if ((asked && IsRefused(asked, CurrentCaller())) ||
            (!error && (place.node->deletePending || !MayAccess(place.node, CurrentCaller(), ReadAttributes)))) {
            error = ERROR_ACCESS_DENIED;
        }
        if (!error) {
            return AttributesOf(place.node->parent && !place.node->parent->folder ? place.node->parent : place.node);
        }
    }
    SetError(error);
    return INVALID_FILE_ATTRIBUTES;
}

UINT GetDriveTypeA(LPCSTR root) {
    SIM_CALL("GetDriveTypeA", root);
    const std::string text = root ? root : CurrentProcess()->currentDirectory.substr(0, 2) + "\\";
    const bool isRoot = text.size() >= 2 && text[1] == ':' && (text.size() == 2 || text.substr(2) == "\\");
    const Drive* drive = isRoot ? TheFiles().FindDrive(text[0]) : nullptr;
    if (!drive) {
        return DRIVE_NO_ROOT_DIR;
    }
    const Drive* target = drive->substitutedFor.empty() ? drive : TheFiles().FindDrive(drive->substitutedFor[0]);
    return target ? target->type : DRIVE_NO_ROOT_DIR;
}

// Returns a text by the rule of the folder operations: the length, or the needed size with its zero.
static DWORD GivePath(const std::string& path, LPSTR buffer, DWORD size) {
    if (size < path.size() + 1) {
        return static_cast<DWORD>(path.size() + 1);
    }
    memcpy(buffer, path.c_str(), path.size() + 1);
    return static_cast<DWORD>(path.size());
}

UINT GetWindowsDirectoryA(LPSTR buffer, UINT size) {
    SIM_CALL("GetWindowsDirectoryA", "");
    return GivePath(WindowsDirectory(), buffer, size);
}

UINT GetSystemDirectoryA(LPSTR buffer, UINT size) {
    SIM_CALL("GetSystemDirectoryA", "");
    return GivePath(SystemDirectory(), buffer, size);
}

DWORD GetCurrentDirectoryA(DWORD size, LPSTR buffer) {
    SIM_CALL("GetCurrentDirectoryA", "");
    const std::string& directory = CurrentProcess()->currentDirectory;
    return GivePath(directory.size() == 2 ? directory + "\\" : directory, buffer, size);
}

BOOL SetCurrentDirectoryA(LPCSTR directory) {
    SIM_CALL("SetCurrentDirectoryA", directory, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED);
    DWORD error = simCall.error;
    if (!error) {
        const Place place = FindPlace(directory);
        error = place.error;
        if (!error && !(AttributesOf(place.node) & FILE_ATTRIBUTE_DIRECTORY)) {
            error = ERROR_DIRECTORY;
        }
        if (!error) {
            CurrentProcess()->currentDirectory = place.path.full;
            return TRUE;
        }
    }
    SetError(error);
    return FALSE;
}

} // namespace simwin
