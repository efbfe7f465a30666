// lxavi: inspect, list, extract, seek, step, check and repair AVI files from the command line.

#include "Commands.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <functional>
#include <map>

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

std::string VersionText()
{
    return fmt::format("lxavi {}.{}.{}", LX_AVIREAD_VERSION_MAJOR, LX_AVIREAD_VERSION_MINOR, LX_AVIREAD_VERSION_PATCH);
}

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& what, Options& options)
{
    CLI::App* const command = app.add_subcommand(name, what);
    command->add_option("FILE", options.file, "AVI or OpenDML file")->required();
    command->add_option("--attempts", options.attempts, "Read attempts that one read may make");
    command->add_option("--budget", options.budget, "Bytes that the key-frame table may take")
        ->transform(CLI::AsSizeValue(false));
    command->add_option("--indx-option", options.indxOption, "1: a one-level OpenDML index is used")
        ->check(CLI::Range(0, 127));
    command->add_flag("--default-mode", options.defaultMode,
                      "Read in the default mode of the library, which keeps its oddities");
    command->add_option("--log", options.logMask, "Mask of the library's log levels, to standard error");
    CLI::Option* const json = command->add_flag("--json", options.json, "Print JSON");
    command->add_flag("--csv", options.csv, "Print comma-separated values")->excludes(json);
    return command;
}

void AddAudio(CLI::App* command, PlayOptions& play)
{
    command->add_option("--audio", play.audio, "Audio track, 0 to 7")
        ->check(CLI::Range(0, LX_AVIREAD_AUDIO_TRACKS - 1));
}

void AddRebuild(CLI::App* command, Options& options)
{
    command
        ->add_flag("--rebuild{auto}", options.rebuild,
                   "Build the key-frame table from the media data: auto (without a value) where there is no index that "
                   "can be used, always in any case")
        ->transform(CLI::CheckedTransformer(kRebuilds, CLI::ignore_case))
        ->type_name("[=auto|always]");
}

void AddRounding(CLI::App* command, PlayOptions& play)
{
    command->add_option("--round", play.rounding, "Key frame up, down or nearest")
        ->transform(CLI::CheckedTransformer(kRoundings, CLI::ignore_case));
}

int Run(int argc, char** argv)
{
    CLI::App app{"Inspects, lists, extracts, seeks, steps, checks and repairs AVI and OpenDML files."};
    app.set_version_flag("--version", VersionText());
    app.require_subcommand(1);
    Options options;
    PlayOptions play;
    ExtractOptions extract;
    StepOptions step;
    RepairOptions repair;
    UInt32 time = 0;
    std::function<int()> command;

    CLI::App* const info = AddCommand(app, "info", "Show container, streams, segments and index", options);
    AddRebuild(info, options);
    info->callback([&] { command = [&] { return RunInfo(options); }; });

    CLI::App* const chunks = AddCommand(app, "chunks", "List the delivered chunks", options);
    AddRebuild(chunks, options);
    AddAudio(chunks, play);
    AddRounding(chunks, play);
    chunks->add_option("--subtitle", play.subtitle, "Subtitle track");
    chunks->add_option("--from", play.from, "Jump to this time, in milliseconds, first");
    chunks->add_option("--limit", play.limit, "Stop after this many chunks")
        ->check(CLI::Range(UInt64{0}, UInt64{1} << 53));
    chunks->callback([&] { command = [&] { return RunChunks(options, play); }; });

    CLI::App* const index = AddCommand(app, "index", "Show the key-frame table", options);
    AddRebuild(index, options);
    index->callback([&] { command = [&] { return RunIndex(options); }; });

    CLI::App* const seek = AddCommand(app, "seek", "Show where a seek lands", options);
    seek->add_option("MS", time, "Time in milliseconds")->required()->check(CLI::Range(0.0, 4294967295.0));
    AddRebuild(seek, options);
    AddAudio(seek, play);
    AddRounding(seek, play);
    seek->callback([&] { command = [&] { return RunSeek(options, time, play); }; });

    CLI::App* const stepping = AddCommand(app, "step", "Step from key frame to key frame", options);
    AddRebuild(stepping, options);
    stepping->add_option("--count", step.count, "Number of steps; with --mode jump negative goes back")->required();
    stepping->add_option("--from", step.from, "Start at this time, in milliseconds");
    stepping->add_option("--mode", step.mode, "forward, trick, back or jump")
        ->transform(CLI::CheckedTransformer(kModes, CLI::ignore_case));
    stepping->callback([&] {
        if (step.count < 0 && step.mode != StepMode::Jump) {
            throw CLI::ValidationError("--count", "only --mode jump goes back by a negative count");
        }
        command = [&] { return RunStep(options, step); };
    });

    CLI::App* const extraction = AddCommand(app, "extract", "Write each stream to a file of its own", options);
    AddRebuild(extraction, options);
    extraction->add_option("--out", extract.folder, "Folder for the files")->required();
    extraction->add_option("--audio", extract.audio, "Audio track, or all")
        ->check(CLI::Range(0, LX_AVIREAD_AUDIO_TRACKS - 1) | CLI::IsMember({"all"}));
    extraction->add_option("--from", extract.from, "Start at this time, in milliseconds");
    extraction->add_option("--to", extract.to, "End at this time, in milliseconds");
    extraction->callback([&] {
        if (extract.from && extract.to && *extract.to < *extract.from) {
            throw CLI::ValidationError("--to", "lies before --from");
        }
        command = [&] { return RunExtract(options, extract); };
    });

    AddCommand(app, "check", "Walk everything and report every anomaly", options)->callback([&] {
        command = [&] { return RunCheck(options); };
    });

    CLI::App* const repairing = AddCommand(app, "repair", "Write a copy with a fresh index and right headers", options);
    CLI::Option* const output = repairing->add_option("-o,--output", repair.output, "The copy");
    repairing->add_flag("--in-place", repair.inPlace, "Complete the file itself: append the index, correct the headers")
        ->excludes(output);
    repairing->add_flag("--force", repair.force, "Overwrite an existing file");
    repairing->callback([&] {
        if (repair.output.empty() && !repair.inPlace) {
            throw CLI::RequiredError("--output or --in-place");
        }
        command = [&] { return RunRepair(options, repair); };
    });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    try {
        const int status = command();
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            throw Failure("the output cannot be written");
        }
        return status;
    } catch (const std::exception& error) {
        fmt::print(stderr, "lxavi: {}: {}\n", options.file, error.what());
        return kDamaged;
    }
}

} // namespace

int main(int argc, char** argv) { return Run(argc, argv); }
