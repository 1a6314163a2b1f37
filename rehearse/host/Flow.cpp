#include "rehearse/host/Flow.h"

#include <fmt/format.h>

namespace rehearse {

std::string Shown(const std::string& text) {
    std::string shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const unsigned next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        if ((byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F) {
            shown += fmt::format("\\x{:02x}", byte);
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) { // those of eight bits
            shown += fmt::format("\\x{:02x}", next);
            ++i;
        } else {
            shown += text[i];
        }
    }
    return shown;
}

std::size_t ColumnsOf(const std::string& utf8) {
    std::size_t columns = 0;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        if (utf8[i] == '\x1b') {
            i = utf8.find('m', i);
        } else {
            columns += (static_cast<unsigned char>(utf8[i]) & 0xC0) != 0x80;
        }
        if (i == std::string::npos) {
            break;
        }
    }
    return columns;
}

std::string Flow(const std::string& text, std::size_t width, std::size_t indent) {
    if (width == 0 || ColumnsOf(text) <= width) {
        return text;
    }
    std::string flowed;
    std::size_t column = 0;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = text.find_first_not_of(' ', start); // blanks go with the word that they stand before
        end = end == std::string::npos ? text.size() : text.find(' ', end);
        end = end == std::string::npos ? text.size() : end;
        std::string word = text.substr(start, end - start);
        if (column && column + ColumnsOf(word) > width) {
            word.erase(0, word.find_first_not_of(' '));
            const std::size_t margin = indent + ColumnsOf(word) > width ? 0 : indent;
            flowed += "\n" + std::string(margin, ' ');
            column = margin;
        }
        flowed += word;
        column += ColumnsOf(word);
        start = end;
    }
    return flowed;
}

} // namespace rehearse
