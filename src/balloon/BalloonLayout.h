// Sizes of a balloon and the arrangement of its texts. Everything that is drawn on or measured for a balloon follows
// from the look, the resolution and the texts.
// Thread: the balloon thread. Locks: CS_BalloonData where texts are read.
#pragma once

#include "balloon/BalloonColours.h"
#include "balloon/BalloonState.h"
#include "balloon/CUxTheme.h"
#include "platform/win32.h"

// How the balloon looks: set at the start and by each new window.
struct BalloonLook {
    bool IsWin11;
    bool IsFlat; // the dark look with own fonts; never together with a theme
    bool IsLayoutMirrored;
    LONG HorizontalMargin; // pixels, as the others
    LONG VerticalMargin;
    LONG IconSize;
    LONG CloseWidth;
    LONG CloseHeight;
    BalloonColours Colours;
    CUxTheme* Theme; // null: no theme. Owned; closed with the window
    HFONT TitleFont;
    HFONT TextFont;
    HICON Icon;
    HICON CloseIcon;
    HICON CloseHotIcon;

    // Texts are drawn by the theme, with its fonts and colours.
    bool HasThemedText() const;
    // Windows 2000 shows no close button.
    bool HasCloseButton() const;
    // Of the corners, for regions and shapes.
    int CornerDiameter() const;
};
extern BalloonLook g_balloonLook;

// The icon's edge for a resolution. dpi: as Windows gives it.
LONG IconSizeForDpi(UINT dpi);

// Sets the close button's size. The icon's size is known.
void SetCloseButtonSize();

struct BalloonExtent {
    LONG Right;  // of the texts, with the room for the close button
    LONG Bottom; // of the texts, with the space below them
};

// Goes through title and texts from the top. isDrawing: draws each after it was measured.
BalloonExtent DrawAllTexts(HDC context, bool isDrawing, LONG iconSize) QM_REQUIRES(CS_BalloonData);

// Pixels of a line of the title.
LONG GetTitleHeight(HDC context) QM_REQUIRES(CS_BalloonData);
