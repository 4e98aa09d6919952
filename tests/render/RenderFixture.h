// An engine with its callback loop running, a private working directory and
// helpers that register PCM items by hand (a PCM file, or a canonical WAV
// read in place), build clip lists and wait for a render's ending.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "Wait.h"
#include "engine/WavoryxPriv.h"
#include "threads/ClientCallbackThread.h"

namespace rendertest {

using wvtest::Event;

// Interleaved samples that tell every frame and channel apart, within half
// of full scale (so waveform points never reach the random flicker range).
inline std::vector<int16_t> patternSamples(uint32_t frames, int channels, int seed) {
    std::vector<int16_t> out(size_t(frames) * channels);
    for (uint32_t k = 0; k < frames; ++k) {
        for (int c = 0; c < channels; ++c) {
            const int v = static_cast<int>((uint64_t(k) * 37 + c * 5003 + seed * 131) % 20001) - 10000;
            out[size_t(k) * channels + c] = static_cast<int16_t>(v);
        }
    }
    return out;
}

inline std::vector<int16_t> asSamples(const std::vector<char>& bytes, size_t from = 0) {
    std::vector<int16_t> out((bytes.size() - from) / 2);
    if (!out.empty()) std::memcpy(out.data(), bytes.data() + from, out.size() * 2);
    return out;
}

inline bool isEnding(int code) {
    return code == wv::EVT_RENDER_DONE || code == wv::EVT_RENDER_FAILED || code == wv::EVT_RENDER_CANCELLED ||
           code == wv::EVT_RENDER_STOPPED;
}

using wvtest::waitUntil;

class RenderTest : public ::testing::Test {
protected:
    void SetUp() override {
        engine.reset(new WavoryxPriv());
        engine->setWorkingDir(dir.prefix().c_str());
        engine->setCallback(wvtest::EventRecorder::callback);
        engine->startThreadLoop(0);
    }
    void TearDown() override { stopEngine(); }
    void stopEngine() {
        if (!engine) return;
        engine->stopThreadLoop();
        engine.reset();
    }

    wv::SPcmInfo* registerItem(wv::SPcmInfo* item) {
        item->refs[wv::REF_CLIENT] = 1;
        engine->infoList().add(item);
        return item;
    }
    // An item whose PCM file holds `samples`, in `status` with all frames
    // present (the caller may lower `frames` for an item still loading).
    wv::SPcmInfo* addPcmItem(const std::vector<int16_t>& samples, int rate, int channels,
                             wv::pcm_status_t status = wv::PCM_READY) {
        const std::string path = dir.file("src" + std::to_string(++sourceCount) + ".pcm");
        wvtest::writeFile(path, samples.data(), samples.size() * 2);
        wv::SPcmInfo* item = new wv::SPcmInfo(status);
        const uint32_t frames = static_cast<uint32_t>(samples.size() / channels);
        item->sampleRate = rate;
        item->channelCount = channels;
        item->format = 1;
        item->frames = frames;
        item->totalFrames = frames;
        item->pcmPath.set(path);
        return registerItem(item);
    }
    // A canonical 16-bit WAV source read in place.
    wv::SPcmInfo* addWavItem(const std::vector<int16_t>& samples, int rate, int channels) {
        const std::string path = dir.file("src" + std::to_string(++sourceCount) + ".wav");
        EXPECT_TRUE(wvtest::writeWav(path, samples, rate, channels));
        wv::SPcmInfo* item = new wv::SPcmInfo(wv::PCM_READY);
        const uint32_t frames = static_cast<uint32_t>(samples.size() / channels);
        item->sampleRate = rate;
        item->channelCount = channels;
        item->format = 1;
        item->frames = frames;
        item->totalFrames = frames;
        item->path.set(path);
        return registerItem(item);
    }

    struct Range {
        wv::SPcmInfo* source;
        uint32_t start;
        uint32_t end;
    };
    uint32_t newList(const std::vector<Range>& clips) {
        const int32_t id = engine->newClipList();
        for (const Range& r : clips) EXPECT_GT(engine->addClip(id, r.source->id, r.start, r.end), 0);
        return static_cast<uint32_t>(id);
    }
    // Events of one item, in delivery order.
    std::vector<Event> eventsOf(uint32_t id) const {
        std::vector<Event> out;
        for (const Event& e : recorder.events()) {
            if (e.id == static_cast<int>(id)) out.push_back(e);
        }
        return out;
    }
    // Waits for the render's ending event and returns it ({-1, id, 0} on a
    // time-out).
    Event waitForEnding(uint32_t id, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
        const bool ended = recorder.waitFor(
            [id](const std::vector<Event>& events) {
                for (const Event& e : events) {
                    if (e.id == static_cast<int>(id) && isEnding(e.code)) return true;
                }
                return false;
            },
            timeout);
        if (ended) {
            for (const Event& e : eventsOf(id)) {
                if (isEnding(e.code)) return e;
            }
        }
        return Event{-1, static_cast<int>(id), 0};
    }
    Event render(uint32_t id) {
        EXPECT_EQ(engine->process(id), 0);
        return waitForEnding(id);
    }
    // Whether the render's reference on the list has been given back (just
    // after its ending event is posted).
    bool encoderReleased(uint32_t id) const { return engine->infoList().refCount(id, wv::REF_ENCODER) == 0; }

    wvtest::TempDir dir;
    wvtest::EventRecorder recorder;
    std::unique_ptr<WavoryxPriv> engine;
    int sourceCount = 0;
};

}  // namespace rendertest
