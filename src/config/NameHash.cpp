#include "config/NameHash.h"

#include <cstddef>
#include <cstring>

static_assert(sizeof(DWORD) == 4 && sizeof(ULONGLONG) == 8);

constexpr DWORD LengthShift = 24;
constexpr ULONGLONG CaseBlindMask = 0xDFDFDFDFDFDFDFDFull;
constexpr ULONGLONG EvenWords = 0x0000FFFF0000FFFFull;

// Sum of the four masked words of eight bytes. Even and odd words are added side by side, and no half can overflow
// into the other: two words of 16 bits need 17.
static DWORD SumOfWords(ULONGLONG eightBytes) {
    const ULONGLONG masked = eightBytes & CaseBlindMask;
    const ULONGLONG pairs = (masked & EvenWords) + ((masked >> 16) & EvenWords);
    return static_cast<DWORD>(pairs) + static_cast<DWORD>(pairs >> 32);
}

DWORD NameHash(std::string_view text) {
    const char* at = text.data();
    size_t left = text.size();
    DWORD hash = static_cast<DWORD>(text.size()) << LengthShift;
    ULONGLONG bytes;
    for (; left >= sizeof(bytes); at += sizeof(bytes), left -= sizeof(bytes)) {
        memcpy(&bytes, at, sizeof(bytes));
        hash += SumOfWords(bytes);
    }
    // The zero after an odd length and the padding of the last eight bytes add nothing. Byte by byte, because
    // a copy of unknown length is a call, and most names end here.
    bytes = 0;
    for (size_t i = 0; i < left; ++i) {
        bytes |= static_cast<ULONGLONG>(static_cast<unsigned char>(at[i])) << (8 * i);
    }
    return hash + SumOfWords(bytes);
}
