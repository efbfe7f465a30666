// Common code of the fuzzers: it serves the input as a file, scripts faults by the input, and makes the calls of a
// player.

#pragma once

#include "lxAviRead.h"

#include <cstddef>
#include <span>

namespace lxfuzz {

using Input = std::span<const UInt8>;

// The next lxAviReadCore_Open reads these bytes, with any path.
void Serve(Input file);

// Scripts faults by pairs of bytes: the kind, and the number of the operation of this kind that fails. An empty script
// has no faults.
void ScriptFaults(Input script);

// Delivers up to `chunks` chunks with the calls that the header prescribes. False at the end of delivery.
bool Play(UInt32 chunks, UInt32 audioTrack);

// Makes one call of a player; `code` selects the call.
void Call(UInt8 code, UInt8 argument);

// Aborts the program when the table breaks a rule for leaves, entries or budget.
void CheckTable(UInt32 budget);

// Calls Close, and aborts the program when the state is not all zero.
void CloseAndCheck();

// The file and the script of an input whose last `scriptBytes` bytes are the script.
struct Parts {
    Input file;
    Input script;
};
Parts Split(const UInt8* pData, size_t size, size_t scriptBytes);

} // namespace lxfuzz

// Number of bytes at the end of an input that do not belong to the file. Each target defines it.
extern const size_t kScriptBytes;
