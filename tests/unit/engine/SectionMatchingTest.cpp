// Which section applies to a port: the patterns, the rules of the criteria, the order of the sections; and the decision
// on a port that ends without a change, on records made by hand. Changes are rehearsed on whole machines.
#include "engine/SectionMatching.h"
#include "engine/AssignmentCheck.h"
#include "engine/NumberChoice.h"
#include "engine/WildcardMatch.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "simwin/registry/Registry.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

using namespace configtest;

TEST(WildcardMatch, WholeTextsFitWholePatterns) {
    const char* const fitting[][2] = {
        {"COM1", "COM1"},     {"COM1", "com1"},        {"COM1", "COM*"},     {"COM", "COM*"}, {"COM1", "*1"},
        {"COM1", "*"},        {"COM1", "C?M?"},        {"COM12", "*1*2**"},  {"ABAB", "*AB"}, {"ABABC", "*ABC"},
        {"aXbXc", "a*b*c"},   {"A\\B", "a|b"},         {"[{]}^~", "{[}]~^"}, {"*", "\n"},     {"a?", "a?"},
        {"aaaaab", "*a*a*b"}, {"VID_0403", "VID_04??"}};
    using Row = std::pair<const char*, const char*>;
    const Row different[] = {Row{"COM1", "COM"},
                             Row{"COM", "COM1"},
                             Row{"", "*"},
                             Row{nullptr, "*"},
                             Row{"COM1", ""},
                             Row{"COM1", "COM1?"},
                             Row{"1", "!"},
                             Row{"COM ", "COM"},
                             Row{"A B ", "*B"},
                             Row{"aXbX", "a*b*c"},
                             Row{"COM  X", "COM"},
                             Row{"COM1", nullptr},
                             Row{"VID_04031", "VID_04??"}};
    for (const auto& [text, pattern] : fitting) {
        EXPECT_TRUE(WildcardMatch(text, pattern)) << text << " ~ " << pattern;
    }
    for (const auto& [text, pattern] : different) {
        EXPECT_FALSE(WildcardMatch(text, pattern)) << (text != nullptr ? text : "(null)");
    }
}

TEST(SectionMatching, FormsAreAlternativesAndKeysMustAllHold) {
    CComPort port;
    port.BusTypeName = BusTypeNames[BusUsb];
    CopyText(port.DeviceID, "FTDIBUS\\VID_0403+PID_6001\\0000");
    CopyText(port.FriendlyName, "USB Serial Port (COM7)");
    const std::string noRoom = "[ComPorts1]\nDeviceID=" + std::string(260, '*') + "\n"; // counts as absent
    using Row = std::pair<std::string, LONG>;
    for (const auto& [section, number] :
         {Row{"[ComPorts]\nPortName=COM5\n", 0}, Row{"[ComPorts1]\nDeviceID=\n", 0},
          Row{"[ComPorts1]\nDeviceID=FTDIBUS\\*\n", 1}, Row{"[ComPorts1]\nDeviceID=FTDIBUS\\*\nBusType=PCI\n", 0},
          Row{"[ComPorts1]\nDeviceID=FTDIBUS\\*\nBusType=usb\n", 1},
          Row{"[ComPorts1]\nDeviceID=PCI*\nDeviceID9=FTDIBUS*\n", 1}, Row{"[ComPorts1]\nDeviceID0=FTDIBUS*\n", 0},
          Row{"[ComPorts1]\nUsbPort=*\n", 0}, Row{"[ComPorts1]\nFriendlyName3=*serial*(com7)\n", 1},
          Row{"[ComPorts0]\nBusType=USB\n", 0}, Row{"[ComPorts90]\nBusType=USB\n[ComPorts10]\nBusType=USB\n", 10},
          Row{"[ComPorts]\nBusType=USB\n[ComPorts99]\nBusType=USB\n", 99},
          Row{"[ComPorts]\nBusType=USB\n[ComPorts99]\nBusType=PCI\n", 100}, Row{"[OnArrival1]\nBusType=USB\n", 0},
          Row{noRoom, 0}}) {
        UseIni(section);
        EXPECT_EQ(GetFittingSectionNumber(&port, ComPorts), number) << section;
    }
}

TEST(SectionMatching, PortNamesAreReadInTheOrderOfTheirKeys) {
    std::string many = "PortName=";
    std::vector<DWORD> first256;
    for (DWORD i = 1; i <= 300; ++i) {
        many += "COM" + std::to_string(i);
        if (i <= MaxNewPorts) {
            first256.push_back(i);
        }
    }
    using Row = std::pair<std::string, std::vector<DWORD>>;
    for (const auto& [keys, expected] :
         {Row{"PortName=COM5", {5}}, Row{"PortNames=COM3,COM4\nPortName1=com3 Com7", {3, 4, 3, 7}},
          Row{"PortName9=COM9\nPortName2=COM2\nPortName=COM1\nPortNames=COM10", {10, 1, 2, 9}},
          Row{"PortName3=\nPortName=COM", {}}, Row{"PortName0=COM1\nPortName10=COM1", {}},
          Row{"PortName=COM0 COM1 COM65536 COM65537 COM-1 COMX COMCOM8", {1, 65536, 8}}, Row{many, first256}}) {
        UseIni("[ComPorts1]\n" + keys + "\n");
        DWORD numbers[MaxNewPorts + 1] = {};
        const LONG count = GetPortNamesFromSection(ComPorts, 1, numbers);
        EXPECT_EQ(std::vector<DWORD>(numbers, numbers + count), expected) << keys;
        EXPECT_EQ(numbers[MaxNewPorts], 0u);
    }
}

// A port whose registry name, DOS name and kernel name agree.
static CComPort* Port(CComPorts* table, const char* id, LONG number, const char* kernelName) {
    char name[16];
    FormatText(name, "COM%i", number);
    CComPort* port = inventorytest::Put(table, {.id = id, .regName = name, .kernelNameCom = kernelName});
    port->PortNumber = number;
    CreateDosName(name, kernelName);
    return port;
}

TEST(AssignmentCheck, EachEndWithoutAChangeTellsWhyAndWhetherItIsThrough) {
    StartLog();
    InitializeCriticalSection(&CS_assign);
    machine::TheRegistry().SetBinary("HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter", "ComDB",
                                     std::vector<std::uint8_t>(32));
    // Whatever a DOS name leads to can be opened: no link here is dead.
    machine::SetDeviceOpener(
        [](const char*, DWORD, DWORD, DWORD, DWORD*) { return std::make_unique<machine::OpenDevice>(); });
    CComPorts* table = inventorytest::NewTable();
    Port(table, "B", 8, "\\Device\\Serial8")->DevInst = VirtualDevInst + 8;
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
        CComPort* port = Port(table, id, 4, "\\Device\\Serial4");
        CopyText(port->szRegPortName, regName);
        port->Problem = problem;
        port->MarkedForRestart = isMarked;
        ClearLog();
        EXPECT_EQ(CheckComPortAssignment(port->Index), AssignmentOutcome::Unchanged) << line;
        EXPECT_EQ(port->PortChangeDone, isDone) << line;
        EXPECT_TRUE(Logged(line)) << line;
        char target[DosTargetSize] = "";
        QueryDosName("COM8", target);
        EXPECT_STREQ(target, "\\Device\\Serial8") << "the table has it: no swap with it, and no hack frees it";
        port->IsUsed = 0;
    }
}

// Otherwise a marked port would be restarted for another free number at each check, or keep the number 0.
TEST(AssignmentCheck, AnOwnNumberComesBeforeAFreeOne) {
    UseIni("");
    machine::TheRegistry().SetBinary("HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter", "ComDB",
                                     std::vector<std::uint8_t>(32));
    CComPort* port = Port(inventorytest::NewTable(), "A", 4, "\\Device\\Serial4");
    CComPort holder;
    Assignment own = {}, shared = {}, oneLeft = {}, full = {};
    own.port = shared.port = oneLeft.port = full.port = port;
    shared.registryHolder = &holder;
    oneLeft.newPortCount = MaxNewPorts - 1;
    full.newPortCount = MaxNewPorts;
    const auto added = [](Assignment check) {
        const LONG before = check.newPortCount;
        AppendFreeNumber(&check);
        return std::vector(check.newPorts + before, check.newPorts + check.newPortCount);
    };
    EXPECT_EQ(added(own), (std::vector<DWORD>{4, 1}));
    EXPECT_EQ(added(shared), std::vector<DWORD>{1});
    EXPECT_EQ(added(oneLeft), std::vector<DWORD>{1});
    EXPECT_EQ(added(full), std::vector<DWORD>{});
    port->HasCopiedName = 1;
    EXPECT_EQ(added(own), std::vector<DWORD>{1});
    port->HasCopiedName = 0;
    port->PortNumber = 0;
    EXPECT_EQ(added(own), std::vector<DWORD>{1});
}

TEST(AssignmentCheck, AWrittenNumberIsFreeAgainOnlyIfTheRegistryHoldsAnother) {
    CComPort* port = Port(inventorytest::NewTable(), "A", 4, "\\Device\\Serial4");
    using Row = std::pair<const char*, LONG>;
    for (const auto& [regName, free] : {Row{"COM5", 20}, Row{"COM20", 21}, Row{"", 21}}) { // "": it cannot be read
        machine::TheRegistry().SetBinary("HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter", "ComDB",
                                         std::vector<std::uint8_t>(32));
        ComNameArbiterAdd(20);
        CopyText(port->szRegPortName, regName);
        port->WrittenNumber = 20;
        FreeUnwrittenNumber(port);
        EXPECT_EQ(ComNameArbiterFindFree(20), free) << regName;
    }
}
