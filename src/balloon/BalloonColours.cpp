#include "balloon/BalloonColours.h"

#include "balloon/BalloonSettings.h"
#include "support/registry/RegistryTools.h"

constexpr char PersonalizeKey[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize";
constexpr char DesktopManagerKey[] = "Software\\Microsoft\\Windows\\DWM";
constexpr COLORREF ColourBytes = 0x00FFFFFF;
constexpr COLORREF DarkFill = 0x1F1F1F;
constexpr COLORREF LightGrey = 0xBFBFBF;
constexpr LONG AccentPercent = 71; // what is left of each byte of an accent colour in the fill
constexpr LONG HueSector = 43;     // a sixth of the circle

static LONG RedOf(COLORREF colour) {
    return static_cast<LONG>(colour & 0xFF);
}

static LONG GreenOf(COLORREF colour) {
    return static_cast<LONG>(colour >> 8 & 0xFF);
}

static LONG BlueOf(COLORREF colour) {
    return static_cast<LONG>(colour >> 16 & 0xFF);
}

static COLORREF ColourOf(LONG red, LONG green, LONG blue) {
    return static_cast<COLORREF>(red | green << 8 | blue << 16);
}

static BYTE CappedByte(LONG value) {
    return static_cast<BYTE>(value > 255 ? 255 : value);
}

HsvColour RgbToHsv(COLORREF colour) {
    const LONG red = RedOf(colour);
    const LONG green = GreenOf(colour);
    const LONG blue = BlueOf(colour);
    const LONG highest = red > green ? (red > blue ? red : blue) : (green > blue ? green : blue);
    const LONG lowest = red < green ? (red < blue ? red : blue) : (green < blue ? green : blue);
    const LONG difference = highest - lowest;
    if (highest == 0) {
        return {0, 0, 0};
    }
    const LONG saturation = difference * 255 / highest;
    if (saturation == 0) {
        return {0, 0, static_cast<BYTE>(highest)};
    }
    LONG hue = 0;
    if (highest == red) {
        hue = HueSector * (green - blue) / difference;
    } else if (highest == green) {
        hue = 85 + HueSector * (blue - red) / difference;
    } else {
        hue = 171 + HueSector * (red - green) / difference;
    }
    return {static_cast<BYTE>(hue), static_cast<BYTE>(saturation), static_cast<BYTE>(highest)};
}

COLORREF HsvToRgb(HsvColour colour) {
    const LONG value = colour.V;
    const LONG saturation = colour.S;
    if (saturation == 0) {
        return ColourOf(value, value, value);
    }
    const LONG region = colour.H / HueSector;
    const LONG rest = (colour.H - region * HueSector) * 6 & 0xFF;
    const LONG low = value * (255 - saturation) >> 8;
    const LONG falling = value * (255 - (saturation * rest >> 8)) >> 8;
    const LONG rising = value * (255 - (saturation * (255 - rest) >> 8)) >> 8;
    switch (region) {
    case 0:
        return ColourOf(value, rising, low);
    case 1:
        return ColourOf(falling, value, low);
    case 2:
        return ColourOf(low, value, rising);
    case 3:
        return ColourOf(low, falling, value);
    case 4:
        return ColourOf(rising, low, value);
    default:
        return ColourOf(value, low, falling);
    }
}

COLORREF SwapRedAndBlue(COLORREF colour) {
    return ColourOf(BlueOf(colour), GreenOf(colour), RedOf(colour));
}

BalloonColours ColoursForBack(COLORREF back) {
    const HsvColour hsv = RgbToHsv(back);
    // The frame's value is capped as its saturation is: wrapped in a byte, a light fill would get a dark frame of any
    // shade.
    return {
        HsvToRgb({hsv.H, static_cast<BYTE>(hsv.S * 5 / 100), 255}),
        HsvToRgb({hsv.H, static_cast<BYTE>(hsv.S * 20 / 100), 220}),
        back,
        HsvToRgb({hsv.H, CappedByte(hsv.S * 2), CappedByte(hsv.V * 300 / 100)}),
    };
}

static DWORD ReadUserDword(const char* key, const char* name) {
    DWORD value = 0;
    (void)RegReadDword(HKEY_CURRENT_USER, key, name, &value); // a value that is not there counts as 0
    return value;
}

static COLORREF ReadAccentColour() {
    DWORD colour = ReadUserDword(DesktopManagerKey, "ColorizationColor");
    if ((colour & ColourBytes) == 0) {
        colour = ReadUserDword(DesktopManagerKey, "ColorizationAfterglow");
    }
    const COLORREF accent = SwapRedAndBlue(colour);
    return accent != 0 ? accent : ReadUserDword(DesktopManagerKey, "AccentColor");
}

static COLORREF ReadFill() {
    if (ReadUserDword(PersonalizeKey, "ColorPrevalence") == 0) {
        return DarkFill;
    }
    const COLORREF accent = ReadAccentColour();
    return ColourOf(CappedByte(RedOf(accent) * AccentPercent / 100), CappedByte(GreenOf(accent) * AccentPercent / 100),
                    CappedByte(BlueOf(accent) * AccentPercent / 100));
}

static void ReplaceByKey(COLORREF* colour, KeyName key) {
    const LONG value = ReadBalloonKey(key, /*defaultNumber=*/-1);
    if (value != -1) {
        *colour = SwapRedAndBlue(static_cast<COLORREF>(value));
    }
}

BalloonColours ReadBalloonColours(bool isFlat) {
    if (!isFlat) {
        const COLORREF infoText = GetSysColor(COLOR_INFOTEXT);
        return {infoText, LightGrey, GetSysColor(COLOR_INFOBK), infoText};
    }
    BalloonColours colours = ColoursForBack(ReadFill());
    ReplaceByKey(&colours.CaptionColor, "CaptionColor");
    ReplaceByKey(&colours.TextColor, "TextColor");
    ReplaceByKey(&colours.BackColor, "BackColor");
    return colours;
}
