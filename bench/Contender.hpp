// Four contenders do the same work on the same file:
//
//   reader   the library, called as a player calls it
//   stdio    a limit: a loop that makes the same reads with the fastest public calls of stdio
//   floor    a limit: a loop that touches the same bytes of the mapped file
//   peer     a general-purpose media framework, through its public interface, if it is installed

#pragma once

#include "Inputs.hpp"

#include "lxAviReadState.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// One way to do the work of a case.
class Contender {
public:
    Contender() = default;
    virtual ~Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    // Does the work once, and returns the number of items (records, chunks, bytes, jumps).
    virtual UInt64 Run() = 0;
};

using MakeContender = std::function<std::unique_ptr<Contender>()>;

struct Case {
    std::string name;
    MakeContender reader;
    MakeContender stdio, floor, peer; // empty where nothing does the same
    double seconds = 0.1;             // shortest time of one repetition
};

// All cases, in the order of the table.
std::vector<Case> Cases();

// Bytes of a key-frame table of one leaf, as the budget counts them.
constexpr UInt32 kOneLeaf = sizeof(lxAviReadCore_KeyFrameLeaf_t) + sizeof(void*);

// Number of jumps in one Run.
constexpr UInt32 kJumps = 1000;
constexpr UInt32 kLookups = 100000;

enum class Limit { Stdio, Floor };
enum class Index { Built, LeftAlone };
enum class Rejected { None, SkippedByCaller, LeftToResync };
enum class Steps { Forward, Back };
enum class Lookups { InOrder, Random };

std::unique_ptr<Contender> ReaderIndexing(const Input& input, UInt32 budget);
std::unique_ptr<Contender> ReaderDelivery(const Input& input, Rejected eRejected);
std::unique_ptr<Contender> ReaderPlaying(const Input& input, Index eIndex);
std::unique_ptr<Contender> ReaderSeeking(const Input& input);
std::unique_ptr<Contender> ReaderStepping(const Input& input, Steps eSteps);
std::unique_ptr<Contender> ReaderLookup(const Input& input, Lookups eLookups);
std::unique_ptr<Contender> ReaderExtraction(const Input& input);

std::unique_ptr<Contender> LimitIdx1(Limit eLimit, const Input& input, UInt32 passes);
std::unique_ptr<Contender> LimitOpenDml(Limit eLimit, const Input& input, UInt32 passes);
std::unique_ptr<Contender> LimitDelivery(Limit eLimit, const Input& input, Rejected eRejected);
std::unique_ptr<Contender> LimitPlaying(Limit eLimit, const Input& input, Index eIndex);
std::unique_ptr<Contender> LimitSeeking(Limit eLimit, const Input& input);
std::unique_ptr<Contender> LimitStepping(Limit eLimit, const Input& input, Steps eSteps);
std::unique_ptr<Contender> FloorLookup(const Input& input, Lookups eLookups);
std::unique_ptr<Contender> FloorExtraction(const Input& input);

// Null when the framework is not installed.
std::unique_ptr<Contender> PeerIndexing(const Input& input);
std::unique_ptr<Contender> PeerDelivery(const Input& input, Rejected eRejected);
std::unique_ptr<Contender> PeerPlaying(const Input& input, Index eIndex);
std::unique_ptr<Contender> PeerSeeking(const Input& input);
std::unique_ptr<Contender> PeerStepping(const Input& input, Steps eSteps);
std::unique_ptr<Contender> PeerExtraction(const Input& input);
bool HasPeer();

// The same pseudo-random numbers for all contenders.
class Dice {
public:
    UInt32 Below(UInt32 limit)
    {
        m_uiState = m_uiState * 6364136223846793005u + 1442695040888963407u;
        return static_cast<UInt32>((m_uiState >> 33) % limit);
    }

private:
    UInt64 m_uiState = 1;
};

} // namespace bench
