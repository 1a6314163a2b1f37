// The folder in which a fleet's results are kept: a file for each machine, written at once or not at all, the machines'
// pages, and for each shard of the fleet what it was and whether it is complete. Host side.
//
//   results/NAME-HASH.json      what came of a machine, and what it was made from
//   machines/NAME-HASH.html     its report
//   shards/shard-3-of-10.json   the machines of one shard
#pragma once

#include "rehearse/fleet/Result.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace rehearse::fleet {

// What all machines of a run have in common.
struct Question {
    std::string fleet, ini, older;     // names of the folder and the configurations, as they are shown; older: "" none
    std::vector<std::string> findings; // of the configuration by itself, a line each
    bool isGerman = false, isStrict = false;
    std::string key;  // fingerprint of all that the results depend on beside the machine
    std::string list; // fingerprint of all names
    std::size_t machines = 0;
    std::size_t nameWidth = 0; // of the longest name that is shown
};

struct Shard {
    unsigned index = 0, count = 1; // 0 of 1: the whole fleet
    bool isGuessed = false;        // both come from the surroundings
};

struct KeptResult {
    std::string key;                                      // what it was made with
    std::string question;                                 // the key of its question
    std::set<std::pair<std::string, std::string>> inputs; // files and fingerprints
    MachineResult result;
};

// A file that a reader sees as a whole, or as it was before.
class WholeFile {
public:
    explicit WholeFile(std::string path); // throws InputError, as all of it
    ~WholeFile();                         // takes away what was not completed
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;
    void Write(const std::string& text);
    void Complete();

private:
    std::string m_path, m_part;
    std::ofstream m_stream;
    bool m_isComplete = false;
};

class Store {
public:
    explicit Store(std::string folder);
    // Makes the folder and those in it. Throws InputError if it cannot.
    void Make() const;

    const std::string& Folder() const { return m_folder; }
    // Names of files in the folder. name: of the machine, as the host has it.
    static std::string PageOf(const std::string& name);
    static std::string ResultFileOf(const std::string& name);

    std::optional<KeptResult> Load(const std::string& resultFile) const; // nothing if it is not there as a whole
    void Save(const std::string& resultFile, const KeptResult& kept) const;

    void SaveShard(const Shard& shard, const Question& question, const std::vector<std::string>& resultFiles,
                   bool isComplete) const;
    unsigned CountOfShards() const; // into which the latest run here was divided; 0: none
    // Throws runtime_error that names the first shard that is missing, incomplete or of another run.
    // resultFiles: of the whole fleet, in the order of the names. count: of the shards, above 0.
    Question LoadShards(std::vector<std::string>& resultFiles, unsigned count) const;

    std::string PathOf(const std::string& file) const { return m_folder + "/" + file; }
    void Write(const std::string& file, const std::string& text) const; // as a whole

private:
    std::string m_folder;
};

} // namespace rehearse::fleet
