#include "support/registry/RegistryTools.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/registry/KeyAccess.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr DWORD KeyNotFound = 2;    // result of RegGetKeyWriteTime
constexpr DWORD ChangeLimit = 128;  // longest value that RegChangeValue takes, in bytes
constexpr DWORD MaxValueName = 260; // characters
constexpr DWORD FirstVersionWithUac = 6;

namespace {
// Result of work on a key: whether the key could be opened at all, and the registry's error of the open or the work.
struct KeyOutcome {
    bool Opened;
    DWORD Error;
};
} // namespace

// Opens the key, does the work and closes it. If the key denies access, everybody gets access in between; its former
// access list is restored after the key was closed and before this function returns, on every path.
// firstRoot: of the first open; secondRoot: of the one after the grant. work: LONG(HKEY), a registry error.
template<typename Work>
static KeyOutcome WithKey(HKEY firstRoot, HKEY secondRoot, const char* key, REGSAM rights, Work work) {
    OwnedKey handle;
    PSECURITY_DESCRIPTOR formerList = nullptr;
    LONG error = RegOpenKeyExA(firstRoot, key, 0, rights, handle.Receive());
    if (error == static_cast<LONG>(ERROR_ACCESS_DENIED)) {
        formerList = RegGrantKeyAccess(HKEY_LOCAL_MACHINE, key);
        if (!formerList) {
            return {false, ERROR_ACCESS_DENIED};
        }
        error = RegOpenKeyExA(secondRoot, key, 0, rights, handle.Receive());
    }
    const bool opened = error == static_cast<LONG>(ERROR_SUCCESS);
    if (opened) {
        error = work(handle.Get());
        handle.Reset(); // before the access list is restored: an open handle would keep its access
    }
    // The work is done and its result holds, but the log must say that everybody may write to this key from now on.
    if (formerList && !RegRestoreKeyAccess(HKEY_LOCAL_MACHINE, key, formerList)) {
        WriteLog(1, "access list of HKLM\\%s could not be put back: everybody may change the key", key);
    }
    return {opened, static_cast<DWORD>(error)};
}

template<typename Work>
static KeyOutcome WithKey(HKEY root, const char* key, REGSAM rights, Work work) {
    return WithKey(root, root, key, rights, work);
}

// Puts the error where the caller expects it. Returns: 1 for success, else 0.
static int Finish(DWORD error) {
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return 0;
    }
    return 1;
}

// Turns what RegQueryValueExA has put into buffer into text. length: bytes read, at most size. A value without a final
// zero gets one; if there is no room for it the value does not fit.
static LONG FinishText(DWORD type, char* buffer, DWORD size, DWORD length) {
    if (type == REG_DWORD) {
        DWORD value = 0;
        CopyBytes(&value, buffer, length < sizeof(value) ? length : sizeof(value));
        FormatText(buffer, size, "%u", value);
        return ERROR_SUCCESS;
    }
    if (length < size) {
        buffer[length] = '\0';
        return ERROR_SUCCESS;
    }
    return buffer[size - 1] == '\0' ? static_cast<LONG>(ERROR_SUCCESS) : static_cast<LONG>(ERROR_MORE_DATA);
}

static LONG QueryText(HKEY handle, const char* name, char* buffer, DWORD size) {
    DWORD type = 0;
    DWORD length = size;
    LONG error = RegQueryValueExA(handle, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &length);
    if (error == static_cast<LONG>(ERROR_SUCCESS)) {
        error = FinishText(type, buffer, size, length);
    }
    if (error != static_cast<LONG>(ERROR_SUCCESS)) {
        buffer[0] = '\0';
    }
    return error;
}

static LONG WriteText(HKEY handle, const char* name, const char* text) {
    const DWORD sizeBytes = static_cast<DWORD>(TextLength(text) + 1);
    return RegSetValueExA(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeBytes);
}

int RegDeleteValue(HKEY root, const char* key, const char* name) {
    OwnedKey handle;
    LONG error = RegOpenKeyExA(root, key, 0, KEY_WRITE, handle.Receive());
    if (error == static_cast<LONG>(ERROR_SUCCESS)) {
        error = RegDeleteValueA(handle.Get(), name);
        handle.Reset();
    }
    WriteLog(1, "RegDeleteValue(%s, %s)  err=%u", key, name, static_cast<DWORD>(error));
    return Finish(static_cast<DWORD>(error));
}

int RegValueExists(HKEY root, const char* key, const char* name) {
    OwnedKey handle;
    LONG error = RegOpenKeyExA(root, key, 0, KEY_QUERY_VALUE, handle.Receive());
    if (error == static_cast<LONG>(ERROR_SUCCESS)) {
        error = RegQueryValueExA(handle.Get(), name, nullptr, nullptr, nullptr, nullptr);
        handle.Reset();
    }
    return Finish(static_cast<DWORD>(error));
}

DWORD RegGetKeyWriteTime(HKEY root, const char* key, FILETIME* time) {
    OwnedKey handle;
    LONG error = RegOpenKeyExA(root, key, 0, KEY_READ, handle.Receive());
    if (error == static_cast<LONG>(ERROR_SUCCESS)) {
        FILETIME written = {};
        error = RegQueryInfoKeyA(handle.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, &written);
        handle.Reset();
        if (error == static_cast<LONG>(ERROR_SUCCESS)) {
            *time = written;
        }
    }
    return Finish(static_cast<DWORD>(error)) ? 0 : KeyNotFound;
}

int GetRegValueSize(HKEY root, const char* key, const char* name, DWORD* size) {
    *size = 0;
    DWORD sizeBytes = 0;
    const KeyOutcome outcome = WithKey(root, key, KEY_QUERY_VALUE, [&](HKEY handle) -> LONG {
        const LONG error = RegQueryValueExA(handle, name, nullptr, nullptr, nullptr, &sizeBytes);
        return error == static_cast<LONG>(ERROR_MORE_DATA) ? static_cast<LONG>(ERROR_SUCCESS) : error;
    });
    if (!outcome.Opened) {
        WriteLog(1, " error %s opening %s", ErrorName(outcome.Error), key);
    } else if (outcome.Error != ERROR_SUCCESS) {
        WriteLog(1, "error %s reading %s\\%s", ErrorName(outcome.Error), key, name);
    } else {
        *size = sizeBytes;
        WriteLog(4, "GetRegValueSize(%s\\%s)  res=%u", key, name, sizeBytes);
    }
    return Finish(outcome.Error);
}

int RegReadDword(HKEY root, const char* key, const char* name, DWORD* value) {
    char data[sizeof(DWORD) + 1] = {}; // one more, so that a text always ends
    DWORD type = 0;
    const KeyOutcome outcome = WithKey(root, key, KEY_QUERY_VALUE, [&](HKEY handle) -> LONG {
        DWORD length = sizeof(DWORD);
        return RegQueryValueExA(handle, name, nullptr, &type, reinterpret_cast<BYTE*>(data), &length);
    });
    if (outcome.Error == ERROR_SUCCESS) {
        if (type == REG_SZ) {
            *value = static_cast<DWORD>(StrToIntA(data));
        } else {
            CopyBytes(value, data, sizeof(DWORD));
        }
    }
    return Finish(outcome.Error);
}

int RegReadBinary(HKEY root, const char* key, const char* name, void* buffer, DWORD* size) {
    ZeroBytes(buffer, *size);
    DWORD length = *size;
    const KeyOutcome outcome = WithKey(root, key, KEY_QUERY_VALUE, [&](HKEY handle) -> LONG {
        return RegQueryValueExA(handle, name, nullptr, nullptr, static_cast<BYTE*>(buffer), &length);
    });
    if (!outcome.Opened) {
        WriteLog(1, " error %u opening %s", outcome.Error, key);
    } else if (outcome.Error != ERROR_SUCCESS) {
        WriteLog(1, "error %u reading %s\\%s", outcome.Error, key, name);
    } else {
        *size = length;
    }
    return Finish(outcome.Error);
}

int RegReadString(HKEY root, const char* key, const char* name, char* buffer, DWORD size, int view64) {
    if (size == 0) {
        return Finish(ERROR_INVALID_PARAMETER);
    }
    buffer[0] = '\0';
    const REGSAM rights = view64 ? KEY_QUERY_VALUE | KEY_WOW64_64KEY : KEY_QUERY_VALUE;
    const KeyOutcome outcome =
        WithKey(root, key, rights, [&](HKEY handle) -> LONG { return QueryText(handle, name, buffer, size); });
    return Finish(outcome.Error);
}

int RegReadDisplayString(HKEY root, const char* key, const char* name, char* buffer, DWORD size) {
    if (size == 0) {
        return Finish(ERROR_INVALID_PARAMETER);
    }
    buffer[0] = '\0';
    OwnedKey handle;
    LONG error = RegOpenKeyExA(root, key, 0, KEY_QUERY_VALUE, handle.Receive());
    if (error == static_cast<LONG>(ERROR_SUCCESS)) {
        error = QueryText(handle.Get(), name, buffer, size);
        handle.Reset();
    }
    return Finish(static_cast<DWORD>(error)) && buffer[0] != '\0';
}

int RegWriteString(HKEY root, const char* key, const char* name, const char* text) {
    const KeyOutcome outcome =
        WithKey(root, key, KEY_SET_VALUE, [&](HKEY handle) -> LONG { return WriteText(handle, name, text); });
    return Finish(outcome.Error);
}

int RegWriteBinary(HKEY root, const char* key, const char* name, const void* data, DWORD size) {
    const KeyOutcome outcome = WithKey(root, key, KEY_SET_VALUE, [&](HKEY handle) -> LONG {
        return RegSetValueExA(handle, name, 0, REG_BINARY, static_cast<const BYTE*>(data), size);
    });
    return Finish(outcome.Error);
}

int RegWriteDword(HKEY root, const char* key, const char* name, DWORD value) {
    const KeyOutcome outcome = WithKey(root, key, KEY_SET_VALUE, [&](HKEY handle) -> LONG {
        return RegSetValueExA(handle, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
    });
    return Finish(outcome.Error);
}

void RegChangeValue(HKEY root, const char* key, const char* name, const char* search, const char* replace) {
    const KeyOutcome outcome = WithKey(HKEY_LOCAL_MACHINE, root, key, KEY_ALL_ACCESS, [&](HKEY handle) -> LONG {
        char value[ChangeLimit + 1] = {}; // a value of the full length need not have its own zero
        DWORD type = 0;
        DWORD length = ChangeLimit;
        const LONG error = RegQueryValueExA(handle, name, nullptr, &type, reinterpret_cast<BYTE*>(value), &length);
        if (error != static_cast<LONG>(ERROR_SUCCESS) || type != REG_SZ) {
            return error;
        }
        if (ReplaceInArray(value, search, replace) == 0) {
            return ERROR_SUCCESS;
        }
        WriteLog(3, "RegChangeValue(%s, %s, %s)", key, search, replace);
        const LONG written = WriteText(handle, name, value);
        WriteLog(3, " err=%s", ErrorName(static_cast<DWORD>(written)));
        return written;
    });
    (void)Finish(outcome.Error);
}

void RegChangeAllValues(HKEY root, const char* key, const char* search, const char* replace) {
    WriteLog(2, "RegChangeAllValues(%s, %s, %s)", key, search, replace);
    OwnedKey handle;
    const LONG error = RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_ALL_ACCESS, handle.Receive());
    if (error != static_cast<LONG>(ERROR_SUCCESS)) {
        SetLastError(static_cast<DWORD>(error));
        return;
    }
    for (DWORD index = 0;; ++index) {
        char name[MaxValueName + 1];
        DWORD length = sizeof(name);
        if (RegEnumValueA(handle.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
            static_cast<LONG>(ERROR_SUCCESS)) {
            break;
        }
        RegChangeValue(root, key, name, search, replace);
    }
}

int IsUacEnabled() {
    if (g_os.MajorVersion < FirstVersionWithUac) {
        return 0;
    }
    DWORD value = 1;
    (void)RegReadDword(HKEY_LOCAL_MACHINE, "Software\\Microsoft\\Windows\\CurrentVersion\\Policies\\System",
                       "EnableLUA", &value); // a missing value counts as enabled
    WriteLog(2, "UAC=%u", value);
    return value == 1;
}
