// A rehearsal as one page of HTML that needs nothing but itself: no network, no script to be read, no screen to be
// printed. Made after the run, while its machine is still there; changes nothing. The same run gives the same bytes.
#pragma once

#include "rehearse/html/Lanes.h"
#include "rehearse/report/Pictures.h"
#include "rehearse/report/Verdict.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/LogOutput.h"
#include "rehearse/watch/Timeline.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rehearse::html {

inline constexpr std::size_t MostPictures = 40; // of a page; more balloons are listed by their texts

struct PageFacts {
    std::string title, description; // UTF-8; of the description, and its file
    std::string configurationFile;  // of the host, "" the one that the description names
    std::string configuration;      // its text at the start, in the machine's code page; "" none
    std::optional<std::uint64_t> seed;
    std::string stopped;               // what the run was stopped by, "" it ended in good order
    bool isChecked = false;            // the expectations were judged
    std::vector<std::string> failures; // those that were not met
    bool isGerman = false;
    const Timeline& timeline;
    const Balloons& balloons;
    const Verdict& verdict;
    const Lanes& lanes;
    const ObservedLog& log;
    const std::vector<Picture>& pictures;
};

// The configuration file of the machine as it is now, in its code page; "" if there is none.
std::string ConfigurationText();

std::string MakePage(const PageFacts& facts);

} // namespace rehearse::html
