// Single registry values: typed reads of ugly values, keys that refuse, the change of a name in place, and the bitmap.
#include "tests/harness/Harness.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/registry/Registry.h"
#include "support/Bitmap.h"
#include "support/OsVersion.h"
#include "support/RegistryTools.h"

namespace {

constexpr char kFull[] = "HKLM\\SOFTWARE\\Tool";
constexpr char kKey[] = "SOFTWARE\\Tool";
constexpr DWORD kNobodysError = 0xDEAD;

std::vector<std::uint8_t> Bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

// Stores a value of any shape.
void Plant(DWORD type, std::string_view bytes, const char* name = "V") {
    machine::TheRegistry().SetValue(kFull, name, type, Bytes(bytes));
}

std::string Stored(const char* name = "V") {
    const machine::RegistryValue* value = machine::TheRegistry().GetValue(kFull, name);
    return value ? std::string(value->data.begin(), value->data.end()) : "(absent)";
}

using namespace std::literals;

TEST(RegistryTools, EveryReaderSurvivesEveryShapeOfValue) {
    struct Row {
        const char* what;
        DWORD type;
        std::string_view data;
        DWORD textError;
        const char* text; // read with room for 8 characters
        DWORD numberError;
        DWORD number;
    };
    for (const Row& row : {
             Row{"a text", REG_SZ, "12\0"sv, 0, "12", 0, 12},
             Row{"a text without its zero", REG_SZ, "12"sv, 0, "12", 0, 12},
             Row{"four digits without a zero", REG_SZ, "1234"sv, 0, "1234", 0, 1234},
             Row{"a text longer than a number", REG_SZ, "12345\0"sv, 0, "12345", 234, 0},
             Row{"the longest text", REG_SZ, "1234567\0"sv, 0, "1234567", 234, 0},
             Row{"no room for the zero", REG_SZ, "12345678"sv, 234, "", 234, 0},
             Row{"one byte too much", REG_SZ, "12345678\0"sv, 234, "", 234, 0},
             Row{"a zero inside", REG_SZ, "1\0002\0"sv, 0, "1", 0, 1},
             Row{"no data", REG_SZ, ""sv, 0, "", 0, 0},
             Row{"no digits", REG_SZ, "COM\0"sv, 0, "COM", 0, 0},
             Row{"a number", REG_DWORD, "\x07\0\0\0"sv, 0, "7", 0, 7},
             Row{"a number cut to its array", REG_DWORD, "\xFF\xFF\xFF\xFF"sv, 0, "4294967", 0, 0xFFFFFFFF},
             Row{"a number of odd length", REG_DWORD, "\x07\x01\0"sv, 0, "263", 0, 263},
             Row{"an empty number", REG_DWORD, ""sv, 0, "0", 0, 0},
             Row{"bytes", REG_BINARY, "\x41\x42"sv, 0, "AB", 0, 0x4241},
         }) {
        Plant(row.type, row.data);
        // The buffer stands between guards, so that one byte too much shows.
        struct {
            char before = '#';
            char buffer[8];
            char behind = '#';
        } room;
        std::fill_n(room.buffer, 8, '#');
        SetLastError(kNobodysError);
        const int textRead = RegReadString(HKEY_LOCAL_MACHINE, kKey, "V", room.buffer, sizeof(room.buffer));
        EXPECT_EQ(textRead, row.textError == 0) << row.what;
        EXPECT_EQ(GetLastError(), row.textError == 0 ? kNobodysError : row.textError) << row.what;
        EXPECT_STREQ(room.buffer, row.text) << row.what;
        EXPECT_EQ(room.before, '#') << row.what;
        EXPECT_EQ(room.behind, '#') << row.what;

        DWORD number = 77;
        EXPECT_EQ(RegReadDword(HKEY_LOCAL_MACHINE, kKey, "V", &number), row.numberError == 0) << row.what;
        EXPECT_EQ(number, row.numberError == 0 ? row.number : 77u) << row.what;

        BYTE bytes[6] = {9, 9, 9, 9, 9, 9};
        DWORD size = 5;
        const bool fits = row.data.size() <= 5;
        EXPECT_EQ(RegReadBinary(HKEY_LOCAL_MACHINE, kKey, "V", bytes, &size), fits) << row.what;
        EXPECT_EQ(size, fits ? row.data.size() : 5u) << row.what;
        EXPECT_EQ(bytes[5], 9) << row.what;

        EXPECT_EQ(GetRegValueSize(HKEY_LOCAL_MACHINE, kKey, "V", &size), 1) << row.what;
        EXPECT_EQ(size, row.data.size()) << row.what;
    }
}

TEST(RegistryTools, AMissingValueOrKeyFailsWithTheRegistrysError) {
    machine::TheRegistry().CreateKey(kFull);
    for (const char* key : {kKey, "SOFTWARE\\Nowhere"}) {
        char text[8] = "before";
        DWORD number = 77;
        DWORD size = 4;
        const struct {
            const char* what;
            int result;
            DWORD error;
        } calls[] = {
            {"string", RegReadString(HKEY_LOCAL_MACHINE, key, "None", text, sizeof(text)), GetLastError()},
            {"dword", RegReadDword(HKEY_LOCAL_MACHINE, key, "None", &number), GetLastError()},
            {"binary", RegReadBinary(HKEY_LOCAL_MACHINE, key, "None", &number, &size), GetLastError()},
            {"size", GetRegValueSize(HKEY_LOCAL_MACHINE, key, "None", &size), GetLastError()},
            {"exists", RegValueExists(HKEY_LOCAL_MACHINE, key, "None"), GetLastError()},
            {"delete", RegDeleteValue(HKEY_LOCAL_MACHINE, key, "None"), GetLastError()},
        };
        for (const auto& call : calls) {
            EXPECT_EQ(call.result, 0) << call.what << " of " << key;
            EXPECT_EQ(call.error, ERROR_FILE_NOT_FOUND) << call.what << " of " << key;
        }
        EXPECT_STREQ(text, "");
    }
    FILETIME time = {1, 2};
    EXPECT_EQ(RegGetKeyWriteTime(HKEY_LOCAL_MACHINE, kKey, &time), 0u);
    EXPECT_NE(time.dwLowDateTime, 1u);
    EXPECT_EQ(RegGetKeyWriteTime(HKEY_LOCAL_MACHINE, "SOFTWARE\\Nowhere", &time), 2u);
}

TEST(RegistryTools, WhatIsWrittenIsReadBack) {
    machine::TheRegistry().CreateKey(kFull);
    ASSERT_EQ(RegWriteString(HKEY_LOCAL_MACHINE, kKey, "S", "COM7"), 1);
    ASSERT_EQ(RegWriteDword(HKEY_LOCAL_MACHINE, kKey, "D", 7), 1);
    ASSERT_EQ(RegWriteBinary(HKEY_LOCAL_MACHINE, kKey, "B", "\x01\x02\x03", 3), 1);
    EXPECT_EQ(Stored("S"), "COM7\0"s);
    EXPECT_EQ(Stored("D"), "\x07\0\0\0"s);
    EXPECT_EQ(Stored("B"), "\x01\x02\x03"s);
    char text[16];
    EXPECT_EQ(RegReadDisplayString(HKEY_LOCAL_MACHINE, kKey, "D", text, sizeof(text)), 1);
    EXPECT_STREQ(text, "7");
    ASSERT_EQ(RegDeleteValue(HKEY_LOCAL_MACHINE, kKey, "S"), 1);
    EXPECT_EQ(RegValueExists(HKEY_LOCAL_MACHINE, kKey, "S"), 0);
    EXPECT_EQ(RegReadDisplayString(HKEY_LOCAL_MACHINE, kKey, "S", text, sizeof(text)), 0);
    EXPECT_STREQ(text, "");
}

TEST(RegistryTools, AKeyThatRefusesIsOpenedForOneCallAndClosedAgain) {
    machine::TheRegistry().SetString(kFull, "PortName", "COM3");
    machine::TheRegistry().ProtectKey(kFull);
    char text[16];
    const size_t blocks = machine::CurrentProcess()->heap.Blocks();
    EXPECT_EQ(RegReadString(HKEY_LOCAL_MACHINE, kKey, "PortName", text, sizeof(text)), 1);
    EXPECT_STREQ(text, "COM3");
    EXPECT_EQ(machine::CurrentProcess()->heap.Blocks(), blocks) << "both lists are released";
    EXPECT_TRUE(machine::TheRegistry().IsSecurityUnchanged(kFull));
    EXPECT_EQ(RegWriteDword(HKEY_LOCAL_MACHINE, kKey, "D", 5), 1);
    EXPECT_TRUE(machine::TheRegistry().IsSecurityUnchanged(kFull));
    EXPECT_EQ(Stored("D"), "\x05\0\0\0"s);

    DWORD size = 0;
    SetLastError(kNobodysError);
    EXPECT_EQ(GetRegValueSize(HKEY_LOCAL_MACHINE, kKey, "None", &size), 0) << "a failed work gives access back too";
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(machine::TheRegistry().IsSecurityUnchanged(kFull));

    RegChangeValue(HKEY_LOCAL_MACHINE, kKey, "PortName", "COM3", "COM7");
    EXPECT_EQ(Stored("PortName"), "COM7\0"s);
    EXPECT_TRUE(machine::TheRegistry().IsSecurityUnchanged(kFull));

    EXPECT_EQ(RegDeleteValue(HKEY_LOCAL_MACHINE, kKey, "PortName"), 0) << "the deletion changes no access";
    EXPECT_EQ(RegValueExists(HKEY_LOCAL_MACHINE, kKey, "PortName"), 0);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST(RegistryTools, AccessThatCannotBeGrantedFailsAndChangesNothing) {
    machine::TheRegistry().SetString(kFull, "PortName", "COM3");
    machine::TheRegistry().ProtectKey(kFull);
    machine::AddFault({.call = "RegGetKeySecurity", .on = "*", .error = ERROR_ACCESS_DENIED, .times = 0});
    SetLastError(kNobodysError);
    EXPECT_EQ(RegWriteString(HKEY_LOCAL_MACHINE, kKey, "PortName", "COM7"), 0);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    machine::ClearFaults();
    EXPECT_EQ(Stored("PortName"), "COM3\0"s);
    EXPECT_TRUE(machine::TheRegistry().IsSecurityUnchanged(kFull));
}

TEST(RegistryTools, ANameIsChangedInPlace) {
    const std::string long128 = "COM3" + std::string(123, 'x') + '\0';
    const std::string long129 = "COM3" + std::string(124, 'x') + '\0';
    struct Row {
        const char* what;
        DWORD type;
        std::string before;
        const char* replace;
        std::string after;
    };
    for (const Row& row : {
             Row{"blind to case", REG_SZ, "\\\\.\\com3\0"s, "COM7", "\\\\.\\COM7\0"s},
             Row{"every occurrence", REG_SZ, "COM3 and com3\0"s, "COM17", "COM17 and COM17\0"s},
             Row{"without its zero", REG_SZ, "COM3"s, "COM7", "COM7\0"s},
             Row{"nothing to replace", REG_SZ, "COM4"s, "COM7", "COM4"s},
             Row{"another type", REG_EXPAND_SZ, "COM3\0"s, "COM7", "COM3\0"s},
             Row{"as long as can be", REG_SZ, long128, "COM7", "COM7" + std::string(123, 'x') + '\0'},
             Row{"longer than that", REG_SZ, long129, "COM7", long129},
             Row{"too long when replaced", REG_SZ, long128, "COM7890", long128},
         }) {
        Plant(row.type, row.before);
        RegChangeAllValues(HKEY_LOCAL_MACHINE, kKey, "COM3", row.replace);
        EXPECT_EQ(Stored(), row.after) << row.what;
    }
}

TEST(RegistryTools, AccountControlCountsAsOnWhenNothingIsSaid) {
    constexpr char policies[] = "HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Policies\\System";
    g_Os.MajorVersion = 6;
    machine::TheRegistry().CreateKey(policies);
    machine::TheRegistry().DeleteValue(policies, "EnableLUA");
    EXPECT_EQ(IsUacEnabled(), 1);
    machine::TheRegistry().SetDword(policies, "EnableLUA", 0);
    EXPECT_EQ(IsUacEnabled(), 0);
    machine::TheRegistry().SetDword(policies, "EnableLUA", 1);
    EXPECT_EQ(IsUacEnabled(), 1);
    g_Os.MajorVersion = 5;
    EXPECT_EQ(IsUacEnabled(), 0);
}

TEST(Bitmap, NumbersOutsideItChangeNothing) {
    BYTE map[3] = {0, 0, 0xEE};
    EXPECT_EQ(BitmapSet(1, map, 16), 1);
    EXPECT_EQ(BitmapSet(1, map, 16), 0);
    EXPECT_EQ(map[0], 0x01);
    EXPECT_EQ(BitmapSet(16, map, 16), 1);
    EXPECT_EQ(map[1], 0x80);
    for (BYTE neighbour : {BYTE{0x00}, BYTE{0xFF}}) {
        map[2] = neighbour;
        for (DWORD outside : {0u, 17u, 24u, 0xFFFFFFFFu}) {
            EXPECT_EQ(BitmapSet(outside, map, 16), 0) << outside;
            EXPECT_EQ(BitmapClear(outside, map, 16), 0) << outside;
            EXPECT_EQ(BitmapTest(outside, map, 16), 0) << outside;
        }
        EXPECT_EQ(map[2], neighbour);
    }
    EXPECT_EQ(BitmapTest(16, map, 16), 1);
    EXPECT_EQ(BitmapClear(16, map, 16), 1);
    EXPECT_EQ(BitmapClear(16, map, 16), 0);
}

TEST(Bitmap, AListOfNumbersIsTaken) {
    std::string many; // 300 items, more than count; and longer than the buffer
    for (int i = 0; i < 300; ++i) {
        many += i == 0 ? "1" : ",1";
    }
    struct Row {
        std::string list;
        DWORD taken;
        std::vector<DWORD> numbers;
    };
    for (const Row& row : {
             Row{"1,3,5-8", 6, {1, 3, 5, 6, 7, 8}}, Row{"3, 5-7", 4, {3, 5, 6, 7}}, Row{"3,3,0", 3, {3}},
             Row{"", 0, {}}, Row{"x,,-", 2, {}}, Row{"7-5", 0, {}},
             Row{"16,17,4294967297,99999999999999999999", 1, {16}}, Row{"15-4000000000", 2, {15, 16}},
             Row{many, 256, {1}}, Row{"4," + std::string(508, ' ') + "12", 1, {4}}, // the buffer ends inside the 12
         }) {
        BYTE map[3] = {0xFF, 0xFF, 0xEE};
        const DWORD taken = ParseNumberList(row.list.c_str(), map, 2);
        EXPECT_EQ(taken, row.taken) << row.list;
        for (DWORD number = 1; number <= 16; ++number) {
            const bool wanted = std::count(row.numbers.begin(), row.numbers.end(), number) > 0;
            EXPECT_EQ(BitmapTest(number, map, 16) != 0, wanted) << number << " of " << row.list;
        }
        EXPECT_EQ(map[2], 0xEE);
    }
}

} // namespace
