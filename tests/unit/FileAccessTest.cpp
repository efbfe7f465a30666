// Tests reads with a limited number of attempts, seeks, skips, and the position of delivery.

#include "ReaderTest.hpp"

#include <algorithm>

namespace avitest {
namespace {

class FileAccess : public ReaderTest {
protected:
    Bytes data = Fill(4096);

    FileAccess()
    {
        std::generate(data.begin(), data.end(), [value = 0u]() mutable { return static_cast<UInt8>(value++); });
    }

    // Opens the bytes as a file without parsing a header.
    void Attach(UInt32 attempts)
    {
        Faults().Serve("data", data);
        ASSERT_EQ(lxAviReadCore_Open(0, "data", attempts, 0, 1, &allIndexed), LX_ERR_AVIREAD_NOT_AVI);
        ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
        Faults().FaultRead(0, {});
        log.Clear();
    }
};

TEST_F(FileAccess, AReadThatCompletesIsExact)
{
    Attach(1);
    UInt32 buffer[4] = {};
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 7), LX_OK);
    EXPECT_EQ(AsBytes(buffer), (Bytes{0, 1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(FileAccess, ReadingNothingSucceeds)
{
    Attach(1);
    UInt32 word = 5;
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), &word, 0), LX_OK);
    EXPECT_EQ(word, 5u);
    EXPECT_EQ(Faults().Reads(), 0u);
}

TEST_F(FileAccess, TheEndOfTheFileEndsAReadAtOnceHoweverManyAttempts)
{
    Attach(1000);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 4094, 0), 1);
    UInt32 buffer[16] = {};
    Faults().FaultRead(0, {});
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 8), LX_ERR_AVIREAD_EOF);
    EXPECT_EQ(lxAviReadCore_FileEof(&Info()), 1);
    EXPECT_EQ(lxAvi2ReadCore_FileEof(&Info()), 1);
    EXPECT_TRUE(log.Has(0x8180, "leaving lxAviReadCore_FileRead()-eof.err=0x88019017(-2013163497). only 8 bytes left "
                                "unread"));
}

TEST_F(FileAccess, ZeroAttemptsAreOne)
{
    Attach(0);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 3});
    UInt32 buffer[16] = {};
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 8), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(Faults().Reads(), 1u);
}

TEST_F(FileAccess, AttemptsBoundTheRetries)
{
    Attach(3);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 1}, true);
    UInt32 buffer[32] = {};
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 8), LX_ERR_AVIREAD_READ);
    EXPECT_EQ(Faults().Reads(), 3u);
}

TEST_F(FileAccess, TheEofMessageNamesTheCountBeforeThatRead)
{
    Attach(2);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 5});
    Faults().FaultReadToo(2, {ReadFault::Kind::EndOfFile, 1});
    UInt32 buffer[64] = {};
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 12), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.HasPrefix("leaving lxAviReadCore_FileRead()-eof.err=0x88019017(-2013163497). only 7 bytes"));
}

TEST_F(FileAccess, TheAbortFlagEndsAShortRead)
{
    Attach(5);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    UInt32 buffer[32] = {};
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 8), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(Faults().Reads(), 1u);
}

TEST_F(FileAccess, TheAbortFlagDoesNotTouchAReadThatCompletes)
{
    Attach(5);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    UInt32 buffer[2] = {};
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 8), LX_OK);
}

TEST_F(FileAccess, TheOpenDmlReadCannotBeAborted)
{
    Attach(2);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    UInt32 buffer[32] = {};
    EXPECT_EQ(lxAvi2ReadCore_FileRead(&Info(), buffer, 8), LX_OK);
}

TEST_F(FileAccess, TheOpenDmlReadSaysWhenItsAttemptsAreUsedUp)
{
    Attach(1);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
    UInt32 buffer[32] = {};
    EXPECT_EQ(lxAvi2ReadCore_FileRead(&Info(), buffer, 8), LX_ERR_AVIREAD_READ);
    EXPECT_TRUE(log.Has(0x80, "lxAvi2ReadCore_FileRead() with err=0x88019017(-2013163497). only 6 bytes left unread"));
    log.Clear();
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2});
    EXPECT_EQ(lxAviReadCore_FileRead(&Info(), buffer, 8), LX_ERR_AVIREAD_READ);
    EXPECT_TRUE(log.Lines().empty()); // the core's read function logs nothing here
}

TEST_F(FileAccess, TheOpenDmlReadHasItsOwnEofMessage)
{
    Attach(1);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 4096, 0), 1);
    UInt32 word = 0;
    EXPECT_EQ(lxAvi2ReadCore_FileRead(&Info(), &word, 4), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has(0x8180, "leaving lxAvi2ReadCore_FileRead()-eof.err=0x88019017(-2013163497). only 4 bytes left "
                                "unread"));
}

TEST_F(FileAccess, ASeekTo4GiBAnd100LandsAt100)
{
    Attach(1);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), (1ull << 32) + 100, 0), 1);
    EXPECT_EQ(ftell(Info().pFile), 100);
}

TEST_F(FileAccess, ASeekTo2GiBFails)
{
    Attach(1);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 50, 0), 1);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0x80000000u, 0), 0);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0x7FFFFFFFu, 0), 1);
}

TEST_F(FileAccess, ARelativeSeekIsSigned)
{
    Attach(1);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 500, 0), 1);
    EXPECT_EQ(lxAviReadCore_FileSeek(&Info(), 0xFFFFFFFEu, 1), 1);
    EXPECT_EQ(ftell(Info().pFile), 498);
}

TEST_F(FileAccess, RemovingNothingReadsNothingAndSucceeds)
{
    Attach(1);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(0), LX_OK);
    EXPECT_EQ(Faults().Reads(), 0u);
    EXPECT_TRUE(log.Has(0x8400, "lxAviReadCore_RemoveChunk : size == 0 something is wrong returning "
                                "LX_ERR_BAD_PARAMETER"));
}

TEST_F(FileAccess, SkippingReadsPiecesOf1024Bytes)
{
    const std::pair<UInt32, std::vector<UInt64>> cases[] = {
        {1, {1}}, {1023, {1023}}, {1024, {1024}}, {1025, {1024, 1}}, {2048, {1024, 1024}}, {2500, {1024, 1024, 452}}};
    for (const auto& [size, pieces] : cases) {
        Faults().Clear();
        Attach(1);
        const size_t before = Faults().ReadSizes().size();
        EXPECT_EQ(lxAviReadCore_RemoveChunk(size), LX_OK);
        const auto& sizes = Faults().ReadSizes();
        EXPECT_EQ(std::vector<UInt64>(sizes.begin() + static_cast<long>(before), sizes.end()), pieces) << size;
        EXPECT_EQ(ftell(Info().pFile), static_cast<long>(size));
    }
}

TEST_F(FileAccess, SkippingNeitherCountsNorSeeksNorPads)
{
    Attach(1);
    const UInt64 seeks = Faults().Seeks();
    Info().CurrentOffset = 40;
    EXPECT_EQ(lxAviReadCore_RemoveChunk(77), LX_OK);
    EXPECT_EQ(Info().CurrentOffset, 40u);
    EXPECT_EQ(Faults().Seeks(), seeks);
}

TEST_F(FileAccess, SkippingReportsTheReadsThatFail)
{
    Attach(1);
    EXPECT_EQ(lxAviReadCore_RemoveChunk(5000), LX_ERR_AVIREAD_EOF);
    ASSERT_EQ(lxAviReadCore_FileSeek(&Info(), 0, 0), 1);
    Faults().FaultRead(2, {ReadFault::Kind::ShortThenError, 10});
    EXPECT_EQ(lxAviReadCore_RemoveChunk(3000), LX_ERR_AVIREAD_READ);
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 10});
    EXPECT_EQ(lxAviReadCore_RemoveChunk(3000), LX_ERR_AVIREAD_ABORTED);
}

TEST_F(FileAccess, ASkipInSeveralAttemptsStaysInItsBuffer)
{
    Attach(4);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 900}); // the rest would land at byte 3600 of 1024
    EXPECT_EQ(lxAviReadCore_RemoveChunk(2000), LX_OK);
    EXPECT_EQ(ftell(Info().pFile), 2000);
}

TEST_F(FileAccess, WhatHasNoRoomIsReadInOneAttempt)
{
    Attach(2);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 300}); // the rest would land at byte 1200 of 1024
    EXPECT_EQ(lxAviReadCore_RemoveChunk(1024), LX_OK);
    EXPECT_EQ(ftell(Info().pFile), 1024);
}

TEST_F(FileAccess, ARecordReadInSeveralAttemptsStaysInItsRecord)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Frame(0, Fill(4), true);
    const Bytes file = builder.Build();
    Faults().Serve("test.avi", file);
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 2}, true); // every read returns two bytes
    EXPECT_EQ(lxAviReadCore_Open(0, "test.avi", 100, kPlenty, 1, &allIndexed), LX_ERR_AVIREAD_NOT_AVI);
    EXPECT_GT(Faults().Reads(), 2u);
}

TEST_F(FileAccess, ThePositionAfterOpenIsTheMediaData)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Frame(0, Fill(4), true);
    ASSERT_EQ(Open(builder), LX_OK);
    UInt64 position = 0;
    lxAviReadCore_GetFilePosition(&position);
    EXPECT_EQ(position, builder.MoviOffset());
    EXPECT_EQ(position, Info().moviOffset);
}

TEST_F(FileAccess, AnAbsolutePositionIsTheOffsetItself)
{
    Attach(1);
    Info().bAbsoluteOffsets = 1;
    Info().moviOffset = 99;
    Info().CurrentOffset = 0x123456789ull;
    UInt64 position = 0;
    lxAviReadCore_GetFilePosition(&position);
    EXPECT_EQ(position, 0x123456789ull);
    Info().bAbsoluteOffsets = 0;
    lxAviReadCore_GetFilePosition(&position);
    EXPECT_EQ(position, 0x123456789ull + 99 - 4);
    Info().bAbsoluteOffsets = 0;
}

TEST_F(FileAccess, IncreaseOffsetCarriesIntoTheHighWord)
{
    Attach(1);
    Info().CurrentOffset = 0xFFFFFFFFull;
    lxAviReadCore_IncreaseOffset(0xFFFFFFFFu);
    EXPECT_EQ(Info().CurrentOffset, 0x1FFFFFFFEull);
}

// ---- Words ----

// A word is read byte by byte. A word that comes short has to count as one short read of four bytes.
class Word : public FileAccess, public ::testing::WithParamInterface<UInt32> {
protected:
    UInt32 Came() const { return GetParam(); } // bytes before the fault

    UInt32 ReadWord(UInt32 attempts, ReadFault::Kind eKind, UInt8 mode = 0)
    {
        Attach(attempts);
        Info().IndxOption = static_cast<UInt8>(1 | mode);
        Faults().FaultRead(1, {eKind, Came()});
        return lxAviReadCore_ParseListdmlh(&Info(), 4);
    }

    UInt32 Position() { return static_cast<UInt32>(ftell(Info().pFile)); }
};

TEST_P(Word, ThatComesShortIsReadOnAtFourTimesItsBytes)
{
    EXPECT_EQ(ReadWord(2, ReadFault::Kind::ShortThenError), LX_OK);
    constexpr UInt32 kKept[] = {0x03020100, 0x00000000, 0x00000100, 0x00020100}; // 4 and more are beyond the word
    EXPECT_EQ(Info().dmlhTotalFrames, kKept[Came()]);
    EXPECT_EQ(Position(), 4u);
}

TEST_P(Word, ThatComesShortIsReadOnBehindItsBytesInTheFormatMode)
{
    EXPECT_EQ(ReadWord(2, ReadFault::Kind::ShortThenError, LX_AVIREAD_FOLLOW_FORMAT), LX_OK);
    EXPECT_EQ(Info().dmlhTotalFrames, 0x03020100u);
    EXPECT_EQ(Position(), 4u);
}

TEST_P(Word, ThatComesShortUsesUpOneAttempt)
{
    for (const UInt32 attempts : {0u, 1u}) {
        EXPECT_EQ(ReadWord(attempts, ReadFault::Kind::ShortThenError), LX_ERR_AVIREAD_READ);
        EXPECT_EQ(Position(), Came());
        EXPECT_EQ(Info().dmlhTotalFrames, 0u);
    }
}

TEST_P(Word, ThatComesShortEndsWithTheAbort)
{
    ASSERT_EQ(lxAviReadCore_SetAbortFlag(1), LX_OK);
    EXPECT_EQ(ReadWord(9, ReadFault::Kind::ShortThenError), LX_ERR_AVIREAD_ABORTED);
    EXPECT_EQ(Position(), Came());
}

TEST_P(Word, ThatMeetsTheEndOfTheFileLacksItsFourBytes)
{
    EXPECT_EQ(ReadWord(9, ReadFault::Kind::EndOfFile), LX_ERR_AVIREAD_EOF);
    EXPECT_TRUE(log.Has(0x8180, "leaving lxAviReadCore_FileRead()-eof.err=0x88019017(-2013163497). only 4 bytes left "
                                "unread"));
    EXPECT_EQ(Position(), Came());
}

INSTANTIATE_TEST_SUITE_P(Bytes, Word, ::testing::Values(0u, 1u, 2u, 3u));

} // namespace
} // namespace avitest
