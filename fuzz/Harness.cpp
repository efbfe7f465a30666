#include "Harness.hpp"

#include "lxDbgHost.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" FILE* __wrap_fopen64(const char* path, const char* mode);

namespace lxfuzz {
namespace {

const UInt8* s_pData;
size_t s_size;

} // namespace

void Serve(const UInt8* pData, size_t size)
{
    lxDbg_LogToCallback(nullptr, nullptr, nullptr); // damaged input violates many an assertion
    s_pData = pData;
    s_size = size;
}

bool Play(UInt32 chunks, UInt32 audioTrack)
{
    UInt32 buffer[1024];
    for (; chunks > 0; --chunks) {
        lxAviRead_ChunkData_t chunk = {};
        Bool jumped = 0;
        const UInt32 result = lxAviReadCore_NextChunk(&chunk, audioTrack, 0, &jumped);
        switch (result) {
        case LX_OK:
            for (UInt32 left = chunk.uiSize; left > 0;) {
                const UInt32 piece = std::min<UInt32>(left, sizeof buffer / 4);
                if (lxAviReadCore_GetChunk(buffer, piece) != LX_OK) {
                    return false;
                }
                left -= piece;
            }
            break;
        case LX_AVIREAD_END_OF_MEDIA:
        case LX_ERR_AVIREAD_READ:
        case LX_ERR_AVIREAD_SEEK:
        case LX_ERR_AVIREAD_JUMP_RANGE: return false;
        case LX_ERR_AVIREAD_BAD_STREAM: break;
        default:
            if (lxAviReadCore_RemoveChunk(chunk.uiSize) != LX_OK) {
                return false;
            }
            lxAviReadCore_IncreaseOffset(chunk.uiSize);
        }
    }
    return true;
}

void CloseAndCheck()
{
    static const lxAviReadCore_AviInfo_t kZero = {};
    if (lxAviReadCore_Close() != LX_OK || std::memcmp(lxAviReadCore_GetAviInfo(), &kZero, sizeof kZero) != 0) {
        std::abort();
    }
}

} // namespace lxfuzz

FILE* __wrap_fopen64(const char* /*path*/, const char* mode)
{
    // A file of no bytes cannot be opened in memory.
    return lxfuzz::s_size > 0 ? fmemopen(const_cast<UInt8*>(lxfuzz::s_pData), lxfuzz::s_size, mode)
                              : fopen("/dev/null", mode);
}
