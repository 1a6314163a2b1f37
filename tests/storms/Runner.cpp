#include "tests/storms/Runner.h"

#include "tests/storms/Children.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace storm {

namespace {

constexpr unsigned CountFields = 7;

std::uint64_t DigestOf(const std::string& text) {
    std::uint64_t digest = 14695981039346656037ull; // FNV-1a
    for (const char c : text)
        digest = (digest ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    return digest;
}

std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', '|');
    return text;
}

std::string ResultText(const Outcome& outcome) {
    const Counts& c = outcome.counts;
    std::string text = fmt::format("#counts {} {} {} {} {} {} {} {}\n", c.events, c.looks, c.ports, c.restarts, c.swaps,
                                   c.failed, c.slow, DigestOf(outcome.everything));
    for (const Violation& violation : outcome.violations)
        text += fmt::format("#broken {}\t{}\n", violation.what, OneLine(violation.how));
    return text;
}

RunResult ParseResult(const std::string& text, int status) {
    RunResult result;
    std::string rest;
    bool hasCounts = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        Counts& c = result.counts;
        unsigned long long digest = 0;
        if (std::sscanf(line.c_str(), "#counts %u %u %u %u %u %u %u %llu", &c.events, &c.looks, &c.ports, &c.restarts,
                        &c.swaps, &c.failed, &c.slow, &digest) == CountFields + 1) {
            result.digest = digest;
            hasCounts = true;
        } else if (line.starts_with("#broken ")) {
            const std::size_t tab = line.find('\t');
            result.violations.push_back({line.substr(8, tab - 8), line.substr(tab + 1)});
        } else {
            rest += line + "|";
        }
    }
    if (status != 0 || !hasCounts)
        result.violations.insert(result.violations.begin(),
                                 {"the storm runs to its end", fmt::format("wait status {}: {}", status, rest)});
    return result;
}

// Takes parts out of a list as long as the rest still fails: halves first, single ones last.
template<typename List, typename Fails>
void ShrinkList(List& list, const Fails& fails) {
    for (std::size_t part = std::max<std::size_t>(list.size() / 2, 1); !list.empty(); part /= 2) {
        for (std::size_t at = 0; at < list.size();) {
            const List whole = list;
            const auto first = list.begin() + static_cast<std::ptrdiff_t>(at);
            list.erase(first, first + static_cast<std::ptrdiff_t>(std::min(part, list.size() - at)));
            if (!fails()) {
                list = whole;
                at += part;
            }
        }
        if (part <= 1)
            return;
    }
}

bool HasChildren(const Plan& plan, std::size_t unit) {
    return std::any_of(plan.devices.begin(), plan.devices.end(), [&](const Device& device) {
        return device.unit != unit && std::any_of(plan.devices.begin(), plan.devices.end(), [&](const Device& parent) {
                   return parent.unit == unit && parent.id == device.parent;
               });
    });
}

Plan WithoutUnit(const Plan& plan, std::size_t unit) {
    Plan smaller = plan;
    const int number = static_cast<int>(unit);
    std::erase_if(smaller.devices, [&](const Device& device) { return device.unit == unit; });
    std::erase_if(smaller.events, [&](const Event& event) { return event.unit == number; });
    smaller.units[unit].clear();
    return smaller;
}

} // namespace

void Runner::RunAll(std::size_t count, const std::function<Plan(std::size_t)>& plan,
                    const std::function<void(std::size_t, const RunResult&)>& done) const {
    RunInChildren(
        count, m_jobs,
        [&](std::size_t place) { return ResultText(RunStorm(plan(place), m_imageFile, m_resourceFile)); },
        [&](std::size_t place, const std::string& text, int status) { done(place, ParseResult(text, status)); });
}

RunResult Runner::Run(const Plan& plan) const {
    RunResult result;
    RunAll(
        1, [&](std::size_t) { return plan; }, [&](std::size_t, const RunResult& r) { result = r; });
    return result;
}

bool Runner::StillFails(const Plan& plan, const std::string& what) const {
    const std::vector<Violation> violations = Run(plan).violations;
    return std::any_of(violations.begin(), violations.end(), [&](const Violation& v) { return v.what == what; });
}

Plan Runner::Shrink(const Plan& plan, const std::string& what) const {
    Plan small = plan;
    const auto fails = [&] { return StillFails(small, what); };
    ShrinkList(small.events, fails);
    ShrinkList(small.faults, fails);
    for (std::size_t unit = small.units.size(); unit-- > 1;) {
        if (small.units[unit].empty() || HasChildren(small, unit))
            continue;
        const Plan smaller = WithoutUnit(small, unit);
        if (StillFails(smaller, what))
            small = smaller;
    }
    for (Configuration& configuration : small.configurations) {
        ShrinkList(configuration.sections, fails);
        if (&configuration != &small.configurations.back()) // which says that a resume checks
            ShrinkList(configuration.settings, fails);
    }
    ShrinkList(small.dosNames, fails);
    ShrinkList(small.events, fails);
    return small;
}

} // namespace storm
