#include "rehearse/host/InputError.h"

#include "rehearse/host/Flow.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

// A name of the input may hold line ends; a message about it is still one line.
static std::string OnOneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return Shown(text);
}

InputError::InputError(const Position& at, std::string_view what)
    : std::runtime_error(OnOneLine(fmt::format("{}: {}", PositionText(at), what))) {
}

std::string PositionText(const Position& at) {
    return at.line ? fmt::format("{}:{}:{}", at.file, at.line, at.column) : at.file;
}

} // namespace rehearse
