// Files: opening and its errors, sharing, streams, times, searching; settings files; modules and version information.
#include "tests/contract/Contract.h"

#include <cstdio>
#include <cstring>

using contract::NoError;
using contract::TempFile;

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

namespace {
// A file of a test: made with a text, deleted at the end.
class FilesContract : public testing::Test {
protected:
    void SetUp() override {
        m_name = TempFile("file.txt");
        m_other = TempFile("other.txt");
        Clean();
        Write(m_name, "0123456789");
    }
    void TearDown() override { Clean(); }
    void Clean() {
        for (const std::string& path : {m_name, m_other}) {
            DeleteFileA((path + ":Zone.Identifier").c_str());
            DeleteFileA(path.c_str());
        }
    }
    static HANDLE Open(const std::string& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING,
                       DWORD flags = FILE_ATTRIBUTE_NORMAL) {
        SetLastError(NoError);
        return CreateFileA(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
    }
    // The error of an open, 0 if it works.
    static DWORD OpenError(const std::string& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING,
                           DWORD flags = FILE_ATTRIBUTE_NORMAL) {
        const HANDLE file = Open(path, access, share, disposition, flags);
        if (file == INVALID_HANDLE_VALUE) {
            return GetLastError();
        }
        CloseHandle(file);
        return 0;
    }
    static void Write(const std::string& path, const std::string& text) {
        const HANDLE file = Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << GetLastError();
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
        EXPECT_EQ(written, text.size());
        CloseHandle(file);
    }
    static std::string Read(HANDLE file, DWORD bytes) {
        std::string text(bytes, '#');
        DWORD read = 99;
        EXPECT_TRUE(ReadFile(file, text.data(), bytes, &read, nullptr));
        text.resize(read);
        return text;
    }
    std::string m_name, m_other;
};
} // namespace

TEST_F(FilesContract, Opening) {
    const std::string folder = contract::TempFolder();
    EXPECT_EQ(OpenError(m_other, GENERIC_READ, ShareAll), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(OpenError(folder + "\\QuillmarchNone\\x", GENERIC_READ, ShareAll), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(OpenError(folder, GENERIC_READ, ShareAll), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(OpenError(folder, GENERIC_READ, ShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), 0u);
    EXPECT_EQ(OpenError(m_name, GENERIC_WRITE, 0, CREATE_NEW), DWORD{ERROR_FILE_EXISTS});
    EXPECT_EQ(OpenError(folder + "\\a|b", GENERIC_READ, ShareAll), DWORD{ERROR_INVALID_NAME});
    EXPECT_EQ(OpenError(folder + "\\a|b", GENERIC_WRITE, 0, CREATE_ALWAYS), DWORD{ERROR_INVALID_NAME});

    CloseHandle(Open(m_other, GENERIC_WRITE, ShareAll, OPEN_ALWAYS));
    EXPECT_EQ(GetLastError(), 0u);
    const HANDLE file = Open(m_name, GENERIC_WRITE, ShareAll, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(GetFileSize(file, nullptr), 0u);
    CloseHandle(file);
    EXPECT_EQ(GetFileAttributesA(folder.c_str()) & FILE_ATTRIBUTE_DIRECTORY, DWORD{FILE_ATTRIBUTE_DIRECTORY});
}

TEST_F(FilesContract, ReadingAndWriting) {
    HANDLE file = Open(m_name, GENERIC_READ, ShareAll);
    EXPECT_EQ(GetFileSize(file, nullptr), 10u);
    EXPECT_EQ(Read(file, 4), "0123");
    EXPECT_EQ(Read(file, 40), "456789");
    EXPECT_EQ(Read(file, 4), "") << "success with nothing at the end";
    DWORD moved = 0;
    EXPECT_ERROR(ERROR_ACCESS_DENIED, WriteFile(file, "x", 1, &moved, nullptr));
    CloseHandle(file);
    file = Open(m_name, GENERIC_WRITE, ShareAll);
    const HANDLE second = Open(m_name, GENERIC_WRITE, ShareAll);
    OVERLAPPED end = {};
    end.Offset = end.OffsetHigh = 0xFFFFFFFF;
    EXPECT_TRUE(WriteFile(file, "ab", 2, &moved, &end)) << "at the end, wherever the handle stands";
    EXPECT_EQ(moved, 2u);
    EXPECT_TRUE(WriteFile(second, "cd", 2, &moved, &end));
    EXPECT_TRUE(WriteFile(file, "ef", 2, &moved, &end));
    EXPECT_TRUE(WriteFile(second, "W", 1, &moved, nullptr)) << "after what this handle wrote last";
    CloseHandle(second);
    const HANDLE reader = Open(m_name, GENERIC_READ, ShareAll);
    EXPECT_EQ(Read(reader, 40), "0123456789abcdWf");
    CloseHandle(reader);
    CloseHandle(file);
}

TEST_F(FilesContract, Sharing) {
    using Row = std::tuple<DWORD, DWORD, DWORD, DWORD, DWORD>;
    for (const auto& [access, share, nextAccess, nextShare, error] :
         {Row{GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, 0},
          Row{GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, ShareAll, ERROR_SHARING_VIOLATION},
          Row{GENERIC_WRITE, ShareAll, GENERIC_READ, FILE_SHARE_READ, ERROR_SHARING_VIOLATION},
          Row{GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, 0},
          Row{GENERIC_READ | GENERIC_WRITE, 0, 0, 0, 0}, // no access: sharing does not matter
          Row{0, 0, GENERIC_WRITE, 0, 0}}) {
        SCOPED_TRACE(access);
        const HANDLE first = Open(m_name, access, share);
        ASSERT_NE(first, INVALID_HANDLE_VALUE);
        EXPECT_EQ(OpenError(m_name, nextAccess, nextShare), error);
        CloseHandle(first);
    }
}

TEST_F(FilesContract, RemovingAndRenamingOpenFiles) {
    HANDLE file = Open(m_name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_ERROR(ERROR_SHARING_VIOLATION, DeleteFileA(m_name.c_str()));
    EXPECT_ERROR(ERROR_SHARING_VIOLATION, MoveFileA(m_name.c_str(), m_other.c_str()));
    CloseHandle(file);
    Write(m_other, "");
    EXPECT_ERROR(ERROR_ALREADY_EXISTS, MoveFileA(m_name.c_str(), m_other.c_str()));
    EXPECT_TRUE(DeleteFileA(m_other.c_str()));
    file = Open(m_name, GENERIC_READ, ShareAll);
    EXPECT_TRUE(MoveFileA(m_name.c_str(), m_other.c_str()));
    EXPECT_EQ(Read(file, 4), "0123");
    EXPECT_TRUE(DeleteFileA(m_other.c_str()));
    KNOWN_DIFFERENCE("a deleted file can be opened until its last close",
                     OpenError(m_other, GENERIC_READ, ShareAll) == ERROR_ACCESS_DENIED);
    CloseHandle(file);
    EXPECT_EQ(OpenError(m_other, GENERIC_READ, ShareAll), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_ERROR(ERROR_FILE_NOT_FOUND, DeleteFileA(m_other.c_str()));
    EXPECT_ERROR(ERROR_ACCESS_DENIED, DeleteFileA(contract::TempFolder().c_str()));
}

TEST_F(FilesContract, Streams) {
    const std::string stream = m_name + ":Zone.Identifier";
    EXPECT_EQ(OpenError(stream, GENERIC_READ, ShareAll), DWORD{ERROR_FILE_NOT_FOUND});
    Write(stream, "[ZoneTransfer]");
    EXPECT_EQ(OpenError(stream, GENERIC_READ, ShareAll), 0u);
    const HANDLE file = Open(m_name, GENERIC_READ, ShareAll);
    EXPECT_EQ(GetFileSize(file, nullptr), 10u) << "the file itself stays as it is";
    CloseHandle(file);
    EXPECT_TRUE(DeleteFileA(stream.c_str()));
    EXPECT_ERROR(ERROR_FILE_NOT_FOUND, DeleteFileA(stream.c_str()));
    EXPECT_EQ(OpenError(m_name, GENERIC_READ, ShareAll), 0u);
}

TEST_F(FilesContract, WriteTimesAndSearch) {
    const auto time = [this] {
        FILETIME last = {};
        const HANDLE file = Open(m_name, 0, FILE_SHARE_READ | FILE_SHARE_WRITE);
        EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &last));
        CloseHandle(file);
        return static_cast<ULONGLONG>(last.dwHighDateTime) << 32 | last.dwLowDateTime;
    };
    const ULONGLONG before = time();
    EXPECT_EQ(time(), before) << "looking changes nothing";
    Sleep(60);
    Write(m_name, "0123456789");
    EXPECT_GT(time(), before) << "the same text counts as a change";

    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA((contract::TempFolder() + "\\QUILLMARCHCONTRACT_F*").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 10u);
    EXPECT_STREQ(data.cFileName, m_name.c_str() + m_name.rfind('\\') + 1);
    EXPECT_ERROR(ERROR_NO_MORE_FILES, FindNextFileA(find, &data));
    EXPECT_TRUE(FindClose(find));
}

TEST_F(FilesContract, SettingsFiles) {
    Write(m_name,
          "[Other]\r\nLogLevel=9\r\n[Settings]\r\n; LogLevel=8\r\n LogLevel = 3 \r\nQuoted=\" a b \"\r\nSingle='x'\r\n"
          "Comment=v ; no comment\r\nLogLevel=4\r\nEmpty=\r\nNoValue\r\n[Settings]\r\nLate=1\r\n[Open\r\nHex=0x10\r\n");
    const auto get = [this](const char* key, const char* absent = "(none)", DWORD size = 64) {
        char text[64];
        const DWORD length = GetPrivateProfileStringA("sETTINGS", key, absent, text, size, m_name.c_str());
        EXPECT_EQ(length, std::strlen(text)) << key;
        return std::string(text);
    };
    EXPECT_EQ(get("loglevel"), "3");
    EXPECT_EQ(get("Quoted"), " a b ");
    EXPECT_EQ(get("Single"), "x");
    EXPECT_EQ(get("Comment"), "v ; no comment");
    EXPECT_EQ(get("Empty"), "");
    EXPECT_EQ(get("NoValue"), "(none)");
    EXPECT_EQ(get("Late"), "(none)") << "the first of two sections counts";
    EXPECT_EQ(get("None", "\"d\" "), "d");
    EXPECT_EQ(get("Comment", "", 4), "v ;");
}

TEST(ModuleContract, LibrariesAndVersions) {
    EXPECT_ERROR(ERROR_MOD_NOT_FOUND, LoadLibraryA("QuillmarchNone.dll") != nullptr);
    char directory[MAX_PATH], program[MAX_PATH];
    ASSERT_GT(GetSystemDirectoryA(directory, sizeof(directory)), 3u);
    const DWORD length = GetModuleFileNameA(nullptr, program, sizeof(program));
    EXPECT_EQ(length, std::strlen(program));

    const std::string system = directory;
    const HMODULE version = LoadLibraryA((system + "\\version.dll").c_str());
    ASSERT_NE(version, nullptr);
    const auto find = [version](const char* name) { return reinterpret_cast<void*>(GetProcAddress(version, name)); };
    const auto getInfo = reinterpret_cast<BOOL(WINAPI*)(LPCSTR, DWORD, DWORD, LPVOID)>(find("GetFileVersionInfoA"));
    const auto query = reinterpret_cast<BOOL(WINAPI*)(LPCVOID, LPCSTR, LPVOID*, PUINT)>(find("VerQueryValueA"));
    ASSERT_TRUE(getInfo && query);
    std::vector<char> data(4096 + 64);
    EXPECT_ERROR(ERROR_FILE_NOT_FOUND, getInfo((system + "\\QuillmarchNone.dll").c_str(), 0, 4096, data.data()));
    ASSERT_TRUE(getInfo((system + "\\ntdll.dll").c_str(), 0, 4096, data.data()));
    void* part = nullptr;
    UINT size = 0;
    ASSERT_TRUE(query(data.data(), "\\", &part, &size));
    ASSERT_EQ(size, sizeof(VS_FIXEDFILEINFO));
    EXPECT_EQ(static_cast<const VS_FIXEDFILEINFO*>(part)->dwSignature, 0xFEEF04BDu);
    ASSERT_TRUE(query(data.data(), "\\VarFileInfo\\Translation", &part, &size));
    ASSERT_GE(size, 4u);
    const WORD* translation = static_cast<const WORD*>(part);
    char name[64];
    std::snprintf(name, sizeof(name), "\\StringFileInfo\\%04x%04x\\CompanyName", unsigned{translation[0]},
                  unsigned{translation[1]});
    ASSERT_TRUE(query(data.data(), name, &part, &size));
    EXPECT_GT(std::strlen(static_cast<const char*>(part)), 3u);
    EXPECT_FALSE(query(data.data(), "\\StringFileInfo\\None", &part, &size));
    EXPECT_TRUE(FreeLibrary(version));
}
