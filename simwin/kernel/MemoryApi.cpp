#include "simwin/kernel/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"

namespace simwin {

constexpr ULONG_PTR ProcessHeap = 0x00010000; // what GetProcessHeap gives
constexpr SIZE_T NoSize = static_cast<SIZE_T>(-1);

static machine::Heap& OwnHeap(HANDLE heap, const char* call, DWORD flags, DWORD known = 0) {
    if (flags & ~known) {
        machine::NotModelled(call, "flags other than those that are declared");
    }
    if (reinterpret_cast<ULONG_PTR>(heap) != ProcessHeap) {
        machine::NotModelled(call, "a heap other than the process's own");
    }
    return machine::CurrentProcess()->heap;
}

HANDLE GetProcessHeap() {
    SIM_CALL("GetProcessHeap", "");
    return reinterpret_cast<HANDLE>(ProcessHeap);
}

LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    SIM_CALL("HeapAlloc", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        return nullptr; // the last error stays: HeapAlloc sets none
    }
    return OwnHeap(heap, "HeapAlloc", flags, HEAP_ZERO_MEMORY).Allocate(bytes, "HeapAlloc");
}

BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID block) {
    SIM_CALL("HeapFree", "");
    if (!block) {
        return TRUE;
    }
    machine::Heap& own = OwnHeap(heap, "HeapFree", flags);
    if (!own.Owns(block)) {
        machine::BrokenRule("HeapFree", "a block that the heap does not have: released twice, or never its own");
    }
    if (!own.Free(block)) {
        machine::BrokenRule("HeapFree", "a block that was written past its end");
    }
    return TRUE;
}

SIZE_T HeapSize(HANDLE heap, DWORD flags, LPCVOID block) {
    SIM_CALL("HeapSize", "");
    return OwnHeap(heap, "HeapSize", flags).Size(block);
}

BOOL HeapValidate(HANDLE heap, DWORD flags, LPCVOID block) {
    SIM_CALL("HeapValidate", "");
    const machine::Heap& own = OwnHeap(heap, "HeapValidate", flags);
    return own.Validate() && (!block || own.Size(block) != NoSize);
}

HLOCAL LocalAlloc(UINT flags, SIZE_T bytes) {
    SIM_CALL("LocalAlloc", "", ERROR_NOT_ENOUGH_MEMORY);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return nullptr;
    }
    if (flags & ~LMEM_ZEROINIT) {
        machine::NotModelled("LocalAlloc", "movable memory");
    }
    return machine::CurrentProcess()->heap.Allocate(bytes, "LocalAlloc");
}

HLOCAL LocalFree(HLOCAL block) {
    SIM_CALL("LocalFree", "");
    if (!block) {
        return nullptr;
    }
    if (!machine::CurrentProcess()->heap.Free(block)) {
        machine::SetError(ERROR_INVALID_HANDLE);
        return block;
    }
    return nullptr;
}

} // namespace simwin
