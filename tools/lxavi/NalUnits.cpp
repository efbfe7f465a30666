#include "NalUnits.hpp"

#include <string_view>

namespace lxavi {

namespace {

const std::string kStartCode("\0\0\0\1", 4);

// Takes big-endian fields from the front of some bytes. Behind the end all numbers are 0.
class Fields {
public:
    explicit Fields(std::string_view bytes) : m_bytes(bytes) {}

    bool IsEmpty() const { return m_bytes.empty(); }

    UInt32 Number(size_t size)
    {
        UInt32 number = 0;
        for (const char c : Take(size)) {
            number = number << 8 | static_cast<UInt8>(c);
        }
        return number;
    }

    // Fewer bytes when there are not so many.
    std::string_view Take(size_t size)
    {
        const std::string_view taken = m_bytes.substr(0, size);
        m_bytes.remove_prefix(taken.size());
        return taken;
    }

private:
    std::string_view m_bytes;
};

// `count` units with a length of 16 bits each.
void TakeSets(Fields& fields, UInt32 count, std::string& sets)
{
    for (UInt32 i = 0; i < count && !fields.IsEmpty(); ++i) {
        const UInt32 size = fields.Number(2);
        sets += kStartCode;
        sets += fields.Take(size);
    }
}

NalParameters ParseH264(Fields fields)
{
    NalParameters parameters;
    fields.Take(4); // version, profile, compatibility, level
    parameters.lengthBytes = (fields.Number(1) & 3) + 1;
    TakeSets(fields, fields.Number(1) & 0x1F, parameters.sets); // sequences
    TakeSets(fields, fields.Number(1), parameters.sets);        // pictures
    return parameters;
}

NalParameters ParseH265(Fields fields)
{
    NalParameters parameters;
    fields.Take(21); // version, profile, level, formats of the pictures
    parameters.lengthBytes = (fields.Number(1) & 3) + 1;
    const UInt32 arrays = fields.Number(1);
    for (UInt32 i = 0; i < arrays && !fields.IsEmpty(); ++i) {
        fields.Take(1); // type of the units
        TakeSets(fields, fields.Number(2), parameters.sets);
    }
    return parameters;
}

} // namespace

NalParameters ParseCodecData(NalCodec codec, const std::string& data)
{
    constexpr size_t kShortestH264 = 7;
    constexpr size_t kShortestH265 = 23;
    const size_t shortest = codec == NalCodec::H264 ? kShortestH264 : kShortestH265;
    if (data.starts_with(std::string("\0\0\1", 3)) || data.starts_with(kStartCode)) {
        return {0, data};
    }
    if (data.size() < shortest || data[0] != 1) {
        return {};
    }
    return codec == NalCodec::H264 ? ParseH264(Fields(data)) : ParseH265(Fields(data));
}

std::string WithStartCodes(const std::string& frame, UInt32 lengthBytes)
{
    if (lengthBytes == 0) {
        return frame;
    }
    std::string converted;
    for (Fields fields(frame); !fields.IsEmpty();) {
        const UInt32 size = fields.Number(lengthBytes);
        const std::string_view unit = fields.Take(size);
        if (unit.size() != size || size == 0) {
            return frame;
        }
        converted += kStartCode;
        converted += unit;
    }
    return converted;
}

} // namespace lxavi
