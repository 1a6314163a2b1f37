// The text tools of the inventory: what a port is called and which name is meant; and ten thousand made-up ids by a
// fixed seed, for what holds for all ids, not only for those that somebody thought of.
#include "inventory/names/FriendlyName.h"
#include "inventory/ports/CComPorts.h"
#include "support/texts/BoundedText.h"
#include "tests/harness/Harness.h"

#include <cstring>
#include <random>
#include <string>

constexpr std::size_t ShortestCommonPart = 10, FunctionNumberLength = 3;

// Pieces that decide something: the ends of the parts, the braces, the known drivers, and COM names whole and torn.
constexpr const char* Pieces[] = {
    "\\",       "\\\\", "USB",       "FTDIBUS", "VID_0403",     "&PID_6010", "&MI_00",  "_00",
    "{",        "}",    "#",         "COM",     "(COM",         "COM7",      "(COM12)", ")",
    " ",        "\t",   "vid_12d1&", "\\VCP",   "\\AcmSerial_", "7&1e9e&0",  "0000",    "Serial Port",
    "\xC4\xE4", "-",    "\x01",      "CO",      "(CO",          "0"};

namespace {
class RandomIds : public testing::Test {
protected:
    std::size_t Below(std::size_t bound) { return m_random() % bound; }

    std::string AnyText(std::size_t limit) {
        std::string text;
        for (std::size_t pieces = Below(12); pieces > 0; --pieces) {
            text += Pieces[Below(std::size(Pieces))];
        }
        return Below(16) == 0 ? text.append(limit, 'x') : text; // more than any array has room for
    }

    // Runs the check on ten thousand texts. It gives whether its text was one that says something.
    template<typename Check>
    void OnMany(std::size_t limit, int atLeast, Check check) {
        int telling = 0;
        for (int i = 0; i < 10'000; ++i) {
            telling += check(AnyText(limit));
        }
        EXPECT_GT(telling, atLeast) << "too few texts that say something";
    }

private:
    std::mt19937 m_random{0x51B5EED};
};
} // namespace

// Whether the id has a part in front of its last backslash, or of a GUID's end, that is long enough to say something.
static bool CanBeCompared(const char* id) {
    const char* last = std::strrchr(id, '\\');
    return last && static_cast<std::size_t>(last - id) >= ShortestCommonPart + FunctionNumberLength;
}

TEST_F(RandomIds, AnIdIsTheSameDeviceAsItselfWhereItCanBeAtAll) {
    OnMany(sizeof(CComPort::DeviceID), 100, [this](const std::string& id) {
        CComPort a, b, copy;
        CopyText(a.DeviceID, id.c_str());
        CopyText(copy.DeviceID, id.c_str());
        EXPECT_EQ(CanBeCompared(a.DeviceID), CComPorts::IsSameDevice(&a, &copy) == 1) << id;
        // It goes along with the first one for a while, as the functions of one device do.
        CopyText(b.DeviceID, (id.substr(0, Below(id.size() + 1)) + AnyText(8)).c_str());
        const bool same = CComPorts::IsSameDevice(&a, &b) == 1;
        EXPECT_TRUE(!same || std::strncmp(a.DeviceID, b.DeviceID, ShortestCommonPart) == 0) << id;
        return same;
    });
}

TEST_F(RandomIds, StrippingTwiceStripsOnceUnlessASecondNameStoodInFront) {
    OnMany(sizeof(CComPort::FriendlyName), 1000, [](const std::string& before) {
        char text[sizeof(CComPort::FriendlyName)];
        CopyText(text, before.c_str());
        const bool hasName = FindComInFriendlyName(text) != nullptr;
        StripComFromFriendlyName(text);
        const std::string once = text;
        EXPECT_NE(before.find(once), std::string::npos) << "'" << before << "' became '" << once << "'";
        EXPECT_TRUE(hasName || before.starts_with(once)) << "'" << before << "' became '" << once << "'";
        if (FindComInFriendlyName(text) == nullptr) {
            StripComFromFriendlyName(text);
        }
        EXPECT_EQ(once, text) << "'" << before << "'";
        return once != before;
    });
}

TEST_F(RandomIds, AFoundNameCanBeCopiedWithItsDigits) {
    OnMany(sizeof(CComPort::FriendlyName), 1000, [](const std::string& text) {
        const char* at = FindComInFriendlyName(text.c_str());
        char name[sizeof(CComPort::szPortName)], digits[sizeof(CComPort::PortNumberText)];
        if (at == nullptr) {
            return false;
        }
        CopyComName(at, name);
        CopyComDigits(name, digits);
        EXPECT_EQ(std::string("COM") + digits, name) << text;
        EXPECT_NE(digits[0], '\0') << text;
        return true;
    });
}

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
          // The name after such a word is found, but only the first hit decides about the cut.
          Row{"COMPANY Port COM7", "COMPANY Port COM7", "COM7"}, Row{"COMPANY Port (COM7)", "COMPANY Port", "COM7"},
          Row{"Port (COMx) COM4", "Port (COMx) COM4", "COM4"}, Row{"COM2 beside (COM9)", "COM2 beside", "COM9"}}) {
        char text[128], comName[128] = "";
        CopyText(text, given);
        StripComFromFriendlyName(text);
        EXPECT_STREQ(stripped, text) << "'" << given << "'";
        const char* found = FindComInFriendlyName(given);
        ASSERT_EQ(expected == nullptr, found == nullptr) << "'" << given << "'";
        if (found != nullptr) {
            CopyComName(found, comName);
        }
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
