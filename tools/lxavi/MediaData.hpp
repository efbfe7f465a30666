// The chunks of a file's media data, as the library meets them.

#pragma once

#include "SourceFile.hpp"

#include <functional>
#include <vector>

namespace lxavi {

// Hands every whole chunk to `visit`, in file order. `visit` must not call the library. Throws Failure, also what `visit`
// throws.
void ForEachMediaChunk(const Reader& reader, const std::function<void(const lxAviRead_MediaChunk_t&)>& visit);

// The first `movi` list; the others follow it.
const lxAviReadCore_AvixRiff_t* FirstSegment(const Reader& reader);

// The `movi` lists, as far as the file has them.
std::vector<Extent> MediaLists(const Reader& reader);

// The offset behind a chunk and its pad byte.
constexpr UInt64 BehindChunk(const lxAviRead_MediaChunk_t& chunk)
{
    return chunk.uiOffset + 8 + chunk.uiSize + (chunk.uiSize & 1);
}

} // namespace lxavi
