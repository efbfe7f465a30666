// The elements by themselves: what comes from the pads, states, errors, queries.

#include "Film.hpp"

#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

namespace gsttest {
namespace {

class Element : public Gst {};

TEST_F(Element, DeliversEveryFrameAndSampleWithItsTime)
{
    Playing playing(Playing::BySource(File(Film(2).Build())));
    ASSERT_TRUE(playing.PlayToTheEnd());
    const auto tracks = playing.Tracks();
    ASSERT_EQ(tracks.size(), 3u);
    EXPECT_EQ(tracks[0].name, "audio_0");
    EXPECT_EQ(tracks[1].name, "audio_1");
    EXPECT_EQ(tracks[2].name, "video_0");
    for (UInt32 i = 0; i < kFrames; ++i) {
        const Buffer& frame = tracks[2].buffers.at(i);
        EXPECT_EQ(NumberOf(frame), i);
        EXPECT_EQ(frame.dts, i * kFrameTime);
        EXPECT_EQ(frame.pts, i % kKeyStep == 0 ? i * kFrameTime : GST_CLOCK_TIME_NONE);
        EXPECT_EQ(frame.duration, kFrameTime);
        EXPECT_EQ(frame.delta, i % kKeyStep != 0);
        EXPECT_EQ(frame.discont, i == 0);
        EXPECT_EQ(frame.offset, i);
        for (const UInt32 track : {0u, 1u}) {
            const Buffer& audio = tracks[track].buffers.at(i);
            EXPECT_EQ(audio.pts, i * kFrameTime);
            EXPECT_EQ(audio.dts, i * kFrameTime);
            EXPECT_EQ(audio.duration, kFrameTime);
            EXPECT_FALSE(audio.delta);
        }
    }
    EXPECT_EQ(tracks[2].buffers.size(), size_t{kFrames});
    EXPECT_EQ(tracks[2].caps, "video/mpeg, mpegversion=(int)4, systemstream=(boolean)false, framerate=(fraction)25/1, "
                              "width=(int)320, height=(int)240");
    EXPECT_EQ(tracks[0].caps,
              "audio/x-raw, format=(string)S16LE, layout=(string)interleaved, channels=(int)1, rate=(int)8000");
    EXPECT_EQ(playing.Error(), "");
    for (const Track& track : tracks) {
        EXPECT_TRUE(track.eos);
        ASSERT_EQ(track.segments.size(), 1u);
        EXPECT_EQ(track.segments[0].start, 0u);
        EXPECT_EQ(track.segments[0].duration, kFilmTime);
    }
    EXPECT_NE(tracks[0].streamId, tracks[1].streamId);
}

TEST_F(Element, PullsFromTheElementBefore)
{
    const std::string path = File(Film(2).Build());
    Playing bySource(Playing::BySource(path));
    Playing byDemux(Playing::ByDemux(path));
    ASSERT_TRUE(bySource.PlayToTheEnd());
    bySource.End(); // the library reads one file at a time
    ASSERT_TRUE(byDemux.PlayToTheEnd());
    const auto expected = bySource.Tracks();
    const auto tracks = byDemux.Tracks();
    ASSERT_EQ(tracks.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(tracks[i].caps, expected[i].caps);
        EXPECT_EQ(tracks[i].Data(), expected[i].Data());
        EXPECT_EQ(tracks[i].buffers.size(), expected[i].buffers.size());
    }
}

TEST_F(Element, CannotPullFromAnInputThatCannotSeek)
{
    Playing playing("appsrc ! lxavidemux name=streams");
    EXPECT_FALSE(playing.Reach(GST_STATE_PAUSED));
    EXPECT_EQ(playing.Error(), "This input cannot seek.");
}

TEST_F(Element, TagsTheFileAndItsStreams)
{
    AviBuilder builder = Film();
    builder.streams[1].extra = Chunk("strn", Text("Commentary"));
    builder.beforeMovi = List("INFO", Chunk("INAM", Text("A film")) + Chunk("IART", Text("Somebody")));
    Playing playing(Playing::BySource(File(builder.Build())));
    ASSERT_TRUE(playing.PlayToTheEnd());
    const auto tracks = playing.Tracks();
    ASSERT_EQ(tracks[0].tags.size(), 2u);
    EXPECT_NE(tracks[0].tags[0].find("title=(string)Commentary"), std::string::npos) << tracks[0].tags[0];
    EXPECT_NE(tracks[0].tags[0].find("audio-codec=(string)\"Uncompressed\\ 16-bit\\ PCM\\ audio\""), std::string::npos);
    EXPECT_NE(tracks[0].tags[0].find("bitrate=(uint)128000"), std::string::npos);
    for (const Track& track : tracks) {
        EXPECT_NE(track.tags.back().find("title=(string)\"A\\ film\""), std::string::npos) << track.tags.back();
        EXPECT_NE(track.tags.back().find("artist=(string)Somebody"), std::string::npos);
        EXPECT_NE(track.tags.back().find("container-format=(string)AVI"), std::string::npos);
    }
}

// ---- Pictures and samples that are turned ----

// Two pixels and two bytes of padding a row, three rows from bottom to top.
TEST_F(Element, TurnsUncompressedPictures)
{
    for (const Int32 height : {3, -3}) {
        AviBuilder builder;
        Stream video = VideoStream();
        lxAviRead_StrfVideo_t format = {};
        format.biSize = 40;
        format.biWidth = 2;
        format.biHeight = height;
        format.biPlanes = 1;
        format.biBitCount = 24;
        video.format = AsBytes(format);
        video.header.fccHandler = 0;
        builder.Add(video);
        builder.Frame(0, Fill(8, 1) + Fill(8, 2) + Fill(8, 3), true);
        Playing playing(Playing::BySource(File(builder.Build())));
        ASSERT_TRUE(playing.PlayToTheEnd());
        const std::string turned = std::string(8, 3) + std::string(8, 2) + std::string(8, 1);
        const std::string stored = std::string(8, 1) + std::string(8, 2) + std::string(8, 3);
        EXPECT_EQ(playing.First("video")->Data(), height > 0 ? turned : stored);
        EXPECT_EQ(playing.First("video")->caps,
                  "video/x-raw, format=(string)BGR, framerate=(fraction)25/1, width=(int)2, "
                  "height=(int)3, pixel-aspect-ratio=(fraction)1/1");
    }
}

// Six channels without a mask stand in the order front, rear, centre, bass; the framework wants centre and bass before rear.
TEST_F(Element, MovesChannels)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Add(PcmStream(kSampleRate, 6, 8));
    const std::string path = [&] {
        builder.Audio(1, Text("abcdefABCDEF")).Frame(0, FrameBytes(0), true);
        return File(builder.Build());
    }();
    Playing playing(Playing::BySource(path));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(playing.First("audio")->Data(), "abefcdABEFCD");
}

TEST_F(Element, TellsTheShapeOfThePixels)
{
    AviBuilder builder = Film();
    // five words, then 16:9 for 720 x 576
    builder.streams[0].extra = Chunk("vprp", Fill(20, 0) + U32(0x00100009) + U32(720) + U32(576) + U32(0));
    Playing playing(Playing::BySource(File(builder.Build())));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_NE(playing.First("video")->caps.find("pixel-aspect-ratio=(fraction)64/45"), std::string::npos);
}

// ---- Gaps ----

TEST_F(Element, FillsTheTimeOfAShortTrack)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Add(PcmStream(kSampleRate)).Add(TextStream());
    for (UInt32 i = 0; i < kFrames; ++i) {
        if (i < 50) {
            builder.Audio(1, Samples(i * kSamplesPerFrame, kSamplesPerFrame));
        }
        builder.Frame(0, i % 100 == 60 ? Bytes() : FrameBytes(i), i % kKeyStep == 0);
    }
    Playing playing(Playing::BySource(File(builder.Build())));
    ASSERT_TRUE(playing.PlayToTheEnd());
    const Track audio = *playing.First("audio");
    ASSERT_FALSE(audio.gaps.empty());
    EXPECT_EQ(audio.gaps.front().start, 2 * GST_SECOND);
    GstClockTime end = 2 * GST_SECOND;
    for (const Gap& gap : audio.gaps) {
        EXPECT_EQ(gap.start, end);
        end = gap.start + gap.duration;
    }
    EXPECT_GE(end, kFilmTime - 500 * GST_MSECOND);
    const Track subtitles = *playing.First("subtitle");
    EXPECT_EQ(subtitles.caps, "application/x-subtitle-avi");
    ASSERT_FALSE(subtitles.gaps.empty());
    EXPECT_EQ(subtitles.gaps.front().start, 0u);
    const Track video = *playing.First("video"); // an empty frame shows the one before it again
    ASSERT_EQ(video.gaps.size(), 2u);
    EXPECT_EQ(video.gaps[0].start, 60 * kFrameTime);
    EXPECT_EQ(video.gaps[0].duration, kFrameTime);
    EXPECT_EQ(video.buffers.size(), size_t{kFrames - 2});
}

// A sink of a stream that brings nothing would hold up all the others.
TEST_F(Element, DoesNotWaitForTracksThatBringNothing)
{
    for (const bool bEmpty : {false, true}) { // without a rate, and without a chunk
        AviBuilder builder;
        builder.Add(VideoStream()).Add(PcmStream(kSampleRate));
        builder.streams[1].header.dwRate = bEmpty ? 16000 : 0;
        for (UInt32 i = 0; i < kFrames; ++i) {
            builder.Frame(0, FrameBytes(i), i % kKeyStep == 0);
            if (!bEmpty) {
                builder.Audio(1, Samples(0, kSamplesPerFrame));
            }
        }
        Playing playing(Playing::BySource(File(builder.Build())));
        ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
        ASSERT_TRUE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, GST_SECOND, 2 * GST_SECOND));
        ASSERT_TRUE(playing.PlayToTheEnd());
        ASSERT_TRUE(playing.SeekTo(-1.0, GST_SEEK_FLAG_FLUSH, GST_SECOND, 2 * GST_SECOND));
        ASSERT_TRUE(playing.PlayToTheEnd());
        EXPECT_EQ(playing.Error(), "");
    }
}

// Frames are numbered by the index, so that the times go on behind damage.
TEST_F(Element, TellsWhereChunksAreMissing)
{
    AviBuilder builder = Film();
    Bytes file = builder.Build();
    const auto& items = builder.MediaItems(); // audio and video take turns
    const size_t hole = static_cast<size_t>(items[2 * 90].uiOffset);
    std::fill(file.begin() + static_cast<long>(hole), file.begin() + static_cast<long>(items[2 * 93].uiOffset),
              UInt8{0xAA});
    Playing playing(Playing::BySource(File(file)));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    ASSERT_TRUE(playing.PlayToTheEnd());
    for (const Track& track : playing.Tracks()) {
        GstClockTime next = 0;
        UInt32 holes = 0;
        for (const Buffer& buffer : track.buffers) {
            const bool bHole = buffer.Time() > next + GST_MSECOND;
            EXPECT_EQ(buffer.discont, bHole || next == 0) << track.name;
            holes += bHole ? 1 : 0;
            next = buffer.Time() + buffer.duration;
        }
        EXPECT_EQ(holes, 1u) << track.name;
    }
}

TEST_F(Element, TakesRatesThatNobodyCanCount)
{
    for (const auto& [rate, scale] :
         {std::pair{0u, 0u}, {25u, 0u}, {0xFFFFFFFFu, 1u}, {1u, 0xFFFFFFFFu}, {0x80000000u, 0x80000000u}}) {
        AviBuilder builder = Film();
        builder.avih.dwMicroSecPerFrame = rate == 0 ? 0 : 40000;
        builder.streams[0].header.dwRate = rate;
        builder.streams[0].header.dwScale = scale;
        Playing playing(Playing::BySource(File(builder.Build())));
        ASSERT_TRUE(playing.PlayToTheEnd());
        EXPECT_EQ(playing.First("video")->buffers.size(), size_t{kFrames}) << rate << "/" << scale;
    }
}

// ---- Queries ----

TEST_F(Element, AnswersQueries)
{
    Playing playing(Playing::BySource(File(Film().Build())));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    EXPECT_EQ(playing.Duration(), static_cast<gint64>(kFilmTime));
    EXPECT_EQ(playing.Position(), 0);
    GstPad* const pPad = gst_element_get_static_pad(playing.Streams(), "video_0");
    gint64 value = -1;
    EXPECT_TRUE(gst_pad_query_duration(pPad, GST_FORMAT_DEFAULT, &value));
    EXPECT_EQ(value, kFrames);
    EXPECT_TRUE(gst_pad_query_convert(pPad, GST_FORMAT_DEFAULT, 7, GST_FORMAT_TIME, &value));
    EXPECT_EQ(value, 280000000);
    EXPECT_TRUE(gst_pad_query_convert(pPad, GST_FORMAT_TIME, 279999999, GST_FORMAT_DEFAULT, &value));
    EXPECT_EQ(value, 7); // a time is truncated to nanoseconds
    EXPECT_FALSE(gst_pad_query_convert(pPad, GST_FORMAT_BYTES, 7, GST_FORMAT_TIME, &value));
    GstQuery* pQuery = gst_query_new_seeking(GST_FORMAT_TIME);
    EXPECT_TRUE(gst_pad_query(pPad, pQuery));
    gboolean seekable = FALSE;
    gst_query_parse_seeking(pQuery, nullptr, &seekable, nullptr, &value);
    EXPECT_TRUE(seekable);
    EXPECT_EQ(value, static_cast<gint64>(kFilmTime));
    gst_query_unref(pQuery);
    pQuery = gst_query_new_seeking(GST_FORMAT_BYTES);
    EXPECT_TRUE(gst_pad_query(pPad, pQuery));
    gst_query_parse_seeking(pQuery, nullptr, &seekable, nullptr, nullptr);
    EXPECT_FALSE(seekable);
    gst_query_unref(pQuery);
    pQuery = gst_query_new_latency();
    EXPECT_TRUE(gst_pad_query(pPad, pQuery));
    gboolean live = TRUE;
    gst_query_parse_latency(pQuery, &live, nullptr, nullptr);
    EXPECT_FALSE(live);
    gst_query_unref(pQuery);
    pQuery = gst_query_new_formats();
    EXPECT_TRUE(gst_pad_query(pPad, pQuery));
    gst_query_unref(pQuery);
    pQuery = gst_query_new_segment(GST_FORMAT_TIME);
    EXPECT_TRUE(gst_pad_query(pPad, pQuery));
    gdouble rate = 0;
    gst_query_parse_segment(pQuery, &rate, nullptr, nullptr, &value);
    EXPECT_EQ(rate, 1.0);
    EXPECT_EQ(value, static_cast<gint64>(kFilmTime));
    gst_query_unref(pQuery);
    gst_object_unref(pPad);
}

// ---- Errors ----

TEST_F(Element, TellsWhatIsWrongWithAFile)
{
    Bytes film = Film().Build();
    const std::pair<std::string, std::string> cases[] = {
        {m_folder + "/none.avi", "\"" + m_folder + "/none.avi\" cannot be opened: No such file or directory"},
        {m_folder, "\"" + m_folder + "\" is a directory"},
        {File({}, "empty.avi"), "The file ends too early."},
        {File(Text("This is no AVI file at all."), "text.avi"), "This is no AVI file, or its headers are damaged."},
        {"", "No file is given."},
    };
    for (const auto& [path, text] : cases) {
        Playing playing(Playing::BySource(path));
        playing.PlayToTheEnd();
        EXPECT_EQ(playing.Error(), text);
    }
}

TEST_F(Element, WarnsOfAFileThatIsCut)
{
    Bytes film = Film().Build();
    film.resize(film.size() / 2);
    Playing playing(Playing::BySource(File(film)));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(playing.Error(), "");
    ASSERT_EQ(playing.Warnings().size(), 1u);
    EXPECT_GT(playing.First("video")->buffers.size(), size_t{kFrames} / 3);
}

TEST_F(Element, TellsThatAnotherFileIsBeingRead)
{
    const std::string path = File(Film().Build());
    Playing first(Playing::BySource(path));
    ASSERT_TRUE(first.Reach(GST_STATE_PAUSED));
    for (const std::string& source : {Playing::BySource(path), Playing::ByDemux(path)}) {
        Playing second(source);
        EXPECT_FALSE(second.Reach(GST_STATE_PAUSED));
        EXPECT_EQ(second.Error(), "Another AVI file is being read in this process.");
    }
    ASSERT_TRUE(first.PlayToTheEnd()); // it is not disturbed
    EXPECT_EQ(first.First("video")->buffers.size(), size_t{kFrames});
}

TEST_F(Element, PlaysAHundredFilesOneAfterTheOther)
{
    const std::string path = File(Film().Build());
    for (int i = 0; i < 100; ++i) {
        Playing playing(i % 2 == 0 ? Playing::BySource(path) : Playing::ByDemux(path));
        ASSERT_TRUE(playing.PlayToTheEnd());
        ASSERT_EQ(playing.First("video")->buffers.size(), size_t{kFrames});
    }
}

// ---- Pipes ----

class Pipe : public Gst {
protected:
    Pipe() : path(m_folder + "/pipe") { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }

    // The shortest of some tries, because the machine may have other work.
    static double StopTime(const std::function<void(Playing&)>& prepare, const std::string& path)
    {
        double shortest = 1e9;
        for (int i = 0; i < 5; ++i) {
            Playing playing(Playing::BySource(path));
            gst_element_set_state(playing.Pipeline(), GST_STATE_PLAYING);
            prepare(playing);
            const auto begin = std::chrono::steady_clock::now();
            gst_element_set_state(playing.Pipeline(), GST_STATE_NULL);
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
            shortest = std::min(shortest, time.count());
        }
        return shortest;
    }

    std::string path;
};

TEST_F(Pipe, PlaysFromStartToEnd)
{
    const Bytes film = Film(2).Build();
    Playing playing(Playing::BySource(path));
    std::thread writer([&] {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(film.data()), static_cast<std::streamsize>(film.size()));
    });
    ASSERT_TRUE(playing.PlayToTheEnd());
    writer.join();
    EXPECT_EQ(playing.Error(), "");
    EXPECT_EQ(playing.Tracks().size(), 3u);
    EXPECT_EQ(playing.First("video")->buffers.size(), size_t{kFrames});
    EXPECT_FALSE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, 0, -1));
}

TEST_F(Pipe, WithoutAWriterStopsAtOnce)
{
    EXPECT_LT(StopTime([](Playing&) { g_usleep(20000); }, path), 0.05);
}

TEST_F(Pipe, WithAStalledWriterStopsAtOnce)
{
    const Bytes film = Film().Build();
    const int out = open(path.c_str(), O_RDWR);
    for (const size_t bytes : {size_t{100}, size_t{5000}, size_t{9001}}) { // in the headers, and in the media data
        const auto prepare = [&](Playing&) {
            EXPECT_EQ(write(out, film.data(), bytes), static_cast<ssize_t>(bytes));
            g_usleep(20000);
        };
        EXPECT_LT(StopTime(prepare, path), 0.05) << bytes;
    }
    close(out);
}

TEST_F(Pipe, EndsWhenItIsTold)
{
    const Bytes film = Film().Build();
    const int out = open(path.c_str(), O_RDWR);
    Playing playing(Playing::BySource(path));
    EXPECT_EQ(write(out, film.data(), 30000), 30000);
    ASSERT_TRUE(playing.Reach(GST_STATE_PLAYING));
    g_usleep(50000); // it waits for the writer
    EXPECT_TRUE(gst_element_send_event(playing.Streams(), gst_event_new_eos()));
    ASSERT_TRUE(playing.PlayToTheEnd(5 * GST_SECOND));
    EXPECT_EQ(playing.Error(), "");
    close(out);
}

TEST_F(Pipe, EndsBeforeItBegins)
{
    Playing playing(Playing::BySource(path));
    gst_element_set_state(playing.Pipeline(), GST_STATE_PLAYING);
    g_usleep(20000);
    EXPECT_TRUE(gst_element_send_event(playing.Streams(), gst_event_new_eos()));
    ASSERT_TRUE(playing.PlayToTheEnd(5 * GST_SECOND));
    EXPECT_EQ(playing.Error(), "The file was ended before it began.");
}

// ---- States ----

TEST_F(Element, PlaysAgainAfterItWasStopped)
{
    const std::string path = File(Film().Build());
    for (const std::string& source : {Playing::BySource(path), Playing::ByDemux(path)}) {
        Playing playing(source);
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED)) << playing.Error();
            ASSERT_TRUE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, 5 * GST_SECOND, -1));
            ASSERT_TRUE(playing.PlayToTheEnd());
            EXPECT_EQ(playing.First("video")->buffers.size(), size_t{kFrames - KeyBefore(125)});
            ASSERT_TRUE(playing.Reach(GST_STATE_READY));
        }
        EXPECT_EQ(playing.Error(), "");
    }
}

TEST_F(Element, StopsAtAnyMoment)
{
    const std::string path = File(Film().Build());
    for (int i = 0; i < 300; ++i) {
        GstElement* const pPipeline = gst_parse_launch(
            ("lxavisrc location=" + path + " name=s s.video_0 ! fakesink sync=false").c_str(), nullptr);
        gst_element_set_state(pPipeline, GST_STATE_PLAYING);
        g_usleep(static_cast<gulong>(std::rand() % 3000));
        gst_element_set_state(pPipeline, GST_STATE_NULL);
        gst_object_unref(pPipeline);
    }
}

class States : public Gst, public ::testing::WithParamInterface<bool> {};

INSTANTIATE_TEST_SUITE_P(BySourceAndByDemux, States, ::testing::Bool());

TEST_P(States, ChangeAtRandom)
{
    const std::string path = File(Film(2).Build());
    std::srand(1);
    const GstState states[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING};
    Playing playing(GetParam() ? Playing::ByDemux(path) : Playing::BySource(path));
    for (int i = 0; i < 300; ++i) {
        ASSERT_NE(gst_element_set_state(playing.Pipeline(), states[std::rand() % 4]), GST_STATE_CHANGE_FAILURE);
        if (std::rand() % 2 == 0) {
            gst_element_seek_simple(playing.Pipeline(), GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH,
                                    std::rand() % 10000 * static_cast<gint64>(GST_MSECOND));
        }
        g_usleep(static_cast<gulong>(std::rand() % 2000));
    }
    EXPECT_EQ(playing.Error(), "");
}

TEST_F(Element, EndsWhenItIsTold)
{
    Playing playing(Playing::BySource(File(Film().Build())));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    EXPECT_TRUE(gst_element_send_event(playing.Streams(), gst_event_new_eos()));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(playing.Error(), "");
    gst_element_send_event(playing.Streams(), gst_event_new_eos()); // it has ended already
    ASSERT_TRUE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, 0, -1));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(playing.First("video")->buffers.size(), size_t{kFrames});
}

// ---- Files without an index ----

// A recording that was stopped: there is no index, and the sizes tell of more than there is.
TEST_F(Element, PlaysAndSeeksInARecordingThatWasStopped)
{
    AviBuilder builder = CodedFilm();
    Bytes film = builder.Build();
    film.resize(Find(film, "idx1", static_cast<size_t>(builder.MoviOffset() + builder.MoviSize())));
    for (const std::string& source : {Playing::BySource(File(film)), Playing::ByDemux(File(film))}) {
        Playing playing(source);
        ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED)) << playing.Error();
        ASSERT_TRUE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, 65 * kFrameTime, -1));
        ASSERT_TRUE(playing.PlayToTheEnd());
        EXPECT_EQ(playing.Error(), "");
        EXPECT_EQ(playing.First("video")->buffers.at(0).pts, 60 * kFrameTime);
    }
}

TEST_F(Element, BuildsAMissingIndexAndTellsOfTheProgress)
{
    AviBuilder builder = MotionJpegFilm(FrameBytes);
    builder.eIndex = IndexKind::None;
    Playing playing(Playing::BySource(File(builder.Build(), "none.avi")));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    ASSERT_GE(playing.ProgressTexts().size(), 3u);
    EXPECT_EQ(playing.ProgressTexts().front(), "Building the index");
    EXPECT_EQ(playing.ProgressTexts().back(), "The index is built");
    ASSERT_TRUE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, 77 * kFrameTime, -1));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(NumberOf(playing.First("video")->buffers.at(0)), 77u);
}

TEST_F(Element, PlaysWithoutAnIndexIfItIsNotToBeBuilt)
{
    AviBuilder builder = Film();
    builder.eIndex = IndexKind::None;
    Playing playing(Playing::BySource(File(builder.Build())) + " rebuild-index=false");
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    EXPECT_FALSE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, kFrameTime, -1));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_TRUE(playing.ProgressTexts().empty());
    EXPECT_EQ(playing.First("video")->buffers.size(), size_t{kFrames});
}

// The index leads into a frame, from where the search comes to a frame that is no key frame. The element finds the key frame
// by the media data.
TEST_F(Element, BuildsTheIndexAnewWhenItLeadsAstray)
{
    AviBuilder builder = CodedFilm();
    Bytes film = builder.Build();
    const size_t index = Find(film, "idx1", static_cast<size_t>(builder.MoviOffset() + builder.MoviSize())) + 8;
    const size_t offset = index + 16 * 60 + 8;
    Patch32(film, offset, Get32(film, offset) + 40);
    Playing playing(Playing::BySource(File(film)));
    ASSERT_TRUE(playing.Reach(GST_STATE_PAUSED));
    ASSERT_TRUE(playing.SeekTo(1.0, GST_SEEK_FLAG_FLUSH, 60 * kFrameTime, -1));
    ASSERT_TRUE(playing.PlayToTheEnd());
    EXPECT_EQ(playing.Error(), "");
    EXPECT_EQ(playing.ProgressTexts().back(), "The index is built");
    const Buffer first = playing.First("video")->buffers.at(0);
    EXPECT_EQ(first.pts, 60 * kFrameTime);
    EXPECT_EQ(first.data[5], 60);
}

// ---- Tracks ----

// Both tracks play at once; a selector lets one of them through.
TEST_F(Element, LetsTracksBeSwitched)
{
    const std::string path = File(Film(2, 5).Build());
    GError* pError = nullptr;
    GstElement* const pPipeline = gst_parse_launch(
        ("lxavisrc name=streams location=" + path +
         " ! queue ! fakesink sync=true name=video streams.audio_0 ! queue ! selector.sink_0 streams.audio_1 ! queue ! "
         "selector.sink_1 input-selector name=selector ! appsink name=sink sync=true")
            .c_str(),
        &pError);
    ASSERT_NE(pPipeline, nullptr);
    GstElement* const pSelector = gst_bin_get_by_name(GST_BIN(pPipeline), "selector");
    GstElement* const pSink = gst_bin_get_by_name(GST_BIN(pPipeline), "sink");
    GstPad* const pads[] = {gst_element_get_static_pad(pSelector, "sink_0"),
                            gst_element_get_static_pad(pSelector, "sink_1")};
    gst_element_set_state(pPipeline, GST_STATE_PLAYING);
    for (int i = 0; i < 20; ++i) {
        GstSample* pSample = nullptr;
        g_signal_emit_by_name(pSink, "pull-sample", &pSample);
        ASSERT_NE(pSample, nullptr);
        GstMapInfo map;
        GstBuffer* const pBuffer = gst_sample_get_buffer(pSample);
        gst_buffer_map(pBuffer, &map, GST_MAP_READ);
        const guint64 sample = gst_util_uint64_scale_round(GST_BUFFER_PTS(pBuffer), kSampleRate, GST_SECOND);
        EXPECT_EQ(GST_READ_UINT16_LE(map.data), sample & 0xFFFF);
        gst_buffer_unmap(pBuffer, &map);
        gst_sample_unref(pSample);
        g_object_set(pSelector, "active-pad", pads[i / 5 % 2], nullptr);
    }
    gst_element_set_state(pPipeline, GST_STATE_NULL);
    gst_object_unref(pads[0]);
    gst_object_unref(pads[1]);
    gst_object_unref(pSink);
    gst_object_unref(pSelector);
    gst_object_unref(pPipeline);
}

} // namespace
} // namespace gsttest
