// What a file means: lines, sections, values, limits and encodings, and when it is read again.
#include "tests/unit/config/ConfigOnMachine.h"

using namespace configtest;

namespace {

std::string Repeat(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

std::string Utf16(const std::string& text, bool bigEndian) {
    std::string wide = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : text) {
        wide += bigEndian ? '\0' : c;
        wide += bigEndian ? c : '\0';
    }
    return wide;
}

TEST(IniSnapshot, ALineMeansWhatItsFirstColumnSays) {
    struct Row {
        const char* text;
        const char* value;
    };
    for (const Row& row : {Row{"[ComPorts5]\nKey=a\n", "a"},
                           Row{"[ComPorts5]\nKey=a", "a"},
                           Row{"[ComPorts5]\r\n  Key=a\r\n", Absent},
                           Row{"[COMPORTS05]\nkey = \t a \t\n", "\t a"},
                           Row{"[ComPorts5x]\nKEY\t =a=b;c\n", "a=b;c"},
                           Row{"[ComPorts5]\nKey=\n", ""},
                           Row{"[ComPorts5]\nKey\n", Absent},
                           Row{"[ComPorts5]\n;Key=a\n#Key=a\n", Absent},
                           Row{"[ComPorts5]\n\xC4Key=a\n1Key=a\n_=a\n", Absent},
                           Row{"[ComPorts5] \t\nKey=a\n", "a"},
                           Row{"[ComPorts5] ; main\nKey=a\n", Absent},
                           Row{" [ComPorts5]\nKey=a\n", Absent},
                           Row{"Key=a\n[ComPorts5]\n", Absent},
                           Row{"[ComPorts5]\nKey=a\n[Other]\nKey=b\n", "a"},
                           Row{"[Other]\nKey=a\n[ComPorts5]\nKey=b\n", "b"},
                           Row{"[ComPorts5]\n[]\nKey=a\n", "a"},
                           Row{"[ComPorts5]\nKey=a\n[ComPorts5]\nKey=b\n", "a"},
                           Row{"[ComPorts5]\nKey=a\nKEY=b\n", "b"},
                           Row{"[ComPorts5]\nKey=__SECTION__\n", "ComPorts5"},
                           Row{"[ComPorts5]\nKey=__section__\n", "__section__"},
                           Row{"[ComPorts5]\n\nKey=__LINE__\n", "2"},
                           Row{"[ComPorts5]\r\n\r\nKey=__LINE__\r\n", "3"},
                           Row{"[ComPorts5]\nKey=__SECTION__/__LINE__\n", "ComPorts5/2"}}) {
        EXPECT_EQ(Read(row.text, ComPorts, 5, "Key"), row.value) << row.text;
    }
    EXPECT_EQ(Read("[OnRemovalRequest12]\nKey=__SECTION__\n", OnRemovalRequest, 12, "Key"), "__SECTION__");
    EXPECT_EQ(Read("\xEF\xBB\xBF[ComPorts5]\nKey=a\n", ComPorts, 5, "Key"), Absent);
    EXPECT_EQ(Read("[ComPorts]\nKey=a\n", ComPorts, NoSectionNumber, "Key"), "a");
}

TEST(IniSnapshot, ALineOfThirtyTwoCharactersIsNoSection) {
    const std::string digits(20, '0');
    EXPECT_EQ(Read("[ComPorts" + digits + "5]\nKey=a\n", ComPorts, 5, "Key"), "a");
    EXPECT_EQ(Read("[ComPorts1]\n[ComPorts" + digits + "05]\nKey=a\n", ComPorts, 1, "Key"), "a");
}

TEST(IniSnapshot, ASectionWithoutASlotIsToldAndLeavesTheOthers) {
    StartLog();
    WriteIni("[ComPorts]\nKey=a\n[ComPorts100]\nKey=b\n[ComPorts101]\nKey=c\n[ComPorts99999999999]\nKey=d\n[Comports7]"
             "\nKey=e\n[ComPorts07]\nKey=f\n[Sessions3]\nKey=g\n");
    CCfgReader reader(IniPath, nullptr, nullptr);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_EQ(Get(reader, ComPorts, NoSectionNumber, "Key"), "a");
    EXPECT_EQ(Get(reader, ComPorts, 7, "Key"), "e");
    EXPECT_FALSE(reader.HasSection(ComPorts, 101));
    EXPECT_FALSE(reader.HasSection(ComPorts, -1));
    EXPECT_FALSE(reader.HasAnySection(OnArrival));
    EXPECT_TRUE(reader.HasAnySection(ComPorts));
    EXPECT_TRUE(Logged("section [ComPorts100] is defined twice"));
    EXPECT_TRUE(Logged("section [ComPorts101] has a number above 99 -> ignored"));
    EXPECT_TRUE(Logged("section [ComPorts07] is defined twice"));
    EXPECT_TRUE(Logged("unknown section [Sessions3]"));
}

TEST(IniSnapshot, TheThreeHundredAndFirstValueEndsTheParse) {
    StartLog();
    std::string text = "[ComPorts1]\n";
    for (int i = 0; i < 300; ++i) {
        text += "Key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    }
    EXPECT_EQ(Read(text + "[ComPorts2]\nKey=a\n", ComPorts, 2, "Key"), "a");
    EXPECT_EQ(CountLogged("reached -> abort"), 0);
    WriteIni(text + "No value\n[ComPorts2]\nKey=a\n");
    CCfgReader reader(IniPath, nullptr, nullptr);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_TRUE(Logged("CCfgReader::CreateSnapshot max number of values(300) in section [ComPorts1] reached -> abort"));
    EXPECT_FALSE(reader.HasSection(ComPorts, 2));
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(Get(reader, ComPorts, 1, ("KEY" + std::to_string(i)).c_str()), std::to_string(i));
    }
}

TEST(IniSnapshot, AFileOfOneMegabyteIsRefused) {
    const std::string head = "[ComPorts1]\nKey=a\n;";
    const std::string most = head + std::string(0xFFFFF - head.size(), 'x');
    EXPECT_EQ(Read(most, ComPorts, 1, "Key"), "a");
    WriteIni(most + "x");
    CCfgReader reader(IniPath, nullptr, nullptr);
    EXPECT_EQ(reader.CreateSnapshot("test"), 0u);
    EXPECT_EQ(Get(reader, ComPorts, 1, "Key"), Absent);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    EXPECT_EQ(Read("", ComPorts, 1, "Key"), Absent);
}

TEST(IniSnapshot, Utf16ReadsLikeItsAnsiForm) {
    const std::string text = "[ComPorts1]\r\nFirst=a\r\nLast=\xE4z";
    for (const bool bigEndian : {false, true}) {
        EXPECT_EQ(Read(Utf16(text, bigEndian), ComPorts, 1, "First"), "a") << bigEndian;
        EXPECT_EQ(Read(Utf16(text, bigEndian), ComPorts, 1, "Last"), "\xE4z") << bigEndian;
        EXPECT_EQ(Read(Utf16(text, bigEndian) + "x", ComPorts, 1, "Last"), "\xE4z") << "odd " << bigEndian;
        EXPECT_EQ(Read(Utf16("", bigEndian), ComPorts, 1, "Last"), Absent) << "mark only " << bigEndian;
    }
    EXPECT_EQ(Read("\xFF", ComPorts, 1, "Last"), Absent);
}

TEST(IniSnapshot, ZeroBytesAndEndlessLinesHarmNothing) {
    const std::string zeros("[ComPorts5]\nKey\0=a\n\0Key=b\nOther=c\0d\n", 38);
    EXPECT_EQ(Read(zeros, ComPorts, 5, "Key"), Absent);
    EXPECT_EQ(Read(zeros, ComPorts, 5, "Other"), "c");
    EXPECT_EQ(Read("[ComPorts5]\nKey=" + Repeat("x", 5000) + "\n", ComPorts, 5, "Key"), Absent);
    EXPECT_EQ(Read("[ComPorts5]\n" + Repeat("k", 5000) + "=a\nKey=b", ComPorts, 5, "Key"), "b");
}

TEST(IniSnapshot, AValueWithoutRoomGivesTheDefaultAndIsTold) {
    StartLog();
    WriteIni("[ComPorts1]\nFits=" + Repeat("9", 31) + "\nLong=" + Repeat("9", 32) + "\nTwice=" + Repeat("9", 32) +
             "\nTwice=7\nEmpty=\nLate=7\nLate=" + Repeat("9", 32) + "\n");
    CCfgReader reader(IniPath, nullptr, nullptr);
    reader.CreateSnapshot("test");
    LONG number = 0;
    DWORD duration = 0;
    EXPECT_EQ(reader.GetInt(ComPorts, 1, "Fits", 5, &number), 31u);
    EXPECT_EQ(CountLogged("is too long"), 0);
    EXPECT_EQ(reader.GetInt(ComPorts, 1, "Long", 5, &number), 0u);
    EXPECT_EQ(number, 5);
    EXPECT_TRUE(Logged("warning: content of value Long is too long"));
    EXPECT_TRUE(Logged("function CCfgReader::GetString"));
    EXPECT_EQ(reader.GetDuration(ComPorts, 1, "Long", 5, &duration), 0u);
    EXPECT_EQ(duration, 5u);
    reader.GetInt(ComPorts, 1, "Twice", 5, &number);
    EXPECT_EQ(number, 7);
    reader.GetInt(ComPorts, 1, "Late", 5, &number);
    EXPECT_EQ(number, 5);
    reader.GetInt(ComPorts, 1, "Empty", 5, &number);
    EXPECT_EQ(number, 5);
    char text[4] = "zzz";
    EXPECT_EQ(reader.GetString(ComPorts, 1, "Empty", "default", text, sizeof(text)), 0u);
    EXPECT_EQ(reader.GetString(ComPorts, 1, "None", "default", text, sizeof(text)), 3u);
    EXPECT_STREQ(text, "def");
}

TEST(IniSnapshot, OnlyAnotherWriteTimeIsAChange) {
    WriteIni("[Settings]\nKey=a\n");
    CCfgReader reader(IniPath, nullptr, nullptr);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 1u);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    Sleep(50);
    WriteIni("[Settings]\nKey=a\n");
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 1u);
    Sleep(50);
    machine::TheFiles().Delete(IniPath);
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 0u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), Absent);
    Sleep(50);
    WriteIni("[Settings]\nKey=b\n");
    EXPECT_EQ(reader.CreateSnapshotIfRequired("test"), 1u);
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), "b");
    reader.DeleteSnapshot("test");
    EXPECT_EQ(Get(reader, Settings, NoSectionNumber, "Key"), Absent);
}

} // namespace
