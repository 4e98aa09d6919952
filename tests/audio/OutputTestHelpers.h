// Helpers of the audio-output tests: a client that hands out a counting
// signal, and devices that the test itself drives.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

#include "Wait.h"
#include "base/Clock.h"
#include "platform/audio/AudioOutput.h"
#include "platform/audio/AudioOutputDevice.h"

namespace wvtest {

// Sample n of the stream (counting over all channels) is int16(n).
struct CountingClient {
    explicit CountingClient(uint32_t channels) : channels(channels) {}

    static void callback(int event, void* user, void* info) {
        auto* self = static_cast<CountingClient*>(user);
        if (event != wv::AudioOutput::EVENT_MORE_DATA) return;
        auto* buffer = static_cast<wv::AudioOutput::Buffer*>(info);
        {
            std::lock_guard<std::mutex> guard(self->lock);
            self->threads.insert(std::this_thread::get_id());
        }
        const int cap = self->bytesPerCall.load();
        size_t bytes = buffer->size;
        if (cap >= 0 && size_t(cap) < bytes) bytes = size_t(cap);
        const size_t samples = bytes / 2;
        for (size_t i = 0; i < samples; ++i) {
            buffer->i16[i] = static_cast<int16_t>(self->nextSample + i);
        }
        // Partial frames are not counted by the output: keep counting whole ones.
        self->nextSample += (bytes / (2 * self->channels)) * self->channels;
        buffer->size = bytes;
        self->calls.fetch_add(1);
    }

    std::set<std::thread::id> callbackThreads() {
        std::lock_guard<std::mutex> guard(lock);
        return threads;
    }

    const uint32_t channels;
    uint64_t nextSample = 0;  // the output's thread only
    std::atomic<int> bytesPerCall{-1};
    std::atomic<int> calls{0};
    std::mutex lock;
    std::set<std::thread::id> threads;
};

// A device whose time the test advances by hand: `rate` 0 makes it a clock
// device (advance), otherwise a fixed-rate one (render).
class ManualDevice : public wv::AudioOutputDevice {
public:
    explicit ManualDevice(uint32_t rate = 0, size_t bufferFrames = 64) : mRate(rate), mBufferFrames(bufferFrames) {}
    int32_t open(uint32_t, uint32_t, wv::AudioOutputClient* client) override {
        mClient = client;
        return 0;
    }
    void close() override {}
    uint32_t deviceRate() const override { return mRate; }
    size_t defaultBufferFrames(uint32_t) const override { return mBufferFrames; }
    const char* name() const override { return "manual"; }

    void advance(int64_t us) { mClient->advance(us); }
    void render(int16_t* out, size_t frames) { mClient->renderStereo(out, frames); }

private:
    const uint32_t mRate;
    const size_t mBufferFrames;
    wv::AudioOutputClient* mClient = nullptr;
};

}  // namespace wvtest
