// Which section means a port: the patterns, the rules of the criteria, the order of the sections.
#include "engine/SectionMatching.h"
#include "engine/AssignmentCheck.h"
#include "engine/WildcardMatch.h"
#include "tests/unit/config/ConfigOnMachine.h"
#include "tests/unit/inventory/PortBuilder.h"

using namespace configtest;

namespace {

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
    for (const auto& [text, pattern] : fitting)
        EXPECT_TRUE(WildcardMatch(text, pattern)) << text << " ~ " << pattern;
    for (const auto& [text, pattern] : different)
        EXPECT_FALSE(WildcardMatch(text, pattern)) << (text != nullptr ? text : "(null)");
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
        if (i <= MaxNewPorts)
            first256.push_back(i);
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

} // namespace
