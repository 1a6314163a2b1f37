// What may excuse a broken statement. A letter names an exception of the sequence of steps, with its paragraph in
// docs/decisions.md; "-" a fact of the machine. A run counts how often each was needed: one that never is has to be
// removed.
#pragma once

#include <map>
#include <set>

namespace storm {

struct Excuse {
    const char *letter, *who, *until;
};

namespace excuse {
inline constexpr Excuse OwnersLink{"a", "whose link the product deleted for another device", "its next start"};
inline constexpr Excuse SharedBit{"b", "whose name another port had and gave up", "its next start"};
inline constexpr Excuse SwapMark{"d", "whose arrival the mark of an old swap dropped", "its next start"};
inline constexpr Excuse OwnerAway{"i", "who got the number of one that has no DOS name, and that one",
                                  "5 s and its next start"};
inline constexpr Excuse PulledWhileRead{"j", "who was pulled out while its socket was asked", "at once"};
inline constexpr Excuse TwoWideLists{"j", "whose refusing key two threads opened", "the end"};
inline constexpr Excuse RestartLost{"k", "whose restart was put off when the service ended", "its next start"};
inline constexpr Excuse CallFailed{"-", "who has not started since a call failed", "its next start"};
inline constexpr Excuse CutOff{"-", "whose key nobody closed before the service ended under slow calls", "the end"};
inline constexpr Excuse Hindered{"-", "whom somebody kept from a restart", "its next start"};
inline constexpr Excuse LinkInTheWay{"-", "whose name a link of no driver has", "the link goes"};
inline constexpr Excuse LinkTaken{"-", "whose name a driver took", "that one stops and its next start"};
inline constexpr Excuse FoundItTaken{"-", "whose driver found its name taken", "its next start"};
inline constexpr Excuse LateLink{"-", "whose link goes after its driver, or by an outer hand", "its next start"};
inline constexpr Excuse Modem{"-", "a modem that was given a name", "its next start"};
inline constexpr Excuse Unannounced{"-", "of whose start no interface told", "its next start"};
inline constexpr Excuse BeforeListening{"-", "who came before the product listened", "its next start"};
inline constexpr Excuse Twin{"-", "one of two that came with one name", "either comes anew"};
} // namespace excuse

using Reason = const Excuse*;
using Reasons = std::set<Reason>;

inline constexpr Reason Excuses[] = {
    &excuse::OwnersLink,      &excuse::SharedBit,    &excuse::SwapMark,     &excuse::OwnerAway,
    &excuse::PulledWhileRead, &excuse::TwoWideLists, &excuse::RestartLost,  &excuse::CallFailed,
    &excuse::CutOff,          &excuse::Hindered,     &excuse::LinkInTheWay, &excuse::LinkTaken,
    &excuse::FoundItTaken,    &excuse::LateLink,     &excuse::Modem,        &excuse::Unannounced,
    &excuse::BeforeListening, &excuse::Twin,
};

struct Uses {
    unsigned all = 0, alone = 0; // alone: nothing else excused it
};
using UseTable = std::map<Reason, Uses>;

} // namespace storm
