// The colours of the flat look, for accent colours that users choose, and the keys that replace them; the pipe's
// record; the icon's size.
#include "balloon/BalloonColours.h"
#include "balloon/BalloonLayout.h"
#include "balloon/BalloonPosition.h"
#include "balloon/BalloonSettings.h"
#include "balloon/FreeBalloonInfo.h"
#include "support/registry/RegistryTools.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"
#include "tests/unit/Log.h"

#include <cstring>
#include <gtest/gtest.h>

constexpr char Personalize[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize";
constexpr char DesktopManager[] = "Software\\Microsoft\\Windows\\DWM";

static void UseIni(const std::string& text) {
    CopyText(szIniFile, "C:\\Balloon.ini");
    machine::TheFiles().Write(szIniFile, text);
}

// What the desktop has for the accent: alpha, red, green, blue.
static void UseAccent(DWORD argb) {
    for (const char* path : {Personalize, DesktopManager}) {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr), 0);
        RegCloseKey(key);
    }
    ASSERT_TRUE(RegWriteDword(HKEY_CURRENT_USER, Personalize, "ColorPrevalence", 1));
    ASSERT_TRUE(RegWriteDword(HKEY_CURRENT_USER, DesktopManager, "ColorizationColor", argb));
}

static void ExpectColours(const BalloonColours& colours, COLORREF back, COLORREF caption, COLORREF text,
                          COLORREF frame) {
    EXPECT_EQ(colours.BackColor, back);
    EXPECT_EQ(colours.CaptionColor, caption);
    EXPECT_EQ(colours.TextColor, text);
    EXPECT_EQ(colours.FrameColor, frame);
}

TEST(BalloonColours, FollowTheAccentColour) {
    UseIni("");
    // The accent as 0xRRGGBB, the others as Windows has colours: 0xBBGGRR.
    static constexpr struct {
        const char* name;
        DWORD accent;
        COLORREF back, caption, text, frame;
    } Rows[] = {
        {"blue", 0x0078D7, 0x985500, 0xFFF9F2, 0xDCC9AF, 0xFF9300},
        {"red", 0xE81123, 0x180CA4, 0xF5F3FF, 0xB7B2DC, 0x1B00FF},
        {"green", 0x107C10, 0x0B580B, 0xF3FFF4, 0xB5DCB6, 0x00FF03},
        {"gold", 0xFFB900, 0x0083B5, 0xF2FBFF, 0xAFCFDC, 0x00BAFF},
        {"purple", 0x881798, 0x6B1060, 0xFFF4FD, 0xDCB6D5, 0xFF00D8},
        {"teal", 0x00B7C3, 0x8A8100, 0xFFFEF2, 0xDCD9AF, 0xFFF300},
        {"orange", 0xF7630C, 0x0846AF, 0xF2F7FF, 0xB1C1DC, 0x005AFF},
        {"grey", 0x767676, 0x535353, 0xFFFFFF, 0xDCDCDC, 0xF9F9F9},
        {"white", 0xFFFFFF, 0xB5B5B5, 0xFFFFFF, 0xDCDCDC, 0xFFFFFF},
        {"pink", 0xE3008C, 0x6300A1, 0xFAF2FF, 0xCCAFDC, 0xA500FF},
        {"storm", 0x4C4A48, 0x333435, 0xFFFFFF, 0xDADBDC, 0x93989F},
        {"nearly black", 0x010102, 0x010000, 0xFFF3F2, 0xDCB0AF, 0x030000},
    };
    for (const auto& row : Rows) {
        SCOPED_TRACE(row.name);
        UseAccent(0xC4000000 | row.accent);
        ExpectColours(ReadBalloonColours(/*isFlat=*/true), row.back, row.caption, row.text, row.frame);
    }
}

TEST(BalloonColours, AnAccentThatIsNotShownOnTheTaskBarLeavesADarkFill) {
    UseIni("");
    UseAccent(0xC40078D7);
    ASSERT_TRUE(RegWriteDword(HKEY_CURRENT_USER, Personalize, "ColorPrevalence", 0));
    ExpectColours(ReadBalloonColours(/*isFlat=*/true), 0x1F1F1F, 0xFFFFFF, 0xDCDCDC, 0x5D5D5D);
}

TEST(BalloonColours, TheAfterglowAndTheAccentStandInForAColourWithoutABit) {
    UseIni("");
    UseAccent(0xC4000000);
    ASSERT_TRUE(RegWriteDword(HKEY_CURRENT_USER, DesktopManager, "AccentColor", 0xFFD77800));
    EXPECT_EQ(ReadBalloonColours(/*isFlat=*/true).BackColor, 0x985500u); // unchanged: red is the lowest byte
    ASSERT_TRUE(RegWriteDword(HKEY_CURRENT_USER, DesktopManager, "ColorizationAfterglow", 0xC4FFB900));
    EXPECT_EQ(ReadBalloonColours(/*isFlat=*/true).BackColor, 0x0083B5u);
}

TEST(BalloonColours, AKeyReplacesItsColourAndNoOther) {
    UseIni("[BalloonTips]\r\nBackColor=1056816\r\n"); // 0x102030
    ExpectColours(ReadBalloonColours(/*isFlat=*/true), 0x302010, 0xFFFFFF, 0xDCDCDC, 0x5D5D5D);
    UseIni("[BalloonTips]\r\nCaptionColor=255\r\nTextColor=65280\r\n");
    ExpectColours(ReadBalloonColours(/*isFlat=*/true), 0x1F1F1F, 0xFF0000, 0x00FF00, 0x5D5D5D);
}

TEST(BalloonSettings, TheLookFollowsTheVersionUnlessAKeySaysOtherwise) {
    static constexpr struct {
        DWORD major, build;
        const char* keys;
        bool isRound, isFlat;
    } Rows[] = {
        {6, 9600, "", false, false},
        {10, 21999, "", false, true},
        {10, 22000, "", true, true},
        {6, 22000, "", false, false}, // the build alone says nothing
        {6, 9600, "Win10Style=2\r\n", false, true},
        {6, 9600, "Win11Style=1\r\nWin10Style=0\r\n", true, true},
        {10, 22000, "Win11Style=0\r\n", false, true},
        {10, 22000, "Win11Style=0\r\nWin10Style=0\r\n", false, false},
    };
    for (const auto& row : Rows) {
        SCOPED_TRACE(row.keys);
        g_os.MajorVersion = row.major;
        g_os.BuildNumber = row.build;
        UseIni("[BalloonTips]\r\n" + std::string(row.keys));
        const BalloonStyles styles = ReadBalloonStyles();
        EXPECT_EQ(styles.Win11Style, row.isRound) << row.major << " " << row.build;
        EXPECT_EQ(styles.Win10Style, row.isFlat) << row.major << " " << row.build;
    }
}

TEST(BalloonSettings, ForeignBalloonsAreWaitedForUnlessTheKeyIsSet) {
    UseIni("");
    EXPECT_FALSE(SuppressesForeignBalloons());
    UseIni("[BalloonTips]\r\nSuppressWindowsBalloons=1\r\n");
    EXPECT_TRUE(SuppressesForeignBalloons());
}

TEST(FreeBalloonInfo, ARecordOfAnyBytesBecomesSafe) {
    FreeBalloonInfo record;
    std::memset(&record, 'x', sizeof(record));
    MakeRecordSafe(&record);
    EXPECT_EQ(TextLength(record.Title), 119u);
    EXPECT_EQ(TextLength(record.Text1), 255u);
    EXPECT_EQ(TextLength(record.Text2), 767u);
    EXPECT_EQ(record.ShowTime, 60000);
    for (const auto& [given, kept] : {std::pair{-1, 0}, {0, 0}, {60000, 60000}, {60001, 60000}, {INT_MIN, 0}}) {
        record.ShowTime = given;
        MakeRecordSafe(&record);
        EXPECT_EQ(record.ShowTime, kept) << given;
    }
}

TEST(BalloonLayout, TheIconGrowsInStepsUntilItFollowsTheResolution) {
    using Row = std::pair<unsigned, int>;
    for (const auto& [dpi, size] :
         {Row{96, 16}, Row{119, 16}, Row{120, 20}, Row{143, 20}, Row{144, 24}, Row{191, 24}, Row{192, 32}, Row{287, 32},
          Row{288, 48}, Row{335, 48}, Row{336, 56}, Row{384, 64}}) {
        g_balloonDpi = dpi;
        EXPECT_EQ(IconSizeForDpi(dpi), size) << dpi;
    }
}
