// The list of numbers of a setting, into bitmaps of several sizes: no write beyond their ends, and they agree with each
// other.
#include "fuzz/Stage.h"

#include "support/texts/Bitmap.h"

#include <cstring>
#include <memory>

namespace fuzz {

constexpr DWORD Sizes[] = {1, 32, 512}; // bytes; the usual one and the largest that Windows makes

static DWORD CountBits(const BYTE* bitmap, DWORD bytes) {
    DWORD count = 0;
    for (DWORD number = 1; number <= bytes * 8; ++number) {
        count += BitmapTest(number, bitmap, bytes * 8) ? 1 : 0;
    }
    return count;
}

void Prepare() {
}

void TryInput(std::string_view input) {
    const std::string text = TextOf(input);
    std::unique_ptr<BYTE[]> smaller;
    DWORD smallerBytes = 0;
    for (const DWORD bytes : Sizes) {
        // On the heap, to the byte, so that the sanitizer sees the first byte too many.
        auto bitmap = std::make_unique<BYTE[]>(bytes);
        std::memset(bitmap.get(), 0xFF, bytes);
        const DWORD taken = ParseNumberList(text.c_str(), bitmap.get(), bytes);
        Require(CountBits(bitmap.get(), bytes) <= taken, "no bit without a number that was taken");
        Require(smallerBytes == 0 || std::memcmp(smaller.get(), bitmap.get(), smallerBytes) == 0,
                "more room changes nothing for the numbers that fitted before");
        smaller = std::move(bitmap);
        smallerBytes = bytes;
    }
}

} // namespace fuzz
