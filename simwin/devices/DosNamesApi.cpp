// QueryDosDeviceA and DefineDosDeviceA: the product's access to the DOS name space.
#include "simwin/devices/api.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Call.h"

#include <algorithm>
#include <cstring>

namespace simwin {

// Writes texts with their zeros and one more zero into the buffer. Returns: the characters written, 0 if they do not
// fit.
static DWORD CopyTexts(const std::vector<std::string>& texts, LPSTR buffer, DWORD size) {
    std::size_t needed = 1;
    for (const std::string& text : texts) {
        needed += text.size() + 1;
    }
    if (!buffer || needed > size) {
        machine::SetError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    char* at = buffer;
    for (const std::string& text : texts) {
        std::memcpy(at, text.c_str(), text.size() + 1);
        at += text.size() + 1;
    }
    *at = 0;
    return static_cast<DWORD>(needed);
}

static std::vector<std::string> TargetsOf(LPCSTR name) {
    std::vector<std::string> targets;
    if (const auto* stack = machine::TheDosNames().Stack(name)) {
        for (std::size_t i = stack->size(); i-- > 0;) {
            targets.push_back((*stack)[i].target);
        }
        return targets;
    }
    // The path of an interface that is up is a name too: it leads to the node's own device.
    if (const machine::DeviceInterface* path = machine::TheDeviceTree().FindInterface(name); path && path->up) {
        targets.push_back(machine::InterfaceTargetOf(*path->node));
    }
    return targets;
}

DWORD QueryDosDeviceA(LPCSTR name, LPSTR buffer, DWORD size) {
    SIM_CALL("QueryDosDeviceA", name ? name : "", ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INSUFFICIENT_BUFFER,
             ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_NAME);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return 0;
    }
    if (!name) {
        return CopyTexts(machine::TheDosNames().Names(), buffer, size);
    }
    const std::vector<std::string> targets = TargetsOf(name);
    if (targets.empty()) {
        machine::SetError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return CopyTexts(targets, buffer, size);
}

BOOL DefineDosDeviceA(DWORD flags, LPCSTR name, LPCSTR target) {
    SIM_CALL("DefineDosDeviceA", name ? name : "", ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER,
             ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_NAME);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return FALSE;
    }
    constexpr DWORD Known =
        DDD_RAW_TARGET_PATH | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE | DDD_NO_BROADCAST_SYSTEM;
    const bool remove = flags & DDD_REMOVE_DEFINITION;
    if (!name || !*name || flags & ~Known || (!remove && (!target || !*target)) ||
        (flags & DDD_EXACT_MATCH_ON_REMOVE && !remove)) {
        machine::SetError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    machine::DosNames& names = machine::TheDosNames();
    std::string path = target ? target : "";
    if (!path.empty() && !(flags & DDD_RAW_TARGET_PATH)) {
        std::replace(path.begin(), path.end(), '/', '\\');
        path = "\\??\\" + path;
    }
    if (!remove) {
        names.Define(name, path, "program");
        return TRUE;
    }
    const bool done = path.empty() ? names.RemoveNewest(name, "program")
                                   : names.RemoveMatching(name, path, flags & DDD_EXACT_MATCH_ON_REMOVE, "program");
    if (!done) {
        machine::SetError(ERROR_FILE_NOT_FOUND);
    }
    return done;
}

} // namespace simwin
