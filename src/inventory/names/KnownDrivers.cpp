#include "inventory/names/KnownDrivers.h"

#include "support/texts/BoundedText.h"

namespace {
struct KnownDriver {
    WORD VendorId; // USB vendor id, 0 for none
    const char* ParentService;
    const char* Service;
    const char* KernelPart; // null ends the table
};
} // namespace

constexpr KnownDriver KnownDriverTable[] = {
    // clang-format off
    {0,      "msisadrv",          "Serial",            "\\Serial"},
    {0,      "mxuwdrv2",          "mxuwdrv2",          "\\mxuport"},
    {0x0403, "FTDIBUS",           "FTSER2K",           "\\VCP"},
    {0x0416, nullptr,             "Ser2pl",            "\\ProlificSerial"},
    {0x0557, nullptr,             "Ser2pl",            "\\ProlificSerial"},
    {0x0EA0, nullptr,             "SER120",            "\\Seriala"},
    {0x04E8, "sscdbus",           "Modem",             "\\sscdmdm"},
    {0x04E8, "dg_ssudbus",        "Modem",             "\\ssudmdm"},
    {0x8086, "pci",               "Modem",             "\\AgereModem"},
    {0,      "RFCOMM",            "Modem",             "\\BthModem"},
    {0,      "RFCOMM",            "BTHMODEM",          "\\BthModem"},
    {0x0BDB, "Mbm3CBus",          nullptr,             "\\Mbm3"},
    {0x0BDB, "Mbm3CBus",          nullptr,             "\\e36"},
    {0x12D1, "huawei_enumerator", "huawei_cdcacm",     "\\huawei_cdcacm_AcmSerial"},
    {0x12D1, "usbccgp",           "Modem",             "\\QCUSB_COM"},
    {0x12D1, "usbccgp",           "hwdatacard",        "\\QCUSB_COM"},
    {0x12D1, "usbccgp",           "Ports",             "\\AcmSerial_"},
    {0x12D1, "usbccgp",           "Modem",             "\\AcmSerial_"},
    {0x05C6, "usbccgp",           "cmnxusbser",        "\\QCUSB_COM"},
    {0x9710, "mos24ser_QUADPORT", "mos24ser_QUADPORT", "\\QUADPORTQuadSerial"},
    {0x9710, nullptr,             "mosuport",          "\\MosChipSerial"},
    {0,      nullptr,             "silabser",          "\\Silabser"},
    {0,      nullptr,             "usbser",            "\\USBSER"},
    {0x6547, nullptr,             "usb2vcom",          "\\Serial"},
    {0x125B, nullptr,             "StnSerial",         "\\StnSerial"},
    {0x1415, nullptr,             "OxPCIeSer",         "\\OXPCIEMF"},
    {0,      nullptr,             "evserial",          "\\VSerial"},
    {0,      nullptr,             nullptr,             nullptr},
    // clang-format on
};
static_assert(sizeof(KnownDriverTable) / sizeof(KnownDriverTable[0]) == 27 + 1);

static bool IsVendorInId(WORD vendorId, const char* deviceId) {
    if (vendorId == 0) {
        return false;
    }
    char vendorText[16];
    FormatText(vendorText, "vid_%04x&", static_cast<UINT>(vendorId));
    return StrStrIA(deviceId, vendorText) != nullptr;
}

static bool IsNamed(const char* rowText, const char* text) {
    return rowText != nullptr && lstrcmpA(rowText, text) == 0;
}

bool KernelNameFitsDriver(const char* kernelName, const char* deviceId, const char* service,
                          const char* parentService) {
    for (const KnownDriver* row = KnownDriverTable; row->KernelPart != nullptr; ++row) {
        if (StrStrA(kernelName, row->KernelPart) == nullptr) {
            continue;
        }
        if (IsVendorInId(row->VendorId, deviceId) || IsNamed(row->Service, service) ||
            IsNamed(row->ParentService, parentService)) {
            return true;
        }
    }
    return false;
}
