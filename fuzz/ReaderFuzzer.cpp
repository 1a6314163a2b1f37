// The configuration reader on arbitrary bytes as its file, and all its users: all sections, typed getters, criteria.
#include "fuzz/Stage.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"

#include "config/CCfgReader.h"
#include "engine/AssignmentCheck.h"
#include "engine/SectionMatching.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

#include <cstring>

namespace fuzz {

constexpr char IniFile[] = "C:\\Program Files\\Quillmarch\\Quillmarch.INI";
constexpr DWORD RoomyBytes = 2048, TightBytes = 8;
constexpr std::size_t LogEvery = 4; // a quarter of the inputs, by their length, runs with the log on

constexpr const char* TextKeys[] = {"DeviceID", "DeviceID1",   "PortNames",           "PortName", "BusType9",
                                    "open1",    "TextRemoved", "ComNameArbiterClean", ""};
constexpr const char* NumberKeys[] = {"LogLevel", "MaxPortNumber", "Timeout", "system1", "QuickAndDirtyMode"};

static CComPort* g_port;

static void AskForTexts(CfgSectionType type, LONG number) {
    for (const char* text : TextKeys) {
        const KeyName key = KeyName::Unchecked(text);
        char roomy[RoomyBytes], tight[TightBytes];
        const DWORD length = g_pCfgReader->GetString(type, number, key, "default", roomy, sizeof(roomy));
        Require(length < sizeof(roomy) && std::strlen(roomy) == length, "the length of a value is that of its text");
        const DWORD tightLength = g_pCfgReader->GetString(type, number, key, "", tight, sizeof(tight));
        Require(tightLength < sizeof(tight) && std::strlen(tight) == tightLength, "a value stays in its room");
        Require(tightLength == 0 || std::strcmp(tight, roomy) == 0, "a value does not depend on the room for it");
    }
}

static void AskForNumbers(CfgSectionType type, LONG number) {
    for (const char* text : NumberKeys) {
        const KeyName key = KeyName::Unchecked(text);
        LONG value = 0;
        DWORD duration = 0;
        const DWORD length = g_pCfgReader->GetInt(type, number, key, -7, &value);
        Require(length != 0 || value == -7, "an absent number is the default");
        Require(g_pCfgReader->GetDuration(type, number, key, 9, &duration) == length,
                "a duration is there as a number is");
    }
    (void)g_pCfgReader->GetUserTypeFromCfg(type, number, 1);
}

static void AskSection(CfgSectionType type, LONG number) {
    AskForTexts(type, number);
    AskForNumbers(type, number);
    DWORD numbers[MaxNewPorts];
    const LONG count = GetPortNamesFromSection(type, number, numbers);
    Require(count >= 0 && count <= MaxNewPorts, "no more numbers than there is room for");
    for (LONG i = 0; i < count; ++i) {
        Require(numbers[i] >= 1 && numbers[i] <= 65536, "a wanted number is one that a port can have");
    }
    (void)TestSectionCriteria(g_port, type, number);
}

void Prepare() {
    CopyText(szIniFile, IniFile);
    LogFile_Init(/*rotate=*/0); // there is no file yet, so both outputs are off
    g_pCfgReader = new CCfgReader(IniFile, nullptr, nullptr);
    g_port = new CComPort;
    CopyText(g_port->DeviceID, "FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000");
    CopyText(g_port->FriendlyName, "USB Serial Port (COM7)");
    g_port->BusTypeName = BusTypeNames[BusUsb];
}

void TryInput(std::string_view input) {
    machine::TheFiles().Write(IniFile, input);
    g_log.LogLevel = input.size() % LogEvery == LogEvery - 1 ? 6 : 0;
    g_log.WriteDebugOutput = 1;
    const DWORD isRead = g_pCfgReader->CreateSnapshot("input");
    for (LONG type = Settings; type < SectionTypeCount; ++type) {
        const auto sectionType = static_cast<CfgSectionType>(type);
        bool hasAny = false;
        for (LONG number = 0; number <= MaxSectionNumber; ++number) {
            if (g_pCfgReader->HasSection(sectionType, number)) {
                hasAny = true;
                AskSection(sectionType, number);
            }
        }
        Require(hasAny == (g_pCfgReader->HasAnySection(sectionType) != 0), "a type has a section when it has one");
        Require(!hasAny || isRead, "what was not read has no sections");
    }
    g_pCfgReader->DeleteSnapshot("input");
    machine::CurrentProcess()->debugOutput.clear();
}

} // namespace fuzz
