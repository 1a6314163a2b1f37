// The decision on one port, on records made by hand: what no machine shows at will. Restarts of real devices are
// rehearsed on whole machines.
#include "engine/AssignmentCheck.h"
#include "actions/CallBackTimer.h"
#include "inventory/names/CDosDeviceNames.h"
#include "simwin/registry/Registry.h"
#include "support/system/OsVersion.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

using namespace configtest;

namespace {

class AssignmentCheck : public testing::Test {
protected:
    AssignmentCheck() {
        StartLog();
        InitializeCriticalSection(&CS_assign);
        InitCallbackTimers();
        machine::TheRegistry().SetBinary("HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter", "ComDB",
                                         std::vector<std::uint8_t>(32));
        // Whatever a DOS name leads to can be opened: no link here is dead.
        machine::SetDeviceOpener([](const char*, DWORD, DWORD, DWORD, DWORD*) { return new machine::OpenDevice; });
        table = inventorytest::NewTable();
    }

    // A port whose registry name, DOS name and kernel name agree.
    CComPort* Port(const char* id, LONG number, const char* kernelName) {
        char name[16];
        FormatText(name, "COM%i", number);
        CComPort* port = inventorytest::Put(table, {.id = id, .regName = name, .kernelNameCom = kernelName});
        port->PortNumber = number;
        port->ArrivalTicker = GetTickCount();
        port->SameParentArrivalTicker = port->ArrivalTicker - 30000;
        CreateDosName(name, kernelName);
        return port;
    }

    static std::string Target(const char* name) {
        char target[DosTargetSize];
        return QueryDosName(name, target) ? target : "";
    }

    CComPorts* table;
};

TEST_F(AssignmentCheck, EachEndWithoutAChangeTellsWhyAndWhetherItIsThrough) {
    Port("B", 8, "\\Device\\Serial8")->DevInst = VirtualDevInst + 8;
    using Row = std::tuple<const char*, const char*, const char*, DWORD, DWORD, DWORD, const char*>;
    for (const auto& [id, regName, rules, problem, isMarked, isDone, line] :
         {Row{"", "COM4", "", 0, 0, 0, " not an actual device -> abort"},
          Row{"A", "com4", "PortName=COM7", 0, 0, 1, " does not look like a 'COM' port -> abort"},
          Row{"C", "COM4", "", 10, 0, 0, "new ComPorts="},
          Row{"C", "COM4", "", 10, 1, 0, "device has COM4 in registry but is not assigned"},
          Row{"A", "COM4", "", 0, 1, 1, "no ComPort defined in section"},
          Row{"A", "COM4", "PortName=COM8,COM4", 0, 0, 1, "ComNameArbiterAdd(4)"},
          Row{"A", "COM4", "PortName=COM8", 0, 0, 0, "TelitHack=1"}}) {
        UseIni(std::string("[Settings]\nTelitHack=1\nMaxPortNumber=0\n[ComPorts2]\nDeviceID=B\nPortName=COM4\n") +
               "[ComPorts1]\nDeviceID=A\n" + rules);
        CComPort* port = Port(id, 4, "\\Device\\Serial4");
        CopyText(port->szRegPortName, regName);
        port->Problem = problem;
        port->MarkedForRestart = isMarked;
        ClearLog();
        EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Unchanged) << line;
        EXPECT_EQ(port->PortChangeDone, isDone) << line;
        EXPECT_TRUE(Logged(line)) << line;
        EXPECT_EQ(Target("COM8"), "\\Device\\Serial8") << "the table has it: no swap with it, and no hack frees it";
        port->IsUsed = 0;
    }
}

TEST_F(AssignmentCheck, ThePortWithoutANameMayOnlyBeLate) {
    UseIni("");
    CComPort* port = Port("A", 5, "\\Device\\Serial5");
    CopyText(port->szRegPortName, "COM5 at the back");
    DefineDosDeviceA(DDD_RAW_TARGET_PATH, "COM5 at the back", "\\Device\\Serial5");
    port->szPortName[0] = port->szKernelNameCom[0] = 0;
    port->PortNumber = 0;
    EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Unchanged);
    EXPECT_TRUE(Logged(" oh, there it is COM5 at the back -> \\Device\\Serial5"));
    EXPECT_EQ(port->PortNumber, 5);
    EXPECT_STREQ(port->PortNumberText, "5");
}

TEST_F(AssignmentCheck, OfTwoNamesTheWantedOneStays) {
    UseIni("[ComPorts1]\nDeviceID=A\nPortName=COM9\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    CreateDosName("COM9", "\\Device\\Serial4");
    EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Changed);
    EXPECT_TRUE(Logged("\\Device\\Serial4 has two Win32 names: COM4, COM9 -> delete COM4"));
    EXPECT_EQ(Target("COM4"), "");
    EXPECT_EQ(Target("COM9"), "\\Device\\Serial4");
    EXPECT_STREQ(port->szRegPortName, "COM9");
    EXPECT_EQ(port->PortNumber, 9);
    EXPECT_EQ(port->PortChangeDone, 1u);
}

TEST_F(AssignmentCheck, QuickModeMovesTheDosNameAlone) {
    UseIni("[Settings]\nQuickAndDirtyMode=0\n[ComPorts1]\nDeviceID=A\nPortName=COM9\nQuickAndDirtyMode=1\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Changed);
    EXPECT_TRUE(Logged("QuickAndDirty overrule=1"));
    EXPECT_EQ(Target("COM4"), "");
    EXPECT_EQ(Target("COM9"), "\\Device\\Serial4");
    EXPECT_EQ(port->PortChangedByDdn, 1u);
    EXPECT_STREQ(port->szPortName, "COM9");
    EXPECT_STREQ(port->PortNumberText, "9");
}

TEST_F(AssignmentCheck, PortsThatCameAlongShareOneRestartLater) {
    UseIni("[ComPorts1]\nDeviceID=A\nPortName=COM65536\n");
    using Row = std::tuple<DWORD, LONG, DWORD, bool>;
    for (const auto& [age, busType, canCycle, isPutOff] : {Row{29999, BusPci, 1, true}, Row{30000, BusPci, 1, false},
                                                           Row{29999, BusUsb, 1, false}, Row{29999, BusUsb, 0, true}}) {
        CComPort* port = Port("A", 4, "\\Device\\Serial4");
        port->SameParentDevInst = 300;
        port->BusType = busType;
        port->SameParentArrivalTicker = port->ArrivalTicker - age;
        g_Os.CanCycleUsbPort = canCycle;
        EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Changed);
        if (isPutOff) {
            EXPECT_EQ(port->ChangePortTicker - GetTickCount(), 4000u);
        }
        EXPECT_EQ(KillCallbackTimer(300), isPutOff ? 1u : 0u) << age << " " << busType;
        EXPECT_STREQ(port->szRegPortName, "COM65536") << "five digits have room, and a failed restart leaves it";
        EXPECT_EQ(Target("COM4"), "\\Device\\Serial4");
        port->IsUsed = 0;
    }
}

TEST_F(AssignmentCheck, AStrayNameGoesOnlyWithTheHackAndAHeldOneNever) {
    for (const bool hack : {false, true}) {
        UseIni(std::string("[Settings]\nTelitHack=") + (hack ? "1" : "0") +
               "\n[ComPorts1]\nDeviceID=A\nPortName=COM8\nPortName1=COM9\nPortName2=COM10\n");
        CComPort* port = Port("A", 4, "\\Device\\Serial4");
        Port("B", 8, "\\Device\\Serial8");
        CreateDosName("COM9", "\\Device\\Stray");
        EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Changed);
        EXPECT_STREQ(port->szRegPortName, hack ? "COM9" : "COM10");
        EXPECT_EQ(Target("COM8"), "\\Device\\Serial8");
        EXPECT_EQ(Target("COM9"), hack ? "" : "\\Device\\Stray");
        port->IsUsed = 0;
    }
}

} // namespace
