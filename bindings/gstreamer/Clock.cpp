#include "Clock.hpp"

namespace lxavigst {
namespace {

Span SpanOfAudio(const lxAviRead_ChunkData_t& chunk)
{
    // The library has counted the chunk already, so that its counter is the number of the next one.
    const UInt32 track = lxAviReadCore_GetAviInfo()->TrackNumber[chunk.uiStreamNr];
    const UInt32 next = lxalAviRead_AudioFrame[track];
    return {lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, chunk.uiFrameNumber, chunk.uiBytePosition),
            lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, next, chunk.uiBytePosition + chunk.uiSize)};
}

} // namespace

Span SpanOf(const lxAviRead_ChunkData_t& chunk)
{
    switch (chunk.eStreamType) {
    case LX_AVIREAD_STREAM_VIDEO:
        return {lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, chunk.uiFrameNumber, 0),
                lxAviReadCore_GetStreamTimeNsec(chunk.uiStreamNr, chunk.uiFrameNumber + 1, 0)};
    case LX_AVIREAD_STREAM_AUDIO: return SpanOfAudio(chunk);
    default: return {GST_CLOCK_TIME_NONE, GST_CLOCK_TIME_NONE}; // a subtitle has its times in its payload
    }
}

StreamEnd EndOf(UInt32 streamNr)
{
    lxAviRead_StreamSummary_t summary = {};
    lxAviReadCore_GetStreamSummary(streamNr, &summary);
    const bool counted =
        summary.eOrigin == LX_AVIREAD_SUMMARY_INDEX || summary.eOrigin == LX_AVIREAD_SUMMARY_MEDIA_DATA;
    if (summary.uiDurationUsec == 0) {
        return {GST_CLOCK_TIME_NONE, false};
    }
    const bool video = lxAviReadCore_GetAviInfo()->StreamInfo[streamNr]->StreamType == LX_AVIREAD_STREAM_VIDEO;
    if (video && summary.uiChunks > 0) {
        return {lxAviReadCore_GetStreamTimeNsec(streamNr, summary.uiChunks, 0), counted};
    }
    const GstClockTime start = lxAviReadCore_GetStreamTimeNsec(streamNr, 0, 0);
    return {start + summary.uiDurationUsec * GST_USECOND, counted};
}

} // namespace lxavigst
