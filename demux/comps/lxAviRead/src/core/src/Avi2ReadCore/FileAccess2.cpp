// The reads of the OpenDML index: the read loop of the reader, without the abort flag and with messages of its own.

#include "internal/FileAccess.hpp"

namespace lxAviReadCore {

namespace {

constexpr MessageRow<ReadText> kOpenDmlReadMessages[] = {
    {ReadText::EndOfFile, kLevelEndOfFile,
     "leaving lxAvi2ReadCore_FileRead()-eof.err=0x%x(%d). only %d bytes left unread"},
    {ReadText::Exhausted, kLevelLeave, "lxAvi2ReadCore_FileRead() with err=0x%x(%d). only %d bytes left unread"},
};
static_assert(IsMessageTable(kOpenDmlReadMessages, kReadTextArguments));

} // namespace

const ReadFamily kOpenDmlRead = {false, kOpenDmlReadMessages};

} // namespace lxAviReadCore

using namespace lxAviReadCore;

UInt32 lxAvi2ReadCore_FileRead(lxAviReadCore_AviInfo_t* pAviInfo, UInt32* buffer, UInt32 size)
{
    LX_ASSERT(buffer != Null, "buffer!= Null", "Parameter for lxAvi2ReadCore_FileRead shouldn't be a null pointer");
    return ReadForCaller(pAviInfo, kOpenDmlRead, buffer, size);
}

Bool lxAvi2ReadCore_FileEof(lxAviReadCore_AviInfo_t* pAviInfo) { return lxAviReadCore_FileEof(pAviInfo); }
