#include "rehearse/expectations/Expectations.h"
#include "rehearse/watch/LogOutput.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <regex>
#include <string_view>

namespace rehearse {

constexpr std::size_t None = ~std::size_t{0};

static std::size_t FirstWith(const std::vector<std::string>& lines, std::string_view text, std::size_t from = 0) {
    for (std::size_t i = from; i < lines.size(); ++i) {
        if (lines[i].find(text) != std::string::npos) {
            return i;
        }
    }
    return None;
}

// `*` any run, `?` one character, exact in case; the whole line.
static bool FitsExactly(std::string_view text, std::string_view pattern) {
    std::size_t at = 0, p = 0, star = None, mark = 0;
    while (at < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = at;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[at])) {
            ++p;
            ++at;
        } else if (star != None) {
            p = star + 1;
            at = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

static void JudgeCount(const TomlTable& expect, std::size_t found, const std::string& what, Wrongs& wrongs) {
    if (expect.Has("count") ? found != static_cast<std::size_t>(expect.NumberOf("count")) : found == 0) {
        wrongs.push_back(
            fmt::format("{} records {}, not {}", found, what,
                        expect.Has("count") ? fmt::format("{}", expect.NumberOf("count")) : "one at least"));
    }
}

static void JudgeOrder(const std::vector<std::string>& texts, const std::vector<std::string>& lines, Wrongs& wrongs) {
    std::size_t from = 0;
    std::string before = "the beginning";
    for (const std::string& text : texts) {
        const std::size_t at = FirstWith(lines, text, from);
        if (at == None) {
            wrongs.push_back(fmt::format("no record with '{}' after {}{}", text, before,
                                         FirstWith(lines, text) == None ? "" : ", only before it"));
            return;
        }
        from = at + 1;
        before = fmt::format("'{}'", text);
    }
}

// Compares the debugger output of each process, as "delta message", with the lines of the log: none may be lost, torn
// or written twice, and each must carry the delta that its own process had reached and the tag of its process's kind.
static void JudgeComplete(const std::vector<std::string>& lines, Wrongs& wrongs) {
    constexpr const char* Mark = "[QUILLMARCH]  ";
    std::map<std::string, int> missing; // written, but not found; below zero: found too often
    std::size_t written = 0, writers = 0;
    for (const machine::Process* process : machine::AllProcesses()) {
        writers += !process->debugOutput.empty();
        for (std::string record : machine::Split(process->debugOutput, '\n')) {
            const std::size_t at = record.find(Mark);
            if (at == std::string::npos) {
                continue;
            }
            ++missing[record.erase(at, std::string_view(Mark).size())];
            ++written;
        }
    }
    if (written == 0) {
        wrongs.push_back("no record went to the debugger: there is nothing to compare with");
        return;
    }
    static const std::regex Form(
        R"(\d\d:\d\d:\d\d\.\d (\([ \d]{4}\)) (?:\{\d{4,}\}|\[(?:ns|in|sa|ba|ex)\d\d+\]) <[1-6]> ([^\r]*))");
    for (const std::string& line : lines) {
        std::smatch parts;
        if (std::regex_match(line, parts, Form)) {
            --missing[parts.str(1) + parts.str(2)];
        } else {
            wrongs.push_back(fmt::format("'{}' is no whole record", line));
        }
    }
    for (const auto& [record, count] : missing) {
        if (count != 0) {
            wrongs.push_back(fmt::format("'{}' is {}", record, count > 0 ? "lost" : "there more often than written"));
        }
    }
    constexpr std::size_t Shown = 5;
    if (wrongs.size() > Shown) {
        wrongs.resize(Shown);
    }
    if (!wrongs.empty()) {
        wrongs.push_back(fmt::format("{} records of {} processes, {} lines", written, writers, lines.size()));
    }
}

void JudgeLog(const TomlTable& expect, Wrongs& wrongs) {
    if (!IsLogOn()) {
        wrongs.push_back("the log is off");
        return;
    }
    const std::vector<std::string> lines = LogLines();
    if (expect.Has("log")) {
        const std::string text = expect.TextOf("log");
        const auto found = std::count_if(lines.begin(), lines.end(),
                                         [&](const std::string& line) { return line.find(text) != std::string::npos; });
        JudgeCount(expect, static_cast<std::size_t>(found), fmt::format("of the log contain '{}'", text), wrongs);
        if (expect.Has("before")) {
            const std::string other = expect.TextOf("before");
            const std::size_t first = FirstWith(lines, text), second = FirstWith(lines, other);
            if (second == None) {
                wrongs.push_back(fmt::format("no record of the log contains '{}'", other));
            } else if (first != None && first >= second) {
                wrongs.push_back(
                    fmt::format("'{}' is in record {}, '{}' in record {}", text, first + 1, other, second + 1));
            }
        }
    } else if (expect.Has("log_complete")) {
        JudgeComplete(lines, wrongs);
    } else if (expect.Has("log_order")) {
        JudgeOrder(expect.TextsOf("log_order"), lines, wrongs);
    } else {
        const std::string pattern = expect.TextOf("log_match");
        const auto found = std::count_if(lines.begin(), lines.end(),
                                         [&](const std::string& line) { return FitsExactly(line, pattern); });
        JudgeCount(expect, static_cast<std::size_t>(found), fmt::format("of the log fit '{}'", pattern), wrongs);
    }
}

} // namespace rehearse
