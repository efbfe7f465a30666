#include "MediaData.hpp"

#include "Output.hpp"

#include <algorithm>
#include <exception>

namespace lxavi {

namespace {

struct Walk {
    const std::function<void(const lxAviRead_MediaChunk_t&)>& visit;
    Progress progress;
    std::exception_ptr thrown;
};

// No exception passes through the library.
UInt32 Visit(void* pUser, const lxAviRead_MediaChunk_t* pChunk)
{
    auto& walk = *static_cast<Walk*>(pUser);
    try {
        walk.visit(*pChunk);
        walk.progress.At(pChunk->uiOffset);
        return 1;
    } catch (...) {
        walk.thrown = std::current_exception();
        return 0;
    }
}

} // namespace

void ForEachMediaChunk(const Reader& reader, const std::function<void(const lxAviRead_MediaChunk_t&)>& visit)
{
    Walk walk{visit, Progress("reading the media data", reader.FileSize()), {}};
    const UInt32 result = lxAviReadCore_WalkMediaData(Visit, &walk);
    if (walk.thrown) {
        std::rethrow_exception(walk.thrown);
    }
    if (result != LX_OK) {
        throw Failure("the media data cannot be read", result);
    }
}

const lxAviReadCore_AvixRiff_t* FirstSegment(const Reader& reader)
{
    const lxAviReadCore_AvixRiff_t* segment = reader.State().pCurrentAvix;
    while (segment != nullptr && segment->pPrevAvix != nullptr) {
        segment = segment->pPrevAvix;
    }
    return segment;
}

std::vector<Extent> MediaLists(const Reader& reader)
{
    std::vector<Extent> lists;
    for (const lxAviReadCore_AvixRiff_t* segment = FirstSegment(reader); segment != nullptr;
         segment = segment->pNextAvix) {
        lists.push_back(
            {segment->moviDataOffset, std::min(segment->moviDataOffset + segment->moviDataSize, reader.FileSize())});
    }
    return lists;
}

} // namespace lxavi
