#include "Session.hpp"

#include <algorithm>
#include <atomic>

namespace lxavigst {
namespace {

constexpr UInt32 kLargestChunk = 256u << 20; // bytes; one frame of 8K video without compression has 133 MB

std::atomic_flag s_taken = ATOMIC_FLAG_INIT;

struct Progress {
    const std::function<void(guint)>& hear;
};

UInt32 HearProgress(void* pUser, UInt64 done, UInt64 all)
{
    static_cast<Progress*>(pUser)->hear(all > 0 ? static_cast<guint>(done * 100 / all) : 0);
    return 1;
}

// Whether the chunk is one that is not delivered, and whose size can be trusted.
bool IsRejected(UInt32 result)
{
    return result == LX_ERR_AVIREAD_AUDIO_SKIPPED || result == LX_ERR_AVIREAD_VIDEO_SKIPPED ||
           result == LX_ERR_AVIREAD_SUBTITLE_SKIPPED;
}

} // namespace

std::unique_ptr<Session> Session::Begin(std::unique_ptr<Input> pInput)
{
    if (s_taken.test_and_set()) {
        return nullptr;
    }
    return std::unique_ptr<Session>(new Session(std::move(pInput)));
}

Session::Session(std::unique_ptr<Input> pInput) : m_pInput(std::move(pInput)) { lxAviReadCore_SetAbortFlag(0); }

Session::~Session()
{
    lxAviReadCore_Close();
    s_taken.clear();
}

UInt32 Session::Open(UInt32 tableBytes)
{
    FILE* const pStream = m_pInput->OpenStream();
    if (pStream == nullptr) {
        return LX_ERR_AVIREAD_NO_MEMORY;
    }
    Bool allIndexed = 0;
    UInt32 result = lxAviReadCore_OpenStream(0, pStream, 1, tableBytes, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed);
    if (result != LX_OK) {
        return result;
    }
    lxAviReadCore_DeliverAllTracks(1);
    result = m_pInput->CanSeek() ? lxAviReadCore_ParseIndex(0) : LX_OK;
    if (result == LX_ERR_AVIREAD_ABORTED) {
        return result;
    }
    Rewind();
    return LX_OK; // a file whose index cannot be used plays from start to end
}

UInt32 Session::ParseMediaData(const std::function<void(guint)>& progress)
{
    Progress user = {progress};
    return lxAviReadCore_ParseMediaData(0, HearProgress, &user);
}

bool Session::HasTable() const
{
    lxAviRead_TableSummary_t table = {};
    lxAviReadCore_GetTableSummary(&table);
    return table.uiStored > 0;
}

bool Session::CanParseMediaData() const
{
    return m_pInput->CanSeek() && lxAviReadCore_GetAviInfo()->videoStreamNr >= 0;
}

UInt32 Session::Next(lxAviRead_ChunkData_t& chunk)
{
    for (;;) {
        Bool jumped = 0;
        const UInt32 result = lxAviReadCore_NextChunk(&chunk, 0, 0, &jumped);
        if (IsRejected(result)) {
            lxAviReadCore_IncreaseOffset(chunk.uiSize);
            if (const UInt32 skipped = lxAviReadCore_RemoveChunk(chunk.uiSize); skipped != LX_OK) {
                return skipped;
            }
        } else if (result != LX_ERR_AVIREAD_BAD_STREAM) {
            return result;
        }
    }
}

GstBuffer* Session::Read(const lxAviRead_ChunkData_t& chunk)
{
    UInt64 end = 0;
    lxAviReadCore_GetFilePosition(&end);
    const bool cut = m_pInput->CanSeek() && end > m_pInput->Size();
    if (chunk.uiSize > kLargestChunk || cut) {
        lxAviReadCore_RemoveChunk(chunk.uiSize);
        return nullptr;
    }
    GstBuffer* const pBuffer = gst_buffer_new_allocate(nullptr, chunk.uiSize, nullptr);
    GstMapInfo map;
    gst_buffer_map(pBuffer, &map, GST_MAP_WRITE);
    const UInt32 result = lxAviReadCore_GetChunk(reinterpret_cast<UInt32*>(map.data), chunk.uiSize);
    gst_buffer_unmap(pBuffer, &map);
    if (result != LX_OK) {
        gst_buffer_unref(pBuffer);
        return nullptr;
    }
    return pBuffer;
}

// ---- Seeks ----

namespace {

// All tracks are delivered; any number that is not negative stands for them.
Int32 TrackOf(Audio audio) { return audio == Audio::Resumes ? 0 : -1; }

// The key frame that a seek or a step has chosen last.
lxAviReadCore_KeyFramePosition_t Chosen()
{
    const lxAviReadCore_AviInfo_t& info = *lxAviReadCore_GetAviInfo();
    lxAviReadCore_KeyFramePosition_t position = {};
    position.leafNr = info.audioSyncLeafNr;
    position.itemNr = info.audioSyncItemNr;
    return position;
}

GstClockTime TimeOf(const lxAviReadCore_KeyFramePosition_t& position)
{
    const lxAviReadCore_AviInfo_t& info = *lxAviReadCore_GetAviInfo();
    const UInt32 frame = info.KeyFramesListAsArray[position.leafNr]->array[position.itemNr].videoFrameNumber;
    return lxAviReadCore_GetStreamTimeNsec(static_cast<UInt32>(info.videoStreamNr), frame, 0);
}

// Every leaf before the last one is full.
bool StepBack(lxAviReadCore_KeyFramePosition_t& position)
{
    if (position.itemNr == 0) {
        if (position.leafNr == 0) {
            return false;
        }
        --position.leafNr;
        position.itemNr = LEAF_ARRAY_LENGTH;
    }
    --position.itemNr;
    return true;
}

} // namespace

GstClockTime Session::Seek(GstClockTime time, UInt32 rounding, Audio audio)
{
    return lxAviReadCore_SeekToTimeNsec(time, TrackOf(audio), rounding);
}

GstClockTime Session::StepKeyFrame(bool forward)
{
    Bool found = 0;
    forward ? lxAviReadCore_SetJumpToNextKeyFrameForTrickMode(&found, -1)
            : lxAviReadCore_SetJumpToPrevKeyFrame(&found, -1);
    return found != 0 ? TimeOf(Chosen()) : GST_CLOCK_TIME_NONE;
}

GstClockTime Session::GoToPreviousKeyFrame(Audio audio)
{
    lxAviReadCore_KeyFramePosition_t position = Chosen();
    if (!StepBack(position)) {
        return GST_CLOCK_TIME_NONE;
    }
    lxAviReadCore_SetPointerOnKF(&position, TrackOf(audio));
    return TimeOf(position);
}

void Session::Rewind() { lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()); }

void Session::Interrupt(bool interrupted)
{
    lxAviReadCore_SetAbortFlag(interrupted ? 1 : 0);
    m_pInput->Interrupt(interrupted);
}

std::vector<UInt8> StreamBytes(UInt32 streamNr, UInt32 kind)
{
    std::vector<UInt8> bytes(LX_AVIREAD_KEPT_BYTES);
    UInt32 size = 0;
    lxAviReadCore_GetStreamBytes(streamNr, kind, bytes.data(), LX_AVIREAD_KEPT_BYTES, &size);
    bytes.resize(std::min<UInt32>(size, LX_AVIREAD_KEPT_BYTES));
    return bytes;
}

} // namespace lxavigst
