// Pictures of what a user saw, as SVG: each balloon with what it showed, message boxes, the desktop at the end.
// Written to a folder of the host while the machine runs and after it. In true pixels, texts as texts with their
// lengths.
#pragma once

#include "rehearse/Balloons.h"

#include <map>
#include <string>

namespace rehearse {

class Pictures {
public:
    // folder: created if missing; "" no pictures. Throws InputError if that fails.
    explicit Pictures(std::string folder);
    // A balloon appears or changes what it shows. index: from 0. Called inside the machine; a file that cannot be
    // written is added by AddRest.
    void Add(const Balloon& balloon, std::size_t index);
    // Message boxes and the desktop of the console's session, as they are now. Throws InputError for the first file
    // that could not be written.
    void AddRest();

private:
    void Write(const std::string& name, const std::string& svg);

    std::string m_folder, m_failed; // the first file that could not be written
    struct Shown {
        std::string last;
        unsigned count = 0;
    };
    std::map<std::size_t, Shown> m_shown;
};

} // namespace rehearse
