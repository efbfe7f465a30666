// Lookups of streams and tracks. An invalid number gives "no such stream".

#pragma once

#include "Bytes.hpp"
#include "Mode.hpp"

namespace lxAviReadCore {

// The record of a stream, or null for a number above 16, a negative one, or a slot that is not allocated.
template <typename Number>
lxAviReadCore_StreamInfo_t* FindStream(const lxAviReadCore_AviInfo_t* pAviInfo, Number streamNr)
{
    const UInt32 index = static_cast<UInt32>(streamNr);
    return index < LX_AVIREAD_STREAMS ? pAviInfo->StreamInfo[index] : Null;
}

// The kind of a stream; none for a stream that the file does not have.
inline UInt32 StreamTypeOf(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    const lxAviReadCore_StreamInfo_t* const pStream = FindStream(pAviInfo, streamNr);
    return pStream != Null ? pStream->StreamType : UInt32{LX_AVIREAD_STREAM_NONE};
}

constexpr UInt32 kNoTrack = 0xFFFFFFFFu;

// The track number of a stream among those of its kind, or kNoTrack when the stream number is out of range.
inline UInt32 TrackOf(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    return streamNr < LX_AVIREAD_STREAMS ? pAviInfo->TrackNumber[streamNr] : kNoTrack;
}

// The track that an audio record of the index counts for; kNoTrack for a stream that the file does not have. In the
// default mode the track number of a stream that is no audio stream counts, too; it is mostly 0.
inline UInt32 IndexedTrackOf(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    const UInt32 type = StreamTypeOf(pAviInfo, streamNr);
    const bool bCounts =
        OnlyAudioStreamsHaveAudioTracks(pAviInfo) ? type == LX_AVIREAD_STREAM_AUDIO : type != LX_AVIREAD_STREAM_NONE;
    return bCounts ? TrackOf(pAviInfo, streamNr) : kNoTrack;
}

// A stream number of a chunk or index record is 16 bits wide and never equals the -1 of "no video stream".
inline bool IsMainVideoStream(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    return pAviInfo->videoStreamNr >= 0 && streamNr == static_cast<UInt32>(pAviInfo->videoStreamNr);
}

// Whether a stream is DV whose audio is inside the frames, and is read as video.
inline bool IsInterleavedStream(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    return StreamTypeOf(pAviInfo, streamNr) == LX_AVIREAD_STREAM_VIDEO &&
           FindStream(pAviInfo, streamNr)->Header.fccType == FourCC("iavs");
}

// Format of a video or audio stream; all zero when the stream has no buffer.
template <typename Record>
Record FormatOf(const lxAviReadCore_StreamInfo_t* pStream)
{
    static_assert(sizeof(Record) <= LX_AVIREAD_FORMAT_BYTES);
    return pStream->Format != Null ? Load<Record>(static_cast<const UInt8*>(pStream->Format)) : Record{};
}

// The code of a codec in upper case; writers use either case.
UInt32 CodecInUpperCase(UInt32 code);

// Whether every frame of a video stream can be decoded alone, by its codec.
bool HasOnlyKeyFrames(const lxAviReadCore_StreamInfo_t& stream);

// Whether a stream carries bitmap subtitles, by its codec.
bool HasSubtitleCodec(const lxAviReadCore_StreamInfo_t& stream);

// From what the default mode computes the time of an audio stream.
enum class AudioClock : UInt8 {
    None,
    Bytes,   // at dwRate bytes a second
    BitRate, // bytes at nAvgBytesPerSec, or chunks where the bit rate varies
};

// What the reader knows of a coding of audio.
struct AudioCodec {
    UInt16 uiFormatTag;
    UInt16 uiFrameSamples; // samples of a coded frame; 1: uncompressed; 0: not known
    AudioClock eClock;
    bool bTrimmed; // leading audio of the first chunk after a jump may be dropped
};

const AudioCodec& AudioCodecOf(UInt16 formatTag);

// What the numbers of an audio stream count: samples, or chunks.
struct AudioUnits {
    UInt32 uiSampleBytes; // bytes of a sample, whose number follows from the bytes before it; 0: chunks are counted
    UInt32 uiBlockBytes;  // where chunks are counted, bytes of the blocks in them; 0: every chunk counts one
};

AudioUnits AudioUnitsOf(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream);

// What a chunk of `size` bytes counts: the blocks that it begins.
constexpr UInt32 UnitsOfChunk(UInt32 blockBytes, UInt32 size)
{
    return blockBytes == 0 ? 1 : size / blockBytes + (size % blockBytes != 0 ? 1 : 0);
}

// Whether neither header gives the frame rate of a video stream; then all its times are 0.
bool HasNoFrameRate(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream);

// Decides what follows from the choice of the main video stream.
void SettleMainVideo(const lxAviReadCore_AviInfo_t* pAviInfo);

// Microseconds as milliseconds, truncated; times of more than 32 bits become the largest number.
UInt32 Milliseconds(UInt64 microseconds);

// How many units of a time make a second.
using TimeUnit = UInt32;
constexpr TimeUnit kMicroSecPerSec = 1000000;
constexpr TimeUnit kNanoSecPerSec = 1000000000;

// The presentation time of a frame, exact.
UInt64 ExactVideoTime(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream,
                      UInt32 frameNumber, TimeUnit perSecond);

// The time in microseconds, exact, that so much of a stream takes: frames of video, or audio of so many bytes. Units of
// audio count where its time does not follow from its bytes.
UInt64 ExactDuration(const lxAviReadCore_AviInfo_t* pAviInfo, const lxAviReadCore_StreamInfo_t& stream, UInt64 units,
                     UInt64 bytes);

// Whether an audio stream runs at a constant bit rate, so that its time follows from its bytes.
bool IsConstantBitRate(const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format);

} // namespace lxAviReadCore
