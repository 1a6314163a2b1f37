#include "support/registry/KeyAccess.h"

#include "support/registry/AccessList.h"
#include "support/system/Handles.h"

constexpr int RestoreTries = 3;

// Sets an access list that gives everybody full access. A failure shows in the caller's next open.
static void SetEveryoneFullAccess(HKEY handle) {
    const OwnedSecurityDescriptor descriptor = EveryoneFullAccess();
    if (descriptor) {
        (void)RegSetKeySecurity(handle, DACL_SECURITY_INFORMATION, descriptor.Get());
    }
}

// The key's access list in a block of LocalAlloc, or null.
static PSECURITY_DESCRIPTOR ReadAccessList(HKEY handle) {
    DWORD size = 0;
    BYTE probe[1]; // too small for any list: the call gives the size that is needed
    (void)RegGetKeySecurity(handle, DACL_SECURITY_INFORMATION, probe, &size);
    if (size == 0) {
        return nullptr;
    }
    OwnedSecurityDescriptor list(LocalAlloc(LPTR, size));
    if (!list || RegGetKeySecurity(handle, DACL_SECURITY_INFORMATION, list.Get(), &size) != ERROR_SUCCESS) {
        return nullptr; // without the former list nothing could be restored, so the key must stay as it is
    }
    return list.Release();
}

// Restores a list. Returns: whether it succeeded.
static bool SetAccessList(HKEY root, const char* key, PSECURITY_DESCRIPTOR list) {
    OwnedKey handle;
    if (RegOpenKeyExA(root, key, 0, WRITE_DAC | READ_CONTROL, handle.Receive()) != ERROR_SUCCESS) {
        return false;
    }
    return RegSetKeySecurity(handle.Get(), DACL_SECURITY_INFORMATION, list) == ERROR_SUCCESS;
}

PSECURITY_DESCRIPTOR RegGrantKeyAccess(HKEY root, const char* key) {
    OwnedKey handle;
    if (RegOpenKeyExA(root, key, 0, WRITE_DAC | READ_CONTROL, handle.Receive()) != ERROR_SUCCESS) {
        return nullptr;
    }
    PSECURITY_DESCRIPTOR list = ReadAccessList(handle.Get());
    if (list) {
        SetEveryoneFullAccess(handle.Get());
    }
    return list;
}

int RegRestoreKeyAccess(HKEY root, const char* key, PSECURITY_DESCRIPTOR list) {
    const OwnedSecurityDescriptor owned(list);
    // A key left open to everybody is worse than a delay, and no one else knows its list any more.
    for (int tries = 0; tries < RestoreTries; ++tries) {
        if (SetAccessList(root, key, list)) {
            return 1;
        }
    }
    return 0;
}
