// Which frames are key frames: a table of codecs, and for each coding a function that looks at the first bytes of a
// payload. The names of fields are those of the published bitstream formats.
//
//   coding          what is looked for                      the field of it
//   every frame     a payload                               (frames do not refer to each other)
//   MPEG-4 part 2   00 00 01 B6                             vop_coding_type, 2 bits behind the start code
//   MPEG-1, -2      00 00 01 00                             picture_coding_type, 3 bits behind 10 bits
//   H.264           a NAL unit of a picture                 nal_unit_type
//   H.265           a NAL unit of a picture                 nal_unit_type
//   H.263           22 bits picture start code              picture coding type, or picture type code with PLUSPTYPE
//   …               the first bits of the payload           picture type, frame type, frame flags

#include "internal/FrameKind.hpp"

#include <algorithm>
#include <iterator>

namespace lxAviReadCore {
namespace {

using Bytes = std::span<const UInt8>;

constexpr FrameKind KeyIf(bool bKey) { return bKey ? FrameKind::Key : FrameKind::Other; }

// `count` bits from bit `first` on, at most 32, the most significant bit of a byte first. Behind the end there are zeros.
UInt32 Bits(Bytes bytes, size_t first, UInt32 count)
{
    UInt32 value = 0;
    for (size_t bit = first; bit < first + count; ++bit) {
        const UInt32 byte = bit / 8 < bytes.size() ? bytes[bit / 8] : 0;
        value = value << 1 | (byte >> (7 - bit % 8) & 1u);
    }
    return value;
}

bool HasBits(Bytes bytes, size_t count) { return bytes.size() >= (count + 7) / 8; }

// The place behind the next start code prefix 00 00 01 from `from` on; the number of bytes where there is none.
size_t BehindPrefix(Bytes bytes, size_t from)
{
    for (size_t at = from; at + 3 <= bytes.size(); ++at) {
        if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) {
            return at + 3;
        }
    }
    return bytes.size();
}

// The place of the first start code of this value, or the number of bytes.
size_t FindStartCode(Bytes bytes, UInt8 code)
{
    size_t at = BehindPrefix(bytes, 0);
    while (at < bytes.size() && bytes[at] != code) {
        at = BehindPrefix(bytes, at);
    }
    return at;
}

// The rules are asked about at least one byte.

FrameKind EveryFrame(const FrameHead& /*head*/, UInt32 /*lengthBytes*/) { return FrameKind::Key; }

// ---- MPEG ----

// The frame that is shown is the first VOP of the payload; packed B-frames follow it. Where an encoder has nothing to
// show, it writes a VOP of a few bytes, whatever its type.
FrameKind LookAtMpeg4(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt8 kVop = 0xB6;
    constexpr UInt32 kPlaceholderBytes = 8; // of a VOP with its start code
    constexpr UInt32 kStartCodeBytes = 4;
    const size_t at = FindStartCode(head.bytes, kVop);
    if (at + 1 >= head.bytes.size()) {
        return FrameKind::Unknown;
    }
    const size_t vop = at + 1 - kStartCodeBytes;
    const UInt32 vopCodingType = head.bytes[at + 1] >> 6;
    return KeyIf(vopCodingType == 0 && head.uiSize - vop > kPlaceholderBytes);
}

FrameKind LookAtMpeg12(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt8 kPicture = 0x00;
    constexpr UInt32 kIntra = 1;
    const size_t at = FindStartCode(head.bytes, kPicture);
    if (at + 2 >= head.bytes.size()) {
        return FrameKind::Unknown;
    }
    const UInt32 pictureCodingType = Bits(head.bytes.subspan(at + 1), 10, 3); // behind temporal_reference
    return KeyIf(pictureCodingType == kIntra);
}

// ---- NAL units ----

constexpr UInt32 kUsualLengthBytes = 4;

enum class Packing : UInt8 { Unknown, StartCodes, Lengths };

// How the units are told apart. Where the codec data say that lengths stand before the units, only the longer start code
// counts: as a length it is that of a unit of one byte, which no payload begins with. Without codec data the bytes 00 00 01
// can also begin the length of a unit of 256 to 511 bytes. Then they do if a length that fits follows that unit.
Packing PackingOf(const FrameHead& head, UInt32 lengthBytes)
{
    const Bytes bytes = head.bytes;
    if (Bits(bytes, 0, 32) == 1) {
        return Packing::StartCodes;
    }
    if (lengthBytes != 0 || Bits(bytes, 0, 24) != 1) {
        return Packing::Lengths;
    }
    const UInt32 behind = kUsualLengthBytes + Bits(bytes, 0, 32);
    if (behind >= head.uiSize) {
        return behind == head.uiSize ? Packing::Lengths : Packing::StartCodes;
    }
    if (bytes.size() < std::min(head.uiSize, behind + kUsualLengthBytes)) {
        return Packing::Unknown;
    }
    const UInt64 second = UInt64{behind} + kUsualLengthBytes + Bits(bytes, size_t{8} * behind, 32);
    return second <= head.uiSize ? Packing::Lengths : Packing::StartCodes;
}

// Asks about the first byte of each NAL unit, until one says what the frame is.
FrameKind LookAtUnits(const FrameHead& head, UInt32 lengthBytes, FrameKind (*pfnKindOfUnit)(UInt8 first))
{
    const Bytes bytes = head.bytes;
    FrameKind eKind = FrameKind::Unknown;
    const Packing ePacking = PackingOf(head, lengthBytes);
    if (ePacking == Packing::StartCodes) {
        for (size_t at = BehindPrefix(bytes, 0); at < bytes.size() && eKind == FrameKind::Unknown;
             at = BehindPrefix(bytes, at)) {
            eKind = pfnKindOfUnit(bytes[at]);
        }
    } else if (ePacking == Packing::Lengths) {
        const UInt32 width = lengthBytes != 0 ? lengthBytes : kUsualLengthBytes;
        for (UInt64 at = 0; at + width < bytes.size() && eKind == FrameKind::Unknown;) {
            const auto unit = bytes.subspan(static_cast<size_t>(at));
            eKind = pfnKindOfUnit(unit[width]);
            at += UInt64{width} + Bits(unit, 0, 8 * width);
        }
    }
    return eKind;
}

// An IDR picture is a key frame. A recovery point is none: pictures before it are needed for some time.
FrameKind KindOfH264Unit(UInt8 first)
{
    switch (first & 0x1F) { // nal_unit_type
    case 1:                 // slice of another picture
    case 2: return FrameKind::Other;
    case 5: return FrameKind::Key;
    default: return FrameKind::Unknown;
    }
}

FrameKind KindOfH265Unit(UInt8 first)
{
    constexpr UInt32 kFirstRandomAccess = 16; // IRAP pictures: BLA, IDR, CRA
    constexpr UInt32 kLastRandomAccess = 23;
    constexpr UInt32 kFirstOfNoPicture = 32;
    const UInt32 nalUnitType = first >> 1 & 0x3F;
    if (nalUnitType >= kFirstOfNoPicture) {
        return FrameKind::Unknown;
    }
    return KeyIf(nalUnitType >= kFirstRandomAccess && nalUnitType <= kLastRandomAccess);
}

FrameKind LookAtH264(const FrameHead& head, UInt32 lengthBytes)
{
    return LookAtUnits(head, lengthBytes, KindOfH264Unit);
}

FrameKind LookAtH265(const FrameHead& head, UInt32 lengthBytes)
{
    return LookAtUnits(head, lengthBytes, KindOfH265Unit);
}

// ---- The H.263 family ----

FrameKind LookAtH263(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt32 kPictureStartCode = 0x20; // of 22 bits
    constexpr UInt32 kExtendedFormat = 7;
    if (!HasBits(head.bytes, 64) || Bits(head.bytes, 0, 22) != kPictureStartCode) {
        return FrameKind::Unknown;
    }
    if (Bits(head.bytes, 35, 3) != kExtendedFormat) { // source format, bits 6 to 8 of PTYPE
        return KeyIf(Bits(head.bytes, 38, 1) == 0);   // picture coding type, bit 9
    }
    const bool bFullType = Bits(head.bytes, 38, 3) == 1;         // UFEP: 18 bits of OPPTYPE follow
    return KeyIf(Bits(head.bytes, bFullType ? 59 : 41, 3) == 0); // picture type code, first in MPPTYPE
}

// The variant FLV1: start code of 17 bits, version of 5, temporal reference of 8, picture size of 3, picture type of 2.
FrameKind LookAtFlv1(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    if (!HasBits(head.bytes, 72) || Bits(head.bytes, 0, 17) != 1) {
        return FrameKind::Unknown;
    }
    const UInt32 pictureSize = Bits(head.bytes, 30, 3);
    UInt32 ownSizeBits = 0;
    if (pictureSize <= 1) {
        ownSizeBits = pictureSize == 0 ? 16 : 32;
    }
    return KeyIf(Bits(head.bytes, 33 + ownSizeBits, 2) == 0);
}

// MS MPEG-4 v1: a start code of 32 bits, a frame number of 5, the picture type of 2.
FrameKind LookAtMsMpeg4v1(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    if (!HasBits(head.bytes, 39) || Bits(head.bytes, 0, 32) != 0x100) {
        return FrameKind::Unknown;
    }
    return KeyIf(Bits(head.bytes, 37, 2) == 0);
}

// MS MPEG-4 v2 and v3, and WMV1: the picture type comes first.
FrameKind LookAtMsMpeg4(const FrameHead& head, UInt32 /*lengthBytes*/) { return KeyIf(Bits(head.bytes, 0, 2) == 0); }

// WMV2 has two picture types.
FrameKind LookAtWmv2(const FrameHead& head, UInt32 /*lengthBytes*/) { return KeyIf(Bits(head.bytes, 0, 1) == 0); }

// ---- VP8, VP9, AV1 ----

// The lowest bit of the frame tag.
FrameKind LookAtVp8(const FrameHead& head, UInt32 /*lengthBytes*/) { return KeyIf((head.bytes[0] & 1) == 0); }

// frame_marker, profile, in profile 3 a reserved bit, show_existing_frame, frame_type
FrameKind LookAtVp9(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt32 kFrameMarker = 2;
    constexpr UInt32 kLastProfile = 3;
    if (Bits(head.bytes, 0, 2) != kFrameMarker) {
        return FrameKind::Unknown;
    }
    const UInt32 showExisting = Bits(head.bytes, 2, 2) == kLastProfile ? 5 : 4;
    return KeyIf(Bits(head.bytes, showExisting, 2) == 0);
}

// The size of an AV1 unit: 7 bits a byte, the lowest first. `at` moves behind it.
UInt64 TakeLeb128(Bytes bytes, size_t& at)
{
    constexpr UInt32 kMostBytes = 8;
    UInt64 value = 0;
    for (UInt32 i = 0; i < kMostBytes && at < bytes.size(); ++i) {
        const UInt8 byte = bytes[at++];
        value |= UInt64{byte & 0x7Fu} << (7 * i);
        if ((byte & 0x80) == 0) {
            break;
        }
    }
    return value;
}

// A frame, or a frame header by itself, begins with show_existing_frame and 2 bits of frame_type.
FrameKind LookAtAv1(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt32 kFrameHeader = 3; // obu_type
    constexpr UInt32 kFrame = 6;
    const Bytes bytes = head.bytes;
    for (UInt64 next = 0; next < bytes.size();) {
        auto at = static_cast<size_t>(next);
        const UInt32 type = bytes[at] >> 3 & 0xF;
        const bool bHasExtension = (bytes[at] & 4) != 0;
        const bool bHasSize = (bytes[at] & 2) != 0;
        at += bHasExtension ? 2 : 1;
        const UInt64 size = bHasSize ? TakeLeb128(bytes, at) : bytes.size();
        if ((type == kFrameHeader || type == kFrame) && at < bytes.size()) {
            return KeyIf(Bits(bytes.subspan(at), 0, 3) == 0);
        }
        next = at + size;
    }
    return FrameKind::Unknown;
}

// ---- Others ----

// Behind the 10 bytes of the frame header, the identifier of the first strip: 10 00 intra-coded, 11 00 inter-coded.
FrameKind LookAtCinepak(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr size_t kFrameHeaderBytes = 10;
    if (head.bytes.size() <= kFrameHeaderBytes) {
        return FrameKind::Unknown;
    }
    return KeyIf(head.bytes[kFrameHeaderBytes] == 0x10);
}

// The lowest bit comes first: a start code of 18 bits, a frame type of 3, of which the first two are intra-coded.
FrameKind LookAtIndeo4(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt32 kPictureStartCode = 0x3FFF8;
    if (head.bytes.size() < 3) {
        return FrameKind::Unknown;
    }
    const UInt32 bits = UInt32{head.bytes[0]} | UInt32{head.bytes[1]} << 8 | UInt32{head.bytes[2]} << 16;
    if ((bits & 0x3FFFF) != kPictureStartCode) {
        return FrameKind::Unknown;
    }
    return KeyIf((bits >> 18 & 7) <= 1);
}

// Behind 16 bytes of frame header: the version of the bit stream, and the frame flags, of which bit 2 tells a key frame.
FrameKind LookAtIndeo3(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr size_t kFrameHeaderBytes = 16;
    constexpr UInt8 kVersion = 32;
    constexpr UInt8 kKeyFrame = 4;
    if (head.bytes.size() < kFrameHeaderBytes + 4 || head.bytes[kFrameHeaderBytes] != kVersion) {
        return FrameKind::Unknown;
    }
    return KeyIf((head.bytes[kFrameHeaderBytes + 2] & kKeyFrame) != 0);
}

// A range coder has coded `keyframe` as the first bit, with even odds: it is set where the first two bytes are in the
// upper half of the range.
FrameKind LookAtFfv1(const FrameHead& head, UInt32 /*lengthBytes*/)
{
    constexpr UInt32 kUpperHalf = 0x7F80;
    return HasBits(head.bytes, 16) ? KeyIf(Bits(head.bytes, 0, 16) >= kUpperHalf) : FrameKind::Unknown;
}

// The lowest bit of the frame flags.
FrameKind LookAtZmbv(const FrameHead& head, UInt32 /*lengthBytes*/) { return KeyIf((head.bytes[0] & 1) != 0); }

// ---- The table ----

struct CodecRule {
    UInt32 uiCodec; // upper case
    FrameRule::LookFn pfnLook;
};

constexpr CodecRule kCodecRules[] = {
    {FourCC("XVID"), LookAtMpeg4},     {FourCC("DIVX"), LookAtMpeg4},     {FourCC("DX50"), LookAtMpeg4},
    {FourCC("FMP4"), LookAtMpeg4},     {FourCC("MP4V"), LookAtMpeg4},     {FourCC("3IV2"), LookAtMpeg4},
    {FourCC("3IVX"), LookAtMpeg4},     {FourCC("MP4S"), LookAtMpeg4},     {FourCC("M4S2"), LookAtMpeg4},
    {FourCC("BLZ0"), LookAtMpeg4},     {FourCC("DXGM"), LookAtMpeg4},     {FourCC("RMP4"), LookAtMpeg4},
    {FourCC("SEDG"), LookAtMpeg4},     {FourCC("SMP4"), LookAtMpeg4},     {FourCC("UMP4"), LookAtMpeg4},
    {FourCC("WV1F"), LookAtMpeg4},     {FourCC("HDX4"), LookAtMpeg4},     {FourCC("DIVF"), LookAtMpeg4},

    {FourCC("H264"), LookAtH264},      {FourCC("X264"), LookAtH264},      {FourCC("AVC1"), LookAtH264},
    {FourCC("DAVC"), LookAtH264},      {FourCC("VSSH"), LookAtH264},      {FourCC("H265"), LookAtH265},
    {FourCC("X265"), LookAtH265},      {FourCC("HEVC"), LookAtH265},      {FourCC("HVC1"), LookAtH265},
    {FourCC("HEV1"), LookAtH265},

    {FourCC("MPG1"), LookAtMpeg12},    {FourCC("MPG2"), LookAtMpeg12},    {FourCC("MPEG"), LookAtMpeg12},
    {FourCC("PIM1"), LookAtMpeg12},    {FourCC("PIM2"), LookAtMpeg12},    {FourCC("MMES"), LookAtMpeg12},
    {FourCC("DVR "), LookAtMpeg12},    {FourCC("VCR2"), LookAtMpeg12},    {FourCC("M2V1"), LookAtMpeg12},
    {0x10000001, LookAtMpeg12},        {0x10000002, LookAtMpeg12}, // numbers that writers of MPEG streams use

    {FourCC("MPG4"), LookAtMsMpeg4v1}, {FourCC("DIV1"), LookAtMsMpeg4v1}, {FourCC("MP42"), LookAtMsMpeg4},
    {FourCC("DIV2"), LookAtMsMpeg4},   {FourCC("MP43"), LookAtMsMpeg4},   {FourCC("DIV3"), LookAtMsMpeg4},
    {FourCC("DIV4"), LookAtMsMpeg4},   {FourCC("DIV5"), LookAtMsMpeg4},   {FourCC("DIV6"), LookAtMsMpeg4},
    {FourCC("MPG3"), LookAtMsMpeg4},   {FourCC("COL1"), LookAtMsMpeg4},   {FourCC("AP41"), LookAtMsMpeg4},
    {FourCC("DVX3"), LookAtMsMpeg4},   {FourCC("WMV1"), LookAtMsMpeg4},   {FourCC("WMV2"), LookAtWmv2},

    {FourCC("H263"), LookAtH263},      {FourCC("X263"), LookAtH263},      {FourCC("U263"), LookAtH263},
    {FourCC("M263"), LookAtH263},      {FourCC("S263"), LookAtH263},      {FourCC("FLV1"), LookAtFlv1},

    {FourCC("VP80"), LookAtVp8},       {FourCC("VP90"), LookAtVp9},       {FourCC("AV01"), LookAtAv1},
    {FourCC("IV31"), LookAtIndeo3},    {FourCC("IV32"), LookAtIndeo3},    {FourCC("CVID"), LookAtCinepak},
    {FourCC("IV41"), LookAtIndeo4},    {FourCC("FFV1"), LookAtFfv1},      {FourCC("ZMBV"), LookAtZmbv},
};

FrameRule::LookFn LookOf(UInt32 codec)
{
    const auto* const pFound = std::find_if(std::begin(kCodecRules), std::end(kCodecRules), [&](const CodecRule& rule) {
        return rule.uiCodec == CodecInUpperCase(codec);
    });
    return pFound != std::end(kCodecRules) ? pFound->pfnLook : nullptr;
}

FrameRule::LookFn LookOf(const lxAviReadCore_StreamInfo_t& stream)
{
    if (HasOnlyKeyFrames(stream)) {
        return EveryFrame;
    }
    const FrameRule::LookFn pfnLook = LookOf(FormatOf<lxAviRead_StrfVideo_t>(&stream).biCompression);
    return pfnLook != nullptr ? pfnLook : LookOf(stream.Header.fccHandler);
}

// The bytes of the length before each NAL unit, by the codec data behind the format, which begin with the version 1; 0
// where there are none.
UInt32 LengthBytesOf(UInt32 streamNr, FrameRule::LookFn pfnLook)
{
    constexpr size_t kVersion = sizeof(lxAviRead_StrfVideo_t);
    constexpr size_t kLengthOfH264 = kVersion + 4;
    constexpr size_t kLengthOfH265 = kVersion + 21;
    UInt8 format[kLengthOfH265 + 1] = {};
    UInt32 size = 0;
    static_cast<void>(lxAviReadCore_GetStreamBytes(streamNr, LX_AVIREAD_BYTES_STRF, format, sizeof format, &size));
    const size_t at = pfnLook == LookAtH265 ? kLengthOfH265 : kLengthOfH264;
    const bool bUnits = pfnLook == LookAtH264 || pfnLook == LookAtH265;
    return bUnits && size > at && format[kVersion] == 1 ? (format[at] & 3u) + 1 : 0;
}

} // namespace

FrameRule::FrameRule(const lxAviReadCore_StreamInfo_t& stream, UInt32 streamNr)
    : m_pfnLook(LookOf(stream)), m_uiLengthBytes(LengthBytesOf(streamNr, m_pfnLook))
{
}

FrameKind FrameRule::Look(const FrameHead& head) const
{
    if (head.uiSize == 0 && IsKnown()) {
        return FrameKind::Other; // a chunk without a payload repeats the frame before it
    }
    const bool bToldByCodec = m_pfnLook == EveryFrame;
    return IsKnown() && (bToldByCodec || !head.bytes.empty()) ? m_pfnLook(head, m_uiLengthBytes) : FrameKind::Unknown;
}

} // namespace lxAviReadCore
