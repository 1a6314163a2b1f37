#include "rehearse/rules/IniFile.h"

#include "rehearse/description/DescriptionReader.h"
#include "rehearse/description/Manners.h"

#include "simwin/kernel/Text.h"
#include "src/keys/ConfigurationKeys.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace rehearse {

constexpr std::string_view Blanks = " \t";
constexpr std::string_view LineEnds = "\r\n";
constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view SectionMark = "__SECTION__";
constexpr std::string_view LineMark = "__LINE__";

static std::string_view Trimmed(std::string_view text, std::string_view what = Blanks) {
    const std::size_t first = text.find_first_not_of(what);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(what) + 1 - first);
}

// The reader compares names of sections by this alone: the length in the highest byte, plus each 16-bit word without
// the bit of the case.
static std::uint32_t HashOfName(std::string_view text) {
    std::uint32_t hash = static_cast<std::uint32_t>(text.size()) << 24;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const unsigned low = static_cast<unsigned char>(text[i]);
        const unsigned high = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        hash += (high << 8 | low) & 0xDFDF;
    }
    return hash;
}

static std::optional<unsigned> TypeOfName(std::string_view base) {
    for (unsigned type = 0; type < SectionNameCount; ++type) {
        if (HashOfName(base) == HashOfName(SectionNames[type])) {
            return type;
        }
    }
    return std::nullopt;
}

// Converts digits as the system does: overflow wraps.
static int NumberOfDigits(std::string_view text) {
    std::uint32_t number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            break;
        }
        number = number * 10 + static_cast<std::uint32_t>(c - '0');
    }
    return static_cast<int>(number);
}

static std::string Utf8(std::string_view text) {
    return machine::Utf8FromAnsi(std::string(text));
}

static bool IsSettingOfProfile(unsigned type, std::string_view key) {
    const auto isOne = [&](const auto& table) {
        return std::any_of(std::begin(table), std::end(table), [&](const KnownKey& row) {
            return row.source == KeySource::Profile && machine::EqualNoCase(row.name, key);
        });
    };
    return type == 0 ? isOne(SettingsKeys) : type == SectionNameCount - 1 && isOne(BalloonKeys);
}

namespace {
// One file on its way into sections, line by line as the product's reader reads it.
class Parser {
public:
    Parser(const std::string& file, IniFile& ini, Findings& findings)
        : m_file(file), m_ini(ini), m_findings(findings) {}
    void Parse(std::string bytes);

private:
    void Decode(std::string& bytes);
    void ParseSnapshot();
    void ParseProfile();
    bool TakeLine(std::string_view line); // false: the reader stops here
    void TakeSection(std::string_view line);
    void AddSection(std::string_view name);
    void TellOfSection(const IniSection& section, std::string_view base, std::string_view digits);
    bool TakeValue(std::string_view line);
    std::string WithMarks(std::string value) const;
    void TellOfIndent(std::string_view line);
    void TellOfStray(std::string_view line);
    std::string WhereKeysGo() const;
    void Add(Fault fault, std::string what, std::string suggestion = {}, std::size_t at = 0);
    Position At(std::size_t offset) const; // in the present line

    std::string m_file;
    IniFile& m_ini;
    Findings& m_findings;
    std::string m_text;              // in the code page
    std::string_view m_line;         // the present one, for the columns
    unsigned m_lineNumber = 1;       // as an editor counts
    unsigned m_readerLine = 1;       // as the reader counts
    IniSection* m_section = nullptr; // takes the values
    bool m_isLost = false;           // a section was dropped, and that was reported
    bool m_isUtf8 = false, m_hasMark = false, m_hasZero = false;
};
} // namespace

Position Parser::At(std::size_t offset) const {
    const std::string_view before = m_line.substr(0, offset);
    std::size_t column = before.size() + 1;
    if (m_isUtf8) { // an editor counts characters
        column -= static_cast<std::size_t>(
            std::count_if(before.begin(), before.end(), [](char c) { return (c & 0xC0) == 0x80; }));
    }
    return {m_file, m_lineNumber, static_cast<unsigned>(column)};
}

void Parser::Add(Fault fault, std::string what, std::string suggestion, std::size_t at) {
    m_findings.push_back({fault, At(at), std::move(what), std::move(suggestion)});
}

static bool IsUtf8Text(std::string_view text) {
    bool hasLong = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto first = static_cast<unsigned char>(text[i]);
        if (first < 0x80) {
            continue;
        }
        const std::size_t more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
        if (first < 0xC2 || first > 0xF4 || i + more >= text.size()) {
            return false;
        }
        for (std::size_t k = 1; k <= more; ++k) {
            if ((text[i + k] & 0xC0) != 0x80) {
                return false;
            }
        }
        i += more;
        hasLong = true;
    }
    return hasLong;
}

// Produces the text that the reader parses; reports what the encoding loses.
void Parser::Decode(std::string& bytes) {
    m_hasMark = bytes.starts_with(Utf8Mark);
    const auto first = static_cast<unsigned char>(bytes.empty() ? 0 : bytes[0]);
    if (first != 0xFE && first != 0xFF) {
        m_text = std::move(bytes);
        m_isUtf8 = IsUtf8Text(std::string_view(m_text).substr(m_hasMark ? Utf8Mark.size() : 0));
        return;
    }
    const bool isBigEndian = first == 0xFE || (bytes.size() > 1 && static_cast<unsigned char>(bytes[1]) == 0xFF);
    std::u16string wide;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const unsigned a = static_cast<unsigned char>(bytes[i]), b = static_cast<unsigned char>(bytes[i + 1]);
        wide.push_back(static_cast<char16_t>(isBigEndian ? a << 8 | b : b << 8 | a));
    }
    m_text = machine::AnsiFromUtf16(wide);
    unsigned line = 1, column = 0;
    for (const char16_t unit : wide) { // in criteria a lost character becomes an unnoticed wildcard
        ++column;
        bool isLossy = false;
        (void)machine::AnsiFromUtf16(std::u16string(1, unit), &isLossy);
        if (isLossy) {
            m_findings.push_back({Fault::LostCharacters,
                                  {m_file, line, column},
                                  "a character that the ANSI code page lacks is read as '?'",
                                  {}});
            return;
        }
        if (unit == '\n') {
            ++line;
            column = 0;
        }
    }
}

void Parser::Parse(std::string bytes) {
    if (bytes.size() >= IniFileLimitBytes) {
        Add(Fault::FileTooLarge, "the file has 1 MiB or more: no section counts");
        return;
    }
    Decode(bytes);
    if (!m_text.empty() && m_text[0] != 0) {
        ParseSnapshot();
    }
    ParseProfile();
}

void Parser::ParseSnapshot() {
    const std::string whole = m_text + "\n";
    std::size_t at = 0;
    while (at < whole.size()) {
        const std::size_t end = whole.find_first_of(LineEnds, at);
        m_line = std::string_view(whole).substr(at, end - at);
        std::string_view line = m_line.substr(0, m_line.find('\0'));
        if (line.size() < m_line.size() && !m_hasZero) {
            m_hasZero = true;
            Add(Fault::ZeroByte, "the line ends at a zero byte", "save as ANSI, or as UTF-16 with a mark", line.size());
        }
        while (!line.empty() && Blanks.find(line.back()) != std::string_view::npos) {
            line.remove_suffix(1);
        }
        if (!TakeLine(line)) {
            break;
        }
        at = end + 1;
        ++m_lineNumber;
        ++m_readerLine;
        // The reader takes any two line ends in a row as one.
        if (at < whole.size() && LineEnds.find(whole[at]) != std::string_view::npos) {
            if (whole[end] != '\r' || whole[at] != '\n') {
                ++m_lineNumber;
            }
            ++at;
        }
    }
    m_line = {};
}

bool Parser::TakeLine(std::string_view line) {
    if (m_hasMark && m_lineNumber == 1) {
        const std::string_view after = line.substr(Utf8Mark.size());
        m_isLost = after.starts_with('[');
        Add(Fault::Utf8Mark,
            m_isLost ? fmt::format("the UTF-8 mark loses the section {}", Utf8(after))
                     : "the UTF-8 mark spoils the first line",
            "save as ANSI, or as UTF-16 with a mark");
        return true;
    }
    if (line.empty() || line[0] == ';' || line[0] == '#') {
        return true;
    }
    if (line[0] == '[') {
        if (line.back() == ']') {
            TakeSection(line);
            return true;
        }
        const std::string_view name = line.substr(0, line.find(']') + 1);
        Add(Fault::NoSectionLine,
            name.empty() ? fmt::format("'{}' is no section, it lacks the ']'", Utf8(line))
                         : fmt::format("'{}' is no section, with text after the ']'", Utf8(line)),
            name.empty() ? WhereKeysGo() : fmt::format("write {} alone; {}", Utf8(name), WhereKeysGo()));
    } else if (static_cast<signed char>(line[0]) < 'A') {
        if (Blanks.find(line[0]) != std::string_view::npos) {
            TellOfIndent(line);
        } else if (m_section || !m_isLost) {
            TellOfStray(line);
        }
        return true;
    }
    if (!m_section) {
        if (!m_isLost && line[0] != '[') {
            Add(Fault::BeforeSections,
                fmt::format("'{}' stands before the first section and does not count", Utf8(line)));
        }
        return true;
    }
    return TakeValue(line);
}

std::string Parser::WhereKeysGo() const {
    return m_section ? fmt::format("the keys below it go to [{}]", Utf8(m_section->name))
                     : "the keys below it do not count";
}

void Parser::TellOfIndent(std::string_view line) {
    const std::string_view rest = Trimmed(line);
    if (rest.empty() || rest[0] == ';' || rest[0] == '#') {
        return;
    }
    const std::string_view key = Trimmed(rest.substr(0, rest.find('=')));
    if (rest[0] != '[' && (m_isLost || (m_section && IsSettingOfProfile(m_section->type, key)))) {
        return; // reported already; or read by readers that skip the blanks
    }
    Add(Fault::IndentedLine, fmt::format("'{}' is indented and does not count", Utf8(rest)),
        rest[0] == '[' ? "begin in the first column; " + WhereKeysGo() : "begin in the first column");
}

void Parser::TellOfStray(std::string_view line) {
    const bool isKey = line.find('=') != std::string_view::npos && line[0] != '/' && line[0] != '-';
    Add(Fault::StrayLine, fmt::format("'{}' does not count", Utf8(line)),
        isKey ? "a key begins with a letter" : "a comment begins with ';'");
}

void Parser::TakeSection(std::string_view line) {
    if (line.size() <= 2) {
        Add(Fault::NoSectionLine, "'[]' is no section", WhereKeysGo());
        return;
    }
    if (line.size() >= static_cast<std::size_t>(SectionLineLimit)) {
        Add(Fault::NoSectionLine,
            fmt::format("'{}' is no section, it has more than {} characters", Utf8(line), SectionLineLimit - 1),
            WhereKeysGo());
        return;
    }
    m_section = nullptr;
    m_isLost = true;
    AddSection(line.substr(1, line.size() - 2));
}

void Parser::AddSection(std::string_view name) {
    const std::size_t digit = name.find_first_of("0123456789");
    const std::string_view base = name.substr(0, digit);
    const std::string_view digits = digit == std::string_view::npos ? std::string_view() : name.substr(digit);
    const int number = digits.empty() ? SectionWithoutNumber : NumberOfDigits(digits);
    const std::optional<unsigned> type = TypeOfName(base);
    if (!type) {
        const std::string near = NearestName(Trimmed(base), {std::begin(SectionNames), std::end(SectionNames)});
        Add(Fault::UnknownSection, fmt::format("no section has the name [{}], its keys do not count", Utf8(name)),
            near.empty() ? "" : fmt::format("did you mean [{}{}]?", near, digits), 1);
        return;
    }
    if (number < 0 || number > SectionWithoutNumber) {
        Add(Fault::SectionNumberAbove,
            fmt::format("[{}] is above {}, its keys do not count", Utf8(name), HighestSectionNumber),
            "numbers are 1 to 99", 1);
        return;
    }
    for (const IniSection& section : m_ini.sections) {
        if (section.type == *type && section.number == number) {
            Add(Fault::SectionTwice,
                fmt::format("[{}] is {} of line {} again, its keys do not count", Utf8(name), SectionText(section),
                            section.at.line),
                "join the two", 1);
            return;
        }
    }
    m_ini.sections.push_back({*type, number, std::string(name), At(1), {}});
    m_section = &m_ini.sections.back();
    m_isLost = false;
    TellOfSection(*m_section, base, digits);
}

void Parser::TellOfSection(const IniSection& section, std::string_view base, std::string_view digits) {
    const std::string_view name = SectionNames[section.type];
    const bool hasNumber = section.number != SectionWithoutNumber;
    const bool isRule = section.type >= 1 && section.type <= 3;
    if (!machine::EqualNoCase(base, name) || Trimmed(digits, "0123456789").size() != 0) {
        Add(Fault::SectionReadAs, fmt::format("[{}] is read as {}", Utf8(section.name), SectionText(section)),
            fmt::format("write {}", SectionText(section)), 1);
    } else if (!digits.empty() && !hasNumber) {
        Add(Fault::SectionNumberAbove,
            fmt::format("[{}] is [{}], the section that is tried last", Utf8(section.name), name),
            "numbers are 1 to 99", 1);
    }
    if (section.type == 4 || section.type == 5) {
        Add(Fault::SectionNeverRead, fmt::format("no event runs [{}]", Utf8(section.name)), "OnRemoval runs", 1);
    } else if (hasNumber && !isRule) {
        Add(Fault::SectionNeverRead, fmt::format("nobody reads [{}]", Utf8(section.name)),
            fmt::format("write [{}]", name), 1);
    } else if (section.number == 0) {
        Add(Fault::SectionNeverRead, fmt::format("[{}] is never tried", Utf8(section.name)), "numbers are 1 to 99", 1);
    }
}

// Expands the marks in a value. It never grows.
std::string Parser::WithMarks(std::string value) const {
    const auto replace = [&](std::string_view mark, const std::string& with) {
        if (value.find(mark) == std::string::npos || with.size() > mark.size()) {
            return;
        }
        for (std::size_t found = machine::FindNoCase(value, mark); found != std::string::npos;
             found = machine::FindNoCase(value, mark, found + with.size())) {
            value.replace(found, mark.size(), with);
        }
    };
    replace(SectionMark, m_section->name);
    replace(LineMark, std::to_string(m_readerLine));
    return value;
}

bool Parser::TakeValue(std::string_view line) {
    if (m_section->values.size() >= static_cast<std::size_t>(ValuesOfASection)) {
        Add(Fault::TooManyValues, fmt::format("[{}] has more than {} keys: reading ends here, all that follows is lost",
                                              Utf8(m_section->name), ValuesOfASection));
        return false;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        if (line[0] != '[') {
            Add(Fault::StrayLine, fmt::format("'{}' has no '=' and does not count", Utf8(line)),
                "a comment begins with ';'");
        }
        return true;
    }
    std::size_t value = equals + 1;
    while (value < line.size() && line[value] == ' ') {
        ++value;
    }
    const std::string_view before = line.substr(0, equals);
    const std::string_view key = before.substr(0, before.find_last_not_of(Blanks) + 1);
    const std::string_view text = line.substr(value);
    if (m_isUtf8 && IsUtf8Text(text)) {
        Add(Fault::Utf8Text, fmt::format("'{}' is UTF-8, the product reads '{}'", text, Utf8(text)),
            "save as ANSI, or as UTF-16 with a mark", value);
    }
    m_section->values.push_back({std::string(key), WithMarks(std::string(text)), At(0), At(value)});
    return true;
}

// The first section of its name is used, leading blanks are ignored, and one pair of quotes around a value is removed.
void Parser::ParseProfile() {
    std::vector<IniValue>* into = nullptr;
    bool hasSettings = false, hasBalloons = false;
    m_lineNumber = 1;
    for (std::size_t at = 0; at < m_text.size();) {
        const std::size_t end = std::min(m_text.find_first_of(LineEnds, at), m_text.size());
        m_line = std::string_view(m_text).substr(at, end - at);
        const std::string_view line = Trimmed(m_line);
        const auto offsetOf = [&](std::string_view part) {
            return static_cast<std::size_t>(part.data() - m_line.data());
        };
        const std::size_t equals = line.find('=');
        if (line.starts_with('[')) {
            const std::string_view name = Trimmed(line.substr(1, line.find(']') - 1));
            const bool isSettings = !hasSettings && machine::EqualNoCase(name, SectionNames[0]);
            const bool isBalloons = !hasBalloons && machine::EqualNoCase(name, SectionNames[SectionNameCount - 1]);
            into = isSettings ? &m_ini.settings : isBalloons ? &m_ini.balloons : nullptr;
            hasSettings |= isSettings;
            hasBalloons |= isBalloons;
        } else if (into && !line.empty() && line[0] != ';' && equals != std::string_view::npos) {
            const std::string_view key = Trimmed(line.substr(0, equals));
            std::string_view value = Trimmed(line.substr(equals + 1));
            const std::size_t valueAt = value.empty() ? offsetOf(line) + equals + 1 : offsetOf(value);
            if (value.size() > 1 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0]) {
                value = value.substr(1, value.size() - 2);
            }
            into->push_back({std::string(key), std::string(value), At(offsetOf(line)), At(valueAt)});
        }
        if (end < m_text.size() && !(m_text[end] == '\r' && end + 1 < m_text.size() && m_text[end + 1] == '\n')) {
            ++m_lineNumber;
        }
        at = end + 1;
    }
}

std::string SectionText(const IniSection& section) {
    return fmt::format("[{}{}]", SectionNames[section.type],
                       section.number == SectionWithoutNumber ? "" : std::to_string(section.number));
}

IniFile ReadIniFile(const std::string& file, Findings& findings) {
    return ParseIni(file, ReadHostFile(file, {file, 1, 1}), findings);
}

IniFile ParseIni(const std::string& file, std::string bytes, Findings& findings) {
    IniFile ini;
    Parser(file, ini, findings).Parse(std::move(bytes));
    return ini;
}

} // namespace rehearse
