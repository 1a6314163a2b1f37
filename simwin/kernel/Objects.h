// Kernel objects and handles. An object lives while a handle or a holder in the machine refers to it; a handle is a
// counter value of its process, never reused, so it can appear in a log that must be the same in each run.
#pragma once

#include "simwin/kernel/types.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>

namespace machine {

struct Thread;
struct Process;
using WaitQueue = std::deque<Thread*>;

enum class ObjectKind : std::uint8_t {
    Event,
    Thread,
    Process,
    File,
    RegistryKey,
    Token,
    DeviceList,
    DeviceNotification,
    ServiceManager,
    Service,
    ServiceStatus,
    FindFile,
    Snapshot,
    Other
};

const char* KindName(ObjectKind kind);

struct Object {
    explicit Object(ObjectKind objectKind) : kind(objectKind) {}
    virtual ~Object() = default;
    // The last handle to it was closed, by the program or by the end of its process. It may still be referred to.
    virtual void LastHandleClosed() {}

    const ObjectKind kind;
    int openHandles = 0;

    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

private:
    template<typename T>
    friend class Ref; // nothing else retains or releases
    void Retain() { ++m_references; }
    void Release() {
        if (--m_references == 0) {
            delete this;
        }
    }

    int m_references = 0; // handles and holders
};

// Holds an object for as long as it is there itself. On the stack of a fiber it must not be there across a switch: the
// fiber may be abandoned, and then nothing lets go.
template<typename T>
class Ref {
public:
    Ref() = default;
    explicit Ref(T* object) : m_object(object) {
        if (m_object) {
            m_object->Retain();
        }
    }
    Ref(const Ref& other) : Ref(other.m_object) {}
    Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~Ref() {
        if (m_object) {
            m_object->Release();
        }
    }
    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

// What a thread can wait for. `signalled` with `autoReset` lets one waiter through and is cleared.
struct Waitable : Object {
    using Object::Object;
    bool signalled = false;
    bool autoReset = false;
    WaitQueue waiters; // first come, first served

    void Signal(); // wakes one waiter (autoReset) or all, and stays signalled unless an auto-reset one was woken
    void Reset() { signalled = false; }
};

struct HandleEntry {
    Ref<Object> object;
    simwin::DWORD access; // the rights that it was opened with, in the terms of the room that opened it
    const char* call;     // the operation that created it, for the leak report
};

// The handles of one process.
class HandleTable {
public:
    // Creates a handle; retains the object.
    simwin::HANDLE Open(Object* object, simwin::DWORD access = 0);
    // False if there is no such handle. Releases the object.
    bool Close(simwin::HANDLE handle);
    // Null if there is no such handle or it is of another kind.
    Object* Find(simwin::HANDLE handle, ObjectKind kind) const;
    const HandleEntry* Entry(simwin::HANDLE handle) const;
    void CloseAll();
    const std::map<std::uint64_t, HandleEntry>& Entries() const { return m_entries; }

private:
    std::map<std::uint64_t, HandleEntry> m_entries;
    std::uint64_t m_next = 0x40;
};

// The object behind a handle of the running thread's process; null with another kind.
Object* ObjectOfHandle(simwin::HANDLE handle, ObjectKind kind);
template<typename T>
T* FromHandle(simwin::HANDLE handle, ObjectKind kind) {
    return static_cast<T*>(ObjectOfHandle(handle, kind));
}

} // namespace machine
