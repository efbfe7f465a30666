#include "Landing.hpp"

namespace lxavi {

Landing Land(Reader& reader, int track, UInt64 most)
{
    Landing landing;
    for (UInt64 n = 0; n < most && (!landing.video || (track >= 0 && !landing.audio)); ++n) {
        const Item item = reader.Next(track >= 0 ? static_cast<UInt32>(track) : 0, 0);
        if (Reader::IsEnd(item)) {
            break;
        }
        reader.Skip(item);
        if (item.result != LX_OK) {
            continue;
        }
        if (item.chunk.eStreamType == LX_AVIREAD_STREAM_VIDEO && !landing.video) {
            landing.video = item;
        } else if (item.chunk.eStreamType == LX_AVIREAD_STREAM_AUDIO && !landing.audio) {
            landing.audio = item;
        }
    }
    return landing;
}

} // namespace lxavi
