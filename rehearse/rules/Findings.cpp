#include "rehearse/rules/Findings.h"

#include <fmt/format.h>

namespace rehearse {

const std::vector<FaultKind>& FaultKinds() {
    static const std::vector<FaultKind> Kinds = {
        {Fault::FileTooLarge, "the file has 1 MiB or more and counts as empty", "make it smaller"},
        {Fault::Utf8Mark, "the file begins with a UTF-8 mark, which spoils its first line",
         "save as ANSI, or as UTF-16 with a mark"},
        {Fault::Utf8Text, "a value is written in UTF-8 and is read as ANSI, two characters or more for one",
         "the same"},
        {Fault::LostCharacters, "a character that the ANSI code page lacks becomes `?`, in a criterion a wildcard",
         "use `?` or `*` in its place"},
        {Fault::ZeroByte, "a line holds a zero byte and ends there: UTF-16 without a mark", "save with a mark"},
        {Fault::TooManyValues, "a section has more than 300 keys; reading ends there, later sections are lost",
         "spread them over several sections"},
        {Fault::IndentedLine, "a line begins with a blank or a tab and does not count", "begin in the first column"},
        {Fault::StrayLine, "a line is neither section, key nor comment and does not count",
         "`Key=value`; a comment begins with `;` or `#`"},
        {Fault::BeforeSections, "a key comes before the first section and does not count", "move it into a section"},
        {Fault::NoSectionLine, "a line looks like a section and is none; the keys below it go to the section above",
         "`[Name]` alone on its line, at most 31 characters"},
        {Fault::CommentBehindValue, "a comment after a value belongs to the value", "give it a line of its own"},
        {Fault::TabBeforeValue, "a tab after the `=` belongs to the value", "use blanks, or nothing"},
        {Fault::QuotedValue, "the quotes belong to the value", "leave them out"},
        {Fault::UnknownSection, "no section has this name; its keys do not count", "see the names above"},
        {Fault::SectionTwice, "a section occurs twice; the keys of the second do not count", "join the two"},
        {Fault::SectionNumberAbove, "a section's number is above 99", "1 to 99, or none"},
        {Fault::SectionNeverRead, "a section of this name and number is never read", "see the names above"},
        {Fault::SectionReadAs, "a section is read as one of another name", "write the name that counts"},
        {Fault::UnknownKey, "the section has no such key", "see the tables above"},
        {Fault::KeyTwice, "a key occurs twice in its section, and one of the two counts", "remove one"},
        {Fault::KeyWithoutEffect, "the key is read and logged, without any effect", "remove it"},
        {Fault::EntryWithoutOpen, "a key of an entry without its `open` is not read", "add `open`, mind the digit"},
        {Fault::NotTheNumber, "a number is not read as it is written",
         "decimal digits from the first character on; for a flag 0 or 1"},
        {Fault::OutsideLimits, "a number lies outside its limits", "see the tables above"},
        {Fault::TooLong, "a value is too long and counts as absent, or is cut", "shorten it"},
        {Fault::NotTheTime, "a time is not read as it is written",
         "milliseconds, or one number with `s`, `m`, `h` or `d`"},
        {Fault::NumbersPassedOver, "part of the wanted numbers is skipped", "name each: `COM41,COM42,COM43`"},
        {Fault::TooManyNumbers, "a section wants more than 256 numbers; the others do not count", "want fewer"},
        {Fault::NumberTwice, "a section wants a number twice", "remove one"},
        {Fault::NotTheRange, "an item of the list is no number and no range", "`5-20,30`"},
        {Fault::UnknownShowWord, "the word means no way to show a window, so normal", "min, max, hidden, noactivate"},
        {Fault::NotTheSwitch, "a key of the log looks at the first character alone", "write 1, 0 or a digit"},
        {Fault::EmptyCriterion, "an empty criterion counts as absent, so the section fits more ports",
         "give it a value, or remove it"},
        {Fault::LongCriterion, "a criterion above 259 characters counts as absent, so the section fits more ports",
         "put `*` in the place of a part"},
        {Fault::NoCriterion, "a section without any criterion fits no port", "say which ports it means"},
        {Fault::NoNumber,
         "a section wants no number that counts: its ports stay as they are, later sections are not tried",
         "add `PortName`"},
        {Fault::NeverWins, "an earlier section fits every port that this one fits", "give this one the lower number"},
        {Fault::WantedTwice, "two sections want the same number", "one of two ports there at a time will not get it"},
        {Fault::FitsNothing, "a criterion that no port can fit", "see the table of criteria"},
        {Fault::NoEntry, "an action section without an `open` runs nothing, and later sections are not tried",
         "add `open1`"},
        {Fault::EntrySkipped, "an entry with `force` 0 never runs", "remove the key"},
        {Fault::DelayOnRemoval, "an entry of `[OnRemoval]` with a `delay` never runs: the port has gone by then",
         "use `afterdelay` of the entry before it"},
        {Fault::RemovalOff, "no `[OnRemoval]` runs, because `EnabledOnRemoval` of `[BalloonTips]` is 0",
         "`EnabledOnRemoval=1`"},
        {Fault::UnknownPlaceholder, "no placeholder has this name; the text stays as it is", "see the placeholders"},
        {Fault::EmptyPlaceholder, "a placeholder is always empty in `[OnRemoval]`, where the name is gone",
         "`%PortNumber%` still is what it was"},
    };
    return Kinds;
}

std::string FaultCode(Fault fault) {
    return fmt::format("QM{}", static_cast<unsigned>(fault));
}

std::string FaultTable() {
    std::string table = "| Code | Meaning | Remedy |\n|---|---|---|\n";
    for (const FaultKind& kind : FaultKinds()) {
        table += fmt::format("| {} | {} | {} |\n", FaultCode(kind.fault), kind.meaning, kind.remedy);
    }
    return table;
}

std::string FindingLine(const Finding& finding) {
    const std::string suggestion = finding.suggestion.empty() ? "" : "; " + finding.suggestion;
    return fmt::format("{}: {} {}{}", PositionText(finding.at), FaultCode(finding.fault), finding.what, suggestion);
}

nlohmann::ordered_json FindingsJson(const Findings& findings) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"code", FaultCode(finding.fault)},
                        {"file", finding.at.file},
                        {"line", finding.at.line},
                        {"column", finding.at.column},
                        {"what", finding.what},
                        {"suggestion", finding.suggestion}});
    }
    return list;
}

} // namespace rehearse
