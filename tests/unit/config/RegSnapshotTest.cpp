// The registry as the source: it takes precedence, and whatever a program left there gives a text, a null or nothing.
#include "tests/unit/config/ConfigOnMachine.h"

#include "simwin/registry/Registry.h"

using namespace configtest;

namespace {

constexpr char SubKey[] = "Software\\Tarn Holve\\Quillmarch";
const std::string Key = std::string("HKLM\\") + SubKey;

using Bytes = std::vector<std::uint8_t>;

Bytes Text(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

TEST(RegSnapshot, AnExistingKeyIsTheSourceForTheLifeOfTheReader) {
    WriteIni("[Settings]\nKey=ini\n");
    CCfgReader early(IniPath, HKEY_LOCAL_MACHINE, SubKey);
    machine::TheRegistry().SetString(Key + "\\Settings", "Key", "registry");
    CCfgReader late(IniPath, HKEY_LOCAL_MACHINE, SubKey);
    EXPECT_EQ(early.CreateSnapshot("test"), 1u);
    EXPECT_EQ(late.CreateSnapshot("test"), 1u);
    EXPECT_EQ(Get(early, Settings, NoSectionNumber, "Key"), "ini");
    EXPECT_EQ(Get(late, Settings, NoSectionNumber, "Key"), "registry");
}

TEST(RegSnapshot, UglyValuesAreReadOrPassedOver) {
    struct Row {
        const char* name;
        DWORD type;
        Bytes data;
        const char* value;
    };
    const Row rows[] = {
        {"Plain", REG_SZ, {'a', 'b', 0}, "ab"},
        {"NoZero", REG_SZ, {'a', 'b'}, "ab"},
        {"Inner", REG_SZ, {'a', 0, 'b', 0}, "a"},
        {"Empty", REG_SZ, {0}, Absent},
        {"Nothing", REG_SZ, {}, Absent},
        {" Blanks\t", REG_SZ, {'a', 0}, "a"},
        {"Number", REG_DWORD, {7, 0, 0, 0}, "7"},
        {"Negative", REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, "-1"},
        {"ShortNumber", REG_DWORD, {7}, Absent},
        {"Binary", REG_BINARY, {'4', '2'}, "42"},
        {"Most", REG_SZ, Text(std::string(260, 'x')), nullptr},
        {"TooLong", REG_SZ, Text(std::string(261, 'x')), Absent},
        {"Mark", REG_SZ, Text("__SECTION__"), "__SECTION__"},
        {"Last", REG_SZ, {'z', 0}, "z"},
    };
    for (const Row& row : rows) {
        machine::TheRegistry().SetValue(Key + "\\ComPorts7", row.name, row.type, row.data);
    }
    CCfgReader reader(IniPath, HKEY_LOCAL_MACHINE, SubKey);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    for (const Row& row : rows) {
        const std::string expected = row.value != nullptr ? row.value : std::string(260, 'x');
        const char* key = row.name[0] == ' ' ? "blanks" : row.name;
        EXPECT_EQ(Get(reader, ComPorts, 7, key), expected) << row.name;
    }
}

TEST(RegSnapshot, ARepeatedSectionLeavesTheFirstAsItIs) {
    StartLog();
    machine::TheRegistry().SetString(Key + "\\ComPorts01", "Key", "first");
    machine::TheRegistry().SetString(Key + "\\ComPorts1", "Key", "second");
    machine::TheRegistry().SetString(Key + "\\ComPorts1", "Other", "second");
    machine::TheRegistry().SetString(Key + "\\ComPorts101", "Key", "no slot");
    machine::TheRegistry().SetString(Key + "\\Sessions", "Key", "unknown");
    machine::TheRegistry().SetString(Key + "\\OnArrival2", "Key", "b");
    CCfgReader reader(IniPath, HKEY_LOCAL_MACHINE, SubKey);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_EQ(Get(reader, ComPorts, 1, "Key"), "first");
    EXPECT_EQ(Get(reader, ComPorts, 1, "Other"), Absent);
    EXPECT_EQ(Get(reader, OnArrival, 2, "Key"), "b");
    EXPECT_TRUE(Logged("section [ComPorts1] is defined twice"));
    EXPECT_TRUE(Logged("section [ComPorts101] has a number above 99 -> ignored"));
    EXPECT_TRUE(Logged(" CCfgReader::CreateSnapshot Keys=5"));
}

TEST(RegSnapshot, TheThreeHundredAndFirstValueEndsItsSectionOnly) {
    StartLog();
    for (int i = 0; i < 301; ++i) {
        machine::TheRegistry().SetString(Key + "\\ComPorts1", "Key" + std::to_string(i), std::to_string(i));
    }
    machine::TheRegistry().SetString(Key + "\\ComPorts2", "Key", "a");
    CCfgReader reader(IniPath, HKEY_LOCAL_MACHINE, SubKey);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_EQ(Get(reader, ComPorts, 1, "Key299"), "299");
    EXPECT_EQ(Get(reader, ComPorts, 1, "Key300"), Absent);
    EXPECT_EQ(Get(reader, ComPorts, 2, "Key"), "a");
    EXPECT_TRUE(Logged("max number of values(300) in Key [ComPorts1] reached -> abort"));
}

TEST(RegSnapshot, OnlyTheConfigurationKeyItselfIsCompared) {
    StartLog();
    machine::TheRegistry().SetString(Key + "\\Settings", "Key", "a");
    CCfgReader reader(IniPath, HKEY_LOCAL_MACHINE, SubKey);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    Sleep(50);
    machine::TheRegistry().SetString(Key + "\\Settings", "Key", "b");
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "a");
    Sleep(50);
    machine::TheRegistry().SetString(Key, "Touched", "1");
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 1u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "b");
    machine::TheRegistry().DeleteTree(Key);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    EXPECT_TRUE(Logged("error opening reg  err=2"));
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "b");
}

} // namespace
