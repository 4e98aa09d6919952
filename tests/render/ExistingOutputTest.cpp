// A render whose output (and ".wave" file) already exist: the old files stay
// byte for byte until the render is complete, whatever ends it otherwise,
// and the list can be played while it renders. LAME's last frames count
// like every other write.
#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "RenderFixture.h"
#include "SmallFilesystem.h"
#include "codec/AudioEncoder.h"

namespace {

using wvtest::namesIn;

using rendertest::patternSamples;
using rendertest::waitUntil;
using wvtest::Event;

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

class ExistingOutput : public rendertest::RenderTest {
protected:
    // An existing output and waveform file of `name` in `folder`.
    std::string plantOutput(const std::string& folder, const std::string& name) {
        const std::string out = folder + "/" + name;
        wvtest::writeFile(out, "the user's own file", 19);
        wvtest::writeFile(out + ".wave", "old points", 10);
        old = wvtest::readFile(out);
        oldWave = wvtest::readFile(out + ".wave");
        return out;
    }
    void expectUntouched(const std::string& out) {
        EXPECT_EQ(wvtest::readFile(out), old) << out;
        EXPECT_EQ(wvtest::readFile(out + ".wave"), oldWave) << out;
    }
    // A render of `frames` frames from a source still loading, which the
    // render has read up to its end and now waits on.
    uint32_t renderWaiting(wv::SPcmInfo** source, uint32_t frames, const std::string& out, encode_type type) {
        *source = addPcmItem(patternSamples(frames, 2, 9), 44100, 2, wv::DECODING);
        (*source)->totalFrames = frames + 10000;  // more to come, as far as the render knows
        const uint32_t list = newList({{*source, 0, frames + 10000}});
        EXPECT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
        EXPECT_EQ(engine->process(list), 0);
        // Counted at the file's rate: Opus files are 48 kHz.
        const uint64_t rate = type == ENCODE_OPUS ? 48000 : 44100;
        const int32_t counted = int32_t((uint64_t(frames) * rate + 22050) / 44100);
        EXPECT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) == counted; }));
        // The step that counted the frames finishes writing them.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return list;
    }
    // The source's load ends: the render's next step finishes the file.
    void finishLoading(wv::SPcmInfo* source, uint32_t frames) {
        source->totalFrames = frames;
        source->status = wv::PCM_READY;
    }

    wvtest::TempDir outputs;
    std::vector<char> old;
    std::vector<char> oldWave;
};

TEST_F(ExistingOutput, CancelledOrDestroyedRendersLeaveExistingAndAbsentTargetsAsTheyWere) {
    std::set<std::string> planted;
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3, ENCODE_FLAC, ENCODE_OPUS, ENCODE_AAC, ENCODE_VORBIS}) {
        const std::string suffix = wv::formatSuffix(wv::EncodeFormat(type));
        const std::string out = plantOutput(outputs.path(), "a" + suffix);
        planted.insert({baseName(out), baseName(out) + ".wave"});
        const std::string absent = outputs.file("new" + suffix);
        wv::SPcmInfo* source = nullptr;
        const uint32_t list = renderWaiting(&source, 12000, out, type);
        wv::SPcmInfo* second = nullptr;
        const uint32_t other = renderWaiting(&second, 12000, absent, type);
        expectUntouched(out);  // mid-way, the old file is still whole
        ASSERT_EQ(engine->cancelProcess(list), 0);
        ASSERT_EQ(engine->cancelProcess(other), 0);
        EXPECT_EQ(waitForEnding(list).code, wv::EVT_RENDER_CANCELLED);
        EXPECT_EQ(waitForEnding(other).code, wv::EVT_RENDER_CANCELLED);
        expectUntouched(out);
        EXPECT_EQ(namesIn(outputs.path()), planted) << "no output, no .part file";
    }
    // An engine destroyed mid-render is a render that did not finish.
    const std::string out = plantOutput(outputs.path(), "b.wav");
    wv::SPcmInfo* source = nullptr;
    renderWaiting(&source, 9000, out, ENCODE_WAV);
    stopEngine();
    expectUntouched(out);
    EXPECT_EQ(namesIn(outputs.path()).size(), 14u) << "the a.* files, b.wav and their .wave files only";
}

TEST_F(ExistingOutput, ACompleteRenderReplacesBothFilesAndKeepsTheirMode) {
    const auto samples = patternSamples(20000, 2, 3);
    wv::SPcmInfo* item = addPcmItem(samples, 44100, 2);
    const std::string out = plantOutput(outputs.path(), "mix.wav");
    ASSERT_EQ(::chmod(out.c_str(), 0604), 0);
    const uint32_t list = newList({{item, 0, 20000}});
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    const auto file = wvtest::readFile(out);
    ASSERT_EQ(file.size(), 44 + samples.size() * 2);
    EXPECT_EQ(rendertest::asSamples(file, 44), samples);
    EXPECT_EQ(wvtest::fileSize(out + ".wave"), 20000 / 882);
    struct stat st;
    ASSERT_EQ(::stat(out.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0604u);
    EXPECT_EQ(namesIn(outputs.path()), (std::set<std::string>{"mix.wav", "mix.wav.wave"}));
}

TEST_F(ExistingOutput, NewOutputsTakeMode0666LessTheUmask) {
    wv::SPcmInfo* item = addPcmItem(patternSamples(4000, 1, 2), 8000, 1);
    for (mode_t mask : {mode_t(022), mode_t(0)}) {
        const mode_t before = ::umask(mask);
        const std::string out = outputs.file("m" + std::to_string(mask) + ".wav");
        const uint32_t list = newList({{item, 0, 4000}});
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
        EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
        ::umask(before);
        for (const std::string& file : {out, out + ".wave"}) {
            struct stat st;
            ASSERT_EQ(::stat(file.c_str(), &st), 0);
            EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask) << file;
        }
    }
}

TEST_F(ExistingOutput, DevNullAndALinkToItAreWrittenNotRemovedOrChanged) {
    wv::SPcmInfo* item = addPcmItem(patternSamples(4000, 2, 5), 44100, 2);
    const std::string link = outputs.file("void.mp3");
    ASSERT_EQ(::symlink("/dev/null", link.c_str()), 0);
    struct stat before;
    ASSERT_EQ(::stat("/dev/null", &before), 0);
    for (const std::string& out : {std::string("/dev/null"), link}) {
        for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
            const uint32_t list = newList({{item, 0, 4000}});
            ASSERT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
            EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE) << out;
        }
    }
    // A render cancelled while writing to the device leaves it alone too.
    wv::SPcmInfo* source = nullptr;
    const uint32_t list = renderWaiting(&source, 9000, link, ENCODE_WAV);
    ASSERT_EQ(engine->cancelProcess(list), 0);
    EXPECT_EQ(waitForEnding(list).code, wv::EVT_RENDER_CANCELLED);
    struct stat after;
    ASSERT_EQ(::stat("/dev/null", &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_rdev, before.st_rdev);
    EXPECT_EQ(after.st_ino, before.st_ino);
    struct stat linkStat;
    ASSERT_EQ(::lstat(link.c_str(), &linkStat), 0);
    EXPECT_TRUE(S_ISLNK(linkStat.st_mode));
}

TEST_F(ExistingOutput, AFifoWithAReaderGetsTheWholeWav) {
    const auto samples = patternSamples(8000, 1, 4);
    wv::SPcmInfo* item = addPcmItem(samples, 8000, 1);
    const std::string fifo = outputs.file("pipe.wav");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    std::vector<char> got;
    std::thread drain([&] {
        char block[4096];
        for (;;) {
            const ssize_t n = ::read(reader, block, sizeof block);
            if (n > 0) got.insert(got.end(), block, block + n);
            if (n == 0 && got.size() >= 44 + samples.size() * 2) break;
            if (n <= 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    const uint32_t list = newList({{item, 0, 8000}});
    ASSERT_EQ(engine->setOutputPara(list, fifo.c_str(), ENCODE_WAV), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    drain.join();
    ::close(reader);
    ASSERT_EQ(got.size(), 44 + samples.size() * 2);
    EXPECT_EQ(rendertest::asSamples(got, 44), samples);
    struct stat st;
    ASSERT_EQ(::lstat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

TEST_F(ExistingOutput, AListRenderingOverAnExistingFilePlaysFromTheNewOne) {
    wavoryx_set_audio_output("null");
    // What stands at the output now is no audio at all: a player that
    // opened it would fail.
    const std::string out = plantOutput(outputs.path(), "live.wav");
    wv::SPcmInfo* source = nullptr;
    const uint32_t list = renderWaiting(&source, 12000, out, ENCODE_WAV);
    EXPECT_EQ(engine->playStart(list), 0);
    EXPECT_EQ(engine->playStop(0), 0);
    finishLoading(source, 12000);
    EXPECT_EQ(waitForEnding(list).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(wvtest::fileSize(out), 44 + 12000 * 4);
    wavoryx_set_audio_output(nullptr);
}

// Finds a length whose MP3, before LAME's final flush, ends so near the end
// of a storage page that the flush needs a page more.
uint32_t framesWhoseFlushNeedsAPage(const std::string& scratch) {
    for (uint32_t frames = 20000; frames < 120000; frames += 577) {
        const auto samples = patternSamples(frames, 2, 9);
        std::unique_ptr<wv::AudioEncoder> encoder(
            wv::AudioEncoder::createAudioEncoder(wv::EncodeFormat::Mp3, scratch.c_str()));
        if (!encoder || encoder->initEncoder(44100, 2, 320, 1) != 0) return 0;
        // In the render's blocks of 4096 frames.
        for (uint32_t at = 0; at < frames; at += 4096) {
            const uint32_t n = std::min<uint32_t>(4096, frames - at);
            encoder->encoding(samples.data() + size_t(at) * 2, int(n * 4));
        }
        const long long before = wvtest::fileSize(scratch);
        if (encoder->finishEncoding() != 0) return 0;
        const long long flush = wvtest::fileSize(scratch) - before;
        ::unlink(scratch.c_str());
        if ((4096 - before % 4096) % 4096 < flush) return frames;
    }
    return 0;
}

TEST_F(ExistingOutput, StorageFullAtTheFinalMp3FlushStopsWith25AndKeepsTheTarget) {
    wvtest::SmallFilesystem fs(512 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    const uint32_t frames = framesWhoseFlushNeedsAPage(outputs.file("probe.mp3"));
    ASSERT_GT(frames, 0u);
    for (bool existing : {true, false}) {
        const std::string out = existing ? plantOutput(fs.path(), "edit.mp3") : fs.file("fresh.mp3");
        const std::set<std::string> before = namesIn(fs.path());
        wv::SPcmInfo* source = nullptr;
        const uint32_t list = renderWaiting(&source, frames, out, ENCODE_MP3);
        const long long filled = fs.fill("ballast");
        ASSERT_GT(filled, 0);
        finishLoading(source, frames);
        EXPECT_EQ(waitForEnding(list), (Event{wv::EVT_RENDER_STOPPED, int(list), -1}));
        ASSERT_EQ(::unlink(fs.file("ballast").c_str()), 0);
        if (existing) expectUntouched(out);
        EXPECT_EQ(namesIn(fs.path()), before);
    }
}

TEST_F(ExistingOutput, StorageFullMidRenderKeepsTheExistingFiles) {
    wvtest::SmallFilesystem fs(256 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    wv::SPcmInfo* item = addPcmItem(patternSamples(4 * 44100, 2, 3), 44100, 2);  // 705600 bytes
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const std::string out = plantOutput(fs.path(), type == ENCODE_WAV ? "full.wav" : "full.mp3");
        if (type == ENCODE_MP3) {
            const long long filled = fs.fill("ballast");
            ASSERT_EQ(truncate(fs.file("ballast").c_str(), filled - 64 * 1024), 0);
        }
        const uint32_t list = newList({{item, 0, 4 * 44100}});
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
        EXPECT_EQ(render(list).code, wv::EVT_RENDER_STOPPED);
        expectUntouched(out);
        ::unlink(fs.file("ballast").c_str());
    }
    EXPECT_EQ(namesIn(fs.path()), (std::set<std::string>{"full.wav", "full.wav.wave", "full.mp3", "full.mp3.wave"}));
}

}  // namespace
