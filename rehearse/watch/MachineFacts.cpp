#include "rehearse/watch/MachineFacts.h"

#include "simwin/devices/drivers/Drivers.h"
#include "simwin/registry/Registry.h"

namespace rehearse {

constexpr const char* EnumKey = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\";
constexpr const char* SerialCommKey = "HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM";

static PortFacts FactsOfNode(const machine::DeviceNode& node) {
    PortFacts facts;
    facts.device = node.id;
    facts.isPresent = node.IsPresent();
    facts.registryName = machine::RegistryNameOf(node);
    facts.dosName = machine::DosNameOf(node);
    if (node.driver && node.driver->running) {
        facts.kernelName = node.driver->name;
    }
    facts.number = machine::ComNumberOf(facts.dosName);
    facts.friendlyName = machine::FriendlyNameOf(node);
    facts.problem = node.problem;
    facts.restarts = node.restarts;
    facts.usbPort = machine::UsbPortOf(node);
    return facts;
}

bool IsKnownDevice(const std::string& id) {
    return machine::TheDeviceTree().FindById(id) || IsInstalled(id);
}

bool IsInstalled(const std::string& id) {
    return machine::TheRegistry().FindKey(EnumKey + id) != nullptr;
}

PortFacts FactsOf(const std::string& id) {
    if (const machine::DeviceNode* node = machine::TheDeviceTree().FindById(id)) {
        return FactsOfNode(*node);
    }
    PortFacts facts;
    facts.device = id;
    return facts;
}

std::vector<PortFacts> AllPorts() {
    std::vector<PortFacts> ports;
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        if (node->IsPort()) {
            ports.push_back(FactsOfNode(*node));
        }
    }
    return ports;
}

std::vector<std::pair<std::string, std::string>> DosNames() {
    std::vector<std::pair<std::string, std::string>> names;
    for (const std::string& name : machine::TheDosNames().Names()) {
        const machine::DosDefinition* definition = machine::TheDosNames().InForce(name);
        if (definition) {
            names.emplace_back(name, definition->target);
        }
    }
    return names;
}

std::vector<unsigned> ComDatabase() {
    return machine::ComDbNumbers();
}

std::vector<std::pair<std::string, std::string>> SerialComm() {
    std::vector<std::pair<std::string, std::string>> values;
    if (const machine::RegistryKey* key = machine::TheRegistry().FindKey(SerialCommKey)) {
        for (const machine::RegistryValue& value : key->values) {
            values.emplace_back(value.name, machine::TextOf(value));
        }
    }
    return values;
}

} // namespace rehearse
