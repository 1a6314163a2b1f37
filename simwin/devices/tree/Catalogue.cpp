#include "simwin/devices/tree/Catalogue.h"

#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"

#include <fmt/format.h>

namespace machine {

constexpr DeviceKind Port = DeviceKind::Port;
constexpr DeviceKind Modem = DeviceKind::Modem;
constexpr DeviceKind Controller = DeviceKind::Controller;
constexpr DeviceKind RootHub = DeviceKind::RootHub;
constexpr DeviceKind Usb = DeviceKind::Usb;
constexpr DeviceKind Composite = DeviceKind::Composite;
constexpr DeviceKind Other = DeviceKind::Other;

constexpr const char* UsbSer = "\\Device\\USBSER000";
constexpr const char* Silabs = "\\Device\\Silabser0";

// As found on machines and in the drivers' setup files. Rows of one maker are grouped, the special before the general.
constexpr CatalogueEntry Entries[] = {
    // FTDI: a bus driver's device on the hub, its ports below it
    {"FTDIBUS\\*", Port, "Ports", "FTSER2K", nullptr, "USB Serial Port", "\\Device\\VCP0", nullptr},
    {"USB\\VID_0403&PID_6010&MI_00\\*", Other, "USB", "FTDIBUS", nullptr, "USB Serial Converter A", nullptr, nullptr},
    {"USB\\VID_0403&PID_6010&MI_01\\*", Other, "USB", "FTDIBUS", nullptr, "USB Serial Converter B", nullptr, nullptr},
    {"USB\\VID_0403&PID_6011&MI_00\\*", Other, "USB", "FTDIBUS", nullptr, "USB Serial Converter A", nullptr, nullptr},
    {"USB\\VID_0403&PID_6011&MI_01\\*", Other, "USB", "FTDIBUS", nullptr, "USB Serial Converter B", nullptr, nullptr},
    {"USB\\VID_0403&PID_6011&MI_02\\*", Other, "USB", "FTDIBUS", nullptr, "USB Serial Converter C", nullptr, nullptr},
    {"USB\\VID_0403&PID_6011&MI_03\\*", Other, "USB", "FTDIBUS", nullptr, "USB Serial Converter D", nullptr, nullptr},
    {"USB\\VID_0403&PID_6010\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_0403&PID_6011\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_0403&PID_*", Usb, "USB", "FTDIBUS", nullptr, "USB Serial Converter", nullptr, nullptr},
    // Prolific, WCH
    {"USB\\VID_067B&PID_2304\\*", Port, "Ports", "Ser2pl", "Ser2plx86", "Prolific USB-to-Serial Comm Port",
     "\\Device\\ProlificSerial0", nullptr},
    {"USB\\VID_067B&PID_23?3\\*", Port, "Ports", "Ser2pl", "Ser2plx86", "Prolific USB-to-Serial Comm Port",
     "\\Device\\ProlificSerial0", nullptr},
    {"USB\\VID_067B&PID_2303\\*", Port, "Ports", "Ser2pl", "Ser2plx86", "Prolific USB-to-Serial Comm Port",
     "\\Device\\ProlificSerial0", nullptr},
    {"USB\\VID_1A86&PID_7523\\*", Port, "Ports", "CH341SER_A64", "CH341SER", "USB-SERIAL CH340", "\\Device\\Serial1",
     nullptr},
    {"USB\\VID_1A86&PID_7522\\*", Port, "Ports", "CH341SER_A64", "CH341SER", "USB-SERIAL CH340K", "\\Device\\Serial1",
     nullptr},
    {"USB\\VID_1A86&PID_5523\\*", Port, "Ports", "CH341SER_A64", "CH341SER", "USB-SERIAL CH341", "\\Device\\Serial1",
     nullptr},
    {"USB\\VID_1A86&PID_55D4\\*", Port, "Ports", nullptr, nullptr, "USB-Enhanced-SERIAL CH9102", nullptr, nullptr},
    {"USB\\VID_1A86&PID_55D3\\*", Port, "Ports", nullptr, nullptr, "USB-Enhanced-SERIAL CH343", nullptr, nullptr},
    // Silicon Labs
    {"USB\\VID_10C4&PID_EA60&MI_00&OS_NT\\*", Port, "Ports", "slabser", nullptr, "CP210x USB to UART Bridge Controller",
     "\\Device\\slabser0", nullptr},
    {"USB\\VID_10C4&PID_EA60\\*", Port, "Ports", "silabser", nullptr, "Silicon Labs CP210x USB to UART Bridge", Silabs,
     nullptr},
    {"USB\\VID_10C4&PID_EA70&MI_00\\*", Port, "Ports", "silabser", nullptr,
     "Silicon Labs Dual CP2105 USB to UART Bridge: Enhanced COM Port", Silabs, nullptr},
    {"USB\\VID_10C4&PID_EA70&MI_01\\*", Port, "Ports", "silabser", nullptr,
     "Silicon Labs Dual CP2105 USB to UART Bridge: Standard COM Port", Silabs, nullptr},
    {"USB\\VID_10C4&PID_EA71&MI_00\\*", Port, "Ports", "silabser", nullptr,
     "Silicon Labs Quad CP2108 USB to UART Bridge: Interface 0", Silabs, nullptr},
    {"USB\\VID_10C4&PID_EA71&MI_01\\*", Port, "Ports", "silabser", nullptr,
     "Silicon Labs Quad CP2108 USB to UART Bridge: Interface 1", Silabs, nullptr},
    {"USB\\VID_10C4&PID_EA71&MI_02\\*", Port, "Ports", "silabser", nullptr,
     "Silicon Labs Quad CP2108 USB to UART Bridge: Interface 2", Silabs, nullptr},
    {"USB\\VID_10C4&PID_EA71&MI_03\\*", Port, "Ports", "silabser", nullptr,
     "Silicon Labs Quad CP2108 USB to UART Bridge: Interface 3", Silabs, nullptr},
    {"USB\\VID_10C4&PID_EA70\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_10C4&PID_EA71\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    // Boards and instruments with the driver that comes with Windows
    {"USB\\VID_2341&PID_0043\\*", Port, "Ports", "usbser", nullptr, "Arduino Uno", UsbSer, nullptr},
    {"USB\\VID_2341&PID_0001\\*", Port, "Ports", "usbser", nullptr, "Arduino Uno", UsbSer, nullptr},
    {"USB\\VID_2341&PID_0010\\*", Port, "Ports", "usbser", nullptr, "Arduino Mega 2560", UsbSer, nullptr},
    {"USB\\VID_2341&PID_0042\\*", Port, "Ports", "usbser", nullptr, "Arduino Mega 2560", UsbSer, nullptr},
    {"USB\\VID_2341&PID_003D\\*", Port, "Ports", "usbser", nullptr, "Arduino Due Programming Port", UsbSer, nullptr},
    {"USB\\VID_2341&PID_8036&MI_00\\*", Port, "Ports", "usbser", nullptr, "Arduino Leonardo", UsbSer, nullptr},
    {"USB\\VID_2341&PID_0036\\*", Port, "Ports", "usbser", nullptr, "Arduino Leonardo bootloader", UsbSer, nullptr},
    {"USB\\VID_2341&PID_804E&MI_00\\*", Port, "Ports", "usbser", nullptr, "Arduino MKR1000", UsbSer, nullptr},
    {"USB\\VID_2341&PID_004E\\*", Port, "Ports", "usbser", nullptr, "Arduino MKR1000 bootloader", UsbSer, nullptr},
    {"USB\\VID_2341&PID_804D&MI_00\\*", Port, "Ports", "usbser", nullptr, "Arduino Zero", UsbSer, nullptr},
    {"USB\\VID_2341&PID_004D\\*", Port, "Ports", "usbser", nullptr, "Arduino Zero bootloader", UsbSer, nullptr},
    {"USB\\VID_2341&PID_8036\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_2341&PID_804E\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_2341&PID_804D\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_16C0&PID_0483\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_239A&PID_????&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_239A&PID_????&MI_*", Other, "USBDevice", nullptr, nullptr, "USB Input Device", nullptr, nullptr},
    {"USB\\VID_239A&PID_????\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_16C0&PID_048B&MI_0?\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_16C0&PID_048B\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_2E8A&PID_0009&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_2E8A&PID_0009\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_2E8A&PID_000A\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_2E8A&PID_0005&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_2E8A&PID_0005\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_303A&PID_0002&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_303A&PID_0002\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_303A&PID_1001&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_303A&PID_1001&MI_02\\*", Other, "USBDevice", "WinUSB", nullptr, "USB JTAG/serial debug unit", nullptr,
     nullptr},
    {"USB\\VID_303A&PID_1001\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_0483&PID_374B&MI_02\\*", Port, "Ports", "usbser", nullptr, "STMicroelectronics STLink Virtual COM Port",
     UsbSer, nullptr},
    {"USB\\VID_0483&PID_374C&MI_01\\*", Port, "Ports", "usbser", nullptr, "STMicroelectronics STLink Virtual COM Port",
     UsbSer, nullptr},
    {"USB\\VID_0483&PID_374B&MI_00\\*", Other, "USBDevice", "WinUSB", nullptr, "ST-Link Debug", nullptr, nullptr},
    {"USB\\VID_0483&PID_374B&MI_01\\*", Other, "USB", "USBSTOR", nullptr, "USB Mass Storage Device", nullptr, nullptr},
    {"USB\\VID_0483&PID_374?\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_0483&PID_5740\\*", Port, "Ports", "usbser", nullptr, "STMicroelectronics Virtual COM Port", UsbSer,
     nullptr},
    {"USB\\VID_1EAF&PID_0004\\*", Port, "Ports", "usbser", nullptr, "Maple Serial", UsbSer, nullptr},
    {"USB\\VID_1366&PID_1015&MI_00\\*", Port, "Ports", nullptr, nullptr, "JLink CDC UART Port", nullptr, nullptr},
    {"USB\\VID_1366&PID_????\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_1915&PID_C00A&MI_01\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_1915&PID_522A&MI_0?\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_1915&PID_C00A\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_1915&PID_520F\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_04D8&PID_00DF&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Port", UsbSer, nullptr},
    {"USB\\VID_04D8&PID_00DF&MI_02\\*", Other, "HIDClass", "HidUsb", nullptr, "USB Input Device", nullptr, nullptr},
    {"USB\\VID_04D8&PID_00DF\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_04E2&PID_1410\\*", Port, "Ports", nullptr, nullptr, "XR21V1410 USB UART", nullptr, nullptr},
    {"USB\\VID_04E2&PID_141?&MI_0?\\*", Port, "Ports", nullptr, nullptr, "XR21V141x USB UART", nullptr, nullptr},
    {"USB\\VID_04E2&PID_141?\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_9710&PID_7???\\*", Usb, "MultiportSerial", nullptr, nullptr, "MosChip USB Serial Adapter", nullptr,
     nullptr},
    {"USB\\VID_1546&PID_01A?\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_05E0&PID_1701\\*", Port, "Ports", "usbser", nullptr, "USB CDC Scanner", UsbSer, nullptr},
    {"USB\\VID_1D50&PID_6018&MI_00\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_1D50&PID_6018&MI_02\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_1D50&PID_6018\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_1FFB&PID_00B0&MI_01\\*", Port, "Ports", "usbser", nullptr,
     "Pololu USB AVR Programmer v2 Programming Port", UsbSer, nullptr},
    {"USB\\VID_1FFB&PID_00B0&MI_03\\*", Port, "Ports", "usbser", nullptr,
     "Pololu USB AVR Programmer v2 TTL Serial Port", UsbSer, nullptr},
    {"USB\\VID_1FFB&PID_00B0\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_0D28&PID_0204&MI_01\\*", Port, "Ports", nullptr, nullptr, "mbed Serial Port", nullptr, nullptr},
    {"USB\\VID_0D28&PID_0204\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_03EB&PID_2111&MI_01\\*", Port, "Ports", "usbser", nullptr, "Atmel Corp. EDBG CMSIS-DAP", UsbSer,
     nullptr},
    {"USB\\VID_03EB&PID_2111\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_25DC&PID_0006\\*", Port, "Ports", "usbser", nullptr, "Cobolt Laser", UsbSer, nullptr},
    {"USB\\VID_2207&PID_0018&MI_04\\*", Port, "Ports", "usbser", nullptr, "USB Serial Device", UsbSer, nullptr},
    {"USB\\VID_2207&PID_0018\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_9AC4&PID_4B8F\\*", Port, "Ports", "usbser", nullptr, "Proxmark3", UsbSer, nullptr},
    {"USB\\VID_2B04&PID_C006&MI_00\\*", Port, "Ports", "usbser", nullptr, nullptr, UsbSer, nullptr},
    {"USB\\VID_2B04&PID_C006&MI_03\\*", Port, "Ports", "usbser", nullptr, nullptr, UsbSer, nullptr},
    {"USB\\VID_2B04&PID_C006\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    // Mobile modems
    {"USB\\VID_2C7C&PID_0???&MI_00\\*", Port, "Ports", "qcusbser", nullptr, "Quectel USB DM Port", nullptr, nullptr},
    {"USB\\VID_2C7C&PID_0???&MI_01\\*", Port, "Ports", "qcusbser", nullptr, "Quectel USB NMEA Port", nullptr, nullptr},
    {"USB\\VID_2C7C&PID_0???&MI_02\\*", Port, "Ports", "qcusbser", nullptr, "Quectel USB AT Port", nullptr, nullptr},
    {"USB\\VID_2C7C&PID_0???&MI_03\\*", Modem, "Modem", "qcmdm", nullptr, "Quectel USB Modem", nullptr, nullptr},
    {"USB\\VID_2C7C&PID_0???&MI_04\\*", Other, "Net", "qcusbwwan", nullptr, "Quectel Wireless Ethernet Adapter",
     nullptr, nullptr},
    {"USB\\VID_2C7C&PID_0???\\*", Composite, "USB", "usbccgp", nullptr, "Quectel USB Composite Device (0028)", nullptr,
     nullptr},
    {"USB\\VID_2CA3&PID_4006&MI_00\\*", Port, "Ports", "qcusbser", nullptr, "Quectel USB DM Port", nullptr, nullptr},
    {"USB\\VID_2CA3&PID_4006&MI_01\\*", Port, "Ports", "qcusbser", nullptr, "Quectel USB NMEA Port", nullptr, nullptr},
    {"USB\\VID_2CA3&PID_4006&MI_02\\*", Port, "Ports", "qcusbser", nullptr, "Quectel USB AT Port", nullptr, nullptr},
    {"USB\\VID_2CA3&PID_4006\\*", Composite, "USB", "usbccgp", nullptr, "Quectel USB Composite Device (0028)", nullptr,
     nullptr},
    {"USB\\VID_1199&PID_9071&MI_02\\*", Port, "Ports", nullptr, nullptr,
     "Sierra Wireless Snapdragon X7 LTE-A NMEA Port", nullptr, nullptr},
    {"USB\\VID_1199&PID_9071\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_05C6&PID_9000&MI_00\\*", Port, "Ports", "qcwdfserial", nullptr, "Qualcomm HS-USB Diagnostics 9000",
     nullptr, nullptr},
    {"USB\\VID_05C6&PID_9000&MI_01\\*", Port, "Ports", "qcwdfserial", nullptr, "Qualcomm HS-USB NMEA 9000", nullptr,
     nullptr},
    {"USB\\VID_05C6&PID_9000&MI_02\\*", Modem, "Modem", "Modem", nullptr, "Qualcomm HS-USB Modem 9000", nullptr,
     nullptr},
    {"USB\\VID_05C6&PID_9008\\*", Port, "Ports", "qcwdfserial", nullptr, "Qualcomm HS-USB QDLoader 9008", nullptr,
     nullptr},
    {"USB\\VID_05C6&PID_9000\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    {"USB\\VID_1BC7&PID_120?&MI_0?\\*", Port, "Ports", nullptr, nullptr, "Telit Serial Auxiliary Interface", nullptr,
     nullptr},
    {"USB\\VID_1BC7&PID_120?\\*", Composite, "USB", "usbccgp", nullptr, "USB Composite Device", nullptr, nullptr},
    // Bluetooth
    {"BTHENUM\\{00001101-0000-1000-8000-00805F9B34FB}_*", Port, "Ports", "BTHMODEM", nullptr,
     "Standard Serial over Bluetooth link", "\\Device\\BthModem0", nullptr},
    {"BTH\\MS_BTHBRB\\*", Other, "Bluetooth", "BthEnum", nullptr, "Microsoft Bluetooth Enumerator", nullptr, nullptr},
    {"BTH\\MS_RFCOMM\\*", Other, "Bluetooth", "RFCOMM", nullptr, "Bluetooth Device (RFCOMM Protocol TDI)", nullptr,
     nullptr},
    // On board, PCI, PC Card
    {"ACPI\\PNP0501\\*", Port, "Ports", "Serial", nullptr, "Communications Port", "\\Device\\Serial0", "ACPI\\PNP0501"},
    {"ACPI\\PNP0502\\*", Port, "Ports", "Serial", nullptr, "Communications Port", "\\Device\\Serial0", "ACPI\\PNP0502"},
    {"ROOT\\*PNP0501\\*", Port, "Ports", "Serial", nullptr, "Communications Port", "\\Device\\Serial0", nullptr},
    {"ACPI\\PNP0400\\*", Port, "Ports", "Parport", nullptr, "Printer Port", "\\Device\\Parallel0", "ACPI\\PNP0400"},
    {"ACPI\\PNP0401\\*", Port, "Ports", "Parport", nullptr, "ECP Printer Port", "\\Device\\Parallel0", "ACPI\\PNP0401"},
    {"PCI\\VEN_8086&DEV_02E3&*", Port, "Ports", nullptr, nullptr, "Intel(R) Active Management Technology - SOL",
     nullptr, nullptr},
    {"PCI\\VEN_131F&DEV_2000&*", Port, "Ports", "Serial", nullptr, "SIIG CyberSerial Card", "\\Device\\Serial1",
     "PCI\\VEN_131F&DEV_2000&CC_0700"},
    {"PCI\\VEN_9710&DEV_9???&*", Port, "Ports", nullptr, nullptr, "PCI Serial Port", nullptr, nullptr},
    {"PCI\\VEN_18F7&DEV_0004&*", Other, "MultiportSerial", "mf", nullptr, "Multiport Serial Adapter", nullptr, nullptr},
    {"MF\\PCI#VEN_18F7&DEV_0004&*", Port, "Ports", "Serial", nullptr, "Communications Port", "\\Device\\Serial1",
     "SerialFC\\Port1"},
    {"MF\\*", Port, "Ports", "Serial", nullptr, "Communications Port", "\\Device\\Serial1", nullptr},
    {"PCMCIA\\Quatech*", Port, "Ports", "Serial", nullptr, "Quatech Q-Lynx Serial Adapter", "\\Device\\Serial1",
     nullptr},
    // External multiport, virtual
    {"USB\\VID_110A&PID_????\\*", Usb, "MultiportSerial", nullptr, nullptr, "MOXA UPort", nullptr, nullptr},
    {"COM0COM\\PORT\\CNCA*", Port, "Ports", "com0com", nullptr, "com0com - serial port emulator", "\\Device\\com0com10",
     "com0com\\comport"},
    {"COM0COM\\PORT\\CNCB*", Port, "Ports", "com0com", nullptr, "com0com - serial port emulator", "\\Device\\com0com20",
     "com0com\\comport"},
    {"ROOT\\PORTS\\*", Port, "Ports", nullptr, nullptr, "VComTunnel Virtual Serial Port", nullptr, nullptr},
    // The USB tree itself
    {"USB\\ROOT_HUB*", RootHub, "USB", nullptr, nullptr, nullptr, nullptr, nullptr},
    {"PCI\\*&CC_0C03*", Controller, "USB", nullptr, nullptr, nullptr, nullptr, nullptr},
};

namespace {
// The sources of the facts, by the beginning of the pattern.
struct CatalogueSource {
    const char* start;
    const char* source;
};
constexpr CatalogueSource Sources[] = {
    {"FTDIBUS", "ftdibus.inf and ftdiport.inf of the maker, captured ids"},
    {"USB\\VID_0403", "ftdibus.inf of the maker, captured ids"},
    {"USB\\VID_067B&PID_2303", "ser2pl.inf of the maker"},
    {"USB\\VID_067B", "from memory of the table of Linux's pl2303 driver, not checked"},
    {"USB\\VID_1A86&PID_55D", "from memory, not checked; the maker's service is not known"},
    {"USB\\VID_1A86&PID_7522", "from memory of the table of Linux's ch341 driver, not checked"},
    {"USB\\VID_1A86", "captured; the table of Linux's ch341 driver"},
    {"USB\\VID_10C4", "slabvcp.inf and slabbus.inf of the maker, captured ids"},
    {"USB\\VID_2341", "arduino.inf, captured ids"},
    {"USB\\VID_239A", "from memory of boards and their firmware, not checked: serial first, then storage and input"},
    {"USB\\VID_04D8", "from memory of the maker's data sheet, not checked: serial and input interface"},
    {"USB\\VID_04E2",
     "from memory of the table of Linux's xr_serial driver, not checked; the maker's service is not known"},
    {"USB\\VID_9710",
     "from memory of the table of Linux's mos7840 driver, not checked; the maker's service is not known"},
    {"PCI\\VEN_9710", "captured hardware id; the rest from memory, not checked; the maker's service is not known"},
    {"USB\\VID_1546", "from memory, not checked; class CDC ACM, served by usbser.inf of Windows 10"},
    {"USB\\VID_05E0", "from memory, not checked; class CDC ACM, served by usbser.inf of Windows 10"},
    {"USB\\VID_1915&PID_520F", "from memory, not checked; class CDC ACM, served by usbser.inf of Windows 10"},
    {"USB\\VID_303A&PID_0002", "from memory, not checked; class CDC ACM, served by usbser.inf of Windows 10"},
    {"USB\\VID_16C0&PID_048B", "from memory, not checked; class CDC ACM, served by usbser.inf of Windows 10"},
    {"USB\\VID_2E8A&PID_0009", "from memory, not checked; class CDC ACM, served by usbser.inf of Windows 10"},
    {"USB\\VID_0483", "stlink_VCP.inf, captured ids"},
    {"USB\\VID_2C7C", "captured from one module; that the others have its layout is from memory, not checked"},
    {"USB\\VID_2CA3", "captured"},
    {"USB\\VID_1199", "captured"},
    {"USB\\VID_05C6", "qcwdfser.inf and qcwdfmdm.inf of the maker"},
    {"USB\\VID_1BC7", "public samples; the maker's service is not known"},
    {"USB\\VID_110A", "captured hardware ids; service and kernel name are not known"},
    {"USB\\VID_1366", "captured; the maker's service is not known"},
    {"USB\\VID_0D28", "captured; the maker's service is not known"},
    {"USB\\VID_", "captured ids, or the board's own INF for usbser"},
    {"USB\\ROOT_HUB", "usbport.inf and usbhub3.inf of Windows"},
    {"BTH", "bthspp.inf of Windows, captured ids"},
    {"ACPI", "msports.inf of Windows, captured"},
    {"ROOT\\*PNP", "msports.inf of Windows"},
    {"PCI\\VEN_18F7", "serialfc.inf of the maker"},
    {"MF", "serialfc.inf of the maker, mf.inf of Windows"},
    {"COM0COM", "comport.inf of the emulator, captured ids"},
    {"PC", "msports.inf and usbport.inf of Windows, captured ids"},
    {"ROOT\\PORTS", "captured"},
};

struct SetupClass {
    const char* name;
    const char* guid;
};
} // namespace
constexpr SetupClass SetupClasses[] = {
    {"Ports", "{4d36e978-e325-11ce-bfc1-08002be10318}"},
    {"Modem", "{4d36e96d-e325-11ce-bfc1-08002be10318}"},
    {"USB", "{36fc9e60-c465-11cf-8056-444553540000}"},
    {"System", "{4d36e97d-e325-11ce-bfc1-08002be10318}"},
    {"Net", "{4d36e972-e325-11ce-bfc1-08002be10318}"},
    {"MultiportSerial", "{50906cb8-ba12-11d1-bf5d-0000f805f530}"},
    {"CNCPorts", "{df799e12-3c56-421b-b298-b6d3642bc878}"},
    {"Bluetooth", "{e0cbf06c-cd8b-4647-bb8a-263b43f0f974}"},
    {"HIDClass", "{745a17a0-74d3-11d0-b6fe-00a0c90f57da}"},
    {"USBDevice", "{88bae032-5a81-49f0-bc3d-a4ff138216d6}"},
    {"Unknown", "{4d36e97e-e325-11ce-bfc1-08002be10318}"},
};

constexpr SetupClass InterfaceClasses[] = {
    {"comport", "{86e0d1e0-8089-11d0-9ce4-08003e301f73}"}, {"modem", "{2c7089aa-2e0e-11d1-b114-00c04fc2aae4}"},
    {"hub", "{f18a0e88-c30c-11d0-8815-00a0c906bed8}"},     {"controller", "{3abf6f2d-71c4-462a-8a92-1e6861e6af27}"},
    {"usb", "{a5dcbf10-6530-11d2-901f-00c04fb951ed}"},     {"serenum", "{4d36e978-e325-11ce-bfc1-08002be10318}"},
};

constexpr const char* ClassRoot = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Class";
constexpr std::size_t GuidLength = 38;

static bool IsGuid(std::string_view text) {
    return text.size() == GuidLength && text.front() == '{' && text.back() == '}';
}

const CatalogueEntry* FindInCatalogue(std::string_view id) {
    for (const CatalogueEntry& entry : Entries) {
        if (MatchesWildcard(id, entry.pattern)) {
            return &entry;
        }
    }
    return nullptr;
}

std::string CatalogueTable() {
    const auto orDash = [](const char* text) { return text ? text : "-"; };
    std::string text = "id\tkind\tclass\tservice\tdescription\tkernel name\tsource\n";
    for (const CatalogueEntry& entry : Entries) {
        const char* source = "-";
        for (const CatalogueSource& row : Sources) {
            if (StartsWithNoCase(entry.pattern, row.start)) {
                source = row.source;
                break;
            }
        }
        text += fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}\n", entry.pattern, DeviceKindName(entry.kind),
                            orDash(entry.className), orDash(entry.service), orDash(entry.description),
                            orDash(entry.kernelName), source);
    }
    return text;
}

DeviceKind KindOf(std::string_view id, std::string_view service, std::string_view classNameOrGuid) {
    const std::string name = IsGuid(classNameOrGuid) ? SetupClassName(classNameOrGuid) : std::string(classNameOrGuid);
    if (EqualNoCase(name, "Ports") || EqualNoCase(name, "CNCPorts")) {
        return DeviceKind::Port;
    }
    if (EqualNoCase(name, "Modem")) {
        return DeviceKind::Modem;
    }
    const bool onUsb = StartsWithNoCase(id, "USB\\");
    if (onUsb && StartsWithNoCase(id, "USB\\ROOT_HUB")) {
        return DeviceKind::RootHub;
    }
    if (onUsb && FindNoCase(service, "hub") != std::string_view::npos) {
        return DeviceKind::Hub;
    }
    if (onUsb && EqualNoCase(service, "usbccgp")) {
        return DeviceKind::Composite;
    }
    if (!onUsb && EqualNoCase(name, "USB")) {
        return DeviceKind::Controller;
    }
    if (onUsb && FindNoCase(id, "&MI_") == std::string_view::npos) {
        return DeviceKind::Usb;
    }
    return DeviceKind::Other;
}

std::string SetupClassGuid(std::string_view className) {
    for (const SetupClass& known : SetupClasses) {
        if (EqualNoCase(known.name, className)) {
            return known.guid;
        }
    }
    if (const RegistryKey* root = TheRegistry().FindKey(ClassRoot)) {
        for (const auto& [guid, key] : root->subKeys) {
            if (const RegistryValue* name = key->FindValue("Class"); name && EqualNoCase(TextOf(*name), className)) {
                return Lower(guid);
            }
        }
    }
    return {};
}

std::string SetupClassName(std::string_view guid) {
    for (const SetupClass& known : SetupClasses) {
        if (EqualNoCase(known.guid, guid)) {
            return known.name;
        }
    }
    return TheRegistry().GetString(std::string(ClassRoot) + "\\" + std::string(guid), "Class");
}

std::string InterfaceClassByName(std::string_view name) {
    for (const SetupClass& known : InterfaceClasses) {
        if (EqualNoCase(known.name, name)) {
            return known.guid;
        }
    }
    return IsGuid(name) ? Lower(name) : std::string();
}

KindDefaults DefaultsOf(DeviceKind kind, const WindowsVersion& version) {
    constexpr unsigned Windows8 = 0x0602;
    constexpr std::uint32_t Removable = 0x84; // removable, surprise removal is all right
    const bool usb3 = version.Packed() >= Windows8;
    const char* hubService = usb3 ? "USBHUB3" : "usbhub";
    switch (kind) {
    case DeviceKind::Port:
        return {"Ports", "Serial", "Communications Port", "\\Device\\Serial0", 100, 0};
    case DeviceKind::Modem:
        return {"Modem", "Modem", "Standard Modem", "\\Device\\Modem0", 300, 0};
    case DeviceKind::Controller:
        return {"USB", "USBXHCI", "USB xHCI Compliant Host Controller", nullptr, 50, 0};
    case DeviceKind::RootHub:
        return {"USB", hubService, "USB Root Hub", nullptr, 50, 0x80};
    case DeviceKind::Hub:
        return {"USB", hubService, "Generic USB Hub", nullptr, 50, Removable};
    case DeviceKind::Usb:
        return {"USB", "", "USB Device", nullptr, 100, Removable};
    case DeviceKind::Composite:
        return {"USB", "usbccgp", "USB Composite Device", nullptr, 100, Removable};
    case DeviceKind::Other:
        break;
    }
    return {"System", "", "Device", nullptr, 0, 0};
}

} // namespace machine
