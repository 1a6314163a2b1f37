// The report of a fleet while its results come in, in the order of the names: lines for people, JSON, the page. Holds
// the rows of the page and the names, whatever the number of results.
#pragma once

#include "rehearse/fleet/Fleet.h"
#include "rehearse/fleet/FleetPage.h"
#include "rehearse/fleet/Summary.h"
#include "rehearse/host/OutputFile.h"

#include <optional>
#include <string>

namespace rehearse::fleet {

class FleetReport {
public:
    // Opens what the call wants. store: for the files that it always has when it is whole, null none. Throws
    // InputError.
    FleetReport(const Call& call, const Question& question, const Store* store, bool isWhole);
    void Take(const MachineResult& result);
    void Finish(); // throws InputError if a file cannot be written
    const Summary& All() const { return m_summary; }
    bool PrintsLines() const { return m_printsLines; }

private:
    const Question& m_question;
    const Store* m_store;
    bool m_isWhole, m_printsLines;
    Output m_json, m_html;
    Summary m_summary;
    FleetPage m_page, m_ownPage;      // where the call wants it, and in the store
    std::optional<WholeFile> m_lines; // the JSON in the store
};

} // namespace rehearse::fleet
