// Compares what the elements deliver of files with what the framework's own demultiplexer delivers.
//
//   gst_compare FILE …     one line for each file, in Markdown

#include "Playing.hpp"

#include <algorithm>
#include <cstdio>
#include <set>

using namespace gsttest;

namespace {

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

// The fields of both caps that are there in one only, or differ.
std::string CapsDifference(const Track& ours, const Track& theirs)
{
    GstCaps* const pOurs = gst_caps_from_string(ours.caps.c_str());
    GstCaps* const pTheirs = gst_caps_from_string(theirs.caps.c_str());
    std::string difference;
    if (gst_caps_is_equal(pOurs, pTheirs) == FALSE) {
        difference = ours.caps + " / " + theirs.caps;
    }
    gst_caps_unref(pOurs);
    gst_caps_unref(pTheirs);
    return difference;
}

// The first difference of the times of two streams.
std::string TimeDifference(const Track& ours, const Track& theirs)
{
    for (size_t i = 0; i < std::min(ours.buffers.size(), theirs.buffers.size()); ++i) {
        const Buffer& a = ours.buffers[i];
        const Buffer& b = theirs.buffers[i];
        if (a.pts != b.pts || a.delta != b.delta) {
            gchar* const pText = g_strdup_printf("buffer %zu: PTS %" GST_TIME_FORMAT " / %" GST_TIME_FORMAT
                                                 ", DTS %" GST_TIME_FORMAT " / %" GST_TIME_FORMAT ", delta %d / %d",
                                                 i, GST_TIME_ARGS(a.pts), GST_TIME_ARGS(b.pts), GST_TIME_ARGS(a.dts),
                                                 GST_TIME_ARGS(b.dts), a.delta, b.delta);
            std::string text = pText;
            g_free(pText);
            return text;
        }
    }
    return "";
}

void Compare(const std::string& path, const Outcome& ours, const Outcome& theirs, const char* pWhat)
{
    const std::string name = path.substr(path.find_last_of('/') + 1);
    if (ours.error != theirs.error) {
        std::printf("%s | %s | error: %s / %s\n", name.c_str(), pWhat, ours.error.c_str(), theirs.error.c_str());
    }
    if (ours.duration != theirs.duration) {
        std::printf("%s | %s | duration: %.9f / %.9f\n", name.c_str(), pWhat, static_cast<double>(ours.duration) / 1e9,
                    static_cast<double>(theirs.duration) / 1e9);
    }
    std::set<std::string> names;
    for (const Track& track : ours.tracks) {
        names.insert(track.name);
    }
    for (const Track& track : theirs.tracks) {
        names.insert(track.name);
    }
    for (const std::string& pad : names) {
        const auto find = [&](const std::vector<Track>& tracks) {
            return std::find_if(tracks.begin(), tracks.end(), [&](const Track& track) { return track.name == pad; });
        };
        const auto a = find(ours.tracks);
        const auto b = find(theirs.tracks);
        if (a == ours.tracks.end() || b == theirs.tracks.end()) {
            std::printf("%s | %s | %s only in %s\n", name.c_str(), pWhat, pad.c_str(),
                        a == ours.tracks.end() ? "theirs" : "ours");
            continue;
        }
        const std::string caps = CapsDifference(*a, *b);
        const std::string times = a->buffers.size() == b->buffers.size() ? TimeDifference(*a, *b) : "";
        const bool same = a->Data() == b->Data();
        std::printf("%s | %s | %s: %zu / %zu buffers, %zu / %zu bytes, %s%s%s%s%s\n", name.c_str(), pWhat, pad.c_str(),
                    a->buffers.size(), b->buffers.size(), a->Data().size(), b->Data().size(),
                    same ? "same" : "DIFFERENT", caps.empty() ? "" : ", caps ", caps.c_str(),
                    times.empty() ? "" : ", times ", times.c_str());
    }
}

} // namespace

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    for (int i = 1; i < argc; ++i) {
        for (const Output output : {Output::AsStored, Output::Decoded}) {
            Compare(argv[i], Play(Playing::BySource(argv[i]), output), Play(Playing::ByPeer(argv[i]), output),
                    output == Output::AsStored ? "stored" : "decoded");
            std::fflush(stdout);
        }
    }
    return 0;
}
