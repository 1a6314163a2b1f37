// The product's registry tools on keys that deny access, where access lists are real. Whatever the result of the write,
// the key's list must be unchanged afterwards.
#include "platform/win32.h"
#include "support/registry/RegistryTools.h"

#include <gtest/gtest.h>

#include <string>

constexpr char Key[] = "Software\\QuillmarchAccess\\Inner Key";
constexpr char ParentKey[] = "Software\\QuillmarchAccess";

// Sets or reads the access list of the key: as its owner the process may always do that.
static HKEY OpenForList() {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, Key, 0, READ_CONTROL | WRITE_DAC, &key), 0);
    return key;
}

static void SetList(const char* text) {
    PSECURITY_DESCRIPTOR list = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorA(text, SDDL_REVISION_1, &list, nullptr));
    HKEY key = OpenForList();
    EXPECT_EQ(RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, list), 0);
    RegCloseKey(key);
    LocalFree(list);
}

static std::string ListText() {
    alignas(void*) char buffer[4096];
    DWORD size = sizeof(buffer);
    HKEY key = OpenForList();
    EXPECT_EQ(RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, buffer, &size), 0);
    RegCloseKey(key);
    LPSTR text = nullptr;
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorA(buffer, SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                                     &text, nullptr));
    const std::string result = text ? text : "";
    LocalFree(text);
    return result;
}

static LONG OpenError(REGSAM rights) {
    HKEY key = nullptr;
    const LONG error = RegOpenKeyExA(HKEY_LOCAL_MACHINE, Key, 0, rights, &key);
    if (error == 0) {
        RegCloseKey(key);
    }
    return error;
}

// A value as it is stored, read through a list that allows it; the list of the test comes back afterwards.
static std::string Stored(const char* name, const char* list) {
    SetList("D:(A;;KA;;;WD)");
    char data[64] = {};
    DWORD size = sizeof(data);
    const LONG error = RegGetValueA(HKEY_LOCAL_MACHINE, Key, name, RRF_RT_ANY, nullptr, data, &size);
    SetList(list);
    return error == 0 ? std::string(data, size) : "error " + std::to_string(error);
}

namespace {
// The lists that refuse: one lets everybody read, one nobody do anything.
class RegistryAccess : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, Key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
        ASSERT_EQ(RegSetValueExA(key, "Former", 0, REG_SZ, reinterpret_cast<const BYTE*>("COM7"), 5), 0);
        RegCloseKey(key);
        SetList(GetParam());
        m_list = ListText();
        ASSERT_EQ(OpenError(KEY_SET_VALUE), LONG{ERROR_ACCESS_DENIED}) << "the key does not refuse";
    }
    void TearDown() override {
        EXPECT_EQ(ListText(), m_list);
        EXPECT_EQ(OpenError(KEY_SET_VALUE), LONG{ERROR_ACCESS_DENIED});
        SetList("D:(A;;KA;;;WD)");
        RegDeleteKeyA(HKEY_LOCAL_MACHINE, Key);
        RegDeleteKeyA(HKEY_LOCAL_MACHINE, ParentKey);
    }
    std::string m_list;
};
} // namespace
INSTANTIATE_TEST_SUITE_P(Lists, RegistryAccess, testing::Values("D:(A;;KR;;;WD)", "D:P(D;;KA;;;WD)"),
                         [](const auto& list) { return list.index == 0 ? "ReadOnly" : "Closed"; });

TEST_P(RegistryAccess, WritesAndReadsAndPutsTheListBack) {
    EXPECT_EQ(RegWriteString(HKEY_LOCAL_MACHINE, Key, "PortName", "COM20"), 1);
    EXPECT_EQ(ListText(), m_list);
    EXPECT_EQ(RegWriteDword(HKEY_LOCAL_MACHINE, Key, "Number", 0x14131211), 1);
    EXPECT_EQ(ListText(), m_list);
    const BYTE bits[] = {0x81, 0x00, 0x18};
    EXPECT_EQ(RegWriteBinary(HKEY_LOCAL_MACHINE, Key, "Bits", bits, sizeof(bits)), 1);
    EXPECT_EQ(ListText(), m_list);
    EXPECT_EQ(Stored("PortName", GetParam()), std::string("COM20", 6));
    EXPECT_EQ(Stored("Number", GetParam()), "\x11\x12\x13\x14");
    EXPECT_EQ(Stored("Bits", GetParam()), std::string("\x81\0\x18", 3));

    char text[16];
    EXPECT_EQ(RegReadString(HKEY_LOCAL_MACHINE, Key, "Former", text, sizeof(text)), 1);
    EXPECT_STREQ(text, "COM7");
    RegChangeValue(HKEY_LOCAL_MACHINE, Key, "Former", "com7", "COM8");
    EXPECT_EQ(Stored("Former", GetParam()), std::string("COM8", 5));
}

// The access is given, and then the registry refuses the write itself: no value has a name of 40000 characters.
TEST_P(RegistryAccess, PutsTheListBackWhenTheWriteFails) {
    const std::string tooLong(40000, 'n');
    SetLastError(0);
    EXPECT_EQ(RegWriteString(HKEY_LOCAL_MACHINE, Key, tooLong.c_str(), "COM20"), 0);
    const DWORD error = GetLastError();
    EXPECT_NE(error, 0u);
    EXPECT_NE(error, static_cast<DWORD>(ERROR_ACCESS_DENIED)) << "the write was not tried with the access given";
    EXPECT_EQ(ListText(), m_list);
    EXPECT_EQ(RegWriteDword(HKEY_LOCAL_MACHINE, Key, tooLong.c_str(), 1), 0);
    EXPECT_EQ(ListText(), m_list);
    EXPECT_EQ(RegWriteBinary(HKEY_LOCAL_MACHINE, Key, tooLong.c_str(), "x", 1), 0);
}
