// The oracle builds random files and lists all their chunks in file order (the linear reading). From this list alone it
// computes what the reader has to deliver. The tests make thousands of seeks, steps, re-arms and track switches, and
// compare the reader's results with the oracle.

#include "ReaderTest.hpp"

#include <cmath>
#include <iostream>
#include <random>

namespace avitest {
namespace {

constexpr size_t kNoKey = static_cast<size_t>(-1);

// A chunk of the linear reading.
struct Chunk0 {
    UInt64 uiStart;  // offset of the chunk, or of the "dd" chunk before it; counts like the index
    UInt64 uiHeader; // offset of the chunk's own header; counts like the index
    UInt32 uiSize;
    int iTrack;            // audio track, or -1 for video
    UInt32 uiFrame;        // video frame number
    UInt32 uiNumber;       // number in its track: of the chunk, or in format mode of its first block
    UInt64 uiBytes;        // payload bytes of the track before the chunk
    size_t uiKey = kNoKey; // index into the stored key frames
    Bytes payload;
    bool bIndexed = true;
};

struct Key {
    size_t uiChunk; // index into the linear reading
    UInt32 uiFrame;
    UInt64 uiOffset;
    struct Audio {
        UInt32 uiNumber = 0xFFFFFFFFu;
        UInt64 uiOffset = 0, uiBytes = 0;
    } audio[8];
};

// The expected state of the reader, computed from the list.
struct Model {
    size_t uiAt = 0;   // number of the next chunk
    size_t uiSync = 0; // number of the key frame that is the sync entry
    bool bAudioSync = false;
    bool bAwaitsSync = false;  // in format mode: a jump was made
    bool bJumped = false;      // the next chunk is the first after a jump
    bool bJumpToVideo = false; // the first chunk after a jump has to be video
    UInt32 uiVideoFrame = 0;
    UInt32 audioNumber[8] = {};
    UInt64 audioBytes[8] = {};
    size_t uiLast = 0; // key frame played last
    bool bLastValid = false;
};

class Oracle : public ReaderTest {
protected:
    std::mt19937 random{0};
    std::vector<Stream> tracks;
    lxAviRead_Strh_t video = {};
    std::vector<Chunk0> chunks;
    std::vector<Key> keys;
    Model model;
    bool follow = false; // true: format mode; false: default mode
    static inline UInt64 s_operations = 0;
    static inline UInt64 s_files = 0;

    UInt32 Pick(UInt32 from, UInt32 to) { return std::uniform_int_distribution<UInt32>(from, to)(random); }

    // ---- Times ----

    UInt32 AudioTime(int track, UInt32 number, UInt64 bytes) const
    {
        const Stream& stream = tracks[static_cast<size_t>(track)];
        const UInt32 tag = static_cast<UInt32>(stream.format[0] | stream.format[1] << 8);
        if (follow) {
            const UInt64 sample = stream.header.dwSampleSize;
            const UInt64 units = sample != 0 ? bytes : number;
            return static_cast<UInt32>(units * stream.header.dwScale * 1000 /
                                       (stream.header.dwRate * std::max<UInt64>(sample, 1)));
        }
        const UInt32 perSecond = Get32(stream.format, 8);
        if (tag == 1 || tag == 0x2000) {
            return static_cast<UInt32>(static_cast<double>(bytes) * 1000.0 / stream.header.dwRate);
        }
        if (stream.header.dwSampleSize == 1) {
            return static_cast<UInt32>(static_cast<double>(bytes) * 1000.0 / perSecond);
        }
        return static_cast<UInt32>(number * (stream.header.dwScale * (1000.0 / stream.header.dwRate)));
    }

    // What a chunk counts.
    UInt32 Units(int track, UInt32 size) const
    {
        const Stream& stream = tracks[static_cast<size_t>(track)];
        const UInt32 block = Get32(stream.format, 12) & 0xFFFFu;
        return follow && stream.header.dwSampleSize == 0 && block > 4 ? (size + block - 1) / block : 1;
    }

    // In format mode the rate of the stream counts, not the 40 ms of the main header.
    UInt32 VideoTime(UInt32 frame) const
    {
        return follow ? static_cast<UInt32>((UInt64{video.dwStart} + frame) * video.dwScale * 1000 / video.dwRate)
                      : frame * 40;
    }

    // ---- The file ----

    // In format mode some tracks have headers as many writers write them; default mode computes wrong times from these.
    Stream RandomTrack()
    {
        if (follow && Pick(0, 3) == 0) {
            Stream stream = Mp3VbrStream(8000); // chunks of several blocks, or none
            stream.format = AudioFormat(0x161, 2, 8000, 2000, 100, 0);
            return stream;
        }
        if (follow && Pick(0, 2) == 0) {
            Stream stream = PcmStream(8000, 2, 16);
            stream.header.dwScale = 1;
            stream.header.dwRate = 8000;
            if (Pick(0, 1) == 0) {
                stream.format[0] = 2; // a codec without a time in default mode
            }
            return stream;
        }
        switch (Pick(0, 3)) {
        case 0: return PcmStream(8000, 1, 16);
        case 1: return Mp3CbrStream(4000);
        case 2: return Mp3VbrStream(44100);
        default: return Ac3Stream(6000);
        }
    }

    static bool IsIdx1(IndexKind eKind) { return eKind == IndexKind::Idx1Relative || eKind == IndexKind::Idx1Absolute; }

    // Chunks and lists that may stand around the media data in format mode.
    Bytes RandomSurroundings()
    {
        Bytes bytes;
        for (UInt32 n = Pick(0, 3); n > 0; --n) {
            switch (Pick(0, 3)) {
            case 0: bytes += Chunk("JUNK", Fill(Pick(0, 30))); break;
            case 1: bytes += Chunk("abcd", Fill(Pick(0, 30))); break;
            case 2: bytes += List("INFO", Chunk("ISFT", Fill(Pick(0, 9)))); break;
            default: bytes += List("more", Fill(Pick(0, 9))); break;
            }
        }
        return bytes;
    }

    // The rate of usual films, 25 frames a second, or one of its relatives, with or without a start.
    Stream RandomVideo()
    {
        static constexpr UInt32 kRates[][2] = {{25, 1}, {30000, 1001}, {1000000, 41667}};
        const auto& rate = kRates[follow ? Pick(0, 2) : 0];
        Stream stream = VideoStream(rate[0], rate[1]);
        stream.header.dwStart = follow ? Pick(0, 3) : 0;
        video = stream.header;
        return stream;
    }

    // In format mode a track can begin before the picture, or later.
    void AddAudio(AviBuilder& builder, UInt32 frame, const std::vector<UInt32>& begins)
    {
        for (UInt32 t = 0; t < tracks.size(); ++t) {
            const UInt32 most = frame == 0 && follow && Pick(0, 2) == 0 ? 60 : 2;
            for (UInt32 n = frame < begins[t] ? 0 : Pick(0, most); n > 0; --n) {
                builder.Audio(t + 1, Fill(Pick(follow ? 0 : 1, 300), static_cast<UInt8>(random())));
            }
        }
    }

    AviBuilder RandomFile(IndexKind eKind, UInt32 budgetLeafs)
    {
        AviBuilder builder;
        builder.eIndex = eKind;
        if (follow) {
            builder.eLayout = IxLayout::At32;
            builder.beforeMovi = RandomSurroundings();
            builder.behindMovi = RandomSurroundings();
        }
        builder.Add(RandomVideo());
        tracks.clear();
        std::vector<UInt32> begins;
        for (UInt32 t = Pick(0, 3); t > 0; --t) {
            tracks.push_back(RandomTrack());
            builder.Add(tracks.back());
            begins.push_back(follow && Pick(0, 3) == 0 ? Pick(1, 60) : 0);
        }
        const bool bSuper = eKind == IndexKind::SuperStandard || eKind == IndexKind::SuperField;
        const UInt32 step = Pick(1, 6);
        const UInt32 frames = std::min(Pick(1, 900) * step, budgetLeafs > 1 ? 3000u : 2000u);
        const UInt32 segments = bSuper || follow ? Pick(1, 4) : 1;
        if (segments > 1) {
            builder.dmlhTotalFrames = frames + 1;
        }
        for (UInt32 i = 0; i < frames; ++i) {
            AddAudio(builder, i, begins);
            if ((IsIdx1(eKind) || follow) && Pick(0, 9) == 0) {
                builder.Drm(0, Fill(10, static_cast<UInt8>(i)));
            }
            builder.Frame(0, Fill(Pick(4, 40), static_cast<UInt8>(i)), i % step == 0, Pick(0, 1) == 0 ? "dc" : "db");
            if (segments > 1 && (i + 1) % (frames / segments + 1) == 0) {
                builder.NextRiff();
            }
        }
        builder.Frame(0, Fill(follow ? Pick(0, 8) : 8), false); // default mode does not reach the last bytes
        return builder;
    }

    // ---- The linear reading ----

    void ReadLinearly(const AviBuilder& builder, UInt32 skip)
    {
        chunks.clear();
        keys.clear();
        const bool bRelative = builder.eIndex == IndexKind::Idx1Relative && !follow;
        const UInt64 base = bRelative ? builder.MoviOffset() - 4 : 0;
        UInt32 frame = 0, keyNr = 0;
        UInt32 numbers[8] = {};
        UInt64 bytes[8] = {};
        const MediaItem* pDrm = nullptr;
        for (const MediaItem& item : builder.MediaItems()) {
            if (item.code.substr(2) == "dd") {
                pDrm = &item;
                continue;
            }
            Chunk0 chunk = {item.uiOffset - base,
                            item.uiOffset - base,
                            static_cast<UInt32>(item.payload.size()),
                            item.code[1] - '1',
                            0,
                            0,
                            0,
                            kNoKey,
                            item.payload};
            if (pDrm != nullptr) {
                chunk.uiStart = pDrm->uiOffset - base;
                pDrm = nullptr;
            }
            chunk.bIndexed = !IsIdx1(builder.eIndex) || item.uiRiff == 0; // idx1 covers only the first list
            if (chunk.iTrack < 0) {
                chunk.uiFrame = frame++;
                if (item.bKey && chunk.bIndexed && keyNr++ % skip == 0) {
                    chunk.uiKey = keys.size();
                    // an OpenDML index lists the frame, not the "dd" chunk before it
                    const UInt64 offset = IsIdx1(builder.eIndex) ? chunk.uiStart : chunk.uiHeader;
                    keys.push_back({chunks.size(), chunk.uiFrame, offset, {}});
                }
            } else {
                chunk.uiNumber = numbers[chunk.iTrack];
                numbers[chunk.iTrack] += Units(chunk.iTrack, chunk.uiSize);
                chunk.uiBytes = bytes[chunk.iTrack];
                bytes[chunk.iTrack] += chunk.uiSize;
            }
            chunks.push_back(chunk);
        }
        for (int t = 0; t < static_cast<int>(tracks.size()); ++t) {
            PlaceAudio(t);
        }
    }

    // Assigns to each key frame the chunk before the first chunk whose time is later than the key frame's time. The
    // search for a key frame begins where the search for the key frame before has ended.
    void PlaceAudio(int track)
    {
        std::vector<const Chunk0*> own;
        for (const Chunk0& chunk : chunks) {
            if (chunk.iTrack == track && chunk.bIndexed) {
                own.push_back(&chunk);
            }
        }
        size_t at = 1;
        for (size_t k = 0; k < keys.size() && !own.empty(); ++k) {
            const UInt32 keyTime = k == 0 && !follow ? 0 : VideoTime(keys[k].uiFrame);
            const auto begins = [&](size_t n) {
                const UInt64 bytes = follow ? own[n]->uiBytes : own[n - 1]->uiBytes + own[n]->uiSize;
                return AudioTime(track, own[n]->uiNumber, bytes);
            };
            while (at < own.size() && begins(at) <= keyTime) {
                ++at;
            }
            const Chunk0& chunk = *own[at - 1];
            keys[k].audio[track] = {chunk.uiNumber, chunk.uiHeader, chunk.uiBytes};
        }
    }

    void ExpectTable()
    {
        const auto table = Table();
        ASSERT_EQ(table.size(), keys.size());
        const bool bOpenDml = Info().bIndxPresent != 0;
        for (size_t k = 0; k < keys.size(); ++k) {
            ASSERT_EQ(table[k].videoFrameNumber, keys[k].uiFrame);
            ASSERT_EQ(table[k].videoChunkOffset, keys[k].uiOffset);
            ASSERT_EQ(table[k].timeMsec, VideoTime(keys[k].uiFrame));
            for (UInt32 t = 0; t < 8; ++t) {
                if (bOpenDml && t >= tracks.size()) {
                    ASSERT_EQ(table[k].audioFrameNumber[t], 0u); // the reader never writes this track
                    keys[k].audio[t] = {0, 0, 0};
                    continue;
                }
                ASSERT_EQ(table[k].audioFrameNumber[t], keys[k].audio[t].uiNumber) << "key " << k << " track " << t;
                ASSERT_EQ(table[k].audioChunkOffset[t], keys[k].audio[t].uiOffset);
                ASSERT_EQ(table[k].audioBytePosition[t], keys[k].audio[t].uiBytes);
            }
        }
    }

    // ---- What must be delivered ----

    UInt32 Trim(const Chunk0& chunk, UInt64 bytes) const
    {
        const Stream& stream = tracks[static_cast<size_t>(chunk.iTrack)];
        const UInt32 tag = static_cast<UInt32>(stream.format[0] | stream.format[1] << 8);
        if (tag == 0x2000 || stream.header.dwSampleSize == 0) {
            return 0;
        }
        const UInt32 blockBytes = follow ? stream.header.dwSampleSize : stream.header.dwScale;
        const float block =
            follow ? static_cast<float>(stream.header.dwScale * 1000.0) / static_cast<float>(stream.header.dwRate)
                   : static_cast<float>(blockBytes * 1000.0) / static_cast<float>(Get32(stream.format, 8));
        const float sync = static_cast<float>(VideoTime(keys[model.uiSync].uiFrame));
        const UInt32 number = follow ? chunk.uiNumber : model.audioNumber[chunk.iTrack];
        const auto audio = static_cast<float>(AudioTime(chunk.iTrack, number, bytes));
        const float blocks = (sync - (block + audio)) / block;
        if (!(blocks >= 1.0f)) {
            return 0;
        }
        const double trimmed = std::floor(static_cast<double>(blocks)) * blockBytes;
        return trimmed < chunk.uiSize ? static_cast<UInt32>(trimmed) : 0;
    }

    // Checks whether the reader delivers the next chunk of the file, and with which values.
    void ExpectNext(UInt32 selected)
    {
        Delivered got = Next(selected);
        if (model.uiAt >= chunks.size()) {
            ASSERT_EQ(got.uiResult, LX_AVIREAD_END_OF_MEDIA);
            return;
        }
        const Chunk0& chunk = chunks[model.uiAt++];
        if (IsRefused(chunk)) {
            ASSERT_EQ(got.uiResult, LX_ERR_AVIREAD_JUMP_NOT_VIDEO);
            model.bAudioSync = false;
        } else if (chunk.iTrack < 0) {
            ExpectVideo(chunk, got);
        } else {
            ExpectAudio(chunk, got, selected);
        }
        SkipRejected(got);
    }

    // Whether the jump requires video, but leads to audio. This happens when a step back is armed, and then, before its
    // execution, the key frame is armed again with audio.
    bool IsRefused(const Chunk0& chunk)
    {
        const bool bRefused = model.bJumped && model.bJumpToVideo && chunk.iTrack >= 0;
        model.bJumpToVideo = model.bJumpToVideo && !model.bJumped;
        model.bJumped = false;
        return bRefused;
    }

    void ExpectVideo(const Chunk0& chunk, const Delivered& got)
    {
        bool bDeliver = false;
        if (chunk.uiKey != kNoKey) {
            model.uiLast = chunk.uiKey;
            model.bLastValid = true;
            model.uiVideoFrame = chunk.uiFrame;
            bDeliver = chunk.uiFrame >= keys[model.uiSync].uiFrame;
        } else {
            bDeliver = model.uiVideoFrame >= keys[model.uiSync].uiFrame;
            model.uiVideoFrame += bDeliver ? 1 : 0;
        }
        ASSERT_EQ(got.uiResult, bDeliver ? LX_OK : LX_ERR_AVIREAD_VIDEO_SKIPPED);
        if (bDeliver) {
            ASSERT_EQ(got.chunk.bKeyFrame, chunk.uiKey != kNoKey ? 1 : 0);
            ASSERT_EQ(got.chunk.uiFrameNumber, follow ? chunk.uiFrame : model.uiVideoFrame);
            ASSERT_EQ(got.chunk.bDrm, chunk.uiStart != chunk.uiHeader ? 1 : 0);
            ASSERT_EQ(got.payload, chunk.payload);
        }
    }

    // In format mode every chunk has the number and the position that it has in the file, on whatever way it is reached.
    // Chunks before the sync chunk are rejected.
    void ExpectAudioByFormat(const Chunk0& chunk, const Delivered& got, UInt32 selected)
    {
        const bool bEarly = model.bAwaitsSync && chunk.uiHeader < keys[model.uiSync].audio[chunk.iTrack].uiOffset;
        if (chunk.iTrack != static_cast<int>(selected) || bEarly) {
            ASSERT_EQ(got.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
            return;
        }
        const UInt32 trimmed = model.bAudioSync ? Trim(chunk, chunk.uiBytes) : 0;
        model.bAudioSync = false;
        ASSERT_EQ(got.uiResult, LX_OK);
        ASSERT_EQ(got.chunk.uiFrameNumber, chunk.uiNumber);
        ASSERT_EQ(got.chunk.uiBytePosition, chunk.uiBytes + trimmed);
        ASSERT_EQ(got.payload, Bytes(chunk.payload.begin() + trimmed, chunk.payload.end()));
    }

    void ExpectAudio(const Chunk0& chunk, const Delivered& got, UInt32 selected)
    {
        if (follow) {
            ExpectAudioByFormat(chunk, got, selected);
            return;
        }
        UInt32& number = model.audioNumber[chunk.iTrack];
        UInt64& bytes = model.audioBytes[chunk.iTrack];
        if (chunk.iTrack != static_cast<int>(selected)) {
            ASSERT_EQ(got.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
            ++number;
            bytes += chunk.uiSize;
            return;
        }
        UInt32 trimmed = 0;
        if (model.bAudioSync) {
            model.bAudioSync = false;
            if (chunk.uiHeader < keys[model.uiSync].audio[selected].uiOffset) {
                ASSERT_EQ(got.uiResult, LX_ERR_AVIREAD_AUDIO_SKIPPED);
                return;
            }
            trimmed = Trim(chunk, bytes);
        }
        ASSERT_EQ(got.uiResult, LX_OK);
        ASSERT_EQ(got.chunk.uiFrameNumber, number);
        ASSERT_EQ(got.chunk.uiBytePosition, bytes + trimmed);
        ASSERT_EQ(got.payload, Bytes(chunk.payload.begin() + trimmed, chunk.payload.end()));
        ++number;
        bytes += chunk.uiSize;
    }

    // ---- Jumps ----

    void GoTo(UInt64 offset)
    {
        model.uiVideoFrame = 0;
        model.bJumped = true;
        model.bAwaitsSync = true;
        for (model.uiAt = 0; model.uiAt < chunks.size(); ++model.uiAt) {
            if (chunks[model.uiAt].uiStart == offset || chunks[model.uiAt].uiHeader == offset) {
                return;
            }
        }
        FAIL() << "no chunk at " << offset;
    }

    // Models a seek: it jumps to the earlier of audio and video and loads all counters. With `bAgain` the rule about
    // video as first chunk stays as it was.
    void ArmInFull(size_t key, int track, bool bAgain = false)
    {
        const Key& target = keys[key];
        const bool bAudio = track >= 0 && (target.audio[track].uiOffset != 0 || !follow);
        GoTo(bAudio ? std::min(target.uiOffset, target.audio[track].uiOffset) : target.uiOffset);
        if (!bAgain || follow) {
            model.bJumpToVideo = !bAudio || target.audio[track].uiOffset >= target.uiOffset;
        }
        for (UInt32 t = 0; t < 8; ++t) {
            model.audioNumber[t] = target.audio[t].uiNumber;
            model.audioBytes[t] = target.audio[t].uiBytes;
        }
        model.uiSync = key;
        model.bAudioSync = true;
    }

    void ArmVideoOnly(size_t key)
    {
        GoTo(keys[key].uiOffset);
        model.bJumpToVideo = model.bJumpToVideo || follow;
        model.uiSync = key;
        model.bAudioSync = true;
    }

    size_t KeyForTime(UInt32 time, UInt32 rounding) const
    {
        size_t down = 0;
        size_t up = keys.size() - 1;
        for (size_t k = 0; k < keys.size(); ++k) {
            down = VideoTime(keys[k].uiFrame) <= time ? k : down;
            up = VideoTime(keys[keys.size() - 1 - k].uiFrame) >= time ? keys.size() - 1 - k : up;
        }
        if (rounding == lxAviRead_SetPosRoundDown || down == up) {
            return down;
        }
        if (rounding == lxAviRead_SetPosRoundUp) {
            return up;
        }
        const auto distance = [&](size_t k) {
            return std::abs(static_cast<double>(VideoTime(keys[k].uiFrame)) - time);
        };
        return distance(up) < distance(down) ? up : down;
    }

    int RandomTrackToPlay()
    {
        // In default mode a caller should not pass a track without chunks (quirk Q29).
        const int track = static_cast<int>(Pick(0, static_cast<UInt32>(tracks.size()))) - 1;
        return !follow && track >= 0 && keys[0].audio[track].uiNumber == 0xFFFFFFFFu ? -1 : track;
    }

    void RandomOperation(int& selected)
    {
        ++s_operations;
        const int track = RandomTrackToPlay();
        Bool found = 0;
        switch (Pick(0, 6)) {
        case 0:
        case 1: {
            const UInt32 time = Pick(0, VideoTime(keys.back().uiFrame) + 200);
            const UInt32 rounding = Pick(0, 2);
            const size_t key = KeyForTime(time, rounding);
            ASSERT_EQ(lxAviReadCore_SeekToTime(time, track, rounding), VideoTime(keys[key].uiFrame));
            ArmInFull(key, track);
            selected = track;
            break;
        }
        case 2: { // a step forward, to the next key frame that delivery has not passed
            size_t key = model.uiLast;
            const UInt64 current = Info().CurrentOffset;
            const bool bMoved = key + 1 < keys.size();
            while (key + 1 < keys.size()) {
                ++key;
                if (keys[key].uiOffset >= current) {
                    break;
                }
            }
            ASSERT_EQ(lxAviReadCore_SetJumpToNextKeyFrame(&found, track), LX_OK);
            ASSERT_EQ(found, bMoved ? 1 : 0);
            model.uiLast = key;
            model.bLastValid = true;
            ArmInFull(key, track);
            selected = track;
            break;
        }
        case 3: {
            const bool bMoved = model.uiLast + 1 < keys.size();
            ASSERT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, track), LX_OK);
            ASSERT_EQ(found, bMoved ? 1 : 0);
            if (bMoved) {
                ArmVideoOnly(++model.uiLast);
                model.bLastValid = true;
            } else {
                ArmInFull(model.uiLast, track);
                selected = track;
            }
            break;
        }
        case 4: {
            const bool bMoved = model.uiLast > 0;
            ASSERT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, track), LX_OK);
            ASSERT_EQ(found, bMoved ? 1 : 0);
            if (bMoved) {
                ArmVideoOnly(--model.uiLast);
                model.bJumpToVideo = true;
                model.bLastValid = true;
            } else {
                ArmInFull(model.uiLast, track);
                selected = track;
            }
            break;
        }
        case 5: {
            const auto count = static_cast<Int32>(Pick(1, 6)) * (Pick(0, 1) == 0 ? 1 : -1);
            const auto target = static_cast<std::int64_t>(model.uiLast) + count;
            const bool bInside = model.bLastValid && target >= 0 && target < static_cast<std::int64_t>(keys.size());
            ASSERT_EQ(lxAviReadCore_JumpInKeyFrames(count, track), LX_OK);
            ArmInFull(bInside ? static_cast<size_t>(target) : 0, track);
            selected = track;
            break;
        }
        default:
            if (!model.bLastValid) {
                return;
            }
            ASSERT_EQ(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(track), LX_OK);
            if (track >= 0) {
                ArmInFull(model.uiLast, track, true);
                selected = track;
            } else {
                ArmVideoOnly(model.uiLast);
            }
            break;
        }
    }

    void Check(IndexKind eKind, UInt32 seed, UInt32 budgetLeafs)
    {
        random.seed(seed);
        AviBuilder builder = RandomFile(eKind, budgetLeafs);
        log.SetMask(0);
        Faults().Clear();
        Faults().SetBuffered(true);
        const Bytes file = builder.Build();
        const UInt8 option = follow ? LX_AVIREAD_FOLLOW_FORMAT | 1 : 1;
        ASSERT_EQ(Open(file, true, 1, budgetLeafs * kOneLeafBudget, option), LX_OK);
        if (eKind != IndexKind::OneLevelStandard || follow) {
            ASSERT_EQ(lxAviReadCore_ParseIndex(0), LX_OK);
        }
        Position();
        UInt32 keyCount = 0;
        for (const MediaItem& item : builder.MediaItems()) {
            const bool bIndexed = !IsIdx1(eKind) || item.uiRiff == 0;
            keyCount += item.code[1] == '0' && item.bKey && bIndexed ? 1 : 0;
        }
        const UInt32 leafs = (keyCount + kLeaf - 1) / kLeaf;
        ReadLinearly(builder, (leafs + budgetLeafs - 1) / budgetLeafs);
        ASSERT_NO_FATAL_FAILURE(ExpectTable());
        model = {};
        ++s_files;
        int selected = tracks.empty() ? -1 : 0;
        for (UInt32 operation = 0; operation < 60; ++operation) {
            for (UInt32 n = Pick(0, 25); n > 0; --n) {
                if (Pick(0, 40) == 0 && !tracks.empty()) {
                    selected = static_cast<int>(Pick(0, static_cast<UInt32>(tracks.size()) - 1)); // switches the track
                }
                ASSERT_NO_FATAL_FAILURE(ExpectNext(selected >= 0 ? static_cast<UInt32>(selected) : 7));
            }
            ASSERT_NO_FATAL_FAILURE(RandomOperation(selected)) << "operation " << operation;
        }
    }

    void CheckMany(IndexKind eKind, UInt32 files, bool bFollow = false)
    {
        follow = bFollow;
        for (UInt32 seed = 1; seed <= files; ++seed) {
            ASSERT_NO_FATAL_FAILURE(Check(eKind, seed, seed % 3 == 0 ? 1 : 4)) << "seed " << seed;
        }
        std::cout << s_files << " files, " << s_operations << " operations, mismatches 0\n";
    }
};

TEST_F(Oracle, Idx1WithRelativeOffsets) { CheckMany(IndexKind::Idx1Relative, 60); }
TEST_F(Oracle, Idx1WithAbsoluteOffsets) { CheckMany(IndexKind::Idx1Absolute, 40); }
TEST_F(Oracle, SuperIndexOfStandardIndexes) { CheckMany(IndexKind::SuperStandard, 60); }
TEST_F(Oracle, SuperIndexOfFieldIndexes) { CheckMany(IndexKind::SuperField, 40); }
TEST_F(Oracle, OneLevelIndex) { CheckMany(IndexKind::OneLevelStandard, 40); }

TEST_F(Oracle, FollowingTheFormatIdx1WithRelativeOffsets) { CheckMany(IndexKind::Idx1Relative, 60, true); }
TEST_F(Oracle, FollowingTheFormatIdx1WithAbsoluteOffsets) { CheckMany(IndexKind::Idx1Absolute, 40, true); }
TEST_F(Oracle, FollowingTheFormatSuperIndexOfStandardIndexes) { CheckMany(IndexKind::SuperStandard, 60, true); }
TEST_F(Oracle, FollowingTheFormatSuperIndexOfFieldIndexes) { CheckMany(IndexKind::SuperField, 40, true); }
TEST_F(Oracle, FollowingTheFormatOneLevelIndex) { CheckMany(IndexKind::OneLevelStandard, 40, true); }
TEST_F(Oracle, FollowingTheFormatOneLevelFieldIndex) { CheckMany(IndexKind::OneLevelField, 40, true); }

} // namespace
} // namespace avitest
