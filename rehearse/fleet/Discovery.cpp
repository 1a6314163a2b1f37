#include "rehearse/fleet/Discovery.h"

#include "rehearse/host/Files.h"

#include "simwin/kernel/Text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace rehearse::fleet {

static constexpr const char* OwnDescription = "machine.toml"; // of a folder that is one machine; written last
static constexpr const char* OwnExport = "registry.txt";

namespace {

struct Place {
    std::string path;
    std::string name; // "" the fleet's own folder
};

// What one folder holds.
struct Contents {
    std::vector<Place> descriptions, folders, links;
    bool isMachine = false, hasExports = false, isCapture = false;
};

class Search {
public:
    explicit Search(const std::string& out);
    void Run(const std::string& folder);
    std::vector<Found> found;

private:
    Contents Look(const Place& place, std::string& error) const;
    void Enter(const Place& place);

    std::set<std::string> m_entered; // the real paths of folders: a link that leads upwards would never end
    std::vector<Place> m_folders, m_links;
};

} // namespace

static bool HasExtension(std::string_view file, std::string_view extension) {
    return file.size() > extension.size() && machine::EndsWithNoCase(file, extension);
}

Search::Search(const std::string& out) {
    if (const std::string real = RealPath(out); !real.empty()) {
        m_entered.insert(real);
    }
}

Contents Search::Look(const Place& place, std::string& error) const {
    Contents contents;
    for (const FolderEntry& entry : ListFolder(place.path, error)) {
        const std::string& file = entry.name;
        Place inside{InFolder(place.path, file), place.name.empty() ? file : place.name + "/" + file};
        if (entry.isFolder) {
            (entry.isLink ? contents.links : contents.folders).push_back(std::move(inside));
        } else if (HasExtension(file, ".toml")) {
            contents.isMachine = contents.isMachine || machine::EqualNoCase(file, OwnDescription);
            contents.descriptions.push_back(std::move(inside));
        } else if (HasExtension(file, ".reg")) {
            contents.hasExports = true;
        } else if (machine::EqualNoCase(file, OwnExport)) {
            contents.isCapture = true;
        }
    }
    return contents;
}

void Search::Enter(const Place& place) {
    const std::string real = RealPath(place.path);
    if (!real.empty() && !m_entered.insert(real).second) {
        return;
    }
    const std::string name = place.name.empty() ? NameOfPath(real) : place.name;
    std::string error;
    Contents contents = Look(place, error);
    if (!error.empty()) {
        found.push_back({name, place.path, true, "this folder cannot be looked into: " + error});
        return;
    }
    if (contents.isMachine || (contents.hasExports && contents.descriptions.empty())) {
        found.push_back({name, place.path, true, ""});
        return;
    }
    if (contents.isCapture && contents.descriptions.empty()) {
        found.push_back({name, place.path, true,
                         std::string("this capture was not finished or not copied whole: it has a ") + OwnExport +
                             " and no " + OwnDescription});
        return;
    }
    for (const Place& one : contents.descriptions) {
        found.push_back({one.name, one.path, false, ""});
    }
    std::move(contents.folders.begin(), contents.folders.end(), std::back_inserter(m_folders));
    std::move(contents.links.begin(), contents.links.end(), std::back_inserter(m_links));
}

// Links last and in the order of their names, so that a folder has its own name if it can be reached by that.
void Search::Run(const std::string& folder) {
    m_folders.push_back({folder, ""});
    while (!m_folders.empty() || !m_links.empty()) {
        std::vector<Place>& from = m_folders.empty() ? m_links : m_folders;
        auto next = from.end() - 1;
        if (&from == &m_links) {
            next = std::min_element(from.begin(), from.end(),
                                    [](const Place& a, const Place& b) { return a.name < b.name; });
        }
        const Place place = std::move(*next);
        from.erase(next);
        Enter(place);
    }
}

std::vector<Found> FindMachines(const std::string& folder, const std::string& out) {
    Search search(out);
    search.Run(folder);
    std::sort(search.found.begin(), search.found.end(), [](const Found& a, const Found& b) { return a.name < b.name; });
    return std::move(search.found);
}

std::string ShownName(const std::string& name) {
    using Json = nlohmann::json;
    return Json::parse(Json(name).dump(-1, ' ', false, Json::error_handler_t::replace)).get<std::string>();
}

} // namespace rehearse::fleet
