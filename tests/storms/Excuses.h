// What may excuse a broken statement. A letter stands for an exception of the order of steps, with its paragraph in
// docs/decisions.md; "-" for a fact of the machine. A run counts how often each was needed: what never is has to go.
#pragma once

#include <array>
#include <cstdint>
#include <set>

namespace storm {

enum class Excuse : std::uint8_t {
    OwnersLink,
    LeftNumber,
    TwoArrivals,
    SharedBit,
    CleanedInSwap,
    Marked,
    SwapMark,
    TwoNames,
    OwnerAway,
    SharedAndMoved,
    NoResume,
    PulledWhileRead,
    TwoWideLists,
    CallFailed,
    Hindered,
    LinkInTheWay,
    LinkTaken,
    FoundItTaken,
    LateLink,
    Modem,
    NotTold,
    BeforeListening,
    Twin,
    NoDevice,
    Count
};

struct ExcuseRow {
    Excuse excuse;
    const char *letter, *who, *until;
};

constexpr ExcuseRow ExcuseRows[] = {
    {Excuse::OwnersLink, "a", "whose link the product deleted for another device", "its next start"},
    {Excuse::LeftNumber, "a", "who has the number that another one's record still shows", "that one comes anew"},
    {Excuse::TwoArrivals, "a", "whose second arrival does not know of the first", "5 s later"},
    {Excuse::SharedBit, "b", "whose name another port had and gave up", "its next start"},
    {Excuse::CleanedInSwap, "b", "who was out for a swap during a clean-up", "its next start"},
    {Excuse::Marked, "c", "who stays marked for a restart", "the mark goes"},
    {Excuse::SwapMark, "d", "whose arrival the mark of an old swap dropped", "its next start"},
    {Excuse::TwoNames, "h", "who lost the second of two names", "its next start"},
    {Excuse::OwnerAway, "i", "who got the number of one that has no DOS name, and that one", "5 s and its next start"},
    {Excuse::SharedAndMoved, "i", "who shared the name of a port that was moved", "5 s and its next start"},
    {Excuse::NoResume, "i", "who shares a number where nothing checks all ports", "the end"},
    {Excuse::PulledWhileRead, "j", "who was pulled out while its socket was asked", "at once"},
    {Excuse::TwoWideLists, "j", "whose refusing key two threads opened", "the end"},
    {Excuse::CallFailed, "-", "who has not started since a call failed", "its next start"},
    {Excuse::Hindered, "-", "whom somebody kept from a restart", "its next start"},
    {Excuse::LinkInTheWay, "-", "whose name a link of no driver has", "the link goes"},
    {Excuse::LinkTaken, "-", "whose name a driver took", "that one stops"},
    {Excuse::FoundItTaken, "-", "whose driver found its name taken", "its next start"},
    {Excuse::LateLink, "-", "whose link goes after its driver, or by an outer hand", "its next start"},
    {Excuse::Modem, "-", "a modem that was given a name", "its next start"},
    {Excuse::NotTold, "-", "of whose start no interface told", "its next start"},
    {Excuse::BeforeListening, "-", "who came before the product listened", "its next start"},
    {Excuse::Twin, "-", "one of two that came with one name", "either comes anew"},
    {Excuse::NoDevice, "-", "who has the name of a record without a device", "the record goes"},
};

struct Uses {
    unsigned all = 0, alone = 0; // alone: nothing else excused it
};
using UseTable = std::array<Uses, static_cast<std::size_t>(Excuse::Count)>;
using Reasons = std::set<Excuse>;

} // namespace storm
