// The ID3v2.4 tag of MP3 outputs, read back field by field: what a reader
// that follows the frame layout finds, and that the chapters' ends can be
// written again over a tag written before the length was known.
#include "codec/Id3Tag.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using wv::OutputTags;

uint32_t syncsafe(const uint8_t* p) { return (p[0] << 21) | (p[1] << 14) | (p[2] << 7) | p[3]; }
uint32_t bigEndian(const uint8_t* p) { return (uint32_t(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3]; }

struct Frame {
    std::string id;
    std::vector<uint8_t> body;
};

// The frames of a tag's body (or of a CHAP frame's sub-frames).
std::vector<Frame> framesOf(const uint8_t* p, size_t size) {
    std::vector<Frame> frames;
    size_t at = 0;
    while (at + 10 <= size) {
        Frame frame;
        frame.id.assign(reinterpret_cast<const char*>(p + at), 4);
        const uint32_t length = syncsafe(p + at + 4);
        EXPECT_LE(at + 10 + length, size) << frame.id;
        frame.body.assign(p + at + 10, p + at + 10 + length);
        frames.push_back(frame);
        at += 10 + length;
    }
    EXPECT_EQ(at, size);
    return frames;
}

OutputTags sample() {
    OutputTags tags;
    tags.tags = {{"title", "Caf\xC3\xA9"}, {"artist", "Ann"}, {"comment", "note"}, {"track", "3"}};
    tags.chapters = {{0, "Intro"}, {1500000, "\xC3\x9C" "ber"}, {4000400, "End"}};
    tags.cover = std::make_shared<std::vector<uint8_t>>(std::vector<uint8_t>{0xFF, 0xD8, 0xFF, 1, 2});
    tags.coverMime = "image/jpeg";
    return tags;
}

TEST(Id3TagTest, NothingToCarryIsNoTag) { EXPECT_TRUE(wv::id3v2Tag(OutputTags(), 1000).empty()); }

TEST(Id3TagTest, FramesAsReadersFindThem) {
    const std::vector<uint8_t> tag = wv::id3v2Tag(sample(), 6000);
    ASSERT_GT(tag.size(), 10u);
    EXPECT_EQ(std::string(tag.begin(), tag.begin() + 5), std::string("ID3\x04\x00", 5));
    EXPECT_EQ(tag[5], 0);
    EXPECT_EQ(syncsafe(&tag[6]), tag.size() - 10);
    const std::vector<Frame> frames = framesOf(&tag[10], tag.size() - 10);
    std::map<std::string, std::vector<const Frame*>> byId;
    for (const Frame& f : frames) byId[f.id].push_back(&f);

    ASSERT_EQ(byId["TIT2"].size(), 1u);
    EXPECT_EQ(byId["TIT2"][0]->body, (std::vector<uint8_t>{3, 'C', 'a', 'f', 0xC3, 0xA9}));
    EXPECT_EQ(byId["TRCK"][0]->body, (std::vector<uint8_t>{3, '3'}));
    EXPECT_EQ(byId["COMM"][0]->body, (std::vector<uint8_t>{3, 'e', 'n', 'g', 0, 'n', 'o', 't', 'e'}));
    const std::vector<uint8_t>& apic = byId["APIC"][0]->body;
    EXPECT_EQ(std::string(apic.begin() + 1, apic.begin() + 12), std::string("image/jpeg\0", 11));
    EXPECT_EQ(apic[12], 3);  // front cover
    EXPECT_EQ(std::vector<uint8_t>(apic.end() - 5, apic.end()), (std::vector<uint8_t>{0xFF, 0xD8, 0xFF, 1, 2}));

    // The table of contents: top level, ordered, naming each chapter.
    ASSERT_EQ(byId["CTOC"].size(), 1u);
    const std::vector<uint8_t>& toc = byId["CTOC"][0]->body;
    EXPECT_EQ(std::string(toc.begin(), toc.end()), std::string("toc\0\x03\x03" "chp0\0chp1\0chp2\0", 21));

    ASSERT_EQ(byId["CHAP"].size(), 3u);
    const uint32_t starts[] = {0, 1500, 4000}, ends[] = {1500, 4000, 6000};
    const char* titles[] = {"Intro", "\xC3\x9C" "ber", "End"};
    for (size_t i = 0; i < 3; ++i) {
        const std::vector<uint8_t>& chap = byId["CHAP"][i]->body;
        const std::string id = "chp" + std::to_string(i);
        ASSERT_EQ(std::string(chap.begin(), chap.begin() + 5), id + std::string(1, '\0'));
        EXPECT_EQ(bigEndian(&chap[5]), starts[i]);
        EXPECT_EQ(bigEndian(&chap[9]), ends[i]);
        EXPECT_EQ(bigEndian(&chap[13]), 0xFFFFFFFFu);
        EXPECT_EQ(bigEndian(&chap[17]), 0xFFFFFFFFu);
        const std::vector<Frame> sub = framesOf(&chap[21], chap.size() - 21);
        ASSERT_EQ(sub.size(), 1u);
        EXPECT_EQ(sub[0].id, "TIT2");
        EXPECT_EQ(std::string(sub[0].body.begin() + 1, sub[0].body.end()), titles[i]);
    }
}

TEST(Id3TagTest, LengthChangesTimesOnlyNeverTheSize) {
    const std::vector<uint8_t> early = wv::id3v2Tag(sample(), 0);
    const std::vector<uint8_t> late = wv::id3v2Tag(sample(), 123456789);
    ASSERT_EQ(early.size(), late.size());
    size_t differing = 0;
    for (size_t i = 0; i < early.size(); ++i) differing += early[i] != late[i];
    EXPECT_GT(differing, 0u);
    EXPECT_LE(differing, 4u);  // the last chapter's end only
}

}  // namespace
