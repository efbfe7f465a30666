// The texts of the INFO list, and chunks of the stream headers, as the library keeps them.

#pragma once

#include "AviWriter.hpp"

#include <string>
#include <vector>

namespace lxavi {

std::vector<NamedBytes> TextsOfFile();

// What a text is about, by its code: "title". The code itself, when it is not a common one.
std::string TextName(UInt32 code);

// A chunk of a stream's headers, `LX_AVIREAD_BYTES_…`; empty when the file has none.
std::string BytesOfStream(UInt32 streamNr, UInt32 kind);

// The headers of a stream, as a writer of files needs them.
WrittenStream StreamOfFile(const Reader& reader, UInt32 streamNr);

} // namespace lxavi
