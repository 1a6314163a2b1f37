#include "support/KeyAccess.h"

#include "support/ScopeGuard.h"

namespace {

constexpr int RestoreTries = 3;
constexpr char EveryoneFullAccess[] = "D:(A;OICI;GA;;;WD)";

// Sets an access list that gives everybody everything. A failure shows in the caller's next open.
void SetEveryoneFullAccess(HKEY handle) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(EveryoneFullAccess, SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
        return;
    }
    auto release = OnScopeExit([&] { LocalFree(descriptor); });
    if (IsValidSecurityDescriptor(descriptor)) {
        (void)RegSetKeySecurity(handle, DACL_SECURITY_INFORMATION, descriptor);
    }
}

// The key's access list in a block of LocalAlloc, or null.
PSECURITY_DESCRIPTOR ReadAccessList(HKEY handle) {
    DWORD size = 0;
    BYTE probe[1]; // too small for any list: the call gives the size that is needed
    (void)RegGetKeySecurity(handle, DACL_SECURITY_INFORMATION, probe, &size);
    if (size == 0) {
        return nullptr;
    }
    PSECURITY_DESCRIPTOR list = LocalAlloc(LPTR, size);
    if (!list) {
        return nullptr;
    }
    if (RegGetKeySecurity(handle, DACL_SECURITY_INFORMATION, list, &size) != ERROR_SUCCESS) {
        // Without the former list there is nothing to put back, so the key must stay as it is.
        LocalFree(list);
        return nullptr;
    }
    return list;
}

// Puts a list back. Returns: whether it could be.
bool SetAccessList(HKEY root, const char* key, PSECURITY_DESCRIPTOR list) {
    HKEY handle = nullptr;
    if (RegOpenKeyExA(root, key, 0, WRITE_DAC | READ_CONTROL, &handle) != ERROR_SUCCESS) {
        return false;
    }
    const bool isSet = RegSetKeySecurity(handle, DACL_SECURITY_INFORMATION, list) == ERROR_SUCCESS;
    RegCloseKey(handle);
    return isSet;
}

} // namespace

PSECURITY_DESCRIPTOR RegGrantKeyAccess(HKEY root, const char* key) {
    HKEY handle = nullptr;
    if (RegOpenKeyExA(root, key, 0, WRITE_DAC | READ_CONTROL, &handle) != ERROR_SUCCESS) {
        return nullptr;
    }
    auto close = OnScopeExit([&] { RegCloseKey(handle); });
    PSECURITY_DESCRIPTOR list = ReadAccessList(handle);
    if (list) {
        SetEveryoneFullAccess(handle);
    }
    return list;
}

int RegRestoreKeyAccess(HKEY root, const char* key, PSECURITY_DESCRIPTOR list) {
    auto release = OnScopeExit([&] { LocalFree(list); });
    // A key that stays open to everybody is worse than a late one, and nobody else knows the list any more.
    for (int tries = 0; tries < RestoreTries; ++tries) {
        if (SetAccessList(root, key, list)) {
            return 1;
        }
    }
    return 0;
}
