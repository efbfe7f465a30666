// Completes a file whose media data is whole: appends the index that it lacks, and corrects its headers.

#pragma once

#include "Inventory.hpp"

#include <string>
#include <vector>

namespace lxavi {

// Does it, and names what was changed; nothing, when the file was complete. Throws Failure, before anything is written,
// when the file needs a copy instead.
std::vector<std::string> CompleteInPlace(const Reader& reader, const Inventory& inventory);

} // namespace lxavi
