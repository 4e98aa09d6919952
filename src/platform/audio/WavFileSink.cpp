#define WV_LOG_TAG "AudioOutput"
#include "platform/audio/WavFileSink.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace {

void put16(uint8_t* at, uint32_t v) {
    at[0] = uint8_t(v);
    at[1] = uint8_t(v >> 8);
}

void put32(uint8_t* at, uint32_t v) {
    put16(at, v & 0xFFFF);
    put16(at + 2, v >> 16);
}

int32_t writeAll(int fd, const void* data, size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::write(fd, p, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -errno;
        }
        p += n;
        size -= size_t(n);
    }
    return 0;
}

}  // namespace

WavFileSink::~WavFileSink() { close(); }

int32_t WavFileSink::open(const std::string& path, uint32_t sampleRate, uint32_t channels) {
    close();
    const int32_t opened = mFile.open(path);
    if (opened != 0) {
        WV_LOGE("cannot create %s: %s", path.c_str(), std::strerror(-opened));
        return opened;
    }
    mFd = mFile.fd();
    mSampleRate = sampleRate;
    mChannels = channels;
    mFrames = 0;
    // A reader of a stream takes these sizes as "to the end".
    const int32_t err = writeHeader(mFile.seekable() ? 0 : 0xFFFFFFFFull);
    if (err != 0) discard();
    return err;
}

int32_t WavFileSink::write(const int16_t* frames, size_t count) {
    if (mFd < 0) return -EBADF;
    const int32_t err = writeAll(mFd, frames, count * mChannels * sizeof(int16_t));
    if (err == 0) mFrames += count;
    return err;
}

void WavFileSink::close() {
    if (mFd < 0) return;
    if (mFile.seekable() && (::lseek(mFd, 0, SEEK_SET) != 0 ||
                             writeHeader(mFrames * mChannels * sizeof(int16_t)) != 0)) {
        WV_LOGE("cannot finish %s", mFile.target().c_str());
        discard();
        return;
    }
    mFd = -1;
    mFile.commit();
}

void WavFileSink::discard() {
    mFd = -1;
    mFile.discard();
}

int32_t WavFileSink::writeHeader(uint64_t dataBytes) {
    // Sizes beyond what RIFF can state are capped; the data stays whole.
    const uint32_t data = dataBytes > 0xFFFFFFFFull - 36 ? 0xFFFFFFFFu - 36 : uint32_t(dataBytes);
    uint8_t h[44];
    std::memcpy(h, "RIFF", 4);
    put32(h + 4, 36 + data);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    put32(h + 16, 16);
    put16(h + 20, 1);
    put16(h + 22, mChannels);
    put32(h + 24, mSampleRate);
    put32(h + 28, mSampleRate * mChannels * 2);
    put16(h + 32, mChannels * 2);
    put16(h + 34, 16);
    std::memcpy(h + 36, "data", 4);
    put32(h + 40, data);
    return writeAll(mFd, h, sizeof h);
}

}  // namespace wv
