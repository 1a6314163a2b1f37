// Which machines there are below a folder. Reads folders, no file. Host side.
#pragma once

#include <string>
#include <vector>

namespace rehearse::fleet {

struct Found {
    std::string name; // relative to the fleet's folder, with '/', as the host has it: not always UTF-8
    std::string path; // what a rehearsal takes
    bool isFolder = false;
    std::string problem; // a folder that cannot be rehearsed: why; else ""
};

// In the order of their names. A folder with machine.toml, or with exports and no description, is one machine; of any
// other folder each description is one, and the folders in it are searched; the start of a capture alone is a machine
// with a problem, so that none is missing silently. Links to folders are followed, each folder is entered once. out: a
// folder that is left out, "" none.
std::vector<Found> FindMachines(const std::string& folder, const std::string& out);

// A name as reports show it: UTF-8, what cannot be read replaced.
std::string ShownName(const std::string& name);

} // namespace rehearse::fleet
