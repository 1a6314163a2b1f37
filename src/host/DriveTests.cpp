#include "host/DriveTests.h"

#include "support/system/SystemTools.h"

static bool IsDriveLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

ExeDrive FindExeDrive(const char* path) {
    if (!IsDriveLetter(path[0])) {
        return ExeDrive::NoDriveLetter;
    }
    const char root[] = {path[0], ':', '\\', 0};
    const UINT driveType = GetDriveTypeA(root);
    if (driveType == DRIVE_REMOTE || driveType == DRIVE_NO_ROOT_DIR || IsSubstDrive(path[0])) {
        return ExeDrive::NotLocal;
    }
    return ExeDrive::Local;
}
