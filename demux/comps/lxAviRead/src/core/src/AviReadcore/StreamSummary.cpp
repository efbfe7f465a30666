// What a stream holds in all: counted by the passes over an index or over the media data, else as its header says.
//
//   from            chunks      bytes                  duration
//   index           counted     counted                of the counted frames, samples or blocks
//   header, video   dwLength    not known              of dwLength frames
//   header, audio   not known   of dwLength samples    of dwLength samples or blocks
//   header, others  not known   not known              of dwLength units

#include "internal/IndexPasses.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {
namespace {

StreamTotals s_totals[LX_AVIREAD_STREAMS];
UInt32 s_uiOrigin = LX_AVIREAD_SUMMARY_INDEX; // of the totals

lxAviRead_StreamSummary_t SummaryByCount(const lxAviReadCore_AviInfo_t* pAviInfo,
                                         const lxAviReadCore_StreamInfo_t& stream, const StreamTotals& totals)
{
    const UInt32 units = stream.StreamType == LX_AVIREAD_STREAM_AUDIO ? totals.uiAudioUnits : totals.uiChunks;
    return {.uiBytes = totals.uiBytes,
            .uiDurationUsec = ExactDuration(pAviInfo, stream, units, totals.uiBytes),
            .uiChunks = totals.uiChunks,
            .eOrigin = s_uiOrigin};
}

// The frames of a video stream. If the writer has not filled in the stream's header, other headers may know those of
// the first video stream.
UInt32 FramesByHeader(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    const UInt32 length = FindStream(pAviInfo, streamNr)->Header.dwLength;
    const bool bFirst = TrackOf(pAviInfo, streamNr) == 0;
    if (length != 0 || !bFirst) {
        return length;
    }
    if (pAviInfo->dmlhTotalFrames != 0) {
        return pAviInfo->dmlhTotalFrames;
    }
    return pAviInfo->AviHdr != Null ? pAviInfo->AviHdr->dwTotalFrames : 0; // GCOVR_EXCL_BR_LINE: no stream without it
}

lxAviRead_StreamSummary_t SummaryByHeader(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    const lxAviReadCore_StreamInfo_t& stream = *FindStream(pAviInfo, streamNr);
    lxAviRead_StreamSummary_t summary = {};
    summary.eOrigin = LX_AVIREAD_SUMMARY_HEADER;
    UInt64 units = stream.Header.dwLength;
    if (stream.StreamType == LX_AVIREAD_STREAM_VIDEO) {
        summary.uiChunks = FramesByHeader(pAviInfo, streamNr);
        units = summary.uiChunks;
    } else if (stream.StreamType == LX_AVIREAD_STREAM_AUDIO) {
        summary.uiBytes = units * AudioUnitsOf(pAviInfo, stream).uiSampleBytes;
    }
    summary.uiDurationUsec = ExactDuration(pAviInfo, stream, units, summary.uiBytes);
    return summary;
}

} // namespace

StreamTotals& TotalsOf(UInt32 streamNr) { return s_totals[streamNr]; }

void ForgetTotalsOf(UInt32 streamNr)
{
    if (streamNr < LX_AVIREAD_STREAMS) {
        s_totals[streamNr] = {};
    }
}

void ForgetTotals()
{
    for (StreamTotals& totals : s_totals) {
        totals = {};
    }
    s_uiOrigin = LX_AVIREAD_SUMMARY_INDEX;
}

void ForgetStreamSizes(lxAviReadCore_AviInfo_t* pAviInfo)
{
    ForgetTotals();
    for (lxAviReadCore_StreamInfo_t* pStream : pAviInfo->StreamInfo) {
        if (pStream != Null) {
            pStream->uiStreamSize = 0;
        }
    }
}

void SetOriginOfTotals(UInt32 origin) { s_uiOrigin = origin; }

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_GetStreamSummary(UInt32 streamNr, lxAviRead_StreamSummary_t* pSummary)
{
    LX_ASSERT(pSummary != Null, "pSummary!=Null", "pSummary must be initialized");
    if (pSummary == Null) {
        return LX_OK;
    }
    *pSummary = {};
    const lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (!SummariesAreGiven(pAviInfo) || StreamTypeOf(pAviInfo, streamNr) == LX_AVIREAD_STREAM_NONE) {
        return LX_OK;
    }
    const StreamTotals& totals = TotalsOf(streamNr);
    *pSummary = totals.uiChunks > 0 ? SummaryByCount(pAviInfo, *FindStream(pAviInfo, streamNr), totals)
                                    : SummaryByHeader(pAviInfo, streamNr);
    return LX_OK;
}
