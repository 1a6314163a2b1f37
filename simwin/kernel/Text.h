// Text tools of the machine: names without regard to case, wildcards, code page 1252, UTF-16. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

constexpr char LowerChar(char c) { // ASCII only
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
std::string Lower(std::string_view text);
std::string Upper(std::string_view text);
bool EqualNoCase(std::string_view a, std::string_view b);
bool StartsWithNoCase(std::string_view text, std::string_view start);
bool EndsWithNoCase(std::string_view text, std::string_view end);
std::size_t FindNoCase(std::string_view text, std::string_view part, std::size_t from = 0); // npos if absent

// Orders names as the machine compares them: ASCII case folded, then by byte.
struct NoCaseLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const;
};

// `*` any run, `?` one character, without regard to case; the whole text.
bool MatchesWildcard(std::string_view text, std::string_view pattern);

// Code page 1252, the machine's ANSI code page. Characters outside it become '?', and `lossy` is set.
std::string AnsiFromUtf16(std::u16string_view text, bool* lossy = nullptr);
std::u16string Utf16FromAnsi(std::string_view text);
std::u16string Utf16FromUtf8(std::string_view text);
std::string Utf8FromAnsi(std::string_view text);
std::string AnsiFromUtf8(std::string_view text);
// Little-endian bytes; half a character at the end is dropped.
std::string AnsiFromUtf16Bytes(std::string_view bytes);
// The text of a file of the host: UTF-16 with a mark or (recognised by its zeros) without, UTF-8 with a mark, otherwise
// code page 1252. Nothing for bytes that are not text.
std::optional<std::string> AnsiFromFile(std::string_view bytes);
// Whether bytes without a mark are little-endian UTF-16: as good as every second one is zero.
bool IsUnmarkedUtf16(std::string_view bytes);
// The 16-bit character of one byte of code page 1252.
char16_t Utf16FromAnsiByte(unsigned char byte);

std::vector<std::string> Split(std::string_view text, char at);

} // namespace machine
