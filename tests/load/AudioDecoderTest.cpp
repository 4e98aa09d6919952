// The decoder source of a load job: load results and messages, raw tracks,
// the buffer loop, and how it treats its codec (format changes, empty
// buffers, stopping, waiting for other holders to let go).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "load/AudioDecoder.h"
#include "platform/MediaService.h"
#include "platform/media/AudioCodec.h"

namespace {

using wv::AudioDecoder;

struct Loaded {
    int32_t result = 0;
    int rate = -1, format = -1, channels = -1;
    int64_t durationUs = -7;  // a value load() must leave alone when it has none
    bool isRaw = false;
};

Loaded load(AudioDecoder& decoder, const std::string& path) {
    Loaded l;
    l.result = decoder.load(path.c_str(), &l.rate, &l.format, &l.channels, &l.durationUs, &l.isRaw);
    return l;
}

// Frames decoded until getDataBuffer() reports the end (and the last buffer's length).
size_t drain(AudioDecoder& decoder, int channels, std::vector<int16_t>* samples = nullptr) {
    size_t frames = 0;
    char* data = nullptr;
    unsigned length = 0;
    while (decoder.getDataBuffer(&data, &length) == 0) {
        frames += length / (2 * channels);
        if (samples) {
            const auto* s = reinterpret_cast<const int16_t*>(data);
            samples->insert(samples->end(), s, s + length / 2);
        }
        decoder.freeBuffer();
    }
    return frames;
}

// What a test learns about its codec without holding it.
struct CodecProbe {
    std::atomic<int> stops{0};
    std::weak_ptr<wv::MediaSource> codec;
};

// Wraps a real decoder to misbehave in the ways a platform codec may.
class ScriptedCodec : public wv::MediaSource {
public:
    ScriptedCodec(std::shared_ptr<wv::MediaSource> inner, std::shared_ptr<CodecProbe> probe)
        : mInner(std::move(inner)), mProbe(std::move(probe)) {}
    std::vector<wv::status_t> script;  // statuses to return before the real reads
    bool emptyFirstBuffer = false;

    wv::status_t start(wv::MetaData* params) override { return mInner->start(params); }
    wv::status_t stop() override {
        ++mProbe->stops;
        return mInner->stop();
    }
    std::shared_ptr<wv::MetaData> getFormat() override { return mInner->getFormat(); }
    wv::status_t read(wv::MediaBuffer** buffer, const ReadOptions* options) override {
        if (mStep < script.size()) return script[mStep++];
        const wv::status_t status = mInner->read(buffer, options);
        if (status == wv::OK && emptyFirstBuffer) {
            emptyFirstBuffer = false;
            (*buffer)->set_range(0, 0);
        }
        return status;
    }

private:
    std::shared_ptr<wv::MediaSource> mInner;
    std::shared_ptr<CodecProbe> mProbe;
    size_t mStep = 0;
};

class AudioDecoderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        wv::MediaService::connect();
        dir = new wvtest::TempDir();
        ASSERT_TRUE(wvtest::writeToneWav(dir->file("tone.wav"), 44100, 2, 2.0, 440.0));
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir->file("tone.wav"), dir->file("tone.mp3"), "-c:a libmp3lame"));
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir->file("tone.wav"), dir->file("tone.flac"), "-c:a flac"));
    }
    static void TearDownTestSuite() {
        delete dir;
        wv::MediaService::disconnect();
    }
    static std::string file(const char* name) { return dir->file(name); }
    static wvtest::TempDir* dir;

    // A decoder whose codec is the real one wrapped as `setup` says.
    std::unique_ptr<AudioDecoder> scripted(const std::shared_ptr<CodecProbe>& probe,
                                           std::function<void(ScriptedCodec&)> setup) {
        return std::make_unique<AudioDecoder>(
            [probe, setup](const std::shared_ptr<wv::MetaData>& meta,
                           const std::shared_ptr<wv::MediaSource>& track) -> std::shared_ptr<wv::MediaSource> {
                auto inner = wv::AudioCodec::Create(meta, track);
                if (!inner) return nullptr;
                auto codec = std::make_shared<ScriptedCodec>(inner, probe);
                setup(*codec);
                probe->codec = codec;
                return codec;
            });
    }
};
wvtest::TempDir* AudioDecoderTest::dir = nullptr;

TEST_F(AudioDecoderTest, FilesThatCannotBeLoadedGiveTheirResultAndMessage) {
    wvtest::LogCapture log;
    const std::string missing = file("missing.mp3");
    AudioDecoder a;
    EXPECT_EQ(load(a, missing).result, -9);
    EXPECT_TRUE(log.contains("file " + missing + " not exist", "AudioDecoder"));
    AudioDecoder b;
    EXPECT_EQ(load(b, dir->path()).result, -9);

    wvtest::writeFile(file("empty.m4a"), "", 0);
    log.clear();
    AudioDecoder c;
    EXPECT_EQ(load(c, file("empty.m4a")).result, -8);
    EXPECT_TRUE(log.contains("could not create extractor.", "AudioDecoder"));

    // A video-only file: a container is found but no audio track.
    ASSERT_TRUE(wvtest::runFfmpeg("-f lavfi -i testsrc=size=32x32:rate=5:duration=1 -c:v mpeg4 " +
                                  wvtest::shellQuote(file("silent.mp4"))));
    log.clear();
    AudioDecoder d;
    const Loaded silent = load(d, file("silent.mp4"));
    EXPECT_EQ(silent.result, -8);
    EXPECT_TRUE(log.contains("No suitable audio track found.", "AudioDecoder"));
    EXPECT_EQ(silent.format, -1);  // only set once an audio track is found
}

TEST_F(AudioDecoderTest, BrokenTrackFormatsFailTheLoadInsteadOfTheProcess) {
    // WAV headers stating no rate, no channels, or a codec nobody decodes.
    struct Case {
        const char* name;
        uint16_t tag;
        uint16_t channels;
        uint32_t rate;
    } cases[] = {
        {"norate.wav", 1, 2, 0},
        {"nochannels.wav", 1, 0, 44100},
        {"unknown.wav", 0x7777, 2, 44100},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto header = wvtest::canonicalWavHeader(44100, 2, 4000);
        header[20] = uint8_t(c.tag);
        header[21] = uint8_t(c.tag >> 8);
        header[22] = uint8_t(c.channels);
        for (int i = 0; i < 4; ++i) header[24 + i] = uint8_t(c.rate >> (8 * i));
        header.resize(header.size() + 4000, 0x11);
        wvtest::writeFile(file(c.name), header.data(), header.size());
        AudioDecoder decoder;
        const Loaded l = load(decoder, file(c.name));
        EXPECT_EQ(l.result, -8);
        char* data;
        unsigned length;
        EXPECT_EQ(decoder.getDataBuffer(&data, &length), 1);
    }
}

TEST_F(AudioDecoderTest, CanonicalWavIsReportedRawWithoutACodec) {
    wvtest::LogCapture log;
    AudioDecoder decoder;
    const Loaded l = load(decoder, file("tone.wav"));
    EXPECT_EQ(l.result, 0);
    EXPECT_TRUE(l.isRaw);
    EXPECT_EQ(l.format, 1);
    EXPECT_EQ(l.rate, 44100);
    EXPECT_EQ(l.channels, 2);
    EXPECT_EQ(l.durationUs, 2000000);
    EXPECT_TRUE(log.contains("Raw sound file found.", "AudioDecoder"));
}

TEST_F(AudioDecoderTest, CompressedFilesDecodeBufferByBufferToTheEnd) {
    std::vector<int16_t> source;
    ASSERT_TRUE(wvtest::readWavSamples(file("tone.wav"), &source));
    for (const char* name : {"tone.flac", "tone.mp3"}) {
        SCOPED_TRACE(name);
        AudioDecoder decoder;
        const Loaded l = load(decoder, file(name));
        ASSERT_EQ(l.result, 0);
        EXPECT_FALSE(l.isRaw);
        EXPECT_EQ(l.format, 1);
        EXPECT_EQ(l.rate, 44100);
        EXPECT_EQ(l.channels, 2);
        // The container's figure may include the encoder's delay and padding.
        EXPECT_NEAR(double(l.durationUs), 2e6, 60000) << l.durationUs;
        std::vector<int16_t> samples;
        const size_t frames = drain(decoder, 2, &samples);
        if (std::string(name) == "tone.flac") {
            EXPECT_TRUE(samples == source);
        } else {
            EXPECT_NEAR(double(frames), 88200.0, 1152.0);
        }
        char* data;
        unsigned length;
        EXPECT_EQ(decoder.getDataBuffer(&data, &length), 1);  // stays ended
    }
}

TEST_F(AudioDecoderTest, OneFormatChangeIsReadOverButTwoEndTheStream) {
    auto probe = std::make_shared<CodecProbe>();
    auto once = scripted(probe, [](ScriptedCodec& c) { c.script = {wv::INFO_FORMAT_CHANGED}; });
    ASSERT_EQ(load(*once, file("tone.flac")).result, 0);
    EXPECT_EQ(drain(*once, 2), 88200u);

    auto probe2 = std::make_shared<CodecProbe>();
    auto twice = scripted(probe2, [](ScriptedCodec& c) {
        c.script = {wv::INFO_FORMAT_CHANGED, wv::INFO_FORMAT_CHANGED};
    });
    ASSERT_EQ(load(*twice, file("tone.flac")).result, 0);
    EXPECT_EQ(drain(*twice, 2), 0u);
    EXPECT_EQ(probe2->stops.load(), 1);
    EXPECT_TRUE(probe2->codec.expired());
}

TEST_F(AudioDecoderTest, AnEmptyBufferIsStillABuffer) {
    auto decoder = scripted(std::make_shared<CodecProbe>(), [](ScriptedCodec& c) { c.emptyFirstBuffer = true; });
    ASSERT_EQ(load(*decoder, file("tone.flac")).result, 0);
    char* data = nullptr;
    unsigned length = 99;
    ASSERT_EQ(decoder->getDataBuffer(&data, &length), 0);
    EXPECT_EQ(length, 0u);
    decoder->freeBuffer();
    EXPECT_GT(drain(*decoder, 2), 80000u);
}

TEST_F(AudioDecoderTest, DestroyingMidStreamStopsTheCodecOnce) {
    auto probe = std::make_shared<CodecProbe>();
    {
        auto decoder = scripted(probe, [](ScriptedCodec&) {});
        ASSERT_EQ(load(*decoder, file("tone.mp3")).result, 0);
        char* data;
        unsigned length;
        ASSERT_EQ(decoder->getDataBuffer(&data, &length), 0);
        // Destroyed with the buffer still held.
    }
    EXPECT_EQ(probe->stops.load(), 1);
    EXPECT_TRUE(probe->codec.expired());
}

TEST_F(AudioDecoderTest, TheEndWaitsUntilEveryOtherHolderHasLetGo) {
    auto probe = std::make_shared<CodecProbe>();
    std::atomic<bool> released{false};
    std::thread holder;
    {
        auto decoder = scripted(probe, [](ScriptedCodec&) {});
        ASSERT_EQ(load(*decoder, file("tone.flac")).result, 0);
        // Another holder (as a codec's own thread would be) keeps it a while.
        std::shared_ptr<wv::MediaSource> extra = probe->codec.lock();
        holder = std::thread([extra = std::move(extra), &released]() mutable {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            released = true;
            extra.reset();
        });
        drain(*decoder, 2);
        EXPECT_TRUE(released.load());
    }
    holder.join();
}

}  // namespace
