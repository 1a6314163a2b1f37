// What a file means apart from its lines: limits, encodings, values without room, and when it is read again.
#include "simwin/kernel/Call.h"
#include "tests/unit/config/ConfigOnMachine.h"

using namespace configtest;
using namespace std::literals;

TEST(IniSnapshot, AnEmptyLineCountsOnlyWithACarriageReturn) {
    EXPECT_EQ(Read("[ComPorts5]\n\nKey=__LINE__\n", ComPorts, 5, "Key"), "2");
    EXPECT_EQ(Read("[ComPorts5]\r\n\r\nKey=__LINE__\r\n", ComPorts, 5, "Key"), "3");
}

TEST(IniSnapshot, ASectionWithoutASlotIsLoggedAndLeavesTheOthers) {
    StartLog();
    WriteIni("[ComPorts]\nKey=a\n[ComPorts100]\nKey=b\n[ComPorts101]\nKey=c\n[Comports7]\nKey=e\n[ComPorts07]\nKey=f\n"
             "[Sessions3]\nKey=g\n");
    CCfgReader reader(IniPath, nullptr, nullptr);
    EXPECT_EQ(reader.CreateSnapshot("test"), 1u);
    EXPECT_FALSE(reader.HasSection(ComPorts, 101));
    EXPECT_FALSE(reader.HasSection(ComPorts, -1));
    for (const char* line : {"section [ComPorts100] is defined twice", "section [ComPorts07] is defined twice",
                             "section [ComPorts101] has a number above 99 -> ignored", "unknown section [Sessions3]"}) {
        EXPECT_TRUE(Logged(line)) << line;
    }
}

TEST(IniSnapshot, TheThreeHundredAndFirstValueEndsTheParse) {
    StartLog();
    std::string text = "[ComPorts1]\n";
    for (int i = 0; i < 300; ++i) {
        text += "Key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    }
    EXPECT_EQ(Read(text + "[ComPorts2]\nKey=a\n", ComPorts, 2, "Key"), "a");
    EXPECT_FALSE(Logged("reached -> abort"));
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
}

TEST(IniSnapshot, Utf16ReadsLikeItsAnsiForm) {
    std::string text = "\xFF\xFE";
    EXPECT_EQ(Read(text, ComPorts, 1, "Last"), Absent) << "nothing but the mark";
    for (const char c : "[ComPorts1]\r\nFirst=a\r\nLast=\xE4z"s) {
        text += {c, '\0'};
    }
    EXPECT_EQ(Read(text, ComPorts, 1, "First"), "a");
    EXPECT_EQ(Read(text, ComPorts, 1, "Last"), "\xE4z");
    EXPECT_EQ(Read(text + "x", ComPorts, 1, "Last"), "\xE4z") << "half a character more";
}

TEST(IniSnapshot, ZeroBytesAndEndlessLinesHarmNothing) {
    const std::string zeros("[ComPorts5]\nKey\0=a\n\0Key=b\nOther=c\0d\n", 36), endless(5000, 'x');
    EXPECT_EQ(Read(zeros, ComPorts, 5, "Key"), Absent);
    EXPECT_EQ(Read(zeros, ComPorts, 5, "Other"), "c");
    EXPECT_EQ(Read("[ComPorts5]\nKey=" + endless + "\n", ComPorts, 5, "Key"), Absent);
    EXPECT_EQ(Read("[ComPorts5]\n" + endless + "=a\nKey=b", ComPorts, 5, "Key"), "b");
}

TEST(IniSnapshot, AValueWithoutRoomGivesTheDefaultAndIsLogged) {
    StartLog();
    const std::string fits(31, '9'), tooLong(32, '9');
    CCfgReader* reader = UseIni("[ComPorts1]\nFits=" + fits + "\nLong=" + tooLong + "\nTwice=" + tooLong +
                                "\nTwice=7\nEmpty=\nLate=7\nLate=" + tooLong + "\n");
    const auto number = [reader](const char* key) {
        LONG value = 0;
        reader->GetInt(ComPorts, 1, KeyName::Unchecked(key), 5, &value);
        return value;
    };
    number("Fits");
    EXPECT_FALSE(Logged("is too long"));
    EXPECT_EQ(number("Long"), 5);
    EXPECT_TRUE(Logged("warning: content of value Long is too long"));
    EXPECT_EQ(number("Twice"), 7);
    EXPECT_EQ(number("Late"), 5);
    EXPECT_EQ(number("Empty"), 5);
    DWORD duration = 0;
    EXPECT_EQ(reader->GetDuration(ComPorts, 1, KeyName::Unchecked("Long"), 5, &duration), 0u);
    EXPECT_EQ(duration, 5u);
    char text[4] = "zzz";
    EXPECT_EQ(reader->GetString(ComPorts, 1, KeyName::Unchecked("Empty"), "default", text, sizeof(text)), 0u);
    EXPECT_EQ(reader->GetString(ComPorts, 1, KeyName::Unchecked("None"), "default", text, sizeof(text)), 3u);
    EXPECT_STREQ(text, "def");
}

TEST(IniSnapshot, OnlyAnotherWriteTimeIsAChange) {
    CCfgReader* reader = UseIni("[Settings]\nKey=a\n");
    EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 0u);
    WriteIni("[Settings]\nKey=a\n");
    EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 1u);
    machine::TheFiles().Delete(IniPath);
    EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 0u);
    EXPECT_EQ(Get(*reader, Settings, NoSectionNumber, "Key"), Absent);
    Sleep(50);
    WriteIni("[Settings]\nKey=b\n");
    EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 1u);
    EXPECT_EQ(Get(*reader, Settings, NoSectionNumber, "Key"), "b");
    reader->DeleteSnapshot("test");
    EXPECT_EQ(Get(*reader, Settings, NoSectionNumber, "Key"), Absent);
}

TEST(IniSnapshot, WhyAFileIsNotReadIsLoggedOnceForEachChange) {
    StartLog();
    CCfgReader* reader = UseIni("[Settings]\nKey=a\n");
    const auto logs = [reader](const std::string& reason, int count) {
        reader->CreateSnapshotIfRequired("test");
        reader->CreateSnapshotIfRequired("test");
        EXPECT_EQ(logtest::CountLogged("configuration '" + std::string(IniPath) + "' " + reason), count) << reason;
    };
    for (int removal = 1; removal <= 2; ++removal) {
        machine::TheFiles().Delete(IniPath);
        logs("is missing -> no section counts", removal);
        WriteIni("[Settings]\nKey=b\n");
        EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 1u);
    }
    for (int change = 1; change <= 2; ++change) {
        Sleep(50);
        WriteIni(std::string(0x100000, ';'));
        logs("has 1 MiB or more -> no section counts", change);
    }
    WriteIni("[Settings]\nKey=b\n");
    machine::AddFault({.call = "ReadFile", .on = "*", .error = ERROR_ACCESS_DENIED});
    logs("cannot be read whole, err=5 -> no section counts", 1);
    Sleep(50);
    WriteIni("[Settings]\nKey=b\n");
    const HANDLE held = CreateFileA(IniPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const DWORD start = GetTickCount();
    logs("cannot be opened, err=32 -> no section counts", 1);
    EXPECT_EQ(GetTickCount() - start, 1000u) << "one wait, not one for each port";
    for (const DWORD pauseMs : {4999u, 1u}) {
        Sleep(pauseMs);
        reader->CreateSnapshotIfRequired("test");
        EXPECT_EQ(GetTickCount() - start, pauseMs == 1 ? 7000u : 5999u) << "again after five seconds";
    }
    CloseHandle(held);
    machine::AddFault({.call = "CreateFileA", .on = IniPath, .error = ERROR_ACCESS_DENIED, .after = 1});
    EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 0u);
    EXPECT_TRUE(Logged("cannot be opened, err=5 -> no section counts"));
    EXPECT_EQ(reader->CreateSnapshotIfRequired("test"), 1u);
    EXPECT_EQ(Get(*reader, Settings, NoSectionNumber, "Key"), "b");
}

TEST(IniSnapshot, AMissingFileIsLoggedOnlyIfItWasThere) {
    StartLog();
    for (const char* path : {IniPath, "C:\\Nowhere\\Quillmarch.ini"}) {
        CCfgReader reader(path, nullptr, nullptr);
        EXPECT_EQ(reader.CreateSnapshot("test"), 0u);
    }
    EXPECT_FALSE(Logged("-> no section counts"));
    machine::AddFault({.call = "CreateFileA", .on = IniPath, .error = ERROR_ACCESS_DENIED});
    CCfgReader* reader = UseIni("[Settings]\nKey=a\n");
    EXPECT_TRUE(Logged("cannot be opened, err=5"));
    machine::TheFiles().Delete(IniPath);
    EXPECT_EQ(reader->CreateSnapshot("test"), 0u);
    EXPECT_TRUE(Logged("is missing -> no section counts"));
}
