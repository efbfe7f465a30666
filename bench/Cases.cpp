// The cases of the benchmark.

#include "Contender.hpp"

#include "lxAviRead.h"

namespace bench {
namespace {

struct Budget {
    const char* pName;
    UInt32 uiBytes;
};

constexpr Budget kBudgets[] = {
    {"one leaf", kOneLeaf},
    {"64 KiB", 64u << 10}, // smaller than a leaf on 64-bit hosts, so the reader only counts the key frames
    {"1 MiB", 1u << 20},
    {"unlimited", 0xFFFFFFFF},
};

// Number of passes: counting, storing, and assigning audio; only counting when the budget has no room for a leaf.
UInt32 PassesOf(const Budget& budget) { return budget.uiBytes < kOneLeaf ? 1 : 3; }

// Adds a case whose limits differ only in how they get to the bytes.
void Add(std::vector<Case>& cases, const std::string& name, const MakeContender& reader,
         const std::function<std::unique_ptr<Contender>(Limit)>& limit, const MakeContender& peer, double seconds = 0.1)
{
    cases.push_back(
        {name, reader, [=] { return limit(Limit::Stdio); }, [=] { return limit(Limit::Floor); }, peer, seconds});
}

void AddIndexing(std::vector<Case>& cases, UInt32 records)
{
    for (const Budget& budget : kBudgets) {
        Add(
            cases, "open+index idx1 " + std::to_string(records) + ", " + budget.pName,
            [=] { return ReaderIndexing(SmallChunks(records), budget.uiBytes); },
            [=](Limit eLimit) { return LimitIdx1(eLimit, SmallChunks(records), PassesOf(budget)); },
            [=] { return PeerIndexing(SmallChunks(records)); });
    }
    for (const Budget& budget : kBudgets) {
        Add(
            cases, "open+index OpenDML " + std::to_string(records) + ", " + budget.pName,
            [=] { return ReaderIndexing(SmallChunksOpenDml(records), budget.uiBytes); },
            [=](Limit eLimit) { return LimitOpenDml(eLimit, SmallChunksOpenDml(records), PassesOf(budget)); },
            [=] { return PeerIndexing(SmallChunksOpenDml(records)); });
    }
}

// The peer does not search rejected payload for the next chunk, so it has no part where that is measured.
void AddDelivery(std::vector<Case>& cases, const std::string& name, const std::function<const Input&()>& input,
                 Rejected eRejected = Rejected::None, double seconds = 0.1)
{
    MakeContender peer;
    if (eRejected != Rejected::LeftToResync) {
        peer = [=] { return PeerDelivery(input(), eRejected); };
    }
    Add(
        cases, name, [=] { return ReaderDelivery(input(), eRejected); },
        [=](Limit eLimit) { return LimitDelivery(eLimit, input(), eRejected); }, peer, seconds);
}

void AddPlaying(std::vector<Case>& cases, const std::string& name, Index eIndex)
{
    constexpr double kOnce = 0.01; // seconds; once takes longer
    Add(
        cases, name, [=] { return ReaderPlaying(TwoHours(), eIndex); },
        [=](Limit eLimit) { return LimitPlaying(eLimit, TwoHours(), eIndex); },
        [=] { return PeerPlaying(TwoHours(), eIndex); }, kOnce);
}

void AddStepping(std::vector<Case>& cases, const std::string& name, Steps eSteps)
{
    Add(
        cases, name, [=] { return ReaderStepping(Film(), eSteps); },
        [=](Limit eLimit) { return LimitStepping(eLimit, Film(), eSteps); },
        [=] { return PeerStepping(Film(), eSteps); });
}

// Nothing is read, and the peer has no search by offset.
void AddLookup(std::vector<Case>& cases, const std::string& name, Lookups eLookups)
{
    cases.push_back(
        {name, [=] { return ReaderLookup(Film(), eLookups); }, {}, [=] { return FloorLookup(Film(), eLookups); }, {}});
}

} // namespace

std::vector<Case> Cases()
{
    std::vector<Case> cases;
    for (const UInt32 records : {10000u, 100000u, 1000000u}) {
        AddIndexing(cases, records);
    }
    for (const UInt32 chunks : {6000u, 60000u, 600000u}) {
        AddDelivery(cases, "small chunks " + std::to_string(chunks),
                    [=]() -> const Input& { return SmallChunks(chunks); });
    }
    AddDelivery(cases, "large chunks 1 GiB", LargeChunks, Rejected::None, 0.5); // mostly copies memory
    AddDelivery(
        cases, "rejected, skipped by the caller", []() -> const Input& { return TwoTracks(600000, 60); },
        Rejected::SkippedByCaller);
    AddDelivery(
        cases, "rejected, resynchronised", []() -> const Input& { return TwoTracks(60000, 2000); },
        Rejected::LeftToResync);
    AddPlaying(cases, "film of two hours, with index", Index::Built);
    AddPlaying(cases, "film of two hours, without index", Index::LeftAlone);
    Add(
        cases, "seek + first chunks", [] { return ReaderSeeking(Film()); },
        [](Limit eLimit) { return LimitSeeking(eLimit, Film()); }, [] { return PeerSeeking(Film()); });
    AddStepping(cases, "key-frame step forward", Steps::Forward);
    AddStepping(cases, "key-frame step back", Steps::Back);
    AddLookup(cases, "lookup in order", Lookups::InOrder);
    AddLookup(cases, "lookup at random", Lookups::Random);
    cases.push_back({"lxavi extract",
                     [] { return ReaderExtraction(Film()); },
                     {},
                     [] { return FloorExtraction(Film()); },
                     [] { return PeerExtraction(Film()); }});
    return cases;
}

} // namespace bench
