#include "simwin/devices/build/ExportPresence.h"

#include "simwin/devices/api.h"
#include "simwin/devices/build/ExportTree.h"
#include "simwin/devices/build/Guesses.h"
#include "simwin/devices/tree/CapturedProperties.h"
#include "simwin/kernel/Notes.h"
#include "simwin/registry/Registry.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace machine {

constexpr simwin::DWORD ConfigDisabled = 1;
constexpr simwin::DWORD ConfigRemoved = 2;

static void Replace(std::string& text, std::string_view from, std::string_view to) {
    std::string result;
    std::size_t at = 0;
    for (std::size_t found; (found = text.find(from, at)) != std::string::npos; at = found + from.size()) {
        result.append(text, at, found - at).append(to);
    }
    text = result.append(text, at);
}

// Ids as in the registry, whatever wrote the list: web and JSON forms escape "&" and the backslash.
static std::string WithPlainIds(std::string text) {
    Replace(text, "&amp;", "&");
    Replace(text, "\\u0026", "&");
    Replace(text, "\\\\", "\\");
    return text;
}

static bool IsBlank(char c) {
    return c == '\n' || c == '\r' || c == ' ' || c == '\t';
}

static bool IsMark(char c) {
    return IsBlank(c) || std::string_view("\"',;=|<>[]()").find(c) != std::string_view::npos;
}

namespace {
// Where in a list an id may begin, sorted by the text from there on. Each of hundreds of devices asks for its id; a
// search of the whole list for each would take a sixth of a machine's time.
class ListedIds {
public:
    explicit ListedIds(const std::string& text) : m_text(Lower(text)) {
        for (std::size_t at = 0, lastOfLine = 0; at < m_text.size(); ++at) {
            if (at == 0 || m_text[at - 1] == '\n') { // each id has backslashes
                const std::size_t end = std::min(m_text.find('\n', at), m_text.size());
                const std::size_t last = std::string_view(m_text).substr(at, end - at).rfind('\\');
                lastOfLine = last == std::string_view::npos ? at : at + last;
            }
            const char before = at > 0 ? m_text[at - 1] : '\n';
            if (at < lastOfLine && !IsBlank(m_text[at]) && (IsMark(before) || before == ':')) {
                m_starts.push_back(std::string_view(m_text).substr(at));
            }
        }
        std::sort(m_starts.begin(), m_starts.end());
    }

    // Is the id in the text, and not part of a longer one? A colon may be part of an id, so it ends one only before a
    // blank.
    bool Has(std::string_view wanted) const {
        const std::string id = Lower(wanted);
        for (auto start = std::lower_bound(m_starts.begin(), m_starts.end(), id);
             start != m_starts.end() && start->starts_with(id); ++start) {
            const char after = start->size() > id.size() ? (*start)[id.size()] : '\n';
            const char next = start->size() > id.size() + 1 ? (*start)[id.size() + 1] : '\n';
            if (IsMark(after) || (after == ':' && IsBlank(next))) {
                return true;
            }
        }
        return false;
    }
    ListedIds(const ListedIds&) = delete; // the views are into the own text
    ListedIds& operator=(const ListedIds&) = delete;

private:
    std::string m_text;
    std::vector<std::string_view> m_starts;
};
} // namespace

namespace {
// Decides which of the devices on one socket is present: the greatest.
struct Claim {
    DeviceNode* node;
    bool hasControl;
    std::uint64_t arrival;
    std::size_t order;
    bool operator<(const Claim& other) const {
        if (hasControl != other.hasControl) {
            return !hasControl;
        }
        return arrival != other.arrival ? arrival < other.arrival : order < other.order;
    }
};
} // namespace

static const char* WhyBefore(const Claim& winner, const Claim& second) {
    if (winner.hasControl != second.hasControl) {
        return "the key Control says that it was there";
    }
    return winner.arrival != second.arrival ? "it arrived last" : "it stands last in the exports";
}

static void SettleSocket(std::vector<Claim> claims) {
    std::sort(claims.begin(), claims.end());
    const Claim winner = claims.back();
    const char* why = WhyBefore(winner, claims[claims.size() - 2]);
    std::string others;
    claims.pop_back();
    for (const Claim& claim : claims) {
        claim.node->attached = false;
        claim.node->crowdedOut = true;
        claim.node->whyAbsent = "another device is on its socket";
        others += fmt::format("{}'{}'", others.empty() ? "" : ", ", claim.node->id);
    }
    NoteGuess(*winner.node, fmt::format("of several on this socket it is the one that is there, since {}", why));
    AddNote(Utf8FromAnsi(fmt::format("port {} of '{}': '{}' is there, since {}; known from before: {}",
                                     winner.node->hubPort, winner.node->parent->id, winner.node->id, why, others)));
}

static void SettleByExports() {
    std::map<std::pair<simwin::DWORD, unsigned>, std::vector<Claim>> sockets;
    std::size_t order = 0;
    for (DeviceNode* node : TheDeviceTree().All()) {
        ++order;
        if (node->root) {
            continue;
        }
        simwin::DWORD flags = 0;
        TheRegistry().GetDword(node->enumPath, "ConfigFlags", flags);
        if (flags & ConfigDisabled) {
            node->problem = simwin::CM_PROB_DISABLED;
        }
        if (flags & ConfigRemoved) {
            node->attached = false;
            node->crowdedOut = true;
            node->whyAbsent = "it was removed (ConfigFlags)";
        } else if (node->hubPort && node->parent) {
            sockets[{node->parent->number, node->hubPort}].push_back(
                {node, HasControlKey(*node), LastArrivalOf(*node), order});
        }
    }
    for (auto& [socket, claims] : sockets) {
        if (claims.size() > 1) {
            SettleSocket(std::move(claims));
        }
    }
}

std::string SettleExportedPresence(const std::optional<std::string>& connected) {
    if (!connected) {
        SettleByExports();
        return {};
    }
    const ListedIds listed(WithPlainIds(*connected));
    bool isAnyNamed = false;
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->root) {
            continue;
        }
        node->attached = listed.Has(node->id);
        isAnyNamed |= node->attached;
        if (!node->attached) {
            node->whyAbsent = "the list of connected devices does not name it";
        }
    }
    if (!isAnyNamed) {
        return "the list of connected devices names no device of the exports";
    }
    // What is present has a parent: all devices above it are present too.
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->attached) {
            for (DeviceNode* above = node->parent; above; above = above->parent) {
                above->attached = true;
            }
        }
    }
    return {};
}

void LeaveOutUnplaced() {
    std::map<std::string, unsigned> others; // by enumerator
    for (DeviceNode* node : TheDeviceTree().All()) {
        if (node->parent || node->root) {
            continue;
        }
        node->attached = false;
        node->crowdedOut = true;
        node->whyAbsent = "its place is unknown";
        if (node->IsPort() || StartsWithNoCase(node->id, "USB\\")) {
            AddNote(Utf8FromAnsi(fmt::format("'{}' is left out: nothing tells where it is plugged in", node->id)));
        } else {
            ++others[Upper(EnumeratorOf(node->id))];
        }
    }
    std::string text;
    for (const auto& [enumerator, count] : others) {
        text += fmt::format("{}{} of {}", text.empty() ? "" : ", ", count, enumerator);
    }
    if (!text.empty()) {
        AddNote(Utf8FromAnsi("devices whose place nothing tells are left out: " + text));
    }
}

void YieldSocketsToDescribed() {
    for (DeviceNode* described : TheDeviceTree().All()) {
        if (described->said.id.empty() || !described->attached || !described->hubPort || !described->parent) {
            continue;
        }
        for (DeviceNode* other : described->parent->children) {
            if (!other->said.id.empty() || !other->attached || other->hubPort != described->hubPort) {
                continue;
            }
            other->attached = false;
            other->crowdedOut = true;
            other->whyAbsent = "a described device is on its socket";
            AddNote(Utf8FromAnsi(fmt::format("port {} of '{}': '{}' is there, since it is described; known from "
                                             "before: '{}'",
                                             described->hubPort, described->parent->id, described->id, other->id)));
        }
    }
}

} // namespace machine
