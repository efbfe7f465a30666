// The fixture of the tests of the format mode. Most of these tests read a file in both modes, which read it
// differently.

#pragma once

#include "ReaderTest.hpp"

#include <numeric>

namespace avitest {

constexpr UInt8 kDefault = 1;
constexpr UInt8 kFormat = LX_AVIREAD_FOLLOW_FORMAT | 1;

class FormatMode : public ReaderTest {
protected:
    AviBuilder builder;

    FormatMode() { builder.Add(VideoStream()).Add(PcmStream()); }

    // Adds `count` frames of 10 bytes with 40 ms of audio before each frame; every `step`-th frame is a key frame.
    void AddMedia(UInt32 count, UInt32 step)
    {
        for (UInt32 i = 0; i < count; ++i) {
            builder.Audio(1, Fill(640, static_cast<UInt8>(i))).Frame(0, Fill(10, static_cast<UInt8>(i)), i % step == 0);
        }
    }

    void AddSegments(UInt32 segments, UInt32 count, UInt32 step)
    {
        builder.dmlhTotalFrames = segments * count + 1;
        for (UInt32 i = 0; i < segments; ++i) {
            AddMedia(count, step);
            if (i + 1 < segments) {
                builder.NextRiff();
            }
        }
    }

    UInt32 OpenAs(UInt8 as, const Bytes& file)
    {
        EXPECT_EQ(lxAviReadCore_Close(), LX_OK);
        log.Clear();
        indxOptionOfOpen = as;
        return Open(file);
    }

    UInt32 ParseAs(UInt8 as, const Bytes& file)
    {
        EXPECT_EQ(OpenAs(as, file), LX_OK);
        const UInt32 result = lxAviReadCore_ParseIndex(0);
        Position();
        return result;
    }

    // The positions of the key frames of stream 0.
    std::vector<UInt64> KeyFrames() const
    {
        std::vector<UInt64> offsets;
        for (const MediaItem& item : builder.MediaItems()) {
            if (item.code.substr(0, 2) == "00" && item.bKey) {
                offsets.push_back(item.uiOffset);
            }
        }
        return offsets;
    }

    std::vector<UInt64> TableOffsets()
    {
        std::vector<UInt64> offsets;
        for (const auto& entry : Table()) {
            offsets.push_back(entry.videoChunkOffset);
        }
        return offsets;
    }

    UInt32 CountDelivered()
    {
        UInt32 count = 0;
        for (const Delivered& got : All()) {
            count += got.uiResult == LX_OK ? 1 : 0;
        }
        return count;
    }

    // Seeks to each key frame. The key frame has to be the first delivered video chunk, and audio has to come before
    // it.
    void ExpectEverySeekLands()
    {
        const auto table = Table();
        for (const auto& entry : table) {
            ASSERT_EQ(lxAviReadCore_SeekToTime(static_cast<UInt32>(entry.timeMsec), 0, lxAviRead_SetPosRoundDown),
                      entry.timeMsec);
            Delivered got = NextValid();
            const bool bAudioFirst = got.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO;
            while (got.uiResult == LX_OK && got.chunk.eStreamType != LX_AVIREAD_STREAM_VIDEO) {
                got = NextValid();
            }
            ASSERT_EQ(got.uiResult, LX_OK);
            EXPECT_EQ(got.chunk.bKeyFrame, 1);
            EXPECT_EQ(got.chunk.uiFrameNumber, entry.videoFrameNumber);
            EXPECT_EQ(got.uiPosition, entry.videoChunkOffset);
            EXPECT_TRUE(bAudioFirst);
        }
    }
};

} // namespace avitest
