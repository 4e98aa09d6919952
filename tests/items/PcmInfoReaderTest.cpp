#include "items/PcmInfoReader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "TestSupport.h"

namespace {

using namespace wv;

class PcmInfoReaderTest : public ::testing::Test {
protected:
    // An item whose PCM file holds `frames` frames; sample k of channel c
    // has the value k * 2 + c (so every frame is recognisable).
    SPcmInfo* pcmItem(int rate, int channels, uint32_t frames, pcm_status_t status = PCM_READY) {
        std::vector<int16_t> samples(frames * channels);
        for (uint32_t k = 0; k < frames; ++k) {
            for (int c = 0; c < channels; ++c) samples[k * channels + c] = static_cast<int16_t>(k * 2 + c);
        }
        const std::string path = dir.file(std::to_string(items.size() + 1) + ".pcm");
        wvtest::writeFile(path, samples.data(), samples.size() * 2);
        SPcmInfo* item = addItem(status, rate, channels, frames);
        item->pcmPath.set(path);
        return item;
    }
    SPcmInfo* addItem(pcm_status_t status, int rate, int channels, uint32_t frames) {
        items.emplace_back(new SPcmInfo(status));
        SPcmInfo* item = items.back().get();
        item->id = static_cast<pcm_id_t>(items.size());
        item->sampleRate = rate;
        item->channelCount = channels;
        item->frames = frames;
        item->totalFrames = frames;
        return item;
    }
    static std::vector<int16_t> samples(const std::vector<char>& bytes, size_t count) {
        std::vector<int16_t> out(count);
        std::memcpy(out.data(), bytes.data(), count * 2);
        return out;
    }
    wvtest::TempDir dir;
    std::vector<std::unique_ptr<SPcmInfo>> items;
};

TEST_F(PcmInfoReaderTest, SameFormatReadsWholeBuffersThenTheRestThenNothing) {
    SPcmInfo* item = pcmItem(8000, 2, 2500);
    PcmInfoReader reader(item);
    std::vector<char> buffer(4096);
    EXPECT_EQ(reader.read(buffer.data(), 4096), 1024);
    EXPECT_EQ(reader.endState(), PcmInfoReader::MORE);
    EXPECT_EQ(samples(buffer, 4), (std::vector<int16_t>{0, 1, 2, 3}));
    EXPECT_EQ(reader.read(buffer.data(), 4096), 1024);
    EXPECT_EQ(samples(buffer, 2), (std::vector<int16_t>{2048, 2049}));
    EXPECT_EQ(reader.read(buffer.data(), 4096), 452);
    EXPECT_EQ(reader.endState(), PcmInfoReader::END);
    EXPECT_EQ(buffer[452 * 4], 0);  // the rest is zero
    EXPECT_EQ(reader.read(buffer.data(), 4096), 0);
    EXPECT_EQ(reader.endState(), PcmInfoReader::END);
    EXPECT_EQ(reader.getTimeMs(), 312u);

    reader.setPosition(100, 110);
    EXPECT_EQ(reader.read(buffer.data(), 4096), 10);
    EXPECT_EQ(samples(buffer, 2), (std::vector<int16_t>{200, 201}));
    reader.seekMs(250);
    EXPECT_EQ(reader.position(), 2000u);
}

TEST_F(PcmInfoReaderTest, ChannelConversionsKeepLeftOrDuplicate) {
    PcmInfoReader toMono(pcmItem(8000, 2, 4000));
    toMono.setOutputFormat(0, 1);
    std::vector<char> buffer(4096);
    EXPECT_EQ(toMono.read(buffer.data(), 4096), 1024);
    const auto mono = samples(buffer, 2048);
    EXPECT_EQ(mono[0], 0);
    EXPECT_EQ(mono[1], 2);
    EXPECT_EQ(mono[1023], 2046);
    EXPECT_EQ(mono[1024], 0);  // only half the buffer is used

    PcmInfoReader toStereo(pcmItem(8000, 1, 4000));
    toStereo.setOutputFormat(0, 2);
    EXPECT_EQ(toStereo.read(buffer.data(), 4096), 1024);
    EXPECT_EQ(samples(buffer, 6), (std::vector<int16_t>{0, 0, 2, 2, 4, 4}));
}

TEST_F(PcmInfoReaderTest, RateConversionPullsThroughTheResampler) {
    SPcmInfo* item = pcmItem(22050, 2, 3000);
    PcmInfoReader reader(item);
    reader.setOutputFormat(44100, 2);
    std::vector<char> buffer(4096);
    uint32_t total = 0;
    int32_t n;
    while ((n = reader.read(buffer.data(), 4096)) > 0) {
        total += static_cast<uint32_t>(n);
        if (total == static_cast<uint32_t>(n)) {
            // Halfway between input frames the output is the mean of both
            // (left channel: 0 then 2, 4, ... after the zero start frame).
            const auto out = samples(buffer, 8);
            EXPECT_EQ(out[0], 0);
            EXPECT_EQ(out[4], 0);
            EXPECT_EQ(out[6], 1);
        }
        if (reader.endState() == PcmInfoReader::END) break;
    }
    EXPECT_NEAR(total, 6000u, 4u);
    EXPECT_EQ(reader.position(), 3000u);
}

TEST_F(PcmInfoReaderTest, GrowingItemWaitsAtItsEnd) {
    SPcmInfo* item = pcmItem(8000, 1, 1000, DECODING);
    item->frames = 600;
    item->totalFrames = 5000;
    PcmInfoReader reader(item);
    std::vector<char> buffer(4096);
    EXPECT_EQ(reader.read(buffer.data(), 4096), 600);
    EXPECT_EQ(reader.endState(), PcmInfoReader::WAIT);
    EXPECT_EQ(reader.read(buffer.data(), 4096), 0);
    EXPECT_EQ(reader.endState(), PcmInfoReader::WAIT);
    item->frames = 1000;
    EXPECT_EQ(reader.read(buffer.data(), 4096), 400);
    EXPECT_EQ(samples(buffer, 1)[0], 1200);

    SPcmInfo* pending = addItem(ENCODED_FILE, 0, 0, 0);
    PcmInfoReader nothing(pending);
    EXPECT_EQ(nothing.read(buffer.data(), 4096), 0);  // no format yet
}

TEST_F(PcmInfoReaderTest, ClipListFetchesNextClipOnlyBeforeHalfTheBuffer) {
    SPcmInfo* a = pcmItem(8000, 1, 5000);
    SPcmInfo* b = pcmItem(8000, 1, 5000);
    SPcmInfo* list = addItem(CLIP_LIST, 8000, 1, 0);
    list->clipList.reset(new PcmClipList());
    PcmClip clip;
    clip.source = a;
    clip.start = 100;
    clip.end = 400;  // 300 frames
    list->clipList->add(clip);
    clip.source = b;
    clip.start = 1000;
    clip.end = 4000;
    list->clipList->add(clip);

    PcmInfoReader reader(list);
    std::vector<char> buffer(2048);                     // 1024 mono frames, half = 512
    EXPECT_EQ(reader.read(buffer.data(), 2048), 1024);  // 300 of A, then B until full
    auto out = samples(buffer, 1024);
    EXPECT_EQ(out[0], 200);
    EXPECT_EQ(out[299], 798);
    EXPECT_EQ(out[300], 2000);
    EXPECT_EQ(reader.position(), 1024u);

    // A read that ends clip A past half the buffer returns short.
    reader.setPosition(0, PcmInfoReader::kToEnd);
    std::vector<char> small(1000);  // 500 frames, half = 250
    EXPECT_EQ(reader.read(small.data(), 1000), 300);
    EXPECT_EQ(reader.read(small.data(), 1000), 500);
    EXPECT_EQ(samples(small, 1)[0], 2000);

    // Seeking drops the clip sub-reader: the next read starts there.
    reader.seekMs(50);  // list frame 400 = frame 1100 of B
    EXPECT_EQ(reader.read(small.data(), 1000), 500);
    EXPECT_EQ(samples(small, 1)[0], 2200);

    // A clip whose file is gone is skipped; the list goes on.
    wvtest::LogCapture quiet;
    SPcmInfo* broken = addItem(PCM_READY, 8000, 1, 100);
    broken->pcmPath.set(dir.file("gone.pcm"));
    SPcmInfo* withRecording = addItem(CLIP_LIST, 8000, 1, 0);
    withRecording->clipList.reset(new PcmClipList());
    clip.source = broken;
    clip.start = 0;
    clip.end = 100;
    withRecording->clipList->add(clip);
    clip.source = a;
    clip.start = 0;
    clip.end = 10;
    withRecording->clipList->add(clip);
    PcmInfoReader skipping(withRecording);
    EXPECT_EQ(skipping.read(buffer.data(), 2048), 10);
    EXPECT_EQ(skipping.endState(), PcmInfoReader::END);
}

TEST_F(PcmInfoReaderTest, ReverseFillHandsFramesLastFirstThenSilence) {
    SPcmInfo* item = pcmItem(8000, 2, 1000);
    PcmInfoReader reader(item);
    reader.setPosition(100, PcmInfoReader::kToEnd);
    std::vector<char> buffer(256 * 4);
    EXPECT_EQ(reader.reverseFill(buffer.data(), 1024), 256);
    const auto out = samples(buffer, 512);
    EXPECT_EQ(out[0], 198);  // frame 99
    EXPECT_EQ(out[1], 199);
    EXPECT_EQ(out[198], 0);  // frame 0
    EXPECT_EQ(out[200], 0);  // silence after it
    EXPECT_EQ(out[511], 0);
    EXPECT_EQ(reader.position(), 0u);

    reader.setPosition(900, PcmInfoReader::kToEnd);
    EXPECT_EQ(reader.reverseFill(buffer.data(), 1024), 256);
    EXPECT_EQ(samples(buffer, 1)[0], 1798);
    EXPECT_EQ(reader.position(), 644u);
    // Forward again from there.
    EXPECT_EQ(reader.read(buffer.data(), 8), 2);
    EXPECT_EQ(samples(buffer, 1)[0], 1288);
}

// A list without effects read backwards is its forward frames last first,
// across joins, through a nested list and with a mono clip widened to the
// list's stereo, then silence before frame 0; and a forward read after it
// goes on from where it stopped.
TEST_F(PcmInfoReaderTest, PlainListReadsBackwardsAsItsForwardFramesReversed) {
    SPcmInfo* a = pcmItem(8000, 2, 3000);
    SPcmInfo* m = pcmItem(8000, 1, 3000);
    SPcmInfo* inner = addItem(CLIP_LIST, 8000, 1, 0);
    inner->clipList.reset(new PcmClipList());
    PcmClip clip;
    clip.source = m;
    clip.start = 50;
    clip.end = 450;
    inner->clipList->add(clip);
    SPcmInfo* list = addItem(CLIP_LIST, 8000, 2, 0);
    list->clipList.reset(new PcmClipList());
    clip.source = a;
    clip.start = 100;
    clip.end = 700;
    list->clipList->add(clip);
    clip.source = inner;
    clip.start = 0;
    clip.end = 400;
    list->clipList->add(clip);
    clip.source = m;
    clip.start = 0;
    clip.end = 300;
    list->clipList->add(clip);
    constexpr uint32_t kFrames = 1300;

    std::vector<int16_t> forward;
    PcmInfoReader reader(list);
    std::vector<char> buffer(512 * 4);
    while (forward.size() < kFrames * 2 + 2) {
        const int32_t n = reader.read(buffer.data(), static_cast<uint32_t>(buffer.size()));
        ASSERT_GE(n, 0);
        if (n > 0) {
            const auto got = samples(buffer, size_t(n) * 2);
            forward.insert(forward.end(), got.begin(), got.end());
        }
        if (reader.endState() != PcmInfoReader::MORE) break;
    }
    ASSERT_EQ(forward.size(), kFrames * 2);
    EXPECT_EQ(forward[0], 200);  // frame 100 of a, left
    EXPECT_EQ(forward[1], 201);
    EXPECT_EQ(forward[1200], 100);  // frame 50 of m, on both sides
    EXPECT_EQ(forward[1201], 100);
    EXPECT_EQ(forward[2000], 0);  // frame 0 of m
    EXPECT_EQ(forward[kFrames * 2 - 1], 598);

    reader.setPosition(kFrames, PcmInfoReader::kToEnd);
    std::vector<int16_t> backward;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(reader.reverseFill(buffer.data(), static_cast<uint32_t>(buffer.size())), 512);
        const auto got = samples(buffer, 1024);
        backward.insert(backward.end(), got.begin(), got.end());
    }
    EXPECT_EQ(reader.position(), 0u);
    std::vector<int16_t> expected;
    for (uint32_t f = kFrames; f-- > 0;) {
        expected.push_back(forward[f * 2]);
        expected.push_back(forward[f * 2 + 1]);
    }
    expected.resize(3 * 1024, 0);
    EXPECT_EQ(backward, expected);

    reader.setPosition(kFrames, PcmInfoReader::kToEnd);
    ASSERT_EQ(reader.reverseFill(buffer.data(), 100 * 4), 100);  // back to frame 1200
    ASSERT_EQ(reader.read(buffer.data(), 8), 2);
    const std::vector<int16_t> frame1200(forward.begin() + 2400, forward.begin() + 2404);
    EXPECT_EQ(samples(buffer, 4), frame1200);
}

TEST_F(PcmInfoReaderTest, RawWavSourceAndMissingFile) {
    std::vector<char> wav(44, 'h');
    for (int16_t k = 0; k < 10; ++k) {
        wav.push_back(static_cast<char>(k * 3));
        wav.push_back(0);
    }
    wvtest::writeFile(dir.file("raw.wav"), wav.data(), wav.size());
    SPcmInfo* raw = addItem(PCM_READY, 8000, 1, 10);
    raw->path.set(dir.file("raw.wav"));
    PcmInfoReader reader(raw);
    std::vector<char> buffer(8);
    EXPECT_EQ(reader.read(buffer.data(), 8), 4);
    EXPECT_EQ(samples(buffer, 2), (std::vector<int16_t>{0, 3}));
    reader.setPosition(5, 10);
    EXPECT_EQ(reader.read(buffer.data(), 8), 4);
    EXPECT_EQ(samples(buffer, 1)[0], 15);

    wvtest::LogCapture log;
    SPcmInfo* gone = addItem(DECODING, 8000, 1, 100);
    gone->pcmPath.set(dir.file("missing.pcm"));
    PcmInfoReader failing(gone);
    EXPECT_EQ(failing.read(buffer.data(), 8), -1);
    EXPECT_TRUE(log.contains("file open failed error 2"));
    EXPECT_EQ(failing.read(buffer.data(), 8), 4);  // silence, position moving on
    EXPECT_EQ(failing.position(), 4u);
}

}  // namespace
