// The present state of the machine: its ports, names and values, read from its own tree and registry. Pure queries, at
// any time between two steps of the machine.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace rehearse {

struct PortFacts {
    std::string device;
    bool isPresent = false;
    std::string registryName; // PortName, else DosDeviceName, else ""
    std::string dosName;      // the COM name that leads to the running device's kernel device; "" if none
    std::string kernelName;   // "" while it does not run
    unsigned number = 0;      // of the DOS name; 0 if none
    std::string friendlyName;
    unsigned problem = 0;
    unsigned restarts = 0; // of its driver, by calls of the product
    std::string usbPort;   // controller and hub ports, "3-7-1"; "" for what is not on USB
};

bool IsKnownDevice(const std::string& id); // there now, or a key below Enum
bool IsInstalled(const std::string& id);
PortFacts FactsOf(const std::string& id);
std::vector<PortFacts> AllPorts(); // ports and modems, in the order of enumeration

// Names and what they lead to now, in the order of creation.
std::vector<std::pair<std::string, std::string>> DosNames();
std::vector<unsigned> ComDatabase(); // the numbers whose bits are set; none without a value
std::vector<std::pair<std::string, std::string>> SerialComm();

} // namespace rehearse
