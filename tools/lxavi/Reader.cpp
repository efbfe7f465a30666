#include "Reader.hpp"

#include "Output.hpp"

#include "lxDbgHost.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace lxavi {

namespace {

constexpr UInt32 kPiece = 64 * 1024; // bytes of payload at a time

// The library's sentence about a code, as a part of another one.
std::string Explain(UInt32 code)
{
    std::string text = lxAviReadCore_ResultText(code);
    text.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(text.front())));
    text.pop_back();
    return text;
}

std::string NoSuchTrack(const char* kind, UInt32 wanted, UInt32 count)
{
    switch (count) {
    case 0: return fmt::format("there is no {} track", kind);
    case 1: return fmt::format("there is no {} track {}: the only one is 0", kind, wanted);
    default: return fmt::format("there is no {} track {}: there are 0 to {}", kind, wanted, count - 1);
    }
}

} // namespace

std::string CodeName(UInt32 code)
{
    switch (code) {
    case LX_OK: return "LX_OK";
    case LX_AVIREAD_END_OF_MEDIA: return "LX_AVIREAD_END_OF_MEDIA";
    case LX_ERR_AVIREAD_READ: return "LX_ERR_AVIREAD_READ";
    case LX_ERR_AVIREAD_NO_MEMORY: return "LX_ERR_AVIREAD_NO_MEMORY";
    case LX_ERR_AVIREAD_OPEN: return "LX_ERR_AVIREAD_OPEN";
    case LX_ERR_AVIREAD_NOT_AVI: return "LX_ERR_AVIREAD_NOT_AVI";
    case LX_ERR_AVIREAD_SEEK: return "LX_ERR_AVIREAD_SEEK";
    case LX_ERR_AVIREAD_EOF: return "LX_ERR_AVIREAD_EOF";
    case LX_ERR_AVIREAD_NO_INDEX: return "LX_ERR_AVIREAD_NO_INDEX";
    case LX_ERR_AVIREAD_SUBTITLE_SKIPPED: return "LX_ERR_AVIREAD_SUBTITLE_SKIPPED";
    case LX_ERR_AVIREAD_AUDIO_SKIPPED: return "LX_ERR_AVIREAD_AUDIO_SKIPPED";
    case LX_ERR_AVIREAD_VIDEO_SKIPPED: return "LX_ERR_AVIREAD_VIDEO_SKIPPED";
    case LX_ERR_AVIREAD_JUMP_NOT_VIDEO: return "LX_ERR_AVIREAD_JUMP_NOT_VIDEO";
    case LX_ERR_AVIREAD_BAD_STREAM: return "LX_ERR_AVIREAD_BAD_STREAM";
    case LX_ERR_AVIREAD_ABORTED: return "LX_ERR_AVIREAD_ABORTED";
    case LX_ERR_AVIREAD_INDEX_STREAM: return "LX_ERR_AVIREAD_INDEX_STREAM";
    case LX_ERR_AVIREAD_AVIX_LIST: return "LX_ERR_AVIREAD_AVIX_LIST";
    case LX_ERR_AVIREAD_JUMP_RANGE: return "LX_ERR_AVIREAD_JUMP_RANGE";
    case LX_ERR_AVIREAD_NO_KEY_FRAME: return "LX_ERR_AVIREAD_NO_KEY_FRAME";
    default: return fmt::format("0x{:08X}", code);
    }
}

Failure::Failure(const std::string& what, UInt32 code)
    : std::runtime_error(fmt::format("{}{}{} ({})", what, what.empty() ? "" : ": ", Explain(code), CodeName(code)))
{
}

Reader::Reader(const Options& options)
    : m_options(options), m_buffer(size_t{kPiece} * (options.attempts > 1 ? 4 : 1) / sizeof(UInt32))
{
    LookAtInput();
    lxDbg_SetLevelMask("lxAviRead", options.logMask);
    Bool allIndexed = 0;
    const UInt32 indxOption = options.indxOption | (options.defaultMode ? 0 : LX_AVIREAD_FOLLOW_FORMAT);
    const UInt32 result = lxAviReadCore_Open(0, options.Path().c_str(), options.attempts, options.budget,
                                             static_cast<UInt8>(indxOption), &allIndexed);
    if (result != LX_OK) {
        static_cast<void>(lxAviReadCore_Close());
        throw Failure(m_isRegular && m_fileSize == 0 ? "is empty" : "", result);
    }
}

// What the file system says of the input. It knows more reasons than the library why something cannot be opened.
void Reader::LookAtInput()
{
    struct stat status = {};
    const std::string path = m_options.Path();
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
        throw Failure(fmt::format("cannot be opened: {} ({})", std::strerror(errno), CodeName(LX_ERR_AVIREAD_OPEN)));
    }
    if (S_ISDIR(status.st_mode)) {
        throw Failure(fmt::format("is a directory ({})", CodeName(LX_ERR_AVIREAD_OPEN)));
    }
    m_isRegular = S_ISREG(status.st_mode);
    m_fileSize = m_isRegular ? static_cast<UInt64>(status.st_size) : 0;
}

Reader::~Reader() { static_cast<void>(lxAviReadCore_Close()); }

bool Reader::HasTable() const
{
    lxAviRead_SetPositionRangeInfo_t range = {};
    static_cast<void>(lxAviReadCore_GetSetPositionRangeInfo(&range));
    return range.uiLastKeyFrameNr != 0xFFFFFFFFu;
}

UInt32 Reader::ParseIndex()
{
    // In default mode ParseIndex would release a table that Open has built from a one-level index, and not rebuild it.
    return m_options.defaultMode && HasTable() ? LX_OK : lxAviReadCore_ParseIndex(0);
}

UInt32 Reader::ParseMediaData()
{
    Progress progress("looking for key frames");
    const UInt32 result = lxAviReadCore_ParseMediaData(0, Progress::Tell, &progress);
    m_isRebuilt = result == LX_OK;
    return result;
}

UInt32 Reader::BuildIndex()
{
    if (m_options.rebuild == Rebuild::Always) {
        return ParseMediaData();
    }
    const UInt32 result = ParseIndex();
    const bool noIndex = result != LX_OK && result != LX_ERR_AVIREAD_NO_MEMORY; // the budget fits for neither way
    return noIndex && m_options.rebuild == Rebuild::WithoutIndex ? ParseMediaData() : result;
}

void Reader::Start()
{
    // An input that cannot seek already stands at the first chunk.
    if (lxalAviRead_FileSeekPossible != 0) {
        static_cast<void>(lxAviReadCore_PositionTheFileHandleToPlayData(lxAviReadCore_GetAviInfo()));
    }
}

UInt32 Reader::Seek(UInt32 timeMsec, int audioTrack, UInt32 rounding)
{
    if (!HasTable()) {
        throw Failure("cannot jump", LX_ERR_AVIREAD_NO_INDEX);
    }
    return lxAviReadCore_SeekToTime(timeMsec, audioTrack, rounding);
}

UInt32 Reader::AudioTracks() const { return std::min<UInt32>(State().AudioTracksCount, LX_AVIREAD_AUDIO_TRACKS); }

UInt32 Reader::SubtitleTracks() const { return State().SubtitleTracksCount; }

int Reader::TrackToPlay(std::optional<UInt32> wanted) const
{
    if (wanted && *wanted >= AudioTracks()) {
        throw Failure(NoSuchTrack("audio", *wanted, AudioTracks()));
    }
    return AudioTracks() > 0 ? static_cast<int>(wanted.value_or(0)) : -1;
}

UInt32 Reader::SubtitleToPlay(std::optional<UInt32> wanted) const
{
    if (wanted && *wanted >= SubtitleTracks()) {
        throw Failure(NoSuchTrack("subtitle", *wanted, SubtitleTracks()));
    }
    return wanted.value_or(0);
}

bool Reader::IsEnd(const Item& item)
{
    switch (item.result) {
    case LX_AVIREAD_END_OF_MEDIA:
    case LX_ERR_AVIREAD_READ:
    case LX_ERR_AVIREAD_EOF:
    case LX_ERR_AVIREAD_ABORTED:
    case LX_ERR_AVIREAD_SEEK:
    case LX_ERR_AVIREAD_JUMP_RANGE: return true;
    default: return false;
    }
}

// The position of the file. When the input cannot state it, the position that the library has computed.
UInt64 Reader::Position() const
{
    if (const off64_t position = ftello64(State().pFile); position >= 0) {
        return static_cast<UInt64>(position);
    }
    UInt64 position = 0;
    lxAviReadCore_GetFilePosition(&position);
    return position - m_delivered;
}

Item Reader::Next(UInt32 audioTrack, UInt32 subtitleTrack)
{
    Item item;
    Bool jumped = 0;
    item.result = lxAviReadCore_NextChunk(&item.chunk, audioTrack, subtitleTrack, &jumped);
    m_delivered = item.result == LX_OK ? item.chunk.uiSize : 0;
    item.jumped = jumped != 0;
    item.offset = Position() - 8;
    if (item.chunk.uiStreamNr < LX_AVIREAD_STREAMS) {
        item.track = State().TrackNumber[item.chunk.uiStreamNr];
    }
    if (item.result == LX_OK) {
        item.time =
            lxAviReadCore_GetStreamTime(item.chunk.uiStreamNr, item.chunk.uiFrameNumber, item.chunk.uiBytePosition);
        item.endTime = lxAviReadCore_GetStreamTime(item.chunk.uiStreamNr, item.chunk.uiFrameNumber + 1,
                                                   item.chunk.uiBytePosition + item.chunk.uiSize);
    }
    return item;
}

// A chunk that the file does not have as a whole may be cut, or its size may be wrong.
std::string Reader::WhichChunk(const Item& item) const
{
    const UInt32 there = BytesThere(item);
    return there == item.chunk.uiSize
               ? fmt::format("chunk at {}", item.offset)
               : fmt::format("chunk at {}, which claims {} bytes and has {}", item.offset, item.chunk.uiSize, there);
}

UInt32 Reader::BytesThere(const Item& item) const
{
    const UInt64 begin = std::min(item.offset + 8, m_fileSize);
    const UInt64 there = m_fileSize == 0 ? item.chunk.uiSize : m_fileSize - begin;
    return static_cast<UInt32>(std::min<UInt64>(item.chunk.uiSize, there));
}

void Reader::ReadPayload(const Item& item, const std::function<void(std::span<const UInt8>)>& take)
{
    const auto* const bytes = reinterpret_cast<const UInt8*>(m_buffer.data());
    const UInt32 there = BytesThere(item);
    for (UInt32 done = 0; done < item.chunk.uiSize;) {
        const UInt32 piece = std::min((done < there ? there : item.chunk.uiSize) - done, kPiece);
        if (const UInt32 result = lxAviReadCore_GetChunk(m_buffer.data(), piece); result != LX_OK) {
            UInt32 came = 0; // of a pipe that has ended
            static_cast<void>(lxAviReadCore_GetReadSize(&came));
            if (came > 0) {
                take({bytes, std::min(came, piece)});
            }
            throw Failure(WhichChunk(item), result);
        }
        take({bytes, piece});
        done += piece;
    }
}

void Reader::Skip(const Item& item)
{
    if (item.result == LX_ERR_AVIREAD_BAD_STREAM || IsEnd(item)) {
        return; // its size cannot be trusted
    }
    if (item.chunk.uiSize > 0) {
        static_cast<void>(lxAviReadCore_RemoveChunk(item.chunk.uiSize));
    }
    if (item.result != LX_OK) { // the library has already counted delivered chunks
        lxAviReadCore_IncreaseOffset(item.chunk.uiSize);
    }
}

std::vector<const lxAviReadCore_KeyFrameEntry_t*> Reader::Table() const
{
    std::vector<const lxAviReadCore_KeyFrameEntry_t*> entries;
    for (UInt32 i = 0; i < State().KeyFramesListAsArrayLength; ++i) {
        const lxAviReadCore_KeyFrameLeaf_t& leaf = *State().KeyFramesListAsArray[i];
        for (UInt32 k = 0; k < leaf.arrayLength; ++k) {
            entries.push_back(&leaf.array[k]);
        }
    }
    return entries;
}

const lxAviReadCore_StreamInfo_t* Reader::Stream(UInt32 number) const
{
    return number < LX_AVIREAD_STREAMS ? State().StreamInfo[number] : nullptr;
}

UInt32 Reader::StreamCount() const
{
    UInt32 count = 0;
    for (UInt32 i = 0; i < LX_AVIREAD_STREAMS; ++i) {
        if (Stream(i) != nullptr && Stream(i)->Header.fccType != 0) {
            count = i + 1;
        }
    }
    return count;
}

} // namespace lxavi
