// WAVORYX_AUDIO_IN and WAVORYX_AUDIO_OUT values the engine would take as
// `auto` in silence are refused with one line naming them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "AudioChoice.h"
#include "TestSupport.h"

using namespace wvcli;

namespace {

class AudioChoiceTest : public ::testing::Test {
protected:
    void TearDown() override {
        ::unsetenv("WAVORYX_AUDIO_IN");
        ::unsetenv("WAVORYX_AUDIO_OUT");
    }
};

}  // namespace

TEST_F(AudioChoiceTest, InputsTheEngineDoesNotKnowAreErrors) {
    wvtest::TempDir dir;
    wvtest::writeFile(dir.file("in.wav"), "RIFF", 4);
    for (const std::string& bad : {std::string("mic"), std::string("tone:abc"), std::string("tone:"),
                                   std::string("tone:-5"), std::string("file:"), "file:" + dir.file("missing.wav")}) {
        ::setenv("WAVORYX_AUDIO_IN", bad.c_str(), 1);
        AudioChoice choice;
        std::string why;
        EXPECT_FALSE(chooseAudioInput(choice, why)) << bad;
        EXPECT_EQ(why.rfind("WAVORYX_AUDIO_IN=" + bad + ": ", 0), 0u) << why;
        EXPECT_EQ(why.find('\n'), std::string::npos);
    }
    for (const char* good : {"auto", "device", "silence", "tone:440", "tone:27.5"}) {
        ::setenv("WAVORYX_AUDIO_IN", good, 1);
        AudioChoice choice;
        std::string why;
        EXPECT_TRUE(chooseAudioInput(choice, why)) << good << ": " << why;
        EXPECT_TRUE(choice.file.empty());
    }
    ::setenv("WAVORYX_AUDIO_IN", ("file:" + dir.file("in.wav")).c_str(), 1);
    AudioChoice choice;
    std::string why;
    ASSERT_TRUE(chooseAudioInput(choice, why)) << why;
    EXPECT_EQ(choice.file, dir.file("in.wav"));
    // Unset or empty: the engine's default.
    ::unsetenv("WAVORYX_AUDIO_IN");
    EXPECT_TRUE(chooseAudioInput(choice, why));
    EXPECT_TRUE(choice.value.empty());
}

TEST_F(AudioChoiceTest, OutputsTheEngineDoesNotKnowAreErrors) {
    for (const char* bad : {"speaker", "file:", "nul"}) {
        ::setenv("WAVORYX_AUDIO_OUT", bad, 1);
        AudioChoice choice;
        std::string why;
        EXPECT_FALSE(chooseAudioOutput(choice, why)) << bad;
        EXPECT_EQ(why.rfind(std::string("WAVORYX_AUDIO_OUT=") + bad + ": ", 0), 0u) << why;
    }
    ::setenv("WAVORYX_AUDIO_OUT", "file:heard.wav", 1);
    AudioChoice choice;
    std::string why;
    ASSERT_TRUE(chooseAudioOutput(choice, why)) << why;
    EXPECT_EQ(choice.file, "heard.wav");
}
