// The pixels of the program's icons, for pictures of what was drawn.
#pragma once

#include <cstdint>
#include <vector>

namespace machine {

struct IconPixels {
    int size = 0;                    // width and height
    std::vector<std::uint32_t> argb; // by row from the top
};

// The group's picture of this size, else the next larger one, else the largest. Empty without such a group, and for a
// picture that is not a bitmap of 32 bits.
IconPixels PixelsOfIcon(int group, int size);

} // namespace machine
