// The last bytes of the input are a script of file faults, heap faults and calls. The rest of the input is the file.
// After the script the same file has to open and play as before.

#include "Harness.hpp"

#include <cstdlib>

const size_t kScriptBytes = 34;

namespace {

constexpr size_t kFaultBytes = 16;

// A checksum of the results of a session without faults.
UInt32 Outcome(UInt8 indxOption)
{
    Bool allIndexed = 0;
    UInt32 sum = lxAviReadCore_Open(0, "input", 1, 1u << 18, indxOption, &allIndexed);
    sum = sum * 31 + lxAviReadCore_ParseIndex(0);
    sum = sum * 31 + lxAviReadCore_GetAviInfo()->KeyFramesListAsArrayLength;
    sum = sum * 31 + (lxfuzz::Play(20, 0) ? 1 : 0);
    lxfuzz::CloseAndCheck();
    return sum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size)
{
    const lxfuzz::Parts parts = lxfuzz::Split(pData, size, kScriptBytes);
    if (parts.script.size() < kScriptBytes) {
        return 0;
    }
    const UInt8 indxOption = parts.script[0];
    lxfuzz::Serve(parts.file);
    const UInt32 before = Outcome(indxOption);
    lxfuzz::ScriptFaults(parts.script.subspan(2, kFaultBytes));
    Bool allIndexed = 0;
    static_cast<void>(lxAviReadCore_Open(0, "input", parts.script[1] % 6, 1u << 18, indxOption, &allIndexed));
    for (size_t i = 2 + kFaultBytes; i + 1 < kScriptBytes; i += 2) {
        lxfuzz::Call(parts.script[i], parts.script[i + 1]);
    }
    lxfuzz::CloseAndCheck();
    if (Outcome(indxOption) != before) {
        std::abort(); // the faults have changed a later session
    }
    return 0;
}
