// Files as the other rooms and the rehearsal use them, and what hangs on the version of Windows.
#include "simwin/files/Files.h"

#include "platform/win32.h"
#include "simwin/files/Resources.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "tests/harness/Harness.h"

#include <cstdarg>
#include <cstring>
#include <string>

namespace {

using machine::TheFiles;

HANDLE Open(const char* name, DWORD access, DWORD disposition) {
    return CreateFileA(name, access, FILE_SHARE_READ, nullptr, disposition, 0, nullptr);
}

DWORD OpenError(const char* name, DWORD access, DWORD disposition) {
    const HANDLE file = Open(name, access, disposition);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();
    CloseHandle(file);
    return 0;
}

ULONGLONG WriteTime(const char* name) {
    FILETIME time = {};
    const HANDLE file = Open(name, 0, OPEN_EXISTING);
    GetFileTime(file, nullptr, nullptr, &time);
    CloseHandle(file);
    return static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

TEST(Files, AnEditMovesTheTimeEvenWithTheSameTextAtOnce) {
    TheFiles().Write("C:\\Deep\\Folder\\a.ini", "x");
    const ULONGLONG first = WriteTime("c:/deep/FOLDER/.\\A.INI");
    TheFiles().Write("C:\\Deep\\Folder\\a.ini", "x");
    EXPECT_GT(WriteTime("C:\\Deep\\Folder\\a.ini"), first);
}

TEST(Files, NamesLeadToFiles) {
    using machine::ParsePath;
    EXPECT_EQ(ParsePath("x", "D:\\a").full, "D:\\a\\x");
    EXPECT_EQ(ParsePath("\\x", "D:\\a").full, "D:\\x");
    EXPECT_EQ(ParsePath("d:x", "D:\\a").full, "D:\\a\\x");
    EXPECT_EQ(ParsePath("c:x", "D:\\a").full, "C:\\x");
    EXPECT_EQ(ParsePath("..\\..\\..\\x. ", "D:\\a\\b").full, "D:\\x");
    EXPECT_EQ(ParsePath("\\\\?\\C:\\a", "D:").full, "C:\\a");
    EXPECT_EQ(ParsePath("C:\\a:s", "D:").stream, "s");
    EXPECT_EQ(ParsePath("\\\\srv\\share\\x", "D:").error, 53u);
    machine::Drive substituted;
    substituted.substitutedFor = "C:\\Tools";
    TheFiles().SetDrive('S', substituted);
    machine::Drive remote;
    remote.type = DRIVE_REMOTE;
    TheFiles().SetDrive('N', remote);
    TheFiles().Write("C:\\Tools\\term.exe", "MZ");
    EXPECT_EQ(OpenError("S:\\term.exe", GENERIC_READ, OPEN_EXISTING), 0u);
    EXPECT_EQ(GetDriveTypeA("N:\\"), UINT{DRIVE_REMOTE});
    EXPECT_EQ(GetDriveTypeA("S:\\"), UINT{DRIVE_FIXED});
    EXPECT_EQ(GetDriveTypeA("Q:\\"), UINT{DRIVE_NO_ROOT_DIR});
}

TEST(Files, WhatIsRefusedIsThereAllTheSame) {
    TheFiles().Write("C:\\Secret\\a.txt", "x");
    TheFiles().Refuse("C:\\Secret", "NT AUTHORITY\\SYSTEM");
    EXPECT_EQ(GetFileAttributesA("C:\\Secret\\a.txt"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(OpenError("C:\\Secret\\a.txt", GENERIC_READ, OPEN_EXISTING), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(OpenError("C:\\Secret\\b.txt", GENERIC_WRITE, CREATE_NEW), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(TheFiles().Read("C:\\Secret\\a.txt"), "x");
}

TEST(Files, ReadOnlyFilesStayAsTheyAre) {
    TheFiles().Write("C:\\Work\\a.txt", "x")->attributes = FILE_ATTRIBUTE_READONLY;
    EXPECT_EQ(OpenError("C:\\Work\\a.txt", GENERIC_READ, OPEN_EXISTING), 0u);
    EXPECT_EQ(OpenError("C:\\Work\\a.txt", GENERIC_WRITE, OPEN_EXISTING), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(OpenError("C:\\Work\\a.txt", GENERIC_WRITE, CREATE_ALWAYS), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_FALSE(DeleteFileA("C:\\Work\\a.txt"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_TRUE(MoveFileA("C:\\Work\\a.txt", "C:\\Work\\b.txt"));
}

TEST(Files, UsersWriteWhereUsersMay) {
    machine::Process* process = machine::CurrentProcess();
    process->rights = machine::Rights::User;
    process->user = "LAB\\anna";
    process->administrator = false;
    TheFiles().MakeFolder("C:\\Work");
    EXPECT_EQ(OpenError("C:\\Program Files\\Quillmarch\\Quillmarch.INI", GENERIC_WRITE, CREATE_NEW),
              DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(OpenError("C:\\_Quillmarch.log", GENERIC_WRITE, CREATE_NEW), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(OpenError("C:\\Program Files\\Quillmarch\\Quillmarch.exe", GENERIC_READ, OPEN_EXISTING), 0u);
    EXPECT_EQ(OpenError("C:\\Work\\a.txt", GENERIC_WRITE, CREATE_NEW), 0u);
    process->administrator = true;
    EXPECT_EQ(OpenError("C:\\_Quillmarch.log", GENERIC_WRITE, CREATE_NEW), 0u);
}

TEST(Files, AFullDiskTakesNoMore) {
    machine::Drive small;
    small.freeBytes = 4;
    TheFiles().SetDrive('D', small);
    const HANDLE file = Open("D:\\a", GENERIC_WRITE, CREATE_ALWAYS);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, "1234", 4, &written, nullptr));
    EXPECT_FALSE(WriteFile(file, "5", 1, &written, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
    CloseHandle(file);
    EXPECT_TRUE(DeleteFileA("D:\\a"));
    EXPECT_EQ(TheFiles().FindDrive('D')->freeBytes, 4u);
}

TEST(Files, StreamsGoWithTheirFile) {
    TheFiles().Write("C:\\Work\\a.exe", "MZ");
    TheFiles().Write("C:\\Work\\a.exe:Zone.Identifier", "[ZoneTransfer]");
    EXPECT_TRUE(MoveFileA("C:\\Work\\a.exe", "C:\\Work\\b.exe"));
    EXPECT_EQ(OpenError("C:\\Work\\b.exe:zone.identifier", GENERIC_READ, OPEN_EXISTING), 0u);
    WIN32_FIND_DATAA data;
    const HANDLE find = FindFirstFileA("C:\\Work\\*.exe*", &data);
    EXPECT_FALSE(FindNextFileA(find, &data)) << "streams are not listed";
    FindClose(find);
}

TEST(Files, DevicesAreOpenedByTheirRoom) {
    struct Echo : machine::OpenDevice {
        DWORD Read(void* buffer, DWORD, DWORD* moved) override {
            std::memcpy(buffer, "ok", 2);
            *moved = 2;
            return 0;
        }
        void Closed() override { ++*closed; }
        int* closed = nullptr;
    };
    static int closed = 0;
    machine::SetDeviceOpener([](const char* name, DWORD, DWORD, DWORD, DWORD* error) -> machine::OpenDevice* {
        *error = ERROR_BUSY;
        if (std::strcmp(name, "\\\\.\\COM3") != 0)
            return nullptr;
        auto* echo = new Echo;
        echo->closed = &closed;
        return echo;
    });
    EXPECT_EQ(OpenError("\\\\.\\COM4", GENERIC_READ, OPEN_EXISTING), DWORD{ERROR_BUSY});
    const HANDLE port = Open("\\\\.\\COM3", GENERIC_READ, OPEN_EXISTING);
    char text[4] = "";
    DWORD moved = 0;
    EXPECT_TRUE(ReadFile(port, text, 2, &moved, nullptr));
    EXPECT_STREQ(text, "ok");
    EXPECT_FALSE(WriteFile(port, text, 2, &moved, nullptr)) << "opened for reading";
    CloseHandle(port);
    EXPECT_EQ(closed, 1);
}

TEST(Files, FormatsAddressesTheSameInEachRun) {
    char text[64];
    const auto format = [&text](const char* form, ...) {
        va_list arguments;
        va_start(arguments, form);
        wvsprintfA(text, form, arguments);
        va_end(arguments);
    };
    void* block = HeapAlloc(GetProcessHeap(), 0, 16);
    format("%p", block);
    EXPECT_EQ(std::string(text).substr(0, 8), "00000000") << "a place in the simulated heap, not the host's";
    HeapFree(GetProcessHeap(), 0, block);
    format("%p", INVALID_HANDLE_VALUE);
    EXPECT_STREQ(text, "FFFFFFFFFFFFFFFF");
}

TEST(Files, SettingsCanBeOverlaid) {
    TheFiles().Write("C:\\a.ini", "[Settings]\r\nLogLevel=2\r\n");
    machine::SetProfileOverride([](const std::string& file, std::string_view, std::string_view key) {
        return file == "C:\\a.ini" && key == "LogLevel" ? std::optional<std::string>("6") : std::nullopt;
    });
    char text[8];
    EXPECT_EQ(GetPrivateProfileStringA("Settings", "LogLevel", "", text, sizeof(text), "C:\\a.ini"), 1u);
    EXPECT_STREQ(text, "6");
    EXPECT_EQ(TheFiles().Read("C:\\a.ini"), "[Settings]\r\nLogLevel=2\r\n");
}

TEST(Files, ResourcesOfTheProgram) {
    const auto& all = machine::ProgramResources();
    if (all.empty())
        GTEST_SKIP() << "no compiled resources given";
    const HRSRC sample = FindResourceA(nullptr, MAKEINTRESOURCEA(500), MAKEINTRESOURCEA(400));
    ASSERT_TRUE(sample);
    EXPECT_GT(SizeofResource(nullptr, sample), 100u);
    EXPECT_TRUE(LockResource(LoadResource(nullptr, sample)));
    EXPECT_FALSE(FindResourceA(nullptr, MAKEINTRESOURCEA(499), MAKEINTRESOURCEA(400)));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_RESOURCE_NAME_NOT_FOUND});
    char data[4096], name[] = "\\StringFileInfo\\040904e4\\CompanyName";
    void* part = nullptr;
    UINT size = 0;
    ASSERT_TRUE(GetFileVersionInfoA("C:\\Program Files\\Quillmarch\\Quillmarch.exe", 0, sizeof(data), data));
    ASSERT_TRUE(VerQueryValueA(data, name, &part, &size));
    EXPECT_STREQ(static_cast<const char*>(part), "Tarn Holve");
    EXPECT_EQ(size, 11u);
}

} // namespace
