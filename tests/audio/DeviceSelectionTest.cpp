// The choice shared by audio inputs and outputs, over made-up kinds of
// device: what no real device can show here (a system device that fails,
// the test maker). Which texts are accepted and where they come from is
// tested through the real inputs and outputs (tests/audio).
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "platform/audio/DeviceSelection.h"

namespace {

struct FakeClient {};

// A device that opens with the status it was made with and says what it is.
struct FakeDevice {
    FakeDevice(std::string n, int32_t status) : name(std::move(n)), openStatus(status) {}
    int32_t open(uint32_t, uint32_t, FakeClient*) { return openStatus; }
    std::string name;
    int32_t openStatus;
};

int32_t gSystemStatus = 0;

std::unique_ptr<FakeDevice> makeSystem() { return std::make_unique<FakeDevice>("system", gSystemStatus); }
std::unique_ptr<FakeDevice> makeNamed(const std::string& text) {
    if (text == "quiet") return std::make_unique<FakeDevice>("quiet", 0);
    const std::string path = wv::kindArgument(text, "file");
    return path.empty() ? nullptr : std::make_unique<FakeDevice>("file " + path, 0);
}
bool isValid(const std::string& text) {
    return text == "auto" || text == "device" || text == "quiet" || text == "broken";
}

const wv::DeviceKinds kKinds = {
    "FakeTag", "gadget", "WAVORYX_TEST_GADGET", "is not a gadget",
    &isValid,  "quiet",  WAVORYX_LOG_WARN,      "no gadget; going quiet",
};

class DeviceSelection : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv(kKinds.environmentVariable);
        gSystemStatus = 0;
    }
    void TearDown() override { unsetenv(kKinds.environmentVariable); }

    int32_t open(const std::string& text, std::unique_ptr<FakeDevice>* out) {
        return choice.open(text, 8000, 1, &client, out);
    }

    wv::DeviceChoice<FakeDevice> choice{kKinds, &makeSystem, &makeNamed};
    FakeClient client;
};

TEST_F(DeviceSelection, KindAndArgumentSplitOnlyAtTheKindsColon) {
    EXPECT_EQ(wv::kindArgument("file:/a/b.wav", "file"), "/a/b.wav");
    EXPECT_EQ(wv::kindArgument("file:x:y", "file"), "x:y");
    EXPECT_EQ(wv::kindArgument("file:", "file"), "");
    EXPECT_EQ(wv::kindArgument("file", "file"), "");
    EXPECT_EQ(wv::kindArgument("filex:/a.wav", "file"), "");
    EXPECT_EQ(wv::kindArgument("tone:440", "file"), "");
    EXPECT_EQ(wv::kindArgument("", "file"), "");
}

TEST_F(DeviceSelection, OnlyAutoFallsBackWhenTheSystemDeviceFails) {
    gSystemStatus = -19;
    std::unique_ptr<FakeDevice> out;
    wvtest::LogCapture log;
    EXPECT_EQ(open("device", &out), -19);
    EXPECT_FALSE(out);
    EXPECT_TRUE(log.contains("the audio gadget device cannot be opened (-19)", "FakeTag"));

    log.clear();
    ASSERT_EQ(open("auto", &out), 0);
    EXPECT_EQ(out->name, "quiet");
    EXPECT_TRUE(log.contains("no gadget; going quiet", "FakeTag"));
}

TEST_F(DeviceSelection, TheTestMakerReplacesEveryText) {
    std::unique_ptr<FakeDevice> out;
    choice.setTestMaker([] { return std::make_unique<FakeDevice>("made", 0); });
    ASSERT_EQ(open("broken", &out), 0);
    EXPECT_EQ(out->name, "made");

    choice.setTestMaker([] { return std::make_unique<FakeDevice>("made", -5); });
    EXPECT_EQ(open("quiet", &out), -5);
    EXPECT_FALSE(out);
    choice.setTestMaker([] { return std::unique_ptr<FakeDevice>(); });
    EXPECT_EQ(open("quiet", &out), -19);

    choice.setTestMaker(nullptr);
    ASSERT_EQ(open("quiet", &out), 0);
    EXPECT_EQ(out->name, "quiet");
}

}  // namespace
