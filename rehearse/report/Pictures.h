// Pictures of what a user saw, as SVG: each balloon with what it showed, message boxes, the desktop at the end.
// Written to a folder of the host while the machine runs and after it. In true pixels, texts as texts with their
// lengths.
#pragma once

#include "rehearse/watch/Balloons.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rehearse {

struct Picture {
    std::string svg;
    std::uint64_t atMs = 0;
    std::string texts; // what can be read on it, UTF-8
    bool isBox = false;
};

class Pictures {
public:
    // folder: created if missing; "" no files. mostKept: of balloons and of message boxes, for Kept. Throws InputError
    // if the folder cannot be created.
    explicit Pictures(std::string folder, std::size_t mostKept = 0);
    // A balloon appears or changes what it shows. index: from 0. Called inside the machine; a file that cannot be
    // written is added by AddRest.
    void Add(const Balloon& balloon, std::size_t index);
    // Message boxes and the desktop of the console's session, as they are now. Throws InputError for the first file
    // that could not be written.
    void AddRest();
    const std::vector<Picture>& Kept() const { return m_kept; }

private:
    bool IsIdle() const { return m_folder.empty() && m_mostKept == 0; }
    void Write(const std::string& name, const std::string& svg);

    std::vector<Picture> m_kept;
    std::size_t m_mostKept;
    std::string m_folder, m_failed; // the first file that could not be written
    struct Shown {
        std::string last;
        unsigned count = 0;
    };
    std::map<std::size_t, Shown> m_shown;
};

} // namespace rehearse
