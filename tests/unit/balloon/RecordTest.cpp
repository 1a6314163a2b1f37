// What comes in from outside: the record of the pipe and the icon's size for a resolution.
#include "balloon/BalloonLayout.h"
#include "balloon/BalloonPosition.h"
#include "balloon/FreeBalloonInfo.h"
#include "support/BoundedText.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

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
    for (const auto& [dpi, size] : {std::pair{96u, 16},
                                    {119u, 16},
                                    {120u, 20},
                                    {143u, 20},
                                    {144u, 24},
                                    {191u, 24},
                                    {192u, 32},
                                    {287u, 32},
                                    {288u, 48},
                                    {335u, 48},
                                    {336u, 56},
                                    {384u, 64}}) {
        g_BalloonDpi = dpi;
        EXPECT_EQ(IconSizeForDpi(dpi), size) << dpi;
    }
}

} // namespace
