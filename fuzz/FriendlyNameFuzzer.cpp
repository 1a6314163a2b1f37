// The text tools for the names that Windows shows: found, cut and copied COM names, in arrays of the real sizes.
#include "fuzz/Stage.h"

#include "inventory/names/ComPortNumber.h"
#include "inventory/names/FriendlyName.h"
#include "support/texts/BoundedText.h"

#include <cstring>
#include <vector>

namespace fuzz {

constexpr std::size_t NameBytes = 128;

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

void Prepare() {
}

void TryInput(std::string_view input) {
    char text[NameBytes];
    CopyText(text, TextOf(input).c_str());
    const std::size_t length = std::strlen(text);

    const char* found = FindComInFriendlyName(text);
    if (found) {
        Require(found >= text && found + 4 <= text + length, "the name lies in the text");
        Require(std::memcmp(found, "COM", 3) == 0 && IsDigit(found[3]), "a name is followed by a digit");
        char name[NameBytes], shortName[5];
        CopyComName(found, name);
        CopyComName(found, shortName);
        Require(std::strncmp(found, name, std::strlen(name)) == 0, "the copy is the text");
        Require(std::strlen(shortName) == 4 && std::strncmp(name, shortName, 4) == 0, "a copy is cut to its room");
        char digits[12];
        CopyComDigits(name, digits);
        Require(std::strlen(digits) < sizeof(digits) && std::strncmp(name + 3, digits, std::strlen(digits)) == 0,
                "the digits are those of the name");
    }
    (void)GetNumberOfPortName(text);

    // On the heap, to the byte: the cut must stay inside the text.
    std::vector<char> stripped(text, text + length + 1);
    StripComFromFriendlyName(stripped.data());
    const std::size_t strippedLength = std::strlen(stripped.data());
    Require(strippedLength <= length, "what is cut gets no longer");
    Require(found || strippedLength == length, "without a name nothing is cut");
    Require(std::strstr(text, stripped.data()) != nullptr, "what is left stood in the text");
    if (!FindComInFriendlyName(stripped.data())) {
        std::vector<char> again(stripped);
        StripComFromFriendlyName(again.data());
        Require(std::strcmp(again.data(), stripped.data()) == 0, "with no second name in front, twice strips once");
    }
}

} // namespace fuzz
