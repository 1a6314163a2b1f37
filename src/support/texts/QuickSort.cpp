#include "support/texts/QuickSort.h"

#include "support/texts/BoundedText.h"
#include "support/texts/NumberTools.h"

constexpr size_t SmallCount = 32; // below it insertion sort is faster
constexpr DWORD DisorderHz = 666;
constexpr DWORD DisorderMs = 666;

namespace {
struct Elements {
    BYTE* Base;
    size_t Size;
    SortComparison Compare;

    BYTE* At(size_t index) const { return Base + index * Size; }
    LONGLONG Order(size_t a, size_t b) const { return Compare(At(a), At(b)); }

    void Swap(size_t a, size_t b) const {
        for (size_t offset = 0; offset < Size; offset += sizeof(DWORD)) {
            DWORD word = 0;
            CopyBytes(&word, At(a) + offset, sizeof(word));
            CopyBytes(At(a) + offset, At(b) + offset, sizeof(word));
            CopyBytes(At(b) + offset, &word, sizeof(word));
        }
    }
};
} // namespace

// Sorts [first, end) by comparing backwards from each element.
static void InsertionSort(const Elements& elements, size_t first, size_t end, bool beepAtSwap) {
    for (size_t next = first + 1; next < end; ++next) {
        for (size_t at = next; at > first && elements.Order(at - 1, at) > 0; --at) {
            elements.Swap(at - 1, at);
            if (beepAtSwap) {
                Beep(DisorderHz, DisorderMs);
            }
        }
    }
}

// Splits [first, end) by a pivot that is parked at the end. Both indexes stop at equal elements, so that many equal
// ones split in half. Returns: the pivot's final index.
static size_t Partition(const Elements& elements, size_t first, size_t end) {
    const size_t pivot = end - 1;
    elements.Swap(first + Random() % (end - first), pivot);
    size_t low = first;
    size_t high = pivot;
    for (;;) {
        while (low < high && elements.Order(low, pivot) < 0) {
            ++low;
        }
        while (low < high && elements.Order(high - 1, pivot) > 0) {
            --high;
        }
        if (high - low <= 1) {
            break;
        }
        elements.Swap(low, high - 1);
        ++low;
        --high;
    }
    elements.Swap(low, pivot);
    return low;
}

// Recursion goes into the smaller side only, so its depth stays below 64 whatever the elements are.
static void SortRange(const Elements& elements, size_t first, size_t end) {
    while (end - first >= SmallCount) {
        const size_t middle = Partition(elements, first, end);
        if (middle - first < end - middle - 1) {
            SortRange(elements, first, middle);
            first = middle + 1;
        } else {
            SortRange(elements, middle + 1, end);
            end = middle;
        }
    }
    InsertionSort(elements, first, end, /*beepAtSwap=*/false);
}

void QuickSort(void* base, size_t count, size_t elementSize, SortComparison compare) {
    if (count < 2 || elementSize % sizeof(DWORD) != 0) {
        return;
    }
    const Elements elements = {static_cast<BYTE*>(base), elementSize, compare};
    SortRange(elements, 0, count);
    if (count >= SmallCount) {
        InsertionSort(elements, 0, count, /*beepAtSwap=*/true);
    }
}
