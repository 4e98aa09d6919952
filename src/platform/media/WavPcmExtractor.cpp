#define WV_LOG_TAG "MediaLayer"
#include "platform/media/WavPcmExtractor.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "base/Log.h"
#include "platform/media/AvDemuxer.h"

namespace wv {
namespace {

constexpr int64_t kHeaderBytes = 44;
constexpr int64_t kFramesPerBuffer = 4096;

uint32_t le32(const uint8_t* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
uint16_t le16(const uint8_t* p) { return uint16_t(p[0] | (p[1] << 8)); }

class WavPcmTrack : public MediaSource {
public:
    // Frames [first, end) of the data, cut at its end.
    WavPcmTrack(std::shared_ptr<DataSource> source, const WavPcmLayout& layout,
                std::shared_ptr<MetaData> format, int64_t first, int64_t end)
        : mSource(std::move(source)), mLayout(layout), mFormat(std::move(format)),
          mFirst(first < 0 ? 0 : first), mEnd(std::min(end, layout.frames())) {}

    status_t start(MetaData*) override {
        std::lock_guard<std::mutex> guard(mLock);
        if (mStarted) return INVALID_OPERATION;
        mGroup = MediaBufferGroup::create();
        mNextFrame = mFirst;
        mStarted = true;
        return OK;
    }

    status_t stop() override {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mStarted) return INVALID_OPERATION;
        mGroup.reset();
        mStarted = false;
        return OK;
    }

    std::shared_ptr<MetaData> getFormat() override { return mFormat; }

    status_t read(MediaBuffer** out, const ReadOptions* options) override {
        *out = nullptr;
        std::lock_guard<std::mutex> guard(mLock);
        if (!mStarted) return NO_INIT;
        int64_t seekUs;
        ReadOptions::SeekMode mode;
        if (options != nullptr && options->getSeekTo(&seekUs, &mode)) seekLocked(seekUs);

        const int64_t totalFrames = mEnd;
        if (mNextFrame >= totalFrames) return ERROR_END_OF_STREAM;
        const int64_t frameBytes = 2 * mLayout.channels;
        int64_t frames = totalFrames - mNextFrame;
        if (frames > kFramesPerBuffer) frames = kFramesPerBuffer;

        MediaBuffer* buffer = mGroup->acquire(static_cast<size_t>(frames * frameBytes));
        const ssize_t got =
            mSource->readAt(mLayout.dataOffset + mNextFrame * frameBytes, buffer->data(),
                            static_cast<size_t>(frames * frameBytes));
        // A file cut short after it was opened ends the stream where it ends.
        const int64_t gotFrames = got > 0 ? got / frameBytes : 0;
        if (gotFrames == 0) {
            buffer->release();
            return got < 0 ? ERROR_IO : ERROR_END_OF_STREAM;
        }
        buffer->set_range(0, static_cast<size_t>(gotFrames * frameBytes));
        buffer->meta_data()->setInt64(kKeyTime, mNextFrame * 1000000 / mLayout.sampleRate);
        mNextFrame += gotFrames;
        *out = buffer;
        return OK;
    }

private:
    void seekLocked(int64_t timeUs) {
        if (timeUs < 0) timeUs = 0;
        // Every frame is a sync point: take the nearest one.
        int64_t frame = (timeUs * mLayout.sampleRate + 500000) / 1000000;
        if (frame > mEnd) frame = mEnd;
        mNextFrame = frame < mFirst ? mFirst : frame;
    }

    const std::shared_ptr<DataSource> mSource;
    const WavPcmLayout mLayout;
    const std::shared_ptr<MetaData> mFormat;
    const int64_t mFirst;
    const int64_t mEnd;
    std::mutex mLock;
    std::shared_ptr<MediaBufferGroup> mGroup;
    int64_t mNextFrame = 0;
    bool mStarted = false;
};

}  // namespace

bool WavPcmExtractor::parseLayout(DataSource& source, WavPcmLayout* layout) {
    uint8_t h[kHeaderBytes];
    if (source.readAt(0, h, sizeof h) != static_cast<ssize_t>(sizeof h)) return false;
    if (std::memcmp(h, "RIFF", 4) != 0 || std::memcmp(h + 8, "WAVE", 4) != 0 ||
        std::memcmp(h + 12, "fmt ", 4) != 0 || le32(h + 16) != 16 ||
        std::memcmp(h + 36, "data", 4) != 0) {
        return false;
    }
    const uint16_t formatTag = le16(h + 20);
    const uint16_t channels = le16(h + 22);
    const uint32_t rate = le32(h + 24);
    const uint16_t blockAlign = le16(h + 32);
    const uint16_t bits = le16(h + 34);
    if (formatTag != 1 || bits != 16 || (channels != 1 && channels != 2) ||
        blockAlign != channels * 2 || rate == 0 || rate > 0x7fffffffu) {
        return false;
    }
    int64_t fileSize = 0;
    if (source.getSize(&fileSize) != OK) return false;
    const int64_t available = fileSize > kHeaderBytes ? fileSize - kHeaderBytes : 0;
    const uint32_t stated = le32(h + 40);
    int64_t dataBytes = stated;
    if (stated == 0 || stated == 0xFFFFFFFFu || dataBytes > available || available > 0xFFFFFFFFll) {
        dataBytes = available;
    }
    layout->sampleRate = static_cast<int32_t>(rate);
    layout->channels = channels;
    layout->dataOffset = kHeaderBytes;
    layout->dataBytes = dataBytes - dataBytes % blockAlign;
    return true;
}

std::shared_ptr<WavPcmExtractor> WavPcmExtractor::Create(
    const std::shared_ptr<DataSource>& source) {
    WavPcmLayout layout;
    if (!parseLayout(*source, &layout)) return nullptr;
    return std::shared_ptr<WavPcmExtractor>(new WavPcmExtractor(source, layout));
}

WavPcmExtractor::WavPcmExtractor(std::shared_ptr<DataSource> source, const WavPcmLayout& layout)
    : mSource(std::move(source)), mLayout(layout), mMeta(std::make_shared<MetaData>()) {
    mMeta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);
    mMeta->setInt32(kKeySampleRate, layout.sampleRate);
    mMeta->setInt32(kKeyChannelCount, layout.channels);
    mMeta->setInt32(kKeySourceChannelCount, layout.channels);
    mMeta->setInt32(kKeyChannelMask, channelMaskForCount(layout.channels));
    mMeta->setInt32(kKeyPcmEncoding, 1);
    mMeta->setCString(kKeyContainerName, "wav");
    mMeta->setCString(kKeyCodecName, "pcm_s16le");
    mMeta->setCString(kKeyChannelLayout, layout.channels == 1 ? "mono" : "stereo");
    mMeta->setInt32(kKeyBitsPerSample, 16);
    // A header may state any rate up to 2^31 - 1: the product needs 64 bits.
    const int64_t bitRate = int64_t(layout.sampleRate) * layout.channels * 16;
    mMeta->setInt32(kKeyBitRate, static_cast<int32_t>(std::min<int64_t>(bitRate, INT32_MAX)));
    mMeta->setInt64(kKeyDuration, layout.durationUs());
    // The data size counts whole frames: a duration in us would round some away.
    mMeta->setInt64(kKeyFrameCount, layout.frames());
    readTrailingTags();
}

void WavPcmExtractor::readTrailingTags() {
    int64_t fileSize = 0;
    if (mSource->getSize(&fileSize) != OK) return;
    // Tag chunks (LIST/INFO, "id3 ") after the samples need a chunk header
    // at least; a plain WAV never opens the general demuxer.
    if (fileSize - (mLayout.dataOffset + mLayout.dataBytes) < 8) return;
    std::shared_ptr<AvDemuxer> demuxer = AvDemuxer::open(mSource);
    if (!demuxer || demuxer->streamCount() < 1) return;
    for (const TagKey& tag : kTagKeys) {
        const char* value = demuxer->metadataValue(0, tag.name);
        if (value != nullptr && value[0] != '\0') mMeta->setCString(tag.key, value);
    }
}

std::shared_ptr<MediaSource> WavPcmExtractor::getTrack(size_t index) {
    if (index != 0) return nullptr;
    return std::make_shared<WavPcmTrack>(mSource, mLayout, mMeta, 0, mLayout.frames());
}

std::shared_ptr<MediaSource> WavPcmExtractor::getTrackFrames(int64_t first, int64_t end) {
    return std::make_shared<WavPcmTrack>(mSource, mLayout, mMeta, first, end);
}

std::shared_ptr<MetaData> WavPcmExtractor::getTrackMetaData(size_t index, uint32_t) {
    return index == 0 ? std::make_shared<MetaData>(*mMeta) : nullptr;
}

}  // namespace wv
