#include "simwin/drawing/IconPixels.h"

#include "simwin/modules/Resources.h"

#include <cstring>
#include <string>

namespace machine {

constexpr const char* IconGroups = "#14";
constexpr const char* Icons = "#3";
constexpr std::size_t GroupHeader = 6, GroupEntry = 14, EntryId = 12, BitmapHeader = 40;

static std::uint32_t WordAt(std::span<const std::uint8_t> data, std::size_t at, std::size_t bytes) {
    std::uint32_t value = 0;
    if (at + bytes <= data.size()) {
        std::memcpy(&value, data.data() + at, bytes);
    }
    return value;
}

// The id of the picture that suits the size best; 0 without any.
static std::uint32_t BestPicture(std::span<const std::uint8_t> group, int size) {
    std::uint32_t best = 0;
    int bestSize = 0;
    const std::uint32_t count = WordAt(group, 4, 2);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t at = GroupHeader + i * GroupEntry;
        if (at + GroupEntry > group.size()) {
            break;
        }
        const int own = group[at];
        const bool isBetter = bestSize < size ? own > bestSize : own >= size && own < bestSize;
        if (isBetter) {
            best = WordAt(group, at + EntryId, 2);
            bestSize = own;
        }
    }
    return best;
}

IconPixels PixelsOfIcon(int group, int size) {
    const Resource* list = FindProgramResource(IconGroups, "#" + std::to_string(group));
    const Resource* picture =
        list ? FindProgramResource(Icons, "#" + std::to_string(BestPicture(list->data, size))) : nullptr;
    if (!picture) {
        return {};
    }
    const std::span<const std::uint8_t> data = picture->data;
    const std::size_t width = WordAt(data, 4, 4);
    constexpr std::size_t Largest = 256;
    const bool isBitmap = WordAt(data, 0, 4) == BitmapHeader && WordAt(data, 14, 2) == 32 && width <= Largest;
    if (!isBitmap || data.size() < BitmapHeader + width * width * 4) {
        return {};
    }
    IconPixels pixels;
    pixels.size = static_cast<int>(width);
    for (std::size_t row = width; row-- > 0;) { // the lowest row comes first
        for (std::size_t column = 0; column < width; ++column) {
            pixels.argb.push_back(WordAt(data, BitmapHeader + (row * width + column) * 4, 4));
        }
    }
    return pixels;
}

} // namespace machine
