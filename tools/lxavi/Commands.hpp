// The commands. Each function returns the exit status.

#pragma once

#include "Reader.hpp"

#include <optional>

namespace lxavi {

constexpr int kDone = 0;
constexpr int kDamaged = 1; // damaged or refused input
constexpr int kUsage = 2;

struct PlayOptions {
    UInt32 audio = 0;
    UInt32 subtitle = 0;
    std::optional<UInt32> from; // milliseconds
    std::optional<UInt32> to;
    UInt32 rounding = lxAviRead_SetPosRoundDown;
    std::optional<UInt64> limit;
};

struct ExtractOptions {
    std::string folder;
    std::string audio = "all"; // a track number, or all
    std::optional<UInt32> from;
    std::optional<UInt32> to;
};

enum class StepMode { Forward, Trick, Back, Jump };

struct StepOptions {
    int count = 1;
    std::optional<UInt32> from;
    StepMode mode = StepMode::Forward;
};

struct RepairOptions {
    std::string output;
    bool inPlace = false;
    bool force = false;
};

int RunInfo(const Options& options);
int RunChunks(const Options& options, const PlayOptions& play);
int RunIndex(const Options& options);
int RunSeek(const Options& options, UInt32 time, const PlayOptions& play);
int RunStep(const Options& options, const StepOptions& step);
int RunExtract(const Options& options, const ExtractOptions& extract);
int RunCheck(const Options& options);
int RunRepair(const Options& options, const RepairOptions& repair);

} // namespace lxavi
