#include "tests/storms/Runner.h"

#include "tests/storms/Children.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace storm {

namespace {

constexpr unsigned CountFields = 10;
constexpr int ExcuseFields = 3;

std::string ResultText(const Outcome& outcome) {
    const Counts& c = outcome.counts;
    std::string text =
        fmt::format("#counts {} {} {} {} {} {} {} {} {} {} {}\n", c.events, c.looks, c.ports, c.restarts, c.swapped,
                    c.failed, c.slow, c.sleeps, c.boots, c.fastStartups, DigestOf(outcome.everything));
    for (const auto& [reason, uses] : outcome.excuses)
        text += fmt::format("#excuse {} {} {}\n", std::find(std::begin(Excuses), std::end(Excuses), reason) - Excuses,
                            uses.all, uses.alone);
    return text + EndOf(outcome.violations);
}

RunResult ParseResult(const std::string& text, int status) {
    RunResult result;
    result.violations = ReadViolations(text, status, [&](const char* line) {
        Counts& c = result.counts;
        std::size_t excuse = 0;
        Uses uses;
        if (std::sscanf(line, "#excuse %zu %u %u", &excuse, &uses.all, &uses.alone) == ExcuseFields) {
            result.excuses[Excuses[excuse]] = uses;
            return true;
        }
        return std::sscanf(line, "#counts %u %u %u %u %u %u %u %u %u %u %lu", &c.events, &c.looks, &c.ports,
                           &c.restarts, &c.swapped, &c.failed, &c.slow, &c.sleeps, &c.boots, &c.fastStartups,
                           &result.digest) == CountFields + 1;
    });
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

std::uint64_t DigestOf(const std::string& text) {
    std::uint64_t digest = 14695981039346656037ull; // FNV-1a
    for (const char c : text)
        digest = (digest ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    return digest;
}

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
