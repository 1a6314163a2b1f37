// What is wrong with an input, with its place: file, line, column.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace rehearse {

struct Position {
    std::string file;
    unsigned line = 1, column = 1; // line 0: no line is to blame, such as of a folder or an output
};

// The input is wrong: nothing is run, only this line is printed.
class InputError : public std::runtime_error {
public:
    InputError(const Position& at, std::string_view what);
};

std::string PositionText(const Position& at); // "FILE:LINE:COLUMN", or "FILE" without a line

} // namespace rehearse
