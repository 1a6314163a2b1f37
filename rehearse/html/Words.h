// The words of the page in the reader's language, and the escaping of everything that is not ours. Pure.
#pragma once

#include "rehearse/report/Verdict.h"

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace rehearse::html {

// Picks one of two texts: say("Port", "Port").
class Speech {
public:
    explicit Speech(bool isGerman) : m_isGerman(isGerman) {}
    const char* operator()(const char* english, const char* german) const { return m_isGerman ? german : english; }
    // The same with places for values, as fmt has them.
    template<typename... Args>
    std::string Format(const char* english, const char* german, const Args&... args) const {
        return fmt::vformat((*this)(english, german), fmt::make_format_args(args...));
    }

    // A text of the verdict or the timeline, UTF-8. What has no translation stays as it is.
    std::string Phrase(const std::string& english) const;
    // The same as markup, in which what is English on a German page says so.
    std::string Markup(const std::string& english) const;
    // Markup of an English text that has no translation.
    std::string Foreign(const std::string& english) const;
    std::string Time(std::uint64_t ms) const; // "12.350 s", "12,350 s"
    std::string Sentence(const Verdict& verdict) const;

private:
    bool m_isGerman;
};

// UTF-8 as text of an element or in double quotes of an attribute. Characters that would be invisible or turn the
// reading direction are shown as such.
std::string Escaped(std::string_view utf8);
std::string EscapedAnsi(const std::string& ansi);

} // namespace rehearse::html
