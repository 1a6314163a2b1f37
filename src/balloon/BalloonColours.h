// The colours of a balloon: those of the system's tool tips, or a dark fill with texts and a frame of the same hue that
// follow the user's accent colour. The arithmetic is in bytes, so results are the same everywhere.
// Thread: the first one, before the balloon thread starts.
#pragma once

#include "platform/win32.h"

struct BalloonColours {
    COLORREF CaptionColor;
    COLORREF TextColor;
    COLORREF BackColor;
    COLORREF FrameColor;
};

struct HsvColour {
    BYTE H;
    BYTE S;
    BYTE V;
};

// Hue 0 to 255 for the full circle. A byte above the three colour bytes is ignored.
HsvColour RgbToHsv(COLORREF colour);
COLORREF HsvToRgb(HsvColour colour);

// The other order of the bytes: 0xRRGGBB for 0xBBGGRR and back. The highest byte is dropped.
COLORREF SwapRedAndBlue(COLORREF colour);

// Caption, text and frame for a fill.
BalloonColours ColoursForBack(COLORREF back);

// Reads what the user has set for the desktop and the keys of [BalloonTips]. isFlat: the look without a theme of its
// own; otherwise the colours of the system's tool tips.
BalloonColours ReadBalloonColours(bool isFlat);
