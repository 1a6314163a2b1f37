// Text for a terminal: lines end at blanks, so that an id or a path is never broken and can be copied. Pure.
#pragma once

#include <string>

namespace rehearse {

// width: columns of the terminal, 0 for a file, whose lines are left as they are. indent: where what follows the first
// line begins; a word that has no room there begins at the left edge. text: one line, UTF-8.
std::string Flow(const std::string& text, std::size_t width, std::size_t indent);

// Control characters other than line ends and tabs as \xNN: in the name of a device or a file they would move the
// cursor of a terminal, hide lines, or set its title. text: UTF-8.
std::string Shown(const std::string& text);

// Columns that a text takes; colours take none.
std::size_t ColumnsOf(const std::string& utf8);

} // namespace rehearse
