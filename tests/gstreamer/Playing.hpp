// A pipeline for tests: the streams of a file, each into a queue and an appsink, and what came out of them.

#pragma once

#include <gst/gst.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace gsttest {

struct Buffer {
    GstClockTime pts;
    GstClockTime dts;
    GstClockTime duration;
    guint64 offset;
    bool delta;
    bool discont;
    std::string data;

    GstClockTime Time() const { return GST_CLOCK_TIME_IS_VALID(pts) ? pts : dts; }
};

struct Gap {
    GstClockTime start;
    GstClockTime duration;
};

// What a stream has brought since the last flush.
struct Track {
    std::string name; // of the pad
    std::string caps;
    std::string streamId;
    std::vector<Buffer> buffers;
    std::vector<Gap> gaps;
    std::vector<GstSegment> segments;
    std::vector<std::string> tags;
    bool eos = false;
    bool segmentDone = false;

    // All payloads in one piece.
    std::string Data() const;
    bool IsVideo() const { return name.rfind("video", 0) == 0; }
    bool IsAudio() const { return name.rfind("audio", 0) == 0; }
};

// How the streams are treated.
enum class Output { AsStored, Decoded };

class Playing {
public:
    // `source` is the description of the elements up to the one that has the streams, which is named "streams".
    explicit Playing(const std::string& source, Output output = Output::AsStored);
    ~Playing();
    Playing(const Playing&) = delete;
    Playing& operator=(const Playing&) = delete;

    static std::string BySource(const std::string& path);
    static std::string ByDemux(const std::string& path);
    static std::string ByPeer(const std::string& path);

    GstElement* Pipeline() { return m_pPipeline; }
    GstElement* Streams() { return m_pStreams; }

    // Changes the state and waits until it is reached. False when that fails or takes too long.
    bool Reach(GstState state, GstClockTime timeout = 20 * GST_SECOND);
    // Plays to the end of all streams, of the segment, or to an error. False when that takes too long.
    bool PlayToTheEnd(GstClockTime timeout = 60 * GST_SECOND);
    // The next message of these types, or null.
    GstMessage* Wait(GstMessageType types, GstClockTime timeout = 20 * GST_SECOND);
    // Ends everything; what the streams have brought stays.
    void End();
    // A flushing seek in the state PAUSED, and the wait for the data from there.
    bool SeekTo(gdouble rate, int flags, gint64 start, gint64 stop);

    // The text of the last error, and of warnings; empty if there was none.
    const std::string& Error() const { return m_error; }
    const std::vector<std::string>& Warnings() const { return m_warnings; }
    const std::vector<std::string>& ProgressTexts() const { return m_progress; }

    std::vector<Track> Tracks() const;                  // a copy, in the order of the names
    std::optional<Track> First(const char* kind) const; // the first one whose name begins so
    gint64 Duration();
    gint64 Position();

private:
    struct Sink {
        Playing* pOwner;
        GstPad* pPad;
        GstElement* pBin;
        Track track;
    };

    static void OnPadAdded(GstElement* pElement, GstPad* pPad, gpointer pPlaying);
    static void OnPadRemoved(GstElement* pElement, GstPad* pPad, gpointer pPlaying);
    static void OnNoMorePads(GstElement* pElement, gpointer pPlaying);
    static GstPadProbeReturn OnData(GstPad* pPad, GstPadProbeInfo* pInfo, gpointer pSink);
    void Add(GstPad* pPad);
    void Remove(GstPad* pPad);
    void Note(Sink& sink, GstBuffer* pBuffer) const;
    void Note(Sink& sink, GstEvent* pEvent) const;
    void Hear(GstMessage* pMessage);

    Output m_output;
    GstElement* m_pPipeline;
    GstElement* m_pStreams;
    std::atomic<bool> m_allPadsAreThere{false};
    std::atomic<bool> m_keepTracks{false}; // while everything ends
    std::string m_error;
    std::vector<std::string> m_warnings;
    std::vector<std::string> m_progress;
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<Sink>> m_sinks;
};

} // namespace gsttest
