#include "inventory/FriendlyName.h"
#include "support/BoundedText.h"

#include "tests/harness/Harness.h"

namespace {

struct Row {
    const char* text;
    const char* stripped;
    const char* comName; // null: there is none
};

// What a port is called, what is left without its COM name, and which name was meant.
constexpr Row Rows[] = {
    {"USB Serial Port (COM7)", "USB Serial Port", "COM7"},
    {"USB Serial Port (COM128) #2", "USB Serial Port", "COM128"},
    {"Modem on COM3", "Modem on", "COM3"},
    {" \tCommunications Port (COM1)", "Communications Port", "COM1"},
    {"(COM5)", "", "COM5"},
    {"COM12 adapter", "", "COM12"},
    // A word that only begins so, and an index that is no number.
    {"COMPANY Port", "COMPANY Port", nullptr},
    {"Adapter (COM) ", "Adapter (COM) ", nullptr},
    {"Port (COMx)", "Port (COMx)", nullptr},
    {"com7 in small letters", "com7 in small letters", nullptr},
    {"", "", nullptr},
    // The name behind such a word is found, but only the first hit decides about the cut.
    {"COMPANY Port COM7", "COMPANY Port COM7", "COM7"},
    {"COMPANY Port (COM7)", "COMPANY Port", "COM7"},
    {"Port (COMx) COM4", "Port (COMx) COM4", "COM4"},
    {"COM2 behind (COM9)", "COM2 behind", "COM9"},
};

TEST(FriendlyName, TheComNameIsFoundAndCut) {
    for (const Row& row : Rows) {
        char text[128];
        CopyText(text, row.text);
        StripComFromFriendlyName(text);
        EXPECT_STREQ(row.stripped, text) << "'" << row.text << "'";
        const char* found = FindComInFriendlyName(row.text);
        ASSERT_EQ(row.comName == nullptr, found == nullptr) << "'" << row.text << "'";
        if (found != nullptr) {
            char comName[128];
            CopyComName(found, comName);
            EXPECT_STREQ(row.comName, comName) << "'" << row.text << "'";
        }
    }
}

TEST(FriendlyName, TooManyDigitsAreCutToTheArray) {
    char comName[8];
    CopyComName("COM123456789)", comName);
    EXPECT_STREQ("COM1234", comName);
    char digits[4];
    CopyComDigits("COM98765", digits);
    EXPECT_STREQ("987", digits);
    for (const char* name : {"", "CO", "COM", "COMx7", "COM-5"}) {
        CopyComDigits(name, digits);
        EXPECT_STREQ("", digits) << "'" << name << "'";
    }
}

} // namespace
