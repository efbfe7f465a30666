// Plays, seeks, rewinds and changes states at random.
//
//   gst_soak FILE SECONDS [SEED]     exit status 1 after an error

#include "Playing.hpp"

#include <cstdio>
#include <cstdlib>
#include <random>

using namespace gsttest;

namespace {

class Viewer {
public:
    Viewer(const std::string& path, unsigned seed) : m_playing(Playing::BySource(path)), m_random(seed) {}

    bool Start() { return m_playing.Reach(GST_STATE_PLAYING); }

    // Does one thing, and watches for a moment.
    void Act()
    {
        switch (Below(10)) {
        case 0: Change(GST_STATE_PAUSED); break;
        case 1: Change(GST_STATE_READY); break;
        case 2: Seek(-1.0, GST_SEEK_FLAG_FLUSH); break;
        case 3: Seek(-8.0, GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS); break;
        case 4: Seek(8.0, GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS); break;
        case 5: Seek(1.0, GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE); break;
        default: Seek(1.0, GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT); break;
        }
        g_usleep(Below(200) * 1000);
        if (GstMessage* const pMessage = m_playing.Wait(GST_MESSAGE_EOS, 0)) {
            gst_message_unref(pMessage);
        }
        ++m_done;
    }

    const std::string& Error() const { return m_playing.Error(); }
    unsigned Done() const { return m_done; }

private:
    unsigned long Below(unsigned long limit) { return m_random() % limit; }

    void Change(GstState state)
    {
        gst_element_set_state(m_playing.Pipeline(), state);
        g_usleep(Below(100) * 1000);
        Start();
    }

    void Seek(gdouble rate, int flags)
    {
        const gint64 duration = std::max<gint64>(m_playing.Duration(), GST_SECOND);
        const auto place = static_cast<gint64>(m_random() % static_cast<unsigned long>(duration));
        m_playing.SeekTo(rate, flags, rate > 0 ? place : 0, rate > 0 ? -1 : place);
    }

    Playing m_playing;
    std::mt19937 m_random;
    unsigned m_done = 0;
};

} // namespace

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: gst_soak FILE SECONDS [SEED]\n");
        return 2;
    }
    const gint64 end = g_get_monotonic_time() + std::atoll(argv[2]) * G_USEC_PER_SEC;
    unsigned done = 0;
    std::string error;
    {
        Viewer viewer(argv[1], argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 1);
        if (!viewer.Start()) {
            error = viewer.Error().empty() ? "does not start" : viewer.Error();
        }
        while (error.empty() && g_get_monotonic_time() < end) {
            viewer.Act();
            error = viewer.Error();
        }
        done = viewer.Done();
    }
    gst_deinit();
    std::printf("%u seeks and changes of the state%s%s\n", done, error.empty() ? "" : ", then: ", error.c_str());
    return error.empty() && done > 0 ? 0 : 1;
}
