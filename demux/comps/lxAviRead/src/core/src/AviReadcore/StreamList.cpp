// One stream list of the header list.
//
//   LIST size "strl"
//     strh 56 …     the stream header: type, codec, time base
//     strf size …   the format; when it arrives, the reader sets the stream's kind
//     strd size …   data for the decoder of the main video stream
//     indx size …   the OpenDML index of the stream
//     strn size …   the name of the stream
//     vprp size …   the properties of its picture
//     JUNK …        stepped over
//
// The format mode keeps strf, strd, strn and vprp whole (KeptChunks.cpp); the default mode steps over the last two.
//
// Left in the state: the stream's record, its kind and track number, the main video and the first audio stream.

#include "internal/KeptChunks.hpp"
#include "internal/ListWalk.hpp"
#include "internal/State.hpp"
#include "internal/Streams.hpp"
#include "internal/Walk.hpp"

namespace lxAviReadCore {
namespace {

constexpr UInt32 kSmallestIndexBytes = 24; // the fields of an `indx` chunk without an entry

struct StreamList {
    UInt32 instance;
    UInt32 uiStreamNr;
    lxAviReadCore_StreamInfo_t* pStream;
};

Step Skip(UInt32 size) { return ContinueUnless(LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size))); }

// Keeps a chunk of which no fixed record is made.
UInt32 Keep(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, const ChunkHeader& chunk)
{
    return KeepChunk(pAviInfo, list.pStream, chunk.uiCode, chunk.uiSize);
}

// Gives the stream the next number among those of its kind. A stream beyond the eighth is counted, and keeps the number
// that it has.
void NumberTrack(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr, UInt32& count)
{
    if (count < LX_AVIREAD_AUDIO_TRACKS) {
        pAviInfo->TrackNumber[streamNr] = count;
    }
    ++count;
}

// ---- strf, by the header's stream type ----

UInt32 TakeAudioFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    list.pStream->StreamType = LX_AVIREAD_STREAM_AUDIO;
    if (pAviInfo->audioStreamNr == -1) {
        pAviInfo->audioStreamNr = static_cast<Int32>(list.uiStreamNr);
    }
    if (SurplusStreamsHaveNoTrack(pAviInfo)) {
        pAviInfo->TrackNumber[list.uiStreamNr] = kNoTrack;
    }
    NumberTrack(pAviInfo, list.uiStreamNr, pAviInfo->AudioTracksCount);
    LX_LOG(kLevelHeader, "AviReadCore : Found audio streamformat sub-chunk. FccType is auds %x, size %d",
           list.pStream->Header.fccType, size);
    return LX_AVIREAD_CALL(lxAviReadCore_ParseListStrf_audio(pAviInfo, size, list.pStream));
}

UInt32 TakeMainVideoFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    list.pStream->StreamType = LX_AVIREAD_STREAM_VIDEO;
    pAviInfo->videoStreamNr = static_cast<Int32>(list.uiStreamNr);
    LX_LOG(kLevelHeader, "AviReadCore : Found streamformat sub-chunk. FccType is vids %x, size %x\n",
           list.pStream->Header.fccType, size);
    return LX_AVIREAD_CALL(lxAviReadCore_ParseListStrf_video(pAviInfo, size, list.pStream));
}

// Video streams before a stream.
UInt32 CountVideoStreamsBefore(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    UInt32 count = 0;
    for (UInt32 i = 0; i < streamNr; ++i) {
        count += StreamTypeOf(pAviInfo, i) == LX_AVIREAD_STREAM_VIDEO ? 1 : 0;
    }
    return count;
}

// The first video stream becomes the main one; the others are numbered.
void BecomeVideo(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list)
{
    pAviInfo->TrackNumber[list.uiStreamNr] = CountVideoStreamsBefore(pAviInfo, list.uiStreamNr);
    list.pStream->StreamType = LX_AVIREAD_STREAM_VIDEO;
    if (pAviInfo->videoStreamNr == -1) {
        pAviInfo->videoStreamNr = static_cast<Int32>(list.uiStreamNr);
    }
    LX_LOG(kLevelHeader, "AviReadCore : stream %d is video, track %d", list.uiStreamNr,
           pAviInfo->TrackNumber[list.uiStreamNr]);
}

void BecomeSubtitles(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list)
{
    pAviInfo->TrackNumber[list.uiStreamNr] = 0;
    list.pStream->StreamType = LX_AVIREAD_STREAM_SUBTITLE;
}

// In the default mode every further video stream carries bitmap subtitles.
UInt32 TakeBitmapSubtitleFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    BecomeSubtitles(pAviInfo, list);
    LX_LOG(kLevelHeader, "AviReadCore : Found subtitle streamformat (bitmap) (id=%d,size = %d) streamformat sub-chunk.",
           list.uiStreamNr, size);
    NumberTrack(pAviInfo, list.uiStreamNr, pAviInfo->SubtitleTracksCount);
    return LX_AVIREAD_CALL(lxAviReadCore_ParseListStrf_video(pAviInfo, size, list.pStream));
}

// The codec tells what a video stream carries.
UInt32 TakeFormatByCodec(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    LX_AVIREAD_TRY(LX_AVIREAD_CALL(lxAviReadCore_ParseListStrf_video(pAviInfo, size, list.pStream)));
    if (HasSubtitleCodec(*list.pStream)) {
        BecomeSubtitles(pAviInfo, list);
        NumberTrack(pAviInfo, list.uiStreamNr, pAviInfo->SubtitleTracksCount);
    } else {
        BecomeVideo(pAviInfo, list);
    }
    return LX_OK;
}

UInt32 TakeVideoFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    if (SubtitlesAreKnownByCodec(pAviInfo)) {
        return TakeFormatByCodec(pAviInfo, list, size);
    }
    return pAviInfo->videoStreamNr == -1 ? TakeMainVideoFormat(pAviInfo, list, size)
                                         : TakeBitmapSubtitleFormat(pAviInfo, list, size);
}

// DV with its audio inside: the file's format tells of the tape. What a decoder of the frames needs to know is in the
// two headers.
UInt32 TakeInterleavedFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    lxAviRead_StrfVideo_t format = {};
    format.biSize = sizeof format;
    if (pAviInfo->AviHdr != Null) { // GCOVR_EXCL_BR_LINE: no stream without it
        format.biWidth = static_cast<Int32>(pAviInfo->AviHdr->dwWidth);
        format.biHeight = static_cast<Int32>(pAviInfo->AviHdr->dwHeight);
    }
    format.biPlanes = 1;
    format.biBitCount = 24;
    format.biCompression = list.pStream->Header.fccHandler;
    if (list.pStream->Format == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY; // Alloc could not give the buffer
    }
    std::memcpy(list.pStream->Format, &format, sizeof format);
    BecomeVideo(pAviInfo, list);
    return KeepChunk(pAviInfo, list.pStream, FourCC("strf"), size);
}

UInt32 TakeTextSubtitleFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    BecomeSubtitles(pAviInfo, list);
    LX_LOG(kLevelHeader, "AviReadCore : Found subtitle streamformat  (id=%d,size = %d) streamformat sub-chunk.",
           list.uiStreamNr, size);
    NumberTrack(pAviInfo, list.uiStreamNr, pAviInfo->SubtitleTracksCount);
    return LX_AVIREAD_CALL(lxAviReadCore_ParseListStrf_textSubtitle(pAviInfo, size, list.pStream));
}

// Skips the format of a stream of no known kind; the format mode keeps it for the caller.
UInt32 SkipUnknownFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    const UInt32 type = list.pStream->Header.fccType;
    list.pStream->StreamType = LX_AVIREAD_STREAM_NONE;
    LX_LOG(kLevelHeader,
           "AviReadCore : Fourcc error! Stream %d type (auds/vids) not defined %x (%2c%2c%2c%2c) (line:%d)",
           list.uiStreamNr, type, ByteOf(type, 3), ByteOf(type, 2), ByteOf(type, 1), ByteOf(type, 0), __LINE__);
    return HeaderChunksAreKept(pAviInfo) ? KeepChunk(pAviInfo, list.pStream, FourCC("strf"), size)
                                         : LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size));
}

UInt32 TakeFormat(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    switch (list.pStream->Header.fccType) {
    case FourCC("auds"): return TakeAudioFormat(pAviInfo, list, size);
    case FourCC("vids"): return TakeVideoFormat(pAviInfo, list, size);
    case FourCC("iavs"):
        return InterleavedStreamsAreVideo(pAviInfo) ? TakeInterleavedFormat(pAviInfo, list, size)
                                                    : SkipUnknownFormat(pAviInfo, list, size);
    case FourCC("txts"): return TakeTextSubtitleFormat(pAviInfo, list, size);
    default: return SkipUnknownFormat(pAviInfo, list, size);
    }
}

// ---- The other chunks ----

UInt32 TakeHeader(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Stream %d streamheader subchunk\n", list.uiStreamNr);
    return LX_AVIREAD_CALL(lxAviReadCore_ParseListStrh(pAviInfo, size, list.uiStreamNr));
}

UInt32 TakeStreamData(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    const UInt32 type = list.pStream->Header.fccType;
    if (type != FourCC("vids")) {
        LX_LOG(kLevelHeader, "AviReadCore : strd chunk found but not procesed (size=%d)", size);
        return HeaderChunksAreKept(pAviInfo) ? KeepChunk(pAviInfo, list.pStream, FourCC("strd"), size)
                                             : LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size));
    }
    if (!IsMainVideoStream(pAviInfo, list.uiStreamNr)) {
        LX_LOG(
            kLevelHeader,
            "AviReadCore : Found streamdata (strd) sub-chunk for not-main video track. FccType is vids %x, size %x\n",
            type, size);
        return HeaderChunksAreKept(pAviInfo) ? KeepChunk(pAviInfo, list.pStream, FourCC("strd"), size)
                                             : LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size));
    }
    list.pStream->StreamType = LX_AVIREAD_STREAM_VIDEO;
    LX_LOG(kLevelHeader, "AviReadCore : Found streamdata (strd) sub-chunk. FccType is vids %x, size %x\n", type, size);
    return LX_AVIREAD_CALL(lxAviReadCore_ParseListStrd_video(pAviInfo, size, list.pStream));
}

bool IsIndexed(const lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list)
{
    const UInt32 type = list.pStream->StreamType;
    const bool bMayPlay = VideoStreamsAreSelected(pAviInfo) || IsMainVideoStream(pAviInfo, list.uiStreamNr);
    return type == LX_AVIREAD_STREAM_AUDIO || (type == LX_AVIREAD_STREAM_VIDEO && bMayPlay);
}

Step TakeIndex(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, UInt32 size)
{
    pAviInfo->bIndxPresent = 1;
    if (!IsIndexed(pAviInfo, list) || (size < kSmallestIndexBytes && ListsAreExact(pAviInfo))) {
        return Skip(size);
    }
    const UInt32 result = LX_AVIREAD_CALL(
        lxAvi2ReadCore_ParseChunkIndx(list.instance, pAviInfo, size, list.pStream, pAviInfo->IndxOption));
    if (result != LX_ERR_AVIREAD_NO_INDEX) {
        return ListsGoOnBehindIndex(pAviInfo) ? ContinueUnless(result) : Step{true, result};
    }
    if (pAviInfo->AviHdr != Null) { // GCOVR_EXCL_BR_LINE: no stream without it
        pAviInfo->AviHdr->dwFlags &= ~LX_AVIREAD_HAS_INDEX;
    }
    return ContinueUnless(LX_OK);
}

Step SkipJunk(UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : removing chunk (line:%d)", __LINE__);
    return Skip(size);
}

Step SkipUnknown(UInt32 code, UInt32 size)
{
    LX_LOG(kLevelHeader, "AviReadCore : Fourcc error! %x (%2c%2c%2c%2c) (line:%d)", code, ByteOf(code, 3),
           ByteOf(code, 2), ByteOf(code, 1), ByteOf(code, 0), __LINE__);
    LX_LOG(kLevelHeader, "AviReadCore : removing chunk");
    return Skip(size);
}

Step TakeChunk(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, const ChunkHeader& chunk)
{
    switch (chunk.uiCode) {
    case FourCC("strh"): return ContinueUnless(TakeHeader(pAviInfo, list, chunk.uiSize));
    case FourCC("strf"): return ContinueUnless(TakeFormat(pAviInfo, list, chunk.uiSize));
    case FourCC("strd"): return ContinueUnless(TakeStreamData(pAviInfo, list, chunk.uiSize));
    case FourCC("indx"): return TakeIndex(pAviInfo, list, chunk.uiSize);
    case FourCC("JUNK"): return SkipJunk(chunk.uiSize);
    case FourCC("strn"):
        return HeaderChunksAreKept(pAviInfo) ? ContinueUnless(Keep(pAviInfo, list, chunk)) : Skip(chunk.uiSize);
    case FourCC("vprp"):
        return HeaderChunksAreKept(pAviInfo) ? ContinueUnless(Keep(pAviInfo, list, chunk))
                                             : SkipUnknown(chunk.uiCode, chunk.uiSize);
    default: return SkipUnknown(chunk.uiCode, chunk.uiSize);
    }
}

Step ParseChunk(lxAviReadCore_AviInfo_t* pAviInfo, const StreamList& list, const ChunkHeader& chunk)
{
    const Step step = TakeChunk(pAviInfo, list, chunk);
    DropPadByte(list.pStream, chunk);
    return step;
}

} // namespace
} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAviReadCore_ParseListStrl(UInt32 instance, lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 StreamNr)
{
    const StreamList list = {instance, StreamNr, FindStream(pAviInfo, StreamNr)};
    if (list.pStream == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY; // Alloc could not give the record
    }
    ListWalk walk(pAviInfo, size, 0);
    while (walk.HasChunk()) {
        ChunkHeader chunk = {};
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(walk.Enter(chunk)));
        LX_LOG(kLevelHeader,
               "AviReadCore : Current chunk (%c%c%c%c) size=%d, after it will be left in this list %d bytes",
               ByteOf(chunk.uiCode, 0), ByteOf(chunk.uiCode, 1), ByteOf(chunk.uiCode, 2), ByteOf(chunk.uiCode, 3),
               chunk.uiSize, static_cast<Int32>(static_cast<UInt32>(size - walk.Consumed())));
        if (const Step step = ParseChunk(pAviInfo, list, chunk); step.bFinished) {
            return step.uiResult;
        }
    }
    LX_LOG(kLevelLeave, "leaving lxAviReadCore_ParseListStrl");
    return walk.Leave();
}

UInt32 lxAviReadCore_ParseListStrh(lxAviReadCore_AviInfo_t* pAviInfo, UInt32 size, UInt32 StreamID)
{
    lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, StreamID);
    if (pStream == Null) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    constexpr UInt32 kHeaderBytes = sizeof(lxAviRead_Strh_t);
    if (size > kHeaderBytes) {
        LX_LOG(kLevelOversize, "size> sizeof(lxAviRead_Strh_t) (%d>%d)", size, kHeaderBytes);
        LX_AVIREAD_TRY(LX_AVIREAD_CALL(ReadRecord(pAviInfo, pStream->Header)));
        return LX_AVIREAD_CALL(lxAviReadCore_RemoveChunk(size - kHeaderBytes));
    }
    LX_LOG(kLevelHeader, "size<- sizeof(lxAviRead_Strh_t) (%d<%d)", size, kHeaderBytes);
    return LX_AVIREAD_CALL(ReadLoop(pAviInfo, kCoreRead, {&pStream->Header, kHeaderBytes, size}));
}

UInt32 lxAviReadCore_GetStrhData(UInt32 streamNr, lxAviRead_Strh_t* pStrh, UInt32* pSize)
{
    LX_ASSERT(pStrh != Null && pSize != Null, "pStrh!=Null && pSize!=Null", "pStrh and pSize must be initialized");
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(&lxAviReadCore_AviInfo, streamNr);
    if (pStream != Null && pStrh != Null && pSize != Null) {
        *pStrh = pStream->Header;
        *pSize = pStream->uiStreamSize;
    }
    return LX_OK;
}
