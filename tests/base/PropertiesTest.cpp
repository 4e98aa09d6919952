#include "base/Properties.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "TestSupport.h"

namespace {

std::string get(const char* key, const char* fallback = "none") {
    char value[wv::kPropertyValueMax];
    wv::property_get(key, value, fallback);
    return value;
}

TEST(Properties, FileThenOverridesThenDefault) {
    wvtest::TempDir dir;
    const std::string text =
        "# voice settings\n"
        "persist.wavoryx.malepitch = -3.5\n"
        "af.resampler.quality=4   # trailing comment\n"
        "broken line without equals\n"
        "=no key\n";
    wvtest::writeFile(dir.file("props"), text.data(), text.size());
    setenv("WAVORYX_PROPERTIES", dir.file("props").c_str(), 1);
    wv::propertiesReloadForTesting();

    EXPECT_EQ(get("persist.wavoryx.malepitch"), "-3.5");
    EXPECT_EQ(get("af.resampler.quality"), "4");
    EXPECT_EQ(get("persist.wavoryx.femalepitch", "4"), "4");
    char value[wv::kPropertyValueMax];
    EXPECT_EQ(wv::property_get("missing", value, nullptr), 0);
    EXPECT_STREQ(value, "");

    EXPECT_EQ(wavoryx_set_property("af.resampler.quality", "2"), 0);
    EXPECT_EQ(get("af.resampler.quality"), "2");
    EXPECT_EQ(wavoryx_set_property("af.resampler.quality", nullptr), 0);
    EXPECT_EQ(get("af.resampler.quality"), "4");

    unsetenv("WAVORYX_PROPERTIES");
    wv::propertiesReloadForTesting();
    EXPECT_EQ(get("af.resampler.quality"), "none");
}

TEST(Properties, RejectsBadKeysAndLongValues) {
    EXPECT_EQ(wavoryx_set_property(nullptr, "x"), -1);
    EXPECT_EQ(wavoryx_set_property("", "x"), -1);
    EXPECT_EQ(wavoryx_set_property("k", std::string(92, 'v').c_str()), -1);
    EXPECT_EQ(wavoryx_set_property("k", std::string(91, 'v').c_str()), 0);
    EXPECT_EQ(get("k").size(), 91u);
    wavoryx_set_property("k", nullptr);
}

TEST(Properties, WholeNumbersWithinTheirRange) {
    wvtest::LogCapture capture;
    wavoryx_set_log_level(WAVORYX_LOG_WARN);
    const char* key = "test.range";
    const auto read = [&](const char* value, bool refuse = false) {
        wavoryx_set_property(key, value);
        return wv::property_get_int(key, 4, -24, 24, refuse);
    };
    // Unset, then at the limits and inside: as given, silently; the leading
    // digits count, as they always did.
    EXPECT_EQ(read(nullptr), 4);
    EXPECT_EQ(read("-24"), -24);
    EXPECT_EQ(read("24"), 24);
    EXPECT_EQ(read(" 0"), 0);
    EXPECT_EQ(read("-3.5"), -3);
    EXPECT_TRUE(capture.lines().empty());
    // Beyond: clamped, or the default when refused, one line each naming
    // the key, the value and the range; huge values do not wrap round.
    const struct {
        const char* value;
        bool refuse;
        int32_t expected;
        const char* line;
    } beyond[] = {
        {"25", false, 24, "test.range=25 is out of range (accepted -24 to 24); using 24"},
        {"-25", false, -24, "test.range=-25 is out of range (accepted -24 to 24); using -24"},
        {"-99999999999", false, -24, "test.range=-99999999999 is out of range (accepted -24 to 24); using -24"},
        {"4294967297", false, 24, "test.range=4294967297 is out of range (accepted -24 to 24); using 24"},
        {"99999999999999999999999", false, 24,
         "test.range=99999999999999999999999 is out of range (accepted -24 to 24); using 24"},
        {"1000", true, 4, "test.range=1000 is out of range (accepted -24 to 24); using 4"},
        {"abc", false, 4, "test.range=abc is not a whole number (accepted -24 to 24); using 4"},
        {"", false, 4, "test.range= is not a whole number (accepted -24 to 24); using 4"},
    };
    for (const auto& b : beyond) {
        capture.clear();
        EXPECT_EQ(read(b.value, b.refuse), b.expected) << b.value;
        EXPECT_TRUE(capture.contains(b.line, "Properties")) << b.value;
        EXPECT_EQ(capture.lines().size(), 1u) << b.value;
    }
    wavoryx_set_property(key, nullptr);
}

TEST(Properties, SafeFromManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            const std::string key = "thread." + std::to_string(t);
            for (int i = 0; i < 500; ++i) {
                wavoryx_set_property(key.c_str(), std::to_string(i).c_str());
                EXPECT_EQ(get(key.c_str()), std::to_string(i));
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

}  // namespace
