// The keys of [BalloonTips] that the balloon child needs. It reads them from the INI file itself: it runs as the user,
// without the service's snapshot, and the registry source does not hold them. Thread: any, no lock.
#pragma once

#include "keys/ConfigurationKeys.h"
#include "platform/win32.h"

// The key's number, or the default when file or key does not exist.
LONG ReadBalloonKey(KeyName key, LONG defaultNumber);

struct BalloonStyles {
    bool Win11Style; // larger corners
    bool Win10Style; // the flat dark look
};

// The style keys, with defaults by the version of Windows.
BalloonStyles ReadBalloonStyles();

// Whether tool tips of other programs are dismissed at once, and kept away, instead of being waited for.
bool SuppressesForeignBalloons();
