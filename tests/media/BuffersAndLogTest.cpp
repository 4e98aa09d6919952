// Buffer lending across threads and lifetimes, metadata typing, and the
// routing of FFmpeg's messages into the engine's log.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/log.h>
}

#include <thread>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "MediaDecode.h"
#include "TestSupport.h"
#include "platform/MediaService.h"
#include "platform/media/AvLogBridge.h"
#include "platform/media/MediaBuffer.h"

namespace {

TEST(MetaData, AKeyHasOneTypeAtATime) {
    wv::MetaData meta;
    meta.setInt32(wv::kKeySampleRate, 44100);
    int64_t wide = 0;
    int32_t narrow = 0;
    EXPECT_FALSE(meta.findInt64(wv::kKeySampleRate, &wide));
    EXPECT_TRUE(meta.findInt32(wv::kKeySampleRate, &narrow));
    EXPECT_EQ(narrow, 44100);
    meta.setInt64(wv::kKeySampleRate, int64_t(1) << 40);
    EXPECT_FALSE(meta.findInt32(wv::kKeySampleRate, &narrow));
    EXPECT_TRUE(meta.findInt64(wv::kKeySampleRate, &wide));
    EXPECT_EQ(wide, int64_t(1) << 40);
    EXPECT_TRUE(meta.remove(wv::kKeySampleRate));
    EXPECT_FALSE(meta.has(wv::kKeySampleRate));
}

TEST(MediaBufferGroup, BuffersAreReusedAndOutliveTheirGroup) {
    auto group = wv::MediaBufferGroup::create();
    wv::MediaBuffer* first = group->acquire(100);
    first->meta_data()->setInt64(wv::kKeyTime, 5);
    first->set_range(10, 1000);  // clamped into the buffer
    EXPECT_EQ(first->range_offset(), 10u);
    EXPECT_EQ(first->range_length(), first->size() - 10);
    first->release();
    wv::MediaBuffer* again = group->acquire(50);
    EXPECT_EQ(again, first);
    EXPECT_EQ(again->range_length(), 0u);
    EXPECT_FALSE(again->meta_data()->has(wv::kKeyTime));
    wv::MediaBuffer* second = group->acquire(10);
    EXPECT_NE(second, again);
    EXPECT_EQ(group->lentCount(), 2u);

    // The source goes away while its reader still holds buffers; they are
    // given back later on another thread.
    group.reset();
    std::thread reader([&] {
        again->release();
        second->release();
    });
    reader.join();
}

TEST(AvLogBridge, LevelsKeepANormalRunQuiet) {
    EXPECT_EQ(wv::logPriorityForAvLevel(AV_LOG_PANIC), WAVORYX_LOG_ERROR);
    EXPECT_EQ(wv::logPriorityForAvLevel(AV_LOG_FATAL), WAVORYX_LOG_ERROR);
    EXPECT_LT(wv::logPriorityForAvLevel(AV_LOG_ERROR), WAVORYX_LOG_WARN);
    EXPECT_LT(wv::logPriorityForAvLevel(AV_LOG_WARNING), WAVORYX_LOG_WARN);
    EXPECT_EQ(wv::logPriorityForAvLevel(AV_LOG_DEBUG), 0);
}

TEST(AvLogBridge, MessagesArriveWholeUnderTheMediaTag) {
    wv::MediaService::connect();
    {
        wvtest::LogCapture capture;  // verbose
        av_log(nullptr, AV_LOG_ERROR, "first half, ");
        av_log(nullptr, AV_LOG_ERROR, "second half\nnext line\n");
        EXPECT_TRUE(capture.contains("first half, second half", "MediaLayer"));
        EXPECT_TRUE(capture.contains("next line", "MediaLayer"));
    }
    // At the default level a damaged file says nothing from FFmpeg itself.
    wvtest::TempDir dir;
    ASSERT_TRUE(wvtest::writeToneWav(dir.file("t.wav"), 44100, 1, 1.0, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir.file("t.wav"), dir.file("t.mp3"), "-c:a libmp3lame"));
    std::vector<char> mp3 = wvtest::readFile(dir.file("t.mp3"));
    for (size_t i = mp3.size() / 3; i < mp3.size() / 2; ++i) mp3[i] = char(i * 31);
    wvtest::writeFile(dir.file("bad.mp3"), mp3.data(), mp3.size());
    {
        wvtest::LogCapture capture;
        wavoryx_set_log_level(WAVORYX_LOG_WARN);
        wvtest::DecodedAudio audio;
        wvtest::decodeWithMediaLayer(dir.file("t.mp3"), &audio);
        wvtest::decodeWithMediaLayer(dir.file("bad.mp3"), &audio);
        for (const auto& line : capture.lines()) {
            EXPECT_EQ(line.message.find(" @ 0x"), std::string::npos) << line.message;
        }
    }
    wv::MediaService::disconnect();
}

}  // namespace
