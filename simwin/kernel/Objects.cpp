#include "simwin/kernel/Objects.h"

#include "simwin/kernel/Scheduler.h"

namespace machine {

const char* KindName(ObjectKind kind) {
    static constexpr const char* Names[] = {"event",           "thread",  "process",        "file",
                                            "registry key",    "token",   "device list",    "device notification",
                                            "service manager", "service", "service status", "file search",
                                            "snapshot",        "other"};
    return Names[static_cast<unsigned>(kind)];
}

void Waitable::Signal() {
    signalled = true;
    while (!waiters.empty() && signalled) {
        if (autoReset) {
            signalled = false;
        }
        Wake(waiters.front(), /*WAIT_OBJECT_0*/ 0);
    }
}

simwin::HANDLE HandleTable::Open(Object* object, simwin::DWORD access) {
    const std::uint64_t value = m_next;
    m_next += 4;
    ++object->openHandles;
    const Thread* thread = CurrentThread();
    m_entries.emplace(value, HandleEntry{Ref<Object>(object), access, thread ? thread->call : "the machine"});
    return reinterpret_cast<simwin::HANDLE>(value);
}

// The low two bits of a handle belong to its user and are ignored.
static std::uint64_t NumberOf(simwin::HANDLE handle) {
    return reinterpret_cast<std::uint64_t>(handle) & ~std::uint64_t{3};
}

bool HandleTable::Close(simwin::HANDLE handle) {
    const auto found = m_entries.find(NumberOf(handle));
    if (found == m_entries.end()) {
        return false;
    }
    const Ref<Object> object = std::move(found->second.object);
    m_entries.erase(found);
    if (--object->openHandles == 0) {
        object->LastHandleClosed();
    }
    return true;
}

const HandleEntry* HandleTable::Entry(simwin::HANDLE handle) const {
    const auto found = m_entries.find(NumberOf(handle));
    return found == m_entries.end() ? nullptr : &found->second;
}

Object* HandleTable::Find(simwin::HANDLE handle, ObjectKind kind) const {
    const HandleEntry* entry = Entry(handle);
    return entry && entry->object->kind == kind ? entry->object.Get() : nullptr;
}

void HandleTable::CloseAll() {
    while (!m_entries.empty()) {
        Close(reinterpret_cast<simwin::HANDLE>(m_entries.begin()->first));
    }
}

} // namespace machine
