#include "simwin/registry/RegistryExport.h"

#include "simwin/kernel/Text.h"

#include <charconv>

namespace machine {

namespace {

constexpr std::string_view Header5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view Header4 = "REGEDIT4";
constexpr simwin::DWORD TypeText = 1, TypeExpand = 2, TypeBinary = 3, TypeDword = 4, TypeMulti = 7;

struct RootAlias {
    const char* name;
};
constexpr RootAlias Roots[] = {{"HKEY_LOCAL_MACHINE"}, {"HKEY_CURRENT_USER"}, {"HKEY_CLASSES_ROOT"}, {"HKEY_USERS"}};

// Reads the text of an export, all of it in code page 1252, so that a column is a character.
class ExportReader {
public:
    explicit ExportReader(std::vector<ExportedKey>& keys) : m_keys(keys) {}

    std::optional<ExportError> Read(std::string_view bytes) {
        if (!Decode(bytes))
            return m_error;
        m_wide = AtText(Header5);
        if (!m_wide && !AtText(Header4))
            return Fail("the first line is not that of a registry export");
        SkipText(m_wide ? Header5.size() : Header4.size());
        if (!EndOfLine())
            return m_error;
        while (m_at < m_text.size())
            if (!ReadLine())
                return m_error;
        return std::nullopt;
    }

private:
    bool Decode(std::string_view bytes) {
        if (bytes.starts_with("\xFF\xFE")) {
            std::u16string wide;
            for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
                wide.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                                     static_cast<unsigned char>(bytes[i + 1]) << 8));
            m_text = AnsiFromUtf16(wide);
            if (bytes.size() % 2 == 0)
                return true;
            while (m_at < m_text.size())
                Step();
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
        if (!m_error)
            m_error = ExportError{m_line, m_column, std::string(text)};
        return m_error;
    }
    bool Refuse(std::string_view text) {
        Fail(text);
        return false;
    }

    char Peek() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
    bool AtEnd() const { return m_at >= m_text.size(); }
    bool AtText(std::string_view text) const { return std::string_view(m_text).substr(m_at).starts_with(text); }
    bool AtLineEnd() const { return AtEnd() || Peek() == '\r' || Peek() == '\n'; }
    void Step() {
        if (Peek() == '\n') {
            ++m_line;
            m_column = 0;
        }
        ++m_at;
        ++m_column;
    }
    void SkipText(std::size_t count) {
        while (count--)
            Step();
    }
    void SkipBlanks() {
        while (Peek() == ' ' || Peek() == '\t')
            Step();
    }
    void SkipLineEnd() {
        if (Peek() == '\r')
            Step();
        if (Peek() == '\n')
            Step();
    }

    // Nothing but blanks or a comment up to the end of the line.
    bool EndOfLine() {
        SkipBlanks();
        if (Peek() == ';')
            while (!AtLineEnd())
                Step();
        if (!AtLineEnd())
            return Refuse("something stands behind the end of the value");
        SkipLineEnd();
        return true;
    }

    bool ReadLine() {
        SkipBlanks();
        if (AtLineEnd() || Peek() == ';')
            return EndOfLine();
        if (Peek() == '[')
            return ReadKey();
        if (Peek() != '"' && Peek() != '@')
            return Refuse("neither a key nor a value");
        if (m_keys.empty())
            return Refuse("a value stands before the first key");
        ExportedValue value;
        if (!ReadName(value.name) || !ReadData(value))
            return false;
        m_keys.back().values.push_back(std::move(value));
        return EndOfLine();
    }

    // A key's name may hold brackets: the last one of the line is the end.
    bool ReadKey() {
        std::size_t lineEnd = m_text.find_first_of("\r\n", m_at);
        if (lineEnd == std::string::npos)
            lineEnd = m_text.size();
        const std::size_t close = m_text.rfind(']', lineEnd);
        if (close == std::string::npos || close <= m_at) {
            while (!AtLineEnd())
                Step();
            return Refuse("the key has no closing bracket");
        }
        ExportedKey key;
        Step();
        if (Peek() == '-') {
            key.deleted = true;
            Step();
        }
        key.path = m_text.substr(m_at, close - m_at);
        const std::string_view root = std::string_view(key.path).substr(0, key.path.find('\\'));
        bool known = false;
        for (const RootAlias& alias : Roots)
            known = known || EqualNoCase(root, alias.name);
        if (!known)
            return Refuse("not a root key: " + std::string(root));
        SkipText(close - m_at + 1);
        m_keys.push_back(std::move(key));
        return EndOfLine();
    }

    bool ReadName(std::string& name) {
        if (Peek() == '@')
            Step();
        else if (!ReadQuoted(name))
            return false;
        SkipBlanks();
        if (Peek() != '=')
            return Refuse("'=' is missing");
        Step();
        SkipBlanks();
        return true;
    }

    // A text in quotes; line ends inside belong to it.
    bool ReadQuoted(std::string& text) {
        const unsigned line = m_line, column = m_column;
        Step();
        while (Peek() != '"' || AtEnd()) {
            if (AtEnd()) {
                m_line = line;
                m_column = column;
                return Refuse("the text has no closing quote");
            }
            if (Peek() == '\\')
                Step();
            if (!AtEnd())
                text += Peek();
            Step();
        }
        Step();
        return true;
    }

    bool ReadData(ExportedValue& value) {
        if (Peek() == '-') {
            value.deleted = true;
            Step();
            return true;
        }
        if (Peek() == '"') {
            std::string text;
            if (!ReadQuoted(text))
                return false;
            value.type = TypeText;
            value.data = TextBytes(text);
            return true;
        }
        if (AtText("dword:"))
            return ReadDword(value);
        if (!AtText("hex"))
            return Refuse("not the data of a value");
        SkipText(3);
        value.type = TypeBinary;
        if (Peek() == '(') {
            Step();
            if (!ReadNumber(value.type))
                return false;
            if (Peek() != ')')
                return Refuse("the type has no closing bracket");
            Step();
        }
        if (Peek() != ':')
            return Refuse("':' is missing");
        Step();
        return ReadBytes(value.data) && ToAnsi(value);
    }

    // 1 to 8 hexadecimal digits.
    bool ReadNumber(simwin::DWORD& number, std::size_t* digits = nullptr) {
        const char* start = m_text.data() + m_at;
        const char* end = m_text.data() + m_text.size();
        const auto result = std::from_chars(start, end, number, 16);
        if (result.ec != std::errc() || result.ptr - start > 8)
            return Refuse("not a hexadecimal number of at most 8 digits");
        const auto length = static_cast<std::size_t>(result.ptr - start);
        SkipText(length);
        if (digits)
            *digits = length;
        return true;
    }

    bool ReadDword(ExportedValue& value) {
        SkipText(6);
        simwin::DWORD number = 0;
        std::size_t digits = 0;
        if (!ReadNumber(number, &digits))
            return false;
        if (digits < 8 && AtEnd())
            return Refuse("the file ends in the middle of a number");
        value.type = TypeDword;
        for (unsigned shift = 0; shift < 32; shift += 8)
            value.data.push_back(static_cast<std::uint8_t>(number >> shift));
        return true;
    }

    bool ReadBytes(std::vector<std::uint8_t>& data) {
        SkipBlanks();
        if (AtLineEnd() || Peek() == ';')
            return true; // no data
        for (;;) {
            SkipBlanks();
            if (Peek() == '\\') {
                Step();
                if (AtEnd() || !AtLineEnd())
                    return Refuse("a line is to follow here");
                SkipLineEnd();
                continue;
            }
            simwin::DWORD byte = 0;
            const char* start = m_text.data() + m_at;
            const auto result = std::from_chars(start, m_text.data() + m_text.size(), byte, 16);
            if (result.ec != std::errc() || byte > 0xFF || result.ptr - start > 2)
                return Refuse("not a byte of two hexadecimal digits");
            SkipText(static_cast<std::size_t>(result.ptr - start));
            data.push_back(static_cast<std::uint8_t>(byte));
            SkipBlanks();
            if (AtEnd())
                return Refuse("the file ends in the middle of a value");
            if (Peek() != ',')
                return true;
            Step();
        }
    }

    // Texts are UTF-16 in the newer form.
    bool ToAnsi(ExportedValue& value) {
        const bool text = value.type == TypeText || value.type == TypeExpand || value.type == TypeMulti;
        if (!text || !m_wide)
            return true;
        if (value.data.size() % 2)
            return Refuse("a text of half a character");
        std::u16string wide;
        for (std::size_t i = 0; i < value.data.size(); i += 2)
            wide.push_back(static_cast<char16_t>(value.data[i] | value.data[i + 1] << 8));
        const std::string ansi = AnsiFromUtf16(wide);
        value.data.assign(ansi.begin(), ansi.end());
        return true;
    }

    std::vector<ExportedKey>& m_keys;
    std::string m_text;
    std::size_t m_at = 0;
    unsigned m_line = 1, m_column = 1;
    bool m_wide = false;
    std::optional<ExportError> m_error;
};

} // namespace

std::optional<ExportError> ReadExport(std::string_view bytes, std::vector<ExportedKey>& keys) {
    return ExportReader(keys).Read(bytes);
}

void ApplyExport(const std::vector<ExportedKey>& keys, Registry& registry) {
    for (const ExportedKey& exported : keys) {
        if (exported.deleted) {
            registry.DeleteTree(exported.path);
            continue;
        }
        RegistryKey* key = registry.CreateKey(exported.path);
        for (const ExportedValue& value : exported.values) {
            if (value.deleted)
                registry.RemoveValue(key, value.name);
            else
                registry.PutValue(key, value.name, value.type, value.data);
        }
    }
}

std::optional<ExportError> ImportExport(std::string_view bytes, Registry& registry) {
    std::vector<ExportedKey> keys;
    if (const auto error = ReadExport(bytes, keys))
        return error;
    ApplyExport(keys, registry);
    return std::nullopt;
}

} // namespace machine
