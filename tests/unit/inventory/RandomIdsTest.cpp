// Ten thousand pairs of made-up ids through the text tools of the inventory, by a fixed seed: what holds for all ids,
// not only for those that somebody thought of.
#include "inventory/CComPorts.h"
#include "inventory/FriendlyName.h"
#include "inventory/KnownDrivers.h"
#include "support/BoundedText.h"

#include "tests/harness/Harness.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr int Pairs = 10'000;
constexpr std::uint64_t Seed = 0x51B5EED;
constexpr std::size_t ShortestCommonPart = 10, FunctionNumberLength = 3;

class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t Below(std::uint64_t bound) {
        m_state += 0x9E3779B97F4A7C15ull;
        std::uint64_t z = m_state;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ z >> 27) * 0x94D049BB133111EBull;
        return (z ^ z >> 31) % bound;
    }

private:
    std::uint64_t m_state;
};

// Pieces that decide something: the ends of the parts, the braces, the known drivers, and COM names whole and torn.
constexpr const char* Pieces[] = {
    "\\",       "\\\\", "USB",       "FTDIBUS", "VID_0403",     "&PID_6010", "&MI_00",  "_00",
    "{",        "}",    "#",         "COM",     "(COM",         "COM7",      "(COM12)", ")",
    " ",        "\t",   "vid_12d1&", "\\VCP",   "\\AcmSerial_", "7&1e9e&0",  "0000",    "Serial Port",
    "\xC4\xE4", "-",    "\x01",      "CO",      "(CO",          "0",
};

std::string AnyText(Random& random, std::size_t limit) {
    std::string text;
    for (std::uint64_t pieces = random.Below(12); pieces > 0; --pieces) {
        text += Pieces[random.Below(std::size(Pieces))];
    }
    if (random.Below(16) == 0) {
        text.append(limit, 'x'); // more than any array has room for
    }
    return text;
}

// A second id that goes along with the first one for a while, as the functions of one device do.
std::string Sibling(Random& random, const std::string& id) {
    return id.substr(0, random.Below(id.size() + 1)) + AnyText(random, 8);
}

struct Record {
    std::unique_ptr<CComPort> port = std::make_unique<CComPort>();
    explicit Record(const std::string& id) { CopyText(port->DeviceID, id.c_str()); }
};

// Whether the id has a part in front of its last backslash, or of a GUID's end, that is long enough to say something.
bool CanBeCompared(const char* id) {
    const char* last = std::strrchr(id, '\\');
    return last && static_cast<std::size_t>(last - id) >= ShortestCommonPart + FunctionNumberLength;
}

TEST(RandomIds, AnIdIsTheSameDeviceAsItselfWhereItCanBeAtAll) {
    Random random(Seed);
    int same = 0, comparable = 0;
    for (int i = 0; i < Pairs; ++i) {
        const std::string id = AnyText(random, sizeof(CComPort::DeviceID));
        const Record a(id), b(Sibling(random, id)), copy(id);
        EXPECT_EQ(CanBeCompared(a.port->DeviceID), CComPorts::IsSameDevice(a.port.get(), copy.port.get()) == 1) << id;
        comparable += CanBeCompared(a.port->DeviceID);
        if (CComPorts::IsSameDevice(a.port.get(), b.port.get())) {
            ++same;
            EXPECT_EQ(0, std::strncmp(a.port->DeviceID, b.port->DeviceID, ShortestCommonPart)) << id;
        }
    }
    EXPECT_GT(same, 100) << "too few pairs that say something";
    EXPECT_GT(comparable, same);
}

TEST(RandomIds, StrippingTwiceStripsOnceUnlessASecondNameStoodInFront) {
    Random random(Seed + 1);
    int stripped = 0;
    for (int i = 0; i < Pairs; ++i) {
        char text[sizeof(CComPort::FriendlyName)];
        CopyText(text, AnyText(random, sizeof(text)).c_str());
        const std::string before = text;
        const bool hasName = FindComInFriendlyName(text) != nullptr;
        StripComFromFriendlyName(text);
        const std::string once = text;
        EXPECT_NE(before.find(once), std::string::npos) << "'" << before << "' became '" << once << "'";
        EXPECT_TRUE(hasName || once == before) << "'" << before << "' became '" << once << "'";
        stripped += once != before;
        if (FindComInFriendlyName(text) == nullptr) {
            StripComFromFriendlyName(text);
            EXPECT_EQ(once, text) << "'" << before << "'";
        }
    }
    EXPECT_GT(stripped, 1000) << "too few texts with a name";
}

TEST(RandomIds, AFoundNameCanBeCopiedWithItsDigits) {
    Random random(Seed + 2);
    int found = 0;
    for (int i = 0; i < Pairs; ++i) {
        const std::string text = AnyText(random, sizeof(CComPort::FriendlyName));
        const char* at = FindComInFriendlyName(text.c_str());
        if (at == nullptr) {
            continue;
        }
        ++found;
        char name[sizeof(CComPort::szPortName)];
        char digits[sizeof(CComPort::PortNumberText)];
        CopyComName(at, name);
        CopyComDigits(name, digits);
        EXPECT_EQ(std::string("COM") + digits, name) << text;
        EXPECT_NE(digits[0], '\0') << text;
    }
    EXPECT_GT(found, 1000) << "too few texts with a name";
}

TEST(RandomIds, ADriverFitsByItsOwnKernelNameAndByMoreOfBoth) {
    Random random(Seed + 3);
    int fitting = 0;
    for (int i = 0; i < Pairs; ++i) {
        const std::string kernelName = "\\Device" + AnyText(random, sizeof(CComPort::szKernelNameCom));
        const std::string id = AnyText(random, sizeof(CComPort::DeviceID));
        const char* service = random.Below(4) == 0 ? "FTSER2K" : "";
        const bool fits = KernelNameFitsDriver(kernelName.c_str(), id.c_str(), service, "");
        fitting += fits;
        const bool isOfADriver =
            kernelName.find("\\VCP") != std::string::npos || kernelName.find("\\AcmSerial_") != std::string::npos;
        EXPECT_TRUE(isOfADriver || !fits) << kernelName << " of " << id;
        EXPECT_TRUE(!fits || KernelNameFitsDriver((kernelName + "7").c_str(), ("X" + id + "&").c_str(), service, ""))
            << kernelName << " of " << id;
        EXPECT_FALSE(KernelNameFitsDriver("", id.c_str(), service, "")) << id;
    }
    EXPECT_GT(fitting, 100) << "too few that fit";
}

} // namespace
