#include "support/texts/NumberTools.h"

#include "support/system/ScopeGuard.h"
#include "support/system/SupportLocks.h"
#include "support/texts/BoundedText.h"

constexpr DWORD Multiplier = 1103515245;
constexpr DWORD Increment = 12345;
constexpr DWORD ResultShift = 16;
constexpr DWORD ResultMask = 0x7FFF;

static constinit DWORD g_seed = 1; // guarded by CS_Random once the locks are there

static DWORD NextRandom() {
    g_seed = g_seed * Multiplier + Increment;
    return (g_seed >> ResultShift) & ResultMask;
}

DWORD Random() {
    if (!g_supportLocksReady) {
        return NextRandom();
    }
    LockGuard lock(CS_Random);
    return NextRandom();
}

void FillWords(void* block, size_t sizeBytes, DWORD value) {
    BYTE* at = static_cast<BYTE*>(block);
    for (size_t word = 0; word < sizeBytes / sizeof(DWORD); ++word) {
        CopyBytes(at + word * sizeof(DWORD), &value, sizeof(DWORD));
    }
}
