#include "rehearse/description/DescriptionReader.h"

#include "rehearse/description/DescriptionKeys.h"
#include "rehearse/description/Manners.h"
#include "rehearse/host/Durations.h"
#include "rehearse/host/Files.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

// The parser asserts that a table's name begins as a name, and reports the error only after the assertion. That is the
// input's fault, so the assertion is disabled, and nothing is assumed either.
#undef NDEBUG
#define TOML_ASSERT(expression) static_cast<void>(0)
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_WINDOWS_COMPAT 0
#include <toml++/toml.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

namespace rehearse {

static Position PositionOf(const std::string& file, const toml::source_region& region) {
    return {file, region.begin.line ? region.begin.line : 1u, region.begin.column ? region.begin.column : 1u};
}

namespace {
// One file on its way into tables.
class FileReader {
public:
    FileReader(std::string file, const Folders& within) : m_file(std::move(file)), m_within(within) {}
    TomlTable ReadTable(const toml::table& table, const std::string& section) const;

private:
    Value ReadValue(const toml::node& node, const toml::key& name, const Key& key) const;
    void ReadText(Value& value, const std::string& utf8, const Key& key, std::string_view name) const;
    void ReadArray(Value& value, const toml::array& array, const Key& key, std::string_view name) const;
    void CheckNeeded(const TomlTable& described) const;
    void CheckOnce(const std::vector<TomlTable>& devices) const;
    void AddOwnSubject(TomlTable& described) const;
    void CheckSubjects(const TomlTable& described) const;
    std::string HostPath(const std::string& path, const Position& at) const;
    std::string m_file;
    const Folders& m_within;
};
} // namespace

static std::string ChoicesText(const Key& key) {
    std::string text;
    for (const std::string& choice : machine::Split(key.choices, '|')) {
        text += fmt::format("{}\"{}\"", text.empty() ? "" : ", ", choice);
    }
    return text;
}

// The message for a wrong type: "must be a duration, \"close\"".
static std::string WantedText(const Key& key) {
    std::string wanted = TypeText(key.choices ? key.types & ~Text : key.types);
    if (key.types & Duration) {
        wanted += " such as \"250ms\", \"10s\", \"2m\", \"1h\"";
    }
    if (key.choices) {
        wanted += (wanted.empty() ? "one of " : " or one of ") + ChoicesText(key);
    }
    return wanted;
}

static std::string OutsideText(const std::string& file) {
    return fmt::format("'{}' is no file of this folder: a machine that is a folder or in a fleet may name no other",
                       file);
}

bool IsBelow(const std::string& folder, const std::string& real) {
    const std::string whole = RealPath(folder.empty() ? "." : folder);
    const auto isSeparator = [](char c) { return c == '/' || c == '\\'; };
    return !whole.empty() && real.starts_with(whole) &&
           (isSeparator(whole.back()) || (real.size() > whole.size() && isSeparator(real[whole.size()])));
}

void CheckIsInside(const Folders& folders, const std::string& file, const Position& at) {
    const std::string real = RealPath(file);
    const bool isInside = real.empty() || std::any_of(folders.begin(), folders.end(),
                                                      [&](const std::string& folder) { return IsBelow(folder, real); });
    if (!isInside || KindOfFile(file) == FileKind::Pipe) {
        throw InputError(at, OutsideText(file));
    }
}

std::string FileReader::HostPath(const std::string& path, const Position& at) const {
    const std::string full = IsAbsolutePath(path) ? path : FolderOfPath(m_file) + path;
    if (!m_within.empty()) {
        // On Windows the mere question whether a file of a share is there tells the share who asks.
        const bool isElsewhere = IsAbsolutePath(path) || path.starts_with('\\') || path.find(':') != std::string::npos;
        if (isElsewhere) {
            throw InputError(at, OutsideText(path));
        }
        CheckIsInside(m_within, full, at);
    }
    return full;
}

void FileReader::ReadText(Value& value, const std::string& utf8, const Key& key, std::string_view name) const {
    if (key.types & Duration) {
        if (const auto ms = ParseDuration(utf8)) {
            value.type = Duration;
            value.number = static_cast<std::int64_t>(*ms);
            return;
        }
    }
    if (key.types & (HostFile | HostFiles)) {
        value.type = HostFile;
        value.text = HostPath(utf8, value.at);
        return;
    }
    if (key.types & Plain) {
        value.type = Plain;
        value.text = utf8;
        return;
    }
    const bool isChoice = [&] {
        if (!key.choices) {
            return true;
        }
        const std::vector<std::string> choices = machine::Split(key.choices, '|');
        return std::find(choices.begin(), choices.end(), utf8) != choices.end();
    }();
    if (!(key.types & Text) || !isChoice) {
        throw InputError(value.at, fmt::format("'{}' must be {}", name, WantedText(key)));
    }
    value.type = Text;
    value.text = machine::AnsiFromUtf8(utf8);
}

void FileReader::ReadArray(Value& value, const toml::array& array, const Key& key, std::string_view name) const {
    const bool isEmpty = array.empty();
    if (key.types & Tables && !isEmpty && array.is_array_of_tables()) {
        value.type = Tables;
        for (const toml::node& item : array) {
            value.tables.push_back(ReadTable(*item.as_table(), key.name));
        }
        if (std::string_view(key.name) == "device") {
            CheckOnce(value.tables);
        }
        return;
    }
    const bool isNumbers = key.types & Numbers && (array.is_homogeneous<std::int64_t>() || isEmpty);
    const bool isTexts = key.types & (Texts | HostFiles) && (array.is_homogeneous<std::string>() || isEmpty);
    if (!isNumbers && !isTexts) {
        throw InputError(value.at, fmt::format("'{}' must be {}", name, WantedText(key)));
    }
    value.type = isNumbers ? Numbers : key.types & (Texts | HostFiles);
    for (const toml::node& item : array) {
        value.itemsAt.push_back(PositionOf(m_file, item.source()));
        if (isNumbers) {
            value.numbers.push_back(item.ref<std::int64_t>());
            continue;
        }
        const std::string& text = item.ref<std::string>();
        value.texts.push_back(key.types & HostFiles ? HostPath(text, value.itemsAt.back())
                                                    : machine::AnsiFromUtf8(text));
    }
}

Value FileReader::ReadValue(const toml::node& node, const toml::key& name, const Key& key) const {
    Value value;
    value.at = PositionOf(m_file, node.source());
    if (const toml::table* table = node.as_table()) {
        if (table->empty()) {
            return value; // takes the key back
        }
        if (!(key.types & (Table | AnyKeys))) {
            throw InputError(value.at, fmt::format("'{}' must be {}", name.str(), WantedText(key)));
        }
        const std::string section = key.section[0] ? fmt::format("{}.{}", key.section, key.name) : key.name;
        value.type = key.types & (Table | AnyKeys);
        value.tables.push_back(ReadTable(*table, section));
    } else if (const toml::array* array = node.as_array()) {
        ReadArray(value, *array, key, name.str());
    } else if (const auto text = node.value_exact<std::string>()) {
        ReadText(value, *text, key, name.str());
    } else if (const auto flag = node.value_exact<bool>(); flag && key.types & Flag) {
        value.type = Flag;
        value.number = *flag;
    } else if (const auto number = node.value_exact<std::int64_t>(); number && key.types & Number) {
        // No count or measure is below zero; numbers of the registry have a check of their own.
        const bool isMeasured = key.types & (Duration | Flag) || std::string_view(key.name) == "count";
        if (isMeasured && *number < 0) {
            throw InputError(value.at, fmt::format("'{}' must not be below zero", name.str()));
        }
        value.type = Number;
        value.number = *number;
    } else {
        throw InputError(value.at, fmt::format("'{}' must be {}", name.str(), WantedText(key)));
    }
    return value;
}

static std::vector<std::string> NamesOfKeys(std::string_view section) {
    std::vector<std::string> names;
    for (const Key& key : AllKeys()) {
        if (section == key.section) {
            names.emplace_back(key.name);
        }
    }
    return names;
}

TomlTable FileReader::ReadTable(const toml::table& table, const std::string& section) const {
    TomlTable described;
    described.section = section;
    described.at = PositionOf(m_file, table.source());
    struct Named {
        const toml::key* name;
        const toml::node* node;
    };
    std::vector<Named> fields; // toml++ sorts by name; the order of the file decides which error is reported first
    for (auto&& [name, node] : table) {
        fields.push_back({&name, &node});
    }
    std::stable_sort(fields.begin(), fields.end(), [](const Named& a, const Named& b) {
        const toml::source_position left = a.name->source().begin, right = b.name->source().begin;
        return left.line != right.line ? left.line < right.line : left.column < right.column;
    });
    for (const Named& field : fields) {
        const std::string_view name = field.name->str();
        const Key* key = FindKey(section, name);
        if (!key) {
            const std::string where = section.empty() ? "" : fmt::format(" in '{}'", section);
            throw InputError(PositionOf(m_file, field.name->source()),
                             fmt::format("unknown key '{}'{}{}", name, where, DidYouMean(name, NamesOfKeys(section))));
        }
        described.Set(name == key->name ? std::string(name) : machine::AnsiFromUtf8(name),
                      ReadValue(*field.node, *field.name, *key));
    }
    CheckNeeded(described);
    AddOwnSubject(described);
    CheckSubjects(described);
    return described;
}

// Two tables for one device in one file are a copying mistake; only an including description may amend a device.
void FileReader::CheckOnce(const std::vector<TomlTable>& devices) const {
    std::map<std::string, Position> known;
    for (const TomlTable& device : devices) {
        const auto [first, isNew] = known.emplace(machine::Lower(device.TextOf("id")), device.At("id"));
        if (!isNew) {
            throw InputError(device.At("id"),
                             fmt::format("device '{}' is described in line {} already",
                                         machine::Utf8FromAnsi(device.TextOf("id")), first->second.line));
        }
    }
}

void FileReader::CheckNeeded(const TomlTable& described) const {
    for (const Key& key : AllKeys()) {
        const bool isNeeded = described.section == key.section && std::string_view(key.initial) == "needed";
        // A link that amends another may omit what that one says.
        const bool isAmendable = described.section == "dos_name" && std::string_view(key.name) == "target";
        if (isNeeded && !isAmendable && !described.Is(key.name, ~unsigned{Nothing})) {
            throw InputError(described.at, fmt::format("'{}' is missing in '{}'", key.name, described.section));
        }
    }
}

// `contains` without a file is about a message box, whatever else the box says.
void FileReader::AddOwnSubject(TomlTable& described) const {
    const bool hasSubject = std::any_of(described.Fields().begin(), described.Fields().end(), [&](const Field& field) {
        return IsSubject(*FindKey(described.section, field.key));
    });
    if (hasSubject || described.section != "expect" || !described.Is("contains", Text)) {
        return;
    }
    Value whole;
    whole.at = described.At("contains");
    whole.type = Text;
    described.Set("message", std::move(whole));
}

void FileReader::CheckSubjects(const TomlTable& described) const {
    if (!HasSubjects(described.section)) {
        return;
    }
    // The service's state, its checkpoints and the exit code may be in one expectation.
    const auto isServiceFact = [](std::string_view name) {
        return name == "service" || name == "checkpoints" || name == "exit_code";
    };
    std::string subject;
    for (const auto& [name, value] : described.Fields()) {
        if (!IsSubject(*FindKey(described.section, name)) || value.type == Nothing) {
            continue;
        }
        if (!subject.empty() && !(isServiceFact(subject) && isServiceFact(name))) {
            throw InputError(value.at, fmt::format("'{}' cannot stand beside '{}'", name, subject));
        }
        subject = name;
    }
    if (subject.empty()) {
        throw InputError(described.at, fmt::format("this '{}' says nothing but when", described.section));
    }
    for (const auto& [name, value] : described.Fields()) {
        const Key& key = *FindKey(described.section, name);
        if (!IsSubject(key) && !GoesWith(key, subject)) {
            throw InputError(value.at, fmt::format("'{}' does not go with '{}'", name, subject));
        }
    }
}

static void AppendUtf8(std::string& text, char32_t code) {
    if (code < 0x80) {
        text.push_back(static_cast<char>(code));
        return;
    }
    const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    text.push_back(static_cast<char>(0x780u >> more | code >> 6 * more));
    for (int k = more - 1; k >= 0; --k) {
        text.push_back(static_cast<char>(0x80 | (code >> 6 * k & 0x3F)));
    }
}

// UTF-16 with its mark, as some shells write what is sent to a file, as UTF-8; anything else as it is.
static std::string Utf8Of(std::string bytes, const std::string& file) {
    const bool isBigEndian = bytes.starts_with("\xFE\xFF");
    if (!isBigEndian && !bytes.starts_with("\xFF\xFE")) {
        return bytes;
    }
    std::string text;
    Position at{file, 1, 1};
    char32_t first = 0; // half of a pair
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const unsigned a = static_cast<unsigned char>(bytes[i]), b = static_cast<unsigned char>(bytes[i + 1]);
        const char32_t unit = isBigEndian ? a << 8 | b : b << 8 | a;
        const bool isSecond = unit >> 10 == 0x37;
        if (isSecond != (first != 0)) {
            throw InputError(at, "half of a character stands here: this is no UTF-16");
        }
        const char32_t code = isSecond ? 0x10000 + ((first & 0x3FF) << 10 | (unit & 0x3FF)) : unit;
        first = unit >> 10 == 0x36 ? unit : 0;
        if (!first) {
            AppendUtf8(text, code);
            at.line += unit == '\n';
            at.column = unit == '\n' ? 1 : at.column + 1;
        }
    }
    if (first || bytes.size() % 2) {
        throw InputError(at, "the file ends in the middle of a character");
    }
    return text;
}

static toml::table ParseFile(const std::string& file, const Position& from) {
    const std::string text = Utf8Of(ReadHostFile(file, from), file);
    try {
        return toml::parse(std::string_view(text), std::string_view(file));
    } catch (const toml::parse_error& error) {
        throw InputError(PositionOf(file, error.source()), error.description());
    }
}

// Reads one file after those that it includes. A description that several build on is read once.
static void ReadInto(TomlTable& whole, const std::string& file, const Position& from, const Folders& within,
                     std::set<std::string>& open, std::set<std::string>& done) {
    const std::string name = KeyOfFile(file);
    if (open.contains(name)) {
        throw InputError(from, fmt::format("'{}' includes itself", file));
    }
    if (done.contains(name)) {
        return;
    }
    open.insert(name);
    const TomlTable described = FileReader(file, within).ReadTable(ParseFile(file, from), "");
    if (const Value* include = described.Find("include")) {
        const std::vector<std::string> files = described.TextsOf("include");
        for (std::size_t i = 0; i < files.size(); ++i) {
            ReadInto(whole, files[i], include->itemsAt.empty() ? include->at : include->itemsAt[i], within, open, done);
        }
    }
    open.erase(name);
    done.insert(name);
    whole.Amend(described);
}

static std::function<void(const std::string& file, const std::string* bytes)> g_fileWatcher;

void WatchHostFiles(std::function<void(const std::string& file, const std::string* bytes)> watcher) {
    g_fileWatcher = std::move(watcher);
}

[[noreturn]] static void RefuseFile(const std::string& file, const Position& at, const std::string& why) {
    if (g_fileWatcher) {
        g_fileWatcher(file, nullptr);
    }
    throw InputError(at, why);
}

std::string ReadHostFile(const std::string& file, const Position& at, std::size_t most) {
    constexpr unsigned MiB = 20;
    const FileKind kind = KindOfFile(file);
    std::ifstream stream(StreamPath(file), std::ios::binary);
    if (kind == FileKind::Folder) {
        const std::string what = file == at.file ? "this" : "'" + file + "'"; // named by the command line, or in a file
        RefuseFile(file, file == at.file ? Position{file, 0, 0} : at, what + " is a folder, and a file is needed here");
    }
    if (kind == FileKind::File && !stream) {
        RefuseFile(file, at, fmt::format("'{}' is there, but may not be read", file));
    }
    if ((kind != FileKind::File && kind != FileKind::Pipe) || !stream) {
        RefuseFile(file, at, fmt::format("there is no file '{}' that can be read{}", file, DidYouMeanFile(file)));
    }
    const auto refuseAbove = [&](std::uintmax_t size) {
        if (size > most) {
            RefuseFile(file, at, fmt::format("'{}' has more than {} MiB, too much for its kind", file, most >> MiB));
        }
    };
    constexpr std::size_t LeastAtOnce = 1 << 12;
    std::size_t step = 1 << 18;
    std::string bytes;
    // The stream is asked, since the library's question about a path fails for a share or a long path on Windows.
    if (kind == FileKind::File && stream.seekg(0, std::ios::end)) { // a pipe does not say how much comes
        const std::streamoff expected = std::max<std::streamoff>(stream.tellg(), 0);
        refuseAbove(static_cast<std::uintmax_t>(expected));
        // One more than there is, so that the first read meets the end; a file that the system makes up has no size.
        step = std::max(static_cast<std::size_t>(expected) + 1, LeastAtOnce);
        stream.seekg(0);
    }
    stream.clear();
    for (std::size_t size = 0; stream; size = bytes.size()) {
        bytes.resize(size + step);
        stream.read(bytes.data() + size, static_cast<std::streamsize>(step));
        bytes.resize(size + static_cast<std::size_t>(stream.gcount()));
        refuseAbove(bytes.size());
    }
    if (stream.bad()) { // such as of a share that went away: what was read would pass for the whole
        RefuseFile(file, at, fmt::format("'{}' cannot be read to its end", file));
    }
    if (g_fileWatcher) {
        g_fileWatcher(file, &bytes);
    }
    return bytes;
}

TomlTable ReadDescription(const std::string& file, const Folders& within) {
    TomlTable whole;
    whole.at = {file, 1, 1};
    std::set<std::string> open, done;
    ReadInto(whole, file, whole.at, within, open, done);
    return whole;
}

} // namespace rehearse
