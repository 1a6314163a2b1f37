#include "balloon/BalloonLayout.h"

#include "balloon/BalloonPosition.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/OsVersion.h"
#include "support/texts/BoundedText.h"

constexpr DWORD Windows2000Bcd = 0x0500;
constexpr DWORD ThemedTextMajorVersion = 6;
constexpr DWORD AlignedTextMajorVersion = 10; // from here on the body is below the title, not below the icon
constexpr UINT LargestStepDpi = 336;          // from here on the icon scales with the resolution
constexpr char RightMarker[] = " !! ";
constexpr char MarkerGap[] = "      ";
constexpr size_t MarkerChars = sizeof(RightMarker) - 1;
constexpr size_t GapChars = sizeof(MarkerGap) - 1;
constexpr size_t MaxMarkedChars = 256;
constexpr LONG SecondTextGap = 6; // plain pixels
constexpr LONG BottomSpace = 4;   // plain pixels
constexpr DWORD MeasureFormat = DT_CALCRECT | DT_NOPREFIX;
constexpr DWORD DrawFormat = DT_NOPREFIX;

BalloonLook g_balloonLook;

bool BalloonLook::HasThemedText() const {
    return Theme != nullptr && g_os.MajorVersion >= ThemedTextMajorVersion;
}

bool BalloonLook::HasCloseButton() const {
    return g_os.VersionBcd != Windows2000Bcd;
}

int BalloonLook::CornerDiameter() const {
    if (IsFlat) {
        return IsWin11 ? 7 : 2;
    }
    return HasThemedText() ? 7 : 13;
}

LONG IconSizeForDpi(UINT dpi) {
    static constexpr struct {
        UINT dpi;
        LONG size;
    } Steps[] = {{288, 48}, {192, 32}, {144, 24}, {120, 20}};
    if (dpi >= LargestStepDpi) {
        return Scale(16);
    }
    for (const auto& step : Steps) {
        if (dpi >= step.dpi) {
            return step.size;
        }
    }
    return 16;
}

void SetCloseButtonSize() {
    BalloonLook& look = g_balloonLook;
    const bool hasTheme = look.Theme != nullptr;
    if (look.IsFlat) {
        look.CloseWidth = look.IconSize;
        look.CloseHeight = look.IconSize;
    } else if (hasTheme && g_os.MajorVersion == 5) {
        look.CloseWidth = 18;
        look.CloseHeight = 18;
    } else {
        look.CloseWidth = Scale(hasTheme ? 15 : 16);
        look.CloseHeight = Scale(16);
    }
}

static void DrawThemedText(HDC context, const char* text, RECT* rect, DWORD format, int part) {
    const CUxTheme& theme = *g_balloonLook.Theme;
    // A text that the theme cannot draw or measure is omitted; the balloon shows the rest.
    if ((format & DT_CALCRECT) != 0) {
        (void)theme.MeasureText(context, part, /*state=*/0, text, format, rect);
    } else {
        (void)theme.DrawText(context, part, /*state=*/0, text, format, *rect);
    }
}

// One text, or with DT_CALCRECT its place: *rect keeps its upper left corner and takes the text's size.
static void DrwTxt(HDC context, const char* text, RECT* rect, DWORD format, int part) QM_REQUIRES(CS_BalloonData) {
    const BalloonLook& look = g_balloonLook;
    if (ReadsRightToLeft(g_balloonInfo.CharSet)) {
        format |= DT_RTLREADING;
    }
    if (look.HasThemedText()) {
        DrawThemedText(context, text, rect, format, part);
        return;
    }
    const bool isTitle = part == ThemePartBalloonTitle;
    const HFONT font = isTitle ? look.TitleFont : look.TextFont;
    if (font == nullptr) {
        WriteLog(4, "hFont is NULL -> abort");
        return;
    }
    if (look.IsFlat) {
        SetTextColor(context, isTitle ? look.Colours.CaptionColor : look.Colours.TextColor);
    }
    const HGDIOBJ oldFont = SelectObject(context, font);
    if (DrawTextA(context, text, -1, rect, format) == 0 && text[0] != 0) {
        WriteLog(1, "DrawText(0x%p, %s, -1, %i, %i, %i, %i, 0x%X)  err=%s", context, text, rect->left, rect->top,
                 rect->right, rect->bottom, format, LastErrorName());
    }
    SelectObject(context, oldFont);
}

LONG GetTitleHeight(HDC context) {
    RECT rect = {};
    DrwTxt(context, "Tlg0", &rect, MeasureFormat, ThemePartBalloonTitle);
    return rect.bottom - rect.top;
}

static bool StartsWithMarker(const char* text) {
    size_t at = 0;
    while (at < MarkerChars && text[at] == RightMarker[at]) {
        ++at;
    }
    return at == MarkerChars;
}

// Copies the text with each marker replaced by blanks. Returns: the position of the first marker.
static size_t ReplaceMarkers(const char* text, const char* firstMarker, char (&copy)[MaxMarkedChars + 1]) {
    size_t length = 0;
    for (const char* at = text; *at != 0 && length < MaxMarkedChars;) {
        if (!StartsWithMarker(at)) {
            copy[length++] = *at++;
            continue;
        }
        for (size_t blank = 0; blank < GapChars && length < MaxMarkedChars; ++blank) {
            copy[length++] = ' ';
        }
        at += MarkerChars;
    }
    copy[length] = 0;
    return static_cast<size_t>(firstMarker - text);
}

// A line whose second half is at the right edge, if there is room; otherwise one line with a gap.
static void DrawMarkedLine(HDC context, const char* text, const char* marker, bool isDrawing, LONG maxRight, RECT* rect)
    QM_REQUIRES(CS_BalloonData) {
    char copy[MaxMarkedChars + 1];
    const size_t front = ReplaceMarkers(text, marker, copy);
    DrwTxt(context, copy, rect, MeasureFormat, ThemePartBalloon);
    if (!isDrawing) {
        return;
    }
    if (rect->right >= maxRight) {
        DrwTxt(context, copy, rect, DrawFormat, ThemePartBalloon);
        return;
    }
    const size_t length = TextLength(copy);
    const size_t after = front + GapChars < length ? front + GapChars : length;
    char* const rest = copy + after;
    char left[MaxMarkedChars + 1];
    CopyTextPart(left, sizeof(left), copy, front);
    DrwTxt(context, left, rect, DrawFormat, ThemePartBalloon);
    RECT line = *rect; // what follows below begins where this line began
    line.left = 0;
    line.right = maxRight;
    DrwTxt(context, rest, &line, DrawFormat | DT_RIGHT, ThemePartBalloon);
}

// Measures what starts at *rect, draws it if requested, and moves the right edge.
static void PlaceText(HDC context, const char* text, bool isDrawing, RECT* rect, LONG* maxRight)
    QM_REQUIRES(CS_BalloonData) {
    DrwTxt(context, text, rect, MeasureFormat, ThemePartBalloon);
    if (isDrawing) {
        DrwTxt(context, text, rect, DrawFormat, ThemePartBalloon);
    }
    if (rect->right > *maxRight) {
        *maxRight = rect->right;
    }
}

BalloonExtent DrawAllTexts(HDC context, bool isDrawing, LONG iconSize) {
    const BalloonLook& look = g_balloonLook;
    const FreeBalloonInfo& info = g_balloonInfo;
    RECT rect = {};
    rect.left = iconSize * 150 / 100 + look.HorizontalMargin;
    rect.top = look.VerticalMargin + (look.HasThemedText() ? 0 : Scale(2));
    DrwTxt(context, info.Title, &rect, MeasureFormat, ThemePartBalloonTitle);
    if (isDrawing) {
        DrwTxt(context, info.Title, &rect, DrawFormat, ThemePartBalloonTitle);
    }
    LONG maxRight = rect.right + (look.HasCloseButton() ? iconSize * 120 / 100 : 0);

    LONG step = Scale(4);
    if (!look.HasThemedText() && g_os.MajorVersion < AlignedTextMajorVersion) {
        rect.left = look.HorizontalMargin;
        step = Scale(7);
    }
    rect.top = rect.bottom + step;
    if (const char* marker = StrStrA(info.Text1, RightMarker)) {
        DrawMarkedLine(context, info.Text1, marker, isDrawing, maxRight, &rect);
        if (rect.right > maxRight) {
            maxRight = rect.right;
        }
    } else {
        PlaceText(context, info.Text1, isDrawing, &rect, &maxRight);
    }
    if (info.Text2[0] != 0) {
        rect.top = rect.bottom + SecondTextGap;
        PlaceText(context, info.Text2, isDrawing, &rect, &maxRight);
    }
    return {maxRight, rect.bottom + BottomSpace};
}
