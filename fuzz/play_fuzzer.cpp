// The last bytes of the input are a script: attempts, budget, IndxOption, and then pairs of a call and its argument.
// The rest of the input is the file.

#include "Harness.hpp"

const size_t kScriptBytes = 35;

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size)
{
    const lxfuzz::Parts parts = lxfuzz::Split(pData, size, kScriptBytes);
    if (parts.script.size() < kScriptBytes) {
        return 0;
    }
    Bool allIndexed = 0;
    lxfuzz::Serve(parts.file);
    static_cast<void>(
        lxAviReadCore_Open(0, "input", parts.script[0] % 6, parts.script[1] * 16384u, parts.script[2], &allIndexed));
    for (size_t i = 3; i + 1 < kScriptBytes; i += 2) {
        lxfuzz::Call(parts.script[i], parts.script[i + 1]);
    }
    lxfuzz::CloseAndCheck();
    return 0;
}
