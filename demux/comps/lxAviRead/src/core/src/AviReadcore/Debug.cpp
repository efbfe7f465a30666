// The messages of checked calls.

#include "internal/Debug.hpp"

namespace lxAviReadCore {

void AnnounceCall(const char* pCall, const char* pCaller, SourcePlace place)
{
    LX_LOG(kLevelCall, "Calling %s from %s at %s:%d", pCall, pCaller, place.pPath, place.iLine);
}

UInt32 ReportCall(UInt32 result, SourcePlace place)
{
    if (result != LX_OK) {
        LX_LOG(kLevelError, "Error 0x%x (%d )returned from function call at %s:%d", result, static_cast<Int32>(result),
               place.pPath, place.iLine);
    } else {
        LX_LOG(kLevelCall, "Successfully returned from function call at %s:%d", place.pPath, place.iLine);
    }
    return result;
}

} // namespace lxAviReadCore
