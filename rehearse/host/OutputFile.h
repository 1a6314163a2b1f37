// The file for a report, or standard output. Host side.
#pragma once

#include <fstream>
#include <optional>
#include <string>

namespace rehearse {

// Opened before anything runs, so that a wrong name is reported at once.
class Output {
public:
    // file: host path, "-" standard output, nothing: not wanted. Throws InputError.
    explicit Output(const std::optional<std::string>& file);
    bool IsWanted() const { return m_file.has_value(); }
    bool IsStandardOutput() const;
    void Write(const std::string& text); // throws InputError

private:
    std::optional<std::string> m_file;
    std::ofstream m_stream;
};

} // namespace rehearse
