#include <gtest/gtest.h>

#include "Keyboard.h"

using wvcli::Key;
using wvcli::KeyDecoder;

namespace {

std::vector<Key> decode(const std::string& bytes) {
    KeyDecoder decoder;
    return decoder.feed(bytes);
}

}  // namespace

TEST(KeyDecoderTest, ReadsThePlainKeysAndIgnoresTheRest) {
    EXPECT_EQ(decode(" +-rq"), (std::vector<Key>{Key::Space, Key::Plus, Key::Minus, Key::Reverse, Key::Quit}));
    // Without Shift, and with Caps Lock.
    EXPECT_EQ(decode("=_RQ"), (std::vector<Key>{Key::Plus, Key::Minus, Key::Reverse, Key::Quit}));
    EXPECT_TRUE(decode("axz\n\t1\x7f").empty());
}

TEST(KeyDecoderTest, ReadsArrowsInEveryCursorMode) {
    EXPECT_EQ(decode("\x1b[C\x1b[D\x1b[A\x1b[B"), (std::vector<Key>{Key::Right, Key::Left, Key::Up, Key::Down}));
    // Application cursor mode, and an arrow with Ctrl (parameters).
    EXPECT_EQ(decode("\x1bOC\x1b[1;5D"), (std::vector<Key>{Key::Right, Key::Left}));
    // Other sequences (F5, Home) are dropped whole: their letters are no keys.
    EXPECT_EQ(decode("\x1b[15~\x1b[H q"), (std::vector<Key>{Key::Space, Key::Quit}));
    // Alt+q arrives as ESC q: the q counts.
    EXPECT_EQ(decode("\x1bq"), (std::vector<Key>{Key::Quit}));
}

TEST(KeyDecoderTest, CompletesSequencesSplitAcrossReads) {
    KeyDecoder decoder;
    EXPECT_TRUE(decoder.feed("\x1b").empty());
    EXPECT_TRUE(decoder.feed("[").empty());
    EXPECT_TRUE(decoder.feed("1;").empty());
    EXPECT_EQ(decoder.feed("3C "), (std::vector<Key>{Key::Right, Key::Space}));
    // A lone Escape followed later by a key does not swallow the key.
    EXPECT_TRUE(decoder.feed("\x1b").empty());
    EXPECT_EQ(decoder.feed(" "), (std::vector<Key>{Key::Space}));
    // A runaway "sequence" is dropped, and decoding goes on after it.
    EXPECT_TRUE(decoder.feed("\x1b[" + std::string(40, '1')).empty());
    EXPECT_EQ(decoder.feed("q"), (std::vector<Key>{Key::Quit}));
}
