// Result of an assignment check, a renaming or a swap of two numbers.
#pragma once

enum class AssignmentOutcome : int {
    Unchanged = 0,
    Changed = 1,
    Incomplete = 2, // something failed on the way: names may be the old or the new ones
};
