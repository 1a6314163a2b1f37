// --explain: the product's reasons in the timeline, in the words of its own log. Its debugger output is forced on for
// that, and the lines that tell a decision are picked out at the moment at which they are written.
#pragma once

#include "rehearse/Timeline.h"

namespace rehearse {

// Called once, before the machine runs; undone with the machine. The timeline must live as long.
void ExplainDecisions(Timeline& timeline);

} // namespace rehearse
