// The registry: values with their types and lengths, enumeration, rights, access lists, write times.
#include "tests/contract/Contract.h"

using contract::NoError;

constexpr char BaseKey[] = "Software\\QuillmarchContract";

// The key of the tests and what they put below it.
static void DeleteAll() {
    for (const char* name : {"\\Gone", "\\ComPorts12", "\\balloon", "\\Rights", "\\Refusing", "\\Below", ""}) {
        RegDeleteKeyA(HKEY_CURRENT_USER, (std::string(BaseKey) + name).c_str());
    }
}

namespace {
class RegistryContract : public testing::Test {
protected:
    void SetUp() override {
        DeleteAll();
        DWORD disposition = 0;
        ASSERT_EQ(
            RegCreateKeyExA(HKEY_CURRENT_USER, BaseKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_base, &disposition),
            0);
        ASSERT_EQ(disposition, DWORD{REG_CREATED_NEW_KEY});
    }
    void TearDown() override {
        RegCloseKey(m_base);
        DeleteAll();
    }
    LONG Set(const char* name, DWORD type, const void* data, DWORD size) {
        return RegSetValueExA(m_base, name, 0, type, static_cast<const BYTE*>(data), size);
    }
    HKEY Create(const char* name) {
        HKEY key = nullptr;
        EXPECT_EQ(RegCreateKeyExA(m_base, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
        return key;
    }
    LONG OpenError(const char* name, REGSAM access) {
        HKEY key = nullptr;
        const LONG error = RegOpenKeyExA(m_base, name, 0, access, &key);
        if (error == 0) {
            RegCloseKey(key);
        }
        return error;
    }
    HKEY m_base = nullptr;
};
} // namespace

// Sets the access list of a key by a handle that may do so. Returns: the error.
static LONG SetList(HKEY key, const char* list) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA((std::string("D:") + list).c_str(), SDDL_REVISION_1,
                                                              &descriptor, nullptr)) {
        return -1;
    }
    const LONG error = RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor);
    LocalFree(descriptor);
    return error;
}

static ULONGLONG WriteTime(HKEY key) {
    FILETIME time = {};
    EXPECT_EQ(RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, &time),
              0);
    return static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

TEST_F(RegistryContract, ValuesKeepTypeAndBytes) {
    const BYTE bytes[] = {0, 1, 0xFF};
    const DWORD number = 0x01020304;
    using Row = std::tuple<const char*, DWORD, const void*, DWORD>;
    for (const auto& [name, storedType, stored, storedSize] :
         {Row{"Text", REG_SZ, "COM7", 5}, Row{"", REG_SZ, "default", 8}, Row{"Number", REG_DWORD, &number, 4},
          Row{"Bytes", REG_BINARY, bytes, 3}, Row{"Empty", REG_BINARY, "", 0}, Row{"Multi", REG_MULTI_SZ, "a\0b\0", 5},
          Row{"Expand", REG_EXPAND_SZ, "%X%", 4}}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(Set(name, storedType, stored, storedSize), 0);
        DWORD type = 99, size = 77;
        EXPECT_EQ(RegQueryValueExA(m_base, name, nullptr, &type, nullptr, &size), 0);
        EXPECT_EQ(type, storedType);
        EXPECT_EQ(size, storedSize);
        BYTE data[16];
        size = storedSize;
        EXPECT_EQ(RegQueryValueExA(m_base, name, nullptr, &type, data, &size), 0);
        EXPECT_EQ(std::string(data, data + size), std::string(static_cast<const char*>(stored), storedSize));
        if (storedSize) {
            size = storedSize - 1;
            EXPECT_EQ(RegQueryValueExA(m_base, name, nullptr, &type, data, &size), ERROR_MORE_DATA);
            EXPECT_EQ(size, storedSize);
        }
    }
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExA(m_base, "tEXT", nullptr, nullptr, nullptr, &size), 0);
    EXPECT_EQ(size, 5u);
}

TEST_F(RegistryContract, TextsWithoutTheirZero) {
    ASSERT_EQ(Set("Cut", REG_SZ, "abcX", 3), 0);
    char data[8] = "#######";
    DWORD size = 3;
    EXPECT_EQ(RegQueryValueExA(m_base, "Cut", nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size), 0);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(data[3], '#') << "no zero where there is no room";
    size = sizeof(data);
    EXPECT_EQ(RegQueryValueExA(m_base, "Cut", nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size), 0);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(data[3], '\0');
    ASSERT_EQ(Set("Whole", REG_SZ, "abc", 3), 0); // the zero follows in memory
    EXPECT_EQ(RegQueryValueExA(m_base, "Whole", nullptr, nullptr, nullptr, &size), 0);
    EXPECT_EQ(size, 4u);
}

TEST_F(RegistryContract, WhatIsNotThere) {
    SetLastError(NoError);
    EXPECT_EQ(RegQueryValueExA(m_base, "None", nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueA(m_base, "None"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(OpenError("None", KEY_READ), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetLastError(), NoError) << "registry operations leave the last error alone";
    DWORD size = 0;
    BYTE data;
    EXPECT_EQ(RegQueryValueExA(m_base, "", nullptr, nullptr, &data, nullptr), ERROR_INVALID_PARAMETER);
    const HKEY key = Create("Gone");
    const HKEY second = Create("gONE");
    EXPECT_EQ(RegDeleteKeyA(m_base, "Gone"), 0);
    EXPECT_EQ(RegQueryValueExA(key, "x", nullptr, nullptr, nullptr, &size), ERROR_KEY_DELETED);
    EXPECT_EQ(RegCloseKey(key), 0);
    EXPECT_EQ(RegCloseKey(second), 0);
    EXPECT_EQ(RegQueryValueExA(key, "x", nullptr, nullptr, nullptr, &size), ERROR_INVALID_HANDLE);
}

TEST_F(RegistryContract, EnumeratesValues) {
    ASSERT_EQ(Set("Zeta", REG_SZ, "12345", 6), 0);
    ASSERT_EQ(Set("Alpha", REG_DWORD, "1234", 4), 0);
    std::vector<std::string> names;
    char name[16];
    BYTE data[16];
    DWORD chars = sizeof(name), size = sizeof(data), type = 0;
    for (DWORD i = 0; RegEnumValueA(m_base, i, name, &chars, nullptr, &type, data, &size) == 0; ++i) {
        names.push_back(name);
        EXPECT_EQ(chars, names.back().size());
        EXPECT_EQ(size, type == REG_SZ ? 6u : 4u);
        chars = sizeof(name);
        size = sizeof(data);
    }
    ASSERT_EQ(names.size(), 2u);
    KNOWN_DIFFERENCE("values come by name, not in order of creation", names[0] == "Zeta");
    chars = sizeof(name);
    EXPECT_EQ(RegEnumValueA(m_base, 2, name, &chars, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
    const DWORD zeta = names[0] == "Zeta" ? 0 : 1;
    chars = 5;
    size = 5;
    EXPECT_EQ(RegEnumValueA(m_base, zeta, name, &chars, nullptr, nullptr, data, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 6u);
}

TEST_F(RegistryContract, EnumeratesKeysByName) {
    RegCloseKey(Create("ComPorts12"));
    RegCloseKey(Create("balloon"));
    char name[16];
    DWORD chars = 8;
    EXPECT_EQ(RegEnumKeyExA(m_base, 0, name, &chars, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(name, "balloon");
    EXPECT_EQ(chars, 7u);
    chars = 10;
    EXPECT_EQ(RegEnumKeyExA(m_base, 1, name, &chars, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
    chars = sizeof(name);
    EXPECT_EQ(RegEnumKeyExA(m_base, 2, name, &chars, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
    DWORD keys = 0, values = 99;
    EXPECT_EQ(RegQueryInfoKeyA(m_base, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr,
                               nullptr, nullptr),
              0);
    EXPECT_EQ(keys, 2u);
    EXPECT_EQ(values, 0u);
    EXPECT_EQ(RegDeleteKeyA(HKEY_CURRENT_USER, BaseKey), ERROR_ACCESS_DENIED) << "it has subkeys";
}

TEST_F(RegistryContract, RightsOfTheHandle) {
    RegCloseKey(Create("Rights"));
    HKEY reader = nullptr, writer = nullptr;
    ASSERT_EQ(RegOpenKeyExA(m_base, "Rights", 0, KEY_READ, &reader), 0);
    ASSERT_EQ(RegOpenKeyExA(m_base, "Rights", 0, KEY_SET_VALUE, &writer), 0);
    EXPECT_EQ(RegSetValueExA(reader, "a", 0, REG_SZ, reinterpret_cast<const BYTE*>("1"), 2), ERROR_ACCESS_DENIED);
    EXPECT_EQ(RegDeleteValueA(reader, "a"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SetList(reader, "(A;;KA;;;WD)"), ERROR_ACCESS_DENIED);
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExA(writer, "a", nullptr, nullptr, nullptr, &size), ERROR_ACCESS_DENIED);
    RegCloseKey(reader);
    RegCloseKey(writer);
}

// What the registry tools do: a key that refuses is given to everybody, used, and put back.
TEST_F(RegistryContract, AccessListsAreGivenAndPutBack) {
    HKEY key = Create("Refusing");
    ASSERT_EQ(SetList(key, "P(A;;KR;;;WD)"), 0);
    EXPECT_EQ(OpenError("Refusing", KEY_SET_VALUE), ERROR_ACCESS_DENIED);
    EXPECT_EQ(OpenError("Refusing", KEY_QUERY_VALUE), 0);
    ASSERT_EQ(SetList(key, "P(D;;KA;;;WD)"), 0);
    EXPECT_EQ(OpenError("Refusing", KEY_QUERY_VALUE), ERROR_ACCESS_DENIED);
    KNOWN_DIFFERENCE("MAXIMUM_ALLOWED opens a key that refuses",
                     OpenError("Refusing", MAXIMUM_ALLOWED | KEY_READ) == ERROR_ACCESS_DENIED);
    RegCloseKey(key);

    ASSERT_EQ(RegOpenKeyExA(m_base, "Refusing", 0, WRITE_DAC | READ_CONTROL, &key), 0);
    DWORD size = 0;
    ASSERT_EQ(RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, nullptr, &size), ERROR_INSUFFICIENT_BUFFER);
    ASSERT_GT(size, 0u);
    std::vector<BYTE> former(size), after(size + 64);
    ASSERT_EQ(RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, former.data(), &size), 0);
    EXPECT_TRUE(IsValidSecurityDescriptor(former.data()));
    ASSERT_EQ(SetList(key, "(A;OICI;GA;;;WD)"), 0);
    EXPECT_EQ(OpenError("Refusing", KEY_ALL_ACCESS), 0);
    ASSERT_EQ(RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, former.data()), 0);
    EXPECT_EQ(OpenError("Refusing", KEY_QUERY_VALUE), ERROR_ACCESS_DENIED);
    size = static_cast<DWORD>(after.size());
    ASSERT_EQ(RegGetKeySecurity(key, DACL_SECURITY_INFORMATION, after.data(), &size), 0);
    after.resize(size);
    EXPECT_TRUE(after == former);
    ASSERT_EQ(SetList(key, "(A;OICI;GA;;;WD)"), 0);
    RegCloseKey(key);
}

TEST_F(RegistryContract, WriteTimesOfAKey) {
    ASSERT_EQ(Set("a", REG_SZ, "1", 2), 0);
    const HKEY below = Create("Below");
    const ULONGLONG start = WriteTime(m_base);
    Sleep(60);
    EXPECT_EQ(RegSetValueExA(below, "b", 0, REG_SZ, reinterpret_cast<const BYTE*>("1"), 2), 0);
    EXPECT_EQ(WriteTime(m_base), start) << "a value of a subkey is not the key's own";
    Sleep(60);
    ASSERT_EQ(Set("a", REG_SZ, "1", 2), 0);
    KNOWN_DIFFERENCE("setting the same value again does not move the time", WriteTime(m_base) > start);
    ASSERT_EQ(Set("a", REG_SZ, "2", 2), 0);
    EXPECT_GT(WriteTime(m_base), start);
    RegCloseKey(below);
}
