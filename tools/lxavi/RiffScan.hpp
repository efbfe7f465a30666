// What one walk over the structure of a file tells about its headers and indexes. Without the chunks of the media data, which
// may be many.

#pragma once

#include "IndexRecords.hpp"
#include "RiffWalk.hpp"

#include <map>
#include <optional>
#include <vector>

namespace lxavi {

// An index chunk: an ix## chunk, or an indx chunk with a one-level index.
struct ScannedIndex {
    UInt64 offset; // of its header
    UInt64 base;
    UInt32 id;
    UInt8 subType;      // 0: standard, 1: field
    bool isOneWordMore; // the records begin 36 bytes behind the chunk's start, not 32
    RecordRun records;  // none where the sub type is unknown

    bool HasKnownSubType() const { return subType <= 1; }
    bool IsField() const { return subType == 1; }
};

class RiffScan {
public:
    explicit RiffScan(const SourceFile& file, const std::function<void(Finding)>& report = {});

    std::vector<RiffPart> parts; // of the headers and around the media data, in file order, the first kMostParts
    std::vector<ScannedIndex> indexes;
    std::optional<RecordRun> idx1;
    std::optional<RiffPart> firstMedia;
    std::optional<RiffPart> lastMedia;
    std::optional<RiffPart> strangerInMovi; // the first that is neither media data nor JUNK
    std::optional<RiffPart> mediaOutside;   // the first chunk of media data that stands in no list of media data
    UInt64 mediaOutsideCount = 0;
    std::map<UInt32, UInt64> mediaOutsideByStream;
    UInt64 lastMediaOutside = 0; // offset
    UInt32 riffLists = 0;
    UInt32 streamLists = 0;
    UInt64 moviCode = 0;       // offset of the first "movi" code
    UInt64 moviEnd = 0;        // end of the first `movi` list
    bool idx1Promised = false; // the main header has the has-index bit

    UInt32 IndexChunks() const; // number of ix## chunks
    UInt32 IndexesAt36() const; // index chunks with one more word before their records
    // The OpenDML records of all streams, in the order of the index chunks.
    std::vector<RecordRun> OpenDmlRuns() const;

private:
    static constexpr size_t kMostParts = 100000;

    void Take(const RiffPart& part);
    void TakeList(const RiffPart& part);
    void TakeInMovi(const RiffPart& part);
    void TakeHeaderPart(const RiffPart& part);
    void TakeIdx1(const RiffPart& part);
    void TakeIndexChunk(const RiffPart& part);
    void Report(Severity severity, UInt64 offset, const char* code, const std::string& text) const;

    const SourceFile& m_file;
    std::function<void(Finding)> m_report;
};

} // namespace lxavi
