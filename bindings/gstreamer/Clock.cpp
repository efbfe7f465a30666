#include "Clock.hpp"

namespace lxavigst {
namespace {

constexpr Span kUnknown = {GST_CLOCK_TIME_NONE, GST_CLOCK_TIME_NONE};

// Times that the framework cannot count are not told.
bool IsCountable(GstClockTime time) { return time <= static_cast<GstClockTime>(G_MAXINT64); }

Span SpanOfVideo(const lxAviRead_ChunkData_t& chunk)
{
    return {lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, chunk.uiFrameNumber, 0),
            lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, chunk.uiFrameNumber + 1, 0)};
}

Span SpanOfAudio(const lxAviRead_ChunkData_t& chunk)
{
    // The library has counted the chunk already, so that its counter is the number of the next one.
    const UInt32 track = lxAviReadCore_GetAviInfo()->TrackNumber[chunk.uiStreamNr];
    const UInt32 next = lxalAviRead_AudioFrame[track];
    return {lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, chunk.uiFrameNumber, chunk.uiBytePosition),
            lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, next, chunk.uiBytePosition + chunk.uiSize)};
}

// A subtitle has its times in its payload.
Span StatedSpan(const lxAviRead_ChunkData_t& chunk)
{
    switch (chunk.eStreamType) {
    case LX_AVIREAD_STREAM_VIDEO: return SpanOfVideo(chunk);
    case LX_AVIREAD_STREAM_AUDIO: return SpanOfAudio(chunk);
    default: return kUnknown;
    }
}

} // namespace

bool HasTimes(UInt32 streamNr)
{
    constexpr UInt32 kMany = 1000000; // frames, or bytes
    return lxAviReadCore_GetStreamTimeNsec(streamNr, kMany, kMany) > 0;
}

Span SpanOf(const lxAviRead_ChunkData_t& chunk)
{
    const Span span = StatedSpan(chunk);
    return HasTimes(chunk.uiStreamNr) && IsCountable(span.start) && IsCountable(span.end) ? span : kUnknown;
}

StreamEnd EndOf(UInt32 streamNr)
{
    lxAviRead_StreamSummary_t summary = {};
    lxAviReadCore_GetStreamSummary(streamNr, &summary);
    const bool counted =
        summary.eOrigin == LX_AVIREAD_SUMMARY_INDEX || summary.eOrigin == LX_AVIREAD_SUMMARY_MEDIA_DATA;
    const GstClockTime start = lxAviReadCore_GetStreamTimeNsec(streamNr, 0, 0);
    if (counted && summary.uiChunks == 0) {
        return {start, true};
    }
    const bool video = lxAviReadCore_GetAviInfo()->StreamInfo[streamNr]->StreamType == LX_AVIREAD_STREAM_VIDEO;
    const GstClockTime end = video && summary.uiChunks > 0
                                 ? lxAviReadCore_GetStreamTimeNsec(streamNr, summary.uiChunks, 0)
                                 : start + summary.uiDurationUsec * GST_USECOND;
    const bool known = HasTimes(streamNr) && summary.uiDurationUsec > 0 && IsCountable(start) && IsCountable(end) &&
                       summary.uiDurationUsec <= static_cast<UInt64>(G_MAXINT64) / GST_USECOND;
    return known ? StreamEnd{end, counted} : StreamEnd{GST_CLOCK_TIME_NONE, false};
}

} // namespace lxavigst
