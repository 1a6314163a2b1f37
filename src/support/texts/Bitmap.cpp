#include "support/texts/Bitmap.h"

#include <cstddef>

#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr size_t ListBufferSize = 512;
constexpr DWORD MaxItems = 256;
constexpr DWORD MaxNumber = 0xFFFFFFFF;

namespace {
struct BitPlace {
    DWORD Byte;
    BYTE Mask;
};
} // namespace

static BitPlace PlaceOf(DWORD number) {
    const DWORD bit = number - 1;
    return {bit / 8, static_cast<BYTE>(1u << (bit % 8))};
}

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The number of the leading digits, 0 without any. One too large for 32 bits becomes the maximum, which no bitmap
// holds. Returns: what follows the digits.
static const char* ReadNumber(const char* text, DWORD* number) {
    ULONGLONG value = 0;
    for (; IsDigit(*text); ++text) {
        value = value * 10 + static_cast<DWORD>(*text - '0');
        if (value > MaxNumber) {
            value = MaxNumber;
        }
    }
    *number = static_cast<DWORD>(value);
    return text;
}

static const char* SkipBlanks(const char* text) {
    while (*text == ' ' || *text == '\t') {
        ++text;
    }
    return text;
}

// Sets the numbers of one item, "a" or "a-b"; without leading digits it is the number 0, which sets nothing.
// Returns: the count of numbers taken.
static DWORD TakeItem(const char* item, BYTE* bitmap, DWORD bits) {
    const char* start = SkipBlanks(item);
    if (*start == '\0') {
        return 0;
    }
    DWORD first = 0;
    const char* after = SkipBlanks(ReadNumber(start, &first));
    DWORD last = first;
    if (after != start && *after == '-') {
        (void)ReadNumber(SkipBlanks(after + 1), &last);
    }
    if (last > bits) {
        last = bits;
    }
    DWORD taken = 0;
    for (DWORD number = first; number <= last; ++number) {
        (void)BitmapSet(number, bitmap, bits);
        ++taken;
    }
    return taken;
}

int BitmapTest(DWORD number, const BYTE* bitmap, DWORD bits) {
    if (number < 1 || number > bits) {
        return 0;
    }
    const BitPlace place = PlaceOf(number);
    return (bitmap[place.Byte] & place.Mask) != 0;
}

int BitmapSet(DWORD number, BYTE* bitmap, DWORD bits) {
    if (number < 1 || number > bits) {
        return 0;
    }
    const BitPlace place = PlaceOf(number);
    if (bitmap[place.Byte] & place.Mask) {
        return 0;
    }
    bitmap[place.Byte] = static_cast<BYTE>(bitmap[place.Byte] | place.Mask);
    return 1;
}

int BitmapClear(DWORD number, BYTE* bitmap, DWORD bits) {
    if (number < 1 || number > bits) {
        return 0;
    }
    const BitPlace place = PlaceOf(number);
    if (!(bitmap[place.Byte] & place.Mask)) {
        return 0;
    }
    bitmap[place.Byte] = static_cast<BYTE>(bitmap[place.Byte] & ~place.Mask);
    return 1;
}

DWORD ParseNumberList(const char* text, BYTE* bitmap, DWORD bytes) {
    ZeroBytes(bitmap, bytes);
    char list[ListBufferSize];
    const size_t length = CopyText(list, text);
    if (length < TextLength(text) && text[length] != ',') {
        // The cut may fall inside an item, and half a number is another number: the cut item is dropped.
        char* comma = list;
        for (char* at = list; *at != '\0'; ++at) {
            comma = *at == ',' ? at : comma;
        }
        *comma = '\0';
    }
    char* items[MaxItems];
    const DWORD itemCount = SplitAtCommas(list, items, MaxItems);
    DWORD taken = 0;
    for (DWORD i = 0; i < itemCount; ++i) {
        (void)CutAtChar(items[i], ','); // after the last item that counts the text is still uncut
        taken += TakeItem(items[i], bitmap, bytes * 8);
    }
    return taken;
}
