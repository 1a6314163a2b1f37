// What the sources for Windows share: its texts are UTF-16, the tool's UTF-8. Only they include this.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace rehearse {

std::wstring WideText(std::string_view utf8);
std::string Utf8Text(std::wstring_view wide);
std::string SystemText(std::uint32_t code); // the system's words for an error of its own, without the full stop

} // namespace rehearse
