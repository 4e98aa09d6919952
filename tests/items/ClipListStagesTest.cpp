// A list read through its noise reduction and tempo: the same bytes in any
// blocks, the stretched length in every walk, reads from a later place
// that end where a straight read ends and soon agree with it, and the
// plain list back once both are off.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "TestSupport.h"
#include "items/PcmInfoReader.h"
#include "items/SPcmInfo.h"

namespace {

using namespace wv;
using Samples = std::vector<int16_t>;

constexpr int kRate = 16000;

class ClipListStagesTest : public ::testing::Test {
protected:
    void SetUp() override {
        // 2 s of a mono 300 Hz tone over a little noise.
        Samples samples(2 * kRate);
        uint32_t seed = 1;
        for (size_t k = 0; k < samples.size(); ++k) {
            seed = seed * 1664525u + 1013904223u;
            const double noise = double(int32_t(seed >> 16) - 32768) / 32768.0;
            samples[k] = int16_t(std::lrint(12000 * std::sin(2 * M_PI * 300 * double(k) / kRate) + 300 * noise));
        }
        const std::string path = dir.file("a.pcm");
        wvtest::writeFile(path, samples.data(), samples.size() * 2);
        source = addItem(PCM_READY, uint32_t(samples.size()));
        source->pcmPath.set(path);
        list = addItem(CLIP_LIST, 0);
        for (uint32_t start : {0u, 8000u}) {
            PcmClip clip;
            clip.source = source;
            clip.start = start;
            clip.end = start + 16000;
            list->clipList->add(clip);
        }
    }
    SPcmInfo* addItem(pcm_status_t status, uint32_t frames) {
        items.emplace_back(new SPcmInfo(status));
        SPcmInfo* item = items.back().get();
        item->id = static_cast<pcm_id_t>(items.size());
        item->sampleRate = kRate;
        item->channelCount = 1;
        item->frames = frames;
        item->totalFrames = frames;
        return item;
    }
    // The list from `start` to its end in reads of `block` frames.
    Samples read(uint32_t block, uint32_t start = 0) {
        PcmInfoReader reader(list);
        reader.setOutputFormat(kRate, 1);
        reader.setPosition(start, 0xFFFFFFFF);
        Samples out;
        std::vector<char> buffer(size_t(block) * 2);
        for (int guard = 0; guard < 100000; ++guard) {
            const int32_t n = reader.read(buffer.data(), uint32_t(buffer.size()));
            if (n > 0) {
                const size_t at = out.size();
                out.resize(at + size_t(n));
                std::memcpy(out.data() + at, buffer.data(), size_t(n) * 2);
            }
            if (reader.endState() != PcmInfoReader::MORE) break;
        }
        return out;
    }

    wvtest::TempDir dir;
    std::vector<std::unique_ptr<SPcmInfo>> items;
    SPcmInfo* source = nullptr;
    SPcmInfo* list = nullptr;
};

TEST_F(ClipListStagesTest, AnyBlocksGiveTheSameBytesOfTheStretchedLength) {
    const Samples plain = read(1000);
    ASSERT_EQ(plain.size(), 32000u);
    list->clipList->setDenoise(12);
    list->clipList->setTempo(125);
    EXPECT_TRUE(list->clipList->hasEffects());
    const Samples whole = read(4096);
    ASSERT_EQ(whole.size(), 25600u);
    for (uint32_t block : {1u, 333u, 5000u, 40000u}) EXPECT_EQ(read(block), whole) << block;
    EXPECT_EQ(list->frame2duration(0, 0xFFFFFFFF), 1600u);
    uint32_t ms = 500;  // 625 ms of the first clip
    EXPECT_EQ(list->duration2frame(ms, 0, 0xFFFFFFFF), 8000u);
    EXPECT_EQ(ms, 0u);
    // A list holding it hears it stretched.
    SPcmInfo* outer = addItem(CLIP_LIST, 0);
    PcmClip inner;
    inner.source = list;
    inner.start = 0;
    inner.end = 0xFFFFFFFF;
    outer->clipList->add(inner);
    uint32_t counted = 0;
    list->availableFrames(counted, 0, 0xFFFFFFFF, true);
    EXPECT_EQ(counted, 25600u);
    outer->clipList->setListGain(-600);
    std::swap(list, outer);
    const Samples held = read(4096);
    std::swap(list, outer);
    ASSERT_EQ(held.size(), whole.size());
    for (size_t k = 0; k < held.size(); ++k) ASSERT_NEAR(held[k], whole[k] * std::pow(10.0, -0.3), 2.0) << k;
    // Off again: the clips' own samples.
    list->clipList->setDenoise(0);
    list->clipList->setTempo(100);
    EXPECT_FALSE(list->clipList->hasEffects());
    EXPECT_EQ(read(1000), plain);
    EXPECT_EQ(list->frame2duration(0, 0xFFFFFFFF), 2000u);
}

TEST_F(ClipListStagesTest, AReadFromLaterEndsWithTheStraightReadAndSoonAgrees) {
    for (int percent : {100, 80, 150}) {
        list->clipList->setDenoise(percent == 100 ? 20 : 0);
        list->clipList->setTempo(percent);
        const Samples whole = read(2048);
        for (uint32_t start : {1u, 7000u, 20000u}) {
            if (start >= whole.size()) continue;
            const Samples later = read(2048, start);
            ASSERT_EQ(later.size(), whole.size() - start) << percent << "% from " << start;
            if (later.size() < 4000) continue;
            // After a settling stretch, the same signal within a small error
            // (denoised), or the same level (stretched: the pieces of a
            // time stretch started elsewhere join at other places).
            double error = 0, signal = 0, power = 0;
            for (size_t k = 2000; k < later.size(); ++k) {
                error += std::pow(double(later[k]) - whole[start + k], 2);
                signal += double(whole[start + k]) * whole[start + k];
                power += double(later[k]) * later[k];
            }
            if (percent == 100) {
                EXPECT_LT(10 * std::log10(error / signal + 1e-12), -20.0) << "from " << start;
            } else {
                EXPECT_NEAR(10 * std::log10(power / signal), 0.0, 1.0) << percent << "% from " << start;
            }
        }
    }
}

}  // namespace
