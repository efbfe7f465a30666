// The GStreamer elements beside the framework's own demultiplexer: the time to the first buffer, all buffers of a film, and
// seeks. The sinks drop what they get.
//
//   gst_bench FILE [options of the benchmark library]

#include <benchmark/benchmark.h>

#include <gst/gst.h>

#include <condition_variable>
#include <mutex>
#include <random>
#include <string>

namespace {

std::string s_file;

struct Contender {
    const char* pName;
    const char* pElements; // behind the location
};

const Contender kContenders[] = {
    {"lxavisrc", "lxavisrc name=streams location="},
    {"lxavidemux", " ! lxavidemux name=streams"},
    {"avidemux", " ! avidemux name=streams"},
};

std::string Describe(const Contender& contender)
{
    const std::string elements = contender.pElements;
    return elements.back() == '=' ? elements + s_file : "filesrc location=" + s_file + elements;
}

// A pipeline whose streams end in sinks that drop all.
class Player {
public:
    explicit Player(const Contender& contender)
    {
        GstElement* const pPart = gst_parse_launch(Describe(contender).c_str(), nullptr);
        m_pPipeline = GST_IS_PIPELINE(pPart) ? pPart : gst_pipeline_new(nullptr);
        if (m_pPipeline != pPart) {
            gst_bin_add(GST_BIN(m_pPipeline), pPart);
        }
        m_pStreams = gst_bin_get_by_name(GST_BIN(m_pPipeline), "streams");
        g_signal_connect(m_pStreams, "pad-added", G_CALLBACK(OnPadAdded), this);
        gst_element_set_state(m_pPipeline, GST_STATE_PLAYING);
    }

    ~Player()
    {
        gst_element_set_state(m_pPipeline, GST_STATE_NULL);
        gst_object_unref(m_pStreams);
        gst_object_unref(m_pPipeline);
    }

    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Waits for a buffer of video that came behind the last flush.
    void AwaitFrame()
    {
        std::unique_lock lock(m_mutex);
        m_arrived.wait(lock, [this] { return m_frames > 0; });
    }

    void AwaitEnd()
    {
        GstBus* const pBus = gst_element_get_bus(m_pPipeline);
        gst_message_unref(gst_bus_timed_pop_filtered(pBus, GST_CLOCK_TIME_NONE,
                                                     static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
        gst_object_unref(pBus);
    }

    void SeekTo(gint64 time)
    {
        gst_element_seek_simple(m_pStreams, GST_FORMAT_TIME,
                                static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT), time);
    }

    gint64 Duration() const
    {
        gint64 duration = 0;
        gst_element_query_duration(m_pStreams, GST_FORMAT_TIME, &duration);
        return duration;
    }

    guint64 Buffers() const { return m_buffers; }

private:
    static void OnPadAdded(GstElement* /*pElement*/, GstPad* pPad, gpointer pPlayer)
    {
        Player& player = *static_cast<Player*>(pPlayer);
        GstElement* const pSink = gst_element_factory_make("fakesink", nullptr);
        g_object_set(pSink, "sync", FALSE, "async", FALSE, nullptr);
        gst_bin_add(GST_BIN(player.m_pPipeline), pSink);
        gst_element_sync_state_with_parent(pSink);
        GstPad* const pSinkPad = gst_element_get_static_pad(pSink, "sink");
        const bool video = g_str_has_prefix(GST_PAD_NAME(pPad), "video") != FALSE;
        gst_pad_add_probe(pSinkPad,
                          static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_FLUSH),
                          video ? OnVideo : OnOther, pPlayer, nullptr);
        gst_pad_link(pPad, pSinkPad);
        gst_object_unref(pSinkPad);
    }

    static GstPadProbeReturn OnVideo(GstPad* pPad, GstPadProbeInfo* pInfo, gpointer pPlayer)
    {
        Player& player = *static_cast<Player*>(pPlayer);
        const std::lock_guard lock(player.m_mutex);
        const bool buffer = (GST_PAD_PROBE_INFO_TYPE(pInfo) & GST_PAD_PROBE_TYPE_BUFFER) != 0;
        player.m_frames = buffer ? player.m_frames + 1 : 0;
        player.m_arrived.notify_one();
        return OnOther(pPad, pInfo, pPlayer);
    }

    static GstPadProbeReturn OnOther(GstPad* /*pPad*/, GstPadProbeInfo* pInfo, gpointer pPlayer)
    {
        const bool buffer = (GST_PAD_PROBE_INFO_TYPE(pInfo) & GST_PAD_PROBE_TYPE_BUFFER) != 0;
        static_cast<Player*>(pPlayer)->m_buffers += buffer ? 1 : 0;
        return GST_PAD_PROBE_OK;
    }

    GstElement* m_pPipeline;
    GstElement* m_pStreams;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    guint64 m_frames = 0;  // of video, behind the last flush
    guint64 m_buffers = 0; // of all streams; the one task that feeds them counts
};

void FirstBuffer(benchmark::State& state, const Contender& contender)
{
    for (auto _ : state) {
        Player player(contender);
        player.AwaitFrame();
    }
}

void WholeFilm(benchmark::State& state, const Contender& contender)
{
    guint64 buffers = 0;
    for (auto _ : state) {
        Player player(contender);
        player.AwaitEnd();
        buffers += player.Buffers();
    }
    state.SetItemsProcessed(static_cast<int64_t>(buffers));
}

void Seek(benchmark::State& state, const Contender& contender)
{
    Player player(contender);
    player.AwaitFrame();
    const gint64 duration = player.Duration();
    std::mt19937_64 random(1);
    for (auto _ : state) {
        player.SeekTo(static_cast<gint64>(random() % static_cast<guint64>(duration)));
        player.AwaitFrame();
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    if (argc < 2 || argv[1][0] == '-') {
        std::fprintf(stderr, "usage: gst_bench FILE [options]\n");
        return 2;
    }
    s_file = argv[1];
    for (const Contender& contender : kContenders) {
        const std::string name = contender.pName;
        benchmark::RegisterBenchmark(("first buffer/" + name).c_str(), FirstBuffer, contender)->UseRealTime();
        benchmark::RegisterBenchmark(("whole film/" + name).c_str(), WholeFilm, contender)->UseRealTime();
        benchmark::RegisterBenchmark(("seek/" + name).c_str(), Seek, contender)->UseRealTime();
    }
    --argc;
    ++argv;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
