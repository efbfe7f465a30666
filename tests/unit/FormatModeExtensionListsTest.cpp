// Format mode: extension lists are found wherever they are.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

TEST_F(FormatMode, ExtensionListsAreFoundWithoutBeingPromised)
{
    AddSegments(3, 4, 2);
    builder.dmlhTotalFrames.reset();
    const Bytes file = builder.Build();
    ASSERT_EQ(OpenAs(kDefault, file), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);
    ASSERT_EQ(OpenAs(kFormat, file), LX_OK);
    EXPECT_EQ(Info().bAvixPresent, 1);
    Position();
    EXPECT_EQ(CountDelivered(), 24u);
}

TEST_F(FormatMode, AListThatEndsBeforeItsFirstChunkIsEmpty)
{
    builder.eIndex = IndexKind::None;
    builder.dmlhTotalFrames = 1;
    Bytes file = builder.Build();
    ASSERT_EQ(Find(file, "movi") + 4, file.size());
    const Bytes extension = Riff("AVIX", List("movi", Chunk("00dc", Fill(10)) + Chunk("01wb", Fill(8))));
    const auto claimed = static_cast<UInt32>(extension.size()); // the list claims all bytes that follow
    Patch32(file, file.size() - 8, 4 + claimed);
    ASSERT_EQ(OpenAs(kDefault, file + extension), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, claimed);
    ASSERT_EQ(OpenAs(kFormat, file + extension), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->moviDataSize, 0u);
    Position();
    EXPECT_EQ(CountDelivered(), 2u);
}

TEST_F(FormatMode, AnExtensionListMayHoldMoreThanMediaData)
{
    builder.beforeMoviInAvix = Chunk("JUNK", Fill(30)) + List("more", Fill(4));
    builder.eIndex = IndexKind::SuperStandard;
    builder.eLayout = IxLayout::At32;
    AddSegments(3, 4, 2);
    builder.ForeignRiff(Riff("AVIX", Chunk("JUNK", Fill(10))) + Riff("AVIX", {}));
    const Bytes file = builder.Build();
    EXPECT_EQ(OpenAs(kDefault, file), LX_ERR_AVIREAD_AVIX_LIST);
    ASSERT_EQ(ParseAs(kFormat, file), LX_OK);
    EXPECT_EQ(TableOffsets(), KeyFrames());
    EXPECT_EQ(CountDelivered(), 24u);
    ExpectEverySeekLands();
}

TEST_F(FormatMode, AnExtensionListHoldsItsMediaDataWhole)
{
    builder.eIndex = IndexKind::None;
    AddMedia(2, 1);
    const Bytes first = builder.Build();
    // a movi list at the end of the AVIX list belongs to it; a movi list directly behind the AVIX list does not
    const Bytes junk = Chunk("JUNK", Fill(30));
    ASSERT_EQ(OpenAs(kFormat, first + Riff("AVIX", junk + List("movi", {}))), LX_OK);
    ASSERT_NE(Info().pCurrentAvix->pNextAvix, nullptr);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix->moviDataOffset, first.size() + 12 + 38 + 12);
    ASSERT_EQ(OpenAs(kFormat, first + Riff("AVIX", junk) + List("movi", Chunk("00dc", Fill(4)))), LX_OK);
    EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);
}

TEST_F(FormatMode, AFileCutInsideAListHeaderHasTheListsBefore)
{
    builder.eIndex = IndexKind::None;
    AddSegments(2, 4, 2);
    const Bytes whole = builder.Build();
    const size_t second = Find(whole, "AVIX") - 8;
    for (const size_t more : {2u, 6u, 10u, 14u, 20u, 22u}) {
        ASSERT_EQ(OpenAs(kFormat, Bytes(whole.begin(), whole.begin() + static_cast<long>(second + more))), LX_OK);
        EXPECT_EQ(Info().pCurrentAvix->pNextAvix, nullptr);
        Position();
        EXPECT_EQ(CountDelivered(), 8u);
    }
}

} // namespace
} // namespace avitest
