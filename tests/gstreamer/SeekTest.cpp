// Seeks and speeds: where they land, what is delivered from there, and where it ends.

#include "Film.hpp"

#include <cmath>
#include <random>
#include <set>
#include <thread>

namespace gsttest {
namespace {

constexpr int kFlush = GST_SEEK_FLAG_FLUSH;
constexpr int kAccurate = kFlush | GST_SEEK_FLAG_ACCURATE;
constexpr int kKeyUnit = kFlush | GST_SEEK_FLAG_KEY_UNIT;

UInt32 FrameAt(GstClockTime time) { return static_cast<UInt32>(time / kFrameTime); }

class Seeks : public Gst {
protected:
    explicit Seeks(UInt32 tracks = 2, UInt32 late = 3) : playing(Playing::BySource(File(Film(tracks, late).Build())))
    {
        EXPECT_TRUE(playing.Reach(GST_STATE_PAUSED));
    }

    // Seeks and plays to the end of the range.
    void Play(gdouble rate, int flags, GstClockTime start, GstClockTime stop)
    {
        ASSERT_TRUE(playing.SeekTo(rate, flags, static_cast<gint64>(start), static_cast<gint64>(stop)));
        ASSERT_TRUE(playing.PlayToTheEnd());
        ASSERT_EQ(playing.Error(), "");
    }

    // The samples of a track stand without a gap from `start` to `stop`, each at its time.
    static void ExpectSamples(const Track& track, GstClockTime start, GstClockTime stop)
    {
        // the first sample begins at or before the start, the last one ends at or behind the stop
        guint64 next = 0;
        bool first = true;
        for (const Buffer& buffer : track.buffers) {
            const guint64 sample = gst_util_uint64_scale_round(buffer.pts, kSampleRate, GST_SECOND);
            if (first) {
                EXPECT_LE(sample * GST_SECOND / kSampleRate, start + GST_SECOND / kSampleRate);
                EXPECT_GE((sample + 1) * GST_SECOND / kSampleRate, start);
                EXPECT_TRUE(buffer.discont);
            } else {
                EXPECT_EQ(sample, next);
            }
            ASSERT_EQ(buffer.data.size() % 2, 0u);
            const Bytes expected = Samples(static_cast<UInt32>(sample), static_cast<UInt32>(buffer.data.size() / 2));
            EXPECT_EQ(buffer.data, std::string(expected.begin(), expected.end()));
            next = sample + buffer.data.size() / 2;
            first = false;
        }
        EXPECT_FALSE(first);
        EXPECT_LE(next * GST_SECOND / kSampleRate, stop + GST_SECOND / kSampleRate);
        EXPECT_GE((next + 1) * GST_SECOND / kSampleRate, stop);
    }

    // The frames stand without a gap from `first` to the stop, and for some more that a decoder may need.
    static void ExpectFrames(const Track& track, UInt32 first, GstClockTime stop)
    {
        UInt32 next = first;
        for (const Buffer& frame : track.buffers) {
            EXPECT_EQ(NumberOf(frame), next);
            EXPECT_EQ(frame.dts, next * kFrameTime);
            EXPECT_EQ(frame.discont, next == first);
            EXPECT_EQ(frame.delta, next % kKeyStep != 0);
            ++next;
        }
        const UInt32 last = std::min<UInt32>(static_cast<UInt32>((stop + kFrameTime - 1) / kFrameTime), kFrames);
        EXPECT_GE(next, last);
        EXPECT_LE(next, std::min(last + 16, kFrames));
    }

    void ExpectRange(UInt32 firstFrame, GstClockTime start, GstClockTime stop)
    {
        const auto tracks = playing.Tracks();
        ExpectFrames(tracks.back(), firstFrame, stop);
        for (const Track& track : tracks) {
            ASSERT_EQ(track.segments.size(), 1u);
            EXPECT_EQ(track.segments[0].start, start);
            EXPECT_EQ(track.segments[0].time, start);
            EXPECT_EQ(track.segments[0].stop, stop);
            if (track.IsAudio()) {
                ExpectSamples(track, std::min(start, stop), stop);
            }
        }
    }

    Playing playing;
    std::mt19937_64 random{20};
};

// ---- Forward ----

TEST_F(Seeks, AccurateOnesBeginAtTheKeyFrameBeforeAndEndAtTheStop)
{
    for (int i = 0; i < 100; ++i) {
        const GstClockTime start = random() % (kFilmTime - GST_SECOND);
        const GstClockTime stop = start + 100 * GST_MSECOND + random() % (800 * GST_MSECOND);
        SCOPED_TRACE(start);
        Play(1.0, kAccurate, start, stop);
        ExpectRange(KeyBefore(FrameAt(start)), start, stop);
    }
}

TEST_F(Seeks, OfKeyUnitsBeginWithTheKeyFrameThatTheyAreTold)
{
    const int snaps[] = {0, GST_SEEK_FLAG_SNAP_BEFORE, GST_SEEK_FLAG_SNAP_AFTER, GST_SEEK_FLAG_SNAP_NEAREST};
    for (int i = 0; i < 100; ++i) {
        const int snap = snaps[i % 4];
        const GstClockTime wanted = random() % (kFilmTime - 2 * GST_SECOND);
        SCOPED_TRACE(wanted);
        const UInt32 before = KeyBefore(FrameAt(wanted));
        const UInt32 after = wanted == before * kFrameTime ? before : before + kKeyStep;
        const bool afterIsNearer = after * kFrameTime - wanted < wanted - before * kFrameTime;
        const bool up = snap == GST_SEEK_FLAG_SNAP_AFTER || (snap == GST_SEEK_FLAG_SNAP_NEAREST && afterIsNearer);
        const UInt32 landed = up ? after : before;
        const GstClockTime stop = wanted + GST_SECOND;
        Play(1.0, kKeyUnit | snap, wanted, stop);
        ExpectRange(landed, landed * kFrameTime, stop);
    }
}

TEST_F(Seeks, LandExactlyAtTheEdgesOfFrames)
{
    for (const GstClockTime edge : {12 * kFrameTime, 24 * kFrameTime, 240 * kFrameTime}) {
        for (const gint64 shift : {-1, 0, 1}) {
            const GstClockTime start = edge + static_cast<GstClockTime>(shift);
            Play(1.0, kAccurate, start, start + 200 * GST_MSECOND);
            ExpectFrames(*playing.First("video"), KeyBefore(FrameAt(start)), start + 200 * GST_MSECOND);
        }
    }
}

TEST_F(Seeks, BehindTheEndShowWhatComesLast)
{
    Play(1.0, kKeyUnit, kFilmTime + 5 * GST_SECOND, GST_CLOCK_TIME_NONE);
    EXPECT_EQ(NumberOf(playing.First("video")->buffers.at(0)), KeyBefore(kFrames - 1));
}

TEST_F(Seeks, WithoutAFlushFollowWhatIsPlayed)
{
    ASSERT_TRUE(playing.SeekTo(1.0, kFlush | GST_SEEK_FLAG_SEGMENT, 0, static_cast<gint64>(GST_SECOND)));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(playing.PlayToTheEnd()); // of the segment
        const int flags = i < 2 ? GST_SEEK_FLAG_SEGMENT : 0;
        ASSERT_TRUE(gst_element_seek(playing.Pipeline(), 1.0, GST_FORMAT_TIME, static_cast<GstSeekFlags>(flags),
                                     GST_SEEK_TYPE_SET, 2 * GST_SECOND, GST_SEEK_TYPE_SET, 3 * GST_SECOND));
    }
    ASSERT_TRUE(playing.PlayToTheEnd());
    for (const Track& track : playing.Tracks()) {
        EXPECT_TRUE(track.segmentDone);
        EXPECT_TRUE(track.eos);
        ASSERT_EQ(track.segments.size(), 4u);
        for (guint64 i = 0; i < 4; ++i) {
            EXPECT_EQ(track.segments[i].base, i * GST_SECOND); // running time goes on
        }
    }
    EXPECT_EQ(playing.Error(), "");
}

TEST_F(Seeks, ChangeTheSpeedOfWhatIsOnItsWay)
{
    const auto change = [&](gdouble rate) {
        return gst_element_seek(playing.Streams(), rate, GST_FORMAT_TIME, GST_SEEK_FLAG_INSTANT_RATE_CHANGE,
                                GST_SEEK_TYPE_NONE, 0, GST_SEEK_TYPE_NONE, 0);
    };
    EXPECT_TRUE(change(2.0));
    EXPECT_FALSE(change(-1.0));
    ASSERT_TRUE(playing.PlayToTheEnd());
}

// The position is one of the segment, also where the key frame before it is shown.
TEST_F(Seeks, HaveAPositionInTheirSegment)
{
    const auto start = static_cast<gint64>(3000 * GST_MSECOND);
    Play(-8.0, kFlush | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS, static_cast<GstClockTime>(start), 3100 * GST_MSECOND);
    gint64 position = -2;
    GstPad* const pPad = gst_element_get_static_pad(playing.Streams(), "video_0");
    ASSERT_TRUE(gst_pad_query_position(pPad, GST_FORMAT_TIME, &position));
    EXPECT_EQ(position, start);
    gst_object_unref(pPad);
}

// Behind the end of a track, its sink is told that nothing comes.
TEST_F(Gst, SeeksBehindTheEndOfATrackDoNotWaitForIt)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Add(PcmStream(kSampleRate));
    for (UInt32 i = 0; i < kFrames; ++i) {
        if (i < 50) { // two seconds
            builder.Audio(1, Samples(i * kSamplesPerFrame, kSamplesPerFrame));
        }
        builder.Frame(0, FrameBytes(i), i % kKeyStep == 0);
    }
    Playing playing(Playing::BySource(File(builder.Build())));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    for (const gint64 msec : {2010, 2100, 3000}) {
        ASSERT_TRUE(playing.SeekTo(1.0, kAccurate, msec * GST_MSECOND, (msec + 1000) * GST_MSECOND));
        ASSERT_TRUE(playing.PlayToTheEnd());
        const Track sound = *playing.First("audio");
        EXPECT_TRUE(sound.buffers.empty()) << msec;
        EXPECT_FALSE(sound.gaps.empty()) << msec;
    }
}

// A request that says nothing of the stop keeps it; a stop that lies before the new start is dropped.
TEST_F(Seeks, BehindAnOldStopPlayToTheEnd)
{
    Play(1.0, kAccurate, GST_SECOND, 2 * GST_SECOND);
    const auto seek = [&](GstSeekType startType, gint64 start, GstSeekType stopType, gint64 stop) {
        return gst_element_seek(playing.Pipeline(), 1.0, GST_FORMAT_TIME, static_cast<GstSeekFlags>(kAccurate),
                                startType, start, stopType, stop);
    };
    EXPECT_TRUE(seek(GST_SEEK_TYPE_SET, 9 * GST_SECOND, GST_SEEK_TYPE_NONE, 0));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(NumberOf(playing.First("video")->buffers.back()), kFrames - 1);
    EXPECT_TRUE(seek(GST_SEEK_TYPE_NONE, 0, GST_SEEK_TYPE_SET, GST_SECOND));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(NumberOf(playing.First("video")->buffers.front()), 0u);
    EXPECT_FALSE(seek(GST_SEEK_TYPE_SET, 2 * GST_SECOND, GST_SEEK_TYPE_SET, GST_SECOND));
}

TEST_F(Seeks, NeedTimes)
{
    EXPECT_FALSE(gst_element_seek(playing.Streams(), 1.0, GST_FORMAT_BYTES, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                                  GST_SEEK_TYPE_NONE, 0));
}

// ---- Fast, by key frames ----

TEST_F(Seeks, FastForwardShowsKeyFrames)
{
    for (const gdouble rate : {8.0, 2.0, 32.0}) {
        Play(rate, kFlush | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS, 0, GST_CLOCK_TIME_NONE);
        const Track video = *playing.First("video");
        const auto interval = static_cast<GstClockTime>(rate * static_cast<gdouble>(kFrameTime));
        const UInt32 step = std::max<UInt32>(
            1, static_cast<UInt32>(std::ceil(static_cast<gdouble>(interval) / (kKeyStep * kFrameTime))));
        UInt32 expected = 0;
        for (const Buffer& frame : video.buffers) {
            EXPECT_EQ(NumberOf(frame), expected);
            EXPECT_FALSE(frame.delta);
            EXPECT_TRUE(frame.discont);
            expected += step * kKeyStep;
        }
        EXPECT_GE(expected, kFrames - 1);
        const Track audio = *playing.First("audio"); // it is told that there is nothing to hear
        EXPECT_TRUE(audio.buffers.empty());
        EXPECT_EQ(audio.gaps.size(), video.buffers.size());
    }
}

TEST_F(Seeks, FastRewindShowsKeyFramesBackward)
{
    Play(-8.0, kFlush | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS, 0, 5 * GST_SECOND);
    const Track video = *playing.First("video");
    UInt32 expected = KeyBefore(FrameAt(5 * GST_SECOND - 1));
    for (const Buffer& frame : video.buffers) {
        EXPECT_EQ(NumberOf(frame), expected);
        expected -= kKeyStep;
    }
    EXPECT_EQ(NumberOf(video.buffers.back()), 0u);
    EXPECT_TRUE(playing.First("audio")->buffers.empty());
}

// ---- Backward, by groups ----

TEST_F(Seeks, BackwardPlaysGroupAfterGroupAndAllOfThem)
{
    const GstClockTime stop = 7 * GST_SECOND + 10 * GST_MSECOND;
    Play(-1.0, kFlush, GST_SECOND, stop);
    const auto tracks = playing.Tracks();
    const Track& video = tracks.back();
    std::set<UInt32> seen;
    UInt32 group = kFrames;
    for (const Buffer& frame : video.buffers) {
        const UInt32 number = NumberOf(frame);
        EXPECT_TRUE(seen.insert(number).second) << number;
        if (frame.discont) {
            EXPECT_EQ(number % kKeyStep, 0u);
            EXPECT_LT(number, group);
            group = number;
        } else {
            EXPECT_EQ(seen.count(number - 1), 1u);
        }
        EXPECT_LT(number * kFrameTime, stop + 16 * kFrameTime); // more than shown, for a decoder that may need them
    }
    for (UInt32 number = KeyBefore(FrameAt(GST_SECOND)); number <= FrameAt(stop); ++number) {
        EXPECT_EQ(seen.count(number), 1u);
    }
    for (const Track& track : tracks) {
        ASSERT_EQ(track.segments.size(), 1u);
        EXPECT_EQ(track.segments[0].rate, -1.0);
        if (!track.IsAudio()) {
            continue;
        }
        std::set<guint64> samples;
        for (const Buffer& buffer : track.buffers) {
            const guint64 first = gst_util_uint64_scale_round(buffer.pts, kSampleRate, GST_SECOND);
            for (size_t i = 0; i < buffer.data.size(); i += 2) {
                EXPECT_TRUE(samples.insert(first + i / 2).second);
                EXPECT_EQ(GST_READ_UINT16_LE(buffer.data.data() + i), (first + i / 2) & 0xFFFF);
            }
        }
        // no sample is missing between the first group and the stop
        EXPECT_EQ(samples.size(), *samples.rbegin() - *samples.begin() + 1);
        EXPECT_LE(*samples.begin(), kSampleRate);
        EXPECT_NEAR(static_cast<double>(*samples.rbegin()), kSampleRate * 7.01, 2);
    }
}

TEST_F(Seeks, BackwardFromTheEndOfTheFile)
{
    Play(-1.0, kFlush, 0, GST_CLOCK_TIME_NONE);
    std::set<UInt32> seen;
    const Track video = *playing.First("video");
    for (const Buffer& frame : video.buffers) {
        seen.insert(NumberOf(frame));
    }
    EXPECT_EQ(seen.size(), size_t{kFrames});
}

// ---- What cannot be obeyed ----

TEST_F(Seeks, ThatAreRefusedDisturbNothing)
{
    ASSERT_TRUE(playing.PlayToTheEnd());
    const size_t frames = playing.First("video")->buffers.size();
    const auto seek = [&](GstFormat format, GstClockTime start, GstClockTime stop) {
        return gst_element_seek(playing.Streams(), 1.0, format, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET,
                                static_cast<gint64>(start), GST_SEEK_TYPE_SET, static_cast<gint64>(stop));
    };
    EXPECT_FALSE(seek(GST_FORMAT_BYTES, 0, GST_SECOND));
    EXPECT_FALSE(seek(GST_FORMAT_TIME, 2 * GST_SECOND, GST_SECOND));
    EXPECT_EQ(playing.First("video")->buffers.size(), frames);
    EXPECT_EQ(playing.Wait(GST_MESSAGE_EOS, 20 * GST_MSECOND), nullptr); // nothing goes on, or ends again
}

TEST_F(Seeks, SnapToTheKeyFrameBeforeWhereTheOneAfterLiesBehindTheStop)
{
    Play(1.0, kKeyUnit | GST_SEEK_FLAG_SNAP_AFTER, 13 * kFrameTime, 15 * kFrameTime);
    EXPECT_EQ(NumberOf(playing.First("video")->buffers.at(0)), kKeyStep);
}

// The sinks are full, so that the first seek waits. The second one empties them.
TEST_F(Seeks, WithAFlushDoNotWaitForOnesWithout)
{
    GstPad* const pPad = gst_element_get_static_pad(playing.Streams(), "video_0");
    std::thread first([&] {
        gst_pad_send_event(pPad, gst_event_new_seek(1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_NONE, GST_SEEK_TYPE_SET,
                                                    GST_SECOND, GST_SEEK_TYPE_NONE, 0));
    });
    g_usleep(10000);
    EXPECT_TRUE(playing.SeekTo(1.0, kAccurate, 5 * GST_SECOND, -1));
    first.join();
    gst_object_unref(pPad);
    ASSERT_TRUE(playing.PlayToTheEnd());
}

// ---- Files of other kinds ----

// Every tenth frame is empty: it repeats the one before.
TEST_F(Gst, FastSpeedsPassOverEmptyFrames)
{
    AviBuilder builder = MotionJpegFilm([](UInt32 i) { return i % 10 == 0 ? Bytes() : FrameBytes(i); });
    Playing playing(Playing::BySource(File(builder.Build())));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    for (const gdouble rate : {-1.0, 1.0}) {
        ASSERT_TRUE(gst_element_seek(playing.Pipeline(), rate, GST_FORMAT_TIME,
                                     static_cast<GstSeekFlags>(kFlush | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS),
                                     GST_SEEK_TYPE_SET, 0, GST_SEEK_TYPE_SET, static_cast<gint64>(101 * kFrameTime)));
        ASSERT_TRUE(playing.PlayToTheEnd());
        const Track shown = *playing.First("video");
        ASSERT_EQ(shown.buffers.size(), 90u);
        for (size_t i = 1; i < shown.buffers.size(); ++i) {
            EXPECT_EQ(rate > 0, NumberOf(shown.buffers[i]) > NumberOf(shown.buffers[i - 1]));
        }
    }
}

TEST_F(Gst, AudioWithoutVideoSeeksToItsSample)
{
    AviBuilder builder;
    builder.Add(PcmStream(kSampleRate));
    for (UInt32 i = 0; i < kFrames; ++i) {
        builder.Audio(0, Samples(i * kSamplesPerFrame, kSamplesPerFrame));
    }
    Playing playing(Playing::BySource(File(builder.Build())));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    for (const GstClockTime start : {GstClockTime{5 * GST_SECOND}, GstClockTime{3077 * GST_MSECOND}, GstClockTime{0}}) {
        ASSERT_TRUE(
            playing.SeekTo(1.0, kAccurate, static_cast<gint64>(start), static_cast<gint64>(start + GST_SECOND)));
        ASSERT_TRUE(playing.PlayToTheEnd());
        const Track audio = *playing.First("audio");
        const guint64 first = gst_util_uint64_scale_round(start, kSampleRate, GST_SECOND);
        const Bytes expected = Samples(static_cast<UInt32>(first), kSampleRate);
        EXPECT_EQ(audio.Data(), std::string(expected.begin(), expected.end()));
    }
    EXPECT_FALSE(playing.SeekTo(-1.0, kFlush, 0, -1));
}

TEST_F(Gst, SeeksFromManyThreadsEndInOneOfThem)
{
    Playing playing(Playing::BySource(File(Film(2).Build())));
    ASSERT_TRUE(playing.Reach(GST_STATE_PLAYING));
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 50; ++i) {
                const gint64 time = (thread * 2000 + i * 37) % 9000 * static_cast<gint64>(GST_MSECOND);
                gst_element_seek_simple(playing.Pipeline(), GST_FORMAT_TIME,
                                        static_cast<GstSeekFlags>(i % 5 == 0 ? 0 : kKeyUnit), time);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(playing.SeekTo(1.0, kAccurate, 9 * GST_SECOND, -1));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(playing.Error(), "");
}

} // namespace
} // namespace gsttest
