// The places where a COM number lives: which of them a change touches, and what it leaves as it was.
#include "tests/unit/inventory/PortBuilder.h"

#include "config/CSettings.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameAvailability.h"
#include "inventory/names/ComPortNumber.h"
#include "inventory/names/NameClaims.h"
#include "simwin/registry/Registry.h"

constexpr char EnumKey[] = "SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_1111&PID_2222\\A1";
constexpr char ClassKey[] = "SYSTEM\\CurrentControlSet\\Control\\Class\\{4d36e978-e325-11ce-bfc1-08002be10318}\\0003";
constexpr char KernelName[] = "\\Device\\VCP0";
const std::string DeviceKey = std::string("HKLM\\") + EnumKey, ParametersKey = DeviceKey + "\\Device Parameters",
                  Driver = std::string("HKLM\\") + ClassKey, DeviceMap = "HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM";

static void Set(const std::string& key, const char* name, const std::string& text) {
    machine::TheRegistry().SetString(key, name, text);
}

static std::string Get(const std::string& key, const char* name) {
    return machine::TheRegistry().GetString(key, name, "(none)");
}

static void Change(const char* oldName, const char* newName) {
    EXPECT_EQ(ChangeRegistryComPortNumber(oldName, newName, EnumKey, ClassKey, KernelName), 1);
}

TEST(ComPortNumber, AFriendlyNameShowsTheNewNumberWhereverItShowedOne) {
    const std::string longest = std::string(117, 'x') + " (COM3)";
    using Row = std::tuple<std::string, const char*, std::string>;
    for (const auto& [before, newName, after] :
         {Row{"USB Serial Port (COM3)", "COM17", "USB Serial Port (COM17)"},
          Row{"COM3 on COM3 (com3)", "COM7", "COM7 on COM7 (COM7)"},
          Row{"Port (COM5), says", "COM7", "Port (COM7), says"}, // not the old name
          Row{"COMPAQ COM3", "COM7", "COMPAQ COM7"}, Row{"COMPAQ port", "COM7", "COMPAQ port"},
          Row{longest, "COM1234", longest.substr(0, 118) + "(COM1234)"}, // 127 characters
          Row{"ab" + longest, "COM1234", "ab" + longest}}) {             // 129 would not fit
        Set(DeviceKey, "FriendlyName", before);
        Set(ParametersKey, "PortName", "COM3");
        Change("COM3", newName);
        EXPECT_EQ(Get(DeviceKey, "FriendlyName"), after);
        EXPECT_EQ(Get(ParametersKey, "PortName"), newName) << before;
    }
}

TEST(ComPortNumber, TheTextsOfTheClassKeyFollowAndOnlyValuesThatAreThere) {
    for (const auto& [kept, other] : {std::pair("PortName", "DosDeviceName"), std::pair("DosDeviceName", "PortName")}) {
        machine::TheRegistry().DeleteTree(DeviceKey);
        Set(ParametersKey, kept, "COM3");
        Set(Driver, "AttachedTo", "com3");
        Set(Driver, "UserInit", "AT on \\\\.\\COM3");
        machine::TheRegistry().SetDword(Driver, "COM3", 3);
        Change("COM3", "COM9");
        EXPECT_EQ(Get(ParametersKey, kept), "COM9");
        EXPECT_EQ(Get(ParametersKey, other) + Get(DeviceKey, "FriendlyName"), "(none)(none)") << "something was made";
        EXPECT_EQ(Get(Driver, "AttachedTo"), "COM9");
        EXPECT_EQ(Get(Driver, "UserInit"), "AT on \\\\.\\COM9");
        EXPECT_EQ(machine::ValueText(*machine::TheRegistry().GetValue(Driver, "COM3")), "3");
    }
}

TEST(ComPortNumber, TheDeviceMapFollowsInQuickModeOnly) {
    g_pSettings = new CSettings;
    Set(DeviceMap, "\\Device\\VCP1", "COM4");
    for (const LONG quick : {0, 1}) {
        g_pSettings->QuickAndDirtyMode = quick;
        Set(DeviceMap, KernelName, "COM3");
        Change("COM3", "COM9");
        EXPECT_EQ(Get(DeviceMap, KernelName), quick ? "COM9" : "COM3");
    }
    EXPECT_EQ(DeleteSerialCommValue(KernelName), 1);
    EXPECT_EQ(DeleteSerialCommValue(KernelName), 0);
    EXPECT_EQ(DeleteSerialCommValue(""), 0);
    EXPECT_EQ(Get(DeviceMap, "\\Device\\VCP1"), "COM4");
}

static std::string TargetOf(const char* name) {
    const machine::DosDefinition* definition = machine::TheDosNames().InForce(name);
    return definition != nullptr ? definition->target : "(none)";
}

// A port's name is what its driver wrote into the registry; the machine's other names must survive it.
TEST(DosNames, OnlyComNamesAreMadeOrDeleted) {
    for (const char* name : {"C:", "PIPE", "LPT1", "COM", "COM1x", "COMX", "xCOM1", "COM5 at the back"}) {
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, name, "\\Device\\Other")) << name;
        EXPECT_EQ(DeleteDosName(name), 0) << name;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
        EXPECT_EQ(CreateDosName(name, KernelName), 0) << name;
        EXPECT_EQ(TargetOf(name), "\\Device\\Other") << name;
    }
    EXPECT_EQ(CreateDosName("com12", KernelName), 1);
    EXPECT_EQ(DeleteDosName("COM12"), 1);
}

TEST(ComPortNumber, ASnapshotOfTheDosNamesHoldsWhatTheFilterFinds) {
    const std::string longTarget = "\\Device\\" + std::string(300, 'n');
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "MyCom", longTarget.c_str()));
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "LPT1", "\\Device\\Parallel0"));
    for (int i = 1; i <= 3000; ++i) { // more than the first buffer holds
        ASSERT_TRUE(CreateDosName(("COM" + std::to_string(i)).c_str(), KernelName));
    }
    const CDosDeviceNames names("COM");
    ASSERT_EQ(names.Count, 3001);
    EXPECT_STREQ(names.Entries[0].Name, "MyCom");
    EXPECT_EQ(names.Entries[0].Target, longTarget);
    EXPECT_STREQ(names.Entries[3000].Name, "COM3000");
    EXPECT_STREQ(names.Entries[3000].Target, KernelName);
}

TEST(ComPortNumber, TheTableHoldsANameForAWorkingPortOnly) {
    CComPorts* ports = inventorytest::NewTable();
    const CComPort* port = ports->Ports[ports->AddVirtualPort("COM7", KernelName)];
    ASSERT_TRUE(CreateDosName("COM7", KernelName));
    EXPECT_EQ(ports->IsComPortNameAvailable("COM8"), 1);
    EXPECT_EQ(ports->IsComPortNameAvailable("com7"), 1) << "names are compared exactly";
    EXPECT_EQ(ports->IsComPortNameAvailable("COM7"), 0);
    EXPECT_EQ(port->IsPresent, 1u);
    // The link goes: the record is stale, and is set absent, unless its restart is still to come.
    ASSERT_TRUE(DeleteDosName("COM7"));
    AwaitRestart(ports->Ports[port->Index], GetTickCount());
    EXPECT_EQ(ports->IsComPortNameAvailable("COM7"), 1);
    EXPECT_EQ(port->IsPresent, 1u);
    EndAwaitedRestart(ports->Ports[port->Index], /*isArrival=*/false);
    EXPECT_EQ(ports->IsComPortNameAvailable("COM7"), 1);
    EXPECT_EQ(port->IsPresent, 0u);
    EXPECT_STREQ(port->szPortName, "");
    EXPECT_STREQ(port->szKernelNameCom, "");
    EXPECT_STREQ(port->szRegPortName, "COM7");
}

TEST(ComPortNumber, ALinkIsFreedOnlyWhenItsDeviceIsGone) {
    // 3 says nothing about the device, 5: another program holds it; a driver that does not answer is there.
    const std::pair<machine::Opens, int> rows[] = {
        {{.error = 2}, 1}, {{.error = 433}, 1}, {{.error = 3}, 0}, {{.error = 5}, 0}, {{}, 0}, {{.hangs = true}, 0}};
    for (const auto& [opens, available] : rows) {
        ASSERT_TRUE(CreateDosName("COM9", "\\Device\\Gone0"));
        machine::TheDosNames().SetOpens("COM9", opens);
        EXPECT_EQ(IsComPortNameAvailable("COM9"), available) << "error " << opens.error;
        EXPECT_EQ(TargetOf("COM9"), available ? "(none)" : "\\Device\\Gone0") << "error " << opens.error;
        machine::TheDosNames().RemoveName("COM9", "outside");
    }
    EXPECT_EQ(IsComPortNameAvailable("COM9"), 1) << "a name that is not there";
}
