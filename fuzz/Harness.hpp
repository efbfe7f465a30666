// What the fuzzers share: the input served as a file, faults scripted by the input, and the calls of a player.

#pragma once

#include "lxAviRead.h"

#include <cstddef>
#include <span>

namespace lxfuzz {

using Input = std::span<const UInt8>;

// The next lxAviReadCore_Open reads these bytes, whatever path it is given.
void Serve(Input file);

// Scripts faults by pairs of bytes: kind, and after how many operations of that kind. None for an empty script.
void ScriptFaults(Input script);

// Delivers up to `chunks` chunks by the caller's protocol. False at the end of delivery.
bool Play(UInt32 chunks, UInt32 audioTrack);

// Makes one call of a player, by its code.
void Call(UInt8 code, UInt8 argument);

// Stops the program when the table breaks what it promises: leaves, entries, budget.
void CheckTable(UInt32 budget);

// Closes, and stops the program if anything is left in the state.
void CloseAndCheck();

// The file and the script of an input whose last `scriptBytes` bytes are the script.
struct Parts {
    Input file;
    Input script;
};
Parts Split(const UInt8* pData, size_t size, size_t scriptBytes);

} // namespace lxfuzz

// Bytes at the end of an input that are no part of the file; each target says how many.
extern const size_t kScriptBytes;
