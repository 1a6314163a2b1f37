#include "actions/ActionEntries.h"

#include "support/BoundedText.h"
#include "support/LogFile.h"
#include "support/OsVersion.h"
#include "support/StringTools.h"

static constexpr DWORD MaxWaitMs = 86400000; // one day
static constexpr size_t WordChars = 32;

namespace {
struct ShowWord {
    const char* part; // what the word holds
    WORD showCommand;
};
} // namespace

// The first row that fits decides.
static constexpr ShowWord ShowWords[] = {
    {"min", 7},        // minimised, without activation
    {"noactivate", 4}, // shown, without activation
    {"na", 4},         {"max", SW_SHOWMAXIMIZED}, {"hid", SW_HIDE},
};

WORD ParseShowCommand(const char* word) {
    for (const ShowWord& row : ShowWords) {
        if (StrStrIA(word, row.part)) {
            return row.showCommand;
        }
    }
    return SW_SHOWNORMAL;
}

namespace {
// One entry's keys. template: ends with an underscore, in whose place the entry's digit comes.
class EntryReader {
public:
    EntryReader(CfgSectionType type, LONG number, DWORD index) : m_type(type), m_number(number), m_index(index) {}

    template<size_t K, size_t N>
    DWORD GetText(const char (&keyTemplate)[K], const char* defaultText, char (&out)[N]) const {
        char key[K];
        return g_pCfgReader->GetString(m_type, m_number, KeyOf(keyTemplate, key), defaultText, out, N);
    }
    template<size_t K>
    DWORD GetWaitMs(const char (&keyTemplate)[K]) const {
        char key[K];
        DWORD ms = 0;
        LONG number = 0;
        (void)g_pCfgReader->GetDuration(m_type, m_number, KeyOf(keyTemplate, key), /*defaultMs=*/0, &ms);
        (void)g_pCfgReader->GetInt(m_type, m_number, key, /*defaultValue=*/0, &number);
        if (number < 0) { // as a duration it would be a huge one
            return 0;
        }
        return ms > MaxWaitMs ? MaxWaitMs : ms;
    }
    template<size_t K>
    LONG GetNumber(const char (&keyTemplate)[K], LONG defaultValue) const {
        char key[K];
        LONG value = defaultValue;
        (void)g_pCfgReader->GetInt(m_type, m_number, KeyOf(keyTemplate, key), defaultValue, &value);
        return value;
    }

private:
    template<size_t K>
    const char* KeyOf(const char (&keyTemplate)[K], char (&key)[K]) const {
        CopyBytes(key, keyTemplate, K);
        SetKeyIndex(key, m_index);
        return key;
    }

    CfgSectionType m_type;
    LONG m_number;
    DWORD m_index;
};
} // namespace

static WORD ReadShowCommand(const EntryReader& entry) {
    char word[WordChars];
    if (entry.GetText("WindowStyle_", "", word) == 0 && entry.GetText("OpenStyle_", "", word) == 0) {
        return ShowNotConfigured;
    }
    return ParseShowCommand(word);
}

static void ReadMd5(const EntryReader& entry, OpenParams* params) {
    (void)entry.GetText("md5_", "", params->szMd5);
    (void)StrTrimA(params->szMd5, " \t");
    RemoveBlanks(params->szMd5);
    (void)CharLowerA(params->szMd5);
}

int GetOpenParamsByCfgSection(CfgSectionType type, LONG number, OpenParams* params, DWORD index) {
    ZeroBytes(params, sizeof(*params));
    const EntryReader entry(type, number, index);
    if (entry.GetText("open_", "", params->szOpen) == 0) {
        return 0;
    }
    (void)entry.GetText("workdir_", "", params->szWorkDir);
    params->ShowWindow = ReadShowCommand(entry);
    params->Delay = entry.GetWaitMs("delay_");
    params->AfterDelay = entry.GetWaitMs("afterdelay_");
    params->MaxWait = entry.GetWaitMs("wait_");
    params->userType = g_pCfgReader->GetUserTypeFromCfg(type, number, index);
    params->Force = entry.GetNumber("force_", g_Os.MajorVersion >= 6 ? 1 : 0);
    params->OneInstance = entry.GetNumber("oneinstance_", 0);
    ReadMd5(entry, params);
    WriteLog(3, "GetOpenParamsByCfgSection(%s%s)", SectionTypeName(type), SectionNumberSuffix(number));
    WriteLog(3, " open=%s", params->szOpen);
    WriteLog(3, " workdir=%s", params->szWorkDir);
    WriteLog(3, " openstyle=%i delay=%u afterdelay=%u maxwait=%u usertype=%s force=%u oneinstance=%u md5=%s",
             static_cast<LONG>(params->ShowWindow), params->Delay, params->AfterDelay, params->MaxWait,
             UserTypeName(params->userType), static_cast<DWORD>(params->Force), static_cast<DWORD>(params->OneInstance),
             params->szMd5);
    return 1;
}
