// The reader's one state, what stands beside it, and the lookups that make a damaged number read as "no such stream".

#pragma once

#include "Bytes.hpp"
#include "Debug.hpp"

#include <cstdint>

extern lxAviReadCore_AviInfo_t lxAviReadCore_AviInfo;

namespace lxAviReadCore {

extern void* file_buffer; // no read uses it: its presence proves to Open that Alloc ran
extern UInt64 AudioByteposition[LX_AVIREAD_AUDIO_TRACKS]; // payload bytes delivered or passed over, per track
extern lxAviReadCore_KeyFramePosition_t lastPlayedKeyFrame;

// The abort flag is one byte that another thread may set at any time.
inline bool IsAborted(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return __atomic_load_n(&pAviInfo->bAbort, __ATOMIC_RELAXED) == 1;
}

// Whether the caller wants what the published formats say, and not the oddities that older callers were built on.
inline bool FollowsFormat(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return (pAviInfo->IndxOption & LX_AVIREAD_FOLLOW_FORMAT) != 0;
}

// The bits of a position that the index and the lookups work with.
// Quirk Q27: 32, so that an entry beyond 4 GiB never matches
inline UInt64 PositionMask(const lxAviReadCore_AviInfo_t* pAviInfo)
{
    return FollowsFormat(pAviInfo) ? ~UInt64{0} : 0xFFFFFFFFu;
}

// What a seek makes of an offset: from the start, or signed from the current position.
inline std::int64_t SeekDistance(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset)
{
    // Quirk Q07: the low 32 bits, as a signed number, on every target
    return FollowsFormat(pAviInfo) ? static_cast<std::int64_t>(offset) : static_cast<Int32>(static_cast<UInt32>(offset));
}

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

// The track that an audio record of the index is booked on; kNoTrack for a stream that the file does not have.
inline UInt32 IndexedTrackOf(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    // Quirk Q33: the number of a stream that is no audio stream serves as well, and is mostly 0
    const UInt32 type = StreamTypeOf(pAviInfo, streamNr);
    const bool bBooked =
        FollowsFormat(pAviInfo) ? type == LX_AVIREAD_STREAM_AUDIO : type != LX_AVIREAD_STREAM_NONE;
    return bBooked ? TrackOf(pAviInfo, streamNr) : kNoTrack;
}

// A stream number of a chunk or index record is 16 bits wide and never equals the -1 of "no video stream".
inline bool IsMainVideoStream(const lxAviReadCore_AviInfo_t* pAviInfo, UInt32 streamNr)
{
    return pAviInfo->videoStreamNr >= 0 && streamNr == static_cast<UInt32>(pAviInfo->videoStreamNr);
}

// Format of a video or audio stream; all zero when the stream has no buffer.
template <typename Record>
Record FormatOf(const lxAviReadCore_StreamInfo_t* pStream)
{
    static_assert(sizeof(Record) <= LX_AVIREAD_FORMAT_BYTES);
    return pStream->Format != Null ? Load<Record>(static_cast<const UInt8*>(pStream->Format)) : Record{};
}

// Whether every frame of a video stream can be decoded alone, by its codec.
bool HasOnlyKeyFrames(const lxAviReadCore_StreamInfo_t& stream);

// Whether an audio stream runs at a constant bit rate, so that its time follows from its bytes.
inline bool IsConstantBitRate(const lxAviRead_Strh_t& header, const lxAviRead_StrfAudio_t& format)
{
    if (header.dwSampleSize == format.nBlockAlign) {
        return header.dwSampleSize != 0;
    }
    return static_cast<float>(header.dwRate) / static_cast<float>(header.dwScale) >= 1000.0f;
}

// Seeks and keeps the outcome in lxalAviRead_FileSeekPossible.
inline bool SeekAndRemember(lxAviReadCore_AviInfo_t* pAviInfo, UInt64 offset, Int32 origin)
{
    lxalAviRead_FileSeekPossible = lxAviReadCore_FileSeek(pAviInfo, offset, origin);
    return lxalAviRead_FileSeekPossible != 0;
}

constexpr Int32 kFromStart = SEEK_SET;
constexpr Int32 kFromHere = SEEK_CUR;
static_assert(kFromStart == 0 && kFromHere == 1, "the origins are those of stdio");

// Where the file stands; false for an input that cannot tell.
bool TellPosition(const lxAviReadCore_AviInfo_t* pAviInfo, UInt64& position);

// Clears the counters that every return to the start clears.
void ClearAudioCounters();

} // namespace lxAviReadCore
