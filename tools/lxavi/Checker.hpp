// The check of a file: compares headers, indexes, media data and delivery.

#pragma once

#include "Findings.hpp"
#include "Interleave.hpp"
#include "Quirks.hpp"
#include "RiffScan.hpp"

#include <functional>
#include <map>
#include <set>

namespace lxavi {

// Hears of what the check meets. Its functions may be empty.
struct CheckObserver {
    std::function<void(const lxAviRead_MediaChunk_t&)>
        chunk; // every chunk of the media data; must not call the library
    std::function<void(const Item& item, bool isNew)>
        delivered; // every delivered chunk; in a later pass the video is not new
};

class Checker {
public:
    // Throws Failure when the file cannot be read several times, or is no AVI file.
    explicit Checker(const Options& options, CheckObserver observer = {});

    Findings& Run();

    UInt64 Delivered() const { return m_delivered; }
    // Of each audio track with the video. Empty when there is no video.
    const std::map<UInt32, Interleave>& Interleaves() const { return m_interleaves; }

private:
    class Structure;

    static std::string RegularFile(const Options& options);
    void Add(const Finding& finding);
    void Note(Severity severity, std::optional<UInt64> offset, const std::string& code, const std::string& text);
    void AddQuirk(const TouchedQuirk& quirk);

    void CheckHeaders(const Reader& reader);
    void CheckFrameRate(const Reader& reader, const lxAviRead_Avih_t& avih);
    void CheckTypes(const Reader& reader);
    void CheckLengths(const Reader& reader);
    void CheckOutside();
    void CheckSuperIndexes(const Reader& reader);
    void CheckSuperIndex(UInt32 streamNr, const lxAviReadCore_StreamInfo_t& stream);
    void CheckSuperIndexEntry(const lxAviReadCore_AviSuperIndexEntry_t& entry, bool isListed, const std::string& what);
    void CheckIndexes();
    void CheckTable(Reader& reader);
    void CheckInterleave();

    void Deliver(Reader& reader);
    void DeliverPass(Reader& reader, UInt32 pass);
    void CheckLosses(const Reader& reader, const std::map<UInt32, UInt64>& passedBy);
    void NoteEnd(const Item& item);
    bool Take(Reader& reader, const Item& item, UInt32 pass);
    void Observe(const Reader& reader, const Item& item, UInt32 pass);

    const Options& m_options;
    CheckObserver m_observer;
    Findings m_findings;
    FindingRow m_row{m_findings}; // about the structure
    std::string m_rowOf;          // code of the finding that was added last
    SourceFile m_file;
    RiffScan m_scan;
    std::map<UInt32, Interleave> m_interleaves; // by audio track
    std::map<UInt32, UInt32> m_frames;          // chunks of each stream
    std::map<UInt32, UInt64> m_met;             // the same, as the first pass has met them
    std::set<UInt64> m_stoppedAt;               // offsets where a pass could not go on
    UInt64 m_delivered = 0;
};

} // namespace lxavi
