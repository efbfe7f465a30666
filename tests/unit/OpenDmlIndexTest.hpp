// The fixture of the tests of OpenDML indexes: one-level and super, standard and field, video and audio.

#pragma once

#include "ReaderTest.hpp"

namespace avitest {

class OpenDmlIndex : public ReaderTest {
protected:
    AviBuilder builder;

    OpenDmlIndex() { builder.Add(VideoStream()).Add(PcmStream()); }

    // Adds frames with two chunks of 20 ms of audio before each frame. Every fourth frame is a key frame.
    void AddMedia(UInt32 from, UInt32 to)
    {
        for (UInt32 i = from; i < to; ++i) {
            builder.Audio(1, Fill(320, static_cast<UInt8>(2 * i)));
            builder.Audio(1, Fill(320, static_cast<UInt8>(2 * i + 1)));
            builder.Frame(0, Fill(50 + i % 7, static_cast<UInt8>(i)), i % 4 == 0);
        }
    }

    // Adds 3000 key frames, which are more than one batch of records.
    void AddMediaWithoutAudio()
    {
        for (UInt32 i = 0; i < 3000; ++i) {
            builder.Frame(0, Fill(4), true);
        }
    }

    void AddSegments()
    {
        builder.dmlhTotalFrames = 60;
        AddMedia(0, 20);
        builder.NextRiff();
        AddMedia(20, 40);
        builder.NextRiff();
        AddMedia(40, 60);
    }

    // Seeks without audio, and returns the number of the first delivered frame.
    UInt32 Shown(UInt32 time)
    {
        static_cast<void>(lxAviReadCore_SeekToTime(time, -1, lxAviRead_SetPosRoundDown));
        const Delivered chunk = Next();
        EXPECT_EQ(chunk.uiResult, LX_OK);
        EXPECT_EQ(chunk.chunk.bKeyFrame, 1);
        EXPECT_EQ(chunk.payload.at(0), static_cast<UInt8>(chunk.chunk.uiFrameNumber));
        return chunk.chunk.uiFrameNumber;
    }

    static Bytes IndxHead(UInt32 longs, UInt8 subType, UInt8 type, UInt32 entries, std::string_view id = "00dc")
    {
        return U16(longs) + Bytes{subType, type} + U32(entries) + Text(id);
    }

    // Opens a file with one key frame, and with this chunk in the stream list of stream `nr`.
    UInt32 OpenWithIndx(const Bytes& chunk, UInt32 nr = 0, UInt32 flags = 0)
    {
        AviBuilder one;
        one.avih.dwFlags = flags;
        one.eIndex = IndexKind::None;
        one.Add(VideoStream()).Add(PcmStream());
        one.streams[nr].extra = chunk;
        one.Frame(0, Fill(40), true);
        return Open(one.Build());
    }
};

} // namespace avitest
