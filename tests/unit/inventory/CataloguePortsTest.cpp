// Serial devices as they are found on machines, each described by its id alone, as the product sees them: what it is,
// its bus, its place on USB, the device that it shares with other ports, and its place in a list. Expectations are
// worked out by hand from the ids and the places.
#include "inventory/ports/CComPorts.h"
#include "inventory/usb/CUsbHubs.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "simwin/devices/build/Devices.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/registry/Registry.h"

#include "tests/harness/Harness.h"
#include "tests/unit/inventory/PortBuilder.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>

const std::string Root = "USB\\ROOT_HUB30\\5&20be2fcd&0&0";
const std::string HubId = "USB\\VID_0E0F&PID_0002\\6&30c8ca5f&0&7"; // on port 7 of the root hub: 1-7
const std::string BridgeId = "PCI\\VEN_8086&DEV_2448&SUBSYS_00000000&REV_E1\\3&11583659&0&F0";
const std::string CardId = "PCI\\VEN_18F7&DEV_0004&SUBSYS_00000000&REV_04\\5&2148fa65&2d&00F0";
const std::string CardBus = "PCI\\VEN_1180&DEV_0476&SUBSYS_00000000&REV_B4\\3&11583659&0&E0";
const std::string DeepHub = "USB\\VID_0E0F&PID_0002\\8&1";
const std::string DockHub = "USB\\VID_0E0F&PID_0002\\7&1";
const std::string Radio = "USB\\VID_0E0F&PID_0008\\000650268328";
const std::string Emulator = "ROOT\\COM0COM\\0000";

namespace {
// above: what hangs between the hub and the port, the upper one first, parted by ">"; or its parent. usbPort: "" if it
// is not on USB. A service, kernel name or text that nobody knows is null. group: the others of its group, as the
// product forms it.
struct Row {
    const char *tag, *above, *id, *usbPort, *service, *kernel, *text, *bus;
    std::string sameParent;
    const char* group;
};
} // namespace

// In the order of position: what is not on USB first, by id; then by socket, root first.
const Row Rows[] = {
    // clang-format off
    {"board", "", "ACPI\\PNP0501\\1", "", "Serial", "\\Device\\Serial", "Communications Port", "ISA", "", ""},
    {"cnca", "", "COM0COM\\PORT\\CNCA0", "", "com0com", "\\Device\\com0com1", "com0com - serial port emulator", "Unknown", Emulator, ""},
    {"cncb", "", "COM0COM\\PORT\\CNCB0", "", "com0com", "\\Device\\com0com2", "com0com - serial port emulator", "Unknown", Emulator, ""},
    {"card0", "", "MF\\PCI#VEN_18F7&DEV_0004&SUBSYS_00000000&REV_04\\5&2148fa65&2d&00F0#Child00", "", "Serial", "\\Device\\Serial", "Communications Port", "PCI", CardId, "card1"},
    {"card1", "", "MF\\PCI#VEN_18F7&DEV_0004&SUBSYS_00000000&REV_04\\5&2148fa65&2d&00F0#Child01", "", "Serial", "\\Device\\Serial", "Communications Port", "PCI", CardId, "card0"},
    {"siig", BridgeId.c_str(), "PCI\\VEN_131F&DEV_2000&SUBSYS_2000131F&REV_01\\4&1&0&08F0", "", "Serial", "\\Device\\Serial", "SIIG CyberSerial Card", "PCI", BridgeId, ""},
    {"amt", "", "PCI\\VEN_8086&DEV_02E3&SUBSYS_22BE17AA&REV_00\\3&11583659&0&B3", "", nullptr, nullptr, "Intel(R) Active Management Technology - SOL", "PCI", "", ""},
    {"mcs", "", "PCI\\VEN_9710&DEV_9865&SUBSYS_10001000&REV_00\\3&11583659&0&A0", "", nullptr, nullptr, "PCI Serial Port", "PCI", "", ""},
    {"pccard", CardBus.c_str(), "PCMCIA\\Quatech_Inc-PCMCIA_RS-232_Serial_Port_Card-63EA\\1", "", "Serial", "\\Device\\Serial", "Quatech Q-Lynx Serial Adapter", "PCMCIA", CardBus, ""},
    {"root", "", "ROOT\\PORTS\\0000", "", nullptr, nullptr, "VComTunnel Virtual Serial Port", "Unknown", "", ""},
    {"camera", "USB\\VID_2207&PID_0018\\2D312FF4BB1927AF", "USB\\VID_2207&PID_0018&MI_04\\A&32306B0D&0&0004", "1-1-3-4-2", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", DeepHub, ""},
    // A radio on USB makes its ports USB ports of its socket; incoming and outgoing differ after the GUID only.
    {"btin", "", "BTHENUM\\{00001101-0000-1000-8000-00805F9B34FB}_LOCALMFG&0000\\9&3058B9ED&0&000000000000_00000000", "1-2", "BTHMODEM", "\\Device\\BthModem", "Standard Serial over Bluetooth link", "USB", Root, "btout"},
    {"btout", "", "BTHENUM\\{00001101-0000-1000-8000-00805F9B34FB}_LOCALMFG&001D\\9&3058B9ED&0&01B6EC10F00D_C00000000", "1-2", "BTHMODEM", "\\Device\\BthModem", "Standard Serial over Bluetooth link", "USB", Root, "btin"},
    {"ft232r", "USB\\VID_0403&PID_6001\\A507YBKB", "FTDIBUS\\VID_0403+PID_6001+A507YBKBA\\0000", "1-7-1", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    {"ft2232place", "USB\\VID_0403&PID_6010\\6&9358AC4&0&2>USB\\VID_0403&PID_6010&MI_01\\7&1&0&0001", "FTDIBUS\\VID_0403+PID_6010+6&9358AC4&0&2&2\\0000", "1-7-2", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    {"ft232rplace", "USB\\VID_0403&PID_6001\\6&35844985&0&3", "FTDIBUS\\VID_0403+PID_6001+6&35844985&0&3\\0000", "1-7-3", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    {"ft2232a", "USB\\VID_0403&PID_6010\\2025030317>USB\\VID_0403&PID_6010&MI_00\\7&2&0&0000", "FTDIBUS\\VID_0403+PID_6010+2025030317A\\0000", "1-7-4", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, "ft2232b"},
    {"ft2232b", "USB\\VID_0403&PID_6010\\2025030317>USB\\VID_0403&PID_6010&MI_01\\7&2&0&0001", "FTDIBUS\\VID_0403+PID_6010+2025030317B\\0000", "1-7-4", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, "ft2232a"},
    {"ft2232same", "USB\\VID_0403&PID_6010\\0ABC01>USB\\VID_0403&PID_6010&MI_01\\7&3&0&0001", "FTDIBUS\\VID_0403+PID_6010+0ABC01B\\0000", "1-7-5", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    {"ft4232a", "USB\\VID_0403&PID_6011\\FT84KFWR>USB\\VID_0403&PID_6011&MI_00\\7&4&0&0000", "FTDIBUS\\VID_0403+PID_6011+FT84KFWRA\\0000", "1-7-6", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, "ft4232b ft4232c ft4232d"},
    {"ft4232b", "USB\\VID_0403&PID_6011\\FT84KFWR>USB\\VID_0403&PID_6011&MI_01\\7&4&0&0001", "FTDIBUS\\VID_0403+PID_6011+FT84KFWRB\\0000", "1-7-6", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, "ft4232a ft4232c ft4232d"},
    {"ft4232c", "USB\\VID_0403&PID_6011\\FT84KFWR>USB\\VID_0403&PID_6011&MI_02\\7&4&0&0002", "FTDIBUS\\VID_0403+PID_6011+FT84KFWRC\\0000", "1-7-6", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, "ft4232a ft4232b ft4232d"},
    {"ft4232d", "USB\\VID_0403&PID_6011\\FT84KFWR>USB\\VID_0403&PID_6011&MI_03\\7&4&0&0003", "FTDIBUS\\VID_0403+PID_6011+FT84KFWRD\\0000", "1-7-6", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, "ft4232a ft4232b ft4232c"},
    {"ft231x", "USB\\VID_0403&PID_6015\\DK0G0GKM", "FTDIBUS\\VID_0403+PID_6015+DK0G0GKMA\\0000", "1-7-7", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    {"ft232h", "USB\\VID_0403&PID_6014\\FW4607", "FTDIBUS\\VID_0403+PID_6014+FW4607A\\0000", "1-7-8", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    {"pad", "USB\\VID_0403&PID_6001\\TOPAZBSB", "FTDIBUS\\VID_0403+PID_6001+TOPAZBSBA\\0000", "1-7-9", "FTSER2K", "\\Device\\VCP", "USB Serial Port", "USB", HubId, ""},
    // Two of one kind on one hub count as one device: an id without function differs in its instance alone.
    {"pl2303", "", "USB\\VID_067B&PID_2303\\6&2C4CB384&0&10", "1-7-10", "Ser2pl", "\\Device\\ProlificSerial", "Prolific USB-to-Serial Comm Port", "USB", HubId, "pl2303b"},
    {"pl2303b", "", "USB\\VID_067B&PID_2303\\6&2C4CB384&0&11", "1-7-11", "Ser2pl", "\\Device\\ProlificSerial", "Prolific USB-to-Serial Comm Port", "USB", HubId, "pl2303"},
    {"ch340", "", "USB\\VID_1A86&PID_7523\\6&3504FC2D&0&12", "1-7-12", "CH341SER_A64", "\\Device\\Serial", "USB-SERIAL CH340", "USB", HubId, ""},
    {"ch343", "", "USB\\VID_1A86&PID_55D3\\5B5E020088", "1-7-13", nullptr, nullptr, "USB-Enhanced-SERIAL CH343", "USB", HubId, ""},
    // The id of the single converter reaches up to PID_E only: it joins the functions of its maker, but they do not
    // join it.
    {"cp2102", "", "USB\\VID_10C4&PID_EA60\\0001", "1-7-14", "silabser", "\\Device\\Silabser", "Silicon Labs CP210x USB to UART Bridge", "USB", HubId, ""},
    {"cp2105a", "USB\\VID_10C4&PID_EA70\\01A81E2D", "USB\\VID_10C4&PID_EA70&MI_00\\7&10EC5CC5&0&0000", "1-7-15", "silabser", "\\Device\\Silabser", "Silicon Labs Dual CP2105 USB to UART Bridge: Enhanced COM Port", "USB", HubId, "cp2102 cp2105b"},
    {"cp2105b", "USB\\VID_10C4&PID_EA70\\01A81E2D", "USB\\VID_10C4&PID_EA70&MI_01\\7&10EC5CC5&0&0001", "1-7-15", "silabser", "\\Device\\Silabser", "Silicon Labs Dual CP2105 USB to UART Bridge: Standard COM Port", "USB", HubId, "cp2102 cp2105a"},
    {"cp2108a", "USB\\VID_10C4&PID_EA71\\0123ABCD", "USB\\VID_10C4&PID_EA71&MI_00\\7&5&0&0000", "1-7-16", "silabser", "\\Device\\Silabser", "Silicon Labs Quad CP2108 USB to UART Bridge: Interface 0", "USB", HubId, "cp2102 cp2108d"},
    {"cp2108d", "USB\\VID_10C4&PID_EA71\\0123ABCD", "USB\\VID_10C4&PID_EA71&MI_03\\7&5&0&0003", "1-7-16", "silabser", "\\Device\\Silabser", "Silicon Labs Quad CP2108 USB to UART Bridge: Interface 3", "USB", HubId, "cp2102 cp2108a"},
    {"cpbus", "USB\\VID_10C4&PID_EA60\\0002", "USB\\VID_10C4&PID_EA60&MI_00&OS_NT\\7&6&0", "1-7-17", "slabser", "\\Device\\slabser", "CP210x USB to UART Bridge Controller", "USB", HubId, "cp2102"},
    {"cdc", "", "USB\\VID_1234&PID_5678\\ABC", "1-7-18", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, ""},
    {"uno", "", "USB\\VID_2341&PID_0043\\64936333936351400000", "1-7-19", "usbser", "\\Device\\USBSER", "Arduino Uno", "USB", HubId, "leoboot mkrboot zeroboot"},
    {"leonardo", "USB\\VID_2341&PID_8036\\6&1&0&20", "USB\\VID_2341&PID_8036&MI_00\\8&3A3900D5&0&0000", "1-7-20", "usbser", "\\Device\\USBSER", "Arduino Leonardo", "USB", HubId, ""},
    {"leoboot", "", "USB\\VID_2341&PID_0036\\5&DED9A49&0&21", "1-7-21", "usbser", "\\Device\\USBSER", "Arduino Leonardo bootloader", "USB", HubId, "uno mkrboot zeroboot"},
    {"mkr", "USB\\VID_2341&PID_804E\\50A9F6", "USB\\VID_2341&PID_804E&MI_00\\6&279A3900&0&0000", "1-7-22", "usbser", "\\Device\\USBSER", "Arduino MKR1000", "USB", HubId, ""},
    {"mkrboot", "", "USB\\VID_2341&PID_004E\\5&C3DC240&0&23", "1-7-23", "usbser", "\\Device\\USBSER", "Arduino MKR1000 bootloader", "USB", HubId, "uno leoboot zeroboot"},
    {"zero", "USB\\VID_2341&PID_804D\\50A9F7", "USB\\VID_2341&PID_804D&MI_00\\6&1026E213&0&0000", "1-7-24", "usbser", "\\Device\\USBSER", "Arduino Zero", "USB", HubId, ""},
    {"zeroboot", "", "USB\\VID_2341&PID_004D\\5&C3DC240&0&25", "1-7-25", "usbser", "\\Device\\USBSER", "Arduino Zero bootloader", "USB", HubId, "uno leoboot mkrboot"},
    {"teensy", "", "USB\\VID_16C0&PID_0483\\12345", "1-7-26", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, ""},
    {"pico", "", "USB\\VID_2E8A&PID_000A\\E463A8574B3F3935", "1-7-27", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, ""},
    {"esp32s3", "USB\\VID_303A&PID_1001\\24:58:7C:DE:81:C8", "USB\\VID_303A&PID_1001&MI_00\\9&783726D&1&0000", "1-7-28", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, ""},
    {"stlink", "USB\\VID_0483&PID_374B\\066CFF515570514867145144", "USB\\VID_0483&PID_374B&MI_02\\6&224DEA1D&0&0002", "1-7-29", "usbser", "\\Device\\USBSER", "STMicroelectronics STLink Virtual COM Port", "USB", HubId, ""},
    {"stm32", "", "USB\\VID_0483&PID_5740\\TMCS_B000000000", "1-7-30", "usbser", "\\Device\\USBSER", "STMicroelectronics Virtual COM Port", "USB", HubId, ""},
    {"maple", "", "USB\\VID_1EAF&PID_0004\\6&1&0&31", "1-7-31", "usbser", "\\Device\\USBSER", "Maple Serial", "USB", HubId, ""},
    {"jlink", "USB\\VID_1366&PID_1015\\000682944700", "USB\\VID_1366&PID_1015&MI_00\\6&80004E7&0&0000", "1-7-32", nullptr, nullptr, "JLink CDC UART Port", "USB", HubId, ""},
    {"nordic", "USB\\VID_1915&PID_C00A\\D1E2F3", "USB\\VID_1915&PID_C00A&MI_01\\6&3116A719&0&0001", "1-7-33", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, ""},
    {"bmpgdb", "USB\\VID_1D50&PID_6018\\85A12F01", "USB\\VID_1D50&PID_6018&MI_00\\6&A694CA9&0&0000", "1-7-34", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, "bmpuart"},
    {"bmpuart", "USB\\VID_1D50&PID_6018\\85A12F01", "USB\\VID_1D50&PID_6018&MI_02\\6&A694CA9&0&0002", "1-7-34", "usbser", "\\Device\\USBSER", "USB Serial Device", "USB", HubId, "bmpgdb"},
    {"pavr1", "USB\\VID_1FFB&PID_00B0\\00123456", "USB\\VID_1FFB&PID_00B0&MI_01\\6&7&0&0001", "1-7-35", "usbser", "\\Device\\USBSER", "Pololu USB AVR Programmer v2 Programming Port", "USB", HubId, "pavr3"},
    {"pavr3", "USB\\VID_1FFB&PID_00B0\\00123456", "USB\\VID_1FFB&PID_00B0&MI_03\\6&7&0&0003", "1-7-35", "usbser", "\\Device\\USBSER", "Pololu USB AVR Programmer v2 TTL Serial Port", "USB", HubId, "pavr1"},
    {"mbed", "USB\\VID_0D28&PID_0204\\0240000032044e4500257009997b00386781000097969900", "USB\\VID_0D28&PID_0204&MI_01\\8&26b12a60&0&0001", "1-7-36", nullptr, nullptr, "mbed Serial Port", "USB", HubId, ""},
    {"edbg", "USB\\VID_03EB&PID_2111\\ATML1", "USB\\VID_03EB&PID_2111&MI_01\\6&21F3553F&0&0001", "1-7-37", "usbser", "\\Device\\USBSER", "Atmel Corp. EDBG CMSIS-DAP", "USB", HubId, ""},
    {"proxmark", "", "USB\\VID_9AC4&PID_4B8F\\88", "1-7-38", "usbser", "\\Device\\USBSER", "Proxmark3", "USB", HubId, ""},
    {"photon0", "USB\\VID_2B04&PID_C006\\3E0033", "USB\\VID_2B04&PID_C006&MI_00\\6&8&0&0000", "1-7-39", "usbser", "\\Device\\USBSER", nullptr, "USB", HubId, "photon3"},
    {"photon3", "USB\\VID_2B04&PID_C006\\3E0033", "USB\\VID_2B04&PID_C006&MI_03\\6&8&0&0003", "1-7-39", "usbser", "\\Device\\USBSER", nullptr, "USB", HubId, "photon0"},
    {"ecdm", "USB\\VID_2C7C&PID_0125\\6&1&0&40", "USB\\VID_2C7C&PID_0125&MI_00\\A&9F4DAC1&0&0000", "1-7-40", "qcusbser", nullptr, "Quectel USB DM Port", "USB", HubId, "ecnmea ecat ecmodem"},
    {"ecnmea", "USB\\VID_2C7C&PID_0125\\6&1&0&40", "USB\\VID_2C7C&PID_0125&MI_01\\A&9F4DAC1&0&0001", "1-7-40", "qcusbser", nullptr, "Quectel USB NMEA Port", "USB", HubId, "ecdm ecat ecmodem"},
    {"ecat", "USB\\VID_2C7C&PID_0125\\6&1&0&40", "USB\\VID_2C7C&PID_0125&MI_02\\A&9F4DAC1&0&0002", "1-7-40", "qcusbser", nullptr, "Quectel USB AT Port", "USB", HubId, "ecdm ecnmea ecmodem"},
    {"ecmodem", "USB\\VID_2C7C&PID_0125\\6&1&0&40", "USB\\VID_2C7C&PID_0125&MI_03\\A&9F4DAC1&0&0003", "1-7-40", "qcmdm", nullptr, "Quectel USB Modem", "USB", HubId, "ecdm ecnmea ecat"},
    {"oemat", "USB\\VID_2CA3&PID_4006\\6&1&0&41", "USB\\VID_2CA3&PID_4006&MI_02\\A&9F4DAC1&0&0002", "1-7-41", "qcusbser", nullptr, "Quectel USB AT Port", "USB", HubId, ""},
    {"sierra", "USB\\VID_1199&PID_9071\\LF1", "USB\\VID_1199&PID_9071&MI_02\\6&1D988AEC&0&0002", "1-7-42", nullptr, nullptr, "Sierra Wireless Snapdragon X7 LTE-A NMEA Port", "USB", HubId, ""},
    {"qcdiag", "USB\\VID_05C6&PID_9000\\6&1&0&43", "USB\\VID_05C6&PID_9000&MI_00\\7&9&0&0000", "1-7-43", "qcwdfserial", nullptr, "Qualcomm HS-USB Diagnostics 9000", "USB", HubId, "qcnmea qcmodem qdl"},
    {"qcnmea", "USB\\VID_05C6&PID_9000\\6&1&0&43", "USB\\VID_05C6&PID_9000&MI_01\\7&9&0&0001", "1-7-43", "qcwdfserial", nullptr, "Qualcomm HS-USB NMEA 9000", "USB", HubId, "qcdiag qcmodem qdl"},
    {"qcmodem", "USB\\VID_05C6&PID_9000\\6&1&0&43", "USB\\VID_05C6&PID_9000&MI_02\\7&9&0&0002", "1-7-43", "Modem", nullptr, "Qualcomm HS-USB Modem 9000", "USB", HubId, "qcdiag qcnmea qdl"},
    {"qdl", "", "USB\\VID_05C6&PID_9008\\6&1&0&44", "1-7-44", "qcwdfserial", nullptr, "Qualcomm HS-USB QDLoader 9008", "USB", HubId, ""},
    {"telit", "USB\\VID_1BC7&PID_1201\\0123", "USB\\VID_1BC7&PID_1201&MI_04\\7&10&0&0004", "1-7-45", nullptr, nullptr, "Telit Serial Auxiliary Interface", "USB", HubId, ""},
    {"laser", "", "USB\\VID_25DC&PID_0006\\000013245678", "1-8", "usbser", "\\Device\\USBSER", "Cobolt Laser", "USB", Root, ""},
    // clang-format on
};

// Of these only the device that carries the ports is known, or a port that no class of Windows' own lists.
static const char* const NoPorts[] = {
    "USB\\VID_9710&PID_7840\\6&1&0&48",
    "USB\\VID_110A&PID_1150\\6&1&0&46",
    "USB\\VID_1608&PID_0240\\6&1&0&47",
    "USB\\VID_303A&PID_1001&MI_02\\9&783726D&1&0002",
    "COM0COM\\PORT\\CNCB1",
};

namespace {
struct Bench {
    machine::DevicesDescription description;
    std::map<std::string, std::size_t> places;

    // Describes a device once; the parent may be left to the enumerator.
    machine::DeviceDescription& Add(const std::string& id, const std::string& parent = "", unsigned hubPort = 0) {
        const auto [place, isNew] = places.try_emplace(id, description.devices.size());
        if (isNew) {
            machine::DeviceDescription& device = description.devices.emplace_back();
            device.id = id;
            if (!parent.empty()) {
                device.parent = parent;
            }
            if (hubPort) {
                device.hubPort = hubPort;
            }
        }
        return description.devices[place->second];
    }
    void AddRow(const Row& row) {
        const std::string usbPort = row.usbPort;
        const auto hubPort =
            usbPort.empty() ? 0u : static_cast<unsigned>(std::stoul(usbPort.substr(usbPort.rfind('-') + 1)));
        std::string parent = row.id[0] == 'B' || usbPort.empty() ? "" : row.sameParent;
        std::istringstream above(row.above);
        for (std::string id; std::getline(above, id, '>'); parent = id) {
            if (!usbPort.empty()) {
                Add(id, parent, parent == row.sameParent ? hubPort : 0);
            }
        }
        Add(row.id, parent, parent == row.sameParent && *row.above == 0 ? hubPort : 0);
    }
};
} // namespace

static void DescribeTheMachine(Bench& bench) {
    bench.Add("ACPI_HAL\\PNP0C08\\0").service = "ACPI";
    bench.Add("ACPI\\PNP0A08\\0").service = "pci";
    bench.Add("PCI\\VEN_8086&DEV_9D4E&SUBSYS_00000000&REV_21\\3&11583659&0&F8").service = "msisadrv";
    for (const std::string& id : {BridgeId, CardBus}) {
        bench.Add(id).service = "pci";
    }
    bench.Add(CardId, BridgeId);
    bench.Add("PCI\\VEN_15AD&DEV_0779&SUBSYS_077915AD&REV_00&CC_0C0330\\3&11583659&0&A8");
    bench.Add(Root, "PCI\\VEN_15AD&DEV_0779&SUBSYS_077915AD&REV_00&CC_0C0330\\3&11583659&0&A8");
    const std::string middleHub = DockHub + "3";
    for (const auto& [id, parent, port] : {std::tuple(DockHub, Root, 1u), std::tuple(middleHub, DockHub, 3u),
                                           std::tuple(DeepHub, middleHub, 4u), std::tuple(HubId, Root, 7u)}) {
        bench.Add(id, parent, port).kind = machine::DeviceKind::Hub;
    }
    bench.Add(Radio, Root, 2).service = "BTHUSB";
    bench.Add("BTH\\MS_BTHBRB\\8&20f38eb4&0&1", Radio);
    bench.Add(Emulator).hardwareId = {"root\\com0com"};
    machine::DeviceDescription& bus = bench.Add("USB\\VID_10C4&PID_EA60\\0002", HubId, 17); // the driver of 2006
    bus.kind = machine::DeviceKind::Usb;
    bus.service = "slabbus";
    bench.Add("USB\\VID_1234&PID_5678\\ABC", HubId, 18).kind = machine::DeviceKind::Port; // any device of the class
    machine::DeviceDescription& ownClass = bench.Add(NoPorts[4]);
    ownClass.className = "CNCPorts";
    ownClass.portName = "CNCB1";
    bench.Add(NoPorts[1], HubId, 46);
    bench.Add(NoPorts[2], HubId, 47);
}

static DWORD NodeOf(const std::string& id) {
    const machine::DeviceNode* node = id.empty() ? nullptr : machine::TheDeviceTree().FindById(id);
    return node != nullptr ? node->number : 0;
}

// One byte a level, the level nearest the root in the highest one.
static ULONGLONG ChainOf(const std::string& usbPort) {
    ULONGLONG chain = 0;
    int shift = 56;
    std::istringstream levels(usbPort);
    for (std::string level; std::getline(levels, level, '-'); shift -= 8) {
        chain |= static_cast<ULONGLONG>(std::stoul(level)) << shift;
    }
    return chain;
}

static bool IsCounted(const std::string& name, const std::string& kernel) {
    return name.substr(0, kernel.size()) == kernel && name.size() > kernel.size() &&
           name.find_first_not_of("0123456789", kernel.size()) == std::string::npos;
}

TEST(CataloguePorts, EachKnownDeviceIsSeenAsItsIdAndItsPlaceTell) {
    Bench bench;
    DescribeTheMachine(bench);
    for (const Row& row : Rows) {
        bench.AddRow(row);
    }
    bench.Add(NoPorts[0], HubId, 48);
    bench.Add(NoPorts[3], "USB\\VID_303A&PID_1001\\24:58:7C:DE:81:C8");
    ASSERT_EQ(machine::BuildDevices(bench.description), "");

    g_pUsbRoothubs = new CUsbRoothubs;
    g_pUsbRoothubs->CreateSnapshot();
    g_pUsbHubs = new CUsbHubs;
    ASSERT_EQ(g_pUsbHubs->CreateSnapshot(), 1);
    CComPorts* table = inventorytest::NewTable();
    ASSERT_EQ(table->CreateSnapshot(0), static_cast<int>(std::size(Rows)));

    std::map<LONG, std::string> tags;
    for (const Row& row : Rows) {
        tags[table->FindPortIdxByDevInst(NodeOf(row.id))] = row.tag;
    }
    ASSERT_EQ(tags.count(NoPort), 0u) << tags[NoPort];
    for (const Row& row : Rows) {
        SCOPED_TRACE(row.tag);
        const CComPort& port = *table->Ports[table->FindPortIdxByDevInst(NodeOf(row.id))];
        const bool isModem = std::string(row.text != nullptr ? row.text : "").find("Modem") != std::string::npos;
        EXPECT_STREQ(port.Class, isModem ? "Modem" : "Ports");
        EXPECT_STREQ(port.Service, row.service != nullptr ? row.service : "");
        EXPECT_TRUE(row.kernel == nullptr || IsCounted(port.szKernelNameCom, row.kernel)) << port.szKernelNameCom;
        EXPECT_TRUE(row.text == nullptr || port.FriendlyNameNoCom == std::string(row.text)) << port.FriendlyName;
        EXPECT_EQ(port.FriendlyName, std::string(port.FriendlyNameNoCom) + " (" + port.szPortName + ")");
        EXPECT_STREQ(port.BusTypeName, row.bus);
        EXPECT_STREQ(port.UsbPort, row.usbPort);
        EXPECT_EQ(port.UsbPortChain, ChainOf(row.usbPort));
        EXPECT_EQ(port.SameParentDevInst, NodeOf(row.sameParent));
        std::set<std::string> group;
        for (LONG i = 1; i < port.SameParentCount; ++i) {
            group.insert(tags[port.Same[i]]);
        }
        std::istringstream wanted(row.group);
        const std::set<std::string> expected{std::istream_iterator<std::string>(wanted), {}};
        EXPECT_EQ(group, expected);
        EXPECT_EQ(port.Same[0], port.Index);
    }
    for (const char* id : NoPorts) {
        EXPECT_NE(NodeOf(id), 0u) << id;
        EXPECT_EQ(table->FindPortIdxByDevInst(NodeOf(id)), NoPort) << id;
    }

    std::reverse(table->Ports, table->Ports + table->PortCount);
    std::sort(table->Ports, table->Ports + table->PortCount,
              [](const CComPort* a, const CComPort* b) { return ComparePortsByPosition(&a, &b) < 0; });
    for (LONG i = 0; i < table->PortCount; ++i) {
        EXPECT_STREQ(table->Ports[i]->DeviceID, Rows[i].id) << "at place " << i;
    }
}
