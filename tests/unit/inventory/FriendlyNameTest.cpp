// What a port is called, what is left without its COM name, and which name was meant.
#include "inventory/FriendlyName.h"
#include "support/BoundedText.h"

#include "tests/harness/Harness.h"

namespace {

TEST(FriendlyName, TheComNameIsFoundAndCut) {
    // null: there is none
    using Row = std::tuple<const char*, const char*, const char*>;
    for (const auto& [given, stripped, expected] :
         {Row{"USB Serial Port (COM128) #2", "USB Serial Port", "COM128"}, Row{"Modem on COM3", "Modem on", "COM3"},
          Row{" \tCommunications Port (COM1)", "Communications Port", "COM1"}, Row{"(COM5)", "", "COM5"},
          Row{"COM12 adapter", "", "COM12"},
          // A word that only begins so, and an index that is no number.
          Row{"COMPANY Port", "COMPANY Port", nullptr}, Row{"Adapter (COM) ", "Adapter (COM) ", nullptr},
          Row{"Port (COMx)", "Port (COMx)", nullptr}, Row{"com7 in small letters", "com7 in small letters", nullptr},
          Row{"", "", nullptr},
          // The name behind such a word is found, but only the first hit decides about the cut.
          Row{"COMPANY Port COM7", "COMPANY Port COM7", "COM7"}, Row{"COMPANY Port (COM7)", "COMPANY Port", "COM7"},
          Row{"Port (COMx) COM4", "Port (COMx) COM4", "COM4"}, Row{"COM2 behind (COM9)", "COM2 behind", "COM9"}}) {
        char text[128], comName[128] = "";
        CopyText(text, given);
        StripComFromFriendlyName(text);
        EXPECT_STREQ(stripped, text) << "'" << given << "'";
        const char* found = FindComInFriendlyName(given);
        ASSERT_EQ(expected == nullptr, found == nullptr) << "'" << given << "'";
        if (found != nullptr)
            CopyComName(found, comName);
        EXPECT_STREQ(expected != nullptr ? expected : "", comName) << "'" << given << "'";
    }
}

TEST(FriendlyName, TooManyDigitsAreCutToTheArray) {
    char comName[8], digits[4];
    CopyComName("COM123456789)", comName);
    EXPECT_STREQ("COM1234", comName);
    CopyComDigits("COM98765", digits);
    EXPECT_STREQ("987", digits);
    for (const char* name : {"", "CO", "COM", "COMx7", "COM-5"}) {
        CopyComDigits(name, digits);
        EXPECT_STREQ("", digits) << "'" << name << "'";
    }
}

} // namespace
