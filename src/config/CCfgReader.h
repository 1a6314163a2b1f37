// The one snapshot of the configuration and every query of it. The source is an INI file, or a registry key that
// exists at the start of the process; both give the same sections of text values. WinMain creates the reader and the
// first snapshot; port events renew it when the source has changed. Nothing watches the source, and a getter never
// opens it.
// Thread: any. Locks: each getter and each change of the snapshot takes the reader's own lock for that one operation;
// HasSection and HasAnySection take none. Values leave the reader as copies only.
#pragma once

#include <cstddef>

#include "config/KeyIndex.h"
#include "platform/win32.h"
#include "support/system/UserType.h"

enum CfgSectionType : LONG {
    Settings = 0,
    ComPorts = 1,
    OnArrival = 2,
    OnRemoval = 3,
    OnRemovalRequest = 4,
    OnRemovalFailed = 5,
    BalloonTips = 6,
};

constexpr LONG SectionTypeCount = 7;
constexpr LONG MaxSectionNumber = NoSectionNumber;     // the highest slot that a section can have
constexpr LONG LastSectionSlot = MaxSectionNumber + 1; // repeats the section stored last; null: the type has none
constexpr LONG SectionSlotCount = LastSectionSlot + 1;
constexpr LONG MaxSectionValues = ValuesOfASection;
constexpr DWORD KeyBucketCount = 64;

// "Settings", "ComPorts"...; the empty text for a value that is no section type.
const char* SectionTypeName(CfgSectionType type);

struct CfgSection {
    const char* szKeyName; // as written between the brackets, points into the file text; null in a registry snapshot
    LONG Number;
    LONG ValueCount; // entries in use; a registry snapshot leaves a null key and value where it skipped one
    char* Keys[MaxSectionValues];
    DWORD KeyHashes[MaxSectionValues];
    char* Values[MaxSectionValues];
    // Values whose hashes share a bucket, chained in rising order by their place plus 1; 0: none, or the end.
    WORD BucketFirst[KeyBucketCount];
    WORD BucketLast[KeyBucketCount];
    WORD BucketNext[MaxSectionValues];
};

// Enters a value at an index above all those in use. key, value: as the snapshot owns them.
void AddSectionValue(CfgSection* section, LONG place, char* key, DWORD keyHash, char* value);

class CCfgReader {
public:
    // iniFile: full path. rootKey, regKey: the key that takes precedence when it exists now; null means INI only.
    CCfgReader(const char* iniFile, HKEY rootKey, const char* regKey);
    ~CCfgReader();
    CCfgReader(const CCfgReader&) = delete;
    CCfgReader& operator=(const CCfgReader&) = delete;

    // Reads the source again. reason: for the log only.
    // Returns: 1 when a new snapshot was read, 0 when there is none now (a registry key that cannot be opened leaves
    // the old snapshot). Blocks on the file.
    DWORD CreateSnapshot(const char* reason);
    // The same when the write time of the source differs from the snapshot's; an INI source then has the log settings
    // read first. Returns: 0 also when nothing has changed.
    DWORD CreateSnapshotIfRequired(const char* reason);
    void DeleteSnapshot(const char* reason);

    // Copies the value of `key`, or `defaultText` where section or key is absent, into `out` of `sizeBytes` bytes (at
    // least 1). A key that occurs twice gives its last value. A value with no room in `out` is logged and gives the
    // default; a default with no room is cut. Key names compare without regard to case.
    // Returns: the length of the text in `out`.
    DWORD GetString(CfgSectionType type, LONG number, KeyName key, const char* defaultText, char* out, DWORD sizeBytes);
    DWORD GetString(CfgSectionType type, KeyName key, const char* defaultText, char* out, DWORD sizeBytes);

    // The value as a decimal number. A value of 32 characters or more and an empty one give the default.
    // Returns: the length of the value's text, 0 where `*out` is the default.
    DWORD GetInt(CfgSectionType type, LONG number, KeyName key, LONG defaultValue, LONG* out);
    DWORD GetInt(CfgSectionType type, KeyName key, LONG defaultValue, LONG* out);

    // The value in milliseconds as ParseDuration reads it; otherwise as GetInt.
    DWORD GetDuration(CfgSectionType type, LONG number, KeyName key, DWORD defaultMs, DWORD* out);

    // Returns: non-zero when the section is there. Takes no lock: it only asks whether a slot is null.
    DWORD HasSection(CfgSectionType type, LONG number) const;
    // Returns: non-zero when the type has any section, with whatever number. Takes no lock.
    DWORD HasAnySection(CfgSectionType type) const;

    // baseName: compared by its hash alone, so without regard to case. number: for the message only.
    // Returns: 0 to 6, or -1 after the log line that names the unknown section.
    LONG FindSectionType(const char* baseName, LONG number) const;

    // The user named by the keys system_, elevated_ and restricted_ of one entry; `normal` without any of them.
    UserType GetUserTypeFromCfg(CfgSectionType type, LONG number, DWORD index);

private:
    // IniSnapshot.cpp
    DWORD CreateIniSnapshot(const char* reason);
    DWORD RenewIniSnapshot(const char* reason) QM_REQUIRES(m_lock);
    void DeleteIniSnapshot(const char* reason);
    DWORD ReadIniSnapshot() QM_REQUIRES(m_lock);
    HANDLE OpenIniFile() QM_REQUIRES(m_lock);
    DWORD LoadIniText() QM_REQUIRES(m_lock);
    DWORD ConvertIniText(DWORD* lastLineFeed) QM_REQUIRES(m_lock);
    void ParseIniText(DWORD lastLineFeed) QM_REQUIRES(m_lock);
    CfgSection* AddIniSection(char* line, DWORD length, CfgSection* current) QM_REQUIRES(m_lock);

    // RegSnapshot.cpp
    DWORD CreateRegSnapshot(const char* reason);
    DWORD RenewRegSnapshot(const char* reason) QM_REQUIRES(m_lock);
    void DeleteRegSnapshot(const char* reason);
    DWORD ReadRegSnapshot(HKEY configKey) QM_REQUIRES(m_lock);
    CfgSection* AddRegSection(DWORD keyIndex, const char* subkeyName) QM_REQUIRES(m_lock);

    // Logs why a source with this write time (0: unknown) is not read, once for each change of the two.
    // place: the file or the key. error: of Windows, 0: none.
    void LogUnreadable(const char* place, const char* reason, DWORD error, ULONGLONG writeTime) QM_REQUIRES(m_lock);

    CfgSection* AddSection(LONG type, LONG number) QM_REQUIRES(m_lock);
    void ClearSections() QM_REQUIRES(m_lock);
    bool CopyValue(const CfgSection& section, const char* key, char* out, DWORD sizeBytes, DWORD* length)
        QM_REQUIRES(m_lock);

    // Slots are written under the lock; without it they are only compared with null.
    CfgSection* CfgSections[SectionTypeCount][SectionSlotCount] = {};
    ULONGLONG LastWriteTime QM_GUARDED_BY(m_lock) = 0; // FILETIME as one word; 0: no snapshot
    char szIniFile[260] = {};                          // set by the constructor, constant from then on
    // The whole file, lines and keys ended in place; null in a registry snapshot.
    char* pFileText QM_GUARDED_BY(m_lock) = nullptr;
    DWORD FileTextSize QM_GUARDED_BY(m_lock) = 0;   // bytes, with the four that are appended to the file's contents
    HKEY hRootKey = nullptr;                        // as szIniFile
    char szRegKey[128] = {};                        // as szIniFile
    DWORD KeyCount QM_GUARDED_BY(m_lock) = 0;       // subkeys of the configuration key
    DWORD SectionTypeHashes[SectionTypeCount] = {}; // as szIniFile
    DWORD UseRegistry = 0;                          // as szIniFile: chosen once
    DWORD SectionCount QM_GUARDED_BY(m_lock) = 0;
    // What LogUnreadable logged last; null: the source was read.
    const char* m_loggedReason QM_GUARDED_BY(m_lock) = nullptr;
    DWORD m_loggedError QM_GUARDED_BY(m_lock) = 0;
    ULONGLONG m_loggedWriteTime QM_GUARDED_BY(m_lock) = 0;
    DWORD m_wasThere QM_GUARDED_BY(m_lock) = 0;   // the file existed at some time since the start
    DWORD m_heldTicker QM_GUARDED_BY(m_lock) = 0; // when a wait for the file last failed; 0: never
    CRITICAL_SECTION m_lock;                      // may be entered again by its holder
};

extern CCfgReader* g_pCfgReader; // set before the threads start, lives until the end of WinMain
