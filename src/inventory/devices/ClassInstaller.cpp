#include "inventory/devices/ClassInstaller.h"

#include "support/log/LogFile.h"

constexpr DWORD InstallWaitMs = 5000;

// Some vendors' installers check the size.
static_assert(sizeof(SP_PROPCHANGE_PARAMS) == 20);

void WaitForPendingInstalls(const char* announcement) {
    WriteLog(1, "%s", announcement);
    const DWORD waitResult = CMP_WaitNoPendingInstallEvents(InstallWaitMs);
    WriteLog(1, "waitres=%u", waitResult);
}

int SetStateChange(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD stateChange) {
    SP_PROPCHANGE_PARAMS params = {};
    params.ClassInstallHeader.cbSize = sizeof(params.ClassInstallHeader);
    params.ClassInstallHeader.InstallFunction = DIF_PROPERTYCHANGE;
    params.StateChange = stateChange;
    params.Scope = DICS_FLAG_GLOBAL;
    params.HwProfile = 0;
    return SetupDiSetClassInstallParamsA(list, device, &params.ClassInstallHeader, sizeof(params)) ? 1 : 0;
}

int CallPropertyChange(HDEVINFO list, SP_DEVINFO_DATA* device) {
    return SetupDiCallClassInstaller(DIF_PROPERTYCHANGE, list, device) ? 1 : 0;
}

int ChangeDeviceState(HDEVINFO list, SP_DEVINFO_DATA* device, DWORD stateChange) {
    return SetStateChange(list, device, stateChange) && CallPropertyChange(list, device);
}
