// The report of a fleet as one page: what the machines have in common, then a table of all of them that leads to their
// own pages. It needs no network; without scripts it is a table in the order of the names. Pure.
#pragma once

#include "rehearse/fleet/Result.h"
#include "rehearse/fleet/Store.h"
#include "rehearse/fleet/Summary.h"

#include <string>

namespace rehearse::fleet {

class FleetPage {
public:
    // folder: of the results as seen from the page, "" the same.
    FleetPage(const Question& question, std::string folder);
    void Take(const MachineResult& result); // a row of the table
    std::string Make(const Summary& summary) const;

private:
    std::string PartsSection(const Summary& summary) const;
    std::string MachinesSection(const Summary& summary) const;

    const Question& m_question;
    std::string m_folder;
    std::string m_rows;
};

} // namespace rehearse::fleet
