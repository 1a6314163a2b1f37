// The parts of the page, each as markup. Pure but for what the machine remembers of boxes and programs.
#pragma once

#include "rehearse/html/Axis.h"
#include "rehearse/html/Page.h"
#include "rehearse/html/Words.h"

#include "simwin/kernel/Text.h"

#include <map>
#include <string>
#include <vector>

namespace rehearse::html {

// What several parts draw on.
struct Context {
    const PageFacts& facts;
    Speech say;
    Axis axis;
    std::map<std::string, std::size_t, machine::NoCaseLess> rows; // by device: its place in the verdict's ports

    explicit Context(const PageFacts& ofRun);
    // "COM20" in the end, else its id; UTF-8. A device that is no port: its id.
    std::string NameOf(const std::string& device) const;
    std::string NamesOf(const std::vector<std::string>& devices) const;
};

// "12.35", for percentages.
std::string Percent(double value);

// A table that can be scrolled by the keyboard; a long one is the first of several, and the others open on request.
// headings: not escaped yet; rows: markup of cells, the first one a heading of its row. ids: of the rows, or none.
std::string Table(const Speech& say, const std::string& caption, const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows, const std::vector<std::string>& ids = {});

std::string LanesSection(const Context& context);
std::string StretchesTable(const Context& context);
std::string TimelineSection(const Context& context);

std::string PortsSection(const Context& context);
std::string RulesSection(const Context& context);
std::string DatabaseSection(const Context& context);
std::string RestartsSection(const Context& context); // dangers, rings, what restarts together
std::string ShownSection(const Context& context);    // balloons, message boxes, programs
std::string LogSection(const Context& context);

} // namespace rehearse::html
