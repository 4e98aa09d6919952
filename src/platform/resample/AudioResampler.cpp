#define WV_LOG_TAG "AudioResampler"
#include "platform/resample/AudioResampler.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <mutex>

#include "base/Log.h"
#include "base/Properties.h"
#include "platform/resample/AudioResamplerOrder1.h"
#include "platform/resample/AudioResamplerSoxr.h"

namespace wv {
namespace {

// Process-wide load bookkeeping shared by every resampler.
std::mutex gResamplerLoadLock;
uint32_t gResamplerLoadMHz = 0;

pthread_once_t gDefaultQualityOnce = PTHREAD_ONCE_INIT;
std::atomic<int32_t> gDefaultQuality{AudioResampler::SRC_DEFAULT};

const uint32_t kQualityMHzTable[] = {6, 20, 34};
// Stereo 44.1 -> 48 kHz cost of the band-limited kinds: the resampler bench
// measures about 470 and 310 times real time on a 3 GHz core (6 and 10 MHz),
// doubled for slower machines and wider ratios.
constexpr uint32_t kHqHighMHz = 10;
constexpr uint32_t kHqVeryHighMHz = 20;

void readDefaultQualityOnce() { AudioResampler::init_routine(); }

}  // namespace

bool AudioResampler::qualityIsSupported(src_quality quality) {
    return static_cast<uint32_t>(quality) <= SRC_HQ_VERY_HIGH;
}

uint32_t AudioResampler::qualityMHz(src_quality quality) {
    switch (quality) {
        case SRC_MEDIUM:
        case SRC_HIGH:
        case SRC_VERY_HIGH:
            return kQualityMHzTable[quality - SRC_MEDIUM];
        case SRC_HQ_HIGH:
            return kHqHighMHz;
        case SRC_HQ_VERY_HIGH:
            return kHqVeryHighMHz;
        default:
            return 3;
    }
}

void AudioResampler::init_routine() {
    char value[kPropertyValueMax];
    if (property_get("af.resampler.quality", value, nullptr) <= 0) return;
    char* end = nullptr;
    errno = 0;
    const unsigned long number = std::strtoul(value, &end, 0);
    const bool notANumber = end == value || *end != '\0';
    // Anything out of range, including what strtoul saturated, means default.
    if (notANumber || number > SRC_HQ_VERY_HIGH) {
        logPropertyRefused("af.resampler.quality", value, notANumber, SRC_DEFAULT, SRC_HQ_VERY_HIGH,
                           "the default");
        return;
    }
    gDefaultQuality.store(static_cast<int32_t>(number));
}

uint32_t AudioResampler::loadMHz() {
    std::lock_guard<std::mutex> guard(gResamplerLoadLock);
    return gResamplerLoadMHz;
}

void AudioResampler::resetDefaultQualityForTesting() {
    gDefaultQualityOnce = PTHREAD_ONCE_INIT;
    gDefaultQuality.store(SRC_DEFAULT);
}

AudioResampler::src_quality AudioResampler::defaultQuality() {
    const int ok = pthread_once(&gDefaultQualityOnce, readDefaultQualityOnce);
    if (ok != 0) {
        WV_LOGE("%s pthread_once failed: %d",
                "static AudioResampler* AudioResampler::create(int, int, int32_t, "
                "AudioResampler::src_quality)",
                ok);
    }
    return static_cast<src_quality>(gDefaultQuality.load());
}

AudioResampler* AudioResampler::create(int bitDepth, int inChannelCount, int32_t sampleRate,
                                       src_quality quality) {
    bool atFinalQuality;
    if (quality == SRC_DEFAULT) {
        quality = defaultQuality();
        atFinalQuality = false;
    } else {
        atFinalQuality = true;
    }

    uint32_t charge;
    {
        std::lock_guard<std::mutex> guard(gResamplerLoadLock);
        for (;;) {
            charge = qualityMHz(quality);
            const uint32_t newMHz = gResamplerLoadMHz + charge;
            if (quality < SRC_MEDIUM || quality > SRC_VERY_HIGH) {
                gResamplerLoadMHz = newMHz;
                break;
            }
            if (newMHz <= kMaxResamplerMHz || atFinalQuality) {
                gResamplerLoadMHz = newMHz;
                break;
            }
            // A default quality that does not fit steps down until it does.
            quality = static_cast<src_quality>(quality - 1);
            atFinalQuality = false;
        }
    }

    AudioResampler* resampler;
    if (makesExactLength(quality)) {
        resampler = new AudioResamplerSoxr(bitDepth, inChannelCount, sampleRate, quality);
    } else {
        resampler = new AudioResamplerOrder1(bitDepth, inChannelCount, sampleRate, SRC_LOW);
    }
    resampler->mChargedMHz = charge;
    return resampler;
}

AudioResampler::AudioResampler(int bitDepth, int inChannelCount, int32_t sampleRate,
                               src_quality quality)
    : mBitDepth(bitDepth), mChannelCount(inChannelCount), mSampleRate(sampleRate),
      mInSampleRate(sampleRate), mInputIndex(0), mOutputFrames(0), mPhaseIncrement(0),
      mPhaseFraction(0), mLocalTimeFreq(0), mPTS(AudioBufferProvider::kInvalidPts),
      mQuality(quality) {
    mBuffer.raw = nullptr;
    mBuffer.frameCount = 0;
    mVolume[0] = mVolume[1] = 0;
    if (bitDepth != 16 || inChannelCount < 1 || inChannelCount > 2) {
        WV_LOGE("Unsupported sample format, %d bits, %d channels", bitDepth, inChannelCount);
    }
    if (sampleRate < 1) {
        WV_LOGE("Unsupported sample rate %d Hz", sampleRate);
    }
}

AudioResampler::~AudioResampler() {
    std::lock_guard<std::mutex> guard(gResamplerLoadLock);
    const int32_t newMHz =
        static_cast<int32_t>(gResamplerLoadMHz) - static_cast<int32_t>(mChargedMHz);
    if (newMHz < 0) {
        logPrint(WAVORYX_LOG_FATAL, WV_LOG_TAG, "negative resampler load %d MHz", newMHz);
        std::abort();
    }
    gResamplerLoadMHz = static_cast<uint32_t>(newMHz);
}

void AudioResampler::setSampleRate(int32_t inSampleRate) {
    mInSampleRate = inSampleRate;
    const double increment = mSampleRate > 0 ? inSampleRate * 1073741824.0 / mSampleRate : 0.0;
    if (!(increment >= 0.0)) {
        WV_LOGE("Unsupported input rate %d Hz", inSampleRate);
        mPhaseIncrement = 0;
    } else if (increment >= 4294967296.0) {
        WV_LOGE("Input rate %d Hz is too high for output rate %d Hz", inSampleRate, mSampleRate);
        mPhaseIncrement = 0xFFFFFFFFu;
    } else {
        mPhaseIncrement = static_cast<uint32_t>(increment);
    }
}

void AudioResampler::setVolume(int16_t left, int16_t right) {
    mVolume[0] = left;
    mVolume[1] = right;
}

void AudioResampler::setLocalTimeFreq(uint64_t freq) { mLocalTimeFreq = freq; }

void AudioResampler::setPTS(int64_t pts) { mPTS = pts; }

void AudioResampler::reset() {
    mInputIndex = 0;
    mOutputFrames = 0;
    mPhaseFraction = 0;
    mBuffer.frameCount = 0;
}

size_t AudioResampler::getInputIndex() const { return mInputIndex; }

size_t AudioResampler::getOutputFrames() const { return mOutputFrames; }

int64_t AudioResampler::calculateOutputPTS(int outputFrameIndex) {
    if (mPTS == AudioBufferProvider::kInvalidPts || mSampleRate <= 0) return mPTS;
    const int64_t ticks =
        static_cast<int64_t>(outputFrameIndex) * static_cast<int64_t>(mLocalTimeFreq);
    return mPTS +
           static_cast<int64_t>(static_cast<uint64_t>(ticks) / static_cast<uint64_t>(mSampleRate));
}

}  // namespace wv
