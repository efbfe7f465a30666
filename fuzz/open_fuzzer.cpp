// The input is a file, except its last byte, which is Open's IndxOption. The target opens, indexes, plays, seeks and
// closes the file.

#include "Harness.hpp"

const size_t kScriptBytes = 1;

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size)
{
    constexpr UInt32 kBudget = 1u << 20;
    const lxfuzz::Parts parts = lxfuzz::Split(pData, size, kScriptBytes);
    const UInt8 indxOption = parts.script.empty() ? 1 : parts.script[0];
    Bool allIndexed = 0;
    lxfuzz::Serve(parts.file);
    if (lxAviReadCore_Open(0, "input", 1, kBudget, indxOption, &allIndexed) == LX_OK) {
        static_cast<void>(lxAviReadCore_ParseIndex(0));
        lxfuzz::CheckTable(kBudget);
        static_cast<void>(lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()));
        lxfuzz::Play(1000, 0);
        static_cast<void>(lxAviReadCore_SeekToTime(100, 0, lxAviRead_SetPosRoundNearest));
        lxfuzz::Play(100, 0);
    }
    lxfuzz::CloseAndCheck();
    return 0;
}
