// Scope guards for what must be released on every path out of a function: the last error, a lock, blocks of the
// replaced operator new. Handles have theirs in Handles.h. None can be copied. Any thread.
#pragma once

#include <cstddef>
#include <utility>

#include "platform/win32.h"

// Restores the thread's last error at the end of the scope: after logging and clean-up the cause's error stays
// readable.
class LastErrorKeeper {
public:
    LastErrorKeeper() : m_error(GetLastError()) {}
    explicit LastErrorKeeper(DWORD error) : m_error(error) {}
    ~LastErrorKeeper() { SetLastError(m_error); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
    DWORD Error() const { return m_error; }

private:
    DWORD m_error;
};

// Holds a critical section for the length of the scope.
class QM_SCOPED LockGuard {
public:
    explicit LockGuard(CRITICAL_SECTION& lock) QM_ACQUIRE(lock) : m_lock(lock) { EnterCriticalSection(&m_lock); }
    ~LockGuard() QM_RELEASE() { LeaveCriticalSection(&m_lock); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    CRITICAL_SECTION& m_lock;
};

// One object from operator new. Release() passes ownership on.
template<typename T>
class Owned {
public:
    Owned() = default;
    explicit Owned(T* object) : m_object(object) {}
    ~Owned() { delete m_object; }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    void Reset(T* object = nullptr) {
        if (object != m_object) {
            delete m_object;
            m_object = object;
        }
    }
    T* Release() { return std::exchange(m_object, nullptr); }
    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

// An array of plain elements from operator new, zero-filled as all its blocks are. OwnedArray<char> text(size);
template<typename T>
class OwnedArray {
public:
    OwnedArray() = default;
    explicit OwnedArray(size_t count) : m_elements(new T[count]) {}
    explicit OwnedArray(T* elements) : m_elements(elements) {}
    ~OwnedArray() { delete[] m_elements; }
    OwnedArray(const OwnedArray&) = delete;
    OwnedArray& operator=(const OwnedArray&) = delete;
    void Reset(T* elements = nullptr) {
        if (elements != m_elements) {
            delete[] m_elements;
            m_elements = elements;
        }
    }
    T* Release() { return std::exchange(m_elements, nullptr); }
    T* Get() const { return m_elements; }
    T& operator[](size_t index) const { return m_elements[index]; }
    explicit operator bool() const { return m_elements != nullptr; }

private:
    T* m_elements = nullptr;
};
