#include "balloon/BalloonState.h"

CRITICAL_SECTION CS_BalloonData;
FreeBalloonInfo g_BalloonInfo;
BalloonAnchor g_BalloonAnchor = {0, 0, BalloonCorner::BottomRight};
BalloonPlace g_BalloonPlace;
HWND volatile m_hwndBln;
volatile LONG g_BalloonClosing;
DWORD g_BalloonTick;
