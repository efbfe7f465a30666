// lxavi: inspect, list, extract, seek, step, check, repair and picture AVI files from the command line.

#include "Arguments.hpp"
#include "Commands.hpp"
#include "Output.hpp"
#include "OutputFile.hpp"

#include "lxDbgHost.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <functional>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace lxavi;

const std::map<std::string, UInt32> kRoundings = {{"up", lxAviRead_SetPosRoundUp},
                                                  {"down", lxAviRead_SetPosRoundDown},
                                                  {"nearest", lxAviRead_SetPosRoundNearest}};
const std::map<std::string, Rebuild> kRebuilds = {{"auto", Rebuild::WithoutIndex}, {"always", Rebuild::Always}};
const std::map<std::string, StepMode> kModes = {{"forward", StepMode::Forward},
                                                {"trick", StepMode::Trick},
                                                {"back", StepMode::Back},
                                                {"jump", StepMode::Jump}};
const std::map<std::string, Severity> kSeverities = {{"error", Severity::Error},
                                                     {"warning", Severity::Warning},
                                                     {"note", Severity::Note}};

// What the parser stores for a value of --rebuild.
std::string NumberOfRebuild(const std::string& name)
{
    const auto found = kRebuilds.find(name);
    if (found == kRebuilds.end()) {
        throw CLI::ValidationError("--rebuild", fmt::format("'{}' is none of always|auto", name));
    }
    return std::to_string(static_cast<int>(found->second));
}

// A file that is opened later must not get the number of a standard stream, which other code writes to.
void OpenMissingStandardStreams()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) {
            static_cast<void>(open("/dev/null", O_RDWR)); // takes the lowest free number, which is this one
        }
    }
}

// Ends the program as the signal does, but leaves no partial files.
void EndBySignal(int number)
{
    RemovePartialFiles();
    static_cast<void>(raise(number)); // the handler is not set any more
}

void HandleSignals()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction before = {};
        if (sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) { // nohup ignores one
            struct sigaction action = {};
            action.sa_handler = EndBySignal;
            action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
            static_cast<void>(sigaction(number, &action, nullptr));
        }
    }
    for (const int number : {SIGPIPE, SIGXFSZ}) { // the write fails, and its error is told
        static_cast<void>(signal(number, SIG_IGN));
    }
}

// The reader of a pipe has enough: the program ends as others do, without a word.
void EndByBrokenPipe()
{
    static_cast<void>(signal(SIGPIPE, SIG_DFL));
    static_cast<void>(raise(SIGPIPE));
}

// Messages of the library have parts of the file and its name.
void SayMessage(void* /*context*/, const char* unit, UInt32 level, const char* text)
{
    std::string_view line = text;
    while (line.ends_with('\n')) {
        line.remove_suffix(1);
    }
    Say(fmt::format("{} {:#06x} {}", unit, level, line));
}

void SayAssertion(void* /*context*/, const char* condition, const char* text, const char* file, int line)
{
    Say(fmt::format("assertion failed: {} ({}) at {}:{}", condition, text, file, line));
}

// Help without the notation for what a flag means without a value: "--rebuild", not "--rebuild{auto}".
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_option_name(const CLI::Option* option, bool isPositional) const override
    {
        std::string name = CLI::Formatter::make_option_name(option, isPositional);
        const size_t brace = name.find('{');
        return name.substr(0, brace);
    }
};

// All commands, their arguments, and what the user wants.
class Arguments {
public:
    Arguments()
    {
        m_app.name("lxavi");
        m_app.set_version_flag("-V,--version", VersionText());
        m_app.set_help_flag("-h,--help", "Print this help and exit");
        m_app.option_defaults()->disable_flag_override(); // --json=5 means nothing
        m_app.formatter(std::make_shared<HelpFormatter>());
        m_app.footer(
            "Exit status: 0 done; 1 damaged or refused input, or output that cannot be written; 2 wrong usage.\n"
            "`lxavi COMMAND --help` has examples.");
        AddInfo();
        AddChunks();
        AddIndex();
        AddSeek();
        AddStep();
        AddExtract();
        AddCheck();
        AddRepair();
        AddReport();
    }

    // Returns the exit status when there is no command to run.
    std::optional<int> Parse(int argc, char** argv)
    {
        try {
            RefuseUnknownCommand(argc, argv);
            m_app.parse(argc, argv);
            if (m_app.get_subcommands().empty()) {
                throw UsageError("which command?");
            }
            m_options.command = m_app.get_subcommands().front()->get_name();
            return std::nullopt;
        } catch (const CLI::Success& success) {
            return m_app.exit(success);
        } catch (const std::exception& error) {
            SayUsage(error.what());
            return kUsage;
        }
    }

    int Run() { return m_run(); }
    const Options& Settings() const { return m_options; }

    void SayUsage(const std::string& what) const
    {
        const auto commands = m_app.get_subcommands();
        Say(fmt::format("lxavi: {}", what));
        Say(fmt::format("lxavi: `lxavi {}--help` shows the usage",
                        commands.empty() ? "" : commands.front()->get_name() + " "));
    }

private:
    // The parser would only ask for a command.
    void RefuseUnknownCommand(int argc, char** argv) const
    {
        const std::string first = argc > 1 ? argv[1] : "";
        const bool isOption = first == "-h" || first == "--help" || first == "-V" || first == "--version";
        const bool isCommand =
            !m_app.get_subcommands([&](const CLI::App* app) { return app->get_name() == first; }).empty();
        if (first.empty() || isOption || isCommand) {
            return;
        }
        throw UsageError(fmt::format("there is no {} '{}'", first[0] == '-' ? "option" : "command", first));
    }

    CLI::App* Add(const std::string& name, const std::string& what, const std::string& examples)
    {
        CLI::App* const command = m_app.add_subcommand(name, what);
        command->set_help_flag("-h,--help", "Print this help and exit");
        command->add_option("FILE", m_options.file, "AVI or OpenDML file; - is standard input")
            ->required()
            ->option_text(" ");
        AddNumber(command, "--attempts", m_options.attempts, "Read attempts that one read may make", 0, 0xFFFFFFFF);
        AddSize(command, "--budget", m_options.budget, "Bytes that the key-frame table may take");
        AddNumber(command, "--indx-option", m_options.indxOption, "1: a one-level OpenDML index is used", 0, 127);
        command->add_flag("--default-mode", m_options.defaultMode,
                          "Read in the default mode of the library, which keeps its oddities");
        AddLogLevels(command, m_options.logMask);
        CLI::Option* const json = command->add_flag("--json", m_options.json, "Print JSON")->option_text(" ");
        command->add_flag("--csv", m_options.csv, "Print comma-separated values")->excludes(json)->option_text(" ");
        command->add_option("--fields", m_options.fields, "Print these columns or members only")
            ->delimiter(',')
            ->option_text("A,B,…");
        command->footer("Examples:\n" + examples);
        return command;
    }

    void AddRebuild(CLI::App* command)
    {
        command
            ->add_flag("--rebuild{auto}", m_options.rebuild,
                       "Build the key-frame table from the media data: auto (without a value) where there is no index "
                       "that can be used, always in any case")
            ->disable_flag_override(false)
            ->transform(NumberOfRebuild)
            ->option_text("[=auto|always]");
    }

    void AddAudio(CLI::App* command, std::optional<UInt32>& track)
    {
        AddNumber(command, "--audio", track, "Audio track; the first is 0", 0, LX_AVIREAD_AUDIO_TRACKS - 1);
    }

    void AddRounding(CLI::App* command)
    {
        AddChoice(command, "--round", m_play.rounding, kRoundings, "Which key frame, for a time between two");
    }

    void AddInfo()
    {
        CLI::App* const info = Add("info", "Show container, streams, texts, segments and index",
                                   "  lxavi info film.avi\n"
                                   "  lxavi info film.avi --json --fields duration_us,streams.0.codec");
        AddRebuild(info);
        info->callback([this] { m_run = [this] { return RunInfo(m_options); }; });
    }

    void AddChunks()
    {
        CLI::App* const chunks =
            Add("chunks", "List the delivered chunks",
                "  lxavi chunks film.avi --limit 20\n"
                "  lxavi chunks film.avi --audio 1 --from 1:30 --csv --fields offset,size_bytes,time_ms");
        AddRebuild(chunks);
        AddAudio(chunks, m_play.audio);
        AddRounding(chunks);
        AddNumber(chunks, "--subtitle", m_play.subtitle, "Subtitle track; the first is 0", 0, LX_AVIREAD_STREAMS - 1);
        AddTime(chunks, "--from", m_play.from, "Jump to this time first");
        AddNumber(chunks, "--limit", m_play.limit, "Stop after this many chunks", 0, UInt64{1} << 53);
        chunks->callback([this] { m_run = [this] { return RunChunks(m_options, m_play); }; });
    }

    void AddIndex()
    {
        CLI::App* const index = Add("index", "Show the key-frame table",
                                    "  lxavi index film.avi\n"
                                    "  lxavi index cut.avi --rebuild --fields frame,time_ms");
        AddRebuild(index);
        index->callback([this] { m_run = [this] { return RunIndex(m_options); }; });
    }

    void AddSeek()
    {
        CLI::App* const seek = Add("seek", "Show where a seek lands",
                                   "  lxavi seek film.avi 60s\n"
                                   "  lxavi seek film.avi 1:02:03.250 --round nearest --audio 1");
        AddTime(seek, "TIME", m_time, "1500 (milliseconds), 12.5s, 1:23.5 or 01:02:03.250")
            ->required()
            ->option_text(" ");
        AddRebuild(seek);
        AddAudio(seek, m_play.audio);
        AddRounding(seek);
        seek->callback([this] { m_run = [this] { return RunSeek(m_options, m_time, m_play); }; });
    }

    void AddStep()
    {
        CLI::App* const step = Add("step", "Step from key frame to key frame",
                                   "  lxavi step film.avi --count 5\n"
                                   "  lxavi step film.avi --count 3 --mode back --from 1:30");
        AddRebuild(step);
        AddNumber(step, "--count", m_step.count, "Number of steps; with --mode jump, a negative number goes back",
                  -2147483647, 2147483647)
            ->required();
        AddTime(step, "--from", m_step.from, "Start at this time");
        AddChoice(step, "--mode", m_step.mode, kModes, "How to step: jump makes all steps at once");
        step->callback([this] {
            if (m_step.count < 0 && m_step.mode != StepMode::Jump) {
                throw CLI::ValidationError("--count", "only --mode jump goes back by a negative count");
            }
            m_run = [this] { return RunStep(m_options, m_step); };
        });
    }

    void AddExtract()
    {
        CLI::App* const extract = Add("extract", "Write each stream to a file that players open",
                                      "  lxavi extract film.avi --out streams\n"
                                      "  lxavi extract film.avi --out part --from 1:30 --to 2:00 --audio 0");
        AddRebuild(extract);
        extract->add_option("--out", m_extract.folder, "Folder for the files")->required()->option_text("FOLDER");
        AddAudio(extract, m_extract.audio);
        AddTime(extract, "--from", m_extract.from, "Start at the key frame before this time");
        AddTime(extract, "--to", m_extract.to, "End at this time");
        extract->add_flag("--force", m_extract.force, "Overwrite existing files");
        extract->add_flag("--raw", m_extract.raw, "Write the payloads as they are, and nothing else");
        extract->callback([this] {
            if (m_extract.from && m_extract.to && *m_extract.to < *m_extract.from) {
                throw CLI::ValidationError("--to", "lies before --from");
            }
            m_run = [this] { return RunExtract(m_options, m_extract); };
        });
    }

    void AddCheck()
    {
        CLI::App* const check =
            Add("check", "Compare headers, indexes, media data and delivery, and report every anomaly",
                "  lxavi check film.avi\n"
                "  lxavi check film.avi --fail-on warning --json");
        AddChoice(check, "--fail-on", m_check.failOn, kSeverities, "Severity from which on the exit status is 1");
        AddNumber(check, "--limit", m_check.limit, "Print only this many findings; the summary counts all", 0,
                  UInt64{1} << 53);
        check->callback([this] { m_run = [this] { return RunCheck(m_options, m_check); }; });
    }

    void AddRepair()
    {
        CLI::App* const repair = Add("repair", "Write a copy with a fresh index and right headers",
                                     "  lxavi repair broken.avi -o good.avi\n"
                                     "  lxavi repair unfinished.avi --in-place");
        CLI::Option* const output = repair->add_option("-o,--output", m_repair.output, "The copy")->option_text("FILE");
        repair
            ->add_flag("--in-place", m_repair.inPlace,
                       "Complete the file itself: append the index, correct the headers")
            ->excludes(output)
            ->option_text(" ");
        repair->add_flag("--force", m_repair.force, "Overwrite an existing file");
        repair->callback([this] {
            if (m_repair.output.empty() && !m_repair.inPlace) {
                throw CLI::RequiredError("--output or --in-place");
            }
            m_run = [this] { return RunRepair(m_options, m_repair); };
        });
    }

    void AddReport()
    {
        CLI::App* const report = Add("report", "Write a page that shows the file as a picture",
                                     "  lxavi report film.avi -o film.html\n"
                                     "  lxavi report film.avi --json");
        report->add_option("-o,--output", m_report.output, "The page")->option_text("FILE");
        report->add_option("--charts", m_report.charts, "Folder of the chart library, where Debian's is not installed")
            ->option_text("FOLDER");
        report->add_flag("--force", m_report.force, "Overwrite an existing file");
        report->callback([this] {
            if (m_report.output.empty() && m_options.IsForPeople() && m_options.fields.empty()) {
                throw CLI::RequiredError("--output, --json, --csv or --fields");
            }
            m_run = [this] { return RunReport(m_options, m_report); };
        });
    }

    CLI::App m_app{"Inspects, lists, extracts, seeks, steps, checks, repairs and pictures AVI and OpenDML files."};
    Options m_options;
    PlayOptions m_play;
    ExtractOptions m_extract;
    StepOptions m_step;
    CheckOptions m_check;
    RepairOptions m_repair;
    ReportOptions m_report;
    UInt32 m_time = 0; // of a seek
    std::function<int()> m_run;
};

void FlushOutput()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        if (errno == EPIPE) {
            EndByBrokenPipe();
        }
        throw OutputFailure("standard output", std::strerror(errno));
    }
}

// Calls `run`, and tells what it throws.
int RunCommand(const Arguments& arguments, const std::function<int()>& run)
{
    try {
        const int status = run();
        FlushOutput();
        return status;
    } catch (const UsageError& error) {
        arguments.SayUsage(error.what());
        return kUsage;
    } catch (const OutputFailure& error) {
        Say(fmt::format("lxavi: {}: {}", error.Path(), error.what()));
    } catch (const std::system_error& error) { // of fmt
        if (error.code().value() == EPIPE) {
            EndByBrokenPipe();
        }
        Say(fmt::format("lxavi: standard output: {}", error.code().message()));
    } catch (const std::bad_alloc&) {
        Say(fmt::format("lxavi: {}: there is not enough memory", arguments.Settings().Name()));
    } catch (const std::exception& error) {
        Say(fmt::format("lxavi: {}: {}", arguments.Settings().Name(), error.what()));
    }
    return kDamaged;
}

} // namespace

int main(int argc, char** argv)
{
    OpenMissingStandardStreams();
    HandleSignals();
    lxDbg_LogToCallback(SayMessage, SayAssertion, nullptr);
    Arguments arguments;
    const std::optional<int> status = arguments.Parse(argc, argv);
    return RunCommand(arguments, [&] { return status ? *status : arguments.Run(); });
}
