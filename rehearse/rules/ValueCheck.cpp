#include "rehearse/rules/ValueCheck.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>

namespace rehearse {

constexpr std::string_view Digits = "0123456789";

static std::string Utf8(std::string_view text) {
    return machine::Utf8FromAnsi(std::string(text));
}

static bool IsQuoted(std::string_view text) {
    return text.size() > 1 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0];
}

static bool IsOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view word) { return machine::EqualNoCase(text, word); });
}

// Blanks followed by an intended comment: reads as written.
static bool IsOnlyComment(std::string_view rest) {
    const std::size_t first = rest.find_first_not_of(" \t");
    return first == std::string_view::npos || (first > 0 && (rest[first] == ';' || rest[first] == '#'));
}

// Where a comment begins after the text; npos without one. A number sign alone may belong to a name: "Modem #2".
static std::size_t CommentIn(std::string_view text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        const bool isBehindBlank = text[i - 1] == ' ' || text[i - 1] == '\t';
        if (isBehindBlank && (text[i] == ';' || (text[i] == '#' && (i + 1 == text.size() || text[i + 1] == ' ')))) {
            return i;
        }
    }
    return std::string_view::npos;
}

namespace {
class ValueCheck {
public:
    ValueCheck(const std::string& where, const KnownKey& row, const IniValue& value, Findings& findings)
        : m_where(where), m_row(row), m_value(value), m_text(value.value), m_findings(findings) {}

    void Check();

private:
    void Add(Fault fault, std::string what, std::string suggestion = {}) {
        m_findings.push_back({fault, m_value.valueAt, std::move(what), std::move(suggestion)});
    }
    std::string Said() const { return fmt::format("{}={}", Utf8(m_value.key), Utf8(m_text)); }
    bool IsTooLong();
    void CheckNumber();
    bool CheckWord(std::size_t length, int number);
    void CheckLimits(int number);
    void CheckTime();
    void CheckColour();
    void CheckLogKey();
    void CheckText();
    void CheckPortNames();
    void CheckRanges();
    void CheckShowWord();

    const std::string& m_where;
    const KnownKey& m_row;
    const IniValue& m_value;
    std::string_view m_text;
    Findings& m_findings;
};
} // namespace

void ValueCheck::Check() {
    if (m_text.empty()) {
        return;
    }
    if (IsTooLong()) {
        return;
    }
    switch (m_row.kind) {
    case KeyKind::Flag:
    case KeyKind::Number:
        return CheckNumber();
    case KeyKind::Duration:
        return CheckTime();
    case KeyKind::Colour:
        return CheckColour();
    case KeyKind::LogSwitch:
    case KeyKind::LogLevel:
    case KeyKind::DebugSwitch:
        return CheckLogKey();
    case KeyKind::Pattern:
    case KeyKind::Text:
    case KeyKind::Path:
        return CheckText();
    case KeyKind::PortNames:
        return CheckPortNames();
    case KeyKind::NumberRanges:
        return CheckRanges();
    case KeyKind::ShowWord:
        return CheckShowWord();
    case KeyKind::CommandLine:
        return;
    }
}

bool ValueCheck::IsTooLong() {
    const bool isByFirstCharacter = m_row.longest == LongestLogWord;
    if (m_text.size() <= m_row.longest || isByFirstCharacter) {
        return false;
    }
    if (m_row.kind == KeyKind::Pattern) {
        Add(Fault::LongCriterion,
            fmt::format("{} has {} characters, more than {}: the criterion counts as absent, {} fits more ports",
                        Utf8(m_value.key), m_text.size(), m_row.longest, m_where),
            "put '*' in the place of a part");
    } else {
        Add(Fault::TooLong,
            fmt::format("{} has {} characters, more than {}: {}", Utf8(m_value.key), m_text.size(), m_row.longest,
                        m_row.source == KeySource::Profile ? "the rest is cut" : "it counts as absent"),
            "shorten it");
    }
    return true;
}

void ValueCheck::CheckNumber() {
    if (m_text[0] == '\t') {
        Add(Fault::TabBeforeValue, fmt::format("a tab precedes the value: {} is read as 0", Utf8(m_value.key)),
            "use blanks, or nothing");
        return;
    }
    std::size_t length = 0;
    const int number = ReadNumber(m_text, &length);
    if (!CheckWord(length, number)) {
        CheckLimits(number);
    }
}

// Returns: whether the text is not a plain number; reports that where it matters.
bool ValueCheck::CheckWord(std::size_t length, int number) {
    const std::string_view digits = m_text.substr(m_text[0] == '-', length - (m_text[0] == '-'));
    const bool isFlag = m_row.kind == KeyKind::Flag;
    if (!digits.empty() && IsOnlyComment(m_text.substr(length))) {
        const bool wraps = digits.find_first_not_of('0') != std::string_view::npos &&
                           (digits.size() - digits.find_first_not_of('0') > 10 ||
                            std::stoll(std::string(digits)) > std::numeric_limits<int>::max());
        if (wraps) {
            Add(Fault::NotTheNumber, fmt::format("{} is too large and is read as {}", Said(), number));
        }
        return wraps;
    }
    if (isFlag && IsOneOf(m_text, {"off", "no", "false"})) {
        return true; // not a number, so 0, so off
    }
    std::string suggestion = "write digits alone";
    if (isFlag && digits.empty()) {
        suggestion = IsOneOf(m_text, {"on", "yes", "true"}) ? "write 1" : "write 0 or 1";
    }
    if (IsQuoted(m_text)) {
        suggestion = "write it without quotes";
    } else if (m_text[0] == '+') {
        suggestion = "write it without the plus sign";
    } else if (m_text.size() > 1 && m_text[0] == '0' && (m_text[1] | 0x20) == 'x') {
        suggestion = "write it in decimal";
    }
    Add(Fault::NotTheNumber,
        fmt::format("{} is read as {}{}", Said(), number, isFlag ? (number == 0 ? ", so off" : ", so on") : ""),
        suggestion);
    return true;
}

void ValueCheck::CheckLimits(int number) {
    const std::string_view name = m_row.name;
    if (m_row.highest != 0 && (number < m_row.lowest || number > m_row.highest)) {
        Add(Fault::OutsideLimits,
            fmt::format("{} counts as {}", Said(), number < m_row.lowest ? m_row.lowest : m_row.highest),
            fmt::format("{} to {}", m_row.lowest, m_row.highest));
    } else if (name == "RemoteSessions" && (number < 0 || number > 2)) {
        Add(Fault::OutsideLimits, fmt::format("{}: programs and balloons go to nobody", Said()), "0, 1 or 2");
    } else if (name == "MaxPortNumber" && number < 1) {
        Add(Fault::OutsideLimits, fmt::format("{}: no free number is ever found", Said()), "1 or more");
    } else if (name == "WaitNoPendingInstallEventsOnInit" && number < 0) {
        Add(Fault::OutsideLimits, fmt::format("{} waits for weeks", Said()), "0 or more");
    }
}

void ValueCheck::CheckTime() {
    std::size_t length = 0;
    const int number = ReadNumber(m_text, &length);
    const std::int64_t ms = ReadTimeMs(m_text);
    std::string_view unit = m_text.substr(length);
    unit = unit.substr(std::min(unit.find_first_not_of(' '), unit.size()));
    const std::string_view word = unit.substr(0, unit.find_first_of(" \t"));
    const bool isUnit = word.empty() || IsOneOf(word, {"s", "sec", "second", "seconds", "m", "min", "minute", "minutes",
                                                       "h", "hour", "hours", "d", "day", "days"});
    const std::int64_t unitMs = word.empty() ? 1 : ReadTimeMs("1" + std::string(word));
    const std::int64_t saidMs = static_cast<std::int64_t>(number) * unitMs;
    if (length == 0 || (length == 1 && m_text[0] == '-') || !isUnit || !IsOnlyComment(unit.substr(word.size()))) {
        Add(Fault::NotTheTime, fmt::format("{} is read as {} ms", Said(), ms),
            machine::EqualNoCase(word, "ms") ? fmt::format("write {}", number)
                                             : "a number, or a number with s, m, h or d");
    } else if (length > 10 || saidMs != ms) {
        Add(Fault::NotTheTime, fmt::format("{} is read as {} ms", Said(), ms), "0 to one day");
    }
}

void ValueCheck::CheckColour() {
    const bool isHex = m_text.size() > 2 && m_text[0] == '0' && (m_text[1] | 0x20) == 'x';
    const std::string_view digits = isHex ? m_text.substr(2) : m_text.substr(m_text[0] == '-');
    const std::size_t end = digits.find_first_not_of(isHex ? "0123456789abcdefABCDEF" : Digits);
    const bool isWhole = end == std::string_view::npos || (end > 0 && IsOnlyComment(digits.substr(end)));
    if (digits.empty() || !isWhole || (isHex && m_text[1] == 'X')) {
        Add(Fault::NotTheNumber, fmt::format("{} is no number that the product reads", Said()),
            "0xRRGGBB, such as 0xFFFFFF");
    } else if ((isHex ? std::min(end, digits.size()) > 6 : m_text[0] == '-' ? m_text != "-1" : digits.size() > 8)) {
        Add(Fault::OutsideLimits, fmt::format("{} is no colour", Said()), "0x000000 to 0xFFFFFF");
    }
}

void ValueCheck::CheckLogKey() {
    const char first = m_text[0];
    const bool isDigit = first >= '0' && first <= '9';
    const bool isAlone = isDigit && IsOnlyComment(m_text.substr(1));
    if (m_row.kind == KeyKind::LogLevel) {
        if (!isAlone) {
            Add(Fault::NotTheSwitch,
                isDigit ? fmt::format("{} is level {}, only the first character counts", Said(), first)
                        : fmt::format("{} is no level: level {} stays", Said(), m_row.defaultNumber),
                "a digit from 0 to 6");
        }
        return;
    }
    const bool isOn = m_row.kind == KeyKind::LogSwitch ? first == '1' : first != '0';
    const bool saysOff = IsOneOf(m_text, {"off", "no", "false"});
    if (isOn ? saysOff : !isAlone && !saysOff) {
        Add(Fault::NotTheSwitch, fmt::format("{} is {}, only the first character counts", Said(), isOn ? "on" : "off"),
            isOn ? "write 0" : "write 1");
    } else if (isOn ? false : isAlone && first != '0') {
        Add(Fault::NotTheSwitch, fmt::format("{} is off, only 1 is on", Said()), "write 1");
    }
}

void ValueCheck::CheckText() {
    const bool isPattern = m_row.kind == KeyKind::Pattern;
    const bool isProfile = m_row.source == KeySource::Profile;
    const std::size_t comment = CommentIn(m_text);
    if (m_text[0] == '\t' && !isProfile) {
        Add(Fault::TabBeforeValue, fmt::format("a tab precedes the value of {} and belongs to it", Utf8(m_value.key)),
            "use blanks, or nothing");
    } else if (IsQuoted(m_text) && m_row.kind != KeyKind::Path) {
        Add(Fault::QuotedValue,
            fmt::format("the quotes belong to the value of {}{}", Utf8(m_value.key),
                        isPattern ? ", which no port fits" : ""),
            "leave them out");
    } else if (comment != std::string_view::npos) {
        Add(Fault::CommentBehindValue,
            fmt::format("'{}' belongs to the value of {}", Utf8(m_text.substr(comment)), Utf8(m_value.key)),
            "give the comment a line of its own");
    }
}

// "COM41,COM42,COM43" for 41 and what follows the dash.
static std::string NamesOfRange(int first, std::string_view after) {
    const std::size_t digit = after.find_first_of(Digits);
    const int last = digit == std::string_view::npos ? 0 : ReadNumber(after.substr(digit));
    if (last < first || last - first >= 10) {
        return "COM41,COM42,COM43";
    }
    std::string names;
    for (int number = first; number <= last; ++number) {
        names += fmt::format("{}COM{}", names.empty() ? "" : ",", number);
    }
    return names;
}

// The rest of the text without the valid names. Between two of them a dash looks like a range to a reader.
void ValueCheck::CheckPortNames() {
    std::string rest, refused, range;
    std::size_t at = 0;
    for (std::size_t found = machine::FindNoCase(m_text, "COM"); found != std::string_view::npos;
         found = machine::FindNoCase(m_text, "COM", at)) {
        const std::string_view between = m_text.substr(at, found - at);
        rest += between;
        std::size_t length = 0;
        const int number = ReadNumber(m_text.substr(found + 3), &length);
        const std::string_view name = m_text.substr(found, length + 3);
        if (refused.empty() && (number < 1 || number > HighestPortNumber)) {
            refused = name;
        }
        at = found + 3 + length;
        const std::size_t dash = m_text.find_first_not_of(" \t", at);
        if (range.empty() && dash != std::string_view::npos && m_text[dash] == '-') {
            range = NamesOfRange(number, m_text.substr(dash + 1));
        }
    }
    rest += m_text.substr(at);
    const std::string left = rest.substr(0, std::min(rest.find(';'), rest.find('#')));
    const std::size_t digit = left.find_first_of(Digits);
    if (!range.empty()) {
        Add(Fault::NumbersPassedOver,
            fmt::format("{}: a range is not known, only the names that stand there count", Said()),
            fmt::format("name each: {}", range));
    } else if (!refused.empty()) {
        Add(Fault::NumbersPassedOver, fmt::format("{}: '{}' is no number that counts", Said(), Utf8(refused)),
            fmt::format("COM1 to COM{}", HighestPortNumber));
    } else if (digit != std::string::npos) {
        const std::size_t end = left.find_first_not_of(Digits, digit);
        const std::string number = left.substr(digit, end - digit);
        Add(Fault::NumbersPassedOver, fmt::format("{}: {} is passed over, COM is missing", Said(), number),
            fmt::format("write COM{}", number));
    } else if (left.find_first_not_of(" \t,;\"'") != std::string::npos) {
        Add(Fault::NumbersPassedOver, fmt::format("{}: '{}' is passed over", Said(), Utf8(left)), "COM and a number");
    }
}

void ValueCheck::CheckRanges() {
    for (const std::string& item : machine::Split(m_text, ',')) {
        std::string bare;
        std::copy_if(item.begin(), item.end(), std::back_inserter(bare), [](char c) { return c != ' '; });
        std::size_t length = bare.find_first_not_of(Digits);
        const std::size_t dash = length == std::string::npos ? bare.size() : length;
        const std::string_view first = std::string_view(bare).substr(0, dash);
        const bool isRange = dash < bare.size() && bare[dash] == '-';
        const std::string_view last = isRange ? std::string_view(bare).substr(dash + 1) : first;
        length = last.find_first_not_of(Digits);
        const bool isNumber = !first.empty() && !last.empty() && length == std::string_view::npos &&
                              (isRange || dash == bare.size()) && first.size() < 7 && last.size() < 7;
        if (!isNumber || ReadNumber(first) > ReadNumber(last) || ReadNumber(first) == 0) {
            Add(Fault::NotTheRange, fmt::format("{}: '{}' is no number and no range", Said(), Utf8(item)), "5-20,30");
            return;
        }
    }
}

void ValueCheck::CheckShowWord() {
    static constexpr std::array<std::string_view, 5> Parts = {"min", "noactivate", "na", "max", "hid"};
    for (const std::string_view part : Parts) {
        if (machine::FindNoCase(m_text, part) != std::string::npos) {
            return;
        }
    }
    if (!IsOneOf(m_text, {"normal", "show", "shown"})) {
        Add(Fault::UnknownShowWord, fmt::format("{} is shown as normal", Said()),
            "min, max, hidden, noactivate or normal");
    }
}

void CheckValue(const std::string& where, const KnownKey& row, const IniValue& value, Findings& findings) {
    ValueCheck(where, row, value, findings).Check();
}

} // namespace rehearse
