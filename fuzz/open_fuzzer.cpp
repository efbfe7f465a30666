// Any bytes as a file: opened, indexed, delivered, sought, and closed.

#include "Harness.hpp"

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size)
{
    Bool allIndexed = 0;
    lxfuzz::Serve(pData, size);
    if (lxAviReadCore_Open(0, "input", 1, 1u << 20, 1, &allIndexed) == LX_OK) {
        static_cast<void>(lxAviReadCore_ParseIndex(0));
        static_cast<void>(lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()));
        lxfuzz::Play(1000, 0);
        static_cast<void>(lxAviReadCore_SeekToTime(100, 0, lxAviRead_SetPosRoundNearest));
        lxfuzz::Play(100, 0);
    }
    lxfuzz::CloseAndCheck();
    return 0;
}
