#include "rehearse/fleet/Store.h"

#include "rehearse/description/Description.h"
#include "rehearse/fleet/Fingerprint.h"
#include "rehearse/host/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace rehearse::fleet {

using Json = nlohmann::ordered_json;

static constexpr std::size_t MostOfName = 60; // in a file's name; the fingerprint makes it unique

namespace {
// A shard as its file says it.
struct KeptShard {
    bool isThere = false, isComplete = false;
    Question question;
    std::vector<std::string> resultFiles;
};
} // namespace

// Any name as one that every file system takes.
static std::string FileNameOf(const std::string& name) {
    std::string plain = name.substr(0, MostOfName);
    for (char& letter : plain) {
        const bool isPlain = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                             (letter >= '0' && letter <= '9') || letter == '_';
        letter = isPlain ? letter : '-';
    }
    return plain + "-" + FingerprintOf(name);
}

static std::string ShardFile(const Shard& shard) {
    return fmt::format("shards/shard-{}-of-{}.json", shard.index, shard.count);
}

static std::optional<std::string> ReadWhole(const std::string& file) {
    std::ifstream stream(StreamPath(file), std::ios::binary);
    std::ostringstream text;
    if (!stream || !(text << stream.rdbuf())) {
        return std::nullopt;
    }
    return std::move(text).str();
}

Store::Store(std::string folder) : m_folder(std::move(folder)) {
}

void Store::Make() const {
    for (const char* part : {"results", "machines", "shards"}) {
        std::string error;
        if (!MakeFolders(PathOf(part), error)) {
            throw InputError({m_folder, 0, 0}, "this folder cannot be made: " + error);
        }
    }
}

std::string Store::PageOf(const std::string& name) {
    return "machines/" + FileNameOf(name) + ".html";
}

std::string Store::ResultFileOf(const std::string& name) {
    return "results/" + FileNameOf(name) + ".json";
}

[[noreturn]] static void FailToWrite(const std::string& path) {
    throw InputError({path, 0, 0}, fmt::format("this file cannot be written{}{}", errno ? ": " : "",
                                               errno ? std::strerror(errno) : ""));
}

WholeFile::WholeFile(std::string path)
    : m_path(std::move(path)), m_part(m_path + ".part"),
      m_stream(StreamPath(m_part), std::ios::binary | std::ios::trunc) {
    if (!m_stream) {
        FailToWrite(m_path);
    }
}

WholeFile::~WholeFile() {
    if (!m_isComplete) {
        m_stream.close();
        RemoveFile(m_part);
    }
}

void WholeFile::Write(const std::string& text) {
    errno = 0;
    if (!(m_stream << text)) {
        FailToWrite(m_path);
    }
}

void WholeFile::Complete() {
    errno = 0;
    m_stream.close();
    if (m_stream.fail() || !MoveOver(m_part, m_path)) {
        FailToWrite(m_path);
    }
    m_isComplete = true;
}

void Store::Write(const std::string& file, const std::string& text) const {
    WholeFile whole(PathOf(file));
    whole.Write(text);
    whole.Complete();
}

std::optional<KeptResult> Store::Load(const std::string& resultFile) const {
    const std::optional<std::string> text = ReadWhole(PathOf(resultFile));
    if (!text || !text->ends_with('\n')) {
        return std::nullopt;
    }
    try {
        const Json json = Json::parse(*text);
        return KeptResult{json.at("key"), json.at("question"), json.at("inputs"), ResultOf(json.at("result"))};
    } catch (const Json::exception&) { // half of a file, or somebody else's
        return std::nullopt;
    }
}

void Store::Save(const std::string& resultFile, const KeptResult& kept) const {
    const Json json = {
        {"key", kept.key}, {"question", kept.question}, {"inputs", kept.inputs}, {"result", JsonOf(kept.result)}};
    Write(resultFile, json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

// --- Shards

static Json JsonOfQuestion(const Question& question) {
    return {{"fleet", question.fleet},       {"ini", question.ini},
            {"older", question.older},       {"findings", question.findings},
            {"german", question.isGerman},   {"strict", question.isStrict},
            {"key", question.key},           {"list", question.list},
            {"machines", question.machines}, {"name_width", question.nameWidth}};
}

static Question QuestionOf(const Json& json) {
    return {json.at("fleet"),  json.at("ini"), json.at("older"), json.at("findings"), json.at("german"),
            json.at("strict"), json.at("key"), json.at("list"),  json.at("machines"), json.at("name_width")};
}

void Store::SaveShard(const Shard& shard, const Question& question, const std::vector<std::string>& resultFiles,
                      bool isComplete) const {
    const Json json = {{"complete", isComplete}, {"question", JsonOfQuestion(question)}, {"results", resultFiles}};
    Write(ShardFile(shard), json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
    // What an earlier run with another number of shards left would only confuse a merge.
    const std::string own = fmt::format("-of-{}.json", shard.count);
    for (const std::string& name : NamesInFolder(PathOf("shards"))) {
        if (name.starts_with("shard-") && name.ends_with(".json") && !name.ends_with(own)) {
            RemoveFile(PathOf("shards/" + name));
        }
    }
}

static KeptShard LoadShard(const std::string& path) {
    KeptShard shard;
    const std::optional<std::string> text = ReadWhole(path);
    if (!text) {
        return shard;
    }
    shard.isThere = true;
    try {
        const Json json = Json::parse(*text);
        shard.question = QuestionOf(json.at("question"));
        shard.resultFiles = json.at("results").get<std::vector<std::string>>();
        shard.isComplete = json.at("complete");
    } catch (const Json::exception&) { // not written to its end
        shard.isComplete = false;
    }
    return shard;
}

unsigned Store::CountOfShards() const {
    unsigned count = 0;
    for (const std::string& name : NamesInFolder(PathOf("shards"))) {
        const std::size_t of = name.find("-of-");
        if (name.starts_with("shard-") && name.ends_with(".json") && of != std::string::npos) {
            unsigned number = 0;
            std::from_chars(name.data() + of + 4, name.data() + name.size(), number);
            count = std::max(count, number);
        }
    }
    return count;
}

Question Store::LoadShards(std::vector<std::string>& resultFiles, unsigned count) const {
    if (count == 0) {
        throw std::logic_error("a merge of no shards");
    }
    std::vector<KeptShard> shards;
    for (unsigned index = 0; index < count; ++index) {
        shards.push_back(LoadShard(PathOf(ShardFile({index, count}))));
        const KeptShard& shard = shards.back();
        const Question& question = shard.question;
        const std::string again = fmt::format("run it again with --shard {}/{} --resume", index, count);
        const auto fail = [&](const char* what) {
            throw std::runtime_error(fmt::format("{}: shard {} of {} {}: {}", m_folder, index, count, what, again));
        };
        if (!shard.isThere) {
            fail("is missing");
        }
        if (!shard.isComplete) {
            fail("is incomplete");
        }
        if (question.list != shards.front().question.list) {
            fail("saw other machines than shard 0");
        }
        if (question.key != shards.front().question.key) {
            fail("had another configuration, tool or options than shard 0");
        }
    }
    const Question& question = shards.front().question;
    std::set<std::string> seen;
    for (std::size_t i = 0; i < question.machines; ++i) {
        const std::vector<std::string>& own = shards[i % count].resultFiles;
        if (i / count >= own.size()) {
            throw std::runtime_error(fmt::format("{}: shard {} of {} is incomplete", m_folder, i % count, count));
        }
        resultFiles.push_back(own[i / count]);
        if (!seen.insert(resultFiles.back()).second) {
            throw std::runtime_error(fmt::format("{}: shard {} of {} has a machine of another shard: run it again with "
                                                 "--shard {}/{} --resume",
                                                 m_folder, i % count, count, i % count, count));
        }
    }
    return question;
}

} // namespace rehearse::fleet
