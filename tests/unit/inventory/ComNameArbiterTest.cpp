// The COM name database: which numbers each operation may touch, what a sweep leaves alone, which number is given out.
#include "tests/harness/Harness.h"

#include "config/CSettings.h"
#include "inventory/CComPorts.h"
#include "inventory/CDosDeviceNames.h"
#include "inventory/ComNameArbiter.h"
#include "simwin/registry/Registry.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr char kKey[] = "HKLM\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";

void Plant(const Bytes& database) {
    machine::TheRegistry().SetBinary(kKey, "ComDB", database);
}

Bytes Database() {
    const machine::RegistryValue* value = machine::TheRegistry().GetValue(kKey, "ComDB");
    return value != nullptr ? value->data : Bytes{};
}

// Counts what simulated programs write from here on.
struct WriteCount {
    int writes = 0;
    WriteCount() {
        machine::TheRegistry().WatchWrites([this](const machine::RegistryWrite&) { ++writes; });
    }
    ~WriteCount() { machine::TheRegistry().WatchWrites({}); }
};

int Add(int number) {
    return ComNameArbiterAdd(number);
}

int Remove(int number) {
    return ComNameArbiterRemove(("COM" + std::to_string(number)).c_str());
}

TEST(ComNameArbiter, EachOperationKeepsItsOwnBounds) {
    struct Row {
        const char* what;
        int (*operation)(int);
        int number;
        Bytes before, after;
    };
    for (const Row& row : {
             Row{"the first number", Add, 1, {0x00, 0x00}, {0x01, 0x00}},
             Row{"a byte's last number", Add, 8, {0x00, 0x00}, {0x80, 0x00}},
             Row{"the next byte's first number", Add, 9, {0x00, 0x00}, {0x00, 0x01}},
             Row{"the very last number is set", Add, 16, {0x00, 0x00}, {0x00, 0x80}},
             Row{"but never cleared", Remove, 16, {0xFF, 0xFF}, {0xFF, 0xFF}},
             Row{"the last but one is", Remove, 15, {0xFF, 0xFF}, {0xFF, 0xBF}},
             Row{"behind the end", Add, 17, {0x00, 0x00}, {0x00, 0x00}},
             Row{"no number", Add, 0, {0x00, 0x00}, {0x00, 0x00}},
             Row{"below the first", Add, -1, {0x00, 0x00}, {0x00, 0x00}},
             Row{"no number cleared", Remove, 0, {0xFF, 0xFF}, {0xFF, 0xFF}},
             Row{"set already", Add, 3, {0x04, 0x00}, {0x04, 0x00}},
             Row{"clear already", Remove, 3, {0x00, 0x00}, {0x00, 0x00}},
             Row{"a database of no bytes", Add, 1, {}, {}},
             Row{"and nothing in it to clear", Remove, 1, {}, {}},
         }) {
        Plant(row.before);
        const WriteCount count;
        const bool changes = row.before != row.after;
        EXPECT_EQ(row.operation(row.number), changes ? 1 : 0) << row.what;
        EXPECT_EQ(Database(), row.after) << row.what;
        EXPECT_EQ(count.writes, changes ? 1 : 0) << row.what;
    }
}

TEST(ComNameArbiter, ANameWithoutNumberChangesNothing) {
    for (const char* name : {"COM", "", "CO", "LPTx", "COMx7"}) {
        Plant({0x00});
        EXPECT_EQ(ComNameArbiterAddByName(name), 0) << name;
        EXPECT_EQ(ComNameArbiterRemove(name), 0) << name;
        EXPECT_EQ(Database(), Bytes{0x00}) << name;
    }
}

TEST(ComNameArbiter, TheHighestNumberIsNeverGivenOut) {
    struct Row {
        Bytes database;
        LONG first, found;
    };
    for (const Row& row : {
             Row{{0x00, 0x00}, 1, 1},
             Row{{0x0F, 0x00}, 1, 5},
             Row{{0x00, 0x00}, 9, 9},
             Row{{0xFF, 0x3F}, 1, 15},
             Row{{0xFF, 0x7F}, 1, 0},
             Row{{0x00, 0x00}, 16, 0},
             Row{{}, 1, 0},
         }) {
        Plant(row.database);
        EXPECT_EQ(ComNameArbiterFindFree(row.first), row.found) << "from " << row.first;
    }
}

TEST(ComNameArbiter, WithoutADatabaseNothingIsMade) {
    EXPECT_EQ(ComNameArbiterAdd(3), 0);
    EXPECT_EQ(ComNameArbiterRemove("COM3"), 0);
    EXPECT_EQ(ComNameArbiterFindFree(1), 0);
    EXPECT_EQ(CleanRegComPortArbiter("1-16"), 0);
    EXPECT_EQ(machine::TheRegistry().FindKey(kKey), nullptr);
}

TEST(ComNameArbiter, ASweepFreesWhatIsListedAndHasNoDosName) {
    struct Row {
        const char* list;
        Bytes before, after;
        int result;
    };
    // Live: COM3 and COM12. Names in other letters are no COM names.
    for (const char* name : {"COM3", "COM12", "com5", "COMX", "COM0", "COM999", "AUX"}) {
        ASSERT_TRUE(CreateDosName(name, "\\Device\\Serial0")) << name;
    }
    for (const Row& row : {
             Row{"1-16", {0xFF, 0xFF}, {0x04, 0x08}, 1},
             Row{"1-4,7, 16", {0xFF, 0xFF}, {0xB4, 0x7F}, 1},
             Row{"9-40", {0xFF, 0xFF}, {0xFF, 0x08}, 1},
             Row{"3,12", {0xFF, 0xFF}, {0xFF, 0xFF}, 1},
             Row{"1-16", {0x00, 0x00}, {0x00, 0x00}, 1},
             Row{"abc", {0xFF, 0xFF}, {0xFF, 0xFF}, 1},
             Row{"8-2", {0xFF, 0xFF}, {0xFF, 0xFF}, 0},
             Row{"", {0xFF, 0xFF}, {0xFF, 0xFF}, 0},
         }) {
        Plant(row.before);
        const WriteCount count;
        const std::string shown = std::string("list '") + row.list + "'";
        EXPECT_EQ(CleanRegComPortArbiter(row.list), row.result) << shown;
        EXPECT_EQ(Database(), row.after) << shown;
        EXPECT_EQ(count.writes, row.before != row.after ? 1 : 0) << shown;
    }
}

TEST(ComNameArbiter, AFreeNumberIsFreeInTheDatabaseAndAmongThePresentPorts) {
    CSettings settings;
    g_pSettings = &settings;
    CComPorts ports;
    ports.AddVirtualPort("COM2", "\\Device\\Serial1");
    const int gone = ports.AddVirtualPort("COM4", "\\Device\\Serial3");
    ports.Ports[gone]->IsPresent = 0;
    struct Row {
        LONG maxNumber;
        Bytes database;
        LONG found;
    };
    for (const Row& row : {
             Row{255, {0x00, 0x00}, 1},
             Row{255, {0x01, 0x00}, 3}, // COM2 is clear in the database, but a port has it
             Row{255, {0x05, 0x00}, 4}, // the port that had COM4 has left
             Row{0, {0x00, 0x00}, 0},
             Row{2, {0x01, 0x00}, 0}, // behind the taken 2 the search may not start again
             Row{2, {0x03, 0x00}, 3}, // the limit binds where a search starts, not what it finds
             Row{255, {0xFF, 0x7F}, 0},
         }) {
        settings.MaxPortNumber = row.maxNumber;
        Plant(row.database);
        EXPECT_EQ(ports.FindFreePortNumber(), row.found) << "up to " << row.maxNumber;
    }
    g_pSettings = nullptr;
}

} // namespace
