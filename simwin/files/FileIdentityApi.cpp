// The true identity of a handle or name: links, second names, owner and access list.
#include "simwin/files/Files.h"
#include "simwin/files/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Process.h"
#include "simwin/registry/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

using simwin::BOOL;
using simwin::DWORD;

static FileNode* NodeOf(simwin::HANDLE handle) {
    const auto* file = FromHandle<OpenFile>(handle, ObjectKind::File);
    return file ? file->node.get() : nullptr;
}

// The requested part of a descriptor.
static SecurityDescriptor PartOf(SecurityDescriptor part, simwin::SECURITY_INFORMATION what) {
    if (!(what & simwin::OWNER_SECURITY_INFORMATION)) {
        part.owner.clear();
    }
    if (!(what & simwin::GROUP_SECURITY_INFORMATION)) {
        part.group.clear();
    }
    if (!(what & simwin::DACL_SECURITY_INFORMATION)) {
        part.hasDacl = part.isProtected = part.autoInherited = false;
        part.dacl.clear();
    }
    return part;
}

static DWORD FinalPathNameByHandle(simwin::HANDLE file, simwin::LPSTR path, DWORD size, DWORD flags) {
    SIM_CALL("GetFinalPathNameByHandleA", "", simwin::ERROR_INVALID_HANDLE, simwin::ERROR_ACCESS_DENIED);
    if (flags) {
        NotModelled("GetFinalPathNameByHandleA", "names of volumes");
    }
    const FileNode* node = NodeOf(file);
    if (simCall.error || !node) {
        SetError(simCall.error ? simCall.error : DWORD{simwin::ERROR_INVALID_HANDLE});
        return 0;
    }
    const std::string text = "\\\\?\\" + node->Path();
    if (text.size() >= size) {
        return static_cast<DWORD>(text.size() + 1);
    }
    memcpy(path, text.c_str(), text.size() + 1);
    return static_cast<DWORD>(text.size());
}

const OptionalOperation Optional("kernel32.dll", "GetFinalPathNameByHandleA", AsProc(FinalPathNameByHandle), 0x0600);

} // namespace machine

namespace simwin {

using namespace machine;

BOOL GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
    SIM_CALL("GetFileInformationByHandle", "", ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED, ERROR_GEN_FAILURE);
    const FileNode* node = NodeOf(file);
    if (simCall.error || !node) {
        SetError(simCall.error ? simCall.error : DWORD{ERROR_INVALID_HANDLE});
        return FALSE;
    }
    *information = {};
    information->dwFileAttributes = node->folder ? FILE_ATTRIBUTE_DIRECTORY | node->attributes : node->attributes;
    information->nFileSizeLow = static_cast<DWORD>(node->content.size());
    information->nNumberOfLinks = node->names;
    return TRUE;
}

DWORD GetLongPathNameA(LPCSTR name, LPSTR path, DWORD size) {
    SIM_CALL("GetLongPathNameA", name, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED);
    const ParsedPath parsed = ParsePath(name, CurrentProcess()->currentDirectory);
    if (simCall.error || parsed.error || !TheFiles().Find(parsed.full)) {
        SetError(simCall.error ? simCall.error : DWORD{ERROR_FILE_NOT_FOUND});
        return 0;
    }
    if (parsed.full.size() >= size) {
        return static_cast<DWORD>(parsed.full.size() + 1);
    }
    memcpy(path, parsed.full.c_str(), parsed.full.size() + 1);
    return static_cast<DWORD>(parsed.full.size());
}

BOOL GetFileSecurityA(LPCSTR name, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor, DWORD size,
                      LPDWORD needed) {
    SIM_CALL("GetFileSecurityA", name, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED);
    if (what & ~(OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION)) {
        NotModelled("GetFileSecurityA", "parts other than owner, group and access list");
    }
    const ParsedPath parsed = ParsePath(name, CurrentProcess()->currentDirectory);
    const FileNode* node = parsed.error ? nullptr : TheFiles().Find(parsed.full);
    DWORD error = simCall.error;
    if (!error && !node) {
        error = ERROR_FILE_NOT_FOUND;
    }
    if (!error && !GrantedAccess(*node->security, CurrentCaller(), READ_CONTROL, FileMapping)) {
        error = ERROR_ACCESS_DENIED;
    }
    if (!error) {
        const std::vector<std::uint8_t> bytes = ToBinary(PartOf(*node->security, what));
        *needed = static_cast<DWORD>(bytes.size());
        if (size < bytes.size()) {
            error = ERROR_INSUFFICIENT_BUFFER;
        } else {
            memcpy(descriptor, bytes.data(), bytes.size());
        }
    }
    if (!error) {
        return TRUE;
    }
    SetError(error);
    return FALSE;
}

} // namespace simwin
