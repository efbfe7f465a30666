// Seeks, and what can be asked.

#include "Player.hpp"

#include <algorithm>
#include <cmath>

namespace lxavigst {

struct Player::SeekRequest {
    explicit SeekRequest(GstEvent* pEvent) : seqnum(gst_event_get_seqnum(pEvent))
    {
        gst_event_parse_seek(pEvent, &rate, &format, &flags, &startType, &start, &stopType, &stop);
        gst_event_parse_seek_trickmode_interval(pEvent, &interval);
    }

    bool Flushes() const { return (flags & GST_SEEK_FLAG_FLUSH) != 0; }
    bool IsByKeyFrames() const { return (flags & GST_SEEK_FLAG_TRICKMODE_KEY_UNITS) != 0; }
    bool IsInstant() const { return (flags & GST_SEEK_FLAG_INSTANT_RATE_CHANGE) != 0; }
    bool KeepsPlace() const { return startType == GST_SEEK_TYPE_NONE && stopType == GST_SEEK_TYPE_NONE && !Flushes(); }

    // To where delivery is.
    static SeekRequest Stay(const GstSegment& segment, guint32 seqnum)
    {
        const bool forward = segment.rate > 0;
        const auto position = static_cast<gint64>(segment.position);
        GstEvent* const pEvent = gst_event_new_seek(
            segment.rate, GST_FORMAT_TIME, static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
            forward ? GST_SEEK_TYPE_SET : GST_SEEK_TYPE_NONE, position,
            forward ? GST_SEEK_TYPE_NONE : GST_SEEK_TYPE_SET, position);
        gst_event_set_seqnum(pEvent, seqnum);
        const SeekRequest request(pEvent);
        gst_event_unref(pEvent);
        return request;
    }

    // Makes the segment that of the request. A stop that stays from an earlier request does not hold where this one starts
    // behind it, and a start that stays not where this one stops before it. False for a request that starts behind its own
    // stop.
    bool Apply(GstSegment& segment) const
    {
        const bool startIsSet = startType == GST_SEEK_TYPE_SET && start >= 0;
        const bool stopIsSet = stopType == GST_SEEK_TYPE_SET && stop >= 0;
        if (startIsSet && stopIsSet && start > stop) {
            return false;
        }
        if (startIsSet && !stopIsSet && GST_CLOCK_TIME_IS_VALID(segment.stop) &&
            static_cast<guint64>(start) > segment.stop) {
            segment.stop = GST_CLOCK_TIME_NONE;
        }
        if (stopIsSet && !startIsSet && static_cast<guint64>(stop) < segment.start) {
            segment.start = segment.position = 0;
        }
        gboolean update = FALSE;
        return rate != 0.0 && gst_segment_do_seek(&segment, rate, format, flags, startType, static_cast<guint64>(start),
                                                  stopType, static_cast<guint64>(stop), &update) != FALSE;
    }

    guint32 seqnum;
    gdouble rate = 1.0;
    GstFormat format = GST_FORMAT_TIME;
    GstSeekFlags flags = GST_SEEK_FLAG_NONE;
    GstSeekType startType = GST_SEEK_TYPE_NONE;
    gint64 start = 0;
    GstSeekType stopType = GST_SEEK_TYPE_NONE;
    gint64 stop = 0;
    GstClockTime interval = 0; // by key frames: the least time between two
};

namespace {

// By key frames: so many pictures for a second of playing, at most.
constexpr GstClockTime kPictureTime = GST_SECOND / 25;
constexpr gdouble kLargestSpeed = 1e6; // faster ones show as much

UInt32 RoundingOf(GstSeekFlags flags)
{
    const bool before = (flags & GST_SEEK_FLAG_SNAP_BEFORE) != 0;
    const bool after = (flags & GST_SEEK_FLAG_SNAP_AFTER) != 0;
    if ((flags & GST_SEEK_FLAG_KEY_UNIT) == 0 || !after) {
        return lxAviRead_SetPosRoundDown;
    }
    return before ? lxAviRead_SetPosRoundNearest : lxAviRead_SetPosRoundUp;
}

// Frames per second of a pad; false where it has none.
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
    const SeekRequest request(pEvent);
    if (request.IsInstant()) {
        return ChangeRate(request);
    }
    // Another seek may wait until a sink takes a buffer; the flush ends that.
    const bool flushed = m_lastSeek != request.seqnum && request.Flushes() && IsPossible(request);
    if (flushed) {
        FlushPads(request.seqnum);
    }
    // Who seeks out of the task or out of a seek, in answer to a buffer or a message, has its locks already.
    std::unique_lock<std::mutex> requests(m_requests, std::defer_lock);
    const bool inside = IsInside();
    if (!inside) {
        requests.lock();
        m_seekThread = std::this_thread::get_id();
    }
    // a pipeline sends a seek to each of its sinks, and each of them sends it here
    if (flushed || m_lastSeek != request.seqnum) {
        m_lastSeekIsDone = Obey(request, flushed);
        m_lastSeek = request.seqnum;
    }
    if (!inside) {
        m_seekThread = std::thread::id();
    }
    return m_lastSeekIsDone;
}

bool Player::Obey(const SeekRequest& request, bool flushed)
{
    return (flushed || IsPossible(request)) && Travel(request);
}

// Whether a request can be obeyed. What cannot is refused before anything is flushed.
bool Player::IsPossible(const SeekRequest& request) const
{
    const ElementLock lock(m_pElement);
    if (!m_seekable || m_stopping || request.format != GST_FORMAT_TIME || (request.rate < 0 && !m_hasKeyFrames)) {
        return false;
    }
    if (m_buildsTable && IsInside()) {
        return false; // the library cannot be called
    }
    GstSegment segment = m_segment;
    return request.IsInstant() ? request.KeepsPlace() && request.rate * segment.rate > 0 : request.Apply(segment);
}

// Ends the read and the pushes that wait.
void Player::FlushPads(guint32 seqnum)
{
    m_segmentIsSent = false;
    InterruptReads();
    PushPast(gst_event_new_flush_start(), seqnum);
}

// Pushes an event that does not wait for the task. It needs no lock but that of the element, which has the pads.
void Player::PushPast(GstEvent* pEvent, guint32 seqnum) const
{
    gst_event_set_seqnum(pEvent, seqnum);
    std::vector<GstPad*> pads;
    {
        const ElementLock lock(m_pElement);
        for (GList* pItem = m_pElement->srcpads; pItem != nullptr; pItem = pItem->next) {
            pads.push_back(GST_PAD(gst_object_ref(pItem->data)));
        }
    }
    for (GstPad* const pPad : pads) {
        gst_pad_push_event(pPad, gst_event_ref(pEvent));
        gst_object_unref(pPad);
    }
    gst_event_unref(pEvent);
}

// Holds the task, moves, and lets it go on.
bool Player::Travel(const SeekRequest& request)
{
    if (request.Flushes()) {
        FlushPads(request.seqnum);
    }
    ++m_holders;
    SetTask(GST_TASK_PAUSED);
    g_rec_mutex_lock(&m_working);
    --m_holders;
    const bool possible = ResumeReads() && IsPossible(request);
    if (possible) {
        Move(request);
    } else if (request.Flushes() && !IsStopping()) {
        Move(SeekRequest::Stay(m_segment, request.seqnum)); // another seek has made this one impossible since the flush
    }
    if (request.Flushes()) {
        m_segmentIsSent = false;
        PushToAll(gst_event_new_flush_stop(TRUE), request.seqnum);
        m_segmentIsDue = m_tagsAreDue = true;
    }
    SetTask(m_holders == 0 ? GST_TASK_STARTED : GST_TASK_PAUSED); // the last one lets it go on
    g_rec_mutex_unlock(&m_working);
    return possible;
}

bool Player::VideoHasTimes() const
{
    return m_hasKeyFrames && std::any_of(m_streams.begin(), m_streams.end(), [](const Stream& stream) {
               return stream.kind == LX_AVIREAD_STREAM_VIDEO && stream.hasTimes;
           });
}

// Makes the segment that of the request, and goes where it begins.
bool Player::Move(const SeekRequest& request)
{
    GstSegment segment = m_segment;
    if (!request.Apply(segment)) {
        return false;
    }
    ++m_moves;
    m_way = request.IsByKeyFrames() && VideoHasTimes() ? Way::KeyFrames
            : request.rate < 0                         ? Way::Backward
                                                       : Way::Forward;
    const gdouble speed = std::min(std::fabs(request.rate), kLargestSpeed);
    m_interval = std::max(request.interval, static_cast<GstClockTime>(speed * kPictureTime));
    m_seqnum = request.seqnum;
    GoTo(segment, request);
    return true;
}

void Player::GoTo(GstSegment& segment, const SeekRequest& request)
{
    // backward, what is shown last before the position comes first
    const bool forward = segment.rate > 0;
    const GstClockTime before = segment.position > 0 ? segment.position - 1 : 0;
    const UInt32 rounding = forward ? RoundingOf(request.flags) : UInt32{lxAviRead_SetPosRoundDown};
    GstClockTime landed = MoveTo({forward ? segment.position : before, rounding});
    const bool behindStop = GST_CLOCK_TIME_IS_VALID(segment.stop) && landed > segment.stop;
    if (forward && behindStop) {
        landed = MoveTo({segment.position, lxAviRead_SetPosRoundDown});
    }
    const bool snap = request.startType != GST_SEEK_TYPE_NONE && (request.flags & GST_SEEK_FLAG_KEY_UNIT) != 0;
    if (forward && snap) {
        segment.start = segment.time = segment.position = landed;
    }
    {
        const ElementLock lock(m_pElement);
        m_segment = segment;
    }
    m_segmentIsDue = true;
    BeginRange();
    BeginGroup(landed);
    m_firstGroup = true;
    if ((segment.flags & GST_SEGMENT_FLAG_SEGMENT) != 0) {
        GstMessage* const pStart = gst_message_new_segment_start(GST_OBJECT(m_pElement), GST_FORMAT_TIME,
                                                                 static_cast<gint64>(segment.position));
        gst_message_set_seqnum(pStart, m_seqnum);
        gst_element_post_message(m_pElement, pStart);
    }
}

// Where delivery begins now. Without key frames it begins at the start, and drops what ends before the target.
GstClockTime Player::MoveTo(const Target& target)
{
    m_target = target;
    m_jumpIsDue = false;
    if (m_pSession->HasTable()) {
        const bool audio = m_way != Way::KeyFrames && HasAudioAt(target.time);
        return m_pSession->Seek(target.time, target.rounding, audio ? Audio::Resumes : Audio::None);
    }
    m_pSession->Rewind();
    m_jumpIsDue = m_hasKeyFrames; // a new table was being built, and that was interrupted: it is built first
    m_skipUntil = m_jumpIsDue ? 0 : target.time;
    return target.time;
}

// Another speed in the same direction, for what is on its way already. It waits for no other seek: who hears of the event may
// seek. Sinks need the segment before it.
bool Player::ChangeRate(const SeekRequest& request)
{
    if (m_lastRateChange.exchange(request.seqnum) == request.seqnum) {
        return true; // it has come by another sink
    }
    if (!m_segmentIsSent || !IsPossible(request)) {
        m_lastRateChange = GST_SEQNUM_INVALID;
        return false;
    }
    gdouble rate = 1.0;
    {
        const ElementLock lock(m_pElement);
        rate = m_segment.rate;
    }
    PushPast(gst_event_new_instant_rate_change(request.rate / rate, static_cast<GstSegmentFlags>(request.flags)),
             request.seqnum);
    return true;
}

// ---- Queries ----

bool Player::Query(GstPad* pPad, GstQuery* pQuery) const
{
    GstSegment segment;
    bool seekable = false;
    {
        const ElementLock lock(m_pElement);
        if (!m_published) {
            return false;
        }
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
            gst_query_set_seeking(pQuery, format, FALSE, 0, -1); // the elements before this one could seek in bytes
            return true;
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
