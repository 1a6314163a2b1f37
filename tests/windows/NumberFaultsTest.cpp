// The changes of a port's number, of the COM name database and of the friendly name, ten thousand times in one process
// on a real registry that is damaged at random: values that are missing, of another type, too long, without their end.
#include "platform/win32.h"

#include "inventory/names/ComNameArbiter.h"
#include "inventory/names/ComPortNumber.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

constexpr int Runs = 10000;
constexpr char DeviceId[] = "BED\\FAULTS\\0";
constexpr char EnumPath[] = "SYSTEM\\CurrentControlSet\\Enum\\BED\\FAULTS\\0";
constexpr char ParametersPath[] = "SYSTEM\\CurrentControlSet\\Enum\\BED\\FAULTS\\0\\Device Parameters";
constexpr char ClassPath[] = "SYSTEM\\CurrentControlSet\\Control\\Class\\{bed}\\0000";
constexpr char ArbiterPath[] = "SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";

namespace {
class Damage {
public:
    explicit Damage(unsigned seed) : m_random(seed) {}
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    // Writes one value, sound in one of three times. Returns: whether it is.
    bool Write(const char* path, const char* name, DWORD type, const std::string& sound) {
        HKEY key = nullptr;
        if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) != 0) {
            return false;
        }
        std::string data = sound;
        const unsigned kind = Below(9);
        switch (kind) {
        case 3:
            RegDeleteValueA(key, name);
            break;
        case 4:
            type = Below(12);
            break;
        case 5:
            data.assign(Below(4000), 'C');
            break;
        case 6:
            data.resize(data.size() - Below(static_cast<unsigned>(data.size())) - 1);
            break; // no final zero, or odd
        case 7:
            data += std::string("COM7\0junk", 9);
            break;
        case 8:
            for (char& c : data) {
                c = static_cast<char>(Below(256));
            }
            break;
        default:
            break;
        }
        if (kind != 3) {
            RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                           static_cast<DWORD>(data.size()));
        }
        RegCloseKey(key);
        return kind < 3;
    }

private:
    std::mt19937 m_random;
};
} // namespace

static std::string Text(const char* text) {
    return std::string(text, std::strlen(text) + 1);
}

static std::string ReadText(const char* path, const char* name) {
    char data[4096] = "";
    DWORD size = sizeof(data) - 1;
    return RegGetValueA(HKEY_LOCAL_MACHINE, path, name, RRF_RT_REG_SZ, nullptr, data, &size) == 0 ? data : "";
}

static BYTE FirstByteOfDatabase() {
    BYTE data[64] = {};
    DWORD size = sizeof(data);
    RegGetValueA(HKEY_LOCAL_MACHINE, ArbiterPath, "ComDB", RRF_RT_REG_BINARY, nullptr, data, &size);
    return data[0];
}

TEST(NumberFaults, TenThousandDamagedRegistriesEndNoRunAndSoundOnesAreChanged) {
    Damage damage(20260302);
    int changed = 0, sound = 0;
    struct {
        BYTE before[64];
        char name[128];
        BYTE after[64];
    } guarded;
    for (int run = 0; run < Runs; ++run) {
        if (damage.Below(50) == 0) {
            RegDeleteKeyA(HKEY_LOCAL_MACHINE, damage.Below(2) ? ParametersPath : ClassPath);
        }
        const bool isNameSound = damage.Write(ParametersPath, "PortName", REG_SZ, Text("COM3"));
        const bool isFriendlySound = damage.Write(EnumPath, "FriendlyName", REG_SZ, Text("USB Serial Port (COM3)"));
        damage.Write(ClassPath, "AssignedPortForQCDevice", REG_SZ, Text("COM3"));
        const bool isDatabaseSound =
            damage.Write(ArbiterPath, "ComDB", REG_BINARY, std::string("\x04") + std::string(31, '\0'));

        std::memset(&guarded, 0xA5, sizeof(guarded));
        GetRegPortNameByDeviceId(DeviceId, guarded.name);
        for (int i = 0; i < 64; ++i) {
            ASSERT_TRUE(guarded.before[i] == 0xA5 && guarded.after[i] == 0xA5) << "run " << run;
        }
        ASSERT_NE(std::memchr(guarded.name, 0, sizeof(guarded.name)), nullptr) << "run " << run;

        ASSERT_EQ(ChangeRegistryComPortNumber("COM3", "COM5", EnumPath, ClassPath, "\\Device\\Bed0"), 1);
        ComNameArbiterRemove("COM3");
        ComNameArbiterAdd(5);
        ComNameArbiterFindFree(static_cast<LONG>(damage.Below(300)));
        FixFriendlyName(EnumPath, 5);
        if (isNameSound) {
            ASSERT_EQ(ReadText(ParametersPath, "PortName"), "COM5") << "run " << run;
            ++changed;
        }
        if (isFriendlySound) {
            ASSERT_EQ(ReadText(EnumPath, "FriendlyName"), "USB Serial Port (COM5)") << "run " << run;
        }
        if (isDatabaseSound) {
            ASSERT_EQ(FirstByteOfDatabase(), 0x10) << "run " << run;
            ++sound;
        }
        if (run % 100 == 0) {
            ASSERT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr)) << "run " << run;
        }
    }
    ASSERT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
    EXPECT_GT(changed, Runs / 4);
    EXPECT_GT(sound, Runs / 4);
    std::printf("number faults: %d runs, %d registry names and %d databases sound and changed\n", Runs, changed, sound);
}
