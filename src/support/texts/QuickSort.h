// Sorts plain elements in place. From 32 elements on the sort is not stable. Any thread; it takes no lock but that of
// Random.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// Above 0: a comes after b.
using SortComparison = LONGLONG (*)(const void* a, const void* b);

// elementSize: in bytes, a multiple of 4, or nothing is sorted. compare must be a consistent order; a sort that finds
// its result out of order repairs it and beeps.
void QuickSort(void* base, size_t count, size_t elementSize, SortComparison compare);
