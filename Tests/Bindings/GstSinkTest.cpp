// SPDX-License-Identifier: MIT
// qfmkvsink in pipelines and alone.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gst/check/gstharness.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include "Command.h"
#include "TempDirectory.h"

namespace {

namespace fs = std::filesystem;

constexpr GstClockTime kLongest = 60 * GST_SECOND;

struct Unref {
    void operator()(GstElement* element) const {
        gst_element_set_state(element, GST_STATE_NULL);
        gst_object_unref(element);
    }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstHarness* harness) const { gst_harness_teardown(harness); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

class GstSink : public testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("GST_REGISTRY", QF_GSTREAMER_REGISTRY, 1);
        setenv("GST_PLUGIN_PATH", QF_GSTREAMER_FOLDER, 1);
        gst_init(nullptr, nullptr);
    }

    std::string Path(const std::string& name) const { return (m_Folder / name).string(); }

    TempDirectory m_Folder;
};

Owned<GstElement> Launch(const std::string& description) {
    GError* error = nullptr;
    Owned<GstElement> pipeline(
        gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error));
    if (error != nullptr) {
        ADD_FAILURE() << error->message;
        g_error_free(error);
    }
    return pipeline;
}

// The first error on the bus as "domain: text"; "" when the stream ends first.
std::string WaitForEnd(GstElement* pipeline) {
    const Owned<GstBus> bus(gst_element_get_bus(pipeline));
    const Owned<GstMessage> message(gst_bus_timed_pop_filtered(
        bus.get(), kLongest, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    if (message == nullptr) return "no end";
    if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS) return "";
    GError* error = nullptr;
    gst_message_parse_error(message.get(), &error, nullptr);
    const Owned<GError> owned(error);
    return std::string(g_quark_to_string(error->domain)) + ": " + error->message;
}

// Runs a pipeline to its end.
std::string Play(const std::string& description) {
    const Owned<GstElement> pipeline = Launch(description);
    if (pipeline == nullptr) return "no pipeline";
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    return WaitForEnd(pipeline.get());
}

std::string Probe(const std::string& path, const std::string& options) {
    return RunCommand("ffprobe -v quiet -of csv=p=0 " + options + " " + Quoted(path)).m_Output;
}
// "codec,packets" of the one stream of that kind, "" for none.
std::string Packets(const std::string& path, const std::string& stream) {
    const std::string line =
        Probe(path, "-count_packets -select_streams " + stream + " -show_entries stream=codec_name,nb_read_packets");
    return line.substr(0, line.find_last_of("0123456789") + 1);
}
std::string Complaints(const std::string& path) {
    return RunCommand("ffmpeg -nostdin -v warning -xerror -i " + Quoted(path) +
                      " -f null - 2>&1 | grep -v '^Guessed Channel Layout'")
        .m_Output;
}

TEST_F(GstSink, IsDescribedWithoutAWarning) {
    const CommandResult result = RunCommand("G_DEBUG=fatal-warnings gst-inspect-1.0 qfmkvsink 2>&1");
    EXPECT_EQ(result.m_ExitCode, 0);
    EXPECT_EQ(result.m_Output.find("WARN"), std::string::npos);
    for (const char* word : {"video_0", "audio_0", "location", "format", "overwrite"}) {
        EXPECT_NE(result.m_Output.find(word), std::string::npos) << word;
    }
}

struct Pipeline {
    const char* m_Name;
    const char* m_File;
    const char* m_Video; // between 50 pictures and the sink; null without
    const char* m_Audio; // between 100 buffers of 20 ms and the sink; null without
    const char* m_VideoFound;
    const char* m_AudioCodec;
};
std::ostream& operator<<(std::ostream& stream, const Pipeline& pipeline) { return stream << pipeline.m_Name; }

class GstPipelines : public GstSink, public testing::WithParamInterface<Pipeline> {};

constexpr Pipeline kPipelines[] = {
    {"avc", "f.mkv", "x264enc bframes=2 key-int-max=25 ! video/x-h264,stream-format=avc", "avenc_aac", "h264,50",
     "aac"},
    {"byteStream", "f.mkv", "x264enc speed-preset=ultrafast key-int-max=25 ! video/x-h264,stream-format=byte-stream",
     "avenc_aac ! aacparse ! audio/mpeg,stream-format=adts", "h264,50", "aac"},
    {"webm", "f.webm", "vp8enc deadline=1 keyframe-max-dist=25", "vorbisenc", "vp8,50", "vorbis"},
    {"mpeg4", "f.mkv", "avenc_mpeg4 ! mpeg4videoparse", "avenc_ac3 ! ac3parse", "mpeg4,50", "ac3"},
    {"pcm16", "f.mkv", nullptr, "audioconvert ! audio/x-raw,format=S16LE", "", "pcm_s16le"},
    {"pcm24", "f.mkv", nullptr, "audioconvert ! audio/x-raw,format=S24LE", "", "pcm_s24le"},
    {"mka", "f.mka", nullptr, "avenc_aac", "", "aac"},
    {"silent", "f.mkv", "x264enc speed-preset=ultrafast", nullptr, "h264,50", nullptr},
};

TEST_P(GstPipelines, PlaysBack) {
    const Pipeline& row = GetParam();
    const std::string path = Path(row.m_File);
    std::string line = "qfmkvsink name=s location=" + path;
    if (row.m_Video != nullptr) {
        line += std::string(
                    " videotestsrc num-buffers=50 ! video/x-raw,format=I420,width=160,height=90,framerate=25/1 ! ") +
                row.m_Video + " ! queue ! s.video_0";
    }
    if (row.m_Audio != nullptr) {
        line += std::string(" audiotestsrc num-buffers=100 samplesperbuffer=960 ! audioconvert ! "
                            "audio/x-raw,rate=48000,channels=2 ! ") +
                row.m_Audio + " ! queue ! s.audio_0";
    }
    ASSERT_EQ(Play(line), "");
    EXPECT_EQ(Packets(path, "v"), row.m_VideoFound);
    if (row.m_Audio != nullptr) {
        EXPECT_EQ(Packets(path, "a").rfind(std::string(row.m_AudioCodec) + ",", 0), 0U) << Packets(path, "a");
    } else {
        EXPECT_EQ(Packets(path, "a"), "");
    }
    EXPECT_EQ(Complaints(path), "");
    const double seconds = std::stod(Probe(path, "-show_entries format=duration"));
    EXPECT_NEAR(seconds, 2.0, 0.1);
}
INSTANTIATE_TEST_SUITE_P(All, GstPipelines, testing::ValuesIn(kPipelines),
                         [](const auto& row) { return std::string(row.param.m_Name); });

// The frames of a demuxed file come out as they went in, and as matroskamux hands them on.
TEST_F(GstSink, RemuxesEveryFrame) {
    const std::string clip = QF_SAMPLES "/h264-aac.mp4";
    const std::string path = Path("again.mkv");
    ASSERT_EQ(Play("filesrc location=" + clip + " ! qtdemux name=d qfmkvsink name=s location=" + path +
                   " d.video_0 ! queue ! h264parse ! s.video_0 d.audio_0 ! queue ! aacparse ! s.audio_0"),
              "");
    const auto hashes = [](const std::string& file) {
        return RunCommand("ffmpeg -nostdin -v error -i " + Quoted(file) +
                          " -map 0:v -f framehash -hash crc32 - | grep -v '^#' | awk '{print $NF}'")
            .m_Output;
    };
    EXPECT_EQ(hashes(path), hashes(clip));
    EXPECT_EQ(Complaints(path), "");
}

// Codecs without an encoder in GStreamer come from files.
TEST_F(GstSink, TakesElementaryStreams) {
    const auto make = [this](const std::string& name, const std::string& options) {
        const std::string path = Path(name);
        RunCommand("ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=160x90:rate=25:duration=2 -f lavfi -i "
                   "sine=sample_rate=48000:duration=2 " +
                   options + " " + Quoted(path));
        return path;
    };
    const std::string mpeg1 = make("1.m1v", "-map 0 -c:v mpeg1video");
    const std::string mpeg2 = make("2.m2v", "-map 0 -c:v mpeg2video");
    const std::string mp2 = make("1.mp2", "-map 1 -c:a mp2");
    const std::string dts = make("1.dts", "-map 1 -c:a dca -strict -2 -ac 2");
    for (const auto& [video, videoFound, audio, parser, audioFound] :
         {std::make_tuple(mpeg1, "mpeg1video,50", mp2, "mpegaudioparse", "mp2,84"),
          std::make_tuple(mpeg2, "mpeg2video,50", dts, "dcaparse", "dts,188")}) {
        const std::string path = video + ".mkv";
        ASSERT_EQ(Play("filesrc location=" + video + " ! mpegvideoparse ! queue ! qfmkvsink name=s location=" + path +
                       " filesrc location=" + audio + " ! " + parser + " ! queue ! s."),
                  "");
        EXPECT_EQ(Packets(path, "v"), videoFound);
        EXPECT_EQ(Packets(path, "a"), audioFound);
        EXPECT_EQ(Complaints(path), "");
    }
}

// One thread feeds both pads, and the second pad is asked for when the demuxer shows its second stream.
TEST_F(GstSink, TakesALatePad) {
    const std::string path = Path("late.webm");
    ASSERT_EQ(Play("qfmkvsink name=s location=" + path +
                   " filesrc location=" QF_SAMPLES "/vp8-vorbis.webm ! matroskademux name=d d. ! s. d. ! s."),
              "");
    EXPECT_EQ(Packets(path, "v"), Packets(QF_SAMPLES "/vp8-vorbis.webm", "v"));
    EXPECT_EQ(Packets(path, "a"), Packets(QF_SAMPLES "/vp8-vorbis.webm", "a"));
}

TEST_F(GstSink, EndsTheFileWholeWhenThePipelineStops) {
    const std::string path = Path("stopped.mkv");
    {
        const Owned<GstElement> pipeline = Launch(
            "videotestsrc ! video/x-raw,width=160,height=90 ! x264enc speed-preset=ultrafast ! identity name=i ! "
            "qfmkvsink location=" +
            path);
        gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
        while (!fs::exists(path) || fs::file_size(path) < 100000) g_usleep(10000);
    }
    EXPECT_EQ(Complaints(path), "");
    EXPECT_GT(std::stod(Probe(path, "-show_entries format=duration")), 1.0);
}

TEST_F(GstSink, EndsTheFileWholeUnderGstLaunch) {
    const std::string path = Path("launched.mkv");
    const CommandResult result = RunCommand("timeout --foreground --signal=INT 2 gst-launch-1.0 -e videotestsrc "
                                            "is-live=true ! video/x-raw,width=160,height=90 "
                                            "! x264enc tune=zerolatency ! qfmkvsink name=s location=" +
                                            Quoted(path) + " audiotestsrc is-live=true ! avenc_aac ! s. 2>&1");
    EXPECT_EQ(Complaints(path), "") << result.m_Output;
    EXPECT_NE(Packets(path, "a"), "");
}

TEST_F(GstSink, PausesWithoutWriting) {
    const std::string path = Path("paused.mkv");
    const Owned<GstElement> pipeline =
        Launch("videotestsrc num-buffers=50 ! x264enc speed-preset=ultrafast ! qfmkvsink location=" + path);
    gst_element_set_state(pipeline.get(), GST_STATE_PAUSED);
    ASSERT_EQ(gst_element_get_state(pipeline.get(), nullptr, nullptr, kLongest), GST_STATE_CHANGE_SUCCESS);
    g_usleep(200000);
    EXPECT_FALSE(fs::exists(path));
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    EXPECT_EQ(WaitForEnd(pipeline.get()), "");
    EXPECT_EQ(Packets(path, "v"), "h264,50");
}

TEST_F(GstSink, IsUsedASecondTime) {
    const Owned<GstElement> pipeline = Launch(
        "videotestsrc num-buffers=30 ! x264enc speed-preset=ultrafast ! qfmkvsink name=s location=" + Path("1.mkv"));
    const Owned<GstElement> sink(gst_bin_get_by_name(GST_BIN(pipeline.get()), "s"));
    for (const char* name : {"1.mkv", "2.mkv"}) {
        g_object_set(sink.get(), "location", Path(name).c_str(), nullptr);
        gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
        ASSERT_EQ(WaitForEnd(pipeline.get()), "");
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        EXPECT_EQ(Packets(Path(name), "v"), "h264,30");
    }
}

// ---- refused input and its messages

const std::string kSource = "videotestsrc num-buffers=100 ! x264enc speed-preset=ultrafast ! ";

TEST_F(GstSink, SaysWhyItDoesNotWrite) {
    const auto expect = [](const std::string& line, const std::string& domain, const std::string& word) {
        const std::string error = Play(line);
        EXPECT_EQ(error.rfind(domain, 0), 0U) << error;
        EXPECT_NE(error.find(word), std::string::npos) << error;
    };
    expect(kSource + "qfmkvsink", "gst-resource-error", "location");
    expect(kSource + "qfmkvsink location=/nowhere/f.mkv", "gst-resource-error", "/nowhere/f.mkv");
    expect(kSource + "qfmkvsink location=/dev/full format=mkv overwrite=true", "gst-resource-error", "/dev/full");
    expect(kSource + "qfmkvsink location=" + Path("f.xyz"), "gst-stream-error", "format");
    expect(kSource + "qfmkvsink format=mka location=" + Path("f.mka"), "gst-stream-error", "H.264");
    WriteFile(m_Folder / "there.mkv", {1, 2, 3});
    expect(kSource + "qfmkvsink location=" + Path("there.mkv"), "gst-resource-error", "there.mkv");
    EXPECT_EQ(ReadFile(m_Folder / "there.mkv").size(), 3U);
    ASSERT_EQ(Play(kSource + "qfmkvsink overwrite=true location=" + Path("there.mkv")), "");
}

TEST_F(GstSink, ReportsAFullDisk) {
    // Nothing beyond 8 MiB arrives in a file of this process.
    const CommandResult result = RunCommand("bash -c 'ulimit -f 8192; gst-launch-1.0 audiotestsrc num-buffers=3000 ! "
                                            "audio/x-raw,format=S32LE,rate=48000,channels=2 ! qfmkvsink location=" +
                                            Quoted(Path("full.mka")) + "' 2>&1");
    EXPECT_NE(result.m_ExitCode, 0);
    EXPECT_LT(result.m_ExitCode, 128) << "a signal ended it";
    EXPECT_NE(result.m_Output.find("ERROR"), std::string::npos) << result.m_Output;
}

GstHarness* MakeHarness(const std::string& pad, const std::string& path) {
    GstElement* const sink = gst_element_factory_make("qfmkvsink", nullptr);
    g_object_set(sink, "location", path.c_str(), nullptr);
    GstHarness* const harness = gst_harness_new_with_element(sink, pad.c_str(), nullptr);
    gst_object_unref(sink);
    return harness;
}

GstBuffer* MakeBuffer(std::size_t size, GstClockTime time) {
    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
    gst_buffer_memset(buffer, 0, 0x10, size);
    GST_BUFFER_PTS(buffer) = time;
    GST_BUFFER_DURATION(buffer) = 40 * GST_MSECOND;
    return buffer;
}

const std::string kVp8Caps = "video/x-vp8,width=160,height=90,framerate=25/1";

TEST_F(GstSink, RefusesOtherCapsOnTheWay) {
    const Owned<GstHarness> harness(MakeHarness("video_0", Path("caps.webm")));
    gst_harness_set_src_caps_str(harness.get(), kVp8Caps.c_str());
    ASSERT_EQ(gst_harness_push(harness.get(), MakeBuffer(100, 0)), GST_FLOW_OK);
    // Another frame rate is no other format.
    gst_harness_set_src_caps_str(harness.get(), "video/x-vp8,width=160,height=90,framerate=30/1");
    ASSERT_EQ(gst_harness_push(harness.get(), MakeBuffer(100, 40 * GST_MSECOND)), GST_FLOW_OK);
    gst_harness_set_src_caps_str(harness.get(), "video/x-vp8,width=320,height=180,framerate=30/1");
    EXPECT_LT(gst_harness_push(harness.get(), MakeBuffer(100, 80 * GST_MSECOND)), GST_FLOW_EOS);
}

// Times count from the segment's start and may lie in front of it; the file begins with the first.
TEST_F(GstSink, CountsRunningTime) {
    {
        const Owned<GstHarness> harness(MakeHarness("video_0", Path("times.webm")));
        gst_harness_set_src_caps_str(harness.get(), kVp8Caps.c_str());
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        segment.start = 3600080 * GstClockTime{GST_MSECOND};
        segment.time = 0;
        gst_harness_push_event(harness.get(), gst_event_new_segment(&segment));
        for (unsigned i = 0; i < 10; ++i) {
            const GstClockTime time = (3600000 + i * GstClockTime{40}) * GST_MSECOND;
            ASSERT_EQ(gst_harness_push(harness.get(), MakeBuffer(10 + i, time)), GST_FLOW_OK);
        }
        gst_harness_push_event(harness.get(), gst_event_new_eos());
    }
    EXPECT_EQ(Probe(Path("times.webm"), "-select_streams v -show_entries packet=pts_time,size"),
              "0.000000,10\n0.040000,11\n0.080000,12\n0.120000,13\n0.160000,14\n0.200000,15\n0.240000,16\n"
              "0.280000,17\n0.320000,18\n0.360000,19\n");
}

TEST_F(GstSink, HasOnePadOfAKind) {
    const Owned<GstHarness> harness(MakeHarness("video_0", Path("pads.webm")));
    GstPadTemplate* const video = gst_element_get_pad_template(harness->element, "video_0");
    EXPECT_EQ(gst_element_request_pad(harness->element, video, nullptr, nullptr), nullptr);
    GstPad* const audio = gst_element_request_pad_simple(harness->element, "audio_0");
    ASSERT_NE(audio, nullptr);
    gst_element_release_request_pad(harness->element, audio);
    gst_object_unref(audio);
}

// A sender on the loopback, recorded as it comes.
TEST_F(GstSink, RecordsALiveSender) {
    const std::string path = Path("live.mkv");
    const Owned<GstElement> sender =
        Launch("videotestsrc is-live=true ! video/x-raw,width=160,height=90,framerate=25/1 ! x264enc tune=zerolatency "
               "key-int-max=25 ! rtph264pay config-interval=1 ! udpsink host=127.0.0.1 port=" QF_RTP_PORT);
    gst_element_set_state(sender.get(), GST_STATE_PLAYING);
    {
        const Owned<GstElement> recorder = Launch(
            "udpsrc port=" QF_RTP_PORT " caps=\"application/x-rtp,media=video,clock-rate=90000,encoding-name=H264\" ! "
            "rtpjitterbuffer ! rtph264depay ! h264parse ! qfmkvsink location=" +
            path);
        gst_element_set_state(recorder.get(), GST_STATE_PLAYING);
        g_usleep(10 * G_USEC_PER_SEC);
        gst_element_send_event(recorder.get(), gst_event_new_eos());
        EXPECT_EQ(WaitForEnd(recorder.get()), "");
    }
    const double seconds = std::stod(Probe(path, "-show_entries format=duration"));
    EXPECT_GT(seconds, 2.0); // on a busy machine the sender starts late
    EXPECT_LT(seconds, 11.0);
    EXPECT_EQ(Complaints(path), "");
}

} // namespace
