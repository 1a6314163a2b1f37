#include "config/KeyIndex.h"

constexpr size_t SuffixCount = 100;

namespace {
struct SuffixTable {
    char rows[SuffixCount][3];
};
} // namespace

static constexpr SuffixTable MakeSuffixes() {
    SuffixTable table{};
    for (size_t number = 0; number < SuffixCount; ++number) {
        char* row = table.rows[number];
        if (number >= 10) {
            *row++ = static_cast<char>('0' + number / 10);
        }
        *row = static_cast<char>('0' + number % 10);
    }
    return table;
}

// A table instead of one shared buffer: log lines of two threads would show each other's number.
constexpr SuffixTable Suffixes = MakeSuffixes();
static_assert(sizeof(Suffixes.rows) == SuffixCount * 3);

void SetKeyIndex(char* text, size_t sizeWithTerminator, DWORD index) {
    char& place = text[sizeWithTerminator - 2];
    if (index >= 1 && index <= 9) {
        place = static_cast<char>('0' + index);
    } else if (index >= '1' && index <= '9') {
        place = static_cast<char>(index);
    } else {
        place = 0;
    }
}

const char* SectionNumberSuffix(LONG number) {
    return number >= 0 && number < static_cast<LONG>(SuffixCount) ? Suffixes.rows[number] : "";
}
