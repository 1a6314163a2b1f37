// The ports of a section and the numbers that it wants: invalid criteria, sections that never win, numbers that two
// want. Pure.
#pragma once

#include "rehearse/rules/SectionKeys.h"

#include <vector>

namespace rehearse {

void CheckCriteria(const IniFile& ini, Findings& findings);

// Which section fits every port that another one fits. The file must live as long.
class Coverage {
public:
    explicit Coverage(const IniFile& ini);
    // The first section before this one that is certain to fit all that this one fits; null without one.
    const IniSection* CoveringSection(const IniSection& section) const;

private:
    struct Rule {
        const IniSection* section;
        std::vector<CriterionValue> criteria;
    };
    static bool Covers(const Rule& wide, const Rule& narrow);
    std::vector<Rule> m_rules; // in the order of the test
};

} // namespace rehearse
