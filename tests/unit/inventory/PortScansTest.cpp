#include "config/CSettings.h"
#include "inventory/CComPorts.h"
#include "inventory/CDosDeviceNames.h"
#include "inventory/KnownDrivers.h"
#include "simwin/devices/DosNames.h"

#include "tests/harness/Harness.h"
#include "tests/unit/inventory/PortBuilder.h"

namespace {

using inventorytest::NewTable;
using inventorytest::PortRow;
using inventorytest::Put;

bool NameExists(const char* name) {
    char target[kDosTargetSize];
    return QueryDosName(name, target) != 0;
}

struct DriverRow {
    const char *kernelName, *deviceId, *service, *parentService;
    bool fits;
};

constexpr DriverRow Drivers[] = {
    {"\\Device\\Serial0", "ACPI\\PNP0501\\1", "Serial", "", true},
    {"\\Device\\Serial0", "ACPI\\PNP0501\\1", "", "msisadrv", true},
    {"\\Device\\Serial0", "ACPI\\PNP0501\\1", "serial", "", false}, // exact in case
    {"\\Device\\serial0", "ACPI\\PNP0501\\1", "Serial", "", false},
    {"\\Device\\Serial3", "USB\\vid_6547&PID_0232\\1", "", "", true}, // by vendor, in a later row than the first hit
    {"\\Device\\VCP2", "FTDIBUS\\VID_0403+PID_6001\\0000", "FTSER2K", "", true},
    {"\\Device\\VCP2", "FTDIBUS\\VID_0403+PID_6001\\0000", "Other", "", false}, // a vendor id ends with "&"
    {"\\Device\\VCP2", "USB\\VID_0403&PID_6001\\A1", "Other", "", true},
    {"\\Device\\QCUSB_COM4", "USB\\VID_1199&PID_68A2\\1", "cmnxusbser", "", true},
    {"\\Device\\e360", "X", "", "Mbm3CBus", true},
    {"\\Device\\Silabser0", "X", "silabser", "", true},
    {"\\Device\\VSerial0", "X", "evserial", "", true}, // the last row
    {"\\Device\\VSerial0", "X", "", "", false},        // an empty cell is no empty name
    {"", "X", "Serial", "msisadrv", false},
};

TEST(KnownDrivers, AKernelNameFitsByVendorServiceOrParent) {
    for (const DriverRow& row : Drivers) {
        EXPECT_EQ(row.fits, KernelNameFitsDriver(row.kernelName, row.deviceId, row.service, row.parentService))
            << row.kernelName << " of " << row.deviceId << " " << row.service << " " << row.parentService;
    }
}

struct SameDeviceRow {
    const char *x, *y;
    int same;
};

constexpr SameDeviceRow SameDevices[] = {
    {"FTDIBUS\\VID_0403+PID_6011+A1&1\\0000", "FTDIBUS\\VID_0403+PID_6011+A1&2\\0000", 1},
    {"USB\\VID_2C7C&PID_0125&MI_02\\7&1", "USB\\VID_2C7C&PID_0125&MI_03\\7&1", 1},
    {"USB\\VID_2C7C&PID_0125&MI_02\\7&1", "USB\\vid_2C7C&PID_0125&MI_03\\7&1", 0},
    {"USB\\VID_2C7C&PID_0125\\7&1", "USB\\VID_2C7D&PID_0125\\7&1", 0},
    {"ABCDEFGHIJKLM\\1", "ABCDEFGHIJxyz\\1", 1}, // the shortest that counts
    {"ABCDEFGHIJKL\\1", "ABCDEFGHIJKL\\1", 0},   // one character less says nothing
    {"ABCDEFGHIJKLMNOP", "ABCDEFGHIJKLMNOP", 0}, // no instance part
    {"", "", 0},
    {"USB\\VID_2C7C&PID_0125&MI_02\\7&1", "USB\\VID_2C7C", 0},
    {"BTHENUM\\{00001101}_LOCALMFG&0002\\7&1", "BTHENUM\\{00001101}_LOCALMFG&0055\\7&1", 1}, // alike up to the brace
    {"BTHENUM\\{00001101}_LOCALMFG&0002\\7&1", "BTHENUM\\{00001102}_LOCALMFG&0055\\7&1", 0},
    {"BTH\\{0001}_LOCALMFG&0002\\7&1", "BTH\\{0001}_REMOTE&0055\\7&1", 0}, // the brace stands too early
};

TEST(PortScans, FunctionsOfOneDeviceAreToldByTheirIds) {
    for (const SameDeviceRow& row : SameDevices) {
        CComPort x;
        CComPort y;
        CopyText(x.DeviceID, row.x);
        CopyText(y.DeviceID, row.y);
        EXPECT_EQ(row.same, CComPorts::IsSameDevice(&x, &y)) << row.x << " and " << row.y;
    }
}

struct ConflictRow {
    const char* what;
    PortRow a, b;
    bool aLoses, bLoses;
};

constexpr const char* Vcp = "\\Device\\VCP0";

const ConflictRow Conflicts[] = {
    {"a's path leads there",
     {.regName = "COM7", .kernelNameCom = Vcp, .kernelNamePath = Vcp},
     {.regName = "COM7", .kernelNameCom = Vcp, .kernelNamePath = "\\Device\\X"},
     false,
     true},
    {"b's path leads there, a has none",
     {.regName = "COM7", .kernelNameCom = Vcp},
     {.regName = "COM7", .kernelNameCom = Vcp, .kernelNamePath = Vcp},
     true,
     false},
    {"a's driver names devices so",
     {.regName = "COM7", .kernelNameCom = Vcp, .service = "FTSER2K"},
     {.regName = "COM7", .kernelNameCom = Vcp, .service = "Ser2pl"},
     false,
     true},
    {"both fit",
     {.regName = "COM7", .kernelNameCom = Vcp, .kernelNamePath = Vcp},
     {.regName = "COM7", .kernelNameCom = Vcp, .service = "FTSER2K"},
     true,
     true},
    {"neither fits", {.regName = "COM7", .kernelNameCom = Vcp}, {.regName = "COM7", .kernelNameCom = Vcp}, true, true},
    {"other names", {.regName = "COM7", .kernelNameCom = Vcp}, {.regName = "COM8", .kernelNameCom = Vcp}, false, false},
    {"differing in case", {.regName = "COM7", .kernelNameCom = Vcp}, {.regName = "com7"}, false, false},
    {"both without a name", {.kernelNameCom = Vcp}, {.kernelNameCom = Vcp}, false, false},
};

void ExpectLost(const CComPort* port, bool loses, const char* what) {
    EXPECT_EQ(loses ? 1u : 0u, port->MarkedForRestart) << what;
    EXPECT_STREQ(loses ? "" : port->szRegPortName, port->szPortName) << what;
    EXPECT_EQ(loses ? 0 : 7, port->PortNumber) << what;
}

TEST(PortScans, OfTwoPortsWithOneNameTheOneWithoutTheLinkLosesIt) {
    for (const ConflictRow& row : Conflicts) {
        CComPorts* table = NewTable();
        CComPort* a = Put(table, row.a);
        CComPort* b = Put(table, row.b);
        a->PortNumber = b->PortNumber = 7;
        table->ScanSamePorts();
        ExpectLost(a, row.aLoses, row.what);
        ExpectLost(b, row.bLoses, row.what);
        const bool isUndecided = row.aLoses && row.bLoses; // then the kernel names stay
        EXPECT_STREQ(row.aLoses && !isUndecided ? "" : row.a.kernelNameCom, a->szKernelNameCom) << row.what;
        EXPECT_STREQ(row.bLoses && !isUndecided ? "" : row.b.kernelNameCom, b->szKernelNameCom) << row.what;
    }
    CComPorts* table = NewTable();
    Put(table, Conflicts[4].a)->IsPresent = 0;
    CComPort* present = Put(table, Conflicts[4].b);
    table->ScanSamePorts();
    EXPECT_EQ(0u, present->MarkedForRestart); // an absent port claims nothing
}

void PutFunctions(CComPorts* table, int count, const char* device, DWORD sameParent) {
    for (int i = 0; i < count; ++i) {
        char id[64];
        FormatText(id, "USB\\VID_0403&PID_6011&%s&MI_%02i\\7", device, i);
        Put(table, {.id = id, .sameParent = sameParent});
    }
}

TEST(PortScans, ThePortsOfOneDeviceFormAGroupWithEachItselfFirst) {
    CComPorts* table = NewTable();
    PutFunctions(table, 2, "A", 50);
    PutFunctions(table, 4, "A", 60); // the same model on another hub
    PutFunctions(table, 1, "B", 50);
    table->ScanSameParents();
    for (LONG i = 0; i < 7; ++i) {
        const CComPort* port = table->Ports[i];
        EXPECT_EQ(i == 6 ? 1 : i < 2 ? 2 : 4, port->SameParentCount) << i;
        EXPECT_EQ(i, port->Same[0]) << i;
    }
    const CComPort* third = table->Ports[4];
    EXPECT_EQ(2, third->Same[1]);
    EXPECT_EQ(3, third->Same[2]);
    EXPECT_EQ(5, third->Same[3]);
}

TEST(PortScans, APortThatIsJustRestartedStaysInItsGroup) {
    CComPorts* table = NewTable();
    PutFunctions(table, 3, "A", 50);
    table->ScanSameParents();
    CComPort* restarting = table->Ports[1];
    CComPort* gone = table->Ports[2];
    restarting->IsPresent = gone->IsPresent = 0;
    restarting->RestartTicker = GetTickCount() - 500;
    gone->RestartTicker = GetTickCount() - 2000;
    table->ScanSameParents();
    EXPECT_EQ(2, table->Ports[0]->SameParentCount);
    EXPECT_EQ(1, table->Ports[0]->Same[1]);
    EXPECT_EQ(2, restarting->SameParentCount);
    EXPECT_EQ(3, gone->SameParentCount); // who takes no part keeps what he had
}

TEST(PortScans, AGroupEndsWithItsLastPlace) {
    CComPorts* table = NewTable();
    PutFunctions(table, kMaxSame + 2, "A", 50);
    table->ScanSameParents();
    for (LONG i = 0; i < kMaxSame + 2; ++i) {
        const CComPort* port = table->Ports[i];
        EXPECT_EQ(kMaxSame, port->SameParentCount) << i;
        EXPECT_EQ(i, port->Same[0]);
        EXPECT_STREQ("", port->szPortName) << i; // the field behind Same
    }
}

struct RemovalRow {
    const char* what;
    const char* target; // of COM5 at the removal, null for none
    DWORD changedByDdn;
    LONG removeNames; // RemoveDosDeviceNameOnRemoval
    bool nameStays;
    DWORD changedByDdnAfter;
};

constexpr RemovalRow Removals[] = {
    {"gone", nullptr, 1, 1, false, 1},
    {"another device has it", "\\Device\\VCP9", 1, 1, true, 1},
    {"zombie, left", Vcp, 0, 0, true, 0},
    {"zombie, removed as configured", Vcp, 0, 1, false, 0},
    {"zombie that this service made", Vcp, 1, 0, false, 0},
};

TEST(PortScans, ARemovedPortTakesItsOwnNameAlongAndNoOther) {
    g_pSettings = new CSettings;
    for (const RemovalRow& row : Removals) {
        CComPorts* table = NewTable();
        if (row.target != nullptr) {
            ASSERT_EQ(1, CreateDosName("COM5", row.target)) << row.what;
        }
        g_pSettings->RemoveDosDeviceNameOnRemoval = row.removeNames;
        g_pSettings->RemovePortDeviceOnRemoval = g_pSettings->RemoveUsbDeviceOnRemoval = 0;
        CComPort* port =
            Put(table,
                {.devInst = 99999, .path = "\\\\?\\a", .regName = "COM5", .kernelNameCom = Vcp, .kernelNamePath = Vcp});
        port->PortNumber = 5;
        port->PortChangedByDdn = row.changedByDdn;
        port->ChangePortTicker = 1;
        EXPECT_EQ(-1, table->RemovePort("\\\\?\\b")) << row.what;
        EXPECT_EQ(1u, port->IsPresent) << row.what;
        EXPECT_EQ(0, table->RemovePort("\\\\.\\A")) << row.what;
        EXPECT_EQ(row.nameStays, NameExists("COM5")) << row.what;
        EXPECT_EQ(row.changedByDdnAfter, port->PortChangedByDdn) << row.what;
        EXPECT_EQ(0u, port->IsPresent) << row.what;
        EXPECT_STREQ("", port->szPortName) << row.what;
        EXPECT_STREQ("", port->szKernelNameCom) << row.what;
        EXPECT_STREQ("", port->szKernelNameDevPath) << row.what;
        EXPECT_STREQ("COM5", port->szRegPortName) << row.what;
        EXPECT_EQ(5, port->PortNumber) << row.what;
        EXPECT_EQ(45u, port->Problem) << row.what; // no such node
        EXPECT_EQ(0u, port->ChangePortTicker) << row.what;
        DeleteDosName("COM5");
    }
}

TEST(PortScans, OnlyNamesWithoutADeviceAreDeleted) {
    CComPorts* table = NewTable();
    struct {
        const char* name;
        DWORD error;
        bool stays;
    } rows[] = {{"COM21", ERROR_FILE_NOT_FOUND, false},
                {"COM22", ERROR_PATH_NOT_FOUND, false},
                {"COM23", ERROR_ACCESS_DENIED, true}};
    for (const auto& row : rows) {
        ASSERT_EQ(1, CreateDosName(row.name, "\\Device\\Gone"));
        machine::TheDosNames().SetOpens(row.name, {.error = row.error});
        Put(table, {.regName = row.name});
    }
    Put(table, {}); // a port without a name in force
    table->DeleteNotFoundPorts();
    for (const auto& row : rows) {
        EXPECT_EQ(row.stays, NameExists(row.name)) << row.name;
    }
}

} // namespace
