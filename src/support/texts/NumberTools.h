// Small operations on numbers and words. Any thread.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// A pseudo-random number, 0 to 32767; the series is the same in every process.
DWORD Random();

// Writes value over the block in whole words; bytes at the end that do not fill a word, and blocks under four bytes,
// are left alone. sizeBytes: of the block, which need not be aligned.
void FillWords(void* block, size_t sizeBytes, DWORD value);

// Limits a value to a lower and an upper bound; the lower one wins if they cross.
constexpr LONG Clamp(LONG value, LONG lower, LONG upper) {
    return value < lower ? lower : (value > upper ? upper : value);
}

// The larger of two tick counts minus the smaller, in ms.
constexpr DWORD TickDifference(DWORD a, DWORD b) {
    return a > b ? a - b : b - a;
}
