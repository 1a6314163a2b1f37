// Sorts plain elements in place. The order of equal elements is not kept from 32 elements on. Any thread; the sort
// takes no lock but that of Random.
#pragma once

#include <cstddef>

#include "platform/win32.h"

// Above 0: a goes behind b.
using SortComparison = LONGLONG (*)(const void* a, const void* b);

// elementSize: in bytes, a multiple of 4, or nothing is sorted. compare must be a consistent order; a sort that finds
// its result disordered mends it and beeps.
void QuickSort(void* base, size_t count, size_t elementSize, SortComparison compare);
