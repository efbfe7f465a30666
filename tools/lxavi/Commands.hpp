// The commands. Each function returns the exit status.

#pragma once

#include "Findings.hpp"
#include "Reader.hpp"

#include <optional>

namespace lxavi {

constexpr int kDone = 0;
constexpr int kDamaged = 1; // damaged or refused input
constexpr int kUsage = 2;

struct PlayOptions {
    std::optional<UInt32> audio; // tracks; the first one, unless the user names another
    std::optional<UInt32> subtitle;
    std::optional<UInt32> from; // milliseconds
    UInt32 rounding = lxAviRead_SetPosRoundDown;
    std::optional<UInt64> limit;
};

struct ExtractOptions {
    std::string folder;
    std::optional<UInt32> audio; // a track; else all
    std::optional<UInt32> from;
    std::optional<UInt32> to;
    bool force = false; // overwrites files
    bool raw = false;   // the payloads, and nothing else
};

enum class StepMode { Forward, Trick, Back, Jump };

struct StepOptions {
    int count = 1;
    std::optional<UInt32> from;
    StepMode mode = StepMode::Forward;
};

struct CheckOptions {
    Severity failOn = Severity::Error;
    std::optional<UInt64> limit; // of the findings that are printed
};

struct RepairOptions {
    std::string output;
    bool inPlace = false;
    bool force = false;
};

struct ReportOptions {
    std::string output;
    std::string charts; // the chart library; else where Debian has it
    bool force = false;
};

int RunInfo(const Options& options);
int RunChunks(const Options& options, const PlayOptions& play);
int RunIndex(const Options& options);
int RunSeek(const Options& options, UInt32 time, const PlayOptions& play);
int RunStep(const Options& options, const StepOptions& step);
int RunExtract(const Options& options, const ExtractOptions& extract);
int RunCheck(const Options& options, const CheckOptions& check);
int RunRepair(const Options& options, const RepairOptions& repair);
int RunReport(const Options& options, const ReportOptions& report);

} // namespace lxavi
