// The codings: names, and file extensions for extracted streams.

#pragma once

#include "Reader.hpp"

namespace lxavi {

enum class Coding {
    Other,
    // video
    Mjpeg,
    Mpeg4,
    H264,
    Mpeg12,
    Uncompressed,
    // audio
    Pcm,
    Mp3,
    Mp2,
    Aac,
    Ac3,
    // subtitles
    Text,
    Bitmap,
};

struct StreamCoding {
    Coding coding = Coding::Other;
    std::string name;      // for people
    std::string extension; // of the extracted file
};

// Whether the reader does not know the type of a stream that the headers describe.
bool IsUnknown(const lxAviReadCore_StreamInfo_t& stream);

// Whether a video stream carries bitmap subtitles, by its codec.
bool IsForSubtitles(const lxAviReadCore_StreamInfo_t& stream);

// How the frame rates of the main header and of the main video stream disagree, if they do by more than 0.1 %.
std::string FrameRateConflict(const Reader& reader);

StreamCoding CodingOf(const lxAviReadCore_StreamInfo_t& stream);

lxAviRead_StrfVideo_t VideoFormatOf(const lxAviReadCore_StreamInfo_t& stream);
lxAviRead_StrfAudio_t AudioFormatOf(const lxAviReadCore_StreamInfo_t& stream);

const char* TypeName(UInt32 streamType);

} // namespace lxavi
