#include "platform/audio/FrameQueue.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using wv::FrameQueue;

std::vector<int16_t> frames(int16_t first, size_t count) {
    std::vector<int16_t> out;
    for (size_t i = 0; i < count; ++i) {
        out.push_back(int16_t(first + i));
        out.push_back(int16_t(-(first + int16_t(i))));
    }
    return out;
}

TEST(FrameQueue, LendsContiguousPiecesAcrossTheWrap) {
    FrameQueue queue(5, 2);
    EXPECT_EQ(queue.write(frames(0, 4).data(), 4), 4u);
    EXPECT_EQ(queue.discard(3), 3u);
    // Frames 3, 10, 11, 12 with 11 at the wrap: write takes only the room.
    EXPECT_EQ(queue.write(frames(10, 9).data(), 9), 4u);
    EXPECT_EQ(queue.used(), 5u);

    wv::AudioBufferProvider::Buffer buffer;
    buffer.frameCount = 100;
    ASSERT_EQ(queue.getNextBuffer(&buffer), 0);
    ASSERT_EQ(buffer.frameCount, 2u);  // up to the end of the ring
    EXPECT_EQ(buffer.i16[0], 3);
    EXPECT_EQ(buffer.i16[2], 10);
    EXPECT_EQ(buffer.i16[3], -10);

    // Lent frames are neither room nor discardable.
    EXPECT_EQ(queue.room(), 0u);
    EXPECT_EQ(queue.discard(1), 0u);
    wv::AudioBufferProvider::Buffer second;
    second.frameCount = 1;
    EXPECT_NE(queue.getNextBuffer(&second), 0);
    EXPECT_EQ(second.raw, nullptr);

    queue.releaseBuffer(&buffer);
    EXPECT_EQ(buffer.frameCount, 0u);
    EXPECT_EQ(queue.used(), 3u);
    buffer.frameCount = 100;
    ASSERT_EQ(queue.getNextBuffer(&buffer), 0);
    ASSERT_EQ(buffer.frameCount, 3u);
    EXPECT_EQ(buffer.i16[0], 11);
    EXPECT_EQ(buffer.i16[4], 13);
    queue.releaseBuffer(&buffer);
    EXPECT_EQ(queue.consumed(), 8u);
}

TEST(FrameQueue, ClearForgetsALentBuffer) {
    FrameQueue queue(8, 1);
    const std::vector<int16_t> data = {1, 2, 3, 4};
    queue.write(data.data(), 4);
    wv::AudioBufferProvider::Buffer buffer;
    buffer.frameCount = 4;
    ASSERT_EQ(queue.getNextBuffer(&buffer), 0);
    queue.clear();
    queue.write(data.data(), 2);
    // The stale release must not eat the new frames.
    queue.releaseBuffer(&buffer);
    EXPECT_EQ(queue.used(), 2u);
    EXPECT_EQ(queue.consumed(), 0u);
}

}  // namespace
