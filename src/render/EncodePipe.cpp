#include "render/EncodePipe.h"

#include "codec/AudioEncoder.h"

namespace wv {

EncodePipe::EncodePipe(AudioEncoder& encoder)
    : mEncoder(encoder), mStatus(FileWriter::WRITE_OK), mThread([this] { run(); }) {}

EncodePipe::~EncodePipe() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mStop = true;
    }
    mChanged.notify_all();
    if (mThread.joinable()) mThread.join();
}

int EncodePipe::send(const int16_t* pcm, int bytes) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] { return mBlocks.size() < kMostBlocks || mStatus != FileWriter::WRITE_OK; });
    if (mStatus != FileWriter::WRITE_OK) return mStatus;
    mBlocks.emplace_back(pcm, pcm + static_cast<size_t>(bytes) / sizeof(int16_t));
    mChanged.notify_all();
    return FileWriter::WRITE_OK;
}

int EncodePipe::status() {
    std::lock_guard<std::mutex> guard(mLock);
    return mStatus;
}

int EncodePipe::drain() {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] { return (mBlocks.empty() && !mBusy) || mStatus != FileWriter::WRITE_OK; });
    mStop = true;
    const int status = mStatus;
    lock.unlock();
    mChanged.notify_all();
    if (mThread.joinable()) mThread.join();
    return status;
}

void EncodePipe::run() {
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mChanged.wait(lock, [this] { return mStop || !mBlocks.empty(); });
        if (mStop || mStatus != FileWriter::WRITE_OK) return;
        std::vector<int16_t> block = std::move(mBlocks.front());
        mBlocks.pop_front();
        mBusy = true;
        lock.unlock();
        // A remainder held back after a short write gets its one retry here.
        int status = mEncoder.checkStatus();
        if (status == FileWriter::WRITE_OK) {
            status = mEncoder.encoding(block.data(), static_cast<int>(block.size() * sizeof(int16_t)));
            // A short write is retried before the next block.
            if (status == FileWriter::WRITE_STORAGE_FULL) status = FileWriter::WRITE_OK;
        }
        lock.lock();
        mBusy = false;
        if (status != FileWriter::WRITE_OK) mStatus = status;
        mChanged.notify_all();
    }
}

}  // namespace wv
