// A short text by which contents are recognised when a run continues. No protection against anyone who means harm.
// Pure.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace rehearse::fleet {

class Fingerprint {
public:
    // Each text with its length, so that "a", "bc" and "ab", "c" differ.
    Fingerprint& Add(std::string_view bytes) {
        AddPart(bytes);
        AddEnd(bytes.size());
        return *this;
    }
    // A text that comes in parts, then the size of all of it.
    void AddEnd(std::uint64_t size) { AddPart({reinterpret_cast<const char*>(&size), sizeof(size)}); }
    void AddPart(std::string_view bytes) {
        for (const char byte : bytes) {
            m_value = (m_value ^ static_cast<unsigned char>(byte)) * 0x100000001B3ULL; // FNV-1a
        }
    }
    std::string Text() const { return fmt::format("{:016x}", m_value); }

private:
    std::uint64_t m_value = 0xCBF29CE484222325ULL;
};

// A path as text that JSON can hold whatever its bytes are: those outside of printable ASCII, and '%', as %XX.
inline std::string PathText(std::string_view path) {
    std::string text;
    for (const char byte : path) {
        const bool isPlain = byte > 0x20 && byte < 0x7F && byte != '%';
        text += isPlain ? std::string(1, byte) : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return text;
}
inline std::string PathOfText(std::string_view text) {
    std::string path;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            path += static_cast<char>(std::strtoul(std::string(text.substr(i + 1, 2)).c_str(), nullptr, 16));
            i += 2;
        } else {
            path += text[i];
        }
    }
    return path;
}

inline std::string FingerprintOf(std::string_view bytes) {
    return Fingerprint().Add(bytes).Text();
}

} // namespace rehearse::fleet
