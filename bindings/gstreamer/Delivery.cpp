// From chunk to buffer: which chunks belong to what is played, their times and flags, and what follows the last one.
//
//   forward       all chunks up to the stop; video goes on for some frames, because those shown before the stop may be
//                 stored behind it
//   backward      the key frame before the stop and all up to the stop; then the key frame before that one and all up to
//                 it, and so on. Each group begins with DISCONT, and decoders turn it around.
//   key frames    one key frame, a step, the next key frame

#include "Player.hpp"

#include <algorithm>
#include <cstring>

namespace lxavigst {
namespace {

// A stream without data is told so when it is behind the others by this much.
constexpr GstClockTime kLargestLag = 500 * GST_MSECOND;
// Backward: how far the chunks of a time may stand apart in the file. What comes later does not belong to the group.
constexpr GstClockTime kLargestInterleave = 5 * GST_SECOND;
// Frames that may be stored before one that is shown earlier, at most.
constexpr guint64 kReorderedFrames = 16;

// Whether a stream has data for every time, which the headers tell. A subtitle appears now and then.
bool IsContinuous(const Stream& stream) { return stream.hasTimes; }

// ---- Conversions of uncompressed data ----

void TurnRows(GstBuffer* pBuffer, guint rowBytes)
{
    GstMapInfo map;
    gst_buffer_map(pBuffer, &map, GST_MAP_READWRITE);
    guint8* pUpper = map.data;
    guint8* pLower = map.data + (map.size / rowBytes) * rowBytes;
    while (pUpper + rowBytes < pLower) {
        pLower -= rowBytes;
        std::swap_ranges(pUpper, pUpper + rowBytes, pLower);
        pUpper += rowBytes;
    }
    gst_buffer_unmap(pBuffer, &map);
}

void MoveChannels(GstBuffer* pBuffer, const Conversion& conversion)
{
    const size_t channels = conversion.channelPlaces.size();
    const size_t bytes = conversion.sampleBytes / channels; // of one channel
    std::vector<guint8> sample(conversion.sampleBytes);
    GstMapInfo map;
    gst_buffer_map(pBuffer, &map, GST_MAP_READWRITE);
    for (gsize at = 0; at + conversion.sampleBytes <= map.size; at += conversion.sampleBytes) {
        std::memcpy(sample.data(), map.data + at, conversion.sampleBytes);
        for (size_t i = 0; i < channels; ++i) {
            std::memcpy(map.data + at + conversion.channelPlaces[i] * bytes, sample.data() + i * bytes, bytes);
        }
    }
    gst_buffer_unmap(pBuffer, &map);
}

void Convert(GstBuffer* pBuffer, const Conversion& conversion)
{
    if (conversion.rowBytes > 0) {
        TurnRows(pBuffer, conversion.rowBytes);
    }
    if (!conversion.channelPlaces.empty()) {
        MoveChannels(pBuffer, conversion);
    }
}

// Leaves the samples that play between two times, those that play at these times included. Null when none is left. Takes
// the buffer.
GstBuffer* CutSamples(GstBuffer* pBuffer, const Conversion& conversion, const Span& span, const Span& range)
{
    const guint64 samples = gst_buffer_get_size(pBuffer) / conversion.sampleBytes;
    const guint64 first =
        range.start > span.start ? gst_util_uint64_scale(range.start - span.start, conversion.rate, GST_SECOND) : 0;
    const bool goesOn = GST_CLOCK_TIME_IS_VALID(range.end) && range.end < span.end;
    const guint64 behind =
        goesOn ? gst_util_uint64_scale_ceil(range.end - span.start, conversion.rate, GST_SECOND) : samples;
    if (first >= std::min(behind, samples)) {
        gst_buffer_unref(pBuffer);
        return nullptr;
    }
    const guint64 count = std::min(behind, samples) - first;
    if (count < samples) {
        GST_BUFFER_PTS(pBuffer) += gst_util_uint64_scale(first, GST_SECOND, conversion.rate);
        GST_BUFFER_DTS(pBuffer) = GST_BUFFER_PTS(pBuffer);
        GST_BUFFER_DURATION(pBuffer) = gst_util_uint64_scale(count, GST_SECOND, conversion.rate);
        gst_buffer_resize(pBuffer, static_cast<gssize>(first * conversion.sampleBytes),
                          static_cast<gssize>(count * conversion.sampleBytes));
    }
    return pBuffer;
}

// ---- Frames ----

// Whether decoding can begin at a frame. A table that was thinned does not name every key frame, but the bytes tell. Of a
// codec that nobody knows, and without a table, it may be any frame.
bool IsKeyFrame(const lxAviRead_ChunkData_t& chunk, GstBuffer* pBuffer, bool tableIsThere)
{
    if (chunk.bKeyFrame != 0) {
        return true;
    }
    GstMapInfo map;
    gst_buffer_map(pBuffer, &map, GST_MAP_READ);
    const UInt32 kind = lxAviReadCore_GetFrameKind(chunk.uiStreamNr, map.data, static_cast<UInt32>(map.size));
    gst_buffer_unmap(pBuffer, &map);
    return kind == LX_AVIREAD_FRAME_KEY || (kind == LX_AVIREAD_FRAME_UNKNOWN && !tableIsThere);
}

} // namespace

// ---- Ranges and groups ----

// Delivery has moved, or begins.
void Player::BeginRange()
{
    gst_flow_combiner_reset(m_pFlows);
    for (Stream& stream : m_streams) {
        stream.discontinuous = stream.fresh = true;
        stream.ended = false;
        stream.position = m_segment.position;
        stream.groupEnd = GST_CLOCK_TIME_IS_VALID(m_segment.stop) ? m_segment.stop : m_segment.duration;
    }
}

void Player::BeginGroup(GstClockTime start)
{
    m_groupStart = start;
    m_latest = start;
    for (Stream& stream : m_streams) {
        stream.discontinuous = true;
        stream.ended = false;
        stream.position = start;
        stream.groupFrom = GST_CLOCK_TIME_NONE;
    }
}

// Whether audio is still to come at a time. Where it has ended, a jump to it would lead far back.
bool Player::HasAudioAt(GstClockTime time) const
{
    return std::any_of(m_streams.begin(), m_streams.end(), [&](const Stream& stream) {
        return stream.kind == LX_AVIREAD_STREAM_AUDIO && !(stream.endIsCounted && stream.end <= time);
    });
}

// Goes to the group before the one that was delivered.
GstFlowReturn Player::NextGroup()
{
    m_firstGroup = false;
    for (Stream& stream : m_streams) {
        FillGroup(stream);
        const GstClockTime from = GST_CLOCK_TIME_IS_VALID(stream.groupFrom) ? stream.groupFrom : m_groupStart;
        stream.groupEnd = std::min(stream.groupEnd, from);
    }
    NotePosition(std::max(m_groupStart, m_segment.start));
    if (m_groupStart <= m_segment.start) {
        return GST_FLOW_EOS;
    }
    const GstClockTime start =
        m_pSession->GoToPreviousKeyFrame(HasAudioAt(m_groupStart) ? Audio::Resumes : Audio::None);
    if (!GST_CLOCK_TIME_IS_VALID(start)) {
        return GST_FLOW_EOS;
    }
    m_target = {start, lxAviRead_SetPosRoundDown};
    BeginGroup(start);
    return GST_FLOW_OK;
}

// Goes to the key frame that is to be shown behind the one that was, or that could not be.
GstFlowReturn Player::NextKeyFrame()
{
    const bool forward = m_segment.rate > 0;
    const GstClockTime shown = m_groupStart;
    GstClockTime next = shown;
    do {
        next = m_pSession->StepKeyFrame(forward);
    } while (GST_CLOCK_TIME_IS_VALID(next) && (forward ? next - shown : shown - next) < m_interval);
    const bool inside =
        forward ? !GST_CLOCK_TIME_IS_VALID(m_segment.stop) || next < m_segment.stop : next >= m_segment.start;
    if (!GST_CLOCK_TIME_IS_VALID(next) || !inside) {
        return GST_FLOW_EOS;
    }
    m_target = {next, lxAviRead_SetPosRoundDown};
    m_groupStart = next;
    return GST_FLOW_OK;
}

// ---- The next chunk ----

GstFlowReturn Player::DeliverNext()
{
    lxAviRead_ChunkData_t chunk = {};
    const UInt32 result = m_pSession->Next(chunk);
    switch (result) {
    case LX_OK: return Deliver(chunk);
    case LX_AVIREAD_END_OF_MEDIA: return EndOfData();
    case LX_ERR_AVIREAD_JUMP_RANGE:
    case LX_ERR_AVIREAD_JUMP_NOT_VIDEO:
    case LX_ERR_AVIREAD_NO_KEY_FRAME: return RepeatJump();
    default: return Fail(result);
    }
}

GstFlowReturn Player::Fail(UInt32 result)
{
    if (result == LX_ERR_AVIREAD_ABORTED || WasInterrupted()) {
        return m_endEarly ? GST_FLOW_OK : GST_FLOW_FLUSHING; // the task looks at it next
    }
    if (m_pSession->InputFlow() == GST_FLOW_ERROR) {
        return GST_FLOW_ERROR; // who has failed has told it
    }
    if (result != LX_ERR_AVIREAD_EOF) {
        GST_ELEMENT_ERROR(m_pElement, RESOURCE, READ, ("%s", lxAviReadCore_ResultText(result)), (nullptr));
        return GST_FLOW_ERROR;
    }
    const guint moves = m_moves;
    if (!m_cutIsTold) {
        m_cutIsTold = true;
        GST_ELEMENT_WARNING(m_pElement, STREAM, DEMUX, ("%s", lxAviReadCore_ResultText(result)), (nullptr));
    }
    return moves == m_moves ? EndOfData() : GST_FLOW_OK;
}

// The index has led to no key frame, so it is not believed any more.
GstFlowReturn Player::RepeatJump()
{
    const bool possible = m_rebuild && !m_tableIsRebuilt && m_pSession->CanParseMediaData();
    if (possible && !BuildTable()) {
        m_jumpIsDue = true;
        return m_endEarly ? GST_FLOW_OK : GST_FLOW_FLUSHING;
    }
    if (!possible || !m_pSession->HasTable()) {
        GST_ELEMENT_ERROR(m_pElement, STREAM, DEMUX, ("The file cannot be played from there."),
                          ("The index leads to no key frame."));
        return GST_FLOW_ERROR;
    }
    for (Stream& stream : m_streams) {
        NoteEnd(stream);
    }
    Publish();
    gst_element_post_message(m_pElement, gst_message_new_duration_changed(GST_OBJECT(m_pElement)));
    BeginGroup(MoveTo(m_target));
    return GST_FLOW_OK;
}

// By key frames, one that cannot be read is passed over.
GstFlowReturn Player::EndOfData()
{
    switch (m_way) {
    case Way::Backward: return NextGroup();
    case Way::KeyFrames: return NextKeyFrame();
    default: return GST_FLOW_EOS;
    }
}

Stream* Player::Find(UInt32 streamNr)
{
    const auto found = std::find_if(m_streams.begin(), m_streams.end(),
                                    [&](const Stream& stream) { return stream.number == streamNr; });
    return found != m_streams.end() ? &*found : nullptr;
}

GstFlowReturn Player::Deliver(const lxAviRead_ChunkData_t& chunk)
{
    Stream* const pStream = Find(chunk.uiStreamNr);
    const Span span = SpanOf(chunk);
    if (pStream == nullptr || !IsWanted(*pStream, chunk, span)) {
        const UInt32 result = m_pSession->Skip(chunk);
        return result == LX_OK ? GoOn(span) : Fail(result);
    }
    if (chunk.uiSize == 0) {
        RepeatFrame(*pStream, span);
        return GoOn(span);
    }
    GstBuffer* const pBuffer = ReadBuffer(*pStream, chunk, span);
    if (pBuffer == nullptr) {
        return GoOn(span); // the file ends there, or the chunk lies outside of the range
    }
    const guint moves = m_moves;
    const GstFlowReturn result = Push(*pStream, pBuffer, span);
    if (moves == m_moves) {
        FillGaps(*pStream, span);
    }
    if (moves != m_moves) { // who has got the buffer, or heard of a gap, has sought
        gst_flow_combiner_reset(m_pFlows);
        return GST_FLOW_OK;
    }
    return result == GST_FLOW_OK ? GoOn(span) : result;
}

// Whether a chunk belongs to what is played. A stream has ended with the first chunk behind it.
bool Player::IsWanted(Stream& stream, const lxAviRead_ChunkData_t& chunk, const Span& span) const
{
    if (m_way == Way::KeyFrames) {
        return stream.kind == LX_AVIREAD_STREAM_VIDEO && chunk.bKeyFrame != 0 && span.start == m_groupStart;
    }
    if (!GST_CLOCK_TIME_IS_VALID(span.start)) {
        return m_way == Way::Forward;
    }
    GstClockTime stop = m_way == Way::Backward ? stream.groupEnd : m_segment.stop;
    if (!GST_CLOCK_TIME_IS_VALID(stop)) {
        return m_skipUntil == 0 || span.end > m_skipUntil;
    }
    // frames that are shown before the stop may be stored behind it
    const bool fromTheStop = m_way == Way::Forward || m_firstGroup;
    if (fromTheStop && stream.kind == LX_AVIREAD_STREAM_VIDEO && !stream.allKeyFrames) {
        stop += kReorderedFrames * (span.end - span.start);
    }
    stream.ended = stream.ended || span.start >= stop;
    return !stream.ended && (m_skipUntil == 0 || span.end > m_skipUntil);
}

// Whether nothing of the stream follows in the range, or in the group.
bool Player::IsOver(const Stream& stream) const
{
    const GstClockTime from = m_way == Way::Forward ? std::max(stream.position, m_segment.start) : stream.position;
    const bool finished = stream.endIsCounted && stream.end <= from;
    const bool passed =
        m_way == Way::Backward && m_latest > stream.groupEnd && m_latest - stream.groupEnd > kLargestInterleave;
    return stream.ended || finished || passed || !IsContinuous(stream);
}

GstFlowReturn Player::GoOn(const Span& span)
{
    if (m_way == Way::KeyFrames) {
        return NextKeyFrame();
    }
    if (m_way == Way::Forward && !GST_CLOCK_TIME_IS_VALID(m_segment.stop)) {
        return GST_FLOW_OK;
    }
    m_latest = GST_CLOCK_TIME_IS_VALID(span.start) ? std::max(m_latest, span.start) : m_latest;
    const bool timed = std::any_of(m_streams.begin(), m_streams.end(), IsContinuous);
    const bool over =
        timed && std::all_of(m_streams.begin(), m_streams.end(), [this](const Stream& s) { return IsOver(s); });
    return over ? EndOfData() : GST_FLOW_OK;
}

// ---- Buffers ----

// The payload with its times and flags. Null when the file does not have all of it, or none of it lies in the range.
GstBuffer* Player::ReadBuffer(Stream& stream, const lxAviRead_ChunkData_t& chunk, const Span& span)
{
    GstBuffer* const pBuffer = m_pSession->Read(chunk);
    if (pBuffer == nullptr) {
        stream.discontinuous = true;
        return nullptr;
    }
    Convert(pBuffer, stream.conversion);
    const bool video = stream.kind == LX_AVIREAD_STREAM_VIDEO;
    const bool keyFrame = !video || IsKeyFrame(chunk, pBuffer, m_pSession->HasTable());
    GST_BUFFER_DTS(pBuffer) = span.start;
    GST_BUFFER_PTS(pBuffer) = keyFrame ? span.start : GST_CLOCK_TIME_NONE; // others may be shown in another order
    if (GST_CLOCK_TIME_IS_VALID(span.start)) {
        GST_BUFFER_DURATION(pBuffer) = span.end - span.start;
    }
    if (video) {
        GST_BUFFER_OFFSET(pBuffer) = chunk.uiFrameNumber;
        GST_BUFFER_OFFSET_END(pBuffer) = guint64{chunk.uiFrameNumber} + 1;
    }
    if (!keyFrame) {
        GST_BUFFER_FLAG_SET(pBuffer, GST_BUFFER_FLAG_DELTA_UNIT);
    }
    if (stream.discontinuous || m_way == Way::KeyFrames || FollowsHole(stream, span)) {
        GST_BUFFER_FLAG_SET(pBuffer, GST_BUFFER_FLAG_DISCONT);
    }
    if (stream.conversion.sampleBytes == 0 || !GST_CLOCK_TIME_IS_VALID(span.start)) {
        return pBuffer;
    }
    // uncompressed samples are cut to the range, and backward to the group
    const GstClockTime stop = m_way == Way::Backward ? stream.groupEnd : m_segment.stop;
    return CutSamples(pBuffer, stream.conversion, span, {m_segment.start, stop});
}

// Whether chunks before this one are missing, because the file is damaged there.
bool Player::FollowsHole(const Stream& stream, const Span& span) const
{
    constexpr GstClockTime kRounding = GST_MSECOND;
    return m_way == Way::Forward && !stream.fresh && GST_CLOCK_TIME_IS_VALID(span.start) &&
           span.start > stream.position + kRounding;
}

GstFlowReturn Player::Push(Stream& stream, GstBuffer* pBuffer, const Span& span)
{
    stream.discontinuous = stream.fresh = false;
    if (GST_CLOCK_TIME_IS_VALID(span.start)) {
        stream.position = span.end;
        stream.groupFrom = GST_CLOCK_TIME_IS_VALID(stream.groupFrom) ? stream.groupFrom : GST_BUFFER_PTS(pBuffer);
        if (m_way != Way::Backward) {
            NotePosition(m_segment.rate > 0 ? std::max(m_segment.position, span.end) : span.start);
        }
    }
    return gst_flow_combiner_update_pad_flow(m_pFlows, stream.pPad, gst_pad_push(stream.pPad, pBuffer));
}

void Player::NotePosition(GstClockTime position)
{
    const ElementLock lock(m_pElement);
    const GstClockTime stop = GST_CLOCK_TIME_IS_VALID(m_segment.stop) ? m_segment.stop : position;
    m_segment.position = std::max(std::min(position, stop), m_segment.start);
}

// ---- Gaps ----

void Player::PushGap(Stream& stream, GstClockTime from, GstClockTime until) const
{
    stream.fresh = false;
    stream.position = until;
    GstEvent* const pGap = gst_event_new_gap(from, until - from);
    gst_event_set_seqnum(pGap, m_seqnum);
    gst_pad_push_event(stream.pPad, pGap);
}

// An empty chunk of video shows the frame before it again, if there was one. An empty chunk of audio says nothing.
void Player::RepeatFrame(Stream& stream, const Span& span) const
{
    if (stream.kind == LX_AVIREAD_STREAM_VIDEO && !stream.fresh) {
        PushGap(stream, span.start, span.end);
    }
}

// Whether a stream is known to have nothing that plays with the leader.
bool Player::HasNothing(const Stream& stream, const Span& leader) const
{
    switch (m_way) {
    case Way::KeyFrames: return true;
    case Way::Backward:
        return !IsContinuous(stream) || (stream.endIsCounted && stream.end <= m_groupStart) ||
               stream.begin >= stream.groupEnd;
    default:
        return stream.kind == LX_AVIREAD_STREAM_SUBTITLE || (!IsContinuous(stream) && stream.fresh) ||
               (stream.endIsCounted && stream.end <= std::max(stream.position, m_segment.start)) ||
               leader.end <= stream.begin;
    }
}

// Tells the streams that have nothing to play for now how far the others are. Their sinks would wait for them.
void Player::FillGaps(const Stream& leader, const Span& span)
{
    if (!GST_CLOCK_TIME_IS_VALID(span.start)) {
        return;
    }
    for (Stream& stream : m_streams) {
        if (&stream == &leader || !HasNothing(stream, span)) {
            continue;
        }
        if (m_way == Way::Backward) {
            FillGroup(stream);
        } else if (m_way == Way::KeyFrames) {
            PushGap(stream, span.start, span.end);
        } else if (stream.position < span.end && (stream.fresh || span.end - stream.position >= kLargestLag)) {
            PushGap(stream, stream.position, span.end);
        }
    }
}

// Tells a stream, once, that it has nothing in the whole group.
void Player::FillGroup(Stream& stream) const
{
    if (!GST_CLOCK_TIME_IS_VALID(stream.groupFrom) && stream.groupEnd > m_groupStart) {
        PushGap(stream, m_groupStart, stream.groupEnd);
        stream.groupFrom = m_groupStart;
    }
}

} // namespace lxavigst
