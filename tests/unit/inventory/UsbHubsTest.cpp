// The USB tree as names and chains, the true port of a device, and hub lists that outlive a rescan for their readers.
#include "tests/harness/Harness.h"

#include "inventory/usb/CUsbHubs.h"
#include "inventory/usb/CUsbRoothubs.h"
#include "simwin/devices/build/Devices.h"
#include "support/system/CRTreplace.h"

namespace {
// A list of hubs of the test's own.
struct Tree {
    UsbHub hubs[MaxHubs] = {};
    UsbHubList list = {};

    // node, parent: device nodes.
    void Add(DWORD node, DWORD parent, LONG portNumber) {
        UsbHub& hub = hubs[list.Count];
        hub.Index = list.Count;
        hub.ParentIndex = NoHub;
        hub.DevInst = node;
        hub.ParentDevInst = parent;
        hub.PortNumber = portNumber;
        list.Hubs[list.Count++] = &hub;
    }
};
} // namespace

TEST(UsbHubs, NamesAndChainsReadFromTheRootDown) {
    Tree tree;
    struct Row {
        DWORD node, parent;
        LONG port;
        const char* name;
        ULONGLONG chain;
    };
    const Row rows[] = {{12, 11, 2, "1-4-2", 0x0104020000000000}, // listed before the hubs above it
                        {10, 1, 1, "1", 0x0100000000000000},
                        {11, 10, 4, "1-4", 0x0104000000000000},
                        {20, 2, 2, "2", 0x0200000000000000},
                        {21, 20, 0, "2-0", 0x0200000000000000},        // its port could not be found
                        {30, 99, 3, "3", 0x0300000000000000},          // no hub above it in the list
                        {40, 5, -1, "4294967295", 0xFF00000000000000}, // a root hub of an unknown controller
                        {41, 40, 0x105, "4294967295-261", 0xFF05000000000000}};
    for (const Row& row : rows) {
        tree.Add(row.node, row.parent, row.port);
    }
    LinkHubs(&tree.list);
    for (LONG i = 0; i < tree.list.Count; ++i) {
        EXPECT_STREQ(tree.hubs[i].szName, rows[i].name);
        EXPECT_EQ(tree.hubs[i].PortChain, rows[i].chain) << rows[i].name;
    }
    EXPECT_EQ(tree.hubs[0].ParentIndex, 2);
    EXPECT_EQ(tree.hubs[1].ParentIndex, NoHub);
}

TEST(UsbHubs, ADeepTreeIsCutAndARingEnds) {
    Tree tree;
    for (DWORD level = 1; level <= 12; ++level) {
        tree.Add(level, level - 1, 100 + static_cast<LONG>(level));
    }
    tree.Add(50, 52, 1);
    tree.Add(51, 50, 2);
    tree.Add(52, 51, 3);
    tree.Add(60, 60, 4); // says that it is its own parent
    LinkHubs(&tree.list);
    EXPECT_STREQ(tree.hubs[11].szName, "101-102-103-104-105-106");
    EXPECT_EQ(tree.hubs[11].PortChain, 0x65666768696A6B6Cull) << "eight levels from the root";
    EXPECT_LT(strlen(tree.hubs[12].szName), sizeof(tree.hubs[12].szName));
    EXPECT_STREQ(tree.hubs[15].szName, "4");
}

TEST(UsbHubs, AnOldListLivesUntilItsLastReaderIsGone) {
    CUsbHubs hubs;
    ASSERT_EQ(hubs.CreateSnapshot(), 1);
    const LONG bytesOfOneList = AllocatedBytes();
    {
        const HubReader early(&hubs);
        const UsbHubList* const first = early.List();
        ASSERT_EQ(hubs.CreateSnapshot(), 1);
        {
            const HubReader late(&hubs);
            EXPECT_NE(late.List(), first);
            ASSERT_EQ(hubs.CreateSnapshot(), 1);
            // What a reader looks up while it is there is kept too, so all three lists are.
            EXPECT_GT(AllocatedBytes(), 2 * static_cast<LONG>(sizeof(UsbHubList)));
        }
        EXPECT_EQ(first->Count, 0);
    }
    EXPECT_EQ(AllocatedBytes(), bytesOfOneList) << "both retired lists are freed";
}

TEST(UsbHubs, TheHubTellsTheTruePortWhateverTheHintsSay) {
    using machine::DeviceKind;
    machine::DevicesDescription description;
    const auto add = [&](const char* id, DeviceKind kind, const char* parent, unsigned hubPort) -> auto& {
        machine::DeviceDescription& device = description.devices.emplace_back();
        device.id = id;
        device.kind = kind;
        if (parent != nullptr) {
            device.parent = parent;
        }
        if (hubPort != 0) {
            device.hubPort = hubPort;
        }
        return device;
    };
    constexpr char ControllerId[] = "PCI\\VEN_8086&DEV_9D2F\\3&11583659&0&A0", HubId[] = "USB\\VID_0BDA&PID_5411\\5&1",
                   RootHubId[] = "USB\\ROOT_HUB30\\4&1A2B3C4D&0&0";
    add(ControllerId, DeviceKind::Controller, nullptr, 0);
    add(RootHubId, DeviceKind::RootHub, ControllerId, 0);
    add(HubId, DeviceKind::Hub, RootHubId, 4).ports = 7;
    using Row = std::tuple<const char*, unsigned, const char*, std::uint32_t>;
    const Row rows[] = {{"USB\\VID_0001&PID_0001\\1", 1, "Port_#0001.Hub_#0002", 1},
                        {"USB\\VID_0001&PID_0001\\2", 2, "port_#0005.Hub_#0002", 2}, // the hint names an empty port
                        {"USB\\VID_0001&PID_0001\\3", 3, "Port_#0000.Hub_#0002", 3}, // the address is the hint
                        {"USB\\VID_0001&PID_0001\\4", 4, "in the rack", 99},         // the hub has no such port
                        {"USB\\VID_0001&PID_0001\\6", 6, "Port_#00x", 0}};           // no hint at all
    for (const auto& [id, hubPort, location, address] : rows) {
        machine::DeviceDescription& device = add(id, DeviceKind::Usb, HubId, hubPort);
        device.location = location;
        device.address = address;
    }
    ASSERT_EQ(machine::BuildDevices(description), "");
    const auto node = [](const char* id) { return machine::TheDeviceTree().FindById(id)->number; };
    g_pUsbRoothubs = new CUsbRoothubs;
    ASSERT_EQ(g_pUsbRoothubs->CreateSnapshot(), 1);
    CUsbHubs hubs;
    ASSERT_EQ(hubs.CreateSnapshot(), 1);
    const HubReader reader(&hubs);
    for (const auto& [id, hubPort, location, address] : rows) {
        EXPECT_EQ(hubs.GetUsbPortNumber(node(id)), hubPort) << location << address;
    }
    EXPECT_EQ(hubs.GetUsbPortNumber(node(ControllerId)), 0u) << "not on a hub";
    EXPECT_EQ(hubs.FindHubByDevInst(node("USB\\VID_0001&PID_0001\\1")), nullptr) << "not a hub";
}
