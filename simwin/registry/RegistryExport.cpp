#include "simwin/registry/RegistryExport.h"

#include "simwin/kernel/Text.h"

#include <charconv>

namespace machine {

constexpr std::string_view Header5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view Header4 = "REGEDIT4";
constexpr std::size_t MostLevels = 512, MostNameChars = 255; // of the registry
constexpr simwin::DWORD TypeText = 1, TypeExpand = 2, TypeBinary = 3, TypeDword = 4, TypeMulti = 7;

namespace {
// isKept: false for a root that the machine creates by itself or never reads; an export's part below it is skipped.
struct RootName {
    const char* name;
    bool isKept;
};
} // namespace
constexpr RootName Roots[] = {{"HKEY_LOCAL_MACHINE", true},   {"HKEY_CURRENT_USER", true},
                              {"HKEY_CLASSES_ROOT", true},    {"HKEY_USERS", true},
                              {"HKEY_CURRENT_CONFIG", false}, {"HKEY_PERFORMANCE_DATA", false},
                              {"HKEY_DYN_DATA", false},       {"HKEY_CURRENT_USER_LOCAL_SETTINGS", false}};

static const RootName* FindRoot(std::string_view name) {
    for (const RootName& root : Roots) {
        if (EqualNoCase(name, root.name)) {
            return &root;
        }
    }
    return nullptr;
}

namespace {
// Reads the text of an export, all of it in code page 1252, so that a column is a character.
class ExportReader {
public:
    ExportReader(std::vector<ExportedKey>& keys, std::vector<ExportNote>& notes) : m_keys(keys), m_notes(notes) {}

    std::optional<ExportError> Read(std::string_view bytes) {
        if (!Decode(bytes)) {
            return m_error;
        }
        while (Peek() == ';' || (AtLineEnd() && !AtEnd())) {
            (void)EndOfLine(); // comments and empty lines before the header
        }
        m_wide = AtText(Header5);
        if (!m_wide && !AtText(Header4)) {
            return Fail("the first line is not that of a registry export");
        }
        SkipText(m_wide ? Header5.size() : Header4.size());
        if (!EndOfLine()) {
            return m_error;
        }
        while (m_at < m_text.size()) {
            if (!ReadLine()) {
                return m_error;
            }
        }
        return std::nullopt;
    }

private:
    bool Decode(std::string_view bytes) {
        const bool isMarked = bytes.starts_with("\xFF\xFE");
        if (isMarked || IsUnmarkedUtf16(bytes)) {
            m_text = AnsiFromUtf16Bytes(bytes.substr(isMarked ? 2 : 0));
            if (bytes.size() % 2 == 0) {
                return true;
            }
            while (m_at < m_text.size()) {
                Step();
            }
            Fail("the file ends in the middle of a character");
            return false;
        }
        if (bytes.starts_with("\xFE\xFF")) {
            Fail("big-endian text is not an export of the registry editor");
            return false;
        }
        m_text = bytes.starts_with("\xEF\xBB\xBF") ? AnsiFromUtf8(bytes.substr(3)) : std::string(bytes);
        return true;
    }

    std::optional<ExportError> Fail(std::string_view text) {
        if (!m_error) {
            m_error = ExportError{m_line, Column(), std::string(text)};
        }
        return m_error;
    }
    bool Refuse(std::string_view text) {
        Fail(text);
        return false;
    }
    // The value cannot be read; the file can.
    bool LeaveOut(std::string_view why) {
        m_unreadable = why;
        return false;
    }

    char Peek() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
    bool AtEnd() const { return m_at >= m_text.size(); }
    bool AtText(std::string_view text) const { return std::string_view(m_text).substr(m_at).starts_with(text); }
    bool AtWord(std::string_view word) const {
        return EqualNoCase(std::string_view(m_text).substr(m_at, word.size()), word);
    }
    bool AtLineEnd() const { return AtEnd() || Peek() == '\r' || Peek() == '\n'; }
    void Step() {
        if (Peek() == '\n') {
            ++m_line;
            m_lineStart = m_at + 1;
        }
        ++m_at;
    }
    // Within a line.
    void SkipText(std::size_t count) { m_at += count; }
    unsigned Column() const { return static_cast<unsigned>(m_at - m_lineStart) + 1; }
    void SkipBlanks() {
        while (Peek() == ' ' || Peek() == '\t') {
            Step();
        }
    }
    void SkipLineEnd() {
        if (Peek() == '\r') {
            Step();
        }
        if (Peek() == '\n') {
            Step();
        }
    }

    // Only blanks or a comment up to the end of the line.
    bool EndOfLine() {
        SkipBlanks();
        if (Peek() == ';') {
            while (!AtLineEnd()) {
                Step();
            }
        }
        if (!AtLineEnd()) {
            return Refuse("something follows the end of the value");
        }
        SkipLineEnd();
        return true;
    }

    // Exports that were appended to one another repeat the first line, and its byte order mark, which has no character
    // of the code page.
    bool IsNextExport() {
        const std::size_t mark = Peek() == '?' ? 1 : 0;
        if (!std::string_view(m_text).substr(m_at + mark).starts_with(m_wide ? Header5 : Header4)) {
            return false;
        }
        SkipText(mark + (m_wide ? Header5 : Header4).size());
        m_hasKey = false; // a value before its first key belongs to no key of the export before
        return true;
    }

    bool ReadLine() {
        SkipBlanks();
        if (AtLineEnd() || Peek() == ';') {
            return EndOfLine();
        }
        if (Peek() == '[') {
            return ReadKey();
        }
        if (IsNextExport()) {
            return EndOfLine();
        }
        if (Peek() != '"' && Peek() != '@') {
            return Refuse("neither a key nor a value");
        }
        if (!m_hasKey) {
            return Refuse("a value stands before the first key");
        }
        ExportedValue value;
        if (!ReadName(value.name)) {
            return false;
        }
        value.line = m_line;
        value.column = Column();
        m_unreadable = {};
        const bool isRead = ReadData(value) && IsLineOver();
        if (m_error) {
            return false;
        }
        if (!isRead) {
            if (!m_isPassedOver) {
                m_notes.push_back(NoteOfValue(m_keys.back(), value, m_unreadable));
            }
            SkipValue();
            return true;
        }
        if (!m_isPassedOver) {
            m_keys.back().values.push_back(std::move(value));
        }
        return EndOfLine();
    }

    bool IsLineOver() {
        SkipBlanks();
        return AtLineEnd() || Peek() == ';' || LeaveOut("something stands after the end of the data");
    }

    // Up to the end of the value, over lines that are continued.
    void SkipValue() {
        char last = '\0';
        for (; !AtEnd(); Step()) {
            if (Peek() == '\n' && last != '\\') {
                break;
            }
            if (Peek() == '\n') {
                last = '\0';
            } else if (Peek() != ' ' && Peek() != '\t' && Peek() != '\r') {
                last = Peek();
            }
        }
        SkipLineEnd();
    }

    // A key's name may hold brackets: the last one of the line is the end.
    bool ReadKey() {
        std::size_t lineEnd = m_at;
        while (lineEnd < m_text.size() && m_text[lineEnd] != '\r' && m_text[lineEnd] != '\n') {
            ++lineEnd;
        }
        const std::size_t close = m_text.rfind(']', lineEnd);
        if (close == std::string::npos || close <= m_at) {
            while (!AtLineEnd()) {
                Step();
            }
            return Refuse("the key has no closing bracket");
        }
        ExportedKey key;
        Step();
        if (Peek() == '-') {
            key.deleted = true;
            Step();
        }
        key.path = m_text.substr(m_at, close - m_at);
        const std::string_view name = std::string_view(key.path).substr(0, key.path.find('\\'));
        const RootName* root = FindRoot(name);
        if (!root) {
            return Refuse("not a root key: " + std::string(name));
        }
        const unsigned line = m_line, column = Column();
        SkipText(close - m_at + 1);
        m_hasKey = true;
        m_isPassedOver = !root->isKept;
        if (root->isKept && !IsPossibleKey(key.path)) {
            m_isPassedOver = true;
            m_notes.push_back({line, column,
                               "a key that Windows could not hold (more than 512 levels, or a name of "
                               "more than 255 characters): it is left out"});
        }
        if (!m_isPassedOver) {
            m_keys.push_back(std::move(key));
        }
        return EndOfLine();
    }

    bool ReadName(std::string& name) {
        if (Peek() == '@') {
            Step();
        } else if (!ReadQuoted(name)) {
            return false;
        }
        SkipBlanks();
        if (Peek() != '=') {
            return Refuse("'=' is missing");
        }
        Step();
        SkipBlanks();
        return true;
    }

    // A text in quotes; line ends inside belong to it.
    bool ReadQuoted(std::string& text) {
        const ExportError unclosed{m_line, Column(), "the text has no closing quote"};
        Step();
        while (Peek() != '"' || AtEnd()) {
            if (const std::size_t plain = LengthOfPlain(); plain) {
                text.append(m_text, m_at, plain);
                SkipText(plain);
                continue;
            }
            if (AtEnd()) {
                m_error = m_error ? m_error : unclosed;
                return false;
            }
            if (Peek() == '\\') {
                Step();
            }
            if (!AtEnd()) {
                text += Peek();
            }
            Step();
        }
        Step();
        return true;
    }

    // How many characters from here on mean themselves and are no line end.
    std::size_t LengthOfPlain() const {
        std::size_t end = m_at;
        while (end < m_text.size() && m_text[end] != '"' && m_text[end] != '\\' && m_text[end] != '\n') {
            ++end;
        }
        return end - m_at;
    }

    bool ReadData(ExportedValue& value) {
        if (AtEnd()) {
            return Refuse("the file ends in the middle of a value");
        }
        if (Peek() == '-') {
            value.deleted = true;
            Step();
            return true;
        }
        if (Peek() == '"') {
            std::string text;
            if (!ReadQuoted(text)) {
                return false;
            }
            value.type = TypeText;
            value.data = TextBytes(text);
            return true;
        }
        if (AtWord("dword:")) {
            return ReadDword(value);
        }
        if (!AtWord("hex")) {
            return LeaveOut("not the data of a value");
        }
        SkipText(3);
        value.type = TypeBinary;
        if (Peek() == '(') {
            Step();
            if (!ReadNumber(value.type)) {
                return false;
            }
            if (Peek() != ')') {
                return LeaveOut("the type has no closing bracket");
            }
            Step();
        }
        if (Peek() != ':') {
            return LeaveOut("':' is missing");
        }
        Step();
        if (!ReadBytes(value.data)) {
            return false;
        }
        return !m_wide || TextDataToAnsi(value.type, value.data) || LeaveOut("a text of half a character");
    }

    // 1 to 8 hexadecimal digits.
    bool ReadNumber(simwin::DWORD& number, std::size_t* digits = nullptr) {
        const char* start = m_text.data() + m_at;
        const char* end = m_text.data() + m_text.size();
        const auto result = std::from_chars(start, end, number, 16);
        if (result.ec != std::errc() || result.ptr - start > 8) {
            return LeaveOut("not a hexadecimal number of at most 8 digits");
        }
        const auto length = static_cast<std::size_t>(result.ptr - start);
        SkipText(length);
        if (digits) {
            *digits = length;
        }
        return true;
    }

    bool ReadDword(ExportedValue& value) {
        SkipText(6);
        simwin::DWORD number = 0;
        std::size_t digits = 0;
        if (!ReadNumber(number, &digits)) {
            return false;
        }
        if (digits < 8 && AtEnd()) {
            return Refuse("the file ends in the middle of a number");
        }
        value.type = TypeDword;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            value.data.push_back(static_cast<std::uint8_t>(number >> shift));
        }
        return true;
    }

    static int DigitOf(char c) {
        return c >= '0' && c <= '9'   ? c - '0'
               : c >= 'a' && c <= 'f' ? c - 'a' + 10
               : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                      : -1;
    }

    // Bytes as the registry editor writes them, two digits and a comma each: nearly all of an export is that.
    void ReadPlainBytes(std::vector<std::uint8_t>& data) {
        for (; m_at + 3 <= m_text.size() && m_text[m_at + 2] == ','; m_at += 3) {
            const int high = DigitOf(m_text[m_at]), low = DigitOf(m_text[m_at + 1]);
            if (high < 0 || low < 0) {
                return;
            }
            data.push_back(static_cast<std::uint8_t>(high << 4 | low));
        }
    }

    bool ReadBytes(std::vector<std::uint8_t>& data) {
        SkipBlanks();
        if (AtLineEnd() || Peek() == ';') {
            return true; // no data
        }
        for (;;) {
            SkipBlanks();
            ReadPlainBytes(data);
            SkipBlanks();
            if (Peek() == '\\') {
                Step();
                SkipBlanks();
                if (AtEnd()) {
                    return Refuse("a line is to follow here");
                }
                if (!AtLineEnd()) {
                    return LeaveOut("a line is to follow here");
                }
                SkipLineEnd();
                continue;
            }
            simwin::DWORD byte = 0;
            const char* start = m_text.data() + m_at;
            const auto result = std::from_chars(start, m_text.data() + m_text.size(), byte, 16);
            if (AtEnd()) {
                return Refuse("the file ends in the middle of a value");
            }
            if (result.ec != std::errc() || byte > 0xFF || result.ptr - start > 2) {
                return LeaveOut("not a byte of two hexadecimal digits");
            }
            SkipText(static_cast<std::size_t>(result.ptr - start));
            data.push_back(static_cast<std::uint8_t>(byte));
            SkipBlanks();
            if (AtEnd()) {
                return Refuse("the file ends in the middle of a value");
            }
            if (Peek() != ',') {
                return true;
            }
            Step();
        }
    }

    // What the registry's limits allow; the tree of keys is walked by recursion in places.
    static bool IsPossibleKey(std::string_view path) {
        std::size_t levels = 0, length = 0;
        for (const char c : path) {
            length = c == '\\' ? 0 : length + 1;
            levels += c == '\\';
            if (length > MostNameChars || levels > MostLevels) {
                return false;
            }
        }
        return true;
    }

    std::vector<ExportedKey>& m_keys;
    std::vector<ExportNote>& m_notes;
    bool m_hasKey = false, m_isPassedOver = false; // of the key that is being read
    std::string_view m_unreadable;                 // why the value is left out
    std::string m_text;
    std::size_t m_at = 0, m_lineStart = 0;
    unsigned m_line = 1;
    bool m_wide = false;
    std::optional<ExportError> m_error;
};
} // namespace

bool IsExport(std::string_view bytes) {
    const std::string text = AnsiFromFile(bytes.substr(0, bytes.size() & ~std::size_t{1})).value_or("");
    return text.starts_with(Header5) || text.starts_with(Header4);
}

std::optional<ExportError> ReadExport(std::string_view bytes, std::vector<ExportedKey>& keys,
                                      std::vector<ExportNote>& notes) {
    return ExportReader(keys, notes).Read(bytes);
}

bool TextDataToAnsi(simwin::DWORD type, std::vector<std::uint8_t>& data) {
    if (type != TypeText && type != TypeExpand && type != TypeMulti) {
        return true;
    }
    if (data.size() % 2) {
        return false;
    }
    const std::string ansi = AnsiFromUtf16Bytes({reinterpret_cast<const char*>(data.data()), data.size()});
    data.assign(ansi.begin(), ansi.end());
    return true;
}

ExportNote NoteOfValue(const ExportedKey& key, const ExportedValue& value, std::string_view why) {
    const std::string name = value.name.empty() ? "the default value" : "value '" + value.name + "'";
    return {value.line, value.column, name + " of '" + key.path + "': " + std::string(why) + "; it is left out"};
}

void ApplyExport(const std::vector<ExportedKey>& keys, Registry& registry) {
    for (const ExportedKey& exported : keys) {
        if (exported.deleted) {
            registry.DeleteTree(exported.path);
            continue;
        }
        RegistryKey* key = registry.CreateKey(exported.path);
        for (const ExportedValue& value : exported.values) {
            if (value.deleted) {
                registry.RemoveValue(key, value.name);
            } else {
                registry.PutValue(key, value.name, value.type, value.data);
            }
        }
    }
}

} // namespace machine
