// Files that hold one stream each: written chunk by chunk, in a form that players open.

#pragma once

#include "Codecs.hpp"
#include "OutputFile.hpp"

#include <memory>
#include <span>
#include <vector>

namespace lxavi {

class StreamFile {
public:
    StreamFile() = default;
    virtual ~StreamFile() = default;
    StreamFile(const StreamFile&) = delete;
    StreamFile& operator=(const StreamFile&) = delete;

    // `first` is the beginning of the payload, which Payload brings again.
    virtual void BeginChunk(const Item& /*item*/, std::span<const UInt8> /*first*/) {}
    virtual void Payload(std::span<const UInt8> bytes) = 0;
    virtual void EndChunk() {}
    // Whether BeginChunk writes the size of the chunk, so that all its bytes have to follow.
    virtual bool StatesSizes() const { return false; }
    // Writes what is left.
    virtual void Finish() {}

    // What the file is, for people.
    virtual const char* Form() const = 0;
};

struct StreamToWrite {
    const Reader& reader;
    UInt32 number;
    bool isRaw;                           // the payloads, and nothing else
    bool isPart;                          // its times begin anew
    const std::vector<UInt64>& keyFrames; // offsets of the key frames of the main video that the index names, in order
};

// The extension of the file's name.
std::string ExtensionOf(const StreamToWrite& stream);

// `out` has to live as long as the result.
std::unique_ptr<StreamFile> MakeStreamFile(const StreamToWrite& stream, OutputFile& out);

} // namespace lxavi
