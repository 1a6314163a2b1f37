// The registry as the source: it takes precedence, and whatever a program left there gives a text, a null or nothing.
#include "tests/unit/config/ConfigOnMachine.h"

#include "simwin/kernel/Call.h"
#include "simwin/registry/Registry.h"

using namespace configtest;
using namespace std::literals;

constexpr char SubKey[] = "Software\\Tarn Holve\\Quillmarch";
const std::string Key = "HKLM\\"s + SubKey;

static void Set(const std::string& section, const std::string& name, const std::string& text) {
    machine::TheRegistry().SetString(Key + section, name, text);
}

namespace {
struct RegReader : CCfgReader {
    RegReader() : CCfgReader(IniPath, HKEY_LOCAL_MACHINE, SubKey) {}
};
} // namespace

TEST(RegSnapshot, AnExistingKeyIsTheSourceForTheLifeOfTheReader) {
    WriteIni("[Settings]\nKey=ini\n");
    RegReader early;
    Set("\\Settings", "Key", "registry");
    RegReader late;
    EXPECT_EQ(early.CreateSnapshot("test"), 1u);
    EXPECT_EQ(late.CreateSnapshot("test"), 1u);
    EXPECT_EQ(Get(early, Settings, NoSectionNumber, "Key"), "ini");
    EXPECT_EQ(Get(late, Settings, NoSectionNumber, "Key"), "registry");
}

TEST(RegSnapshot, UglyValuesAreReadOrPassedOver) {
    using Row = std::tuple<const char*, DWORD, std::string, std::string>;
    const std::string most(260, 'x');
    const Row rows[] = {Row{"Plain", REG_SZ, "ab\0"s, "ab"},
                        Row{"NoZero", REG_SZ, "ab", "ab"},
                        Row{"Inner", REG_SZ, "a\0b\0"s, "a"},
                        Row{"Empty", REG_SZ, "\0"s, Absent},
                        Row{"Nothing", REG_SZ, "", Absent},
                        Row{" Blanks\t", REG_SZ, "a\0"s, Absent},
                        Row{"Number", REG_DWORD, "\7\0\0\0"s, "7"},
                        Row{"Negative", REG_DWORD, "\xFF\xFF\xFF\xFF", "-1"},
                        Row{"ShortNumber", REG_DWORD, "\7", Absent},
                        Row{"Binary", REG_BINARY, "42", "42"},
                        Row{"Most", REG_SZ, most, most},
                        Row{"TooLong", REG_SZ, most + "x", Absent},
                        Row{"Mark", REG_SZ, "__SECTION__", "__SECTION__"},
                        Row{"Last", REG_SZ, "z\0"s, "z"}};
    for (const auto& [name, type, data, value] : rows) {
        machine::TheRegistry().SetValue(Key + "\\ComPorts7", name, type, {data.begin(), data.end()});
    }
    RegReader reader;
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    for (const auto& [name, type, data, value] : rows) {
        EXPECT_EQ(Get(reader, ComPorts, 7, name), value) << name;
    }
    EXPECT_EQ(Get(reader, ComPorts, 7, "blanks"), "a");
}

TEST(RegSnapshot, ARepeatedSectionLeavesTheFirstAsItIsAndAFullOneEndsAlone) {
    StartLog();
    Set("\\ComPorts01", "Key", "first");
    Set("\\ComPorts1", "Key", "second");
    Set("\\ComPorts1", "Other", "second");
    Set("\\ComPorts101", "Key", "no slot");
    for (int i = 0; i < 301; ++i) {
        Set("\\ComPorts2", "Key" + std::to_string(i), std::to_string(i));
    }
    Set("\\OnArrival2", "Key", "b");
    RegReader reader;
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_EQ(Get(reader, ComPorts, 1, "Key"), "first");
    EXPECT_EQ(Get(reader, ComPorts, 1, "Other"), Absent);
    EXPECT_EQ(Get(reader, ComPorts, 2, "Key299"), "299");
    EXPECT_EQ(Get(reader, ComPorts, 2, "Key300"), Absent);
    EXPECT_EQ(Get(reader, OnArrival, 2, "Key"), "b");
    EXPECT_TRUE(Logged("section [ComPorts1] is defined twice"));
    EXPECT_TRUE(Logged("section [ComPorts101] has a number above 99 -> ignored"));
    EXPECT_TRUE(Logged("max number of values(300) in Key [ComPorts2] reached -> abort"));
}

TEST(RegSnapshot, OnlyTheConfigurationKeyItselfIsCompared) {
    Set("\\Settings", "Key", "a");
    RegReader reader;
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    Sleep(50);
    Set("\\Settings", "Key", "b");
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "a");
    Sleep(50);
    Set("", "Touched", "1");
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 1u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "b");
    machine::TheRegistry().DeleteTree(Key);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "b");
}

TEST(RegSnapshot, AKeyThatCannotBeQueriedIsLoggedOnceForEachChange) {
    StartLog();
    Set("\\Settings", "Key", "a");
    RegReader reader;
    for (int change = 1; change <= 2; ++change) {
        machine::AddFault({.call = "RegQueryInfoKeyA", .on = "*", .error = ERROR_ACCESS_DENIED, .times = 2});
        EXPECT_EQ(reader.CreateSnapshot("test"), 0u);
        EXPECT_EQ(reader.CreateSnapshot("test"), 0u);
        EXPECT_EQ(CountLogged("cannot be queried, err=5 -> no section counts"), change);
        EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    }
}
