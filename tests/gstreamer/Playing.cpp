#include "Playing.hpp"

#include <algorithm>
#include <stdexcept>

namespace gsttest {
namespace {

std::string Quoted(const std::string& path)
{
    std::string quoted = "\"";
    for (const char c : path) {
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return quoted + "\"";
}

std::string TextOf(gchar* pText)
{
    std::string text = pText != nullptr ? pText : "";
    g_free(pText);
    return text;
}

} // namespace

std::string Track::Data() const
{
    std::string data;
    for (const Buffer& buffer : buffers) {
        data += buffer.data;
    }
    return data;
}

std::string Playing::BySource(const std::string& path) { return "lxavisrc name=streams location=" + Quoted(path); }

std::string Playing::ByDemux(const std::string& path)
{
    return "filesrc location=" + Quoted(path) + " ! lxavidemux name=streams";
}

std::string Playing::ByPeer(const std::string& path)
{
    return "filesrc location=" + Quoted(path) + " ! avidemux name=streams";
}

Playing::Playing(const std::string& source, Output output) : m_output(output)
{
    GError* pError = nullptr;
    GstElement* const pPart = gst_parse_launch(source.c_str(), &pError);
    if (pPart == nullptr || pError != nullptr) {
        throw std::runtime_error(pError->message);
    }
    m_pPipeline = GST_IS_PIPELINE(pPart) ? pPart : gst_pipeline_new(nullptr);
    if (m_pPipeline != pPart) { // a single element
        gst_bin_add(GST_BIN(m_pPipeline), pPart);
    }
    m_pStreams = gst_bin_get_by_name(GST_BIN(m_pPipeline), "streams");
    g_signal_connect(m_pStreams, "pad-added", G_CALLBACK(OnPadAdded), this);
    g_signal_connect(m_pStreams, "pad-removed", G_CALLBACK(OnPadRemoved), this);
    g_signal_connect(m_pStreams, "no-more-pads", G_CALLBACK(OnNoMorePads), this);
}

void Playing::End()
{
    m_keepTracks = true;
    gst_element_set_state(m_pPipeline, GST_STATE_NULL);
}

Playing::~Playing()
{
    End();
    gst_object_unref(m_pStreams);
    gst_object_unref(m_pPipeline);
}

// ---- Pads ----

void Playing::OnPadAdded(GstElement* /*pElement*/, GstPad* pPad, gpointer pPlaying)
{
    static_cast<Playing*>(pPlaying)->Add(pPad);
}

void Playing::OnPadRemoved(GstElement* /*pElement*/, GstPad* pPad, gpointer pPlaying)
{
    static_cast<Playing*>(pPlaying)->Remove(pPad);
}

void Playing::Remove(GstPad* pPad)
{
    m_allPadsAreThere = false;
    std::unique_ptr<Sink> pSink;
    {
        const std::lock_guard lock(m_mutex);
        const auto found = std::find_if(m_sinks.begin(), m_sinks.end(), [&](const auto& p) { return p->pPad == pPad; });
        if (found == m_sinks.end() || m_keepTracks) {
            return;
        }
        pSink = std::move(*found);
        m_sinks.erase(found);
    }
    gst_element_set_state(pSink->pBin, GST_STATE_NULL);
    gst_bin_remove(GST_BIN(m_pPipeline), pSink->pBin);
}

void Playing::OnNoMorePads(GstElement* /*pElement*/, gpointer pPlaying)
{
    static_cast<Playing*>(pPlaying)->m_allPadsAreThere = true;
}

void Playing::Add(GstPad* pPad)
{
    const std::string middle = m_output == Output::Decoded ? "decodebin ! " : "";
    const std::string description = "queue name=entry max-size-buffers=0 max-size-bytes=0 max-size-time=0 ! " + middle +
                                    "appsink name=sink sync=false drop=true max-buffers=1 wait-on-eos=false";
    GstElement* const pBin = gst_parse_bin_from_description(description.c_str(), FALSE, nullptr);
    GstElement* const pElement = gst_bin_get_by_name(GST_BIN(pBin), "sink");
    GstElement* const pQueue = gst_bin_get_by_name(GST_BIN(pBin), "entry");
    GstPad* const pSinkPad = gst_element_get_static_pad(pElement, "sink");
    GstPad* const pEntry = gst_element_get_static_pad(pQueue, "sink");
    gst_element_add_pad(pBin, gst_ghost_pad_new("sink", pEntry));
    gst_object_unref(pEntry);
    gst_object_unref(pQueue);
    auto pSink = std::make_unique<Sink>();
    pSink->pOwner = this;
    pSink->pPad = pPad;
    pSink->pBin = pBin;
    pSink->track.name = TextOf(gst_pad_get_name(pPad));
    gst_pad_add_probe(pSinkPad,
                      static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM |
                                                   GST_PAD_PROBE_TYPE_EVENT_FLUSH),
                      OnData, pSink.get(), nullptr);
    gst_object_unref(pSinkPad);
    gst_object_unref(pElement);
    {
        const std::lock_guard lock(m_mutex);
        m_sinks.push_back(std::move(pSink));
    }
    gst_bin_add(GST_BIN(m_pPipeline), pBin);
    gst_element_sync_state_with_parent(pBin);
    GstPad* const pGhost = gst_element_get_static_pad(pBin, "sink");
    gst_pad_link(pPad, pGhost);
    gst_object_unref(pGhost);
}

GstPadProbeReturn Playing::OnData(GstPad* /*pPad*/, GstPadProbeInfo* pInfo, gpointer pSink)
{
    Sink& sink = *static_cast<Sink*>(pSink);
    const std::lock_guard lock(sink.pOwner->m_mutex);
    if ((GST_PAD_PROBE_INFO_TYPE(pInfo) & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
        sink.pOwner->Note(sink, GST_PAD_PROBE_INFO_BUFFER(pInfo));
    } else {
        sink.pOwner->Note(sink, GST_PAD_PROBE_INFO_EVENT(pInfo));
    }
    return GST_PAD_PROBE_OK;
}

void Playing::Note(Sink& sink, GstBuffer* pBuffer) const
{
    GstMapInfo map;
    gst_buffer_map(pBuffer, &map, GST_MAP_READ);
    sink.track.buffers.push_back({GST_BUFFER_PTS(pBuffer), GST_BUFFER_DTS(pBuffer), GST_BUFFER_DURATION(pBuffer),
                                  GST_BUFFER_OFFSET(pBuffer),
                                  GST_BUFFER_FLAG_IS_SET(pBuffer, GST_BUFFER_FLAG_DELTA_UNIT),
                                  GST_BUFFER_FLAG_IS_SET(pBuffer, GST_BUFFER_FLAG_DISCONT),
                                  std::string(reinterpret_cast<const char*>(map.data), map.size)});
    gst_buffer_unmap(pBuffer, &map);
}

void Playing::Note(Sink& sink, GstEvent* pEvent) const
{
    Track& track = sink.track;
    switch (GST_EVENT_TYPE(pEvent)) {
    case GST_EVENT_CAPS: {
        GstCaps* pCaps = nullptr;
        gst_event_parse_caps(pEvent, &pCaps);
        track.caps = TextOf(gst_caps_to_string(pCaps));
        break;
    }
    case GST_EVENT_STREAM_START: {
        const gchar* pId = nullptr;
        gst_event_parse_stream_start(pEvent, &pId);
        track.streamId = pId;
        break;
    }
    case GST_EVENT_TAG: {
        GstTagList* pTags = nullptr;
        gst_event_parse_tag(pEvent, &pTags);
        track.tags.push_back(TextOf(gst_tag_list_to_string(pTags)));
        break;
    }
    case GST_EVENT_SEGMENT: {
        GstSegment segment;
        gst_event_copy_segment(pEvent, &segment);
        track.segments.push_back(segment);
        break;
    }
    case GST_EVENT_GAP: {
        Gap gap = {};
        gst_event_parse_gap(pEvent, &gap.start, &gap.duration);
        track.gaps.push_back(gap);
        break;
    }
    case GST_EVENT_EOS: track.eos = true; break;
    case GST_EVENT_SEGMENT_DONE: track.segmentDone = true; break;
    case GST_EVENT_FLUSH_STOP:
        track.buffers.clear();
        track.gaps.clear();
        track.segments.clear();
        track.eos = track.segmentDone = false;
        break;
    default: break;
    }
}

// ---- States and messages ----

void Playing::Hear(GstMessage* pMessage)
{
    GError* pError = nullptr;
    if (GST_MESSAGE_TYPE(pMessage) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(pMessage, &pError, nullptr);
        m_error = m_error.empty() ? pError->message : m_error;
    } else if (GST_MESSAGE_TYPE(pMessage) == GST_MESSAGE_WARNING) {
        gst_message_parse_warning(pMessage, &pError, nullptr);
        m_warnings.emplace_back(pError->message);
    } else if (GST_MESSAGE_TYPE(pMessage) == GST_MESSAGE_PROGRESS) {
        gchar* pText = nullptr;
        gst_message_parse_progress(pMessage, nullptr, nullptr, &pText);
        m_progress.push_back(TextOf(pText));
    }
    g_clear_error(&pError);
}

GstMessage* Playing::Wait(GstMessageType types, GstClockTime timeout)
{
    GstBus* const pBus = gst_element_get_bus(m_pPipeline);
    const auto noted = GST_MESSAGE_ERROR | GST_MESSAGE_WARNING | GST_MESSAGE_PROGRESS;
    GstMessage* pFound = nullptr;
    const gint64 end = g_get_monotonic_time() + static_cast<gint64>(timeout / 1000);
    while (pFound == nullptr) {
        const gint64 left = end - g_get_monotonic_time();
        GstMessage* const pMessage =
            gst_bus_timed_pop_filtered(pBus, static_cast<GstClockTime>(std::max<gint64>(left, 0)) * 1000,
                                       static_cast<GstMessageType>(types | noted));
        if (pMessage == nullptr) {
            break;
        }
        Hear(pMessage);
        if ((GST_MESSAGE_TYPE(pMessage) & (types | GST_MESSAGE_ERROR)) != 0) {
            pFound = pMessage;
        } else {
            gst_message_unref(pMessage);
        }
    }
    gst_object_unref(pBus);
    return pFound;
}

bool Playing::Reach(GstState state, GstClockTime timeout)
{
    const GstStateChangeReturn change = gst_element_set_state(m_pPipeline, state);
    if (change == GST_STATE_CHANGE_FAILURE) {
        if (GstMessage* const pMessage = Wait(GST_MESSAGE_ERROR, 0)) {
            gst_message_unref(pMessage);
        }
        return false;
    }
    if (state < GST_STATE_PAUSED) {
        return true;
    }
    // the sinks come with the pads, so that the pipeline has nothing to wait for before
    const gint64 end = g_get_monotonic_time() + static_cast<gint64>(timeout / 1000);
    while (!m_allPadsAreThere && m_error.empty() && g_get_monotonic_time() < end) {
        if (GstMessage* const pMessage = Wait(GST_MESSAGE_ERROR, GST_MSECOND)) {
            gst_message_unref(pMessage);
        }
    }
    if (GstMessage* const pMessage = Wait(GST_MESSAGE_ERROR, 0)) { // hears what is left
        gst_message_unref(pMessage);
    }
    return m_allPadsAreThere &&
           gst_element_get_state(m_pPipeline, nullptr, nullptr, timeout) == GST_STATE_CHANGE_SUCCESS;
}

bool Playing::PlayToTheEnd(GstClockTime timeout)
{
    gst_element_set_state(m_pPipeline, GST_STATE_PLAYING);
    GstMessage* const pMessage = Wait(static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_SEGMENT_DONE), timeout);
    const bool done = pMessage != nullptr;
    if (done) {
        gst_message_unref(pMessage);
    }
    return done;
}

bool Playing::SeekTo(gdouble rate, int flags, gint64 start, gint64 stop)
{
    const GstSeekType stopType = stop >= 0 ? GST_SEEK_TYPE_SET : GST_SEEK_TYPE_NONE;
    if (gst_element_seek(m_pPipeline, rate, GST_FORMAT_TIME, static_cast<GstSeekFlags>(flags), GST_SEEK_TYPE_SET, start,
                         stopType, stop) == FALSE) {
        return false;
    }
    return gst_element_get_state(m_pPipeline, nullptr, nullptr, 20 * GST_SECOND) == GST_STATE_CHANGE_SUCCESS;
}

// ---- Results ----

std::vector<Track> Playing::Tracks() const
{
    const std::lock_guard lock(m_mutex);
    std::vector<Track> tracks;
    for (const auto& pSink : m_sinks) {
        tracks.push_back(pSink->track);
    }
    std::sort(tracks.begin(), tracks.end(), [](const Track& a, const Track& b) { return a.name < b.name; });
    return tracks;
}

std::optional<Track> Playing::First(const char* kind) const
{
    for (const Track& track : Tracks()) {
        if (track.name.rfind(kind, 0) == 0) {
            return track;
        }
    }
    return {};
}

gint64 Playing::Duration()
{
    gint64 duration = -1;
    gst_element_query_duration(m_pPipeline, GST_FORMAT_TIME, &duration);
    return duration;
}

gint64 Playing::Position()
{
    gint64 position = -1;
    gst_element_query_position(m_pPipeline, GST_FORMAT_TIME, &position);
    return position;
}

} // namespace gsttest
