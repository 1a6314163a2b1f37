#include "balloon/BalloonSettings.h"

#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"

constexpr char Section[] = "BalloonTips";
constexpr DWORD FlatMajorVersion = 10;
constexpr DWORD RoundBuildNumber = 22000;

LONG ReadBalloonKey(KeyName key, LONG defaultNumber) {
    return static_cast<LONG>(GetPrivateProfileIntA(Section, key.Text(), defaultNumber, szIniFile));
}

BalloonStyles ReadBalloonStyles() {
    const bool isFlatVersion = g_os.MajorVersion >= FlatMajorVersion;
    const bool isRoundVersion = isFlatVersion && g_os.BuildNumber >= RoundBuildNumber;
    BalloonStyles styles = {};
    styles.Win11Style = ReadBalloonKey("Win11Style", isRoundVersion ? 1 : 0) != 0;
    styles.Win10Style = styles.Win11Style || ReadBalloonKey("Win10Style", isFlatVersion ? 1 : 0) != 0;
    return styles;
}

bool SuppressesForeignBalloons() {
    return ReadBalloonKey("SuppressWindowsBalloons", /*defaultNumber=*/0) != 0;
}
