#define WV_LOG_TAG "PcmInfoReader"
#include "items/PcmInfoReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <wavoryx/dsp.h>

#include "base/Log.h"
#include "dsp/Dither.h"
#include "items/ListMixer.h"

namespace wv {

PcmInfoReader::PcmInfoReader(SPcmInfo* info) : mInfo(info) { initPosition(); }

PcmInfoReader::~PcmInfoReader() {
    mResampler.reset();
    mClipReader.reset();
    if (mFd > 0) ::close(mFd);
}

void PcmInfoReader::initPosition() { setPosition(0, kToEnd); }

void PcmInfoReader::setPosition(uint32_t start, uint32_t end) {
    mStartFrame = start;
    mPosition = start;
    mEndFrame = end;
    reseek();
}

void PcmInfoReader::resetPosition() {
    mPosition = mStartFrame;
    reseek();
}

void PcmInfoReader::reseek() {
    if (mInfo->clipList) mClipReader.reset();
    mNeedSeek = true;
}

void PcmInfoReader::seekMs(uint32_t ms) {
    mPosition = static_cast<uint32_t>(uint64_t(ms) *
                                      static_cast<uint32_t>(mInfo->sampleRate.load()) / 1000);
    // The sub-reader sits at the old place; the next read starts afresh.
    reseek();
}

uint64_t PcmInfoReader::getTimeMs() const {
    const uint64_t rate = static_cast<uint32_t>(mInfo->sampleRate.load());
    return rate == 0 ? 0 : uint64_t(mPosition) * 1000 / rate;
}

uint64_t PcmInfoReader::getAvailableTimeMs() const {
    const uint64_t rate = static_cast<uint32_t>(mInfo->sampleRate.load());
    return rate == 0 ? 0 : uint64_t(mInfo->frames.load()) * 1000 / rate;
}

int PcmInfoReader::openFile() {
    const std::string pcmPath = mInfo->pcmPath.get();
    if (mInfo->status.load() == PCM_READY && pcmPath.empty()) {
        // A raw source is read in place, behind its 44-byte header.
        mFd = ::open(mInfo->path.get().c_str(), O_RDONLY | O_CLOEXEC);
        if (mFd < 0) return -1;
        mHasHeader = true;
        ::lseek(mFd, kWavHeaderBytes, SEEK_SET);
        return mFd;
    }
    mHasHeader = false;
    mFd = ::open(pcmPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    return mFd;
}

off_t PcmInfoReader::seekFile(uint64_t byteOffset) {
    return ::lseek(mFd, static_cast<off_t>(byteOffset + (mHasHeader ? kWavHeaderBytes : 0)),
                   SEEK_SET);
}

bool PcmInfoReader::ensureOpen() {
    if (mFd != 0) return mFd > 0;
    if (openFile() < 0) {
        WV_LOGE("file open failed error %d", errno);
        return false;
    }
    return true;
}

void PcmInfoReader::readAtPosition(char* into, uint64_t bytes) {
    if (mNeedSeek) {
        seekFile(uint64_t(mPosition) * mInfo->frameSize());
        mNeedSeek = false;
    }
    uint64_t done = 0;
    while (done < bytes && mFd > 0) {
        const ssize_t got = ::read(mFd, into + done, bytes - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<uint64_t>(got);
    }
    if (done < bytes) std::memset(into + done, 0, bytes - done);
}

uint32_t PcmInfoReader::beginRead(char* buffer, uint32_t bytes) {
    if (mOutSampleRate == 0) mOutSampleRate = mInfo->sampleRate.load();
    if (mOutChannels == 0) mOutChannels = mInfo->channelCount.load();
    std::memset(buffer, 0, bytes);
    mEndState = MORE;
    if (mOutSampleRate == 0 || mOutChannels == 0) {
        WV_LOGW("No sr and ch!");
        return 0;
    }
    return (bytes / static_cast<uint32_t>(mOutChannels)) / 2;
}

int32_t PcmInfoReader::read(char* buffer, uint32_t bytes) {
    const uint32_t frames = beginRead(buffer, bytes);
    if (mOutSampleRate == 0 || mOutChannels == 0) return 0;
    if (usesEffects()) return readWithEffects(buffer, frames);
    switch (mInfo->status.load()) {
        case CLIP_LIST: {
            // Clips are fetched only while less than half the buffer is filled.
            const uint32_t half = (bytes / static_cast<uint32_t>(mOutChannels)) / 4;
            return readClipList(buffer, frames, 0, half, nullptr);
        }
        case DECODING:
        case PCM_READY:
            return readFile(buffer, frames);
        default:
            return 0;
    }
}

int32_t PcmInfoReader::readPiece(char* buffer, uint32_t bytes, uint64_t wholeBytes,
                                 uint64_t* gotSoFar, bool* done) {
    const uint32_t frames = beginRead(buffer, bytes);
    *done = true;
    if (mOutSampleRate == 0 || mOutChannels == 0) return 0;
    int32_t n = 0;
    if (usesEffects()) {
        // Reads of the effects path fill the whole buffer when they can.
        n = readWithEffects(buffer, frames);
        *done = mEndState != MORE || mPosition >= mEndFrame;
        *gotSoFar += static_cast<uint64_t>(n);
        return n;
    }
    switch (mInfo->status.load()) {
        case CLIP_LIST: {
            const uint64_t half = (wholeBytes / static_cast<uint32_t>(mOutChannels)) / 4;
            bool halted = false;
            n = readClipList(buffer, frames, *gotSoFar, half, &halted);
            *done = halted || mEndState != MORE || mPosition >= mEndFrame;
            break;
        }
        case DECODING:
        case PCM_READY:
            n = readFile(buffer, frames);
            // A file that cannot be opened leaves the whole buffer silent.
            if (n < 0) return 0;
            *done = mEndState != MORE;
            break;
        default:
            return 0;
    }
    *gotSoFar += static_cast<uint64_t>(n);
    return n;
}

int32_t PcmInfoReader::readFile(char* buffer, uint32_t frames) {
    if (mFd == 0 && !ensureOpen()) return -1;
    const int32_t itemRate = mInfo->sampleRate.load();
    const int32_t itemChannels = mInfo->channelCount.load();
    if (itemRate == mOutSampleRate) {
        uint32_t count = 0;
        const int32_t more = mInfo->availableFrames(count, mPosition, mEndFrame, false);
        if (mOutChannels == 1 && itemChannels == 2) frames /= 2;
        uint32_t n = frames;
        if (frames >= count) {
            n = count;
            mEndState = more ? WAIT : END;
        }
        readAtPosition(buffer, uint64_t(n) * mInfo->frameSize());
        mPosition += n;
        if (mOutChannels == 1 && itemChannels == 2) {
            Stereo2Mono(buffer, n);
            // The folded frames leave stereo data behind them; what is not
            // handed out stays silent.
            std::memset(buffer + uint64_t(n) * 2, 0, uint64_t(n) * 2);
        } else if (mOutChannels == 2 && itemChannels == 1) {
            Mono2Stereo(buffer, n);
        }
        return static_cast<int32_t>(n);
    }
    if (!mResampler) {
        mResampler.reset(AudioResampler::create(16, itemChannels == 1 ? 1 : 2, mOutSampleRate,
                                                mResampleQuality));
        mResampler->init();
        mResampler->setVolume(1, 1);
    }
    mResampler->setSampleRate(itemRate);
    int16_t* out = reinterpret_cast<int16_t*>(buffer);
    // Mono output is made as stereo in the buffer's first half, then folded.
    const uint32_t outFrames = mOutChannels == 1 ? frames / 2 : frames;
    mResampler->resample(out, outFrames, this);
    uint32_t made = static_cast<uint32_t>(mResampler->getOutputFrames());
    if (mEndState == END && !mResamplerHolds) {
        // All input is handed over: a resampler that holds a filter's tail
        // gives it out now, and the end waits until it has.
        mResampler->endInput();
        if (mResampler->outputPending() && made < outFrames) {
            mResampler->resample(out + size_t(made) * 2, outFrames - made, this);
            made += static_cast<uint32_t>(mResampler->getOutputFrames());
        }
        if (mResampler->outputPending()) mEndState = MORE;
    }
    if (mOutChannels == 1) Stereo2Mono(buffer, outFrames);
    // The last input was fetched, but the output filled up before the
    // resampler used all of it: the end comes with the next read, which
    // converts the rest, not now (a user would drop the tail).
    if (mEndState == END && mResamplerHolds) mEndState = MORE;
    return static_cast<int32_t>(made);
}

int32_t PcmInfoReader::getNextBuffer(Buffer* buffer, int64_t) {
    uint32_t count = 0;
    const int32_t more = mInfo->availableFrames(count, mPosition, mEndFrame, false);
    const uint32_t frameBytes = mInfo->frameSize();
    uint32_t n = buffer->frameCount == 0 ? 1 : buffer->frameCount;
    if (n > count) n = count;
    if (n > kProviderBytes / frameBytes) n = kProviderBytes / frameBytes;
    if (n == count) mEndState = more ? WAIT : END;
    if (count == 0) {
        buffer->raw = nullptr;
        buffer->frameCount = 0;
        return 0;
    }
    buffer->frameCount = n;
    buffer->raw = mProviderBuffer;
    mResamplerHolds = true;
    readAtPosition(mProviderBuffer, uint64_t(n) * frameBytes);
    mPosition += n;
    return 0;
}

void PcmInfoReader::releaseBuffer(Buffer* buffer) {
    buffer->frameCount = 0;
    mResamplerHolds = false;
}

int32_t PcmInfoReader::readClipList(char* buffer, uint32_t frames, uint64_t gotBefore,
                                    uint64_t fetchLimit, bool* halted) {
    const uint32_t outFrameBytes = 2 * static_cast<uint32_t>(mOutChannels);
    uint32_t got = 0;
    // A clip reader that hands out all it is asked for is read on until the
    // buffer is full, so the limit matters where the next clip would be
    // fetched, and after a clip reader that gave fewer frames than asked
    // while its clip goes on (a stereo item read as mono): asked again for
    // less than it can fold, it would give nothing.
    while (mPosition < mEndFrame && got < frames) {
        if (!mClipReader && gotBefore + got >= fetchLimit) {
            if (halted != nullptr) *halted = true;
            break;
        }
        if (!mClipReader) {
            PcmClipList clips;
            uint32_t count = 0;
            const uint32_t more =
                mInfo->clipList->getListBetweenFrame(clips, count, mPosition, mEndFrame, false, 1);
            if (clips.size() == 0) {
                mEndState = more ? WAIT : END;
                return static_cast<int32_t>(got);
            }
            const PcmClip first = clips.clips().front();
            mClipReader.reset(new PcmInfoReader(first.source));
            mClipReader->setOutputFormat(mOutSampleRate, mOutChannels);
            mClipReader->setResampleQuality(mResampleQuality);
            mClipReader->setPosition(first.start, first.end);
        }
        const uint32_t before = mClipReader->position();
        const uint32_t asked = frames - got;
        const int32_t n = mClipReader->read(buffer + got * outFrameBytes, asked * outFrameBytes);
        const uint32_t moved = mClipReader->position() - before;
        mPosition += moved;
        if (n > 0) got += static_cast<uint32_t>(n);
        const int32_t clipState = mClipReader->endState();
        if (clipState == MORE && n > 0 && static_cast<uint32_t>(n) < asked &&
            gotBefore + got >= fetchLimit) {
            if (halted != nullptr) *halted = true;
            break;
        }
        if (clipState == END) {
            mClipReader.reset();
            if (mPosition >= mEndFrame) mEndState = END;
        } else if (clipState == WAIT) {
            mEndState = WAIT;
            return static_cast<int32_t>(got);
        } else if (n <= 0 && moved == 0) {
            // A source whose file cannot be opened: its frames are skipped
            // rather than stalling the list.
            uint32_t left = 0;
            mClipReader->mInfo->availableFrames(left, mClipReader->position(),
                                                mClipReader->endFrame(), false);
            mClipReader.reset();
            if (left == 0) {
                mEndState = WAIT;
                return static_cast<int32_t>(got);
            }
            mPosition += left;
        }
    }
    return static_cast<int32_t>(got);
}

int32_t PcmInfoReader::reverseFill(char* buffer, uint32_t bytes) {
    std::memset(buffer, 0, bytes);
    const int32_t status = mInfo->status.load();
    if (status == CLIP_LIST && mInfo->clipList) return reverseFillList(buffer, bytes);
    if (status != DECODING && status != PCM_READY) return 0;
    const uint32_t frameBytes = mInfo->frameSize();
    const uint32_t n = bytes / frameBytes;
    if (mInfo->frames.load() < mPosition) return static_cast<int32_t>(n);
    const uint32_t skip = mPosition < n ? n - mPosition : 0;
    mPosition = mPosition < n ? 0 : mPosition - n;
    if (mFd == 0 && !ensureOpen()) return -1;
    mNeedSeek = true;
    readAtPosition(buffer + uint64_t(skip) * frameBytes, uint64_t(n - skip) * frameBytes);
    reverseFrames(buffer, n, frameBytes);
    // The file offset now sits after the frames read; the next forward read
    // must seek.
    mNeedSeek = true;
    return static_cast<int32_t>(n);
}

void PcmInfoReader::reverseFrames(char* buffer, uint32_t frames, uint32_t frameBytes) {
    char temp[8];
    for (uint32_t i = 0; i < frames / 2; ++i) {
        char* a = buffer + uint64_t(i) * frameBytes;
        char* b = buffer + uint64_t(frames - 1 - i) * frameBytes;
        std::memcpy(temp, a, frameBytes);
        std::memcpy(a, b, frameBytes);
        std::memcpy(b, temp, frameBytes);
    }
}

}  // namespace wv
