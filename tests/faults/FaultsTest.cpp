// These tests let every allocation, read and seek fail in turn. In each run the n-th call fails, or the n-th call and
// all calls after it; n counts up from 1 until a run meets no fault. A run opens, indexes, plays to the end, seeks and
// resumes, steps, rewinds, opens the open file again, and closes. The runs use files with every kind of index, in
// default mode and in format mode. After each run the test checks that every result is a defined code, that Close
// leaves nothing allocated and the state all zero, and that the next Open delivers everything.

#include "ReaderTest.hpp"

#include <functional>
#include <iostream>
#include <set>

namespace avitest {
namespace {

constexpr UInt32 kNone = LX_OK;

class FaultLoops : public ReaderTest {
protected:
    FaultLoops() { log.SetMask(0x8000); }

    static AviBuilder Plain()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream());
        builder.beforeMovi = Chunk("JUNK", Fill(6));
        AddMedia(builder, 0, 12);
        return builder;
    }

    static AviBuilder Super()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::SuperStandard;
        builder.dmlhTotalFrames = 24;
        AddMedia(builder, 0, 12);
        builder.NextRiff();
        AddMedia(builder, 12, 24);
        return builder;
    }

    static AviBuilder OneLevel()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::OneLevelStandard;
        AddMedia(builder, 0, 12);
        return builder;
    }

    // These files exercise code that runs only in format mode.
    static AviBuilder Hybrid()
    {
        AviBuilder builder = Super();
        builder.eLayout = IxLayout::At32;
        builder.bIdx1Too = true;
        builder.behindMovi = Chunk("abcd", Fill(6));
        return builder;
    }

    static AviBuilder Protected()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::OneLevelField;
        for (UInt32 i = 0; i < 6; ++i) {
            builder.Audio(1, Fill(640)).Drm(0, Fill(10)).Frame(0, Fill(9), i % 3 == 0);
        }
        return builder;
    }

    // Headers whose chunks are kept, and two video streams.
    static AviBuilder Rich()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream()).Add(VideoStream());
        builder.streams[0].format += Fill(7);
        builder.streams[0].extra = Chunk("strn", Text("name")) + Chunk("vprp", Fill(20));
        builder.beforeMovi = List("INFO", Chunk("INAM", Text("title")));
        builder.eIndex = IndexKind::SuperStandard;
        for (UInt32 i = 0; i < 6; ++i) {
            builder.Audio(1, Fill(640)).Frame(0, Fill(9), i % 3 == 0).Frame(2, Fill(9), i % 3 == 0);
        }
        return builder;
    }

    // No index, a chunk that claims too much, and a list that is longer than it says.
    static Bytes Damaged()
    {
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream());
        builder.eIndex = IndexKind::None;
        AddMedia(builder, 0, 4);
        Bytes file = builder.Build();
        Patch32(file, static_cast<size_t>(builder.MediaItems()[3].uiOffset) + 4, 0x7FFFFFFF);
        const size_t movi = Find(file, "movi");
        Patch32(file, movi - 4, static_cast<UInt32>(builder.MediaItems()[6].uiOffset + 100 - movi));
        return file;
    }

    static void AddMedia(AviBuilder& builder, UInt32 from, UInt32 to)
    {
        for (UInt32 i = from; i < to; ++i) {
            builder.Audio(1, Fill(640, static_cast<UInt8>(i))).Frame(0, Fill(9, static_cast<UInt8>(i)), i % 4 == 0);
        }
    }

    UInt32 OpenFile(UInt32 attempts)
    {
        if (!bByStream) {
            return lxAviReadCore_Open(0, "test.avi", attempts, kPlenty, option, &allIndexed);
        }
        return lxAviReadCore_OpenStream(0, fopen64("test.avi", "rb"), attempts, kPlenty, option, &allIndexed);
    }

    // Runs a whole session as a player does. Returns the first result that the session notes.
    UInt32 Session(UInt32 attempts)
    {
        UInt32 first = kNone;
        const auto note = [&](UInt32 code) {
            m_codes.insert(code);
            first = first == kNone ? code : first;
            return code;
        };
        if (note(OpenFile(attempts)) != LX_OK) {
            return first;
        }
        lxAviRead_SetPositionRangeInfo_t range = {};
        EXPECT_EQ(lxAviReadCore_GetSetPositionRangeInfo(&range), LX_OK);
        if (range.uiLastKeyFrameNr == 0xFFFFFFFFu || option != 1) {
            note(lxAviReadCore_ParseIndex(0));
        }
        note(lxAviReadCore_PositionTheFileHandleToPlayData(&Info()));
        note(PlayToTheEnd());
        Bool found = 0;
        if (Info().KeyFramesListAsArrayLength > 0 && first == kNone) {
            static_cast<void>(lxAviReadCore_SeekToTime(300, 0, lxAviRead_SetPosRoundNearest));
            note(PlayToTheEnd());
            EXPECT_EQ(lxAviReadCore_SetJumpToPrevKeyFrame(&found, 0), LX_OK);
            note(PlayToTheEnd());
            EXPECT_EQ(lxAviReadCore_JumpInKeyFrames(-2, 0), LX_OK);
            EXPECT_EQ(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, 0), LX_OK);
            note(PlayToTheEnd());
        }
        if (option != 1) {
            note(lxAviReadCore_ParseMediaData(0, nullptr, nullptr));
            note(lxAviReadCore_WalkMediaData(PassOver, nullptr));
        }
        lxAviReadCore_DeliverAllTracks(1); // nothing in the default mode
        if (Info().KeyFramesListAsArrayLength > 0 && first == kNone) {
            static_cast<void>(lxAviReadCore_SeekToTimeNsec(300000000, 0, lxAviRead_SetPosRoundNearest));
            note(PlayToTheEnd());
        }
        lxAviReadCore_DeliverAllTracks(0);
        if (lxAviReadCore_SelectVideoStream(2) == LX_OK) {
            note(lxAviReadCore_ParseIndex(0));
        }
        lxAviReadCore_RewindToStart();
        note(PlayToTheEnd());
        if (lxAviReadCore_FileSeek(&Info(), 0, 0) == 1) {
            note(lxAviReadCore_Open(0, "", attempts, kPlenty, option, &allIndexed)); // opens the open file again
        }
        return first;
    }

    static UInt32 PassOver(void* /*pUser*/, const lxAviRead_MediaChunk_t* /*pChunk*/) { return 1; }

    UInt32 PlayToTheEnd()
    {
        Bytes buffer(4 * 4096);
        for (UInt32 i = 0; i < 1000; ++i) {
            lxAviRead_ChunkData_t chunk = {};
            Bool jumped = 0;
            const UInt32 result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);
            m_codes.insert(result);
            if (result == LX_AVIREAD_END_OF_MEDIA) {
                return LX_OK;
            }
            if (result == LX_OK && chunk.uiSize <= 4096) {
                if (const UInt32 read = lxAviReadCore_GetChunk(reinterpret_cast<UInt32*>(buffer.data()), chunk.uiSize);
                    read != LX_OK) {
                    return read;
                }
            } else if (result == LX_ERR_AVIREAD_READ || result == LX_ERR_AVIREAD_EOF ||
                       result == LX_ERR_AVIREAD_ABORTED || result == LX_ERR_AVIREAD_SEEK ||
                       result == LX_ERR_AVIREAD_JUMP_RANGE) {
                return result;
            }
        }
        ADD_FAILURE() << "delivery does not end";
        return LX_OK;
    }

    // Checks that nothing is left over, and that the reader still plays a good file.
    void ExpectRecovery(const Bytes& good, size_t chunks)
    {
        Faults().FailAllocation(0);
        Faults().FaultRead(0, {});
        Faults().FailSeek(0);
        ASSERT_EQ(lxAviReadCore_SetAbortFlag(0), LX_OK);
        ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
        ASSERT_EQ(Faults().LiveAllocations(), 0u);
        ASSERT_EQ(AsBytes(Info()), Bytes(sizeof(Info()), 0));
        Faults().SetBuffered(true); // what is tested here has no faults
        ASSERT_EQ(Open(good), LX_OK);
        Position();
        ASSERT_EQ(All().size(), chunks);
        Faults().SetBuffered(false);
    }

    void Exhaust(const Bytes& file, const std::function<void(UInt64, bool)>& arm, UInt32 attempts)
    {
        const Bytes good = Plain().Build();
        for (const bool bFromThenOn : {false, true}) {
            for (UInt64 n = 1;; n += stride) {
                ASSERT_LT(n, 5000u) << "never without a fault";
                Faults().Serve("test.avi", file);
                ASSERT_EQ(lxAviReadCore_Close(), LX_OK);
                arm(n, bFromThenOn);
                static_cast<void>(Session(attempts));
                const bool bMet = Faults().Met();
                ExpectRecovery(good, 25);
                if (!bMet) {
                    break;
                }
            }
        }
        const std::set<UInt32> defined = {LX_OK,
                                          LX_AVIREAD_END_OF_MEDIA,
                                          LX_ERR_AVIREAD_READ,
                                          LX_ERR_AVIREAD_NO_MEMORY,
                                          LX_ERR_AVIREAD_OPEN,
                                          LX_ERR_AVIREAD_NOT_AVI,
                                          LX_ERR_AVIREAD_SEEK,
                                          LX_ERR_AVIREAD_EOF,
                                          LX_ERR_AVIREAD_NO_INDEX,
                                          LX_ERR_AVIREAD_AUDIO_SKIPPED,
                                          LX_ERR_AVIREAD_VIDEO_SKIPPED,
                                          LX_ERR_AVIREAD_JUMP_NOT_VIDEO,
                                          LX_ERR_AVIREAD_BAD_STREAM,
                                          LX_ERR_AVIREAD_ABORTED,
                                          LX_ERR_AVIREAD_NO_KEY_FRAME,
                                          LX_ERR_AVIREAD_AVIX_LIST,
                                          LX_ERR_AVIREAD_INDEX_STREAM,
                                          LX_ERR_AVIREAD_JUMP_RANGE};
        for (const UInt32 code : m_codes) {
            EXPECT_TRUE(defined.contains(code)) << std::hex << code;
        }
        std::cout << "faults injected so far: " << Faults().Injected() << '\n';
    }

    void ExhaustAllFiles(const std::function<void(UInt64, bool)>& arm, UInt32 attempts)
    {
        option = 1;
        for (AviBuilder builder : {Plain(), Super(), OneLevel()}) {
            Exhaust(builder.Build(), arm, attempts);
        }
        option = LX_AVIREAD_FOLLOW_FORMAT | 1;
        for (AviBuilder builder : {Plain(), Hybrid(), Protected(), Rich()}) {
            bByStream = !bByStream; // the files are the reader's own, and streams of the caller, in turn
            Exhaust(builder.Build(), arm, attempts);
        }
        bByStream = false;
        Exhaust(Damaged(), arm, attempts);
        Bytes unfinished = Plain().Build();
        Patch32(unfinished, Find(unfinished, "movi") - 4, 0);
        Exhaust(unfinished, arm, attempts);
    }

    UInt8 option = 1;
    bool bByStream = false;
    UInt64 stride = 1; // from fault to fault
    std::set<UInt32> m_codes;
};

TEST_F(FaultLoops, EveryAllocation)
{
    ExhaustAllFiles([this](UInt64 n, bool bFromThenOn) { Faults().FailAllocation(n, bFromThenOn); }, 1);
    EXPECT_TRUE(m_codes.contains(LX_ERR_AVIREAD_NO_MEMORY));
}

TEST_F(FaultLoops, EverySeek)
{
    ExhaustAllFiles([this](UInt64 n, bool bFromThenOn) { Faults().FailSeek(n, bFromThenOn); }, 1);
    EXPECT_TRUE(m_codes.contains(LX_ERR_AVIREAD_SEEK));
}

// One attempt fails every read in turn; with other numbers of attempts it is every third, so that every byte of a word
// has its turn somewhere.
class ReadFaultLoops : public FaultLoops, public ::testing::WithParamInterface<UInt32> {
protected:
    ReadFaultLoops() { stride = GetParam() == 1 ? 1 : 3; }
};

TEST_P(ReadFaultLoops, EveryReadComesShort)
{
    ExhaustAllFiles(
        [this](UInt64 n, bool bFromThenOn) {
            Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 1}, bFromThenOn);
        },
        GetParam());
    EXPECT_TRUE(m_codes.contains(LX_ERR_AVIREAD_READ));
}

TEST_P(ReadFaultLoops, EveryReadFailsWhole)
{
    ExhaustAllFiles(
        [this](UInt64 n, bool bFromThenOn) {
            Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 0}, bFromThenOn);
        },
        GetParam());
}

TEST_P(ReadFaultLoops, EveryReadMeetsTheEndOfTheFile)
{
    ExhaustAllFiles(
        [this](UInt64 n, bool bFromThenOn) {
            Faults().FaultRead(n, {ReadFault::Kind::EndOfFile, 1}, bFromThenOn);
        },
        GetParam());
    EXPECT_TRUE(m_codes.contains(LX_ERR_AVIREAD_EOF));
}

TEST_P(ReadFaultLoops, TheAbortFlagIsRaisedAtEveryRead)
{
    ExhaustAllFiles(
        [this](UInt64 n, bool bFromThenOn) {
            Faults().FaultRead(n, {ReadFault::Kind::ShortThenError, 1}, bFromThenOn);
            Faults().onRead = [n, bFromThenOn](UInt64 read) {
                if (read == n || (bFromThenOn && read > n)) {
                    static_cast<void>(lxAviReadCore_SetAbortFlag(1));
                }
            };
        },
        GetParam());
    EXPECT_TRUE(m_codes.contains(LX_ERR_AVIREAD_ABORTED));
}

INSTANTIATE_TEST_SUITE_P(Attempts, ReadFaultLoops, ::testing::Values(0u, 1u, 2u, 5u));

} // namespace
} // namespace avitest
