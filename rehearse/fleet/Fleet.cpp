#include "rehearse/fleet/Fleet.h"

#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/description/Manners.h"
#include "rehearse/fleet/Discovery.h"
#include "rehearse/fleet/Fingerprint.h"
#include "rehearse/fleet/FleetReport.h"
#include "rehearse/fleet/Member.h"
#include "rehearse/fleet/ShardName.h"
#include "rehearse/fleet/Store.h"
#include "rehearse/host/ChildProcesses.h"
#include "rehearse/host/Durations.h"
#include "rehearse/host/Files.h"
#include "rehearse/rules/RulesCheck.h"

#include "simwin/host/System.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <stdexcept>
#include <unordered_map>

namespace rehearse::fleet {

static constexpr int ExitInterrupted = 130;    // as a shell says it of a program that Ctrl-C ended
static constexpr std::size_t MostAhead = 2000; // results that wait for an earlier one: so memory stays the same
static constexpr std::uint64_t ProgressMs = 250, ProgressFromMs = 1000;

static std::string FileNameOf(const std::string& path) {
    return ShownName(NameOfPath(path));
}

// --- What is asked

// The options by which a machine's process is started, apart from its own.
static std::vector<std::string> CommonArguments(const Options& options) {
    std::vector<std::string> words = {"--member", "--ini", *options.ini};
    const auto add = [&words](const char* name, const std::string& value) {
        words.emplace_back(name);
        words.push_back(value);
    };
    if (options.compare) {
        add("--compare", *options.compare);
    }
    if (options.seed) {
        add("--seed", std::to_string(*options.seed));
    }
    if (options.untilMs) {
        add("--until", fmt::format("{}ms", *options.untilMs));
    }
    for (const std::string& story : options.stories) {
        add("--story", story);
    }
    if (options.check) {
        words.emplace_back("--check");
    }
    if (options.isGerman) {
        add("--language", "de");
    }
    return words;
}

// What every result depends on beside its machine: the configurations' contents, not their names.
static std::string KeyOf(const Call& call, const std::string& ini, const std::string& older) {
    Fingerprint key;
    key.Add(call.version).Add(FingerprintOfFile(OwnProgram())).Add(ini).Add(older);
    Options options = call.options;
    options.ini = "";
    options.compare = options.compare ? std::optional<std::string>("") : std::nullopt;
    for (const std::string& word : CommonArguments(options)) {
        key.Add(word);
    }
    return key.Text();
}

static Question QuestionOf(const Call& call, const std::vector<Found>& machines) {
    const std::string ini = ReadHostFile(*call.options.ini, {*call.options.ini, 1, 1});
    const std::string older =
        call.options.compare ? ReadHostFile(*call.options.compare, {*call.options.compare, 1, 1}) : "";
    Question question;
    const std::string folder = RealPath(call.folder);
    question.fleet = ShownName(folder.empty() ? call.folder : NameOfPath(folder));
    question.ini = FileNameOf(*call.options.ini);
    question.older = call.options.compare ? FileNameOf(*call.options.compare) : "";
    Findings findings;
    CheckIni(ParseIni(question.ini, ini, findings), findings);
    for (const Finding& finding : findings) {
        question.findings.push_back(OneLine(FindingLine(finding)));
    }
    question.isGerman = call.options.isGerman;
    question.isStrict = call.options.strict;
    question.key = KeyOf(call, ini, older);
    Fingerprint list;
    for (const Found& machine : machines) {
        list.Add(machine.name);
        question.nameWidth = std::max(question.nameWidth, OneLine(machine.name).size());
    }
    question.list = list.Text();
    question.machines = machines.size();
    return question;
}

static int ExitCodeOf(const FleetReport& report, const Question& question) {
    const bool isBad = question.isStrict ? report.All().HasStrictFindings() : report.All().HasFindings();
    return isBad || !question.findings.empty() ? ExitNotMet : ExitDone;
}

// --- One run

namespace {

// A line on the terminal while it takes longer than a second.
class FleetProgress {
public:
    explicit FleetProgress(std::size_t total) : m_total(total) {}
    ~FleetProgress() { Clear(); }
    void Clear();
    // kept: of those that are done, the results of an earlier run.
    void Show(std::size_t done, std::size_t kept, std::size_t bad);

private:
    const bool m_isOn = host::IsErrorTerminal();
    const std::size_t m_total;
    const std::uint64_t m_startMs = HostMs();
    std::uint64_t m_shownMs = 0;
    bool m_isShown = false;
};

// All machines of a shard, from the first to the last.
class FleetRun {
public:
    FleetRun(const Call& call, const Question& question, const Store* store, const std::vector<Found>& machines,
             const Shard& shard);
    bool Run(FleetReport& report); // false: Ctrl-C
    const std::vector<std::string>& ResultFiles() const { return m_resultFiles; }

private:
    std::string KeyOfMachine(const Found& machine) const;
    std::optional<MachineResult> Kept(const Found& machine);
    std::set<std::pair<std::string, std::string>> InputsOf(const MemberOutput& output) const;
    bool IsUnchanged(const KeptResult& kept);
    MachineResult Judge(const Found& machine, const Ended& ended, const std::optional<MachineResult>& reported) const;
    void Start(std::size_t index);
    void Finish(const Ended& ended);
    void Deliver(FleetReport& report);
    std::string Relative(const std::string& text) const;

    const Call& m_call;
    const Question& m_question;
    const Store* m_store;
    std::vector<const Found*> m_machines;
    std::vector<std::string> m_resultFiles, m_arguments;
    Processes m_processes;
    std::map<std::size_t, MachineResult> m_waiting;              // for the results before them
    std::unordered_map<std::string, std::string> m_fingerprints; // of files that several machines share
    std::size_t m_next = 0, m_started = 0, m_kept = 0, m_bad = 0;
};

} // namespace

void FleetProgress::Clear() {
    if (m_isShown) {
        fmt::print(stderr, "\r\x1b[K");
        m_isShown = false;
    }
}

void FleetProgress::Show(std::size_t done, std::size_t kept, std::size_t bad) {
    const std::uint64_t nowMs = HostMs(), sinceMs = nowMs - m_startMs;
    if (!m_isOn || sinceMs < ProgressFromMs || (m_isShown && nowMs - m_shownMs < ProgressMs)) {
        return;
    }
    m_shownMs = nowMs;
    m_isShown = true;
    const std::size_t run = done - kept;
    std::string rest;
    if (run) {
        rest = fmt::format(", {:.1f} a second, about {} s left",
                           static_cast<double>(run) * 1000 / static_cast<double>(sinceMs),
                           (m_total - done) * sinceMs / run / 1000 + 1);
    }
    fmt::print(stderr, "\r\x1b[K{} of {} machines, {} not ok{}", done, m_total, bad, rest);
}

FleetRun::FleetRun(const Call& call, const Question& question, const Store* store, const std::vector<Found>& machines,
                   const Shard& shard)
    : m_call(call), m_question(question), m_store(store), m_arguments(CommonArguments(call.options)),
      m_processes(call.limitMs) {
    m_arguments.insert(m_arguments.end(), {"--within", call.folder});
    for (std::size_t i = shard.index; i < machines.size(); i += shard.count) {
        m_machines.push_back(&machines[i]);
        m_resultFiles.push_back(Store::ResultFileOf(machines[i].name));
    }
}

// Files are named as seen from the fleet's folder, so that a result is the same wherever the folder is mounted.
std::string FleetRun::Relative(const std::string& text) const {
    const std::string prefix = InFolder(m_call.folder, "");
    std::string relative;
    std::size_t from = 0;
    for (std::size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, from)) {
        // The end of another folder's name is none of it: pc/ in lab-pc/.
        const bool isWhole = at == 0 || text[at - 1] == ' ' || text[at - 1] == '\'';
        relative += text.substr(from, at - from) + (isWhole ? "" : prefix);
        from = at + prefix.size();
    }
    return relative + text.substr(from);
}

// A folder's own list of files belongs to it too: an export more is another machine.
std::string FleetRun::KeyOfMachine(const Found& machine) const {
    const std::vector<std::string> files = machine.isFolder ? NamesInFolder(machine.path) : std::vector<std::string>();
    Fingerprint key;
    key.Add(m_question.key);
    for (const std::string& file : files) {
        key.Add(file);
    }
    return key.Text();
}

std::set<std::pair<std::string, std::string>> FleetRun::InputsOf(const MemberOutput& output) const {
    std::set<std::pair<std::string, std::string>> inputs;
    for (const auto& [file, fingerprint] : output.inputs) {
        if (file != PathText(*m_call.options.ini) &&
            (!m_call.options.compare || file != PathText(*m_call.options.compare))) {
            inputs.insert({file, fingerprint}); // the configurations are in the key
        }
    }
    return inputs;
}

bool FleetRun::IsUnchanged(const KeptResult& kept) {
    return !kept.inputs.empty() && std::all_of(kept.inputs.begin(), kept.inputs.end(), [this](const auto& input) {
        const auto [known, isNew] = m_fingerprints.try_emplace(input.first);
        if (isNew) {
            known->second = FingerprintOfFile(PathOfText(input.first));
        }
        return known->second == input.second;
    });
}

static std::string TimeLimitText(std::uint64_t limitMs) {
    return fmt::format("not done after {} s", static_cast<double>(limitMs) / MsPerSecond);
}

// A result of an earlier run that is still right. What the host may have been to blame for is done again.
std::optional<MachineResult> FleetRun::Kept(const Found& machine) {
    if (!m_store || !m_call.resume) {
        return std::nullopt;
    }
    m_fingerprints.clear();
    std::optional<KeptResult> kept = m_store->Load(Store::ResultFileOf(machine.name));
    if (!kept || kept->key != KeyOfMachine(machine) || kept->result.name != ShownName(machine.name) ||
        kept->result.verdict == VerdictLost || !IsUnchanged(*kept)) {
        return std::nullopt;
    }
    if (kept->result.verdict == VerdictTimeLimit && kept->result.why != TimeLimitText(m_call.limitMs)) {
        return std::nullopt; // it has more time now, or less
    }
    const bool hasPage = kept->result.report.empty() || IsFile(m_store->PathOf(kept->result.report));
    return hasPage ? std::optional(std::move(kept->result)) : std::nullopt;
}

static std::string LastLine(std::string text) {
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    const std::size_t end = text.rfind('\n');
    return OneLine(end == std::string::npos ? text : text.substr(end + 1));
}

MachineResult FleetRun::Judge(const Found& machine, const Ended& ended,
                              const std::optional<MachineResult>& reported) const {
    MachineResult result;
    if (reported && ended.way == Way::Exited) {
        result = *reported;
    } else if (ended.way == Way::TimedOut) {
        result.verdict = VerdictTimeLimit;
        result.why = TimeLimitText(m_call.limitMs);
    } else {
        const std::string last = LastLine(ended.errors), word = last.substr(0, last.find(':'));
        if (ended.way == Way::Exited && ended.code == ExitStopped && std::ranges::count(AllVerdicts(), word)) {
            result.verdict = word; // a crash: nothing is reported after it
            result.why = last;
        } else {
            result.why = fmt::format("its process {}{}{}", HowItEnded(ended), last.empty() ? "" : ": ", last);
        }
    }
    result.name = ShownName(machine.name);
    result.why = Relative(result.why);
    for (std::string& finding : result.findings) {
        finding = Relative(finding);
    }
    result.report = m_store && !result.report.empty() ? Store::PageOf(machine.name) : "";
    return result;
}

void FleetRun::Start(std::size_t index) {
    const Found& machine = *m_machines[index];
    if (!machine.problem.empty()) {
        MachineResult result;
        result.name = ShownName(machine.name);
        result.verdict = VerdictWrongInput;
        result.why = machine.problem;
        m_waiting.emplace(index, std::move(result));
        if (m_store) {
            m_store->Save(m_resultFiles[index], {KeyOfMachine(machine), m_question.key, {}, m_waiting.at(index)});
        }
        return;
    }
    if (std::optional<MachineResult> kept = Kept(machine)) {
        ++m_kept;
        m_waiting.emplace(index, std::move(*kept));
        return;
    }
    std::vector<std::string> arguments = m_arguments;
    if (m_store) {
        arguments.emplace_back("--html");
        arguments.push_back(m_store->PathOf(Store::PageOf(machine.name)));
    }
    arguments.emplace_back("--"); // a name may begin like an option
    arguments.push_back(machine.path);
    m_processes.Start(index, arguments);
}

void FleetRun::Finish(const Ended& ended) {
    const Found& machine = *m_machines[ended.id];
    const MemberOutput output = ReadMember(ended.output);
    MachineResult result = Judge(machine, ended, output.result);
    if (m_store) {
        m_store->Save(m_resultFiles[ended.id], {KeyOfMachine(machine), m_question.key, InputsOf(output), result});
    }
    m_waiting.emplace(ended.id, std::move(result));
}

void FleetRun::Deliver(FleetReport& report) {
    for (auto first = m_waiting.begin(); first != m_waiting.end() && first->first == m_next;
         first = m_waiting.begin()) {
        m_bad += first->second.verdict != VerdictOk;
        report.Take(first->second);
        m_waiting.erase(first);
        ++m_next;
    }
}

bool FleetRun::Run(FleetReport& report) {
    const std::size_t jobs = m_call.jobs ? m_call.jobs : Processors();
    FleetProgress progress(m_machines.size());
    NoteInterrupts();
    while (m_next < m_machines.size()) {
        if (WasInterrupted()) {
            return false;
        }
        while (m_processes.Running() < jobs && m_started < m_machines.size() && m_started - m_next < MostAhead &&
               !WasInterrupted()) {
            Start(m_started++);
            if (m_waiting.contains(m_next)) {
                break; // kept results are shown as they are found
            }
        }
        if (m_processes.Running() && !m_waiting.contains(m_next)) {
            if (const std::optional<Ended> ended = m_processes.Wait(ProgressMs)) {
                Finish(*ended);
            }
        }
        if (m_waiting.contains(m_next) && report.PrintsLines() && host::TerminalOfOutput().isThere) {
            progress.Clear();
        }
        Deliver(report);
        progress.Show(m_next + m_waiting.size(), m_kept, m_bad);
    }
    return true;
}

// --- The whole

// Two runs that write the same files would leave half of each. Other shards may run at the same time.
static void TakeStore(const Store& store, const Shard& shard, FileLock& lock) {
    const std::string file = shard.count == 1 ? "whole.lock" : fmt::format("{}-of-{}.lock", shard.index, shard.count);
    if (!lock.Take(store.PathOf("shards/" + file))) {
        throw std::runtime_error(
            fmt::format("--out: another run is writing these results into {}: wait for its end, or "
                        "name another folder",
                        store.Folder()));
    }
}

// What a machine is made of is known only when it has been read, and then the file would be gone. So among the machines
// nothing but a report of an earlier run is overwritten.
static void SpareMachines(const Call& call) {
    for (const std::optional<std::string>& output : {call.options.json, call.options.html}) {
        const std::string real = output && *output != "-" && IsFile(*output) ? RealPath(*output) : "";
        if (real.empty() || !IsBelow(call.folder, real) || (IsFolder(call.out) && IsBelow(call.out, real))) {
            continue;
        }
        std::array<char, 16> head{};
        std::ifstream stream(StreamPath(*output), std::ios::binary);
        stream.read(head.data(), head.size());
        const std::string_view text(head.data(), static_cast<std::size_t>(stream.gcount()));
        if (!text.empty() && !text.starts_with("<!DOCTYPE html>") && !text.starts_with("{\"machine\":")) {
            throw InputError({*output, 0, 0}, "this file is among the machines and no report: it is not overwritten");
        }
    }
}

static int RunShard(const Call& call) {
    const Shard shard = ShardOf(call.shard);
    if (shard.count > 1 && call.out.empty()) {
        throw std::runtime_error("--shard: the results need --out, from where --merge takes them");
    }
    if (IsFile(call.folder)) {
        throw std::runtime_error(
            fmt::format("--fleet: {} is a file, and a fleet is a folder of machines: rehearse this "
                        "one without --fleet",
                        call.folder));
    }
    if (!IsFolder(call.folder)) {
        throw InputError({call.folder, 0, 0}, "there is no such folder" + DidYouMeanFile(call.folder));
    }
    if (IsFolder(call.out) && KeyOfFile(call.folder) == KeyOfFile(call.out)) {
        throw std::runtime_error("--out: the results cannot be among the machines themselves");
    }
    const std::vector<Found> machines = FindMachines(call.folder, call.out);
    if (machines.empty()) {
        throw InputError({call.folder, 0, 0}, "there is no machine below this folder: no description, no exports");
    }
    SpareMachines(call);
    const Question question = QuestionOf(call, machines);
    std::optional<Store> store;
    FileLock lock;
    if (!call.out.empty()) {
        store.emplace(call.out);
        store->Make();
        TakeStore(*store, shard, lock);
        const unsigned before = store->CountOfShards();
        if (call.resume && shard.isGuessed && before && before != shard.count) { // such as one task of ten, run again
            throw std::runtime_error(fmt::format("--shard: {} has the results of {} shards, and this array has {}: say "
                                                 "which share this is with --shard I/{}",
                                                 call.out, before, shard.count, before));
        }
    }
    FleetReport report(call, question, store ? &*store : nullptr, shard.count == 1);
    FleetRun run(call, question, store ? &*store : nullptr, machines, shard);
    if (store) {
        store->SaveShard(shard, question, run.ResultFiles(), false);
    }
    if (!run.Run(report)) {
        const std::size_t done = report.All().Machines();
        fmt::print(stderr, "broken off after {} machine{}{}\n", done, done == 1 ? "" : "s",
                   store ? "; --resume continues" : "");
        return ExitInterrupted;
    }
    if (store) {
        store->SaveShard(shard, question, run.ResultFiles(), true);
    }
    report.Finish();
    return ExitCodeOf(report, question);
}

static int Merge(const Call& call) {
    if (!IsFolder(call.out)) {
        throw InputError({call.out, 0, 0}, "there is no such folder");
    }
    const Store store(call.out);
    const unsigned shards = store.CountOfShards();
    if (shards == 0) { // asked before anything is made in a folder that may be another program's
        throw std::runtime_error(call.out + ": no fleet has been rehearsed into this folder");
    }
    store.Make();
    FileLock lock;
    TakeStore(store, {}, lock);
    std::vector<std::string> files;
    Question question = store.LoadShards(files, shards);
    question.isStrict = question.isStrict || call.options.strict;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::optional<KeptResult> kept = store.Load(files[i]); // before anything is printed
        if (!kept || kept->question != question.key) {
            throw std::runtime_error(
                fmt::format("{}: shard {} of {} is incomplete: this result is {}; run it again with "
                            "--shard {}/{} --resume",
                            store.PathOf(files[i]), i % shards, shards,
                            kept ? "that of another configuration, tool or options" : "missing", i % shards, shards));
        }
    }
    FleetReport report(call, question, &store, true);
    for (const std::string& file : files) {
        const std::optional<KeptResult> kept = store.Load(file);
        if (!kept) {
            throw InputError({store.PathOf(file), 0, 0}, "this result is gone");
        }
        report.Take(kept->result);
    }
    report.Finish();
    return ExitCodeOf(report, question);
}

int RunFleet(const Call& call) {
    return call.merge ? Merge(call) : RunShard(call);
}

} // namespace rehearse::fleet
