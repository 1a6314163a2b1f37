#include "engine/SectionMatching.h"

#include "engine/WildcardMatch.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/LogFile.h"
#include "support/texts/BoundedText.h"

constexpr char PlainKeyForm = '0'; // cuts the underscore off; the forms 1 to 9 follow it
constexpr char LastKeyForm = '9';

namespace {
struct PortCriterion {
    KeyTemplate key;
    const char* (*value)(const CComPort& port);
};
} // namespace

constexpr PortCriterion Criteria[] = {
    {"BusType_", [](const CComPort& p) -> const char* { return p.BusTypeName; }},
    {"KernelName_", [](const CComPort& p) -> const char* { return p.szKernelNameCom; }},
    {"DeviceID_", [](const CComPort& p) -> const char* { return p.DeviceID; }},
    {"ParentDeviceID_", [](const CComPort& p) -> const char* { return p.ParentDeviceID; }},
    {"GrandParentDeviceID_", [](const CComPort& p) -> const char* { return p.GrandParentDeviceID; }},
    {"Class_", [](const CComPort& p) -> const char* { return p.Class; }},
    {"ClassGuid_", [](const CComPort& p) -> const char* { return p.ClassGuid; }},
    {"FriendlyName_", [](const CComPort& p) -> const char* { return p.FriendlyName; }},
    {"IRQ_", [](const CComPort& p) -> const char* { return p.IRQ; }},
    {"IoPort_", [](const CComPort& p) -> const char* { return p.IoPort; }},
    {"UsbPort_", [](const CComPort& p) -> const char* { return p.UsbPort; }},
    {"Location_", [](const CComPort& p) -> const char* { return p.Location; }},
    {"ParentLocation_", [](const CComPort& p) -> const char* { return p.ParentLocation; }},
    {"LocationPath_", [](const CComPort& p) -> const char* { return p.LocationPath; }},
    {"ParentLocationPath_", [](const CComPort& p) -> const char* { return p.ParentLocationPath; }},
    {"Address_", [](const CComPort& p) -> const char* { return p.Address; }},
    {"ParentAddress_", [](const CComPort& p) -> const char* { return p.ParentAddress; }},
};
static_assert(sizeof(Criteria) / sizeof(Criteria[0]) == CriterionCount);

namespace {
enum class CriterionResult {
    NotConfigured,
    Passed,
    Failed,
};
} // namespace

// Reads the ten forms of one key until one fits the port.
static CriterionResult TestCriterion(const CComPort& port, const PortCriterion& criterion, CfgSectionType sectionType,
                                     LONG sectionNumber) {
    const char* portValue = criterion.value(port);
    if (portValue == nullptr) {
        portValue = "";
    }
    const IndexedKey plain(criterion.key, PlainKeyForm);
    const char* plainKey = plain.Text();
    WriteLog(3, " check %s  COM-Port's %s=%s", plainKey, plainKey, portValue);

    IndexedKey key = plain;
    bool isConfigured = false;
    for (char form = PlainKeyForm; form <= LastKeyForm; ++form) {
        key.SetIndex(static_cast<DWORD>(form));
        char value[LongestPath + 1];
        if (g_pCfgReader->GetString(sectionType, sectionNumber, key, "", value, sizeof(value)) == 0) {
            continue;
        }
        isConfigured = true;
        WriteLog(3, " %s=%s", key.Text(), value);
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
    for (const PortCriterion& criterion : Criteria) {
        const CriterionResult result = TestCriterion(*port, criterion, sectionType, sectionNumber);
        isConfigured = isConfigured || result != CriterionResult::NotConfigured;
        if (result == CriterionResult::Failed) {
            fits = false;
            break;
        }
    }
    if (fits && !isConfigured) {
        // A section without criteria would move every port of the machine.
        WriteLog(3, "  no criteria is configured -> test not passed");
        fits = false;
    }
    WriteLog(3, "result for [%s%s] is %u", SectionTypeName(sectionType), SectionNumberSuffix(sectionNumber),
             fits ? 1u : 0u);
    return fits ? 1 : 0;
}
