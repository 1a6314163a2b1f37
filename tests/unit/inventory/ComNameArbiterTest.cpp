// The COM name database: which numbers each operation may touch, what a sweep leaves alone, which number is given out.
#include "tests/unit/inventory/PortBuilder.h"

#include "config/CSettings.h"
#include "inventory/names/CDosDeviceNames.h"
#include "inventory/names/ComNameArbiter.h"
#include "simwin/registry/Registry.h"

using Bytes = std::vector<std::uint8_t>;

constexpr char Key[] = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";

static int g_writes; // of simulated programs since the last Plant

static void Plant(const Bytes& database) {
    machine::TheRegistry().SetBinary(Key, "ComDB", database);
    machine::TheRegistry().WatchWrites([](const machine::RegistryWrite&) { ++g_writes; });
    g_writes = 0;
}

static Bytes Database() {
    return machine::TheRegistry().GetValue(Key, "ComDB")->data;
}

static int Add(int number) {
    return ComNameArbiterAdd(number);
}

static int Remove(int number) {
    return ComNameArbiterRemove(("COM" + std::to_string(number)).c_str());
}

TEST(ComNameArbiter, EachOperationKeepsItsOwnBounds) {
    using Row = std::tuple<int (*)(int), int, Bytes, Bytes>;
    const Bytes none = {0x00, 0x00}, all = {0xFF, 0xFF};
    for (const auto& [operation, number, before, after] :
         {Row{Add, 1, none, {0x01, 0x00}}, Row{Add, 8, none, {0x80, 0x00}}, Row{Add, 9, none, {0x00, 0x01}},
          // The very last number is set, but never cleared.
          Row{Add, 16, none, {0x00, 0x80}}, Row{Remove, 16, all, all}, Row{Remove, 15, all, {0xFF, 0xBF}},
          Row{Add, 17, none, none}, Row{Add, 0, none, none}, Row{Add, -1, none, none}, Row{Remove, 0, all, all},
          // What is so already is not written, and a database of no bytes has no numbers.
          Row{Add, 3, {0x04, 0x00}, {0x04, 0x00}}, Row{Remove, 3, none, none}, Row{Add, 1, {}, {}},
          Row{Remove, 1, {}, {}}}) {
        Plant(before);
        const bool changes = before != after;
        EXPECT_EQ(operation(number), changes ? 1 : 0) << number;
        EXPECT_EQ(Database(), after) << number;
        EXPECT_EQ(g_writes, changes ? 1 : 0) << number;
    }
    for (const char* name : {"COM", "", "CO", "LPTx", "COMx7"}) {
        Plant({0x00});
        EXPECT_EQ(ComNameArbiterAddByName(name), 0) << name;
        EXPECT_EQ(ComNameArbiterRemove(name), 0) << name;
        EXPECT_EQ(Database(), Bytes{0x00}) << name;
    }
}

TEST(ComNameArbiter, TheHighestNumberIsNeverGivenOut) {
    using Row = std::tuple<Bytes, LONG, LONG>;
    for (const auto& [database, first, found] :
         {Row{{0x00, 0x00}, 1, 1}, Row{{0x0F, 0x00}, 1, 5}, Row{{0x00, 0x00}, 9, 9}, Row{{0xFF, 0x3F}, 1, 15},
          Row{{0xFF, 0x7F}, 1, 0}, Row{{0x00, 0x00}, 16, 0}, Row{{}, 1, 0}}) {
        Plant(database);
        EXPECT_EQ(ComNameArbiterFindFree(first), found) << "from " << first;
    }
}

TEST(ComNameArbiter, WithoutADatabaseNothingIsMade) {
    EXPECT_EQ(ComNameArbiterAdd(3) + ComNameArbiterRemove("COM3") + ComNameArbiterFindFree(1), 0);
    EXPECT_EQ(CleanRegComPortArbiter("1-16"), 0);
    EXPECT_EQ(machine::TheRegistry().FindKey(Key), nullptr);
}

TEST(ComNameArbiter, ASweepFreesWhatIsListedAndHasNoDosName) {
    using Row = std::tuple<const char*, Bytes, Bytes, int>;
    // Live: COM3 and COM12. Names in other letters are no COM names.
    for (const char* name : {"COM3", "COM12", "com5", "COMX", "COM0", "COM999", "AUX"}) {
        ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, name, "\\Device\\Serial0")) << name;
    }
    for (const auto& [list, before, after, result] :
         {Row{"1-16", {0xFF, 0xFF}, {0x04, 0x08}, 1}, Row{"1-4,7, 16", {0xFF, 0xFF}, {0xB4, 0x7F}, 1},
          Row{"9-40", {0xFF, 0xFF}, {0xFF, 0x08}, 1}, Row{"3,12", {0xFF, 0xFF}, {0xFF, 0xFF}, 1},
          Row{"1-16", {0x00, 0x00}, {0x00, 0x00}, 1}, Row{"abc", {0xFF, 0xFF}, {0xFF, 0xFF}, 1},
          Row{"8-2", {0xFF, 0xFF}, {0xFF, 0xFF}, 0}, Row{"", {0xFF, 0xFF}, {0xFF, 0xFF}, 0}}) {
        Plant(before);
        EXPECT_EQ(CleanRegComPortArbiter(list), result) << list;
        EXPECT_EQ(Database(), after) << list;
        EXPECT_EQ(g_writes, before != after ? 1 : 0) << list;
    }
}

TEST(ComNameArbiter, AFreeNumberIsFreeInTheDatabaseAndAmongThePresentPorts) {
    g_pSettings = new CSettings;
    CComPorts* ports = inventorytest::NewTable();
    ports->AddVirtualPort("COM2", "\\Device\\Serial1");
    ports->Ports[ports->AddVirtualPort("COM4", "\\Device\\Serial3")]->IsPresent = 0;
    using Row = std::tuple<LONG, Bytes, LONG>;
    for (const auto& [maxNumber, database, found] :
         {Row{255, {0x00, 0x00}, 1}, Row{255, {0x01, 0x00}, 3}, // COM2 is clear in the database, but a port has it
          Row{255, {0x05, 0x00}, 4},                            // the port that had COM4 has left
          Row{0, {0x00, 0x00}, 0}, Row{2, {0x01, 0x00}, 0},     // after the taken 2 the search may not start again
          Row{2, {0x03, 0x00}, 3}, // the limit binds where a search starts, not what it finds
          Row{255, {0xFF, 0x7F}, 0}}) {
        g_pSettings->MaxPortNumber = maxNumber;
        Plant(database);
        EXPECT_EQ(ports->FindFreePortNumber(), found) << "up to " << maxNumber;
    }
}
