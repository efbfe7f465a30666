// The codings: names, and file extensions for extracted streams.

#pragma once

#include "Reader.hpp"

namespace lxavi {

// What makes a difference for a file that holds one stream alone.
enum class Coding {
    Other, // has no file format of its own, or none that is written here
    // video
    Mjpeg,
    Mpeg4, // part 2
    H264,
    H265,
    Mpeg12,
    Dv,
    // audio
    Wave, // everything that WAV files hold
    Mp3,
    Mp2,
    Aac,
    Ac3,
    Dts,
    // subtitles
    Text,
    Bitmap,
};

struct StreamCoding {
    Coding coding = Coding::Other;
    std::string name;      // for people
    std::string extension; // of a file with this stream alone
};

// Whether a stream is DV with its audio inside.
bool IsInterleaved(const lxAviReadCore_StreamInfo_t& stream);

// Whether the reader does not know the type of a stream that the headers describe.
bool IsUnknown(const lxAviReadCore_StreamInfo_t& stream);

// Whether a video stream carries bitmap subtitles, by its codec.
bool IsForSubtitles(const lxAviReadCore_StreamInfo_t& stream);

// How the frame rates of the main header and of the main video stream disagree, if they do by more than 0.1 %.
std::string FrameRateConflict(const Reader& reader);

StreamCoding CodingOf(const lxAviReadCore_StreamInfo_t& stream);

// The type of a stream for people; of an unknown one the code that the file has.
std::string KindOf(const lxAviReadCore_StreamInfo_t& stream);

lxAviRead_StrfVideo_t VideoFormatOf(const lxAviReadCore_StreamInfo_t& stream);
lxAviRead_StrfAudio_t AudioFormatOf(const lxAviReadCore_StreamInfo_t& stream);

const char* TypeName(UInt32 streamType);

} // namespace lxavi
