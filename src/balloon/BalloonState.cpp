#include "balloon/BalloonState.h"

CRITICAL_SECTION CS_BalloonData;
FreeBalloonInfo g_balloonInfo;
BalloonAnchor g_balloonAnchor = {0, 0, BalloonCorner::BottomRight};
BalloonPlace g_balloonPlace;
HWND volatile m_hwndBln;
volatile LONG g_balloonClosing;
DWORD g_balloonTick;
