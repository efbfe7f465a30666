// The calls of the library for one element: one open file, its chunks, its seeks.
//
// The library reads one file at a time in a process, therefore there is one session at a time. Its functions are called by
// one thread at a time; only Interrupt may be called by another one.

#pragma once

#include "Input.hpp"

#include "lxAviRead.h"

#include <functional>
#include <string>
#include <vector>

namespace lxavigst {

// How a seek goes to a key frame.
enum class Audio { None, Resumes }; // with Resumes, delivery begins at the audio that plays with the key frame

class Session {
public:
    // Null while another element has the library.
    static std::unique_ptr<Session> Begin(std::unique_ptr<Input> pInput);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Opens the file and reads its index; `tableBytes` is the budget of the key-frame table. The results are those of the
    // library.
    UInt32 Open(UInt32 tableBytes);
    // Builds the key-frame table from the media data; `progress` hears of the percentage.
    UInt32 ParseMediaData(const std::function<void(guint)>& progress);
    bool HasTable() const;
    bool CanSeek() const { return m_pInput->CanSeek(); }
    GstFlowReturn InputFlow() const { return m_pInput->Flow(); }
    // Whether a table can be built from the media data.
    bool CanParseMediaData() const;

    // The next chunk that is delivered; rejected ones are passed over.
    UInt32 Next(lxAviRead_ChunkData_t& chunk);
    // Its payload: a new buffer. Null when the file does not have all of it, or the chunk is too large to be one.
    GstBuffer* Read(const lxAviRead_ChunkData_t& chunk);
    UInt32 Skip(const lxAviRead_ChunkData_t& chunk) { return lxAviReadCore_RemoveChunk(chunk.uiSize); }

    // These choose a key frame and return its time. The next chunk comes from there.
    GstClockTime Seek(GstClockTime time, UInt32 rounding, Audio audio);
    // The key frame behind or before the one that was delivered or chosen last, without audio; none behind either end.
    GstClockTime StepKeyFrame(bool forward);
    // The key frame before the one that was chosen last; none before the first.
    GstClockTime GoToPreviousKeyFrame(Audio audio);
    // To the first chunk of the file.
    void Rewind();

    // Ends the call that runs, and every other one that reads, until it is called with false.
    void Interrupt(bool interrupted);

private:
    explicit Session(std::unique_ptr<Input> pInput);

    std::unique_ptr<Input> m_pInput;
};

// A chunk of a stream's header (`LX_AVIREAD_BYTES_…`), as it stands in the file; empty when the file has none.
std::vector<UInt8> StreamBytes(UInt32 streamNr, UInt32 kind);

} // namespace lxavigst
