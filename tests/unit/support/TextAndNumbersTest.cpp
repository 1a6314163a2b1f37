// Text in fixed arrays, the tokens of a command line, the sort, names for log lines: both sides of each limit.
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "support/log/DiagnosticNames.h"
#include "support/texts/BoundedText.h"
#include "support/texts/CommandLine.h"
#include "support/texts/QuickSort.h"
#include "support/texts/StringTools.h"
#include "tests/harness/Harness.h"

#include <algorithm>

TEST(BoundedText, NothingIsWrittenPastTheArray) {
    struct {
        char text[8];
        char next = '#';
    } room;
    EXPECT_EQ(CopyText(room.text, "12345678"), 7u);
    EXPECT_STREQ(room.text, "1234567");
    EXPECT_EQ(AppendText(room.text, "89"), 7u);
    EXPECT_EQ(CopyText(room.text, "123456"), 6u);
    EXPECT_EQ(AppendText(room.text, "789"), 7u);
    EXPECT_STREQ(room.text, "1234567");
    EXPECT_EQ(FormatText(room.text, "%s-%u", "COM", 123456u), 7u);
    EXPECT_STREQ(room.text, "COM-123");
    EXPECT_EQ(CopyText(room.text, nullptr), 0u);
    std::fill_n(room.text, 8, 'x'); // no text at all
    EXPECT_EQ(AppendText(room.text, "y"), 8u);
    const char notEnded[3] = {'a', 'b', 'c'};
    EXPECT_EQ(CopyTextPart(room.text, sizeof(room.text), notEnded, 3), 3u);
    EXPECT_STREQ(room.text, "abc");
    EXPECT_EQ(CopyText(room.text, 0, "x"), 0u);
    EXPECT_EQ(room.next, '#');
}

TEST(StringTools, ReplacementsStayWithinTheLimit) {
    using Row = std::tuple<const char*, const char*, const char*, size_t, DWORD, const char*>;
    for (const auto& [given, search, replace, limit, count, result] :
         {Row{"COM3 and com3", "COM3", "COM7", 20, 2, "COM7 and COM7"},
          Row{"COM3COM3", "COM3", "COM17", 10, 2, "COM17COM17"}, Row{"COM3COM3", "COM3", "COM17", 9, 0, "COM3COM3"},
          Row{"COM13 COM13", "COM13", "C", 20, 2, "C C"}, Row{"aaaa", "aa", "a", 20, 2, "aa"},
          Row{"aa", "a", "ab", 20, 2, "abab"}, // inserted text is not searched again
          Row{"COM3", "", "x", 20, 0, "COM3"}, Row{"COM3", "COM3", "", 20, 1, ""}, Row{"", "COM3", "x", 20, 0, ""},
          Row{"12345", "1", "", 4, 0, "12345"}, // longer than the limit already
          Row{"x COM3", "com3", "COM30", 7, 1, "x COM30"}}) {
        char text[32];
        CopyText(text, given);
        EXPECT_EQ(ReplaceString(text, search, replace, limit), count) << given;
        EXPECT_STREQ(text, result);
    }
    char same[32] = "a-b";
    EXPECT_EQ(ReplaceString(same, "-", "--"), 0u) << "the text's own length is the limit";
    char full[8] = "COM3";
    EXPECT_EQ(ReplaceInArray(full, "3", "12345"), 0u);
    EXPECT_EQ(ReplaceInArray(full, "3", "1234"), 1u);
    EXPECT_STREQ(full, "COM1234");
}

using Array = char[16];

static void Expect(void (*work)(Array&), std::initializer_list<std::pair<const char*, const char*>> rows) {
    for (const auto& [before, after] : rows) {
        Array text;
        CopyText(text, before);
        work(text);
        EXPECT_STREQ(text, after) << before;
    }
}

TEST(StringTools, EachToolOnItsOrdinaryAndItsOddCases) {
    Expect([](Array& t) { RemoveTrailingChar(t, '\\'); }, {{"C:\\\\", "C:\\"}, {"", ""}});
    Expect([](Array& t) { AppendCharOnce(t, '\\'); }, {{"C:", "C:\\"}, {"C:\\", "C:\\"}});
    Expect([](Array& t) { AppendCharOnce(t, 'x'); }, {{"123456789012345", "123456789012345"}});
    Expect([](Array& t) { RemoveBlanks(t); }, {{" a\t b ", "ab "}});
    Expect([](Array& t) { UnderscoresToBlanks(t); }, {{"__a_b_", "  a_b "}, {"___", "   "}});
    Expect([](Array& t) { QuoteText(t); }, {{"a b", "\"a b\""}, {"\"a", "\"a"}, {"12345678901234", "12345678901234"}});
    Expect([](Array& t) { UnquoteText(t); }, {{"\"a\"", "a"}, {"\"", "\""}, {"\"a", "\"a"}});
    Expect([](Array& t) { CutAtChar(t, ';'); }, {{"a;b;c", "a"}});
    Expect([](Array& t) { ReplaceChar(t, '/', '\\'); }, {{"a/b/", "a\\b\\"}});
    EXPECT_EQ(StartsWithNoCase("com12", "COM"), 1);
    EXPECT_EQ(StartsWithNoCase("CO", "COM"), 0);
    EXPECT_EQ(StartsWithNoCase("", ""), 0);
    EXPECT_EQ(EndsWithNoCase("a.LOG", ".log"), 1);
    EXPECT_EQ(EndsWithNoCase("abcabc", "abc"), 0) << "the first occurrence decides";
    EXPECT_EQ(HasNoneOf("", "abc"), 1);
    EXPECT_EQ(HasNoneOf("a%b", "%"), 0);
    EXPECT_EQ(CountSameStart("COM3", "COM4"), 3u);
    EXPECT_EQ(CountSameStart("COM", "COM"), 3u);
}

TEST(StringTools, NumbersAndPartsAreTakenFromAText) {
    char text[32] = "Port (COM17) x";
    LONG number = 0;
    EXPECT_EQ(TakeNumber(text, &number, -1), 1);
    EXPECT_EQ(number, 17);
    EXPECT_STREQ(text, "Port (COM");
    EXPECT_EQ(TakeNumber(text, &number, -1), 0);
    EXPECT_EQ(number, -1);
    EXPECT_STREQ(text, "Port (COM");
    char list[32] = "a, \tb,,c";
    char* parts[4] = {};
    ASSERT_EQ(SplitAtCommas(list, parts, 4), 4u);
    EXPECT_STREQ(parts[1], "b");
    EXPECT_STREQ(parts[2], "");
    EXPECT_STREQ(parts[3], "c");
    CopyText(list, "a,b,c");
    ASSERT_EQ(SplitAtCommas(list, parts, 2), 2u);
    EXPECT_STREQ(parts[1], "b,c");
    const BYTE bytes[] = {0x01, 0xAB, 0xFF};
    EXPECT_STREQ(BytesToHex(bytes, 3), "01,AB");
    EXPECT_STREQ(BytesToHex(bytes, 0), "");
    const std::vector<BYTE> many(400, 0x11);
    EXPECT_EQ(TextLength(BytesToHex(many.data(), 400)), 199u * 3 - 1);
}

TEST(StringTools, ANameIsReadAsWideOrAnsiAndCut) {
    char out[260];
    WideOrAnsiToAnsi(out, std::u16string(400, u'n').c_str());
    EXPECT_EQ(std::string(out), std::string(259, 'n'));
    WideOrAnsiToAnsi(out, std::string(400, 'a').c_str());
    EXPECT_EQ(std::string(out), std::string(259, 'a'));
}

TEST(CommandLine, IsTokenizedAtBlanksOutsideQuotes) {
    // the table holds 6
    using Row = std::tuple<std::string, std::vector<std::string>>;
    for (const auto& [line, expected] :
         {Row{"q.exe", {"q.exe"}},
          Row{"\"C:\\Program Files\\q.exe\" -debug  x ", {"\"C:\\Program Files\\q.exe\"", "-debug", "x"}},
          Row{"q -text=\"a b\" -time=5", {"q", "-text=\"a b\"", "-time=5"}}, Row{"q -text=\"a b", {"q", "-text=\"a b"}},
          Row{"q \"a b\" c", {"q", "\"a", "b\" c"}}, // a quote after a blank opens nothing, the next one does
          Row{"", {}}, Row{"q a b c d e f g", {"q", "a", "b", "c", "d", "e"}},
          Row{"q " + std::string(509, 'x'), {"q", std::string(509, 'x')}}, Row{"q " + std::string(510, 'x'), {}}}) {
        machine::CurrentProcess()->commandLine = line;
        char* tokens[6] = {};
        LONG count = -1;
        TokenizeCommandLine(&count, tokens);
        EXPECT_EQ(std::vector<std::string>(tokens, tokens + count), expected) << line;
        EXPECT_TRUE(count > 0 || tokens[0][0] == '\0');
    }
}

namespace {
struct Element {
    LONGLONG key, payload; // the one goes with the other
    bool operator<(const Element& other) const { return key < other.key; }
};
} // namespace

TEST(QuickSort, SortsEveryShapeAndFindsNothingToMend) {
    int beeps = 0;
    machine::WatchCalls([&](const char* name, const char*) { beeps += std::string_view(name) == "Beep"; });
    const auto byKey = [](const void* a, const void* b) -> LONGLONG {
        return static_cast<const Element*>(a)->key - static_cast<const Element*>(b)->key;
    };
    using Shape = DWORD (*)(DWORD, DWORD);
    for (const Shape shape :
         {Shape([](DWORD i, DWORD) { return i; }), Shape([](DWORD i, DWORD n) { return n - i; }),
          Shape([](DWORD i, DWORD) { return i * 2654435761u >> 8; }), Shape([](DWORD i, DWORD) { return i % 3; })}) {
        for (DWORD count : {0u, 1u, 2u, 31u, 32u, 33u, 1000u}) {
            std::vector<Element> elements(count + 1, Element{0, 0});
            for (DWORD i = 0; i < count; ++i) {
                elements[i] = {shape(i, count), -LONGLONG{shape(i, count)}};
            }
            QuickSort(elements.data(), count, sizeof(Element), byKey);
            EXPECT_TRUE(std::is_sorted(elements.begin(), elements.end() - 1));
            EXPECT_TRUE(std::all_of(elements.begin(), elements.end(), [](auto& e) { return e.payload == -e.key; }));
            EXPECT_EQ(elements[count].key, 0u) << "the element past the end";
        }
    }
    machine::WatchCalls({});
    EXPECT_EQ(beeps, 0);
}

template<typename Code>
static void Expect(const char* (*name)(Code), std::initializer_list<std::pair<Code, const char*>> rows) {
    for (const auto& [code, text] : rows) {
        EXPECT_STREQ(name(code), text);
    }
}

TEST(DiagnosticNames, EachTableEndsWhereItsFallbackBegins) {
    Expect(DeviceTypeName, {{6, "HANDLE"}, {7, "7"}});
    Expect(ConfigRetName, {{0x13, "CR_0x13"}});
    Expect(DevNodeStatusName, {{0x0180200A, "DN_0x180200A"}});
    Expect(ProblemName, {{0, "-"}, {22, "CM_PROB_DISABLED"}, {54, "CM_PROB_DEVICE_RESET"}, {55, "CM_PROB_0x37"}});
    Expect(SessionChangeName, {{9, "SESSION_REMOTE_CONTROL"}, {10, "0xA"}});
    Expect(PowerEventName,
           {{11, "PBT_APMOEMEVENT"}, {12, "PBT_0xC"}, {18, "PBT_APMRESUMEAUTOMATIC"}, {19, "PBT_0x13"}});
    Expect(VetoTypeName, {{6, "Device"}, {13, "AlreadyRemoved"}, {14, "Veto_14"}});
    Expect(ServiceControlName, {{15, "SERVICE_CONTROL_PRESHUTDOWN"}, {16, "SERVICE_CONTROL_0x10"}});
    Expect(WaitResultName, {{0, "ok"}, {1, "WAIT_1"}, {128, "abandoned"}, {258, "timeout"}});
    Expect(SessionStateName, {{9, "Init"}, {10, "WTS_10"}, {-1, "WTS_-1"}});
    Expect(ErrorName, {{0, "ok"}, {4, "4"}, {1460, "TIMEOUT"}});
    Expect(ErrorName, {{0x0FFFFFFF, "268435455"}, {0x10000000, "0x10000000"}});
}

TEST(DiagnosticNames, ARingShowsTenNumbersAtOnce) {
    const char* first = ErrorName(100000);
    for (DWORD i = 1; i < 10; ++i) {
        ErrorName(100000 + i);
    }
    EXPECT_STREQ(first, "100000");
    ErrorName(100010);
    EXPECT_STREQ(first, "100010");
}

TEST(DiagnosticNames, TheLastErrorIsReadAndKept) {
    SetLastError(5);
    EXPECT_STREQ(WaitResultName(WAIT_FAILED), "error=5");
    EXPECT_STREQ(LastErrorText(), "ACCESS_DENIED -> Access is denied.  ");
    EXPECT_STREQ(ResultText(0), "err=ACCESS_DENIED");
    EXPECT_STREQ(ResultText(-3), "res=-3");
    EXPECT_STREQ(ErrorText(0x0FFFFFFF), "268435455") << "the system has no text for it";
    EXPECT_EQ(GetLastError(), 5u);
}
