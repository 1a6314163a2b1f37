// The device tree of the machine: every device that it knows, present or not, with its number, its place, its state and
// its driver. Properties that Windows keeps in the registry are read there; a node holds what lives only while the
// machine runs. Nodes are never freed before the machine is.
#pragma once

#include "simwin/devices/tree/Description.h"
#include "simwin/devices/tree/DosNames.h"
#include "simwin/kernel/Objects.h"
#include "simwin/kernel/Room.h"
#include "simwin/kernel/Text.h"
#include "simwin/kernel/types.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct DeviceNode;

// A device interface of a node: its class and whether it can be opened now.
struct DeviceInterface {
    DeviceNode* node = nullptr;
    std::string classGuid;   // '{86e0d1e0-8089-11d0-9ce4-08003e301f73}', lower case
    std::string path;        // '\\?\acpi#pnp0501#1#{...}', all lower case: the setup API's form
    std::string noticePath;  // '\\?\ACPI#PNP0501#1#{...}', the id as it is written: the form of notifications
    bool registered = false; // it is in the lists of all devices, also while it is down
    bool up = false;
};

// One start of a driver: its kernel device. It outlives its device while a handle to it is open.
struct KernelDevice {
    std::string name; // '\Device\VCP0'
    DeviceNode* node = nullptr;
    bool running = true;
    int handles = 0;
    int references = 1; // the driver's and those of open handles
    bool deleteLinkWithLastHandle = false;
    std::string linkName; // the DOS name that the driver made
    DefinitionId link = 0;
};

// What makes a device stop and start: an event outside, or a call of the product.
enum class Cause : std::uint8_t { Outside, Product };

enum class DeviceState : std::uint8_t { Absent, Stopped, Starting, Running };

struct DeviceNode {
    simwin::DWORD number = 0;  // the DEVINST
    bool hasOwnNumber = false; // set at every start; not counted
    std::string id;            // as it is written
    std::string enumPath;      // 'HKLM\SYSTEM\CurrentControlSet\Enum\...'
    DeviceKind kind = DeviceKind::Other;
    bool root = false;        // HTREE\ROOT\0
    bool printerPort = false; // class Ports, but LPTn: no COM interface, no SERIALCOMM
    DeviceDescription said;   // what the description says; all unset for a device known from exports alone
    bool installed = false;   // its key below Enum is there
    bool uninstalled = false; // taken out of the tree by an uninstall

    DeviceNode* parent = nullptr;
    std::vector<DeviceNode*> children; // in the order of enumeration
    std::vector<std::unique_ptr<DeviceInterface>> interfaces;

    bool attached = false;   // it is plugged in: present whenever its parent is
    bool pulledOut = false;  // an event pulled it out, so a plug of its parent leaves it out
    bool crowdedOut = false; // one of several in the exports on one hub port, and not the one that is present
    std::string whyAbsent;   // why the exports' device is not there at the start; "" if it is
    DeviceState state = DeviceState::Absent;
    simwin::DWORD problem = 0;
    simwin::DWORD stickyProblem = 0; // the result of every later start; 0: a start clears the problem
    bool quietStart = false;         // a problem that ends quietly: the driver starts, the interfaces stay as they are
    std::uint64_t startSerial = 0;   // a start that was overtaken by something else is not finished
    std::uint64_t attachedAtMs = 0;
    bool longKnown = true; // there since the start: its hub knows it
    unsigned starts = 0;   // of its driver
    std::uint32_t vetoesLeft = 0;

    std::optional<std::uint32_t> irq, ioPort; // what its driver is given
    unsigned hubPort = 0;                     // of its parent hub; 0: none
    unsigned ports = 0;                       // of a hub
    unsigned hubNumber = 0;                   // as its devices call it in the exports, else the lowest free; 0: no hub

    KernelDevice* driver = nullptr;         // of a port or modem that runs
    bool stoppedByProduct = false;          // its running driver was stopped by a call of the product
    std::optional<std::size_t> openRestart; // begun by a disable or a removal, ended by the call that starts it
    unsigned restarts = 0;
    bool installing = false;           // for the first time, and it has not started yet
    bool leaving = false;              // it is leaving, step by step
    bool isComingBack = false;         // out for a moment: a cycle, a replug, a move
    DeviceNode* comesBackOn = nullptr; // of a move: the hub, and its port
    unsigned comesBackOnPort = 0;
    bool returnsAfterLeaving = false;
    Cause startCause = Cause::Outside; // who requested the start in progress
    bool wasHeld = false;              // `held_by` opened it once
    WaitQueue startWaiters;            // threads whose call waits until it runs or has failed

    bool IsPresent() const { return state != DeviceState::Absent; }
    bool IsRunning() const { return state == DeviceState::Running; }
    bool IsHub() const { return kind == DeviceKind::Hub || kind == DeviceKind::RootHub; }
    bool IsPort() const { return kind == DeviceKind::Port || kind == DeviceKind::Modem; }
};

// Interfaces by the name of their registry key, in capitals.
using InterfaceKeys = std::map<std::string, DeviceInterface*>;

// Orders instance ids as the registry lists their keys: by enumerator, device, instance, each in capitals.
struct InstanceIdLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const;
};

class DeviceTree {
public:
    DeviceNode* Find(simwin::DWORD number) const; // null if it never existed or was uninstalled
    DeviceNode* FindById(std::string_view id) const;
    DeviceNode* Root() const { return m_root; }
    // In the order of enumeration, uninstalled ones left out.
    std::vector<DeviceNode*> All() const;
    // With those that were uninstalled and may come again.
    std::vector<DeviceNode*> AllEver() const;
    // All in the order of the registry: by instance id in capitals, key by key.
    std::vector<DeviceNode*> AllByRegistry() const;
    // Creates a node below a parent (null: not yet). number 0: the next one.
    DeviceNode* Add(std::string_view id, simwin::DWORD number = 0);
    // False, and nothing changes, for a parent that hangs below the node itself.
    bool SetParent(DeviceNode* node, DeviceNode* parent);
    void MakeRoot(DeviceNode* node);

    // Interfaces. A class lists its interfaces in the order of their registry keys.
    DeviceInterface* AddInterface(DeviceNode* node, std::string_view classGuid);
    void RemoveInterfaces(DeviceNode* node);                                  // before the machine runs
    DeviceInterface* FindInterface(std::string_view pathWithoutPrefix) const; // '\\?\' and '\\.\' already cut
    const InterfaceKeys* InterfacesOf(std::string_view classGuid) const;      // null: no such class
    const std::map<std::string, InterfaceKeys, NoCaseLess>& InterfaceClasses() const { return m_byClass; }

    // Kernel devices. A name is taken while its device runs or a handle to it is open.
    KernelDevice* RunningDevice(std::string_view kernelName) const;
    bool IsKernelNameTaken(std::string_view kernelName) const;
    KernelDevice* MakeKernelDevice(DeviceNode* node, std::string_view wanted); // digits at its end count up if taken
    void ReleaseKernelDevice(KernelDevice* device);

    // A boot: numbers count from the first one again, in the order of enumeration; uninstalled devices come last.
    void Renumber();

    // Takes it out of the tree for good; its number stays its own.
    void Forget(DeviceNode* node);
    void Revive(DeviceNode* node);

private:
    simwin::DWORD NextNumber();

    std::vector<std::unique_ptr<DeviceNode>> m_nodes; // by number from m_first on, and the root of number 1
    std::map<simwin::DWORD, DeviceNode*> m_byNumber;
    std::map<std::string, DeviceNode*, InstanceIdLess> m_byId;
    std::map<std::string, DeviceInterface*, NoCaseLess> m_byPath;
    std::map<std::string, InterfaceKeys, NoCaseLess> m_byClass;
    std::map<std::string, std::vector<std::unique_ptr<KernelDevice>>, NoCaseLess> m_kernel;
    // For the counting up of kernel names: all numbers from `base` to below `next` are taken.
    struct Counter {
        unsigned base, next;
    };
    std::map<std::string, Counter, NoCaseLess> m_counters;
    DeviceNode* m_root = nullptr;
    simwin::DWORD m_next = 0;
};

DeviceTree& TheDeviceTree();

// Whether a node hangs at or below another; a null node does not.
bool HangsBelow(const DeviceNode* node, const DeviceNode* top);

// Properties, as the configuration manager gives them: the registry values, with texts of the form
// "@file,%name%;Text" cut to the text and "(1,2,3)" filled in. "" for one that is not there.
std::string DeviceText(const DeviceNode& node, const char* value);
std::string ClassNameOf(const DeviceNode& node);
std::string ServiceOf(const DeviceNode& node);
std::string DescriptionOf(const DeviceNode& node);
std::string DriverKeyOf(const DeviceNode& node);
std::string LocationPathOf(const DeviceNode& node);
std::string PhysicalNameOf(const DeviceNode& node);    // '\Device\0000002a'
std::string InterfaceTargetOf(const DeviceNode& node); // what its interface path leads to
std::string ReadableText(std::string_view stored);     // "@pci.sys,#1;bus %1, device %2;(0,7)" -> "bus 0, device 7"

// What the report and the expectations ask of a port.
std::string RegistryNameOf(const DeviceNode& node); // PortName, else DosDeviceName, else ""
std::string DosNameOf(const DeviceNode& node);      // COMn that leads to its running kernel device; "" if none
std::string FriendlyNameOf(const DeviceNode& node);
std::string UsbPortOf(const DeviceNode& node); // '1-4-2-3': controller, then hub ports; '1' of a root hub; or ""

RoomPtr MakeDeviceTree();

} // namespace machine
