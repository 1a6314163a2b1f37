#include <cstring>

#include "config/CCfgReader.h"
#include "config/NameHash.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr DWORD NameBytes = 64;  // of a subkey and of a value; a longer name is skipped
constexpr DWORD DataBytes = 260; // longer data is skipped
constexpr char Blanks[] = " \t";

constexpr char NotQueried[] = "cannot be queried";
constexpr char NoSubkeys[] = "has no subkeys, and the file is not read beside it";

static ULONGLONG FileTimeWord(const FILETIME& time) {
    return static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

// The data of one value as text. data: one byte longer than what the registry may fill, since the program that wrote it
// need not have ended the string with a zero.
// Returns: false for a value to skip.
static bool ReadRegText(HKEY key, const char* subkeyName, const char* name, char (&data)[DataBytes + 1]) {
    DWORD type = REG_NONE;
    DWORD sizeBytes = DataBytes;
    const LONG error = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(data), &sizeBytes);
    if (error == ERROR_MORE_DATA) {
        WriteLog(1, "value %s in Key [%s] has more than %u bytes -> ignored", name, subkeyName, DataBytes);
    }
    if (error != ERROR_SUCCESS) {
        return false;
    }
    if (type == REG_DWORD) {
        LONG number = 0;
        if (sizeBytes < sizeof(number)) {
            return false;
        }
        memcpy(&number, data, sizeof(number));
        FormatText(data, "%i", number);
        return true;
    }
    data[sizeBytes] = 0;
    return data[0] != 0;
}

static void ReadRegValue(HKEY key, const char* subkeyName, DWORD index, CfgSection* section) {
    char name[NameBytes];
    DWORD nameLength = sizeof(name);
    if (RegEnumValueA(key, index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
        return;
    }
    char data[DataBytes + 1];
    if (!ReadRegText(key, subkeyName, name, data)) {
        return;
    }
    StrTrimA(name, Blanks);
    // The index is that of the value in the registry: a skipped one leaves a null entry, which look-ups ignore.
    AddSectionValue(section, static_cast<LONG>(index), StrDupNew(name), NameHash(name), StrDupNew(data));
    WriteLog(5, " Values[%i]: %s = %s", static_cast<LONG>(index), name, data);
}

static void ReadRegValues(HKEY configKey, const char* subkeyName, CfgSection* section) {
    OwnedKey key;
    if (RegOpenKeyExA(configKey, subkeyName, 0, KEY_READ, key.Receive()) != ERROR_SUCCESS) {
        return;
    }
    DWORD values = 0;
    if (RegQueryInfoKeyA(key.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                         nullptr, nullptr) != ERROR_SUCCESS) {
        return;
    }
    for (DWORD index = 0; index < values; ++index) {
        if (index >= static_cast<DWORD>(MaxSectionValues)) {
            WriteLog(2, "CCfgReader::CreateSnapshot max number of values(%i) in Key [%s] reached -> abort",
                     MaxSectionValues, subkeyName);
            return;
        }
        ReadRegValue(key.Get(), subkeyName, index, section);
    }
}

// Subkeys and last write time of the configuration key itself. Returns: the error of the query.
static LONG QueryConfigKey(HKEY key, DWORD* subkeys, ULONGLONG* writeTime) {
    FILETIME time = {};
    const LONG error = RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, subkeys, nullptr, nullptr, nullptr, nullptr,
                                        nullptr, nullptr, &time);
    *writeTime = FileTimeWord(time);
    return error;
}

DWORD CCfgReader::CreateRegSnapshot(const char* reason) {
    OwnedKey key;
    if (RegOpenKeyExA(hRootKey, szRegKey, 0, KEY_READ, key.Receive()) != ERROR_SUCCESS) {
        return 0;
    }
    DWORD keys = 0;
    {
        LockGuard lock(m_lock);
        WriteLog(3, "CCfgReader::CreateSnapshot(%s)...", reason);
        DeleteRegSnapshot(reason);
        if (!ReadRegSnapshot(key.Get())) {
            return 0;
        }
        keys = KeyCount;
    }
    WriteLog(3, " CCfgReader::CreateSnapshot Keys=%i", static_cast<LONG>(keys));
    return 1;
}

DWORD CCfgReader::RenewRegSnapshot(const char* reason) {
    OwnedKey key;
    const LONG openError = RegOpenKeyExA(hRootKey, szRegKey, 0, KEY_READ, key.Receive());
    if (openError != ERROR_SUCCESS) {
        WriteLog(1, "error opening reg  err=%u", static_cast<DWORD>(openError));
        return 0;
    }
    DWORD subkeys = 0;
    ULONGLONG writeTime = 0;
    if (QueryConfigKey(key.Get(), &subkeys, &writeTime) != ERROR_SUCCESS || writeTime == LastWriteTime) {
        return 0;
    }
    return CreateRegSnapshot(reason);
}

void CCfgReader::DeleteRegSnapshot(const char* reason) {
    LockGuard lock(m_lock);
    WriteLog(3, "CCfgReader::DeleteSnapshot(%s)", reason);
    for (auto& row : CfgSections) {
        for (LONG number = 0; number <= MaxSectionNumber; ++number) {
            CfgSection* section = row[number];
            for (LONG i = 0; section != nullptr && i < section->ValueCount; ++i) {
                delete[] section->Keys[i];
                delete[] section->Values[i];
            }
        }
    }
    ClearSections();
    KeyCount = 0;
}

DWORD CCfgReader::ReadRegSnapshot(HKEY configKey) {
    DWORD subkeys = 0;
    ULONGLONG writeTime = 0;
    const LONG error = QueryConfigKey(configKey, &subkeys, &writeTime);
    if (error != ERROR_SUCCESS || subkeys == 0) {
        LogUnreadable(szRegKey, error != ERROR_SUCCESS ? NotQueried : NoSubkeys, static_cast<DWORD>(error), writeTime);
        return 0;
    }
    m_loggedReason = nullptr;
    KeyCount = subkeys;
    for (DWORD index = 0; index < subkeys; ++index) {
        char name[NameBytes];
        DWORD nameLength = sizeof(name);
        if (RegEnumKeyExA(configKey, index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            continue;
        }
        CfgSection* section = AddRegSection(index, name);
        if (section != nullptr) {
            ReadRegValues(configKey, name, section);
        }
    }
    LastWriteTime = writeTime;
    return 1;
}

// Returns: the new section, or null for a subkey to skip. A subkey that repeats a section is logged and skipped with
// all its values: the first one stays as it is.
CfgSection* CCfgReader::AddRegSection(DWORD keyIndex, const char* subkeyName) {
    char baseName[NameBytes];
    CopyText(baseName, subkeyName);
    LONG number = NoSectionNumber;
    TakeNumber(baseName, &number, NoSectionNumber);
    const LONG type = FindSectionType(baseName, number);
    if (type < 0) {
        return nullptr;
    }
    if (number < 0 || number > MaxSectionNumber) {
        WriteLog(1, "section [%s] has a number above %i -> ignored", subkeyName, MaxSectionNumber - 1);
        return nullptr;
    }
    if (CfgSections[type][number] != nullptr) {
        WriteLog(1, "section [%s] is defined twice", subkeyName);
        return nullptr;
    }
    CfgSection* section = AddSection(type, number);
    WriteLog(3, " CfgSec [%s] found", subkeyName);
    WriteLog(5, "CfgSections[%i]->szKeyName = %s", static_cast<LONG>(keyIndex), subkeyName);
    return section;
}
