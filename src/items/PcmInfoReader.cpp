#define WV_LOG_TAG "PcmInfoReader"
#include "items/PcmInfoReader.h"

#include <cstring>

#include "base/Log.h"
#include "items/ClipListSource.h"
#include "items/ConvertedList.h"
#include "items/FileChain.h"
#include "items/Reverser.h"

namespace wv {

static_assert(PcmInfoReader::kWavHeaderBytes == PcmFileSource::kWavHeaderBytes,
              "one WAV header size");

PcmInfoReader::PcmInfoReader(SPcmInfo* info) : mInfo(info) {
    // A list stays a list and a file a file: the chain is built once.
    if (info->status.load() == CLIP_LIST) {
        mList = new ClipListSource(info, &PcmInfoReader::openClip);
        mHead.reset(mList);
        mReverser.reset(new Reverser(static_cast<PcmSource*>(this)));
    } else {
        FileChain* chain = new FileChain(info);
        mHead.reset(chain);
        mReverser.reset(new Reverser(chain->file()));
    }
    setPosition(0, kToEnd);
}

PcmInfoReader::~PcmInfoReader() = default;

std::unique_ptr<PcmSource> PcmInfoReader::openClip(SPcmInfo* source, const PcmFormat& format) {
    if (source->status.load() == CLIP_LIST) {
        // A nested list counts in its own frames: read at its own rate and
        // channels (its mix, and its dither, are its render's), then
        // converted and mapped as a file of that format would be.
        const int32_t rate = source->ownRate();
        const int32_t channels = source->ownChannels();
        if (format.rate > 0 && format.channels > 0 && rate > 0 && channels > 0 &&
            (rate != format.rate || channels != format.channels)) {
            std::unique_ptr<PcmInfoReader> own(new PcmInfoReader(source));
            own->setOutputFormat(rate, channels);
            own->setResampleQuality(format.quality);
            return std::unique_ptr<PcmSource>(
                new ConvertedList(std::move(own), rate, channels, format));
        }
    }
    std::unique_ptr<PcmInfoReader> reader(new PcmInfoReader(source));
    reader->setOutputFormat(format.rate, format.channels);
    reader->setResampleQuality(format.quality);
    return reader;
}

uint32_t PcmInfoReader::ditherSeed(uint32_t frame) { return ClipListSource::ditherSeed(frame); }

void PcmInfoReader::setPosition(uint32_t start, uint32_t end) {
    mEndFrame = end;
    mHead->setEnd(end);
    mHead->moveTo(start);
}

uint32_t PcmInfoReader::position() const { return mHead->position(); }

uint32_t PcmInfoReader::framesLeft() const {
    uint32_t left = 0;
    mInfo->availableFrames(left, position(), mEndFrame, false);
    return left;
}

void PcmInfoReader::seekMs(uint32_t ms) {
    // A clip's reader sits at the old place; the next read starts afresh.
    mHead->moveTo(static_cast<uint32_t>(
        uint64_t(ms) * static_cast<uint32_t>(mInfo->sampleRate.load()) / 1000));
}

uint64_t PcmInfoReader::getTimeMs() const {
    const uint64_t rate = static_cast<uint32_t>(mInfo->sampleRate.load());
    return rate == 0 ? 0 : uint64_t(position()) * 1000 / rate;
}

uint64_t PcmInfoReader::getAvailableTimeMs() const {
    const uint64_t rate = static_cast<uint32_t>(mInfo->sampleRate.load());
    return rate == 0 ? 0 : uint64_t(mInfo->frames.load()) * 1000 / rate;
}

bool PcmInfoReader::settleFormat() {
    if (mFormat.rate == 0) mFormat.rate = mInfo->sampleRate.load();
    if (mFormat.channels == 0) mFormat.channels = mInfo->channelCount.load();
    mHead->setFormat(mFormat);
    return mFormat.rate != 0 && mFormat.channels != 0;
}

uint32_t PcmInfoReader::beginRead(char* buffer, uint32_t bytes) {
    const bool known = settleFormat();
    std::memset(buffer, 0, bytes);
    mEndState = MORE;
    mHead->clearEndState();
    if (!known) {
        WV_LOGW("No sr and ch!");
        return 0;
    }
    return (bytes / static_cast<uint32_t>(mFormat.channels)) / 2;
}

int32_t PcmInfoReader::read(char* buffer, uint32_t bytes) {
    const uint32_t frames = beginRead(buffer, bytes);
    if (mFormat.rate == 0 || mFormat.channels == 0 || !mHead->readable()) return 0;
    // A list fetches clips only while less than half the buffer is filled.
    const uint32_t half = (bytes / static_cast<uint32_t>(mFormat.channels)) / 4;
    const int32_t n = mHead->read(buffer, frames, 0, half, nullptr);
    mEndState = mHead->endState();
    return n;
}

int32_t PcmInfoReader::readPiece(char* buffer, uint32_t bytes, uint64_t wholeBytes,
                                 uint64_t* gotSoFar, bool* done) {
    const uint32_t frames = beginRead(buffer, bytes);
    *done = true;
    if (mFormat.rate == 0 || mFormat.channels == 0 || !mHead->readable()) return 0;
    const uint64_t half = (wholeBytes / static_cast<uint32_t>(mFormat.channels)) / 4;
    bool halted = false;
    const int32_t n = mHead->read(buffer, frames, *gotSoFar, half, &halted);
    mEndState = mHead->endState();
    // A file that cannot be opened leaves the whole buffer silent.
    if (n < 0) return 0;
    // A converter giving out a file's tail past the range's end is not done.
    *done = halted || mEndState != MORE || (mList != nullptr && mHead->position() >= mEndFrame);
    *gotSoFar += static_cast<uint64_t>(n);
    return n;
}

int32_t PcmInfoReader::readFloat(float* out, uint32_t frames) {
    if (!settleFormat()) return 0;
    if (mList != nullptr && mInfo->clipList) {
        const int32_t n = mList->readFloat(out, frames);
        mEndState = mList->endState();
        return n;
    }
    // Other items: their 16-bit frames, read into the first half of `out`
    // and widened from the last sample down so none is overwritten unread.
    const uint32_t channels = static_cast<uint32_t>(mFormat.channels);
    char* raw = reinterpret_cast<char*>(out);
    const int32_t n = read(raw, frames * channels * 2);
    if (n < 0) return n;
    for (size_t i = size_t(frames) * channels; i-- > 0;) {
        int16_t sample;
        std::memcpy(&sample, raw + i * 2, sizeof sample);
        const float value = static_cast<float>(sample) / 32768.0f;
        std::memcpy(raw + i * sizeof(float), &value, sizeof value);
    }
    return n;
}

int32_t PcmInfoReader::reverseFill(char* buffer, uint32_t bytes) {
    std::memset(buffer, 0, bytes);
    const int32_t status = mInfo->status.load();
    const bool list = status == CLIP_LIST && mInfo->clipList;
    if (!list && status != DECODING && status != PCM_READY) return 0;
    const uint32_t frameBytes = mInfo->frameSize();
    const int32_t n = mReverser->fill(buffer, bytes / frameBytes, frameBytes);
    if (list && n >= 0) mEndState = MORE;
    return n;
}

}  // namespace wv
