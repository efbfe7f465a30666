// Where playing goes on after a jump.

#pragma once

#include "Reader.hpp"

#include <optional>

namespace lxavi {

struct Landing {
    std::optional<Item> video;
    std::optional<Item> audio;
};

// Delivers chunks until it has the first video chunk and the first chunk of the audio track (-1: none), or until it has seen
// `most` chunks.
Landing Land(Reader& reader, int track, UInt64 most);

} // namespace lxavi
