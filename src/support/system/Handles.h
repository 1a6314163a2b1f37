// Owning types for Windows handles, one for each kind, so that nothing is closed by the wrong operation or forgotten on
// an early return. Each can be moved, not copied, and a close preserves the last error: the cause of a failure stays
// readable past the clean-up. Any thread, one at a time.
//     OwnedKey key;
//     if (RegOpenKeyExA(root, name, 0, KEY_READ, key.Receive()) != ERROR_SUCCESS) ...
#pragma once

#include <utility>

#include "platform/win32.h"
#include "support/system/ScopeGuard.h"

// Kind: Value, the owned type; None(), the value for nothing; Close(Value).
template<typename Kind>
class [[nodiscard]] OwnedBy {
public:
    using Value = typename Kind::Value;

    OwnedBy() = default;
    explicit OwnedBy(Value value) : m_value(value) {}
    ~OwnedBy() { Reset(); }
    OwnedBy(OwnedBy&& other) noexcept : m_value(other.Release()) {}
    OwnedBy& operator=(OwnedBy&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    OwnedBy(const OwnedBy&) = delete;
    OwnedBy& operator=(const OwnedBy&) = delete;

    // Closes the held value and takes ownership of the new one.
    void Reset(Value value = Kind::None()) {
        if (IsOpen()) {
            const LastErrorKeeper keep;
            Kind::Close(m_value);
        }
        m_value = value;
    }
    // Releases the value without closing it; the caller owns it then.
    [[nodiscard]] Value Release() { return std::exchange(m_value, Kind::None()); }
    Value Get() const { return m_value; }
    // For an operation that returns its result through a pointer. Closes the held value first.
    Value* Receive() {
        Reset();
        return &m_value;
    }
    // A failed open gives null or INVALID_HANDLE_VALUE, whatever the kind.
    bool IsOpen() const { return m_value != Value{} && m_value != Kind::None(); }
    explicit operator bool() const { return IsOpen(); }

private:
    Value m_value = Kind::None();
};

// What CloseHandle closes. Purpose only keeps the kinds apart.
template<typename Purpose>
struct ClosedByCloseHandle {
    using Value = HANDLE;
    static Value None() { return nullptr; }
    static void Close(Value handle) { CloseHandle(handle); }
};
struct FileKind : ClosedByCloseHandle<FileKind> {
    static Value None() { return INVALID_HANDLE_VALUE; }
};
struct FindKind {
    using Value = HANDLE;
    static Value None() { return INVALID_HANDLE_VALUE; }
    static void Close(Value search) { FindClose(search); }
};
struct RegistryKeyKind {
    using Value = HKEY;
    static Value None() { return nullptr; }
    static void Close(Value key) { RegCloseKey(key); }
};
struct ServiceKind {
    using Value = SC_HANDLE;
    static Value None() { return nullptr; }
    static void Close(Value service) { CloseServiceHandle(service); }
};
struct DeviceListKind {
    using Value = HDEVINFO;
    static Value None() { return INVALID_HANDLE_VALUE; }
    static void Close(Value list) { SetupDiDestroyDeviceInfoList(list); }
};
struct LibraryKind {
    using Value = HMODULE;
    static Value None() { return nullptr; }
    static void Close(Value library) { FreeLibrary(library); }
};
template<typename T>
struct LocalKind {
    using Value = T;
    static Value None() { return nullptr; }
    static void Close(Value block) { LocalFree(block); }
};

using ThreadKind = ClosedByCloseHandle<struct ThreadPurpose>;
using EventKind = ClosedByCloseHandle<struct EventPurpose>;

using OwnedFile = OwnedBy<FileKind>; // also a device, a pipe, a snapshot of processes
using OwnedProcess = OwnedBy<ClosedByCloseHandle<struct ProcessPurpose>>;
using OwnedThread = OwnedBy<ThreadKind>;
using OwnedToken = OwnedBy<ClosedByCloseHandle<struct TokenPurpose>>;
using OwnedEvent = OwnedBy<EventKind>;
using OwnedFind = OwnedBy<FindKind>;
using OwnedKey = OwnedBy<RegistryKeyKind>;
using OwnedService = OwnedBy<ServiceKind>; // also the service manager itself
using OwnedDeviceList = OwnedBy<DeviceListKind>;
using OwnedLibrary = OwnedBy<LibraryKind>;
using OwnedSecurityDescriptor = OwnedBy<LocalKind<PSECURITY_DESCRIPTOR>>; // from LocalAlloc
using OwnedLocalText = OwnedBy<LocalKind<char*>>;                         // the same

// For a handle of the whole process, which cannot be an owner: its destructor would run after the machine has
// dismantled the process. Closes it if there is one and leaves Kind's nothing.
template<typename Kind>
void CloseGlobal(typename Kind::Value& value) {
    OwnedBy<Kind>(std::exchange(value, Kind::None())).Reset();
}
