// The two modes of the reader, and every rule in which they differ.
//
// The default mode keeps the oddities that older players were built on. The format mode, which the caller chooses with
// LX_AVIREAD_FOLLOW_FORMAT in Open's `IndxOption`, reads files as the published AVI and OpenDML formats say. Each
// function below is one rule and says what holds in the format mode. The quirks named with it are what the default mode
// does instead; doc/quirks.md describes them. No other file asks for the mode.

#pragma once

#include "lxAviRead.h"

#include <cstdint>

namespace lxAviReadCore {

using ModeOf = const lxAviReadCore_AviInfo_t*;

inline bool FollowsFormat(ModeOf pAviInfo) { return (pAviInfo->IndxOption & LX_AVIREAD_FOLLOW_FORMAT) != 0; }

// ---- Reads and positions ----

// How far the buffer address moves after `bytes` bytes came: exactly so far. The default mode moves it four times as
// far.
// Quirk Q06
inline UInt64 ReadAdvance(ModeOf pAviInfo, UInt64 bytes) { return FollowsFormat(pAviInfo) ? bytes : 4 * bytes; }

// The distance of a seek, from the start or from the current position: all 64 bits of the offset. The default mode uses
// the low 32 bits as a signed number, on every target.
// Quirk Q07
inline std::int64_t SeekDistance(ModeOf pAviInfo, UInt64 offset)
{
    const auto low = static_cast<Int32>(static_cast<UInt32>(offset));
    return FollowsFormat(pAviInfo) ? static_cast<std::int64_t>(offset) : std::int64_t{low};
}

// The bits of a position that the index, the lookups and the comparison of positions work with: all 64. The default
// mode works with 32.
// Quirk Q27, Quirk Q35
inline UInt64 PositionMask(ModeOf pAviInfo) { return FollowsFormat(pAviInfo) ? ~UInt64{0} : 0xFFFFFFFFu; }

// What NextChunk says about a read that failed: what happened, be it the end of the file, an abort or a failure. The
// default mode calls everything a failed read.
// Quirk Q63
inline UInt32 ReasonOfFailedRead(ModeOf pAviInfo, UInt32 result)
{
    return FollowsFormat(pAviInfo) ? result : UInt32{LX_ERR_AVIREAD_READ};
}

// The caller can ask how many bytes a read has brought that met the end of the file.
// Quirk Q64
inline bool ReadSizeIsTold(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An abort ends walks, searches and skips between two reads. In the default mode only a read that comes back short
// notices it.
// Quirk Q65
inline bool AbortsAreHeard(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A skip seeks over what the stream's buffer cannot hold.
// Quirk Q66
inline bool LongSkipsSeek(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// ---- Lists ----

// Open computes every position in the first RIFF list from the sizes of all chunks before it, counts positions from the
// start of the file, and continues behind unknown chunks.
// Quirk Q09, Quirk Q10, Quirk Q19, Quirk Q47
inline bool ChunksStandWhereSizesSay(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A list in the headers, or a chunk with records, ends where its size says, and so do the chunks in it.
// Quirk Q11, Quirk Q12
inline bool ListsAreExact(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A stream list goes on behind its index chunk.
// Quirk Q14
inline bool ListsGoOnBehindIndex(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Open looks for extension lists in every file that can seek. Their `movi` list may stand anywhere in them.
// Quirk Q54
inline bool ExtensionsNeedNoPromise(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A `movi` list that claims to reach into the next "AVIX" list ends there, so that no byte is delivered twice.
// Quirk Q56
inline bool ListsEndBeforeTheNext(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// ---- Streams ----

// A video stream beside the main one carries subtitles only if its codec is one for subtitles.
// Quirk Q60
inline bool SubtitlesAreKnownByCodec(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An "iavs" stream is a video stream, with chunk types of its own. Its audio is inside the frames.
// Quirk Q61
inline bool InterleavedStreamsAreVideo(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Chunks of type "tx" are subtitle text, as "st" is.
// Quirk Q62
inline bool TextHasTwoTypes(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Audio streams beyond the eighth have no track number.
// Quirk Q13
inline bool SurplusStreamsHaveNoTrack(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Only audio streams have audio tracks.
// Quirk Q33
inline bool OnlyAudioStreamsHaveAudioTracks(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Chunks of the headers are kept whole for the caller: codec data, names, and the texts of the file.
// Quirk Q71
inline bool HeaderChunksAreKept(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The caller can ask what a stream holds in all.
// Quirk Q72
inline bool SummariesAreGiven(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The caller can select the video stream that is delivered. The indexes of all video streams are noted for that.
// Quirk Q73
inline bool VideoStreamsAreSelected(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The time of audio follows from the units of its stream header, whatever the codec.
// Quirk Q52
inline bool AudioTimeIsByHeader(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An audio chunk of a stream without samples of a fixed size counts the blocks that it begins. The default mode counts
// every chunk once.
// Quirk Q59
inline bool AudioCountsBlocks(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The time of video follows from the units of its stream header, and is exact. In the default mode it follows from the
// main header, in floating point.
// Quirk Q23, Quirk Q58
inline bool VideoTimeIsByStream(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// There are exact times, in microseconds and nanoseconds, and seeks to them. The default mode has none.
// Quirk Q69
inline bool ExactTimesAreGiven(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Every frame of a codec whose frames do not refer to each other is a key frame, in the table or not.
// Quirk Q70
inline bool CodecsTellKeyFrames(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The bits of an audio position by which leading audio is trimmed: all 64. The default mode uses 32.
// Quirk Q57
inline UInt64 TrimMask(ModeOf pAviInfo) { return FollowsFormat(pAviInfo) ? ~UInt64{0} : 0xFFFFFFFFu; }

// Leading audio is trimmed in whole samples.
// Quirk Q53
inline bool AudioIsTrimmedInSamples(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// ---- The index ----

// Positions count from the start of the file, whatever the index counts from.
// Quirk Q48
inline bool OffsetsAreAbsolute(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// When a file has two indexes, the table comes from the one that covers more of the file. Both are read from the start,
// so that an input that cannot seek has none.
// Quirk Q49
inline bool BothIndexesCompete(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An index without any key flag is usable.
// Quirk Q50
inline bool IndexesNeedNoKeyFlag(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The end of the file is no error for an index pass or for the search for extension lists: what was read before it
// counts.
// Quirk Q51
inline UInt32 AllowEarlyEnd(ModeOf pAviInfo, UInt32 result)
{
    return result == LX_ERR_AVIREAD_EOF && FollowsFormat(pAviInfo) ? LX_OK : result;
}

// The chunks of the media data can serve in place of an index, and the bytes of a frame tell whether it is a key frame.
// Quirk Q74
inline bool MediaDataServesAsIndex(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An audio chunk is placed by the time at which it starts.
// Quirk Q32
inline bool AudioIsPlacedByChunkStarts(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The first key frame has a time like any other when audio is placed at it.
// Quirk Q42
inline bool FirstKeyFrameHasItsTime(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The times in the key-frame table are those of the stream, so that a seek compares what it will return.
// Quirk Q46
inline bool TableHasStreamTimes(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An OpenDML index on one level is noted as a super index of one entry.
// Quirk Q36, Quirk Q37, Quirk Q40
inline bool OneLevelIndexesAreNoted(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An entry of a super index must name an index chunk. An entry with offset 0 is unused. Any other entry makes the index
// unusable.
// Quirk Q38
inline bool EntriesNameIndexChunks(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An index chunk of an unknown sub type makes the index unusable, because nobody knows its records. The default mode
// counts none of its key frames, and then stores them as if it were a standard index.
// Quirk Q78
inline bool SubTypesMustBeKnown(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The records of an index chunk follow the fields of its header.
// Quirk Q39
inline bool RecordsFollowTheFields(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The index in a stream's list is the index of that stream, whatever its number and whatever its records name.
// Quirk Q41
inline bool IndexesBelongToTheirList(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// An unusable OpenDML index of an audio stream costs the audio of that stream alone, unless an `idx1` can serve
// instead.
// Quirk Q55
inline bool TracksFailAlone(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// ---- Delivery ----

// A step on the way to a chunk stays in its list: a chunk to be stepped over that claims more than the list has is damage,
// and the search slides on. What the list does not hold is looked for anew in the next one that has room for it.
// Quirk Q20
inline bool StepsEndWithTheirList(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Indexes in a list of media data are stepped over in every file: `ix##` chunks, and an `idx1` that the list reaches over.
// The default mode steps over index chunks only if a stream list holds an index; else it slides over them, and takes the
// identifiers in them for chunks.
// Quirk Q75
inline bool IndexesAreNeverMedia(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A chunk of a stream that the file does not have, or that is not read, is stepped over if another chunk begins behind it.
// The default mode searches its payload, and takes what looks like a chunk there for one.
// Quirk Q76
inline bool ForeignChunksAreSteppedOver(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Frames count from 0, with a key-frame table or without one.
// Quirk Q25
inline bool FramesCountFromZero(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Whether a frame lies before the sync point follows from its number. The default mode compares the times of key
// frames, and compares other frames by the number of the frame before them.
// Quirk Q24
inline bool SyncIsByFrameNumber(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Audio resumes at the chunk that the table names, and counts from there, for every track and after every jump.
// Quirk Q26
inline bool AudioResumesAtItsChunk(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// All tracks can be delivered at once. The default mode delivers one audio track and one subtitle track.
// Quirk Q77
inline bool TracksPlayTogether(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// Every jump says anew whether the key frame has to come first.
// Quirk Q28, Quirk Q31
inline bool EveryJumpSaysWhatComesFirst(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// On the way to the first chunk, delivery starts over: positions, counters and sync state are those of the start.
// Quirk Q68
inline bool PositioningStartsOver(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// For a track without audio in the table, a jump goes to the key frame.
// Quirk Q29
inline bool AbsentTracksAreNoTarget(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A jump that fails is over, and delivery goes on where it stood before.
// Quirk Q67
inline bool FailedJumpsAreOver(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A rewind, or another key-frame table, drops a pending jump.
// Quirk Q04
inline bool RewindsDropJumps(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// A "dd" chunk has the size that it says, and belongs to the next chunk if both name the same stream.
// Quirk Q22
inline bool DrmChunksAreExact(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

// The reader recognises a protected key frame by the position of its "dd" chunk or by that of the frame.
// Quirk Q45
inline bool ProtectedFramesHaveTwoStarts(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); }

} // namespace lxAviReadCore
