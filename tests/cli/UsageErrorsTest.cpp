// Guessing what a mistyped name meant, and the checks whose refusals name
// the value given and the values accepted.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OptionChecks.h"
#include "UsageErrors.h"

using namespace wvcli;

namespace {

// What a check says of `input` (empty: accepted), and what it passes on.
std::string checked(const CLI::Validator& check, std::string& input) { return check(input); }

}  // namespace

TEST(EditDistanceTest, CountsEditsAndSwapsOfNeighbours) {
    EXPECT_EQ(editDistance("edit", "edit"), 0u);
    EXPECT_EQ(editDistance("", "edit"), 4u);
    EXPECT_EQ(editDistance("edit", ""), 4u);
    EXPECT_EQ(editDistance("edt", "edit"), 1u);           // a deletion
    EXPECT_EQ(editDistance("eddit", "edit"), 1u);         // an insertion
    EXPECT_EQ(editDistance("exit", "edit"), 1u);          // a substitution
    EXPECT_EQ(editDistance("--outptu", "--output"), 1u);  // one swap, not two substitutions
    EXPECT_EQ(editDistance("wavefrom", "waveform"), 1u);
    EXPECT_EQ(editDistance("ab", "ba"), 1u);
    EXPECT_EQ(editDistance("ca", "abc"), 3u);  // no edits of a swapped pair
    EXPECT_EQ(editDistance("play", "record"), editDistance("record", "play"));
}

TEST(ClosestNameTest, SuggestsNearMissesAndBeginnings) {
    const std::vector<std::string> commands = {"info", "edit", "waveform", "play", "record"};
    EXPECT_EQ(closestName("edt", commands), "edit");
    EXPECT_EQ(closestName("recrod", commands), "record");
    EXPECT_EQ(closestName("wave", commands), "waveform");  // a beginning, four letters short
    EXPECT_EQ(closestName("ed", commands), "edit");
    EXPECT_EQ(closestName("frobnicate", commands), "");
    EXPECT_EQ(closestName("pl", commands), "play");
    const std::vector<std::string> options = {"-h", "--help", "-o", "--output", "--quality", "--quiet"};
    EXPECT_EQ(closestName("--outptu", options), "--output");
    EXPECT_EQ(closestName("--out", options), "--output");
    EXPECT_EQ(closestName("--quite", options), "--quiet");
    EXPECT_EQ(closestName("--fade-in", options), "");
}

TEST(ClosestNameTest, ShortNamesNeedACloserMatch) {
    const std::vector<std::string> options = {"-h", "-q", "-v", "--json"};
    EXPECT_EQ(closestName("-x", options), "");  // one letter guesses nothing
    EXPECT_EQ(closestName("-", options), "");
    EXPECT_EQ(closestName("", options), "");
    EXPECT_EQ(closestName("--jsn", options), "--json");
    EXPECT_EQ(closestName("--xy", {"--ab"}), "");  // two edits of a two-letter name are no guess
}

TEST(ClosestNameTest, TheClosestWinsAndTheFirstOnATie) {
    EXPECT_EQ(closestName("--rat", {"--format", "--rate"}), "--rate");
    EXPECT_EQ(closestName("--vbs", {"--vbr", "--vbx"}), "--vbr");
}

TEST(OptionChecksTest, WholeNumbersNameTheValueAndTheRanges) {
    const CLI::Validator speed = wholeNumberIn({{-4, -1}, {1, 4}});
    for (const char* good : {"-4", "-1", "1", "4"}) {
        std::string input = good;
        EXPECT_EQ(checked(speed, input), "") << good;
    }
    std::string input = "5";
    EXPECT_EQ(checked(speed, input), "5 is out of range: use -4 to -1 or 1 to 4");
    input = "0";
    EXPECT_EQ(checked(speed, input), "0 is out of range: use -4 to -1 or 1 to 4");
    for (const char* bad : {"x", "", "2x", " 2", "2.5", "99999999999999999999999"}) {
        input = bad;
        EXPECT_EQ(checked(speed, input), "'" + std::string(bad) + "' is not a whole number: use -4 to -1 or 1 to 4");
    }
    const CLI::Validator width = wholeNumberIn(1, 20000);
    input = "20001";
    EXPECT_EQ(checked(width, input), "20001 is out of range: use 1 to 20000");
    EXPECT_EQ(width.get_description(), "[1 to 20000]");
}

TEST(OptionChecksTest, NamesAreTakenInAnyCase) {
    const CLI::Validator format = oneOf({"wav", "mp3"});
    std::string input = "MP3";
    EXPECT_EQ(checked(format, input), "");
    EXPECT_EQ(input, "mp3");
    input = "wavx";
    EXPECT_EQ(checked(format, input), "'wavx' is not one of wav, mp3");

    const CLI::Validator converter = indexOf({"linear", "high", "best"});
    input = "Best";
    EXPECT_EQ(checked(converter, input), "");
    EXPECT_EQ(input, "2");
    input = "1";  // the index itself is no name
    EXPECT_EQ(checked(converter, input), "'1' is not one of linear, high, best");
}

TEST(OptionChecksTest, ChoicesAreReadBackFromDescriptions) {
    EXPECT_EQ(choicesInDescription(oneOf({"none", "female-high"}).get_description()),
              (std::vector<std::string>{"none", "female-high"}));
    EXPECT_EQ(choicesInDescription(CLI::IsMember({"a", "b"}).get_description()), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(choicesInDescription("value in {best->2,high->1} OR {2,1}"), (std::vector<std::string>{"best", "high"}));
    EXPECT_TRUE(choicesInDescription("[1 to 2]").empty());
    EXPECT_TRUE(choicesInDescription("{").empty());
}
