// quillmarch-rehearse: the command line.
#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionKeys.h"
#include "rehearse/description/Manners.h"
#include "rehearse/fleet/Fleet.h"
#include "rehearse/fleet/Member.h"
#include "rehearse/host/Durations.h"
#include "rehearse/rules/Compare.h"
#include "rehearse/rules/Findings.h"
#include "rehearse/rules/Rules.h"
#include "rehearse/run/Observer.h"
#include "rehearse/run/Run.h"
#include "rehearse/run/Stories.h"

#include "simwin/devices/tree/Catalogue.h"
#include "simwin/host/System.h"
#include "simwin/kernel/Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace {
struct Line {
    rehearse::Options options;
    std::vector<std::string> machine;
    std::string ini, json, log, html, language, until, seed, rules, compare;
    std::vector<std::string> stories;
    bool printKeys = false, printCatalogue = false, printFindings = false, isMember = false, isObserver = false;
    rehearse::fleet::Call fleet;
    std::string timeLimit;
};
} // namespace

constexpr const char* Examples = R"(Examples:
  quillmarch-rehearse machine.toml                     what happens, and how it ends
  quillmarch-rehearse captured-folder                  the same for a captured machine
  quillmarch-rehearse --tree machine.toml              is the machine understood?
  quillmarch-rehearse --rules my.ini                   is the file right?
  quillmarch-rehearse --rules my.ini machine.toml      which rule takes which port?
  quillmarch-rehearse --ini my.ini --strict machine.toml
                                                       does each port get its number?
  quillmarch-rehearse --story replug machine.toml      each adapter out and in: what then?
  quillmarch-rehearse --explain machine.toml           why, why not?
  quillmarch-rehearse --compare old.ini --ini my.ini machine.toml
                                                       what changes from today?
  quillmarch-rehearse --fleet machines --ini my.ini --out results
                                                       and on ten thousand machines?
Exit code: 0 done, 1 not as wanted, 2 wrong input, 3 the run was stopped, 130 broken off.
All of it: rehearsing.md and, for fleets, fleets.md, which come with the tool.
)";

// The library's own words for a value outside of its range are for programmers.
static CLI::Validator Between(int least, int most) {
    return CLI::Validator(
        [least, most](const std::string& text) {
            int number = 0;
            const char* end = text.data() + text.size();
            const auto [last, error] = std::from_chars(text.data(), end, number);
            const bool isRight = error == std::errc() && last == end && number >= least && number <= most;
            return isRight ? "" : fmt::format("must be a number from {} to {}, not '{}'", least, most, text);
        },
        "");
}

static CLI::Validator EnglishOrGerman() {
    return CLI::Validator(
        [](const std::string& text) {
            return text == "en" || text == "de" ? "" : fmt::format("must be en or de, not '{}'", text);
        },
        "");
}

static void DescribeRun(CLI::App& app, Line& line) {
    const char* group = "What is run";
    app.add_option("--ini", line.ini, "use this configuration in place of the described one")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--story", line.stories, "stories in place of the described ones: " + rehearse::StoryNames())
        ->allow_extra_args(false)
        ->type_name("NAME")
        ->group(group);
    app.add_option("--until", line.until, "end after this much virtual time")->type_name("DURATION")->group(group);
    app.add_option("--seed", line.seed, "let chance decide which thread runs next, the same way for the same N")
        ->type_name("N")
        ->group(group);
}

static void DescribeJudgement(CLI::App& app, Line& line) {
    const char* group = "What is judged";
    app.add_option("--compare", line.compare, "run this older configuration too, and print what differs")
        ->type_name("FILE")
        ->group(group);
    app.add_flag("--check", line.options.check, "judge the description's expectations")->group(group);
    app.add_flag("--strict", line.options.strict,
                 "fail if a port has no name or no number that it wants, or a rule never matched")
        ->group(group);
}

static void DescribeReport(CLI::App& app, Line& line) {
    const char* group = "What is reported, and where";
    app.add_flag("--explain", line.options.explain, "say in the timeline why, in the words of the product's log")
        ->group(group);
    app.add_flag("--quiet", line.options.quiet, "no report on standard output")->group(group);
    app.add_option("--json", line.json, "write the report as JSON")->type_name("FILE|-")->group(group);
    app.add_option("--html", line.html, "write the report as one page for browsers and printers")
        ->type_name("FILE|-")
        ->group(group);
    app.add_option("--language", line.language, "of that page's own words")
        ->check(EnglishOrGerman())
        ->type_name("en|de")
        ->group(group);
    app.add_option("--log", line.log, "write the product's log file there (forces it on)")
        ->type_name("FILE|-")
        ->group(group);
    app.add_option("--log-level", line.options.logLevel, "level of that log")
        ->check(Between(1, 6))
        ->type_name("1..6")
        ->group(group);
    app.add_option("--pictures", line.options.pictures, "write balloons, message boxes and the desktop as SVG there")
        ->type_name("DIR")
        ->group(group);
}

static void DescribeFleet(CLI::App& app, Line& line) {
    const char* group = "A fleet of machines";
    app.add_option("--fleet", line.fleet.folder, "rehearse --ini on every machine below this folder")
        ->type_name("DIR")
        ->group(group);
    app.add_option("--out", line.fleet.out, "keep each machine's result and report there")
        ->type_name("DIR")
        ->group(group);
    app.add_flag("--resume", line.fleet.resume, "continue there: only what is new, changed or missing")->group(group);
    app.add_option("-j,--jobs", line.fleet.jobs, "machines at a time, as many as processors unless given")
        ->check(Between(1, 1024))
        ->type_name("N")
        ->group(group);
    app.add_option("--time-limit", line.timeLimit, "end a machine that takes longer, 30s unless given")
        ->type_name("DURATION")
        ->group(group);
    app.add_option("--shard", line.fleet.shard, "only this share, such as 0/10; /10: a job array says which")
        ->type_name("I/N")
        ->group(group);
    app.add_flag("--merge", line.fleet.merge, "put together what the shards left in --out")->group(group);
    app.add_flag("--member", line.isMember, "one machine of a fleet")->group("");
    app.add_flag("--observe", line.isObserver, "a second run, for the first one")->group("");
    app.add_option("--within", line.options.within, "the fleet's folder")->group("");
}

static void DescribeQuestions(CLI::App& app, Line& line) {
    const char* group = "Without a run";
    app.add_option("--rules", line.rules, "check this configuration by itself, and against a machine if one is named")
        ->type_name("FILE")
        ->group(group);
    app.add_flag("--tree", line.options.tree, "print the machine as it was understood, as a tree")->group(group);
    app.add_flag("--devices", line.options.devices, "print the devices of the machine as a table")->group(group);
    app.add_flag("--catalogue", line.printCatalogue, "print the kinds of devices that are known by their ids")
        ->group(group);
    app.add_flag("--print-keys", line.printKeys, "print all keys of a description")->group(group);
    app.add_flag("--print-findings", line.printFindings, "print what --rules can find")->group("");
}

static void Describe(CLI::App& app, Line& line) {
    app.add_option("MACHINE", line.machine,
                   "the description of the machine, a folder of _capture_machine.cmd, or exports of the registry")
        ->type_name(" ");
    app.set_help_flag("-h,--help", "print this help")->group("Help");
    app.set_version_flag("--version", "quillmarch-rehearse " QM_VERSION, "print the version")->group("Help");
    DescribeRun(app, line);
    DescribeJudgement(app, line);
    DescribeReport(app, line);
    DescribeFleet(app, line);
    DescribeQuestions(app, line);
    app.footer(Examples);
}

// What stands on the line and is no option, with the one that was probably meant.
static std::string UnknownOption(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        if (!option->get_lnames().empty()) {
            names.push_back("--" + option->get_lnames().front());
        }
    }
    const std::vector<std::string> extras = app.remaining();
    if (extras.empty()) {
        return "";
    }
    const std::string word = extras.front().substr(0, extras.front().find('='));
    return fmt::format("there is no option '{}'{}", word, rehearse::DidYouMean(word, names));
}

// What a script's variable without a value leaves on the line; an error text if there is such an option. Taken for an
// option that is not there it would let a task do the whole fleet, or leave its results nowhere.
static std::string EmptyValue(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        const std::vector<std::string>& values = option->results();
        if (option->get_items_expected_min() == 0 || std::find(values.begin(), values.end(), "") == values.end()) {
            continue;
        }
        return option->get_positional()
                   ? "the name of the machine is empty"
                   : fmt::format("--{} needs a value, and this one is empty", option->get_lnames().front());
    }
    return "";
}

// "boot, replug" is two stories; an error text for one that does not exist.
static std::string CompleteStories(Line& line) {
    for (const std::string& value : line.stories) {
        for (const std::string& part : machine::Split(value, ',')) {
            const std::size_t first = part.find_first_not_of(' ');
            const std::string story =
                first == std::string::npos ? "" : part.substr(first, part.find_last_not_of(' ') + 1 - first);
            if (const std::string wrong = rehearse::WrongStory(story); !wrong.empty()) {
                return wrong;
            }
            line.options.stories.push_back(story);
        }
    }
    const std::vector<std::string>& all = line.options.stories;
    return all.size() > 1 && std::find(all.begin(), all.end(), "none") != all.end()
               ? "--story none leaves all stories out: name no other beside it"
               : "";
}

// What the library says of a line that it cannot read, in the tool's own words.
static std::string WrongLine(const CLI::App& app, const CLI::ParseError& error) {
    const std::string said = error.what();
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_lnames().empty() ? "" : "--" + option->get_lnames().front();
        if (!name.empty() && error.get_name() == "ConversionError" && said.find(name + " = ") != std::string::npos) {
            return name + " takes no value";
        }
        if (name.empty() || !said.starts_with(name + ": ")) {
            continue;
        }
        if (error.get_name() == "ArgumentMismatch") {
            return name + (said.find("At Most") == std::string::npos ? " needs a value" : " is given more than once");
        }
        return name + said.substr(name.size() + 1); // without the colon: "--jobs must be ..."
    }
    return said;
}

// What would silently not be answered or written; an error text if there is such an option.
static std::string WrongQuestion(const CLI::App& app) {
    std::string question;
    for (const char* one : {"--rules", "--compare", "--tree", "--devices"}) {
        if (app.count(one) && !question.empty()) {
            return fmt::format("{} and {} are two questions: ask one at a time", question, one);
        }
        question = app.count(one) ? one : question;
    }
    if (question.empty()) {
        return "";
    }
    for (const char* output : {"--html", "--log", "--pictures"}) {
        if (app.count(output)) {
            return question == "--compare"
                       ? fmt::format("{} is for one run, and --compare makes two", output)
                       : fmt::format("{} is for a rehearsal, and {} asks for none", output, question);
        }
    }
    if (app.count("--json") && (question == "--tree" || question == "--devices")) {
        return fmt::format("--json is for a report, and {} prints none", question);
    }
    return question == "--rules" && app.count("--ini") ? "--rules names the configuration: leave --ini out" : "";
}

// What a fleet's options ask for; an error text if they do not fit together.
static std::string CompleteFleet(const CLI::App& app, Line& line) {
    const bool isFleet = app.count("--fleet") != 0;
    if (!isFleet && !line.fleet.merge) {
        for (const char* option : {"--out", "--resume", "--jobs", "--time-limit", "--shard"}) {
            if (app.count(option)) {
                return fmt::format("{} belongs to a fleet: which? Say it with --fleet", option);
            }
        }
        return "";
    }
    for (const char* option : {"--rules", "--log", "--pictures", "--explain", "--tree", "--devices"}) {
        if (app.count(option)) {
            return fmt::format("{} is for one machine, not for a fleet", option);
        }
    }
    if (line.fleet.merge && line.fleet.out.empty()) {
        std::swap(line.fleet.out, line.options.description);
    }
    if (!line.options.description.empty()) {
        return fmt::format("'{}' is one machine: leave it out, or --fleet", line.options.description);
    }
    if (line.fleet.merge) {
        return line.fleet.out.empty() ? "--merge needs --out, where the shards' results are"
               : line.fleet.resume    ? "--merge runs nothing, so there is nothing to resume"
               : app.count("--shard") ? "--merge takes all shards together"
                                      : "";
    }
    if (!app.count("--ini")) {
        return "--fleet needs --ini, the configuration that is rehearsed on all machines";
    }
    if (line.fleet.resume && line.fleet.out.empty()) {
        return "--resume needs --out, where the results are";
    }
    if (app.count("--time-limit")) {
        const std::optional<std::uint64_t> limit = rehearse::ParseDuration(line.timeLimit);
        if (!limit || *limit == 0) {
            return fmt::format("--time-limit must be a duration such as \"30s\", not '{}'", line.timeLimit);
        }
        line.fleet.limitMs = *limit;
    }
    return "";
}

// Options from the command line; an error text if it is wrong.
static std::string Complete(const CLI::App& app, Line& line) {
    if (line.printKeys || line.printCatalogue || line.printFindings) {
        return "";
    }
    if (std::string wrong = EmptyValue(app); !wrong.empty()) {
        return wrong;
    }
    if (!line.machine.empty()) {
        line.options.description = line.machine.front();
        line.options.moreExports.assign(line.machine.begin() + 1, line.machine.end());
    }
    if (app.count("--rules")) {
        line.options.rules = line.rules;
    }
    if (app.count("--compare")) {
        line.options.compare = line.compare;
    }
    if (std::string wrong = CompleteFleet(app, line); !wrong.empty()) {
        return wrong;
    }
    const bool isFleet = !line.fleet.folder.empty() || line.fleet.merge || line.isMember;
    if (std::string wrong = isFleet || line.isObserver ? "" : WrongQuestion(app); !wrong.empty()) {
        return wrong;
    }
    if (line.options.description.empty() && !line.options.rules && !isFleet) {
        return "the machine is missing: a description, a folder of _capture_machine.cmd, or exports";
    }
    if (std::string wrong = CompleteStories(line); !wrong.empty()) {
        return wrong;
    }
    if (app.count("--ini")) {
        line.options.ini = line.ini;
    }
    if (app.count("--json")) {
        line.options.json = line.json;
    }
    if (app.count("--log")) {
        line.options.log = line.log;
    }
    if (app.count("--html")) {
        line.options.html = line.html;
    }
    line.options.isGerman = line.language == "de";
    if ((line.json == "-") + (line.log == "-") + (line.html == "-") > 1) {
        return "only one of --json, --log and --html can go to standard output";
    }
    if (app.count("--seed")) {
        std::uint64_t seed = 0;
        const char* end = line.seed.data() + line.seed.size();
        const auto [last, error] = std::from_chars(line.seed.data(), end, seed);
        if (error != std::errc() || last != end) {
            return fmt::format("--seed must be a number from 0 to 18446744073709551615, not '{}'", line.seed);
        }
        line.options.seed = seed;
    }
    if (app.count("--until")) {
        line.options.untilMs = rehearse::ParseDuration(line.until);
        if (!line.options.untilMs) {
            return fmt::format("--until must be a duration such as \"10s\", not '{}'", line.until);
        }
    }
    return "";
}

static int Run(Line& line) {
    const rehearse::Options& options = line.options;
    if (line.isObserver) {
        return rehearse::Observe(options);
    }
    if (line.isMember) {
        return rehearse::fleet::RunMember(options);
    }
    if (!line.fleet.folder.empty() || line.fleet.merge) {
        line.fleet.options = options;
        line.fleet.version = QM_VERSION;
        return rehearse::fleet::RunFleet(line.fleet);
    }
    if (options.rules) {
        return rehearse::CheckRules(options);
    }
    return options.compare ? rehearse::CompareRules(options) : rehearse::Rehearse(options);
}

static int RunLine(int count, char** arguments) {
    CLI::App app("Runs the product on a described machine and tells what happened.", "quillmarch-rehearse");
    Line line;
    Describe(app, line);
    app.allow_windows_style_options(false); // or a path that begins with a slash would be one there
    std::string wrong;
    try {
        app.parse(count, arguments);
        wrong = Complete(app, line);
    } catch (const CLI::CallForHelp&) {
        fmt::print("{}", app.help());
        return rehearse::ExitDone;
    } catch (const CLI::CallForVersion&) {
        fmt::print("{}\n", app.version());
        return rehearse::ExitDone;
    } catch (const CLI::ExtrasError&) {
        wrong = UnknownOption(app);
    } catch (const CLI::ParseError& error) {
        wrong = WrongLine(app, error);
    }
    if (!wrong.empty()) {
        fmt::print(stderr, "quillmarch-rehearse: {}\n", wrong);
        return rehearse::ExitWrongInput;
    }
    if (line.printKeys) {
        fmt::print("{}", rehearse::KeyTables());
        return rehearse::ExitDone;
    }
    if (line.printCatalogue) {
        fmt::print("{}", machine::CatalogueTable());
        return rehearse::ExitDone;
    }
    if (line.printFindings) {
        fmt::print("{}", rehearse::FaultTable());
        return rehearse::ExitDone;
    }
    try {
        rehearse::CheckOutputs(line.options, nullptr);
        return Run(line);
    } catch (const rehearse::InputError& error) {
        fmt::print(stderr, "{}\n", error.what());
        return rehearse::ExitWrongInput;
    }
}

int main(int count, char** arguments) {
    host::BeginProgram(&count, &arguments);
    try {
        const int code = RunLine(count, arguments);
        if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
            std::fputs("quillmarch-rehearse: standard output cannot be written\n", stderr);
            return rehearse::ExitWrongInput;
        }
        return code;
    } catch (const std::exception& error) { // a full disk, an unreadable folder
        std::fputs("quillmarch-rehearse: ", stderr);
        std::fputs(error.what(), stderr);
        std::fputs("\n", stderr);
        return rehearse::ExitWrongInput;
    }
}
