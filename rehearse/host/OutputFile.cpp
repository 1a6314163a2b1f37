#include "rehearse/host/OutputFile.h"

#include "rehearse/host/Files.h"
#include "rehearse/host/InputError.h"

#include <cstdio>

namespace rehearse {

static constexpr const char* StandardOutput = "-";

Output::Output(const std::optional<std::string>& file) : m_file(file) {
    if (m_file && *m_file != StandardOutput) {
        m_stream.open(StreamPath(*m_file), std::ios::binary);
        if (!m_stream) {
            throw InputError({*m_file, 0, 0}, "this file cannot be written");
        }
    }
}

bool Output::IsStandardOutput() const {
    return m_file && *m_file == StandardOutput;
}

void Output::Write(const std::string& text) {
    if (IsStandardOutput()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else if (!(m_stream << text << std::flush)) {
        throw InputError({*m_file, 0, 0}, "this file cannot be written");
    }
}

} // namespace rehearse
