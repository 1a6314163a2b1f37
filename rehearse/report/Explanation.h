// --explain: the product's reasons in the timeline, in the words of its own log: what it looked at, why a number could
// not be had, and at the end of each check what came of it. Its debugger output is forced on for that, and the lines
// that state a decision are picked out as they are written.
#pragma once

#include "rehearse/watch/CheckLog.h"
#include "rehearse/watch/Timeline.h"

namespace rehearse {

class Explanation {
public:
    // Starts to watch. Called once, before the machine runs; undone with the machine. The timeline must outlive it.
    void Watch(Timeline& timeline);
    void Finish(); // the run is over: checks that are open end

private:
    void Read(std::uint64_t context, std::string_view message);
    void Tell(const CheckNews& news);

    Timeline* m_timeline = nullptr;
    CheckLog m_log;
    std::vector<CheckNews> m_news; // of the message that is read
};

} // namespace rehearse
