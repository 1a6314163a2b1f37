#include "support/system/CRTreplace.h"

#include <cstddef>
#include <new>

#include "support/log/LogFile.h"

constexpr DWORD RetryMs = 500;
constexpr DWORD BeepHz = 1000;
constexpr DWORD NewBeepMs = 3000;
constexpr DWORD DeleteBeepMs = 1000;
constexpr DWORD NewLine = 132;
constexpr DWORD DeleteBeforeLine = 146;
constexpr DWORD DeleteAfterLine = 159;

static HANDLE g_heap;         // set by the first thread before there is another one
static LONG g_allocatedBytes; // not guarded: a lost update affects only a log line

static HANDLE Heap() {
    if (!g_heap) {
        g_heap = GetProcessHeap();
    }
    return g_heap;
}

static void* Allocate(size_t size) {
    const HANDLE heap = Heap();
    g_allocatedBytes += static_cast<LONG>(size);
    WriteLog(6, "new(%i) sum=%i", static_cast<LONG>(size), g_allocatedBytes);
    void* block = HeapAlloc(heap, HEAP_ZERO_MEMORY, size);
    while (!block) {
        WriteLog(1, "HeapAlloc(%u) failed", static_cast<DWORD>(size));
        Sleep(RetryMs);
        block = HeapAlloc(heap, HEAP_ZERO_MEMORY, size);
    }
    if (!HeapValidate(heap, 0, nullptr)) {
        WriteLog(1, "HeapValidate after new failed");
        Beep(BeepHz, NewBeepMs);
        FATAL_HARD_AT("CRTreplace", NewLine, "operator new");
    }
    return block;
}

static void Release(void* block) {
    if (!block) {
        return;
    }
    const HANDLE heap = Heap();
    if (!HeapValidate(heap, 0, nullptr)) {
        Beep(BeepHz, DeleteBeepMs);
        FATAL_HARD_AT("CRTreplace", DeleteBeforeLine, "operator delete");
    }
    const LONG size = static_cast<LONG>(HeapSize(heap, 0, block));
    g_allocatedBytes -= size;
    WriteLog(6, "delete(%i) sum=%i", size, g_allocatedBytes);
    (void)HeapFree(heap, 0, block); // the validation that follows reports what went wrong
    if (!HeapValidate(heap, 0, nullptr)) {
        WriteLog(1, "HeapValidate after delete failed");
        Beep(BeepHz, DeleteBeepMs);
        FATAL_HARD_AT("CRTreplace", DeleteAfterLine, "operator delete");
    }
}

// A block with a wider alignment than the heap's: the word before it holds the heap's own address.
static void* AllocateAligned(size_t size, std::align_val_t alignment) {
    const size_t align = static_cast<size_t>(alignment);
    void* block = Allocate(size + align + sizeof(void*));
    const ULONG_PTR first = reinterpret_cast<ULONG_PTR>(block) + sizeof(void*);
    void** aligned = reinterpret_cast<void**>((first + align - 1) / align * align);
    aligned[-1] = block;
    return aligned;
}

static void ReleaseAligned(void* block) {
    if (block) {
        Release(static_cast<void**>(block)[-1]);
    }
}

void InitAllocator() {
    g_heap = GetProcessHeap();
}

LONG AllocatedBytes() {
    return g_allocatedBytes;
}

void* operator new(size_t size) {
    return Allocate(size);
}

void* operator new[](size_t size) {
    return Allocate(size);
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}

void* operator new(size_t size, std::align_val_t alignment) {
    return AllocateAligned(size, alignment);
}

void* operator new[](size_t size, std::align_val_t alignment) {
    return AllocateAligned(size, alignment);
}

void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return AllocateAligned(size, alignment);
}

void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return AllocateAligned(size, alignment);
}

void operator delete(void* block) noexcept {
    Release(block);
}

void operator delete[](void* block) noexcept {
    Release(block);
}

void operator delete(void* block, size_t) noexcept {
    Release(block);
}

void operator delete[](void* block, size_t) noexcept {
    Release(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    ReleaseAligned(block);
}

void operator delete[](void* block, std::align_val_t) noexcept {
    ReleaseAligned(block);
}

void operator delete(void* block, size_t, std::align_val_t) noexcept {
    ReleaseAligned(block);
}

void operator delete[](void* block, size_t, std::align_val_t) noexcept {
    ReleaseAligned(block);
}

void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    ReleaseAligned(block);
}

void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    ReleaseAligned(block);
}
