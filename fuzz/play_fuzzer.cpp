// The last 32 bytes of the input script the calls that are made on the rest as a file.

#include "Harness.hpp"

#include <algorithm>

namespace {

constexpr size_t kScriptBytes = 32;

void Call(UInt8 code, UInt8 argument)
{
    lxAviReadCore_AviInfo_t* const pAviInfo = lxAviReadCore_GetAviInfo();
    Bool flag = 0;
    const auto track = static_cast<Int32>(argument % 10) - 1;
    switch (code % 16) {
    case 0: lxfuzz::Play(argument, argument % 9); break;
    case 1: static_cast<void>(lxAviReadCore_SeekToTime(argument * 97u, track, argument % 4)); break;
    case 2: static_cast<void>(lxAviReadCore_SetJumpToNextKeyFrame(&flag, track)); break;
    case 3: static_cast<void>(lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&flag, track)); break;
    case 4: static_cast<void>(lxAviReadCore_SetJumpToPrevKeyFrame(&flag, track)); break;
    case 5: static_cast<void>(lxAviReadCore_JumpInKeyFrames(static_cast<Int32>(argument) - 128, track)); break;
    case 6: static_cast<void>(lxAviReadCore_SetOnKeyFrame_AudioAndVideo(track)); break;
    case 7: lxAviReadCore_RewindToStart(); break;
    case 8: static_cast<void>(lxAviReadCore_ParseIndex(0)); break;
    case 9: static_cast<void>(lxAviReadCore_SetAbortFlag(argument & 1)); break;
    case 10: static_cast<void>(lxAviReadCore_PositionTheFileHandleToPlayData(pAviInfo)); break;
    case 11: static_cast<void>(lxAviReadCore_Open(0, "", argument % 3, argument * 8192u, argument % 3, &flag)); break;
    case 12: static_cast<void>(lxAviReadCore_Open(0, "input", argument % 3, argument * 8192u, argument % 3, &flag)); break;
    case 13: static_cast<void>(lxAviReadCore_Reset()); break;
    case 14: static_cast<void>(lxAviReadCore_ConstructAvixInfo(0, pAviInfo)); break;
    default: static_cast<void>(lxAviReadCore_FileSeek(pAviInfo, argument, 0)); break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size)
{
    const size_t script = std::min(size, kScriptBytes);
    const UInt8* const pScript = pData + (size - script);
    Bool allIndexed = 0;
    lxfuzz::Serve(pData, size - script);
    static_cast<void>(lxAviReadCore_Open(0, "input", 1, 1u << 20, 1, &allIndexed));
    for (size_t i = 0; i + 1 < script; i += 2) {
        Call(pScript[i], pScript[i + 1]);
    }
    lxfuzz::CloseAndCheck();
    return 0;
}
