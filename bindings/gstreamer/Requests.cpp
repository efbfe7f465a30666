// Seeks, and what can be asked.

#include "Player.hpp"

#include <algorithm>
#include <cmath>

namespace lxavigst {
namespace {

// By key frames: so many pictures for a second of playing, at most.
constexpr GstClockTime kPictureTime = GST_SECOND / 25;

struct SeekRequest {
    gdouble rate;
    GstFormat format;
    GstSeekFlags flags;
    GstSeekType startType;
    gint64 start;
    GstSeekType stopType;
    gint64 stop;
    GstClockTime interval; // by key frames: the least time between two
};

SeekRequest RequestOf(GstEvent* pEvent)
{
    SeekRequest request = {};
    gst_event_parse_seek(pEvent, &request.rate, &request.format, &request.flags, &request.startType, &request.start,
                         &request.stopType, &request.stop);
    gst_event_parse_seek_trickmode_interval(pEvent, &request.interval);
    return request;
}

// A stop that stays from an earlier request does not hold where this one starts behind it, and a start that stays not where
// this one stops before it. False for a request that starts behind its own stop.
bool MakeRangeValid(const SeekRequest& request, GstSegment& segment)
{
    const bool startIsSet = request.startType == GST_SEEK_TYPE_SET && request.start >= 0;
    const bool stopIsSet = request.stopType == GST_SEEK_TYPE_SET && request.stop >= 0;
    if (startIsSet && stopIsSet) {
        return request.start <= request.stop;
    }
    if (startIsSet && GST_CLOCK_TIME_IS_VALID(segment.stop) && static_cast<guint64>(request.start) > segment.stop) {
        segment.stop = GST_CLOCK_TIME_NONE;
    }
    if (stopIsSet && static_cast<guint64>(request.stop) < segment.start) {
        segment.start = segment.position = 0;
    }
    return true;
}

UInt32 RoundingOf(GstSeekFlags flags)
{
    const bool before = (flags & GST_SEEK_FLAG_SNAP_BEFORE) != 0;
    const bool after = (flags & GST_SEEK_FLAG_SNAP_AFTER) != 0;
    if ((flags & GST_SEEK_FLAG_KEY_UNIT) == 0 || !after) {
        return lxAviRead_SetPosRoundDown;
    }
    return before ? lxAviRead_SetPosRoundNearest : lxAviRead_SetPosRoundUp;
}

// Frames per second of a pad; 0 where it has none.
bool FrameRateOf(GstPad* pPad, gint& numerator, gint& denominator)
{
    GstCaps* const pCaps = pPad != nullptr ? gst_pad_get_current_caps(pPad) : nullptr;
    if (pCaps == nullptr) {
        return false;
    }
    const bool found =
        gst_structure_get_fraction(gst_caps_get_structure(pCaps, 0), "framerate", &numerator, &denominator) != FALSE;
    gst_caps_unref(pCaps);
    return found && numerator > 0 && denominator > 0;
}

// Between times and frames (the default format of video). Times are truncated to nanoseconds, therefore one is added.
bool ConvertTime(GstPad* pPad, GstFormat from, gint64 value, GstFormat to, gint64& result)
{
    gint numerator = 0;
    gint denominator = 1;
    if (from == to || value < 0) {
        result = value;
        return true;
    }
    if (!FrameRateOf(pPad, numerator, denominator)) {
        return false;
    }
    const auto amount = static_cast<guint64>(value);
    const auto perSecond = static_cast<guint64>(numerator);
    const auto unit = static_cast<guint64>(denominator) * GST_SECOND;
    if (from == GST_FORMAT_TIME && to == GST_FORMAT_DEFAULT) {
        result = static_cast<gint64>(gst_util_uint64_scale(amount + 1, perSecond, unit));
        return true;
    }
    if (from == GST_FORMAT_DEFAULT && to == GST_FORMAT_TIME) {
        result = static_cast<gint64>(gst_util_uint64_scale(amount, unit, perSecond));
        return true;
    }
    return false;
}

} // namespace

// ---- Seeks ----

bool Player::Seek(GstEvent* pEvent)
{
    const std::lock_guard requests(m_requests);
    const SeekRequest request = RequestOf(pEvent);
    {
        const ElementLock lock(m_pElement);
        if (!m_seekable || m_stopping || request.format != GST_FORMAT_TIME) {
            return false;
        }
    }
    // a pipeline sends a seek to each of its sinks, and each of them sends it here
    const guint32 seqnum = gst_event_get_seqnum(pEvent);
    if (m_lastSeek == seqnum) {
        return m_lastSeekIsDone;
    }
    m_lastSeek = seqnum;
    m_lastSeekIsDone = (request.flags & GST_SEEK_FLAG_INSTANT_RATE_CHANGE) != 0 ? ChangeRate(pEvent) : Travel(pEvent);
    return m_lastSeekIsDone;
}

// Holds the task, moves, and lets it go on.
bool Player::Travel(GstEvent* pEvent)
{
    const SeekRequest request = RequestOf(pEvent);
    const bool flush = (request.flags & GST_SEEK_FLAG_FLUSH) != 0;
    if (flush) {
        const ElementLock lock(m_pElement);
        m_pSession->Interrupt(true);
    }
    if (flush) {
        PushToAll(gst_event_new_flush_start(), gst_event_get_seqnum(pEvent));
    } else {
        SetTask(GST_TASK_PAUSED);
    }
    g_rec_mutex_lock(&m_working);
    Resume();
    const bool done = Move(pEvent);
    if (flush) {
        PushToAll(gst_event_new_flush_stop(TRUE), gst_event_get_seqnum(pEvent));
        m_segmentIsDue = true;
    }
    SetTask(GST_TASK_STARTED);
    g_rec_mutex_unlock(&m_working);
    return done;
}

// Lets reads work again, unless the element stops.
void Player::Resume()
{
    const ElementLock lock(m_pElement);
    if (!m_stopping) {
        m_pSession->Interrupt(false);
    }
}

// Makes the segment that of the request, and goes where it begins.
bool Player::Move(GstEvent* pEvent)
{
    const SeekRequest request = RequestOf(pEvent);
    GstSegment segment = m_segment;
    gboolean update = FALSE;
    const bool backwardWithoutTable = request.rate < 0 && !m_pSession->HasTable();
    if (backwardWithoutTable || !MakeRangeValid(request, segment) ||
        gst_segment_do_seek(&segment, request.rate, request.format, request.flags, request.startType,
                            static_cast<guint64>(request.start), request.stopType, static_cast<guint64>(request.stop),
                            &update) == FALSE) {
        return false;
    }
    const bool keyFrames = (request.flags & GST_SEEK_FLAG_TRICKMODE_KEY_UNITS) != 0 && m_pSession->HasTable();
    m_way = keyFrames ? Way::KeyFrames : request.rate < 0 ? Way::Backward : Way::Forward;
    m_interval = std::max(request.interval, static_cast<GstClockTime>(std::fabs(request.rate) * kPictureTime));
    m_seqnum = gst_event_get_seqnum(pEvent);
    GoTo(segment, request.flags, request.startType != GST_SEEK_TYPE_NONE);
    return true;
}

void Player::GoTo(GstSegment& segment, GstSeekFlags flags, bool snap)
{
    // backward, what is shown last before the position comes first
    const bool forward = segment.rate > 0;
    const GstClockTime before = segment.position > 0 ? segment.position - 1 : 0;
    m_target = {forward ? segment.position : before, forward ? RoundingOf(flags) : UInt32{lxAviRead_SetPosRoundDown}};
    const GstClockTime landed = MoveTo(m_target);
    if (forward && snap && (flags & GST_SEEK_FLAG_KEY_UNIT) != 0) {
        segment.start = segment.time = segment.position = landed;
    }
    {
        const ElementLock lock(m_pElement);
        m_segment = segment;
    }
    if ((segment.flags & GST_SEGMENT_FLAG_SEGMENT) != 0) {
        GstMessage* const pStart = gst_message_new_segment_start(GST_OBJECT(m_pElement), GST_FORMAT_TIME,
                                                                 static_cast<gint64>(segment.position));
        gst_message_set_seqnum(pStart, m_seqnum);
        gst_element_post_message(m_pElement, pStart);
    }
    m_segmentIsDue = true;
    BeginRange();
    if (m_way == Way::Backward) {
        BeginGroup(landed);
    }
}

// Where delivery begins now. Without key frames it begins at the start, and drops what ends before the target.
GstClockTime Player::MoveTo(const Target& target)
{
    if (!m_pSession->HasTable()) {
        m_pSession->Rewind();
        m_skipUntil = target.time;
        return target.time;
    }
    return m_pSession->Seek(target.time, target.rounding, m_way == Way::KeyFrames ? Audio::None : Audio::Resumes);
}

// Another speed in the same direction, for what is on its way already.
bool Player::ChangeRate(GstEvent* pEvent)
{
    const SeekRequest request = RequestOf(pEvent);
    const bool sameDirection = request.rate * m_segment.rate > 0;
    const bool stays = request.startType == GST_SEEK_TYPE_NONE && request.stopType == GST_SEEK_TYPE_NONE &&
                       (request.flags & GST_SEEK_FLAG_FLUSH) == 0;
    if (!sameDirection || !stays) {
        return false;
    }
    PushToAll(
        gst_event_new_instant_rate_change(request.rate / m_segment.rate, static_cast<GstSegmentFlags>(request.flags)),
        gst_event_get_seqnum(pEvent));
    return true;
}

// ---- Queries ----

bool Player::Query(GstPad* pPad, GstQuery* pQuery) const
{
    GstSegment segment;
    bool seekable = false;
    {
        const ElementLock lock(m_pElement);
        segment = m_segment;
        seekable = m_seekable;
    }
    GstFormat format = GST_FORMAT_UNDEFINED;
    gint64 result = 0;
    switch (GST_QUERY_TYPE(pQuery)) {
    case GST_QUERY_POSITION: {
        gst_query_parse_position(pQuery, &format, nullptr);
        const guint64 position = gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, segment.position);
        if (!ConvertTime(pPad, GST_FORMAT_TIME, static_cast<gint64>(position), format, result)) {
            return false;
        }
        gst_query_set_position(pQuery, format, result);
        return true;
    }
    case GST_QUERY_DURATION:
        gst_query_parse_duration(pQuery, &format, nullptr);
        if (!GST_CLOCK_TIME_IS_VALID(segment.duration) ||
            !ConvertTime(pPad, GST_FORMAT_TIME, static_cast<gint64>(segment.duration), format, result)) {
            return false;
        }
        gst_query_set_duration(pQuery, format, result);
        return true;
    case GST_QUERY_SEEKING:
        gst_query_parse_seeking(pQuery, &format, nullptr, nullptr, nullptr);
        if (format != GST_FORMAT_TIME) {
            return false;
        }
        gst_query_set_seeking(pQuery, format, seekable ? TRUE : FALSE, 0, static_cast<gint64>(segment.duration));
        return true;
    case GST_QUERY_FORMATS: gst_query_set_formats(pQuery, 2, GST_FORMAT_TIME, GST_FORMAT_DEFAULT); return true;
    case GST_QUERY_CONVERT: {
        GstFormat to = GST_FORMAT_UNDEFINED;
        gint64 value = 0;
        gst_query_parse_convert(pQuery, &format, &value, &to, nullptr);
        if (!ConvertTime(pPad, format, value, to, result)) {
            return false;
        }
        gst_query_set_convert(pQuery, format, value, to, result);
        return true;
    }
    case GST_QUERY_SEGMENT: {
        const guint64 start = gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, segment.start);
        const guint64 end = GST_CLOCK_TIME_IS_VALID(segment.stop) ? segment.stop : segment.duration;
        const guint64 stop = gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, end);
        gst_query_set_segment(pQuery, segment.rate, GST_FORMAT_TIME, static_cast<gint64>(start),
                              static_cast<gint64>(stop));
        return true;
    }
    case GST_QUERY_LATENCY: gst_query_set_latency(pQuery, FALSE, 0, GST_CLOCK_TIME_NONE); return true;
    default: return false;
    }
}

} // namespace lxavigst
