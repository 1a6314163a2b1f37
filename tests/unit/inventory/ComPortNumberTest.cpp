// The places where a COM number lives: which of them a change touches, and what it leaves as it was.
#include "tests/harness/Harness.h"

#include "config/CSettings.h"
#include "inventory/CComPorts.h"
#include "inventory/CDosDeviceNames.h"
#include "inventory/ComNameAvailability.h"
#include "inventory/ComPortNumber.h"
#include "simwin/devices/DosNames.h"
#include "simwin/registry/Registry.h"
#include "support/BoundedText.h"

namespace {

constexpr char kEnum[] = "SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_1111&PID_2222\\A1";
constexpr char kClass[] = "SYSTEM\\CurrentControlSet\\Control\\Class\\{4d36e978-e325-11ce-bfc1-08002be10318}\\0003";
constexpr char kKernelName[] = "\\Device\\VCP0";

std::string Hklm(const std::string& path) {
    return "HKLM\\" + path;
}
std::string Parameters() {
    return Hklm(kEnum) + "\\Device Parameters";
}
const std::string kDeviceMap = Hklm("HARDWARE\\DEVICEMAP\\SERIALCOMM");

machine::Registry& Reg() {
    return machine::TheRegistry();
}

std::string FriendlyName() {
    return Reg().GetString(Hklm(kEnum), "FriendlyName", "(none)");
}

struct Settings {
    CSettings values;
    Settings() { g_pSettings = &values; }
    ~Settings() { g_pSettings = nullptr; }
};

void Change(const char* oldName, const char* newName) {
    EXPECT_EQ(ChangeRegistryComPortNumber(oldName, newName, kEnum, kClass, kKernelName), 1);
}

TEST(ComPortNumber, AFriendlyNameShowsTheNewNumberWhereverItShowedOne) {
    const std::string longest = std::string(117, 'x') + " (COM3)";
    struct Row {
        std::string before;
        const char* newName;
        std::string after;
    };
    for (const Row& row : {
             Row{"USB Serial Port (COM3)", "COM17", "USB Serial Port (COM17)"},
             Row{"COM3 on COM3 (com3)", "COM7", "COM7 on COM7 (COM7)"},
             Row{"Port (COM5), says the driver", "COM7", "Port (COM7), says the driver"}, // not the old name
             Row{"COMPAQ COM3", "COM7", "COMPAQ COM7"}, Row{"COMPAQ port", "COM7", "COMPAQ port"},
             Row{"Modem", "COM7", "Modem"},
             Row{longest, "COM1234", longest.substr(0, 118) + "(COM1234)"}, // 127 characters
             Row{"ab" + longest, "COM1234", "ab" + longest},                // 129 would not fit
         }) {
        Reg().SetString(Hklm(kEnum), "FriendlyName", row.before);
        Reg().SetString(Parameters(), "PortName", "COM3");
        Change("COM3", row.newName);
        EXPECT_EQ(FriendlyName(), row.after);
        EXPECT_EQ(Reg().GetString(Parameters(), "PortName"), row.newName) << row.before;
    }
}

TEST(ComPortNumber, OnlyValuesThatAreThereAreWritten) {
    for (const char* kept : {"PortName", "DosDeviceName"}) {
        const char* const other = *kept == 'P' ? "DosDeviceName" : "PortName";
        Reg().DeleteTree(Hklm(kEnum));
        Reg().SetString(Parameters(), kept, "COM3");
        Change("COM3", "COM8");
        EXPECT_EQ(Reg().GetString(Parameters(), kept), "COM8");
        EXPECT_EQ(Reg().GetValue(Parameters(), other), nullptr) << other << " was made";
        EXPECT_EQ(FriendlyName(), "(none)");
    }
}

TEST(ComPortNumber, TheTextsOfTheClassKeyFollow) {
    Reg().SetString(Hklm(kClass), "AttachedTo", "com3");
    Reg().SetString(Hklm(kClass), "UserInit", "AT on \\\\.\\COM3");
    Reg().SetString(Hklm(kClass), "DriverDesc", "Modem");
    Reg().SetDword(Hklm(kClass), "COM3", 3);
    Change("COM3", "COM9");
    EXPECT_EQ(Reg().GetString(Hklm(kClass), "AttachedTo"), "COM9");
    EXPECT_EQ(Reg().GetString(Hklm(kClass), "UserInit"), "AT on \\\\.\\COM9");
    EXPECT_EQ(Reg().GetString(Hklm(kClass), "DriverDesc"), "Modem");
    EXPECT_EQ(machine::ValueText(*Reg().GetValue(Hklm(kClass), "COM3")), "3");
}

TEST(ComPortNumber, TheDeviceMapFollowsInQuickModeOnly) {
    Settings settings;
    for (const LONG quick : {0, 1}) {
        settings.values.QuickAndDirtyMode = quick;
        Reg().SetString(kDeviceMap, kKernelName, "COM3");
        Reg().SetString(kDeviceMap, "\\Device\\VCP1", "COM4");
        Change("COM3", "COM9");
        EXPECT_EQ(Reg().GetString(kDeviceMap, kKernelName), quick ? "COM9" : "COM3");
        EXPECT_EQ(Reg().GetString(kDeviceMap, "\\Device\\VCP1"), "COM4");
    }
    EXPECT_EQ(DeleteSerialCommValue(kKernelName), 1);
    EXPECT_EQ(Reg().GetValue(kDeviceMap, kKernelName), nullptr);
    EXPECT_EQ(DeleteSerialCommValue(kKernelName), 0);
    EXPECT_EQ(DeleteSerialCommValue(""), 0);
    EXPECT_EQ(Reg().GetString(kDeviceMap, "\\Device\\VCP1"), "COM4");
}

TEST(ComPortNumber, AFriendlyNameIsFixedOnlyWhereItIsWrong) {
    struct Row {
        const char* before;
        LONG number;
        const char* after;
    };
    for (const Row& row : {
             Row{"Port (COM3)", 7, "Port (COM7)"},
             Row{"Port (COM3)", 3, "Port (COM3)"},
             Row{"Port (COM3)", 0, "Port (COM3)"},
             Row{"Port (COM3)", 33, "Port (COM33)"},
             Row{"Port", 7, "Port"},
         }) {
        Reg().SetString(Hklm(kEnum), "FriendlyName", row.before);
        int writes = 0;
        Reg().WatchWrites([&writes](const machine::RegistryWrite&) { ++writes; });
        FixFriendlyName(kEnum, row.number);
        Reg().WatchWrites({});
        EXPECT_EQ(FriendlyName(), row.after) << row.number;
        EXPECT_EQ(writes, std::string(row.before) != row.after ? 1 : 0) << row.before << " with " << row.number;
    }
}

std::string TargetOf(const char* name) {
    const machine::DosDefinition* definition = machine::TheDosNames().InForce(name);
    return definition != nullptr ? definition->target : "(none)";
}

TEST(ComPortNumber, ADosNameMovesWithItsTarget) {
    ASSERT_TRUE(CreateDosName("COM3", kKernelName));
    EXPECT_EQ(ChangeDosDeviceComPortNumber("COM3", "COM9"), 1);
    EXPECT_EQ(TargetOf("COM9"), kKernelName);
    EXPECT_EQ(TargetOf("COM3"), "(none)");
    // A name that is not there moves nothing, and nothing new is made.
    EXPECT_EQ(ChangeDosDeviceComPortNumber("COM3", "COM10"), 0);
    EXPECT_EQ(TargetOf("COM10"), "(none)");
    EXPECT_EQ(TargetOf("COM9"), kKernelName);
}

TEST(ComPortNumber, ASnapshotOfTheDosNamesHoldsWhatTheFilterFinds) {
    const std::string longTarget = "\\Device\\" + std::string(300, 'n');
    ASSERT_TRUE(CreateDosName("COM3", kKernelName));
    ASSERT_TRUE(CreateDosName("MyCom", longTarget.c_str()));
    ASSERT_TRUE(CreateDosName("LPT1", "\\Device\\Parallel0"));
    const CDosDeviceNames names("COM");
    ASSERT_EQ(names.Count, 2);
    EXPECT_STREQ(names.Entries[0].Name, "COM3");
    EXPECT_STREQ(names.Entries[0].Target, kKernelName);
    EXPECT_STREQ(names.Entries[1].Name, "MyCom");
    EXPECT_EQ(names.Entries[1].Target, longTarget);
}

TEST(ComPortNumber, ASnapshotGrowsWithTheListOfNames) {
    constexpr int kNames = 3000; // more than the first buffer holds
    for (int i = 1; i <= kNames; ++i) {
        ASSERT_TRUE(CreateDosName(("COM" + std::to_string(i)).c_str(), kKernelName));
    }
    EXPECT_EQ(CDosDeviceNames("COM29").Count, 111);
}

TEST(ComPortNumber, TheTableHoldsANameForAWorkingPortOnly) {
    CComPorts ports;
    const int index = ports.AddVirtualPort("COM7", kKernelName);
    CComPort* const port = ports.Ports[index];
    ASSERT_TRUE(CreateDosName("COM7", kKernelName));
    EXPECT_EQ(ports.IsComPortNameAvailable("COM8"), 1);
    EXPECT_EQ(ports.IsComPortNameAvailable("com7"), 1) << "names are compared exactly";
    EXPECT_EQ(ports.IsComPortNameAvailable("COM7"), 0);
    EXPECT_EQ(port->IsPresent, 1u);
    // The link goes: the record is stale, and is set absent.
    ASSERT_TRUE(DeleteDosName("COM7"));
    EXPECT_EQ(ports.IsComPortNameAvailable("COM7"), 1);
    EXPECT_EQ(port->IsPresent, 0u);
    EXPECT_STREQ(port->szPortName, "");
    EXPECT_STREQ(port->szKernelNameCom, "");
    EXPECT_STREQ(port->szRegPortName, "COM7");
}

TEST(ComPortNumber, ALinkIsFreedOnlyWhenItsDeviceIsGone) {
    struct Row {
        machine::Opens opens;
        int available;
    };
    for (const Row& row : {
             Row{{.error = 2}, 1}, Row{{.error = 433}, 1}, Row{{.error = 3}, 0}, // says nothing about the device
             Row{{.error = 5}, 0},                                               // another program holds it
             Row{{}, 0}, Row{{.hangs = true}, 0}, // a driver that does not answer is there
         }) {
        ASSERT_TRUE(CreateDosName("COM9", "\\Device\\Gone0"));
        machine::TheDosNames().SetOpens("COM9", row.opens);
        EXPECT_EQ(IsComPortNameAvailable("COM9"), row.available) << "error " << row.opens.error;
        EXPECT_EQ(TargetOf("COM9"), row.available ? "(none)" : "\\Device\\Gone0") << "error " << row.opens.error;
        machine::TheDosNames().RemoveName("COM9", "outside");
    }
    EXPECT_EQ(IsComPortNameAvailable("COM9"), 1) << "a name that is not there";
}

} // namespace
