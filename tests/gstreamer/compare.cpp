// Compares what lxavisrc delivers of files with what the framework's own demultiplexer delivers.
//
//   gst_compare FILE …     a table in Markdown; exit status 1 when a difference has no explanation

#include "Playing.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace gsttest;

namespace {

// ---- What differs, and why ----

struct Explanation {
    const char* pFile; // a part of its name; empty: any file
    const char* pWhat; // the column
    const char* pText;
};

const Explanation kExplanations[] = {
    {"fixture_fixture", "times",
     "MS ADPCM: the other one takes the rounded byte rate, the reader the rate of the stream header"},
    {"fixture_fixture", "duration",
     "MS ADPCM: the other one takes the rounded byte rate, the reader the rate of the stream header"},
    {"filecopy", "times", "the index has no key flag: for the reader the first frame is a key frame"},
    {"CmnCtrl1_search", "times", "the index has no key flag: for the reader the first frame is a key frame"},
    {"AudioVideoInterleave", "error", "the other one does not open the file"},
    {"Pentax", "error", "the file ends in its headers; the errors have other words"},
    {"t_images_RIFF", "error", "the file ends in its headers; the errors have other words"},
    {"smallville", "duration",
     "the file was cut behind two audio chunks: the reader tells the length of the film by its header"},
    {"smallville", "error", "the file was cut: the reader warns"},
    {"two_videos", "streams", "the reader delivers one video stream"},
    {"adpcm", "times", "ADPCM: the other one's times do not fit the samples that are decoded"},
    {"adpcm", "duration", "ADPCM: the other one's times do not fit the samples that are decoded"},
    {"wmav2", "times", "WMA: the other one takes the rounded byte rate, the reader the rate of the stream header"},
    {"rgb555", "caps", "a format that the framework does not know: the reader tells its frame rate and shape"},
    {"rgb555", "decoded", "a format that the framework does not know: playing ends with that"},
    {"pal8", "caps", "the other one takes the sign of the height into the shape of the pixels"},
    {"raw_rgb", "caps", "the other one takes the sign of the height into the shape of the pixels"},
};

const char* Explain(const std::string& path, const std::string& what)
{
    for (const Explanation& one : kExplanations) {
        if (path.find(one.pFile) != std::string::npos && what == one.pWhat) {
            return one.pText;
        }
    }
    return nullptr;
}

// ---- Playing ----

struct Outcome {
    std::vector<Track> tracks;
    std::string error;
    gint64 duration = -1;
};

Outcome Play(const std::string& source, Output output)
{
    Playing playing(source, output);
    const bool ended = playing.PlayToTheEnd();
    return {playing.Tracks(), ended ? playing.Error() : "takes too long", playing.Duration()};
}

// ---- Comparing ----

bool SameCaps(const Track& ours, const Track& theirs)
{
    if (ours.caps.empty() || theirs.caps.empty()) {
        return ours.caps == theirs.caps;
    }
    GstCaps* const pOurs = gst_caps_from_string(ours.caps.c_str());
    GstCaps* const pTheirs = gst_caps_from_string(theirs.caps.c_str());
    const bool same = gst_caps_is_equal(pOurs, pTheirs) != FALSE;
    gst_caps_unref(pOurs);
    gst_caps_unref(pTheirs);
    return same;
}

bool SameTimes(const Track& ours, const Track& theirs)
{
    return std::equal(ours.buffers.begin(), ours.buffers.end(), theirs.buffers.begin(), theirs.buffers.end(),
                      [](const Buffer& a, const Buffer& b) {
                          return a.pts == b.pts && a.dts == b.dts && a.delta == b.delta && a.duration == b.duration;
                      });
}

template <typename Same>
bool AllTracks(const Outcome& ours, const Outcome& theirs, Same same)
{
    return std::equal(ours.tracks.begin(), ours.tracks.end(), theirs.tracks.begin(), theirs.tracks.end(), same);
}

// Rows of pictures have padding, whose bytes nobody sets; pictures whose rows have some are compared by their number.
bool SameDecoded(const Track& ours, const Track& theirs)
{
    return ours.buffers.size() == theirs.buffers.size() &&
           (ours.Data() == theirs.Data() || (ours.IsVideo() && ours.Data().size() == theirs.Data().size() &&
                                             ours.Data().size() / ours.buffers.size() < 1000));
}

class Row {
public:
    explicit Row(const std::string& path) : m_path(path) {}

    void Add(const char* pWhat, bool same)
    {
        const char* const pReason = same ? nullptr : Explain(m_path, pWhat);
        m_cells += same ? " equal |" : pReason != nullptr ? " explained |" : " DIFFERENT |";
        if (pReason != nullptr && m_notes.find(pReason) == std::string::npos) {
            m_notes += (m_notes.empty() ? "" : "; ") + std::string(pReason);
        }
        m_unexplained = m_unexplained || (!same && pReason == nullptr);
    }

    void Skip(int columns)
    {
        for (; columns > 0; --columns) {
            m_cells += " – |";
        }
    }

    // Whether everything is equal or explained.
    bool Print(const Outcome& ours) const
    {
        std::string streams;
        for (const Track& track : ours.tracks) {
            streams += (streams.empty() ? "" : ", ") + track.name + ": " + std::to_string(track.buffers.size());
        }
        std::printf("| %s | %s |%s %s |\n", m_path.substr(m_path.find_last_of('/') + 1).c_str(),
                    streams.empty() ? "–" : streams.c_str(), m_cells.c_str(), m_notes.c_str());
        return !m_unexplained;
    }

private:
    std::string m_path;
    std::string m_cells;
    std::string m_notes;
    bool m_unexplained = false;
};

// The streams that both have, in the same order.
void KeepCommon(Outcome& ours, Outcome& theirs)
{
    const auto without = [](const Outcome& other) {
        return [&other](const Track& track) {
            return std::none_of(other.tracks.begin(), other.tracks.end(),
                                [&](const Track& one) { return one.name == track.name; });
        };
    };
    const auto drop = [&](Outcome& outcome, const Outcome& other) {
        outcome.tracks.erase(std::remove_if(outcome.tracks.begin(), outcome.tracks.end(), without(other)),
                             outcome.tracks.end());
    };
    drop(theirs, ours);
    drop(ours, theirs);
}

void CompareStored(const std::string& path, Row& row, Outcome& ours, bool& bothPlay)
{
    ours = Play(Playing::BySource(path), Output::AsStored);
    Outcome theirs = Play(Playing::ByPeer(path), Output::AsStored);
    bothPlay = ours.error.empty() && theirs.error.empty();
    row.Add("error", ours.error == theirs.error);
    if (!bothPlay) {
        return;
    }
    row.Add("streams", AllTracks(ours, theirs, [](const Track& a, const Track& b) { return a.name == b.name; }));
    Outcome common = ours;
    KeepCommon(common, theirs);
    row.Add("payload", AllTracks(common, theirs, [](const Track& a, const Track& b) { return a.Data() == b.Data(); }));
    row.Add("times", AllTracks(common, theirs, SameTimes));
    row.Add("caps", AllTracks(common, theirs, SameCaps));
    row.Add("duration", std::abs(ours.duration - theirs.duration) < GST_USECOND); // the library has microseconds
}

void CompareDecoded(const std::string& path, Row& row)
{
    Outcome ours = Play(Playing::BySource(path), Output::Decoded);
    Outcome theirs = Play(Playing::ByPeer(path), Output::Decoded);
    KeepCommon(ours, theirs);
    row.Add("decoded", AllTracks(ours, theirs, SameDecoded));
}

bool Compare(const std::string& path)
{
    Row row(path);
    Outcome ours;
    bool bothPlay = false;
    CompareStored(path, row, ours, bothPlay);
    if (bothPlay) {
        CompareDecoded(path, row);
    } else {
        row.Skip(6);
    }
    return row.Print(ours);
}

} // namespace

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    bool same = true;
    std::printf("| file | streams and buffers | result | streams | payload | times | caps | duration | decoded | |\n"
                "|---|---|---|---|---|---|---|---|---|---|\n");
    for (int i = 1; i < argc; ++i) {
        same = Compare(argv[i]) && same;
    }
    return same ? EXIT_SUCCESS : EXIT_FAILURE;
}
