// Single registry values: typed reads of ugly values, keys that refuse, the change of a name in place, and the bitmap.
#include "tests/harness/Harness.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/registry/Registry.h"
#include "support/registry/RegistryTools.h"
#include "support/texts/Bitmap.h"
#include "tests/unit/Log.h"

constexpr char Full[] = "HKLM\\SOFTWARE\\Tool";
constexpr char Key[] = "SOFTWARE\\Tool";
constexpr DWORD NobodysError = 0xDEAD;

// Stores a value of any shape.
static void Plant(DWORD type, std::string_view bytes) {
    machine::TheRegistry().SetValue(Full, "V", type, {bytes.begin(), bytes.end()});
}

static std::string Stored(const char* name = "V") {
    const machine::RegistryValue* value = machine::TheRegistry().GetValue(Full, name);
    return value ? std::string(value->data.begin(), value->data.end()) : "(absent)";
}

using namespace std::literals;

TEST(RegistryTools, EveryReaderSurvivesEveryShapeOfValue) {
    // read with room for 8 characters
    using Row = std::tuple<const char*, DWORD, std::string_view, DWORD, const char*, DWORD, DWORD>;
    for (const auto& [what, type, data, textError, text, numberError, expected] :
         {Row{"a text", REG_SZ, "12\0"sv, 0, "12", 0, 12},
          Row{"a text without its zero", REG_SZ, "12"sv, 0, "12", 0, 12},
          Row{"four digits without a zero", REG_SZ, "1234"sv, 0, "1234", 0, 1234},
          Row{"a text longer than a number", REG_SZ, "12345\0"sv, 0, "12345", 234, 0},
          Row{"the longest text", REG_SZ, "1234567\0"sv, 0, "1234567", 234, 0},
          Row{"no room for the zero", REG_SZ, "12345678"sv, 234, "", 234, 0},
          Row{"one byte too much", REG_SZ, "12345678\0"sv, 234, "", 234, 0},
          Row{"a zero inside", REG_SZ, "1\0002\0"sv, 0, "1", 0, 1}, Row{"no data", REG_SZ, ""sv, 0, "", 0, 0},
          Row{"no digits", REG_SZ, "COM\0"sv, 0, "COM", 0, 0}, Row{"a number", REG_DWORD, "\x07\0\0\0"sv, 0, "7", 0, 7},
          Row{"a number cut to its array", REG_DWORD, "\xFF\xFF\xFF\xFF"sv, 0, "4294967", 0, 0xFFFFFFFF},
          Row{"a number of odd length", REG_DWORD, "\x07\x01\0"sv, 0, "263", 0, 263},
          Row{"an empty number", REG_DWORD, ""sv, 0, "0", 0, 0},
          Row{"bytes", REG_BINARY, "\x41\x42"sv, 0, "AB", 0, 0x4241}}) {
        SCOPED_TRACE(what);
        Plant(type, data);
        // The buffer is between guards, so that one byte too much is noticed.
        char room[10];
        std::fill_n(room, 10, '#');
        SetLastError(NobodysError);
        EXPECT_EQ(RegReadString(HKEY_LOCAL_MACHINE, Key, "V", room + 1, 8), textError == 0);
        EXPECT_EQ(GetLastError(), textError == 0 ? NobodysError : textError);
        EXPECT_STREQ(room + 1, text);
        EXPECT_TRUE(room[0] == '#' && room[9] == '#');

        DWORD number = 77;
        EXPECT_EQ(RegReadDword(HKEY_LOCAL_MACHINE, Key, "V", &number), numberError == 0);
        EXPECT_EQ(number, numberError == 0 ? expected : 77u);

        BYTE bytes[6] = {9, 9, 9, 9, 9, 9};
        DWORD size = 5;
        const bool fits = data.size() <= 5;
        EXPECT_EQ(RegReadBinary(HKEY_LOCAL_MACHINE, Key, "V", bytes, &size), fits);
        EXPECT_EQ(size, fits ? data.size() : 5u);
        EXPECT_EQ(bytes[5], 9);

        EXPECT_EQ(GetRegValueSize(HKEY_LOCAL_MACHINE, Key, "V", &size), 1);
        EXPECT_EQ(size, data.size());
    }
}

TEST(RegistryTools, AKeyThatRefusesIsOpenedForOneCallAndClosedAgain) {
    machine::TheRegistry().SetString(Full, "PortName", "COM3");
    machine::TheRegistry().ProtectKey(Full);
    const auto isClosed = [] { return machine::TheRegistry().IsSecurityUnchanged(Full); };
    char text[16];
    const size_t blocks = machine::CurrentProcess()->heap.Blocks();
    EXPECT_EQ(RegReadString(HKEY_LOCAL_MACHINE, Key, "PortName", text, sizeof(text)), 1);
    EXPECT_STREQ(text, "COM3");
    EXPECT_EQ(machine::CurrentProcess()->heap.Blocks(), blocks) << "both lists are released";
    EXPECT_TRUE(isClosed());
    RegChangeValue(HKEY_LOCAL_MACHINE, Key, "PortName", "COM3", "COM7");
    EXPECT_EQ(Stored("PortName"), "COM7\0"s);
    EXPECT_TRUE(isClosed());
    DWORD size = 0;
    EXPECT_EQ(GetRegValueSize(HKEY_LOCAL_MACHINE, Key, "None", &size), 0) << "a failed work gives access back too";
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(isClosed());
    EXPECT_EQ(RegDeleteValue(HKEY_LOCAL_MACHINE, Key, "PortName"), 0) << "the deletion changes no access";
    machine::AddFault({.call = "RegGetKeySecurity", .on = "*", .error = ERROR_ACCESS_DENIED, .times = 0});
    EXPECT_EQ(RegWriteString(HKEY_LOCAL_MACHINE, Key, "PortName", "COM9"), 0) << "access cannot be granted";
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Stored("PortName"), "COM7\0"s);
    EXPECT_TRUE(isClosed());
}

TEST(RegistryTools, AListThatCannotBePutBackIsReported) {
    machine::TheRegistry().SetString(Full, "PortName", "COM3");
    machine::TheRegistry().ProtectKey(Full);
    logtest::StartLog();
    machine::AddFault({.call = "RegSetKeySecurity", .on = "*", .error = ERROR_ACCESS_DENIED, .after = 1, .times = 3});
    EXPECT_EQ(RegWriteString(HKEY_LOCAL_MACHINE, Key, "PortName", "COM7"), 1);
    EXPECT_FALSE(machine::TheRegistry().IsSecurityUnchanged(Full));
    EXPECT_TRUE(logtest::Logged("HKLM\\SOFTWARE\\Tool could not be put back: everybody may change the key"));
}

TEST(RegistryTools, ANameIsChangedInPlace) {
    const std::string rest(123, 'x'), long128 = "COM3" + rest + '\0', long129 = "COM3x" + rest + '\0';
    const struct {
        DWORD type;
        std::string before;
        const char* replace;
        std::string after;
    } rows[] = {{REG_SZ, "\\\\.\\com3\0"s, "COM7", "\\\\.\\COM7\0"s}, // ignoring case
                {REG_SZ, "COM3 and com3\0"s, "COM17", "COM17 and COM17\0"s},
                {REG_SZ, "COM3"s, "COM7", "COM7\0"s}, // without its zero
                {REG_SZ, "COM4"s, "COM7", "COM4"s},   // nothing to replace, so nothing is written
                {REG_EXPAND_SZ, "COM3\0"s, "COM7", "COM3\0"s},
                {REG_SZ, long128, "COM7", "COM7" + rest + '\0'},
                {REG_SZ, long129, "COM7", long129},
                {REG_SZ, long128, "COM7890", long128}}; // too long when replaced
    for (const auto& row : rows) {
        Plant(row.type, row.before);
        RegChangeAllValues(HKEY_LOCAL_MACHINE, Key, "COM3", row.replace);
        EXPECT_EQ(Stored(), row.after) << row.before;
    }
}

TEST(Bitmap, NumbersOutsideItChangeNothing) {
    BYTE map[3] = {0, 0, 0xEE};
    EXPECT_EQ(BitmapSet(1, map, 16), 1);
    EXPECT_EQ(BitmapSet(1, map, 16), 0);
    EXPECT_EQ(BitmapSet(16, map, 16), 1);
    EXPECT_EQ(std::string(map, map + 2), "\x01\x80");
    for (BYTE neighbour : {BYTE{0x00}, BYTE{0xFF}}) {
        for (DWORD outside : {0u, 17u, 24u, 0xFFFFFFFFu}) {
            map[2] = neighbour;
            EXPECT_EQ(BitmapSet(outside, map, 16), 0) << outside;
            EXPECT_EQ(BitmapClear(outside, map, 16), 0) << outside;
            EXPECT_EQ(BitmapTest(outside, map, 16), 0) << outside;
            EXPECT_EQ(map[2], neighbour);
        }
    }
    EXPECT_EQ(BitmapTest(16, map, 16), 1);
    EXPECT_EQ(BitmapClear(16, map, 16), 1);
    EXPECT_EQ(BitmapClear(16, map, 16), 0);
}

TEST(Bitmap, AListOfNumbersIsTaken) {
    std::string many = "1"; // 300 items, more than count; and longer than the buffer
    for (int i = 1; i < 300; ++i) {
        many += ",1";
    }
    const struct {
        std::string list;
        DWORD taken;
        std::vector<DWORD> numbers;
    } rows[] = {{"1,3,5-8", 6, {1, 3, 5, 6, 7, 8}},
                {"3, 5-7", 4, {3, 5, 6, 7}},
                {"3,3,0", 3, {3}},
                {"", 0, {}},
                {"x,,-", 2, {}},
                {"7-5", 0, {}},
                {"16,17,4294967297,99999999999999999999", 1, {16}},
                {"15-4000000000", 2, {15, 16}},
                {many, 256, {1}},
                {"4," + std::string(508, ' ') + "12", 1, {4}}}; // the buffer ends inside the 12
    for (const auto& row : rows) {
        BYTE map[3] = {0xFF, 0xFF, 0xEE};
        EXPECT_EQ(ParseNumberList(row.list.c_str(), map, 2), row.taken) << row.list;
        std::vector<DWORD> numbers;
        for (DWORD number = 1; number <= 16; ++number) {
            if (BitmapTest(number, map, 16)) {
                numbers.push_back(number);
            }
        }
        EXPECT_EQ(numbers, row.numbers) << row.list;
        EXPECT_EQ(map[2], 0xEE);
    }
}
