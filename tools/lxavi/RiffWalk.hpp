// A walk over the lists and chunks of a file in file order, without the library. It keeps no more than the lists around the
// current chunk.

#pragma once

#include "Findings.hpp"
#include "SourceFile.hpp"

#include <functional>
#include <vector>

namespace lxavi {

// A chunk or a list.
struct RiffPart {
    UInt64 offset; // of its header
    UInt64 end;    // of what its list, or the file, has of it
    UInt32 id;
    UInt32 size;   // as its header says
    UInt32 type;   // of a list; 0 for a chunk
    UInt32 parent; // type of the list that holds it; 0 at the top level
    bool isInMovi;

    bool IsMedia() const { return isInMovi && type == 0 && IsMediaId(id); }
};

// The offset behind a part and its pad byte.
constexpr UInt64 BehindPart(const RiffPart& part) { return part.offset + 8 + part.size + (part.size & 1); }

class RiffWalk {
public:
    // `report` hears of everything that is not as it should be; it may be empty.
    explicit RiffWalk(const SourceFile& file, std::function<void(Finding)> report = {});

    // The next part; false behind the last one. A list comes before what it holds.
    bool Next(RiffPart& part);

private:
    struct List {
        UInt64 at; // where its next part begins
        UInt64 end;
        UInt32 type;
        bool isInMovi;
    };

    bool HasNext();
    bool FindNext();
    bool IsFollowed(UInt64 offset, const ChunkHead& header) const;
    bool IsUnfinished(const RiffPart& part) const;
    void MeasurePart(RiffPart& part);
    void EnterList(const RiffPart& part);
    void ReportRest(UInt64 from, UInt64 to) const;
    bool IsBehindAll() const;
    void Report(Severity severity, UInt64 offset, const char* code, const std::string& text) const;

    const SourceFile& m_file;
    std::function<void(Finding)> m_report;
    std::vector<List> m_lists; // the innermost one is the last
    UInt32 m_riffLists = 0;
};

} // namespace lxavi
