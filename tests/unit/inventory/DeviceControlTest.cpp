// The swap of two ports; records that neither the catalogue's devices nor a rehearsal produce.
#include "inventory/devices/DeviceControl.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/NameClaims.h"
#include "inventory/names/RestartMarks.h"
#include "inventory/names/SwapPorts.h"
#include "inventory/ports/ProblemDevices.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/kernel/Call.h"
#include "support/system/ProcessState.h"
#include "tests/unit/Log.h"
#include "tests/unit/inventory/PortBuilder.h"

using machine::DeviceDescription;
using machine::DeviceNode;

namespace {
// What makes a record another case, by one field.
struct RecordCase {
    const char* what;
    void (*change)(CComPort*);
};
} // namespace

static void Build(const std::vector<DeviceDescription>& devices) {
    machine::DevicesDescription description;
    description.devices = devices;
    ASSERT_EQ(machine::BuildDevices(description), "");
}

static DeviceNode& Node(const std::string& id) {
    return *machine::TheDeviceTree().FindById(id);
}

// The record as the port table would hold it.
static CComPort RecordOf(const DeviceNode& node) {
    CComPort port;
    port.DevInst = node.number;
    CopyText(port.DevPath, node.interfaces.front()->path.c_str());
    CopyText(port.szRegPortName, machine::RegistryNameOf(node).c_str());
    CopyText(port.szPortName, machine::DosNameOf(node).c_str());
    CopyText(port.szRegEnumPath, node.enumPath.substr(sizeof("HKLM\\") - 1).c_str());
    port.PortNumber = static_cast<LONG>(machine::ComNumberOf(port.szPortName));
    return port;
}

TEST(SwapPorts, BothRecordsHaveTheOthersNumberInAllFields) {
    Build({inventorytest::Port("TEST\\UART\\A", "COM3"), inventorytest::Port("TEST\\UART\\B", "COM4")});
    CComPort a = RecordOf(Node("TEST\\UART\\A")), b = RecordOf(Node("TEST\\UART\\B"));
    EXPECT_EQ(SwapPortNumbers(&a, &b), AssignmentOutcome::Changed);
    EXPECT_EQ(machine::DosNameOf(Node("TEST\\UART\\A")), "COM4");
    EXPECT_EQ(a.PortNumber, 4);
    EXPECT_STREQ(a.PortNumberText, "4");
    EXPECT_EQ(b.PortNumber, 3);
    EXPECT_STREQ(b.szPortName, "COM3");
    EXPECT_STREQ(b.szRegPortName, "COM3");
    a.DevPath[0] = 0;
    EXPECT_EQ(PerformComPortPropertyChange(&a), 0) << "without a path nothing can be restarted";
    EXPECT_EQ(PerformComPortDisableEnable(&a), 0);
}

using inventorytest::Port;

static const CComPort* RecordOf(const CComPorts* table, const char* id) {
    const int index = table->FindPortIdxByDevInst(machine::TheDeviceTree().FindById(id)->number);
    return index >= 0 ? table->Ports[index] : nullptr;
}

TEST(PortSnapshot, RegistryNamesAndDosNamesComeTogetherInTheRecord) {
    constexpr char OnBoard[] = "ACPI\\PNP0501\\1", Unnamed[] = "FTDIBUS\\VID_0403+PID_6001+A1\\0000",
                   OtherValue[] = "FTDIBUS\\VID_0403+PID_6001+A2\\0000", Twice[] = "USB\\VID_12D1&PID_1003\\1";
    machine::DevicesDescription description;
    description.devices = {Port(OnBoard, "COM1"), Port(Unnamed, ""), Port(OtherValue, ""), Port(Twice, "COM11"),
                           Port("ACPI\\PNP0400\\1", "LPT1")};
    description.devices[2].portName.reset();
    description.devices[2].dosDeviceName = "COM9";
    description.devices[3].interfaces = {"comport", "modem"};
    ASSERT_EQ(machine::BuildDevices(description), "");
    ASSERT_EQ(1, CreateDosName("COM40", "\\Device\\Nobody"));
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "COMPORT", "\\Device\\Nobody"));
    CComPorts* table = inventorytest::NewTable();
    g_InitialSnapshot = 1;
    EXPECT_EQ(table->CreateSnapshot(0), 5) << "the board's, the one without a name, the modem once, COM9 and COM40";

    const CComPort* port = RecordOf(table, OnBoard);
    ASSERT_NE(nullptr, port);
    EXPECT_STREQ("COM1", port->szPortName);
    EXPECT_EQ(1u, port->RecordValid);
    EXPECT_GE(GetTickCount() - port->ArrivalTicker, 60000u);
    const CComPort* nameless = RecordOf(table, Unnamed);
    ASSERT_NE(nullptr, nameless);
    EXPECT_STREQ("COM0", nameless->szRegPortName);
    EXPECT_STREQ("", nameless->szPortName);
    EXPECT_EQ(0, nameless->PortNumber);
    EXPECT_EQ(0u, table->FindPortByComPort("COM40")->RecordValid);
    EXPECT_EQ(nullptr, table->FindPortByComPort("COMPORT"));

    // A port that runs without the value "PortName" is none at the start, and is one when it arrives.
    EXPECT_EQ(nullptr, RecordOf(table, OtherValue));
    const machine::DeviceNode* node = machine::TheDeviceTree().FindById(OtherValue);
    EXPECT_NE(-1, table->AddNewPort(node->interfaces[0]->path.c_str()));
    EXPECT_STREQ("COM9", RecordOf(table, OtherValue)->szRegPortName);
    for (const char* path : {"\\\\?", "\\\\?\\nobody"}) {
        EXPECT_EQ(-1, table->AddNewPort(path));
    }
    EXPECT_EQ(-1, table->AddNewPort(nullptr));
    char name[4];
    EXPECT_EQ(1, GetPortNameByDevInst(port->DevInst, name, sizeof(name)));
    EXPECT_STREQ("COM", name) << "cut to its room";
    EXPECT_EQ(0, GetPortNameByDevInst(99999, name, sizeof(name)));

    // A problem that was noted earlier and is gone: the device runs, and comes as new. One that has not changed stays,
    // one that was gone is left to its arrival, and what this service restarts to the end of the restart.
    CComPort* scanned = table->Ports[port->Index];
    const auto isLeft = [&](DWORD problem) {
        scanned->Problem = problem;
        table->FindRemovedProblemDevices();
        return scanned->IsPresent;
    };
    EXPECT_EQ(1u, isLeft(0));
    EXPECT_EQ(1u, isLeft(45));
    scanned->RestartTicker = GetTickCount() - 4999;
    EXPECT_EQ(1u, isLeft(10));
    scanned->RestartTicker = 0;
    SetRestartMark(szRestarting2, scanned->DevPath + sizeof("\\\\?\\") - 1);
    EXPECT_EQ(1u, isLeft(10));
    szRestarting2[0] = 0;
    EXPECT_EQ(0u, isLeft(10));
    EXPECT_EQ(0u, port->Problem);
}

// Each finds the other's name in force and its own not yet marked: without an owner neither would be moved away.
TEST(NameClaims, OfTwoPortsReadAtOneTimeOneOwnsTheLink) {
    Build({Port("TEST\\UART\\A", "COM3"), Port("TEST\\UART\\B", "COM4")});
    CComPorts* table = inventorytest::NewTable();
    for (const char* id : {"TEST\\UART\\A", "TEST\\UART\\B"}) {
        inventorytest::Put(table,
                           {.devInst = Node(id).number, .regName = "COM3", .kernelNameCom = "\\Device\\USBSER000"});
    }
    machine::AddFault({.call = "CM_Get_DevNode_Status", .on = "*", .delayMs = 20, .times = 0});
    for (CComPort* port : {table->Ports[0], table->Ports[1]}) {
        const auto mark = [](void* record) -> DWORD { return MarkCopiedName(static_cast<CComPort*>(record)), 0; };
        CloseHandle(CreateThread(nullptr, 0, mark, port, 0, nullptr));
    }
    Sleep(1000);
    EXPECT_EQ(1, table->Ports[0]->HasCopiedName + table->Ports[1]->HasCopiedName);
}

TEST(NameClaims, ASwapSparesTheLinkOfAThirdPortAndNoOther) {
    Build({Port("TEST\\UART\\A", "COM3")});
    char link[DosTargetSize];
    ASSERT_TRUE(QueryDosName("COM3", link));
    CComPorts* table = inventorytest::NewTable();
    CComPort* first = inventorytest::Put(table, {.devInst = 1, .regName = "COM3"});
    const CComPort* second = inventorytest::Put(table, {.devInst = 2, .regName = "COM4"});
    CComPort* third =
        inventorytest::Put(table, {.devInst = Node("TEST\\UART\\A").number, .regName = "COM3", .kernelNameCom = link});
    const auto isThirds = [&] { return IsNameOfThird("COM3", first, second); };
    EXPECT_TRUE(isThirds()) << "by its record";
    EXPECT_TRUE(IsLinkOfAnother(first, "COM3", link));
    constexpr RecordCase OfNobody[] = {
        {"unused", [](CComPort* port) { port->IsUsed = 0; }},
        {"absent", [](CComPort* port) { port->IsPresent = 0; }},
        {"without a device", [](CComPort* port) { port->DevInst = static_cast<DWORD>(-1); }},
        {"a copy", [](CComPort* port) { port->HasCopiedName = 1; }},
    };
    const CComPort owner = *third;
    for (const RecordCase& row : OfNobody) {
        row.change(third);
        EXPECT_FALSE(isThirds()) << row.what;
        EXPECT_FALSE(IsLinkOfAnother(first, "COM3", link)) << row.what;
        CopyText(third->szKernelNameDevPath, link);
        EXPECT_EQ(third->HasCopiedName != 0, isThirds()) << row.what << ", though its device has this kernel name";
        *third = owner;
    }
    third->DevInst = 99999;
    EXPECT_FALSE(IsLinkOfAnother(first, "COM3", link)) << "pulled out unnoticed";
    third->szPortName[0] = 0;
    EXPECT_FALSE(isThirds()) << "nobody's";
    CopyText(third->szKernelNameDevPath, link);
    EXPECT_TRUE(isThirds()) << "perhaps: its device has this kernel name";
    CopyText(first->szKernelNameCom, link);
    EXPECT_FALSE(isThirds()) << "by the first one's record";
    EXPECT_FALSE(IsNameOfThird("COM3", second, first)) << "by the second one's record";
    first->szKernelNameCom[0] = 0;
    CopyText(third->szRegPortName, "COM5");
    EXPECT_FALSE(isThirds()) << "it wants another name";
    EXPECT_FALSE(IsNameOfThird("COM9", first, second)) << "no link";
}

TEST(NameClaims, APortRunsUnderItsFormerNameWhileThatLinkIsItsOwn) {
    constexpr RecordCase NoLonger[] = {
        {"the link is another's", [](CComPort* port) { CopyText(port->szKernelNameCom, "\\Device\\Other"); }},
        {"no link", [](CComPort* port) { CopyText(port->szPortName, "COM9"), port->szKernelNameCom[0] = 0; }},
        {"pulled out unnoticed", [](CComPort* port) { port->DevInst = 99999; }},
        {"the registry name is in force", [](CComPort* port) { CopyText(port->szRegPortName, "COM3"); }},
    };
    Build({Port("TEST\\UART\\A", "COM3")});
    char link[DosTargetSize];
    ASSERT_TRUE(QueryDosName("COM3", link));
    CComPort* port = inventorytest::Put(
        inventorytest::NewTable(), {.devInst = Node("TEST\\UART\\A").number, .regName = "COM3", .kernelNameCom = link});
    CopyText(port->szRegPortName, "COM5");
    EXPECT_TRUE(RunsUnderFormerName(port));
    const CComPort former = *port;
    for (const RecordCase& row : NoLonger) {
        row.change(port);
        EXPECT_FALSE(RunsUnderFormerName(port)) << row.what;
        *port = former;
    }
}

TEST(NameClaims, ARestartIsAwaitedUntilThePortIsBackFromItOrItIsFiveSecondsOverdue) {
    CComPorts* table = inventorytest::NewTable();
    CComPort* first = inventorytest::Put(table, {.regName = "COM5", .sameParent = 7});
    CComPort* second = inventorytest::Put(table, {.regName = "COM6", .sameParent = 7});
    CComPort* other = inventorytest::Put(table, {.regName = "COM7", .sameParent = 8});
    AwaitRestart(other, GetTickCount());
    AwaitRestart(first, GetTickCount());
    AwaitRestart(second, GetTickCount() + 4000);
    Sleep(4999);
    EXPECT_TRUE(IsRestartAwaited(other));
    Sleep(1);
    EXPECT_FALSE(IsRestartAwaited(other)) << "of another upper device, so its time was not moved";
    Sleep(3999);
    EXPECT_TRUE(IsRestartAwaited(first));
    Sleep(1);
    EXPECT_FALSE(IsRestartAwaited(first));

    for (CComPort* port : {first, second, other}) {
        AwaitRestart(port, GetTickCount());
    }
    EndAwaitedRestart(first, /*isArrival=*/true);
    EXPECT_TRUE(IsRestartAwaited(first)) << "an arrival before it";
    NoteRestartOf(7);
    EndAwaitedRestart(first, /*isArrival=*/true);
    EXPECT_FALSE(IsRestartAwaited(first));
    EXPECT_TRUE(IsRestartAwaited(second)) << "not back yet";
    EndAwaitedRestart(other, /*isArrival=*/true);
    EXPECT_TRUE(IsRestartAwaited(other));
    EndAwaitedRestart(other, /*isArrival=*/false);
    EXPECT_FALSE(IsRestartAwaited(other)) << "restarted by itself";
}

// It would get another number at the next check, and a restart.
TEST(NameClaims, OnlyAPortThatRunsWithoutANameIsMarkedBeforeItsNameIsTaken) {
    constexpr RecordCase Left[] = {
        {"absent", [](CComPort* port) { port->IsPresent = 0; }},
        {"another name in force", [](CComPort* port) { CopyText(port->szPortName, "COM9"); }},
        {"marked already", [](CComPort* port) { port->MarkedForRestart = 1; }},
        {"no device", [](CComPort* port) { port->DevInst |= VirtualDevInst; }},
        {"a problem", [](CComPort* port) { port->DevInst = 99999; }},
        {"another registry name", [](CComPort* port) { CopyText(port->szRegPortName, "COM6"); }},
        {"its link is there by now", [](CComPort* port) { CopyText(port->szRegPortName, "COM3"); }},
        {"a restart to come",
         [](CComPort* port) { AwaitRestart(port, 0), port->AwaitedRestartTicker = GetTickCount(); }},
        {"a restart by this service", [](CComPort* port) { port->RestartTicker = GetTickCount(); }},
    };
    logtest::StartLog();
    Build({Port("TEST\\UART\\A", "COM3")});
    CComPorts* table = inventorytest::NewTable();
    CComPort* port = inventorytest::Put(table, {.regName = "COM5"});
    CComPort running = *port;
    running.DevInst = Node("TEST\\UART\\A").number;
    running.szPortName[0] = 0;
    CComPort asker = running;
    const auto isMarked = [&](const CComPort& record, const CComPort* forPort) {
        *port = record;
        logtest::ClearLog();
        MarkNamelessHolders(lstrcmpA(record.szRegPortName, "COM3") == 0 ? "COM3" : "COM5", forPort);
        return logtest::CountLogged("mark Ports[0] for later restart") == 1 && port->MarkedForRestart == 1;
    };
    EXPECT_TRUE(isMarked(running, &asker));
    EXPECT_FALSE(isMarked(running, port)) << "its own name";
    for (const RecordCase& row : Left) {
        CComPort record = running;
        row.change(&record);
        EXPECT_FALSE(isMarked(record, &asker)) << row.what;
    }
}

TEST(NameClaims, ARunningPortBesideItHoldsANameThatIsNotThereYet) {
    constexpr RecordCase Others[] = {
        {"unused", [](CComPort* port) { port->IsUsed = 0; }},
        {"absent", [](CComPort* port) { port->IsPresent = 0; }},
        {"no device", [](CComPort* port) { port->DevInst |= VirtualDevInst; }},
        {"a problem", [](CComPort* port) { port->DevInst = 99999; }},
        {"of another device", [](CComPort* port) { port->SameParentDevInst = 8; }},
        {"another registry name", [](CComPort* port) { CopyText(port->szRegPortName, "COM6"); }},
    };
    Build({Port("TEST\\UART\\A", "COM3")});
    CComPort* port = inventorytest::Put(inventorytest::NewTable(),
                                        {.devInst = Node("TEST\\UART\\A").number, .regName = "COM5", .sameParent = 7});
    const CComPort running = *port;
    EXPECT_EQ(FindNamelessSibling("COM5", &running), port);
    EXPECT_EQ(FindNamelessSibling("COM5", port), nullptr) << "its own name";
    for (const RecordCase& row : Others) {
        row.change(port);
        EXPECT_EQ(FindNamelessSibling("COM5", &running), nullptr) << row.what;
        *port = running;
    }
    CopyText(port->szRegPortName, "COM3");
    EXPECT_EQ(FindNamelessSibling("COM3", &running), nullptr) << "its link is there";
}

TEST(NameClaims, ALinkPassesToTheCopyOnlyIfItWasItsAllTheTime) {
    constexpr RecordCase Kept[] = {
        {"absent", [](CComPort* port) { port->IsPresent = 0; }},
        {"the link leads elsewhere", [](CComPort* port) { CopyText(port->szKernelNameCom, "\\Device\\Other"); }},
        {"the link leads nowhere",
         [](CComPort* port) {
             CopyText(port->szPortName, "COM9"), CopyText(port->szRegPortName, "COM9");
             CopyText(port->szKernelNameCom, "\\Device\\Gone");
         }},
        {"another name went", [](CComPort* port) { CopyText(port->szRegPortName, "COM4"); }},
    };
    Build({Port("TEST\\UART\\A", "COM3")});
    ASSERT_TRUE(CreateDosName("COM9", "\\Device\\Gone"));
    char link[DosTargetSize];
    ASSERT_TRUE(QueryDosName("COM3", link));
    CComPort* port = inventorytest::Put(inventorytest::NewTable(), {.regName = "COM3", .kernelNameCom = link});
    port->HasCopiedName = 1;
    const CComPort copy = *port;
    const auto isKept = [&](DWORD goneDevInst, void (*change)(CComPort*)) {
        *port = copy;
        if (change != nullptr) {
            change(port);
        }
        CComPort gone;
        gone.DevInst = goneDevInst;
        CopyText(gone.szRegPortName, port->szRegPortName);
        PassOnLink(&gone);
        return port->HasCopiedName == 1;
    };
    EXPECT_FALSE(isKept(99999, nullptr));
    EXPECT_TRUE(isKept(Node("TEST\\UART\\A").number, nullptr)) << "the one that goes runs again";
    for (const RecordCase& row : Kept) {
        EXPECT_TRUE(isKept(99999, row.change)) << row.what;
    }
}

TEST(ProblemDevices, ANewProblemWithinFiveSecondsOfOurRestartMeansNothing) {
    DeviceDescription sick = Port("TEST\\UART\\A", "COM3");
    sick.problem = 10;
    Build({sick});
    CComPorts* table = inventorytest::NewTable();
    CComPort* port = inventorytest::Put(table, {.devInst = Node("TEST\\UART\\A").number});
    for (const DWORD ageMs : {4999u, 5000u}) {
        port->RestartTicker = GetTickCount() - ageMs;
        table->FindNewProblemDevices();
        EXPECT_EQ(g_LastProblemDevInst, ageMs < 5000 ? 0u : port->DevInst);
    }
}
