#include "simwin/registry/Hive.h"

#include "simwin/kernel/Text.h"

#include <hivex.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

namespace machine {

constexpr const char* System = "HKEY_LOCAL_MACHINE\\SYSTEM";
constexpr std::size_t MostLevels = 512; // of the registry

namespace {
struct CloseHive {
    void operator()(hive_h* hive) const { hivex_close(hive); }
};
struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
} // namespace
template<typename T>
using Block = std::unique_ptr<T[], FreeMemory>;

static std::string Reason() {
    return std::strerror(errno ? errno : EIO);
}

namespace {
// A depth-first walk without recursion: a damaged hive may be as deep as it is long.
class HiveReader {
public:
    HiveReader(std::vector<ExportedKey>& keys, std::vector<ExportNote>& notes) : m_keys(keys), m_notes(notes) {}

    std::optional<std::string> Read(const std::string& file) {
        errno = 0;
        m_hive.reset(hivex_open(file.c_str(), 0));
        if (!m_hive) {
            return "the hive cannot be opened: " + Reason();
        }
        const hive_node_h root = hivex_root(m_hive.get());
        if (!root) {
            return "the hive has no root: " + Reason();
        }
        m_open.push_back({root, System, 0});
        while (!m_open.empty() && !m_error) {
            const Level level = std::move(m_open.back());
            m_open.pop_back();
            ReadKey(level);
        }
        if (!m_error && !m_hasControlSet) {
            return "this hive is not SYSTEM: it holds no control set";
        }
        return m_error;
    }

private:
    struct Level {
        hive_node_h node;
        std::string path;
        std::size_t depth;
    };

    void Fail(const std::string& path) { m_error = "the hive is damaged at '" + path + "': " + Reason(); }

    void ReadKey(const Level& level) {
        if (!m_seen.insert(level.node).second) {
            errno = ELOOP;
            return Fail(level.path);
        }
        ExportedKey key;
        key.path = level.path;
        if (!ReadValues(level.node, key)) {
            return;
        }
        m_keys.push_back(std::move(key));
        errno = 0;
        const Block<hive_node_h> children(hivex_node_children(m_hive.get(), level.node));
        if (!children) {
            return Fail(level.path);
        }
        std::size_t count = 0;
        while (children[count]) {
            ++count;
        }
        if (count && level.depth >= MostLevels) {
            errno = ENAMETOOLONG;
            return Fail(level.path);
        }
        for (std::size_t i = count; i-- > 0;) { // so that the first one is read first
            errno = 0;
            const Block<char> name(hivex_node_name(m_hive.get(), children[i]));
            if (!name) {
                return Fail(level.path);
            }
            const std::string ansi = AnsiFromUtf8(name.get());
            if (level.depth == 0 && EqualNoCase(ansi, "DriverDatabase")) {
                continue;
            }
            m_hasControlSet |= level.depth == 0 && StartsWithNoCase(ansi, "ControlSet");
            m_open.push_back({children[i], level.path + "\\" + ansi, level.depth + 1});
        }
    }

    bool ReadValues(hive_node_h node, ExportedKey& key) {
        errno = 0;
        const Block<hive_value_h> values(hivex_node_values(m_hive.get(), node));
        if (!values) {
            Fail(key.path);
            return false;
        }
        for (std::size_t i = 0; values[i]; ++i) {
            ExportedValue value;
            errno = 0;
            const Block<char> name(hivex_value_key(m_hive.get(), values[i]));
            hive_type type = hive_t_REG_NONE;
            std::size_t size = 0;
            const Block<char> data(name ? hivex_value_value(m_hive.get(), values[i], &type, &size) : nullptr);
            if (!data) {
                Fail(key.path);
                return false;
            }
            value.name = AnsiFromUtf8(name.get());
            value.type = static_cast<simwin::DWORD>(type);
            value.data.assign(data.get(), data.get() + size);
            if (TextDataToAnsi(value.type, value.data)) {
                key.values.push_back(std::move(value));
            } else {
                m_notes.push_back(NoteOfValue(key, value, "a text of half a character"));
            }
        }
        return true;
    }

    std::vector<ExportedKey>& m_keys;
    std::vector<ExportNote>& m_notes;
    std::unique_ptr<hive_h, CloseHive> m_hive;
    std::vector<Level> m_open;
    std::set<hive_node_h> m_seen;
    bool m_hasControlSet = false;
    std::optional<std::string> m_error;
};
} // namespace

std::optional<std::string> ReadHive(const std::string& file, std::vector<ExportedKey>& keys,
                                    std::vector<ExportNote>& notes) {
    return HiveReader(keys, notes).Read(file);
}

} // namespace machine
