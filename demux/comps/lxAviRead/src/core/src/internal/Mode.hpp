// The two modes of the reader, and every rule in which they differ.
//
// The default mode keeps the oddities that older players were built on. The format mode, which the caller chooses with
// LX_AVIREAD_FOLLOW_FORMAT in Open's `IndxOption`, reads files as the published AVI and OpenDML formats say. Each
// function below is one rule and says what holds in the format mode. The quirks behind it are what the default mode does
// instead; doc/quirks.md describes them. No other file asks for the mode.

#pragma once

#include "lxAviRead.h"

#include <cstdint>

namespace lxAviReadCore {

using ModeOf = const lxAviReadCore_AviInfo_t*;

inline bool FollowsFormat(ModeOf pAviInfo) { return (pAviInfo->IndxOption & LX_AVIREAD_FOLLOW_FORMAT) != 0; }

// ---- Reads and positions ----

// How far the next attempt of a read lands behind the last one that brought `bytes`: the default mode applies bytes as
// words.
inline UInt64 ReadAdvance(ModeOf pAviInfo, UInt64 bytes)
{
    return FollowsFormat(pAviInfo) ? bytes : 4 * bytes;
} // Quirk Q06

// What a seek makes of an offset, from the start or from the current position: the default mode takes its low 32 bits as
// a signed number, on every target.
inline std::int64_t SeekDistance(ModeOf pAviInfo, UInt64 offset)
{
    const auto low = static_cast<Int32>(static_cast<UInt32>(offset));
    return FollowsFormat(pAviInfo) ? static_cast<std::int64_t>(offset) : std::int64_t{low}; // Quirk Q07
}

// The bits of a position that the index and the lookups work with: 32 in the default mode.
inline UInt64 PositionMask(ModeOf pAviInfo)
{
    return FollowsFormat(pAviInfo) ? ~UInt64{0} : 0xFFFFFFFFu;
} // Quirk Q27, Quirk Q35

// ---- Lists ----

// Every chunk of the first RIFF list stands where the sizes before it say.
inline bool ChunksStandWhereSizesSay(ModeOf pAviInfo)
{
    return FollowsFormat(pAviInfo);
} // Quirk Q09, Quirk Q10, Quirk Q47

// A list in the headers, or a chunk with records, ends where its size says, and so do the chunks in it.
inline bool ListsAreExact(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q11, Quirk Q12

// A stream list goes on behind its index chunk.
inline bool ListsGoOnBehindIndex(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q14

// Extension lists are looked for in every file that can seek, and may hold other things before their media data.
inline bool ExtensionsNeedNoPromise(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q54

// A `movi` list that claims to reach into the next RIFF list ends there, even if nothing of it is left.
inline bool OverlappedListsMayBeEmpty(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q56

// ---- Streams ----

// Audio streams beyond the eighth have no track number.
inline bool SurplusStreamsHaveNoTrack(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q13

// Only audio streams have audio tracks.
inline bool OnlyAudioStreamsHaveTracks(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q33

// The time of audio follows from the units of its stream header, whatever the codec.
inline bool AudioTimeIsByHeader(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q52

// Leading audio is trimmed in whole samples.
inline bool AudioIsTrimmedInSamples(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q53

// ---- The index ----

// Positions count from the start of the file, whatever the index counts from.
inline bool OffsetsAreAbsolute(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q19, Quirk Q48

// Of two indexes the one that covers more of the file gives the table.
inline bool BothIndexesCompete(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q49

// An index without any key flag is usable.
inline bool IndexesNeedNoKeyFlag(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q50

// What becomes of a result: an index, or a chain of lists, that is cut off by the end of the file counts as far as it goes.
inline UInt32 AllowEarlyEnd(ModeOf pAviInfo, UInt32 result)
{
    return result == LX_ERR_AVIREAD_EOF && FollowsFormat(pAviInfo) ? LX_OK : result; // Quirk Q51
}

// An audio chunk is placed by the time at which it starts.
inline bool AudioIsPlacedByChunkStarts(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q32

// An OpenDML index on one level is noted as a super index of one entry.
inline bool OneLevelIndexesAreNoted(ModeOf pAviInfo)
{
    return FollowsFormat(pAviInfo);
} // Quirk Q36, Quirk Q37, Quirk Q40

// An entry of a super index names an index chunk, or is unused, or makes the index unusable.
inline bool EntriesNameIndexChunks(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q38

// The records of an index chunk follow the fields of its header.
inline bool RecordsFollowTheFields(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q39

// The index in a stream's list is the index of that stream, whatever its number and whatever its records name.
inline bool IndexesBelongToTheirList(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q41

// An unusable index of an audio stream costs the audio of that stream alone.
inline bool TracksFailAlone(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q55

// ---- Delivery ----

// A jump does not go to the audio of a track that the table knows nothing of.
inline bool AbsentTracksAreNoTarget(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q29

// A protected frame is found at the position of its "dd" chunk and at its own.
inline bool ProtectedFramesHaveTwoStarts(ModeOf pAviInfo) { return FollowsFormat(pAviInfo); } // Quirk Q45

} // namespace lxAviReadCore
