#include "FileTexts.hpp"

#include "SourceFile.hpp"
#include "Text.hpp"

#include <algorithm>
#include <cstring>

namespace lxavi {

std::string BytesOfStream(UInt32 streamNr, UInt32 kind)
{
    UInt32 size = 0;
    static_cast<void>(lxAviReadCore_GetStreamBytes(streamNr, kind, nullptr, 0, &size));
    std::string bytes(std::min(size, LX_AVIREAD_KEPT_BYTES), '\0');
    static_cast<void>(
        lxAviReadCore_GetStreamBytes(streamNr, kind, bytes.data(), static_cast<UInt32>(bytes.size()), &size));
    return bytes;
}

WrittenStream StreamOfFile(const Reader& reader, UInt32 streamNr)
{
    WrittenStream stream = {reader.Stream(streamNr)->Header, {}};
    constexpr std::pair<UInt32, UInt32> kKinds[] = {{LX_AVIREAD_BYTES_STRF, Code("strf")},
                                                    {LX_AVIREAD_BYTES_STRD, Code("strd")},
                                                    {LX_AVIREAD_BYTES_STRN, Code("strn")},
                                                    {LX_AVIREAD_BYTES_VPRP, Code("vprp")}};
    for (const auto& [kind, code] : kKinds) {
        if (const std::string bytes = BytesOfStream(streamNr, kind); !bytes.empty()) {
            stream.chunks.push_back({code, bytes});
        }
    }
    return stream;
}

std::vector<NamedBytes> TextsOfFile()
{
    std::vector<NamedBytes> texts;
    UInt32 code = 0;
    for (UInt32 i = 0; (code = lxAviReadCore_GetFileTextCode(i)) != 0; ++i) {
        std::string text(lxAviReadCore_GetFileText(code, nullptr, 0) + size_t{1}, '\0');
        static_cast<void>(lxAviReadCore_GetFileText(code, text.data(), static_cast<UInt32>(text.size())));
        text.resize(std::strlen(text.c_str()) + 1); // the library keeps the beginning of a long text
        texts.push_back({code, text});
    }
    return texts;
}

std::string TextName(UInt32 code)
{
    switch (code) {
    case Code("INAM"): return "title";
    case Code("IART"): return "artist";
    case Code("ICMT"): return "comment";
    case Code("ICOP"): return "copyright";
    case Code("ICRD"): return "date of creation";
    case Code("IENG"): return "engineer";
    case Code("IGNR"): return "genre";
    case Code("IKEY"): return "keywords";
    case Code("ILNG"): return "language";
    case Code("IPRD"): return "product";
    case Code("IPRT"): return "part";
    case Code("ISBJ"): return "subject";
    case Code("ISFT"): return "software";
    case Code("ISRC"): return "source";
    case Code("ITCH"): return "technician";
    default: return FourCCText(code);
    }
}

} // namespace lxavi
