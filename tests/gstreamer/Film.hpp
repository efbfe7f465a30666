// Made films whose every frame and every sample tells its number.

#pragma once

#include "AviBuilder.hpp"
#include "Playing.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include <unistd.h>

namespace gsttest {

using namespace avitest;

constexpr UInt32 kFrames = 250; // of 40 ms
constexpr UInt32 kKeyStep = 12;
constexpr UInt32 kSampleRate = 8000;
constexpr UInt32 kSamplesPerFrame = kSampleRate / 25;
constexpr GstClockTime kFrameTime = 40 * GST_MSECOND;
constexpr GstClockTime kFilmTime = kFrames * kFrameTime;

inline Bytes Samples(UInt32 first, UInt32 count)
{
    Bytes bytes;
    for (UInt32 i = 0; i < count; ++i) {
        bytes += U16(first + i);
    }
    return bytes;
}

inline Bytes FrameBytes(UInt32 number) { return U32(number) + Fill(10 + number % 7, static_cast<UInt8>(number)); }

inline UInt32 KeyBefore(UInt32 frame) { return frame - frame % kKeyStep; }

inline UInt32 NumberOf(const Buffer& frame)
{
    UInt32 number = 0xFFFFFFFFu;
    frame.data.copy(reinterpret_cast<char*>(&number), sizeof number);
    return number;
}

// A film with one track of PCM, or two. The second one stands `late` frames behind the picture in the file.
inline AviBuilder Film(UInt32 tracks = 1, UInt32 late = 0)
{
    AviBuilder builder;
    builder.Add(VideoStream());
    for (UInt32 track = 0; track < tracks; ++track) {
        builder.Add(PcmStream(kSampleRate));
    }
    for (UInt32 i = 0; i < kFrames + late; ++i) {
        if (i < kFrames) {
            builder.Audio(1, Samples(i * kSamplesPerFrame, kSamplesPerFrame));
            builder.Frame(0, FrameBytes(i), i % kKeyStep == 0);
        }
        if (tracks > 1 && i >= late) {
            builder.Audio(2, Samples((i - late) * kSamplesPerFrame, kSamplesPerFrame));
        }
    }
    return builder;
}

// A film whose frames tell themselves whether decoding can begin there; every tenth is one of those.
inline AviBuilder CodedFilm()
{
    AviBuilder builder;
    builder.Add(VideoStream());
    for (UInt32 i = 0; i < 100; ++i) {
        const UInt8 kind = i % 10 == 0 ? 0x10 : 0x50; // a picture of its own, or one that follows another
        builder.Frame(0, Bytes{0, 0, 1, 0xB6, kind} + U32(i) + Fill(100), i % 10 == 0);
    }
    return builder;
}

// A film of a codec of key frames only.
inline AviBuilder MotionJpegFilm(const std::function<Bytes(UInt32)>& frame)
{
    AviBuilder builder;
    Stream video = VideoStream();
    const Bytes code = Text("MJPG");
    std::copy(code.begin(), code.end(), video.format.begin() + 16);
    builder.Add(video);
    for (UInt32 i = 0; i <= 100; ++i) {
        builder.Frame(0, frame(i), true);
    }
    return builder;
}

class Gst : public ::testing::Test {
protected:
    Gst()
    {
        char name[] = "/tmp/lxavi-gst-XXXXXX";
        m_folder = mkdtemp(name);
    }
    ~Gst() override { EXPECT_EQ(std::system(("rm -rf " + m_folder).c_str()), 0); }

    std::string File(const Bytes& bytes, const std::string& name = "film.avi") const
    {
        const std::string path = m_folder + "/" + name;
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return path;
    }

    std::string m_folder;
};

} // namespace gsttest
