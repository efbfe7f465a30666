// Format mode: what the first bytes of a video frame say about it. The payloads are written by hand from the published
// formats; the interop tests compare the rules with files that encoders have made.

#include "FormatModeTest.hpp"

namespace avitest {
namespace {

constexpr UInt32 kUnknown = LX_AVIREAD_FRAME_UNKNOWN;
constexpr UInt32 kKey = LX_AVIREAD_FRAME_KEY;
constexpr UInt32 kOther = LX_AVIREAD_FRAME_OTHER;

class FrameKinds : public FormatMode {
protected:
    // Opens a file whose video stream has this codec, and these codec data behind its format.
    void OpenCodec(std::string_view codec, const Bytes& codecData = {}, UInt8 as = kFormat)
    {
        builder.streams[0] = VideoStream();
        Patch32(builder.streams[0].format, 16, Code(codec));
        builder.streams[0].format += codecData;
        ASSERT_EQ(OpenAs(as, builder.Build()), LX_OK);
    }

    static UInt32 KindOf(const Bytes& payload)
    {
        return lxAviReadCore_GetFrameKind(0, payload.data(), static_cast<UInt32>(payload.size()));
    }
};

const Bytes kRest = Fill(20, 0x77); // of a picture

Bytes StartCode(UInt8 code) { return {0, 0, 1, code}; }

TEST_F(FrameKinds, DefaultModeKnowsNone)
{
    OpenCodec("VP80", {}, kDefault);
    EXPECT_EQ(KindOf({0x10, 0, 0}), kUnknown);
    OpenCodec("VP80");
    EXPECT_EQ(KindOf({0x10, 0, 0}), kKey);
}

TEST_F(FrameKinds, OnlyVideoHasFrames)
{
    OpenCodec("MJPG");
    const Bytes payload = Fill(10);
    EXPECT_EQ(lxAviReadCore_GetFrameKind(0, payload.data(), 10), kKey);
    EXPECT_EQ(lxAviReadCore_GetFrameKind(1, payload.data(), 10), kUnknown); // audio
    EXPECT_EQ(lxAviReadCore_GetFrameKind(2, payload.data(), 10), kUnknown);
    EXPECT_EQ(lxAviReadCore_GetFrameKind(99, payload.data(), 10), kUnknown);
}

TEST_F(FrameKinds, APointerIsNeededForBytes)
{
    OpenCodec("MJPG");
    EXPECT_EQ(lxAviReadCore_GetFrameKind(0, nullptr, 10), kUnknown);
    EXPECT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(lxAviReadCore_GetFrameKind(0, nullptr, 0), kOther);
}

TEST_F(FrameKinds, AChunkWithoutBytesIsNoKeyFrameOfAnyCodec)
{
    for (const char* codec : {"MJPG", "XVID", "H264", "VP80", "CVID"}) {
        OpenCodec(codec);
        EXPECT_EQ(KindOf({}), kOther) << codec;
    }
}

TEST_F(FrameKinds, NothingIsKnownOfOtherCodecs)
{
    builder.streams[0].header.fccHandler = Code("abcd");
    Patch32(builder.streams[0].format, 16, Code("MSVC"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(KindOf({}), kUnknown);
    EXPECT_EQ(KindOf(kRest), kUnknown);
}

TEST_F(FrameKinds, CodesAreWrittenInEitherCase)
{
    OpenCodec("vp80");
    EXPECT_EQ(KindOf({0x00, 0, 0}), kKey);
    OpenCodec("Xvid");
    EXPECT_EQ(KindOf(StartCode(0xB6) + kRest), kOther); // 0x77: vop_coding_type 1
}

TEST_F(FrameKinds, TheHandlerCountsWhereTheFormatNamesNoKnownCodec)
{
    builder.streams[0].header.fccHandler = Code("VP80");
    Patch32(builder.streams[0].format, 16, Code("abcd"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(KindOf({0x01}), kOther);
    Patch32(builder.streams[0].format, 16, Code("MJPG"));
    ASSERT_EQ(OpenAs(kFormat, builder.Build()), LX_OK);
    EXPECT_EQ(KindOf({0x01}), kKey);
}

TEST_F(FrameKinds, Mpeg4HasTheTypeBehindTheStartCodeOfTheVop)
{
    for (const char* codec : {"XVID", "DIVX", "DX50", "FMP4", "MP4V", "3IV2"}) {
        OpenCodec(codec);
        EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0x3F} + kRest), kKey);   // 00: intra
        EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0x40} + kRest), kOther); // 01: predictive
        EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0x80} + kRest), kOther); // 10: bidirectional
        EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0xC0} + kRest), kOther); // 11: sprite
    }
}

TEST_F(FrameKinds, Mpeg4HeadersMayComeBeforeTheVop)
{
    OpenCodec("XVID");
    const Bytes headers = StartCode(0xB0) + Fill(1, 0xF5) + StartCode(0x20) + Fill(30) + StartCode(0xB2) + Text("user");
    EXPECT_EQ(KindOf(headers + StartCode(0xB6) + Bytes{0x10} + kRest), kKey);
    EXPECT_EQ(KindOf(headers), kUnknown);
    EXPECT_EQ(KindOf(headers + StartCode(0xB6)), kUnknown); // the type is missing
}

TEST_F(FrameKinds, TheFirstOfPackedVopsCounts)
{
    OpenCodec("XVID");
    const Bytes intra = StartCode(0xB6) + Bytes{0x10} + kRest;
    const Bytes predictive = StartCode(0xB6) + Bytes{0x50} + kRest;
    EXPECT_EQ(KindOf(predictive + intra), kOther);
    EXPECT_EQ(KindOf(intra + predictive), kKey);
}

TEST_F(FrameKinds, AVopOfAFewBytesIsAPlaceholder)
{
    OpenCodec("XVID");
    EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0x16, 0x4F}), kOther);
    EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0x16, 0x4F, 1, 2}), kOther);
    EXPECT_EQ(KindOf(StartCode(0xB6) + Bytes{0x16, 0x4F, 1, 2, 3}), kKey);
    EXPECT_EQ(KindOf(StartCode(0xB2) + Text("text") + StartCode(0xB6) + Bytes{0x16, 0x4F}), kOther);
    EXPECT_EQ(KindOf({0x7F}), kUnknown);
}

TEST_F(FrameKinds, RulesLookAt4096BytesAtMost)
{
    OpenCodec("XVID");
    const Bytes vop = StartCode(0xB6) + Bytes{0x10} + kRest;
    EXPECT_EQ(KindOf(Fill(4096 - 5) + vop), kKey);
    EXPECT_EQ(KindOf(Fill(4096 - 4) + vop), kUnknown);
}

TEST_F(FrameKinds, Mpeg1And2HaveTheTypeBehindTheTemporalReference)
{
    for (const char* codec : {"MPG1", "MPG2", "mpeg"}) {
        OpenCodec(codec);
        // 10 bits of temporal reference, all set; then 001 intra, 010 predictive, 011 bidirectional
        EXPECT_EQ(KindOf(StartCode(0) + Bytes{0xFF, 0xC8 | 0x07} + kRest), kKey);
        EXPECT_EQ(KindOf(StartCode(0) + Bytes{0xFF, 0xD0} + kRest), kOther);
        EXPECT_EQ(KindOf(StartCode(0) + Bytes{0xFF, 0xD8} + kRest), kOther);
        const Bytes headers = StartCode(0xB3) + Fill(8) + StartCode(0xB8) + Fill(4);
        EXPECT_EQ(KindOf(headers + StartCode(0) + Bytes{0x00, 0x08} + kRest), kKey);
        EXPECT_EQ(KindOf(headers), kUnknown);
        EXPECT_EQ(KindOf(headers + StartCode(0) + Bytes{0x00}), kUnknown);
    }
}

TEST_F(FrameKinds, H264UnitsBehindStartCodes)
{
    OpenCodec("H264");
    const Bytes idr = StartCode(0x65) + kRest;
    const Bytes slice = StartCode(0x41) + kRest;
    const Bytes headers = StartCode(0x09) + Fill(1, 0x10) + StartCode(0x06) + Fill(9) + StartCode(0x67) + Fill(9) +
                          Bytes{0} + StartCode(0x68) + Fill(4);
    EXPECT_EQ(KindOf(idr), kKey);
    EXPECT_EQ(KindOf(slice + idr), kOther);
    EXPECT_EQ(KindOf(headers + idr), kKey);
    EXPECT_EQ(KindOf(headers + slice), kOther);
    EXPECT_EQ(KindOf(Bytes{0} + headers + slice), kOther);        // a start code of four bytes
    EXPECT_EQ(KindOf(StartCode(0x06) + Fill(9) + slice), kOther); // a recovery point: only an SEI tells it
    EXPECT_EQ(KindOf(StartCode(0x42) + kRest), kOther);           // data partition A
    EXPECT_EQ(KindOf(headers), kUnknown);
}

TEST_F(FrameKinds, H264UnitsBehindTheirLength)
{
    const Bytes idr = Bytes{0, 0, 0, 21, 0x65} + kRest;
    const Bytes slice = Bytes{0, 0, 0, 21, 0x41} + kRest;
    const Bytes sei = Bytes{0, 0, 0, 3, 0x06, 1, 2};
    OpenCodec("avc1"); // without codec data, four bytes
    EXPECT_EQ(KindOf(idr), kKey);
    EXPECT_EQ(KindOf(sei + idr), kKey);
    EXPECT_EQ(KindOf(sei + slice), kOther);
    EXPECT_EQ(KindOf(sei), kUnknown);
    OpenCodec("avc1", {1, 0x42, 0, 30, 0xFF, 0xE1, 0}); // lengthSizeMinusOne 3
    EXPECT_EQ(KindOf(sei + idr), kKey);
    EXPECT_EQ(KindOf(Bytes{0, 0, 1, 4, 0x41} + Fill(259) + idr), kOther); // a length of 260, not a start code
    EXPECT_EQ(KindOf(Bytes{0} + StartCode(0x65) + kRest), kKey);          // a start code all the same
    OpenCodec("avc1", {1, 0x42, 0, 30, 0xFD, 0xE1, 0});                   // lengthSizeMinusOne 1
    EXPECT_EQ(KindOf(Bytes{0, 3, 0x06, 1, 2, 0, 21, 0x65} + kRest), kKey);
    EXPECT_EQ(KindOf(Bytes{0, 3, 0x06, 1, 2, 0, 21, 0x41} + kRest), kOther);
    EXPECT_EQ(KindOf({0xFF, 0xFF, 0x06}), kUnknown); // the unit reaches behind the payload
}

// The bytes 00 00 01 begin a start code, or the length of a unit of 256 to 511 bytes.
TEST_F(FrameKinds, AShortStartCodeIsToldFromALength)
{
    OpenCodec("avc1");
    const Bytes slice = Bytes{0, 0, 1, 0x25, 0x41} + Fill(0x124); // a P picture of 293 bytes
    EXPECT_EQ(KindOf(slice), kOther);
    EXPECT_EQ(KindOf(Bytes{0, 0, 1, 0x2C, 0x65} + Fill(0x12B)), kKey); // an IDR picture of 300 bytes
    EXPECT_EQ(KindOf(slice + Bytes{0, 0, 0, 9, 0x41} + Fill(8)), kOther);
    EXPECT_EQ(KindOf(Bytes{0, 0, 1, 0x65} + Fill(400)), kKey); // start codes: no length follows 361 bytes
    EXPECT_EQ(KindOf(Bytes{0, 0, 1, 0x41} + Fill(20)), kOther);
}

TEST_F(FrameKinds, AUnitWithAHugeLengthEndsTheSearch)
{
    OpenCodec("avc1");
    EXPECT_EQ(KindOf(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x06} + kRest), kUnknown);
    EXPECT_EQ(KindOf(Fill(40, 0)), kUnknown); // units of length 0
}

TEST_F(FrameKinds, H265HasRandomAccessPictures)
{
    const auto unit = [](UInt32 type) { return Bytes{0, 0, 0, 1, static_cast<UInt8>(type << 1), 1} + kRest; };
    OpenCodec("HEVC");
    for (UInt32 type = 0; type < 64; ++type) {
        const UInt32 expected = type >= 32 ? kUnknown : (type >= 16 && type <= 23 ? kKey : kOther);
        EXPECT_EQ(KindOf(unit(type)), expected) << type;
    }
    EXPECT_EQ(KindOf(unit(32) + unit(33) + unit(34) + unit(39) + unit(19)), kKey); // VPS SPS PPS SEI IDR
    EXPECT_EQ(KindOf(unit(35) + unit(1)), kOther);
    Bytes configuration(23, 0);
    configuration[0] = 1;
    configuration[21] = 1; // lengthSizeMinusOne
    OpenCodec("hvc1", configuration);
    EXPECT_EQ(KindOf(Bytes{0, 2, 0x4E, 1, 0, 22, 0x26, 1} + kRest), kKey);   // type 39, then 19
    EXPECT_EQ(KindOf(Bytes{0, 2, 0x4E, 1, 0, 22, 0x02, 1} + kRest), kOther); // type 1
}

TEST_F(FrameKinds, H263HasTheTypeInPtype)
{
    OpenCodec("H263");
    // 22 bits start code, 8 bits reference 0, "1" "0", 3 bits, source format 010, picture coding type
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x02, 0x08} + kRest), kKey);
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x02, 0x0A} + kRest), kOther);
    // source format 111; UFEP 000; MPPTYPE begins with the type
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x02, 0x1C, 0x00} + kRest), kKey);
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x02, 0x1C, 0x10} + kRest), kOther);
    // UFEP 001: 18 bits of OPPTYPE come before it
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x02, 0x1C, 0xFF, 0xFF, 0xE0} + kRest), kKey);
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x02, 0x1C, 0x80, 0x00, 0x04} + kRest), kOther);
    EXPECT_EQ(KindOf({0, 0, 0x80, 0x02, 0x08, 0, 0}), kUnknown); // too short for every case
    EXPECT_EQ(KindOf(Fill(20, 1)), kUnknown);                    // no start code
}

TEST_F(FrameKinds, Flv1HasTheTypeBehindThePictureSize)
{
    OpenCodec("FLV1");
    // 17 bits start code, 5 bits version, 8 bits reference, 3 bits size, 2 bits type
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x01, 0x00, 0, 0, 0, 0}), kKey);       // size 010, type 00
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x01, 0x20, 0, 0, 0, 0}), kOther);     // type 01
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x00, 0x7F, 0xFF, 0x9F, 0, 0}), kKey); // size 000: 16 bits more
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x00, 0x00, 0x00, 0x20, 0, 0}), kOther);
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0x9F}), kKey); // size 001: 32 bits more
    EXPECT_EQ(KindOf(Bytes{0, 0, 0x80, 0x00, 0x80, 0x00, 0x00, 0x00, 0x20}), kOther);
    EXPECT_EQ(KindOf({0, 0, 0x80, 0x01, 0x00, 0, 0, 0}), kUnknown);
    EXPECT_EQ(KindOf(Fill(9, 1)), kUnknown);
}

TEST_F(FrameKinds, MsMpeg4HasTheTypeFirst)
{
    for (const char* codec : {"MP42", "MP43", "DIV3", "DIV4", "WMV1"}) {
        OpenCodec(codec);
        EXPECT_EQ(KindOf({0x3F, 1}), kKey) << codec;
        EXPECT_EQ(KindOf({0x40, 1}), kOther) << codec;
    }
    OpenCodec("WMV2");
    EXPECT_EQ(KindOf({0x7F, 1}), kKey);
    EXPECT_EQ(KindOf({0x80, 1}), kOther);
    OpenCodec("MPG4"); // behind a start code and five bits
    EXPECT_EQ(KindOf({0, 0, 1, 0, 0xF8, 0}), kKey);
    EXPECT_EQ(KindOf({0, 0, 1, 0, 0xFA, 0}), kOther);
    EXPECT_EQ(KindOf({0, 0, 1, 0}), kUnknown);
    EXPECT_EQ(KindOf({0, 0, 1, 1, 0xF8, 0}), kUnknown);
}

TEST_F(FrameKinds, Vp8AndVp9HaveABit)
{
    OpenCodec("VP80");
    EXPECT_EQ(KindOf({0xFE}), kKey);
    EXPECT_EQ(KindOf({0x01}), kOther);
    OpenCodec("VP90");
    EXPECT_EQ(KindOf({0x80}), kKey);   // marker 10, profile 00, show_existing_frame 0, frame_type 0
    EXPECT_EQ(KindOf({0x84}), kOther); // frame_type 1
    EXPECT_EQ(KindOf({0x88}), kOther); // show_existing_frame 1
    EXPECT_EQ(KindOf({0xB0}), kKey);   // profile 3 has a reserved bit
    EXPECT_EQ(KindOf({0xB2}), kOther);
    EXPECT_EQ(KindOf({0x40}), kUnknown); // no marker
}

TEST_F(FrameKinds, Av1HasTheTypeInTheFirstFrameHeader)
{
    OpenCodec("AV01");
    const Bytes delimiter = {0x12, 0};
    const Bytes sequence = {0x0A, 3, 1, 2, 3};
    EXPECT_EQ(KindOf(delimiter + sequence + Bytes{0x32, 5, 0x10} + Fill(4)), kKey);      // OBU_FRAME, type 00
    EXPECT_EQ(KindOf(delimiter + Bytes{0x32, 5, 0x30} + Fill(4)), kOther);               // type 01
    EXPECT_EQ(KindOf(delimiter + Bytes{0x1A, 1, 0x80}), kOther);                         // show_existing_frame
    EXPECT_EQ(KindOf(Bytes{0x30, 0x10} + Fill(4)), kKey);                                // without a size
    EXPECT_EQ(KindOf(Bytes{0x36, 0x08, 5, 0x10} + Fill(4)), kKey);                       // with an extension
    EXPECT_EQ(KindOf(Bytes{0x2A, 0x80, 0x01} + Fill(128) + Bytes{0x32, 1, 0x10}), kKey); // a size of two bytes: 128
    EXPECT_EQ(KindOf(delimiter), kUnknown);
    EXPECT_EQ(KindOf(Bytes{0x2A} + Fill(20, 0xFF)), kUnknown); // a size that is none
}

TEST_F(FrameKinds, OtherCodecsWithAField)
{
    OpenCodec("CVID");
    EXPECT_EQ(KindOf(Fill(10, 0) + Bytes{0x10, 0}), kKey);
    EXPECT_EQ(KindOf(Fill(10, 0) + Bytes{0x11, 0}), kOther);
    EXPECT_EQ(KindOf(Fill(10, 0)), kUnknown);
    OpenCodec("IV32");
    EXPECT_EQ(KindOf(Fill(16, 0) + Bytes{32, 0, 0x0D, 0}), kKey);
    EXPECT_EQ(KindOf(Fill(16, 0) + Bytes{32, 0, 0x09, 0}), kOther);
    EXPECT_EQ(KindOf(Fill(16, 0) + Bytes{31, 0, 0x0D, 0}), kUnknown);
    EXPECT_EQ(KindOf(Fill(16, 0) + Bytes{32, 0, 0x0D}), kUnknown);
    OpenCodec("IV41");
    EXPECT_EQ(KindOf({0xF8, 0xFF, 0x03}), kKey);
    EXPECT_EQ(KindOf({0xF8, 0xFF, 0x07}), kKey);
    EXPECT_EQ(KindOf({0xF8, 0xFF, 0x0B}), kOther);
    EXPECT_EQ(KindOf({0xF8, 0xFF, 0x00}), kUnknown);
    EXPECT_EQ(KindOf({0xF8, 0xFF}), kUnknown);
    OpenCodec("FFV1");
    EXPECT_EQ(KindOf({0x7F, 0x80}), kKey);
    EXPECT_EQ(KindOf({0x7F, 0x7F}), kOther);
    EXPECT_EQ(KindOf({0xFF}), kUnknown);
    OpenCodec("ZMBV");
    EXPECT_EQ(KindOf({0x01}), kKey);
    EXPECT_EQ(KindOf({0x02}), kOther);
}

} // namespace
} // namespace avitest
