// What the scans make of the table: whose name a name is, which ports are one device's, and what a removal takes along.
#include "config/CSettings.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/KnownDrivers.h"

#include "tests/unit/inventory/PortBuilder.h"

using inventorytest::NewTable;
using inventorytest::PortRow;
using inventorytest::Put;

constexpr const char* Vcp = "\\Device\\VCP0";

static bool NameExists(const char* name) {
    char target[DosTargetSize];
    return QueryDosName(name, target) != 0;
}

TEST(KnownDrivers, AKernelNameFitsByVendorServiceOrParent) {
    using Row = std::tuple<const char*, const char*, const char*, const char*, bool>;
    for (const auto& [kernelName, deviceId, service, parentService, fits] :
         {Row{"\\Device\\Serial0", "ACPI\\PNP0501\\1", "Serial", "", true},
          Row{"\\Device\\Serial0", "ACPI\\PNP0501\\1", "", "msisadrv", true},
          Row{"\\Device\\Serial0", "ACPI\\PNP0501\\1", "serial", "", false}, // exact in case
          Row{"\\Device\\serial0", "ACPI\\PNP0501\\1", "Serial", "", false},
          // By vendor, in a later row than the first hit.
          Row{"\\Device\\Serial3", "USB\\vid_6547&PID_0232\\1", "", "", true},
          // A vendor id ends with "&".
          Row{"\\Device\\VCP2", "FTDIBUS\\VID_0403+PID_6001\\0000", "Other", "", false},
          Row{"\\Device\\VCP2", "USB\\VID_0403&PID_6001\\A1", "Other", "", true},
          Row{"\\Device\\e360", "X", "", "Mbm3CBus", true},
          Row{"\\Device\\VSerial0", "X", "evserial", "", true}, // the last row
          Row{"\\Device\\VSerial0", "X", "", "", false},        // an empty cell is no empty name
          Row{"", "X", "Serial", "msisadrv", false}}) {
        EXPECT_EQ(fits, KernelNameFitsDriver(kernelName, deviceId, service, parentService))
            << kernelName << " of " << deviceId << " " << service << " " << parentService;
    }
}

TEST(PortScans, FunctionsOfOneDeviceAreKnownByTheirIds) {
    using Row = std::tuple<const char*, const char*, int>;
    for (const auto& [a, b, same] :
         {Row{"USB\\VID_2C7C&PID_0125&MI_02\\7&1", "USB\\VID_2C7C&PID_0125&MI_03\\7&1", 1},
          Row{"USB\\VID_2C7C&PID_0125&MI_02\\7&1", "USB\\vid_2C7C&PID_0125&MI_03\\7&1", 0},
          Row{"USB\\VID_2C7C&PID_0125\\7&1", "USB\\VID_2C7D&PID_0125\\7&1", 0},
          Row{"ABCDEFGHIJKLM\\1", "ABCDEFGHIJxyz\\1", 1}, // the shortest that counts
          Row{"ABCDEFGHIJKL\\1", "ABCDEFGHIJKL\\1", 0},   // one character less says nothing
          Row{"ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOP", 0}, // no instance part
          Row{"", "", 0}, Row{"USB\\VID_2C7C&PID_0125&MI_02\\7&1", "USB\\VID_2C7C", 0},
          // Alike up to the brace, unless that stands too early.
          Row{"BTHENUM\\{00001101}_LOCALMFG&0002\\7&1", "BTHENUM\\{00001101}_LOCALMFG&0055\\7&1", 1},
          Row{"BTHENUM\\{00001101}_LOCALMFG&0002\\7&1", "BTHENUM\\{00001102}_LOCALMFG&0055\\7&1", 0},
          Row{"BTH\\{0001}_LOCALMFG&0002\\7&1", "BTH\\{0001}_REMOTE&0055\\7&1", 0}}) {
        CComPort x, y;
        CopyText(x.DeviceID, a);
        CopyText(y.DeviceID, b);
        EXPECT_EQ(same, CComPorts::IsSameDevice(&x, &y)) << a << " and " << b;
    }
}

TEST(PortScans, OfTwoPortsWithOneNameTheOneWithoutTheLinkLosesIt) {
    using Row = std::tuple<const char*, PortRow, PortRow, bool, bool>;
    const PortRow plain = {.regName = "COM7", .kernelNameCom = Vcp};
    const PortRow linked = {.regName = "COM7", .kernelNameCom = Vcp, .kernelNamePath = Vcp};
    const PortRow elsewhere = {.regName = "COM7", .kernelNameCom = Vcp, .kernelNamePath = "\\Device\\X"};
    const PortRow ftdi = {.regName = "COM7", .kernelNameCom = Vcp, .service = "FTSER2K"};
    const PortRow other = {.regName = "COM7", .kernelNameCom = Vcp, .service = "Ser2pl"};
    for (const auto& [what, a, b, aLoses, bLoses] :
         {Row{"a's path leads there", linked, elsewhere, false, true},
          Row{"b's path leads there, a has none", plain, linked, true, false},
          Row{"a's driver names devices so", ftdi, other, false, true}, Row{"both fit", linked, ftdi, true, true},
          Row{"neither fits", plain, plain, true, true}, Row{"other names", plain, {.regName = "COM8"}, false, false},
          Row{"differing in case", plain, {.regName = "com7"}, false, false},
          Row{"without a name", {.kernelNameCom = Vcp}, {.kernelNameCom = Vcp}, false, false}}) {
        CComPorts* table = NewTable();
        const bool isUndecided = aLoses && bLoses; // then the kernel names stay
        CComPort* ports[] = {Put(table, a), Put(table, b)};
        ports[0]->PortNumber = ports[1]->PortNumber = 7;
        table->ScanSamePorts();
        for (const int i : {0, 1}) {
            const bool loses = i == 0 ? aLoses : bLoses;
            EXPECT_EQ(loses ? 1u : 0u, ports[i]->MarkedForRestart) << what;
            EXPECT_STREQ(loses ? "" : ports[i]->szRegPortName, ports[i]->szPortName) << what;
            EXPECT_EQ(loses ? 0 : 7, ports[i]->PortNumber) << what;
            EXPECT_STREQ(loses && !isUndecided ? "" : (i == 0 ? a : b).kernelNameCom, ports[i]->szKernelNameCom)
                << what;
        }
    }
    CComPorts* table = NewTable();
    Put(table, plain)->IsPresent = 0;
    CComPort* present = Put(table, plain);
    table->ScanSamePorts();
    EXPECT_EQ(0u, present->MarkedForRestart) << "an absent port claims nothing";
}

static void PutFunctions(CComPorts* table, int count, const char* device, DWORD sameParent) {
    for (int i = 0; i < count; ++i) {
        char id[64];
        FormatText(id, "USB\\VID_0403&PID_6011&%s&MI_%02i\\7", device, i);
        Put(table, {.id = id, .sameParent = sameParent});
    }
}

static std::vector<LONG> GroupOf(const CComPorts* table, LONG index) {
    const CComPort* port = table->Ports[index];
    return std::vector<LONG>(port->Same, port->Same + port->SameParentCount);
}

using Group = std::vector<LONG>;

TEST(PortScans, ThePortsOfOneDeviceFormAGroupWithEachItselfFirst) {
    CComPorts* table = NewTable();
    PutFunctions(table, 2, "A", 50);
    PutFunctions(table, 4, "A", 60); // the same model on another hub
    PutFunctions(table, 1, "B", 50);
    table->ScanSameParents();
    EXPECT_EQ(GroupOf(table, 0), (Group{0, 1}));
    EXPECT_EQ(GroupOf(table, 4), (Group{4, 2, 3, 5}));
    EXPECT_EQ(GroupOf(table, 6), (Group{6}));
    // A port that is just restarted stays in its group; a port that takes no part keeps what it had.
    table->Ports[2]->IsPresent = table->Ports[3]->IsPresent = 0;
    table->Ports[2]->RestartTicker = GetTickCount() - 500;
    table->Ports[3]->RestartTicker = GetTickCount() - 2000;
    table->ScanSameParents();
    EXPECT_EQ(GroupOf(table, 4), (Group{4, 2, 5}));
    EXPECT_EQ(GroupOf(table, 2), (Group{2, 4, 5}));
    EXPECT_EQ(GroupOf(table, 3).size(), 4u);
}

TEST(PortScans, AGroupEndsWithItsLastPlace) {
    CComPorts* table = NewTable();
    PutFunctions(table, MaxSame + 2, "A", 50);
    table->ScanSameParents();
    for (LONG i = 0; i < MaxSame + 2; ++i) {
        EXPECT_EQ(MaxSame, table->Ports[i]->SameParentCount) << i;
        EXPECT_EQ(i, table->Ports[i]->Same[0]);
        EXPECT_STREQ("", table->Ports[i]->szPortName) << "the field after Same of " << i;
    }
}

TEST(PortScans, ARemovedPortTakesItsOwnNameAlongAndNoOther) {
    // of COM5 at the removal, null for none
    // RemoveDosDeviceNameOnRemoval
    using Row = std::tuple<const char*, const char*, DWORD, LONG, bool, DWORD>;
    g_pSettings = new CSettings;
    for (const auto& [what, target, changedByDdn, removeNames, nameStays, changedByDdnAfter] :
         {Row{"gone", nullptr, 1, 1, false, 1}, Row{"another device has it", "\\Device\\VCP9", 1, 1, true, 1},
          Row{"zombie, left", Vcp, 0, 0, true, 0}, Row{"zombie, removed as configured", Vcp, 0, 1, false, 0},
          Row{"zombie that this service made", Vcp, 1, 0, false, 0}}) {
        SCOPED_TRACE(what);
        CComPorts* table = NewTable();
        if (target != nullptr) {
            ASSERT_EQ(1, CreateDosName("COM5", target));
        }
        g_pSettings->RemoveDosDeviceNameOnRemoval = removeNames;
        CComPort* port = Put(table, {.devInst = 99999, .path = "\\\\?\\a", .regName = "COM5", .kernelNameCom = Vcp});
        port->PortNumber = 5;
        port->PortChangedByDdn = changedByDdn;
        EXPECT_EQ(-1, table->RemovePort("\\\\?\\b"));
        EXPECT_EQ(1u, port->IsPresent);
        EXPECT_EQ(0, table->RemovePort("\\\\.\\A"));
        EXPECT_EQ(nameStays, NameExists("COM5"));
        EXPECT_EQ(changedByDdnAfter, port->PortChangedByDdn);
        EXPECT_EQ(0u, port->IsPresent);
        EXPECT_STREQ("", port->szPortName);
        EXPECT_STREQ("COM5", port->szRegPortName);
        EXPECT_EQ(5, port->PortNumber);
        EXPECT_EQ(45u, port->Problem) << "no such node";
        DeleteDosName("COM5");
    }
}

TEST(PortScans, OnlyNamesWithoutADeviceAreDeleted) {
    CComPorts* table = NewTable();
    const std::pair<const char*, DWORD> rows[] = {
        {"COM21", ERROR_FILE_NOT_FOUND}, {"COM22", ERROR_PATH_NOT_FOUND}, {"COM23", ERROR_ACCESS_DENIED}};
    for (const auto& [name, error] : rows) {
        ASSERT_EQ(1, CreateDosName(name, "\\Device\\Gone"));
        machine::TheDosNames().SetOpens(name, {.error = error});
        Put(table, {.regName = name});
    }
    Put(table, {}); // a port without a name in force
    table->DeleteNotFoundPorts();
    for (const auto& [name, error] : rows) {
        EXPECT_EQ(error == ERROR_ACCESS_DENIED, NameExists(name)) << name;
    }
}
