#include "engine/SectionMatching.h"

#include "engine/WildcardMatch.h"
#include "inventory/CComPorts.h"
#include "support/BoundedText.h"
#include "support/LogFile.h"

static constexpr DWORD CriterionValueBytes = 260;
static constexpr char PlainKeyForm = '0'; // cuts the underscore off; the forms 1 to 9 follow it
static constexpr char LastKeyForm = '9';

namespace {
struct Criterion {
    const char* keyTemplate;
    size_t templateSize; // with the terminator
    const char* (*value)(const CComPort& port);
};

template<size_t N>
constexpr Criterion MakeCriterion(const char (&keyTemplate)[N], const char* (*value)(const CComPort& port)) {
    return {keyTemplate, N, value};
}
} // namespace

static constexpr Criterion Criteria[] = {
    MakeCriterion("BusType_", [](const CComPort& p) -> const char* { return p.BusTypeName; }),
    MakeCriterion("KernelName_", [](const CComPort& p) -> const char* { return p.szKernelNameCom; }),
    MakeCriterion("DeviceID_", [](const CComPort& p) -> const char* { return p.DeviceID; }),
    MakeCriterion("ParentDeviceID_", [](const CComPort& p) -> const char* { return p.ParentDeviceID; }),
    MakeCriterion("GrandParentDeviceID_", [](const CComPort& p) -> const char* { return p.GrandParentDeviceID; }),
    MakeCriterion("Class_", [](const CComPort& p) -> const char* { return p.Class; }),
    MakeCriterion("ClassGuid_", [](const CComPort& p) -> const char* { return p.ClassGuid; }),
    MakeCriterion("FriendlyName_", [](const CComPort& p) -> const char* { return p.FriendlyName; }),
    MakeCriterion("IRQ_", [](const CComPort& p) -> const char* { return p.IRQ; }),
    MakeCriterion("IoPort_", [](const CComPort& p) -> const char* { return p.IoPort; }),
    MakeCriterion("UsbPort_", [](const CComPort& p) -> const char* { return p.UsbPort; }),
    MakeCriterion("Location_", [](const CComPort& p) -> const char* { return p.Location; }),
    MakeCriterion("ParentLocation_", [](const CComPort& p) -> const char* { return p.ParentLocation; }),
    MakeCriterion("LocationPath_", [](const CComPort& p) -> const char* { return p.LocationPath; }),
    MakeCriterion("ParentLocationPath_", [](const CComPort& p) -> const char* { return p.ParentLocationPath; }),
    MakeCriterion("Address_", [](const CComPort& p) -> const char* { return p.Address; }),
    MakeCriterion("ParentAddress_", [](const CComPort& p) -> const char* { return p.ParentAddress; }),
};
static_assert(sizeof(Criteria) / sizeof(Criteria[0]) == 17);

static constexpr size_t LongestTemplateSize = sizeof("GrandParentDeviceID_");

namespace {
enum class CriterionResult {
    NotConfigured,
    Passed,
    Failed,
};
} // namespace

// Reads the ten forms of one key until one fits the port.
static CriterionResult TestCriterion(const CComPort& port, const Criterion& criterion, CfgSectionType sectionType,
                                     LONG sectionNumber) {
    const char* portValue = criterion.value(port);
    if (portValue == nullptr) {
        portValue = "";
    }
    char plainKey[LongestTemplateSize];
    CopyText(plainKey, criterion.keyTemplate);
    SetKeyIndex(plainKey, criterion.templateSize, PlainKeyForm);
    WriteLog(3, " check %s  COM-Port's %s=%s", plainKey, plainKey, portValue);

    char key[LongestTemplateSize];
    CopyText(key, criterion.keyTemplate);
    bool isConfigured = false;
    for (char form = PlainKeyForm; form <= LastKeyForm; ++form) {
        SetKeyIndex(key, criterion.templateSize, static_cast<DWORD>(form));
        char value[CriterionValueBytes];
        if (g_pCfgReader->GetString(sectionType, sectionNumber, key, "", value, sizeof(value)) == 0) {
            continue;
        }
        isConfigured = true;
        WriteLog(3, " %s=%s", key, value);
        if (WildcardMatch(portValue, value)) {
            WriteLog(3, " test passed");
            return CriterionResult::Passed;
        }
    }
    if (!isConfigured) {
        WriteLog(3, "  nothing configured for %s -> test passed", plainKey);
        return CriterionResult::NotConfigured;
    }
    WriteLog(3, "  test for %s not passed -> abort", plainKey);
    return CriterionResult::Failed;
}

LONG GetFittingSectionNumber(const CComPort* port, CfgSectionType sectionType) {
    WriteLog(3, "GetFittingSectionNumber(%i, %s)   id=%s kn=%s", port->Index, SectionTypeName(sectionType),
             port->DeviceID, port->szKernelNameCom);
    if (!g_pCfgReader->HasAnySection(sectionType)) {
        WriteLog(3, " no such section");
        return 0;
    }
    for (LONG number = 1; number <= NoSectionNumber; ++number) {
        if (g_pCfgReader->HasSection(sectionType, number) && TestSectionCriteria(port, sectionType, number)) {
            return number;
        }
    }
    return 0;
}

LONG TestSectionCriteria(const CComPort* port, CfgSectionType sectionType, LONG sectionNumber) {
    WriteLog(3, "reading criterions from [%s%s]", SectionTypeName(sectionType), SectionNumberSuffix(sectionNumber));
    bool fits = true;
    bool isConfigured = false;
    for (const Criterion& criterion : Criteria) {
        const CriterionResult result = TestCriterion(*port, criterion, sectionType, sectionNumber);
        isConfigured = isConfigured || result != CriterionResult::NotConfigured;
        if (result == CriterionResult::Failed) {
            fits = false;
            break;
        }
    }
    if (fits && !isConfigured) {
        // A section that says nothing about its ports would move every port of the machine.
        WriteLog(3, "  no criteria is configured -> test not passed");
        fits = false;
    }
    WriteLog(3, "result for [%s%s] is %u", SectionTypeName(sectionType), SectionNumberSuffix(sectionNumber),
             fits ? 1u : 0u);
    return fits ? 1 : 0;
}
