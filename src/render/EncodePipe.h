// EncodePipe: a render's encoder on a thread of its own, so that reading,
// mixing and effects of the list (on the encoder thread) and encoding
// overlap. Blocks are copied into a short queue and encoded in order; the
// encoder is used by the pipe's thread alone from the first send() until
// drain() returned, so the FileWriter's one-thread rule holds.
//
// A short write is retried once before the next block, as a render's next
// step would; the first failure stops the pipe and is reported by every
// later call.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace wv {

class AudioEncoder;

class EncodePipe {
public:
    // Blocks queued at most before send() waits.
    static constexpr size_t kMostBlocks = 8;

    explicit EncodePipe(AudioEncoder& encoder);
    // Stops the thread (a block being encoded is finished) without
    // draining: the render did not complete.
    ~EncodePipe();
    EncodePipe(const EncodePipe&) = delete;
    EncodePipe& operator=(const EncodePipe&) = delete;

    // Queues a copy of `bytes` bytes of interleaved 16-bit input: WRITE_OK,
    // or the failure the pipe met (a FileWriter status).
    int send(const int16_t* pcm, int bytes);
    // The failure met so far, or WRITE_OK.
    int status();
    // Waits until every queued block is encoded and ends the thread; the
    // encoder is the caller's again. WRITE_OK or the failure met.
    int drain();

private:
    void run();

    AudioEncoder& mEncoder;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<std::vector<int16_t>> mBlocks;
    int mStatus;
    bool mBusy = false;
    bool mStop = false;
    std::thread mThread;
};

}  // namespace wv
