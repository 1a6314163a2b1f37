// The decision on one port, on records made by hand: where each road ends, what it leaves in record, name space and
// database. Restarts of real devices are rehearsed on whole machines.
#include "engine/AssignmentCheck.h"
#include "actions/CallBackTimer.h"
#include "inventory/CDosDeviceNames.h"
#include "inventory/ComNameArbiter.h"
#include "simwin/registry/Registry.h"
#include "support/OsVersion.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

using namespace configtest;

namespace {

constexpr char Arbiter[] = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";

class AssignmentCheck : public testing::Test {
protected:
    AssignmentCheck() {
        StartLog();
        InitializeCriticalSection(&CS_main);
        InitializeCriticalSection(&CS_assign);
        InitCallbackTimers();
        machine::TheRegistry().SetBinary(Arbiter, "ComDB", std::vector<std::uint8_t>(32));
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

    static bool IsInDatabase(LONG number) {
        const machine::RegistryValue* value = machine::TheRegistry().GetValue(Arbiter, "ComDB");
        return (value->data[static_cast<size_t>(number - 1) / 8] >> (number - 1) % 8 & 1) != 0;
    }

    static std::string Target(const char* name) {
        char target[kDosTargetSize];
        return QueryDosName(name, target) ? target : "";
    }

    CComPorts* table;
};

TEST_F(AssignmentCheck, EndsWithoutAChange) {
    struct Row {
        const char* id;
        const char* regName;
        const char* section;
        const char* line;
        DWORD isDone;
    };
    for (const Row& row : {
             Row{"", "COM5", "[ComPorts1]\nKernelName=*\nPortName=COM7\n", " not an actual device -> abort", 0},
             Row{"A", "LPT1", "[ComPorts1]\nDeviceID=A\nPortName=COM7\n", " does not look like a 'COM' port -> abort",
                 1},
             Row{"A", "com5", "[ComPorts1]\nDeviceID=A\nPortName=COM7\n", " does not look like a 'COM' port -> abort",
                 1},
             Row{"A", "COM5", "[ComPorts1]\nDeviceID=B\nPortName=COM7\n",
                 "no [ComPortsNN] section for this port -> no change", 1},
             Row{"A", "COM5", "[ComPorts1]\nDeviceID=A\n", "no ComPort defined in section", 1},
             Row{"A", "COM5", "[ComPorts1]\nDeviceID=A\nPortName=COM5\n",
                 "current portnumber 5 is configured -> nothing more to do", 1},
         }) {
        machine::CurrentProcess()->debugOutput.clear();
        UseIni(row.section);
        CComPort* port = Port(row.id, 5, "\\Device\\Serial5");
        CopyText(port->szRegPortName, row.regName);
        EXPECT_EQ(CheckComPortAssignment(port->Index), 0) << row.line;
        EXPECT_TRUE(Logged(row.line)) << row.line;
        EXPECT_EQ(port->PortChangeDone, row.isDone) << row.line;
        EXPECT_EQ(Target("COM5"), "\\Device\\Serial5");
        port->IsUsed = 0;
    }
    EXPECT_TRUE(IsInDatabase(5));
}

TEST_F(AssignmentCheck, ThePortWithoutANameMayOnlyBeLate) {
    UseIni("");
    CComPort* port = Port("A", 5, "\\Device\\Serial5");
    port->szPortName[0] = 0;
    port->szKernelNameCom[0] = 0;
    port->PortNumber = 0;
    EXPECT_EQ(CheckComPortAssignment(port->Index), 0);
    EXPECT_TRUE(Logged(" oh, there it is COM5 -> \\Device\\Serial5"));
    EXPECT_EQ(port->PortNumber, 5);
    EXPECT_STREQ(port->PortNumberText, "5");
}

TEST_F(AssignmentCheck, ASecondChoiceStaysWhileTheFirstIsHeld) {
    UseIni("[ComPorts1]\nDeviceID=A\nPortNames=COM3,COM4,COM6\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    CComPort* other = Port("B", 3, "\\Device\\Serial3");
    EXPECT_EQ(CheckComPortAssignment(port->Index), 0);
    EXPECT_TRUE(Logged("-> try next port"));
    EXPECT_TRUE(Logged("current portnumber 4 is configured -> nothing more to do"));
    EXPECT_STREQ(port->szRegPortName, "COM4");
    EXPECT_EQ(other->IsPresent, 1u);
}

TEST_F(AssignmentCheck, OfTwoNamesTheWantedOneStays) {
    UseIni("[ComPorts1]\nDeviceID=A\nPortName=COM9\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    CreateDosName("COM9", "\\Device\\Serial4");
    EXPECT_EQ(CheckComPortAssignment(port->Index), 1);
    EXPECT_TRUE(Logged("\\Device\\Serial4 has two Win32 names: COM4, COM9 -> delete COM4"));
    EXPECT_EQ(Target("COM4"), "");
    EXPECT_EQ(Target("COM9"), "\\Device\\Serial4");
    EXPECT_STREQ(port->szRegPortName, "COM9");
    EXPECT_EQ(port->PortNumber, 9);
    EXPECT_TRUE(IsInDatabase(9));
}

TEST_F(AssignmentCheck, AFailedRestartLeavesTheNewNumberInTheRegistry) {
    UseIni("[ComPorts1]\nDeviceID=A\nPortName=COM65536\nPortName1=COM9\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    ComNameArbiterAdd(4);
    EXPECT_EQ(CheckComPortAssignment(port->Index), 1);
    EXPECT_TRUE(Logged("new ComPorts=COM65536, COM9"));
    EXPECT_STREQ(port->szRegPortName, "COM65536") << "five digits have room";
    EXPECT_STREQ(port->szPortName, "COM4");
    EXPECT_EQ(Target("COM4"), "\\Device\\Serial4");
    EXPECT_FALSE(IsInDatabase(4));
    EXPECT_EQ(port->PortChangeDone, 1u);
}

TEST_F(AssignmentCheck, QuickModeMovesTheDosNameAlone) {
    UseIni("[Settings]\nQuickAndDirtyMode=0\n[ComPorts1]\nDeviceID=A\nPortName=COM9\nQuickAndDirtyMode=1\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    EXPECT_EQ(CheckComPortAssignment(port->Index), 1);
    EXPECT_TRUE(Logged("QuickAndDirty overrule=1"));
    EXPECT_EQ(Target("COM4"), "");
    EXPECT_EQ(Target("COM9"), "\\Device\\Serial4");
    EXPECT_EQ(port->PortChangedByDdn, 1u);
    EXPECT_STREQ(port->szPortName, "COM9");
    EXPECT_STREQ(port->PortNumberText, "9");
}

TEST_F(AssignmentCheck, PortsThatCameAlongShareOneRestartLater) {
    struct Row {
        DWORD age;
        LONG busType;
        DWORD canCycle;
        bool isPutOff;
    };
    UseIni("[ComPorts1]\nDeviceID=A\nPortName=COM9\n");
    for (const Row& row : {Row{29999, kBusPci, 1, true}, Row{30000, kBusPci, 1, false}, Row{29999, kBusUsb, 1, false},
                           Row{29999, kBusUsb, 0, true}}) {
        CComPort* port = Port("A", 4, "\\Device\\Serial4");
        port->SameParentDevInst = 300;
        port->BusType = row.busType;
        port->ArrivalTicker = GetTickCount();
        port->SameParentArrivalTicker = port->ArrivalTicker - row.age;
        g_Os.CanCycleUsbPort = row.canCycle;
        EXPECT_EQ(CheckComPortAssignment(port->Index), 1);
        if (row.isPutOff) {
            EXPECT_EQ(port->ChangePortTicker - GetTickCount(), 4000u);
        }
        EXPECT_EQ(KillCallbackTimer(300), row.isPutOff ? 1u : 0u) << row.age << " " << row.busType;
        port->IsUsed = 0;
    }
}

TEST_F(AssignmentCheck, AStrayNameGoesOnlyWithTheHack) {
    for (const bool hack : {false, true}) {
        UseIni(std::string("[Settings]\nTelitHack=") + (hack ? "1" : "0") +
               "\n[ComPorts1]\nDeviceID=A\nPortName=COM9\nPortName1=COM10\n");
        CComPort* port = Port("A", 4, "\\Device\\Serial4");
        CreateDosName("COM9", "\\Device\\Stray");
        EXPECT_EQ(CheckComPortAssignment(port->Index), 1);
        EXPECT_STREQ(port->szRegPortName, hack ? "COM9" : "COM10");
        EXPECT_EQ(Target("COM9"), hack ? "" : "\\Device\\Stray");
        port->IsUsed = 0;
    }
}

TEST_F(AssignmentCheck, AHeldNameIsNoCaseForTheHack) {
    UseIni("[Settings]\nTelitHack=1\n[ComPorts1]\nDeviceID=A\nPortName=COM9\n");
    CComPort* port = Port("A", 4, "\\Device\\Serial4");
    Port("B", 9, "\\Device\\Serial9");
    EXPECT_EQ(CheckComPortAssignment(port->Index), 0);
    EXPECT_STREQ(port->szRegPortName, "COM4");
    EXPECT_EQ(Target("COM9"), "\\Device\\Serial9");
}

TEST_F(AssignmentCheck, TheCheckOfAllCountsChangesOnly) {
    UseIni("[ComPorts1]\nDeviceID=A\nPortName=COM9\n[ComPorts2]\nDeviceID=B\nPortName=COM6\n");
    Port("A", 4, "\\Device\\Serial4");
    CComPort* kept = Port("B", 6, "\\Device\\Serial6");
    CComPort* absent = Port("A", 7, "\\Device\\Serial7");
    absent->IsPresent = 0;
    EXPECT_EQ(CheckAllComPortAssignments(), 1);
    EXPECT_TRUE(IsInDatabase(6));
    EXPECT_EQ(kept->PortChangeDone, 1u);
    EXPECT_EQ(absent->PortChangeDone, 0u);
}

} // namespace
