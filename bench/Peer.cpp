// A general-purpose media framework does the same work, through its public interface. It builds its lists of streams
// and its indexes when it opens a file. AVFMT_FLAG_NOPARSE and AVFMT_FLAG_NOFILLIN switch off what a caller who only
// demultiplexes does not need: the parsers of the codecs, and times that the file does not hold. The items are what the
// framework really delivers; it leaves out chunks without payload.

#include "Contender.hpp"

#include <filesystem>
#include <stdexcept>

extern "C" {
#include <libavformat/avformat.h>
}

namespace bench {
namespace {

constexpr int kVideo = 0;
constexpr int kAudio = 1;
constexpr int kSecondTrack = 2;

void Expect(bool holds, const char* pWhat)
{
    if (!holds) {
        throw std::runtime_error(std::string("the peer could not ") + pWhat);
    }
}

class OpenPeer : public Contender {
public:
    explicit OpenPeer(const Input& input, int flags = 0)
        : m_input(input), m_pPacket(av_packet_alloc()), m_flags(flags | AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN)
    {
        av_log_set_level(AV_LOG_QUIET);
        Open();
    }
    ~OpenPeer() override
    {
        avformat_close_input(&m_pContext);
        av_packet_free(&m_pPacket);
    }

protected:
    void Open()
    {
        m_pContext = avformat_alloc_context();
        m_pContext->flags |= m_flags;
        Expect(avformat_open_input(&m_pContext, m_input.path.c_str(), nullptr, nullptr) == 0, "open");
    }
    void Close() { avformat_close_input(&m_pContext); }

    // The stream of the next packet, or -1 at the end.
    int Next()
    {
        if (av_read_frame(m_pContext, m_pPacket) < 0) {
            return -1;
        }
        const int stream = m_pPacket->stream_index;
        m_bKeyFrame = (m_pPacket->flags & AV_PKT_FLAG_KEY) != 0;
        av_packet_unref(m_pPacket);
        return stream;
    }

    void Seek(UInt32 frame) { Expect(av_seek_frame(m_pContext, kVideo, frame, AVSEEK_FLAG_BACKWARD) >= 0, "seek"); }

    void PlayTo(int stream)
    {
        for (int next = Next(); next != stream; next = Next()) {
            Expect(next >= 0, "play");
        }
    }

    const Input& m_input;
    AVFormatContext* m_pContext = nullptr;
    AVPacket* m_pPacket;
    int m_flags;
    bool m_bKeyFrame = false;
};

class Indexing : public OpenPeer {
public:
    using OpenPeer::OpenPeer;

    UInt64 Run() override
    {
        Close();
        Open();
        return m_input.uiChunks;
    }
};

class Delivery : public OpenPeer {
public:
    Delivery(const Input& input, Rejected eRejected) : OpenPeer(input)
    {
        if (eRejected != Rejected::None) {
            m_pContext->streams[kSecondTrack]->discard = AVDISCARD_ALL;
        }
    }

    UInt64 Run() override
    {
        Seek(0);
        UInt64 delivered = 0;
        while (Next() >= 0) {
            ++delivered;
        }
        Expect(delivered > m_input.uiChunks / 2, "deliver the file");
        return delivered;
    }
};

// Opens the file, and plays it from the first chunk to the last.
class Playing : public OpenPeer {
public:
    Playing(const Input& input, Index eIndex) : OpenPeer(input, eIndex == Index::LeftAlone ? AVFMT_FLAG_IGNIDX : 0) {}

    UInt64 Run() override
    {
        Close();
        Open();
        UInt64 delivered = 0;
        while (Next() >= 0) {
            ++delivered;
        }
        Expect(delivered == m_input.uiChunks, "deliver every chunk");
        return delivered;
    }
};

class Seeking : public OpenPeer {
public:
    using OpenPeer::OpenPeer;

    UInt64 Run() override
    {
        Dice dice;
        for (UInt32 i = 0; i < kJumps; ++i) {
            Seek(dice.Below(kFilmFrames));
            bool bVideo = false;
            bool bAudio = false;
            while (!bVideo || !bAudio) {
                const int stream = Next();
                Expect(stream >= 0, "play behind a seek");
                bVideo |= stream == kVideo;
                bAudio |= stream == kAudio;
            }
        }
        return kJumps;
    }
};

class Stepping : public OpenPeer {
public:
    Stepping(const Input& input, Steps eSteps) : OpenPeer(input), m_eSteps(eSteps) {}

    UInt64 Run() override
    {
        for (UInt32 i = 0; i < kJumps; ++i) {
            const UInt32 keyFrame = m_eSteps == Steps::Forward ? i : kFilmFrames / kFilmKeyDistance - 1 - i;
            Seek(keyFrame * kFilmKeyDistance);
            PlayTo(kVideo);
            Expect(m_bKeyFrame, "step");
        }
        return kJumps;
    }

private:
    Steps m_eSteps;
};

// The framework's command-line tool, as one process.
class Extraction : public Contender {
public:
    explicit Extraction(const Input& input)
        : m_input(input), m_video(input.path + ".m4v"), m_audio(input.path + ".wav"),
          m_command("ffmpeg -v quiet -y -i '" + input.path + "' -map 0:v -c copy -f rawvideo '" + m_video +
                    "' -map 0:a -c copy '" + m_audio + "' </dev/null")
    {
    }
    ~Extraction() override
    {
        std::filesystem::remove(m_video);
        std::filesystem::remove(m_audio);
    }

    UInt64 Run() override
    {
        Expect(std::system(m_command.c_str()) == 0, "extract");
        return m_input.uiChunks;
    }

private:
    const Input& m_input;
    std::string m_video;
    std::string m_audio;
    std::string m_command;
};

} // namespace

bool HasPeer() { return true; }

std::unique_ptr<Contender> PeerIndexing(const Input& input) { return std::make_unique<Indexing>(input); }

std::unique_ptr<Contender> PeerDelivery(const Input& input, Rejected eRejected)
{
    return std::make_unique<Delivery>(input, eRejected);
}

std::unique_ptr<Contender> PeerPlaying(const Input& input, Index eIndex)
{
    return std::make_unique<Playing>(input, eIndex);
}

std::unique_ptr<Contender> PeerSeeking(const Input& input) { return std::make_unique<Seeking>(input); }

std::unique_ptr<Contender> PeerStepping(const Input& input, Steps eSteps)
{
    return std::make_unique<Stepping>(input, eSteps);
}

std::unique_ptr<Contender> PeerExtraction(const Input& input)
{
    return std::system("command -v ffmpeg >/dev/null") == 0 ? std::make_unique<Extraction>(input) : nullptr;
}

} // namespace bench
