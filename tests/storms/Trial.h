// One description on a machine of its own: built, run until it is at rest, stopped.
#pragma once

#include "rehearse/run/Run.h"
#include "rehearse/watch/Balloons.h"
#include "rehearse/watch/Leaks.h"
#include "rehearse/watch/Timeline.h"
#include "tests/storms/Rest.h"

#include <functional>

namespace storm {

class Trial {
public:
    explicit Trial(const rehearse::TomlTable& description) : stage{&description, &timeline, &balloons} {}

    // onBuilt: before the run. atEnd: after it, before the last stop; not if the run did not end in order.
    // afterStop: likewise after the last stop.
    void Run(const rehearse::Options& options, std::uint64_t settlingMs, Rest& judge,
             const std::function<void()>& onBuilt, const std::function<void()>& atEnd,
             const std::function<void()>& afterStop);

    rehearse::Timeline timeline;
    rehearse::Balloons balloons;
    rehearse::Leaks leaks;
    rehearse::Stage stage;
};

} // namespace storm
