// What the fuzzers share: the input served as a file, and the calls of a player.

#pragma once

#include "lxAviRead.h"

#include <cstddef>

namespace lxfuzz {

// The next lxAviReadCore_Open reads these bytes, whatever path it is given.
void Serve(const UInt8* pData, size_t size);

// Delivers up to `chunks` chunks by the caller's protocol. False at the end of delivery.
bool Play(UInt32 chunks, UInt32 audioTrack);

// Closes, and stops the program if anything is left in the state.
void CloseAndCheck();

} // namespace lxfuzz
