#include "actions/ActionEntries.h"

#include "support/log/LogFile.h"
#include "support/system/OsVersion.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

static_assert(sizeof(OpenParams::szOpen) == KeyRow("open_").longest + 1);
static_assert(sizeof(OpenParams::szWorkDir) == KeyRow("workdir_").longest + 1);
static_assert(sizeof(OpenParams::szMd5) == KeyRow("md5_").longest + 1);
constexpr size_t WordChars = KeyRow("WindowStyle_").longest + 1;

namespace {
struct ShowWord {
    const char* part; // what the word contains
    WORD showCommand;
};
} // namespace

// The first matching row decides.
constexpr ShowWord ShowWords[] = {
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
// One entry's keys.
class EntryReader {
public:
    EntryReader(CfgSectionType type, LONG number, DWORD index) : m_type(type), m_number(number), m_index(index) {}

    template<size_t N>
    DWORD GetText(KeyTemplate key, const char* defaultText, char (&out)[N]) const {
        return g_pCfgReader->GetString(m_type, m_number, IndexedKey(key, m_index), defaultText, out, N);
    }
    DWORD GetWaitMs(KeyTemplate keyTemplate) const {
        const IndexedKey key(keyTemplate, m_index);
        DWORD ms = 0;
        LONG number = 0;
        (void)g_pCfgReader->GetDuration(m_type, m_number, key, /*defaultMs=*/0, &ms);
        (void)g_pCfgReader->GetInt(m_type, m_number, key, /*defaultValue=*/0, &number);
        if (number < 0) { // as a duration it would be huge
            return 0;
        }
        return ms > LongestDurationMs ? LongestDurationMs : ms;
    }
    LONG GetNumber(KeyTemplate key, LONG defaultValue) const {
        LONG value = defaultValue;
        (void)g_pCfgReader->GetInt(m_type, m_number, IndexedKey(key, m_index), defaultValue, &value);
        return value;
    }

private:
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
    params->Force = entry.GetNumber("force_", g_os.MajorVersion >= 6 ? 1 : 0);
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
