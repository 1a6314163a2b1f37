#include "config/CCfgReader.h"

#include <cstring>

#include "config/Durations.h"
#include "config/NameHash.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"

CCfgReader* g_pCfgReader = nullptr;

// Numbers are read through a buffer of this size; no number that an administrator means needs more.
constexpr DWORD NumberTextBytes = 32;

static_assert(SectionNameCount == SectionTypeCount);

constexpr DWORD MajorVersionWithElevation = 6;

const char* SectionTypeName(CfgSectionType type) {
    return type >= 0 && type < SectionTypeCount ? SectionNames[type] : "";
}

static bool IsSectionSlot(CfgSectionType type, LONG number) {
    return type >= 0 && type < SectionTypeCount && number >= 0 && number <= MaxSectionNumber;
}

static DWORD BucketOf(DWORD hash) {
    return (hash ^ hash >> 8 ^ hash >> 16) % KeyBucketCount;
}

void AddSectionValue(CfgSection* section, LONG place, char* key, DWORD keyHash, char* value) {
    section->Keys[place] = key;
    section->KeyHashes[place] = keyHash;
    section->Values[place] = value;
    section->ValueCount = place + 1;
    // Appended to the chain, so that a look-up meets equal keys in the order of the file.
    const auto link = static_cast<WORD>(place + 1);
    const DWORD bucket = BucketOf(keyHash);
    if (section->BucketFirst[bucket] == 0) {
        section->BucketFirst[bucket] = link;
    } else {
        section->BucketNext[section->BucketLast[bucket] - 1] = link;
    }
    section->BucketLast[bucket] = link;
}

CCfgReader::CCfgReader(const char* iniFile, HKEY rootKey, const char* regKey) : hRootKey(rootKey) {
    InitializeCriticalSection(&m_lock);
    CopyText(szIniFile, iniFile);
    CopyText(szRegKey, regKey);
    for (LONG type = 0; type < SectionTypeCount; ++type) {
        SectionTypeHashes[type] = NameHash(SectionNames[type]);
    }
    if (rootKey == nullptr || regKey == nullptr) {
        return;
    }
    OwnedKey key;
    if (RegOpenKeyExA(rootKey, szRegKey, 0, KEY_READ, key.Receive()) == ERROR_SUCCESS) {
        UseRegistry = 1;
    }
}

CCfgReader::~CCfgReader() {
    WriteLog(3, "CCfgReader::~CCfgReader()");
    DeleteSnapshot("destructor");
    DeleteCriticalSection(&m_lock);
}

DWORD CCfgReader::CreateSnapshot(const char* reason) {
    return UseRegistry ? CreateRegSnapshot(reason) : CreateIniSnapshot(reason);
}

DWORD CCfgReader::CreateSnapshotIfRequired(const char* reason) {
    LockGuard lock(m_lock);
    return UseRegistry ? RenewRegSnapshot(reason) : RenewIniSnapshot(reason);
}

void CCfgReader::DeleteSnapshot(const char* reason) {
    if (UseRegistry) {
        DeleteRegSnapshot(reason);
    } else {
        DeleteIniSnapshot(reason);
    }
}

// Walks all values without stopping at a match, so that the last of two equal keys wins and each one without room is
// logged.
bool CCfgReader::CopyValue(const CfgSection& section, const char* key, char* out, DWORD sizeBytes, DWORD* length) {
    const DWORD hash = NameHash(key);
    bool found = false;
    WORD link = section.BucketFirst[BucketOf(hash)];
    for (; link != 0; link = section.BucketNext[link - 1]) {
        const LONG place = link - 1;
        if (section.KeyHashes[place] != hash) {
            continue;
        }
        // Keys are mostly written as they are queried, and the comparison by words costs more than everything else.
        if (strcmp(section.Keys[place], key) != 0 && lstrcmpiA(section.Keys[place], key) != 0) {
            continue;
        }
        const char* value = section.Values[place];
        *length = static_cast<DWORD>(strlen(value));
        if (*length < sizeBytes) {
            CopyBytes(out, value, size_t{*length} + 1);
            found = true;
            continue;
        }
        WriteLog(1, "warning: content of value %s is too long", key);
        out[0] = 0;
        *length = 0;
        FATAL_SOFT("CCfgReader", "CCfgReader::GetString");
    }
    return found;
}

DWORD CCfgReader::GetString(CfgSectionType type, LONG number, KeyName key, const char* defaultText, char* out,
                            DWORD sizeBytes) {
    DWORD length = 0;
    {
        LockGuard lock(m_lock);
        const CfgSection* section = IsSectionSlot(type, number) ? CfgSections[type][number] : nullptr;
        if (section != nullptr && CopyValue(*section, key.Text(), out, sizeBytes, &length)) {
            return length;
        }
    }
    return static_cast<DWORD>(CopyText(out, sizeBytes, defaultText));
}

DWORD CCfgReader::GetString(CfgSectionType type, KeyName key, const char* defaultText, char* out, DWORD sizeBytes) {
    return GetString(type, NoSectionNumber, key, defaultText, out, sizeBytes);
}

DWORD CCfgReader::GetInt(CfgSectionType type, LONG number, KeyName key, LONG defaultValue, LONG* out) {
    char text[NumberTextBytes];
    const DWORD length = GetString(type, number, key, "", text, sizeof(text));
    *out = length != 0 ? StrToIntA(text) : defaultValue;
    return length;
}

DWORD CCfgReader::GetInt(CfgSectionType type, KeyName key, LONG defaultValue, LONG* out) {
    return GetInt(type, NoSectionNumber, key, defaultValue, out);
}

DWORD CCfgReader::GetDuration(CfgSectionType type, LONG number, KeyName key, DWORD defaultMs, DWORD* out) {
    char text[NumberTextBytes];
    const DWORD length = GetString(type, number, key, "", text, sizeof(text));
    *out = length != 0 ? ParseDuration(text) : defaultMs;
    return length;
}

DWORD CCfgReader::HasSection(CfgSectionType type, LONG number) const {
    return IsSectionSlot(type, number) && CfgSections[type][number] != nullptr;
}

DWORD CCfgReader::HasAnySection(CfgSectionType type) const {
    return IsSectionSlot(type, NoSectionNumber) && CfgSections[type][LastSectionSlot] != nullptr;
}

LONG CCfgReader::FindSectionType(const char* baseName, LONG number) const {
    const DWORD hash = NameHash(baseName);
    for (LONG type = 0; type < SectionTypeCount; ++type) {
        if (SectionTypeHashes[type] == hash) {
            return type;
        }
    }
    WriteLog(1, "unknown section [%s%s]", baseName, SectionNumberSuffix(number));
    return -1;
}

UserType CCfgReader::GetUserTypeFromCfg(CfgSectionType type, LONG number, DWORD index) {
    WriteLog(3, "GetUserTypeFromCfg(%s%s, %u)", SectionTypeName(type), SectionNumberSuffix(number), index);
    const IndexedKey systemKey("system_", index);
    const IndexedKey elevatedKey("elevated_", index);
    const IndexedKey restrictedKey("restricted_", index);

    // Each key overrides the one before: a request for fewer rights wins over one for more.
    UserType userType = UserType::normal;
    LONG flag = 0;
    if (g_os.MajorVersion >= MajorVersionWithElevation) {
        GetInt(type, number, elevatedKey, 0, &flag);
        if (flag != 0) {
            userType = UserType::elev;
        }
    }
    GetInt(type, number, systemKey, 0, &flag);
    if (flag != 0) {
        userType = UserType::system;
    }
    GetInt(type, number, restrictedKey, 0, &flag);
    if (flag != 0) {
        userType = UserType::restr;
    }
    WriteLog(3, " res=%s", UserTypeName(userType));
    return userType;
}

void CCfgReader::LogUnreadable(const char* place, const char* reason, DWORD error, ULONGLONG writeTime) {
    if (m_loggedReason == reason && m_loggedError == error && m_loggedWriteTime == writeTime) {
        return;
    }
    m_loggedReason = reason;
    m_loggedError = error;
    m_loggedWriteTime = writeTime;
    if (error != 0) {
        WriteLog(1, "configuration '%s' %s, err=%u -> no section counts", place, reason, error);
    } else {
        WriteLog(1, "configuration '%s' %s -> no section counts", place, reason);
    }
}

CfgSection* CCfgReader::AddSection(LONG type, LONG number) {
    auto* section = new CfgSection; // operator new fills it with zeros
    section->Number = number;
    CfgSections[type][number] = section;
    CfgSections[type][LastSectionSlot] = section;
    ++SectionCount;
    return section;
}

void CCfgReader::ClearSections() {
    for (auto& row : CfgSections) {
        // The last slot only repeats one of the others.
        row[LastSectionSlot] = nullptr;
        for (LONG number = 0; number <= MaxSectionNumber; ++number) {
            delete row[number];
            row[number] = nullptr;
        }
    }
    SectionCount = 0;
    LastWriteTime = 0;
}
