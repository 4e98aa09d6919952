// What a render writes: the WAV data and header, channel and rate
// conversion, the ".wave" file, MP3 output, and the progress events.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "MediaDecode.h"
#include "RenderFixture.h"
#include "dsp/WaveformData.h"
#include "items/PcmInfoReader.h"
#include "render/EncoderThread.h"

namespace {

using namespace rendertest;
using wv::SPcmInfo;

struct WavFile {
    std::vector<uint8_t> header;
    std::vector<int16_t> samples;
};

WavFile readOutput(const std::string& path) {
    const std::vector<char> bytes = wvtest::readFile(path);
    WavFile out;
    if (bytes.size() < 44) return out;
    out.header.assign(bytes.begin(), bytes.begin() + 44);
    out.samples = asSamples(bytes, 44);
    return out;
}

// The points the generator makes of `samples` (no file).
std::vector<uint8_t> expectedPoints(const std::vector<int16_t>& samples, uint32_t rate, uint32_t channels) {
    wv::WaveformState state(rate, channels);
    std::vector<uint8_t> points;
    const int16_t* data = samples.data();
    uint32_t bytes = static_cast<uint32_t>(samples.size() * 2);
    uint8_t point = 0;
    while (bytes > 0) {
        if (wv::addWaveformSamples(&state, &data, &bytes, &point) == 1) points.push_back(point);
    }
    return points;
}

using RenderOutput = RenderTest;

TEST_F(RenderOutput, SameFormatRangesConcatenateByteForByteWithHeaderAndWaveform) {
    // A decoded-file source and a WAV source read in place, both 44.1 kHz
    // stereo; ranges cross the 16384-byte steps and the clip boundaries.
    const auto a = patternSamples(50000, 2, 1);
    const auto b = patternSamples(30000, 2, 2);
    SPcmInfo* fileItem = addPcmItem(a, 44100, 2);
    SPcmInfo* wavItem = addWavItem(b, 44100, 2);
    const std::vector<Range> ranges = {
        {fileItem, 1000, 5003}, {wavItem, 0, 29999}, {fileItem, 40000, 50000}, {wavItem, 7, 8}};
    const uint32_t list = newList(ranges);
    const std::string out = dir.file("out.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);

    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));

    std::vector<int16_t> expected;
    for (const Range& r : ranges) {
        const auto& src = r.source == fileItem ? a : b;
        expected.insert(expected.end(), src.begin() + r.start * 2, src.begin() + r.end * 2);
    }
    const WavFile wav = readOutput(out);
    EXPECT_EQ(wav.header, wvtest::canonicalWavHeader(44100, 2, static_cast<uint32_t>(expected.size() * 2)));
    ASSERT_EQ(wav.samples.size(), expected.size());
    EXPECT_TRUE(wav.samples == expected);

    // The list's own fields tell the format and how far the render got.
    EXPECT_EQ(engine->getPcmSampleRate(list), 44100);
    EXPECT_EQ(engine->getPcmChannelCount(list), 2);
    EXPECT_EQ(engine->getPcmFrameLength(list), static_cast<int32_t>(expected.size() / 2));

    // One point per 20 ms (882 frames of both channels), of the rendered audio.
    const auto wave = wvtest::readFile(out + ".wave");
    EXPECT_EQ(wave.size(), expected.size() / 1764);
    const auto points = expectedPoints(expected, 44100, 2);
    EXPECT_TRUE(std::equal(points.begin(), points.end(), reinterpret_cast<const uint8_t*>(wave.data())));
}

TEST_F(RenderOutput, ChannelConversionKeepsLeftOrDuplicates) {
    const auto stereo = patternSamples(20000, 2, 3);
    const auto mono = patternSamples(20000, 1, 4);
    SPcmInfo* stereoItem = addPcmItem(stereo, 16000, 2);
    SPcmInfo* monoItem = addPcmItem(mono, 16000, 1);

    const uint32_t toMono = newList({{stereoItem, 100, 19000}});
    ASSERT_EQ(engine->setOutputPara(toMono, dir.file("mono.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setEncodePara(toMono, 0, 0, 1, 0), 0);  // rate from the clips
    EXPECT_EQ(render(toMono).code, wv::EVT_RENDER_DONE);
    const WavFile m = readOutput(dir.file("mono.wav"));
    EXPECT_EQ(m.header, wvtest::canonicalWavHeader(16000, 1, 18900 * 2));
    ASSERT_EQ(m.samples.size(), 18900u);
    for (size_t k = 0; k < m.samples.size(); ++k) {
        if (m.samples[k] != stereo[(k + 100) * 2]) FAIL() << "mono frame " << k << " is not the left channel";
    }

    // forceStereo wins over a channel count of 1.
    const uint32_t toStereo = newList({{monoItem, 0, 20000}, {stereoItem, 0, 10}});
    ASSERT_EQ(engine->setOutputPara(toStereo, dir.file("stereo.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setEncodePara(toStereo, 16000, 0, 1, 1), 0);
    EXPECT_EQ(render(toStereo).code, wv::EVT_RENDER_DONE);
    const WavFile s = readOutput(dir.file("stereo.wav"));
    ASSERT_EQ(s.samples.size(), 20010u * 2);
    for (size_t k = 0; k < 20000; ++k) {
        if (s.samples[k * 2] != mono[k] || s.samples[k * 2 + 1] != mono[k]) FAIL() << "stereo frame " << k;
    }
    EXPECT_EQ(s.samples[20000 * 2 + 1], stereo[1]);  // the stereo clip keeps its channels
}

TEST_F(RenderOutput, RateConversionFollowsTheResampler) {
    // A 1 kHz tone at 22050 Hz in a list rendered at 44100 Hz (the rate of
    // its other, native clip).
    const auto tone = wvtest::makeTones(22050, 22050, {1000, 1000});
    const auto native = patternSamples(4410, 2, 5);
    SPcmInfo* low = addPcmItem(tone, 22050, 2);
    SPcmInfo* high = addPcmItem(native, 44100, 2);
    const uint32_t list = newList({{low, 0, 22050}, {high, 0, 4410}});
    ASSERT_EQ(engine->setOutputPara(list, dir.file("up.wav").c_str(), ENCODE_WAV), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(engine->getPcmSampleRate(list), 44100);
    const WavFile wav = readOutput(dir.file("up.wav"));

    // The converted clip is what a reader at 44100 Hz makes of the source,
    // and the native clip follows unchanged.
    wv::PcmInfoReader reader(low);
    reader.setOutputFormat(44100, 2);
    std::vector<int16_t> converted;
    std::vector<char> block(wv::EncoderThread::kBlockBytes);
    for (int guard = 0; guard < 100; ++guard) {
        const int32_t n = reader.read(block.data(), static_cast<uint32_t>(block.size()));
        const auto got = asSamples(block);
        converted.insert(converted.end(), got.begin(), got.begin() + n * 2);
        if (reader.endState() != wv::PcmInfoReader::MORE) break;
    }
    EXPECT_NEAR(converted.size() / 2.0, 44100.0, 4.0);
    ASSERT_EQ(wav.samples.size(), converted.size() + native.size());
    EXPECT_TRUE(std::equal(converted.begin(), converted.end(), wav.samples.begin()));
    EXPECT_TRUE(std::equal(native.begin(), native.end(), wav.samples.begin() + converted.size()));

    // And it is still the same tone.
    const double hz = wvtest::estimateFrequency(wav.samples.data() + 2000, 40000, 2, 0, 44100);
    EXPECT_NEAR(hz, 1000.0, 2.0);

    // Every clip converts to its end, even when its last input arrives in a
    // step whose output is already full.
    SPcmInfo* mono = addPcmItem(patternSamples(3 * 22050, 1, 9), 22050, 1);
    const uint32_t odd = newList({{mono, 0, 3 * 22050}, {mono, 0, 22050}});
    ASSERT_EQ(engine->setOutputPara(odd, dir.file("odd.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setEncodePara(odd, 32000, 0, 2, 0), 0);
    EXPECT_EQ(render(odd).code, wv::EVT_RENDER_DONE);
    EXPECT_NEAR(readOutput(dir.file("odd.wav")).samples.size() / 2.0, 4 * 32000.0, 8.0);
}

TEST_F(RenderOutput, ProgressIsThinnedAndEndsBeforeDone) {
    // 3 s in 44.1 kHz stereo: 33 steps of 4096 frames; a whole number of
    // milliseconds, so the expected length is exact.
    const auto src = patternSamples(3 * 44100, 2, 6);
    SPcmInfo* item = addPcmItem(src, 44100, 2);
    const uint32_t list = newList({{item, 0, 3 * 44100}});
    ASSERT_EQ(engine->setOutputPara(list, dir.file("p.wav").c_str(), ENCODE_WAV), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(engine->getPcmDuration(list), 3000);

    const auto events = eventsOf(list);
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.back(), (Event{wv::EVT_RENDER_DONE, static_cast<int>(list), -1}));
    int last = 0;
    for (size_t i = 0; i + 1 < events.size(); ++i) {
        ASSERT_EQ(events[i].code, wv::EVT_RENDER_PROGRESS);
        if (i > 0 && events[i].value != 100) {
            EXPECT_GE(events[i].value, last + 10);
        }
        EXPECT_GT(events[i].value, last);
        last = events[i].value;
    }
    EXPECT_EQ(events[0].value, 3);  // the first step, 4096 / 132300
    EXPECT_EQ(last, 100);
    EXPECT_LE(events.size(), 12u);
}

TEST_F(RenderOutput, Mp3OutputDecodesToTheSameToneAndLength) {
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    const auto tone = wvtest::makeTones(2 * 44100, 44100, {1000, 2500});
    SPcmInfo* item = addPcmItem(tone, 44100, 2);
    const uint32_t list = newList({{item, 0, 2 * 44100}});
    // No path and no bit rate: "<working dir><id>.mp3" at 320 kbit/s.
    ASSERT_EQ(engine->setOutputPara(list, "", ENCODE_MP3), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    const std::string out = dir.prefix() + std::to_string(list) + ".mp3";
    ASSERT_TRUE(wvtest::fileExists(out));
    EXPECT_TRUE(wvtest::fileExists(out + ".wave"));
    EXPECT_EQ(wvtest::fileSize(out + ".wave"), 100);

    wvtest::DecodedAudio decoded;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(out, &decoded));
    EXPECT_EQ(decoded.rate, 44100);
    ASSERT_EQ(decoded.channels, 2);
    EXPECT_EQ(decoded.frames(), 2u * 44100);
    EXPECT_NEAR(wvtest::estimateFrequency(decoded.samples.data() + 8820, 44100, 2, 0, 44100), 1000.0, 2.0);
    EXPECT_NEAR(wvtest::estimateFrequency(decoded.samples.data() + 8820, 44100, 2, 1, 44100), 2500.0, 5.0);

    wvtest::StreamInfo info;
    ASSERT_TRUE(wvtest::probeAudio(out, &info));
    EXPECT_EQ(info.codec, "mp3");
    EXPECT_EQ(info.bitRate, 320000);
}

// The duration ffprobe reports for the file, in seconds; -1 on failure.
double probeDuration(const std::string& path) {
    const std::string command =
        "ffprobe -v error -show_entries format=duration -of csv=p=0 " + wvtest::shellQuote(path) + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return -1;
    double seconds = -1;
    if (std::fscanf(pipe, "%lf", &seconds) != 1) seconds = -1;
    pclose(pipe);
    return seconds;
}

TEST_F(RenderOutput, FfprobeReadsRateChannelsAndDurationOfBothFormats) {
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    const auto src = patternSamples(3 * 22050, 1, 7);
    SPcmInfo* item = addPcmItem(src, 22050, 1);
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const uint32_t list = newList({{item, 0, 3 * 22050}});
        const std::string out = dir.file(type == ENCODE_WAV ? "probe.wav" : "probe.mp3");
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
        ASSERT_EQ(engine->setEncodePara(list, 32000, 128, 2, 0), 0);
        EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
        wvtest::StreamInfo info;
        ASSERT_TRUE(wvtest::probeAudio(out, &info)) << out;
        EXPECT_EQ(info.sampleRate, 32000) << out;
        EXPECT_EQ(info.channels, 2) << out;
        EXPECT_NEAR(probeDuration(out), 3.0, type == ENCODE_WAV ? 0.001 : 0.12) << out;
    }
}

}  // namespace
