// Files as the other rooms and the rehearsal use them: names and drives.
#include "simwin/files/Files.h"

#include "platform/win32.h"
#include "tests/harness/Harness.h"

#include <string>

using machine::TheFiles;

static DWORD OpenError(const char* name, DWORD access, DWORD disposition) {
    const HANDLE file = CreateFileA(name, access, FILE_SHARE_READ, nullptr, disposition, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    CloseHandle(file);
    return 0;
}

TEST(Files, NamesLeadToFiles) {
    using Row = std::tuple<const char*, const char*, const char*>;
    for (const auto& [name, folder, full] :
         {Row{"x", "D:\\a", "D:\\a\\x"}, Row{"\\x", "D:\\a", "D:\\x"}, Row{"d:x", "D:\\a", "D:\\a\\x"},
          Row{"c:x", "D:\\a", "C:\\x"}, Row{"\\\\?\\C:\\a", "D:", "C:\\a"}, Row{"..\\..\\..\\x. ", "D:\\a\\b", "D:\\x"},
          Row{"c:/A/.\\x", "D:", "C:\\A\\x"}}) {
        EXPECT_EQ(machine::ParsePath(name, folder).full, full);
    }
    EXPECT_EQ(machine::ParsePath("C:\\a:s", "D:").stream, "s");
    EXPECT_EQ(machine::ParsePath("\\\\srv\\share\\x", "D:").error, 53u);
    TheFiles().SetDrive('S', {.type = DRIVE_FIXED, .substitutedFor = "C:\\Tools"});
    TheFiles().SetDrive('N', {.type = DRIVE_REMOTE, .substitutedFor = ""});
    TheFiles().Write("C:\\Tools\\term.exe", "MZ");
    EXPECT_EQ(OpenError("S:\\term.exe", GENERIC_READ, OPEN_EXISTING), 0u);
    EXPECT_EQ(GetDriveTypeA("N:\\"), UINT{DRIVE_REMOTE});
    EXPECT_EQ(GetDriveTypeA("S:\\"), UINT{DRIVE_FIXED});
    EXPECT_EQ(GetDriveTypeA("Q:\\"), UINT{DRIVE_NO_ROOT_DIR});
}
