// Format mode: key frames with a DRM descriptor.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, ProtectedKeyFramesAreRecognisedAndDeliveredWhole)
{
    struct Case {
        IndexKind eKind;
        bool bDrmIndexed;
    };
    for (const Case& one : {Case{IndexKind::SuperStandard, false}, Case{IndexKind::Idx1Relative, true},
                            Case{IndexKind::Idx1Relative, false}}) {
        builder = AviBuilder();
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = one.eKind;
        builder.eLayout = IxLayout::At32;
        for (UInt32 i = 0; i < 8; ++i) {
            builder.Media("00dd", Fill(10, static_cast<UInt8>(0xA0 + i)), false, one.bDrmIndexed);
            builder.Frame(0, Fill(10, static_cast<UInt8>(i)), i % 4 == 0).Audio(1, Fill(640));
        }
        const Bytes file = builder.Build();
        ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
        ASSERT_EQ(Table().size(), 2u);
        std::vector<Delivered> frames;
        for (const Delivered& got : All()) {
            if (got.uiResult == LX_OK && got.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO) {
                EXPECT_EQ(got.chunk.bKeyFrame, frames.size() % 4 == 0 ? 1 : 0);
                frames.push_back(got);
            }
        }
        EXPECT_EQ(frames.size(), 8u);
        static_cast<void>(lxAviReadCore_SeekToTime(160, -1, lxAviRead_SetPosRoundDown));
        const Delivered got = Next();
        ASSERT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.bKeyFrame, 1);
        EXPECT_EQ(got.chunk.bDrm, 1);
        EXPECT_EQ(Bytes(std::begin(got.chunk.DrmInfo), std::end(got.chunk.DrmInfo)), Fill(10, 0xA4));
        EXPECT_EQ(got.payload, Fill(10, 4));
        EXPECT_EQ(got.uiPosition, builder.MediaItems()[13].uiOffset);
    }
}

TEST_F(FormatMode, OnlyADescriptorDirectlyBeforeTheFrameBelongsToIt)
{
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    builder.Frame(0, Fill(10), true);
    builder.Drm(0, Fill(10)).Audio(1, Fill(64)).Frame(0, Fill(10, 1), true); // audio between "dd" chunk and frame
    builder.Drm(1, Fill(10)).Frame(0, Fill(10, 2), true);                    // "dd" chunk of another stream
    builder.Drm(0, Fill(12)).Frame(0, Fill(10, 3), true);                    // "dd" chunk of another size
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    for (const UInt32 frame : {0u, 1u, 2u, 3u}) {
        static_cast<void>(lxAviReadCore_SeekToTime(frame * 40, -1, lxAviRead_SetPosRoundDown));
        const Delivered got = Next();
        EXPECT_EQ(got.uiResult, LX_OK);
        EXPECT_EQ(got.chunk.bDrm, 0);
        EXPECT_EQ(got.chunk.uiFrameNumber, frame);
    }
}

TEST_F(FormatMode, BeforeTheFirstChunkThereIsNoDescriptor)
{
    AddSegments(2, 2, 1);
    ASSERT_EQ(ParseAs(kFormat, builder.Build()), LX_OK);
    const UInt64 second = Info().pCurrentAvix->pNextAvix->moviDataOffset;
    for (const UInt64 first : {Info().moviOffset, second}) {
        for (const UInt64 distance : {UInt64{0}, UInt64{17}}) {
            Info().JumpOffset = first + distance;
            const UInt64 seeks = Faults().Seeks();
            static_cast<void>(Next(7)); // no audio is played, so that none is counted
            EXPECT_EQ(Faults().Seeks(), seeks + 1);
        }
    }
    Info().JumpOffset = Info().moviOffset + 18;
    const UInt64 seeks = Faults().Seeks();
    static_cast<void>(Next(7));             // no audio is played, so that none is counted
    EXPECT_EQ(Faults().Seeks(), seeks + 2); // here is room for a "dd" chunk before the target

    // the same without a segment record
    Faults().Free(Info().pCurrentAvix->pNextAvix);
    Faults().Free(Info().pCurrentAvix);
    Info().pCurrentAvix = nullptr;
    Info().JumpOffset = Info().moviOffset;
    EXPECT_EQ(Next().uiResult, LX_OK);
}

} // namespace
} // namespace avitest
