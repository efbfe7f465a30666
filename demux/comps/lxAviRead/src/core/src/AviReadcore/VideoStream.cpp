// The main video stream: the one that is delivered, and that the key-frame table is about. It is the first one of the
// file, until in the format mode the caller selects another one.

#include "internal/KeyFrames.hpp"
#include "internal/Segments.hpp"
#include "internal/Streams.hpp"

namespace lxAviReadCore {
namespace {

void LogMissingFrameRate(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    const lxAviReadCore_StreamInfo_t* const pVideo = FindStream(pAviInfo, pAviInfo->videoStreamNr);
    if (VideoTimeIsByStream(pAviInfo) && pVideo != Null && HasNoFrameRate(pAviInfo, *pVideo)) {
        LX_LOG(kLevelError, "AviReadCore : no header gives the frame rate of stream %d, its times are 0",
               pAviInfo->videoStreamNr);
    }
}

// An input that cannot seek cannot go back to the start, but may stand there.
bool CanStartOver(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return lxalAviRead_FileSeekPossible != 0 || pAviInfo->CurrentOffset == StartOfDelivery(pAviInfo);
}

} // namespace

void SettleMainVideo(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    LogMissingFrameRate(pAviInfo);
    onlyKeyFrames = pAviInfo->videoStreamNr >= 0 &&
                    lxAviReadCore_HasOnlyKeyFrames(static_cast<UInt32>(pAviInfo->videoStreamNr)) == 1;
}

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_SelectVideoStream(UInt32 streamNr)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = &lxAviReadCore_AviInfo;
    if (!VideoStreamsAreSelected(pAviInfo) || StreamTypeOf(pAviInfo, streamNr) != LX_AVIREAD_STREAM_VIDEO) {
        return LX_ERR_AVIREAD_BAD_STREAM;
    }
    if (IsMainVideoStream(pAviInfo, streamNr)) {
        return LX_OK;
    }
    if (!CanStartOver(pAviInfo)) {
        return LX_ERR_AVIREAD_SEEK;
    }
    const bool bSeekable = lxalAviRead_FileSeekPossible != 0;
    LX_LOG(kLevelHeader, "AviReadCore : stream %d is the main video stream now", streamNr);
    ReleaseKeyFrameTable(pAviInfo, TableReleaseTrace::IndexDriver);
    pAviInfo->videoStreamNr = static_cast<Int32>(streamNr);
    SettleMainVideo(pAviInfo);
    lxAviReadCore_RewindToStart(); // drops a jump into the table, too
    return bSeekable && lxalAviRead_FileSeekPossible == 0 ? LX_ERR_AVIREAD_SEEK : LX_OK;
}
