// Texts and paths: formatting, comparing, searching, numbers, code pages, system texts.
#include "tests/contract/Contract.h"

#include <cstdarg>
#include <cstring>

using contract::NoError;

static int Sign(int value) {
    return (value > 0) - (value < 0);
}

static int Format(char* text, const char* form, ...) {
    va_list arguments;
    va_start(arguments, form);
    const int length = wvsprintfA(text, form, arguments);
    va_end(arguments);
    return length;
}

TEST(TextContract, Formats) {
    char text[1100];
    const auto format = [&text](const char* form, auto... arguments) {
        const int length = Format(text, form, arguments...);
        EXPECT_EQ(static_cast<size_t>(length), std::strlen(text));
        return std::string(text);
    };
    EXPECT_EQ(format("%u|%i|%d|%5u|%-5u|%05u", 4294967295u, -1, -12, 42u, 42u, 42u),
              "4294967295|-1|-12|   42|42   |00042");
    EXPECT_EQ(format("%4.4i|%2.2u|%04u", 42, 7u, 12345u), "0042|07|12345");
    EXPECT_EQ(format("%X|%x|%08X|%#x", 0xABCu, 0xABCu, 0xABCu, 0xABCu), "ABC|abc|00000ABC|0xabc");
    EXPECT_EQ(format("%s|%10s|%-6s|%.3s|%c%%", "COM7", "right", "left", "abcdef", 'x'),
              "COM7|     right|left  |abc|x%");
    EXPECT_EQ(format("%S|%ls|%hs", L"wide", L"long", "ansi"), "wide|long|ansi");
    EXPECT_EQ(format("%I64x|%lu", 0x1234567890ull, 5ul), "1234567890|5");
    EXPECT_EQ(format("%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(format("%p", reinterpret_cast<void*>(0x1F8)).substr(sizeof(void*) * 2 - 4), "01F8");
    EXPECT_EQ(std::strlen(text), sizeof(void*) * 2);
    const std::string longest(1022, 'l'), tooLong(1500, 't');
    EXPECT_EQ(format("%s", longest.c_str()), longest);
    std::memset(text, '#', sizeof(text));
    Format(text, "%s", tooLong.c_str());
    EXPECT_EQ(std::strlen(text), 1023u);
    EXPECT_EQ(text[1024], '#');
}

TEST(TextContract, ComparesInTheOrderOfWords) {
    using Row = std::tuple<const char*, const char*, int, int>;
    for (const auto& [a, b, exact, blind] :
         {Row{"COM3", "COM3", 0, 0}, Row{"com3", "COM3", -1, 0}, Row{"COM10", "COM2", -1, -1},
          Row{"coop", "co-op", -1, -1}, Row{"COM1", "COM-1", -1, -1}, Row{"a", "B", -1, -1}, Row{"", "a", -1, -1},
          Row{"abc", "ab", 1, 1}, Row{"a_b", "aab", -1, -1}, Row{"1", "a", -1, -1}, Row{"b", "A", 1, 1},
          Row{"Port #1", "PORT #1", -1, 0}, Row{"x\\y", "X\\Y", -1, 0}}) {
        SCOPED_TRACE(std::string(a) + " against " + b);
        EXPECT_EQ(Sign(lstrcmpA(a, b)), exact);
        EXPECT_EQ(Sign(lstrcmpA(b, a)), -exact);
        EXPECT_EQ(Sign(lstrcmpiA(a, b)), blind);
        EXPECT_EQ(Sign(lstrcmpiA(b, a)), -blind);
    }
    EXPECT_EQ(lstrcmpiA("\xC4nderung", "\xE4NDERUNG"), 0);
    EXPECT_EQ(lstrcmpiA(nullptr, ""), -1);
    EXPECT_EQ(lstrlenA(nullptr), 0);
}

TEST(TextContract, Searches) {
    const char* text = "\\Device\\VCP0 \xC4";
    EXPECT_EQ(StrStrIA(text, "vcp"), text + 8);
    EXPECT_EQ(StrStrA(text, "vcp"), nullptr);
    EXPECT_EQ(StrStrA(text, "VCP"), text + 8);
    EXPECT_EQ(StrStrIA(text, "\xE4"), text + 13);
    EXPECT_EQ(StrStrIA(text, ""), nullptr);
    EXPECT_EQ(StrStrIA(nullptr, "a"), nullptr);
    EXPECT_EQ(StrChrA(text, '\\'), text);
    EXPECT_EQ(StrChrA(text, 'x'), nullptr);
    EXPECT_EQ(StrRChrA(text, nullptr, '\\'), text + 7);
    char lower[] = "COM\xC4";
    EXPECT_STREQ(CharLowerA(lower), "com\xE4");
    char blanks[] = " \ta b\t ", only[] = "   ", none[] = "a";
    EXPECT_TRUE(StrTrimA(blanks, " \t"));
    EXPECT_STREQ(blanks, "a b");
    EXPECT_TRUE(StrTrimA(only, " "));
    EXPECT_STREQ(only, "");
    EXPECT_FALSE(StrTrimA(none, " "));
}

TEST(TextContract, Numbers) {
    using Row = std::tuple<const char*, int>;
    for (const auto& [text, number] : {Row{"-12", -12}, Row{"12abc", 12}, Row{"+12", 0}, Row{" 12", 0}, Row{"\t12", 0},
                                       Row{"0x1F", 0}, Row{"", 0}, Row{"--5", 0}, Row{"4294967297", 1}}) {
        EXPECT_EQ(StrToIntA(text), number) << text;
    }
}

TEST(TextContract, Paths) {
    const struct {
        const char *path, *canonical;
    } rows[] = {{"C:\\a\\.\\b\\..\\c", "C:\\a\\c"}, {"C:\\..\\..", "C:\\"}, {"a\\..\\b", "\\b"},   {"", "\\"},
                {"C:\\a\\b\\..", "C:\\a"},          {"\\a\\..", "\\"},      {"C:\\a b", "C:\\a b"}};
    char result[MAX_PATH];
    for (const auto& row : rows) {
        EXPECT_TRUE(PathCanonicalizeA(result, row.path)) << row.path;
        EXPECT_STREQ(result, row.canonical) << row.path;
    }
    EXPECT_NE(contract::ErrorOf([&] { return PathCanonicalizeA(result, std::string(399, 'x').c_str()); }), 0u);

    using Row = std::tuple<const char*, const char*>;
    for (const auto& [text, unquoted] :
         {Row{"\"a b\"", "a b"}, Row{"\"a b", "\"a b"}, Row{"a b\"", "a b\""}, Row{"\"\"", ""}, Row{"", ""}}) {
        std::strcpy(result, text);
        PathUnquoteSpacesA(result);
        EXPECT_STREQ(result, unquoted);
    }
    for (const auto& [line, arguments] : {Row{"a b c", "b c"}, Row{"a  b", " b"}, Row{"\"a b\" c", "c"},
                                          Row{"\"a b c", ""}, Row{"a\tb", ""}, Row{"a", ""}, Row{"", ""}}) {
        EXPECT_STREQ(PathGetArgsA(line), arguments) << line;
    }
}

TEST(TextContract, EnvironmentVariables) {
    char windows[MAX_PATH], result[MAX_PATH];
    ASSERT_GT(GetWindowsDirectoryA(windows, sizeof(windows)), 3u);
    const DWORD needed = ExpandEnvironmentStringsA("%windir%\\x %QuillmarchNone% 5%", result, sizeof(result));
    EXPECT_EQ(lstrcmpiA(result, (std::string(windows) + "\\x %QuillmarchNone% 5%").c_str()), 0);
    EXPECT_EQ(needed, std::strlen(result) + 1);
    EXPECT_EQ(ExpandEnvironmentStringsA("%windir%\\x %QuillmarchNone% 5%", result, 4), needed);
    EXPECT_EQ(ExpandEnvironmentStringsA("plain", result, sizeof(result)), 6u);
    EXPECT_EQ(GetWindowsDirectoryA(windows, 3), std::strlen(windows) + 1) << "the needed size with the zero";
}

TEST(TextContract, CodePages) {
    char text[8] = "#######";
    const WCHAR source[] = {'a', 0x20AC, 0x05D0, 0};
    BOOL used = FALSE;
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, source, 3, text, 8, nullptr, &used), 3);
    EXPECT_EQ(std::string(text, 4), "a\x80?#");
    EXPECT_TRUE(used);
    EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, source, -1, text, 8, nullptr, nullptr), 4);
    EXPECT_ERROR(ERROR_INSUFFICIENT_BUFFER, WideCharToMultiByte(CP_ACP, 0, source, 3, text, 2, nullptr, nullptr));
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, source, -5, text, 8, nullptr, nullptr), 4); // as far as its zero
    EXPECT_ERROR(ERROR_INVALID_PARAMETER, WideCharToMultiByte(CP_ACP, 0, source, 3, nullptr, 8, nullptr, nullptr));
    EXPECT_ERROR(ERROR_INVALID_PARAMETER, SetThreadPriority(GetCurrentThread(), 7));
}

TEST(TextContract, SystemTexts) {
    char* text = nullptr;
    constexpr DWORD Flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    const DWORD length = FormatMessageA(Flags, nullptr, 5, 0x400, reinterpret_cast<LPSTR>(&text), 0, nullptr);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(length, std::strlen(text));
    EXPECT_EQ(std::string(text).substr(length - 2), "\r\n");
    EXPECT_EQ(std::string(text).find("denied") != std::string::npos, true);
    LocalFree(text);
    text = nullptr;
    SetLastError(NoError);
    EXPECT_EQ(FormatMessageA(Flags, nullptr, 0x0FFFFFFF, 0x400, reinterpret_cast<LPSTR>(&text), 0, nullptr), 0u);
    EXPECT_EQ(GetLastError(), 317u);
}
