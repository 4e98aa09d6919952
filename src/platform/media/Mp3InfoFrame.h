// The exact length an MP3 states in its info frame (the "Xing" or "Info"
// tag of its first frame) together with the encoder's delay and padding of
// the encoder tag that follows it: frames x samples per frame - delay -
// padding, which is what the decoder delivers once it drops the delay and
// the padding. Only tags whose encoder string the decoder itself trusts
// ("LAME", "Lavf", "Lavc") count: for the others it drops nothing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wv {

class DataSource;

// The length of the MP3 in `source`, in frames at its sample rate, into
// *frames: true when its first frame (after an ID3v2 tag) carries both a
// frame count and an encoder tag with delay and padding.
bool mp3StatedFrames(DataSource& source, int64_t* frames);
// The same from the bytes of the first audio frame (at least its header).
bool mp3StatedFramesOfFrame(const uint8_t* frame, size_t size, int64_t* frames);

// The tag's numbers: the stated length as above, the samples its frames
// code (frame count x samples per frame) and the encoder's delay.
struct Mp3InfoTag {
    int64_t length = 0;
    int64_t coded = 0;
    int64_t delay = 0;
};
bool mp3InfoTag(DataSource& source, Mp3InfoTag* tag);
bool mp3InfoTagOfFrame(const uint8_t* frame, size_t size, Mp3InfoTag* tag);

}  // namespace wv
