// Backwards reads of an item's reader: the frames just before the position,
// last first, in the item's own format, moving the position back over them;
// silence stands for frames before frame 0. A decoded item is read straight
// from its file; a clip list through forward reads of the frames before the
// position, so that it gives (effects included) the bytes a forward read
// gives.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>

namespace wv {

class PcmFileSource;
class PcmSource;

class Reverser {
public:
    // The source is not owned and outlives the reverser.
    explicit Reverser(PcmFileSource* file) : mFile(file) {}
    explicit Reverser(PcmSource* forward) : mForward(forward) {}

    // `frames` frames of `frameBytes` into a zeroed buffer; returns
    // `frames`, or -1 when a file cannot be opened.
    int32_t fill(char* buffer, uint32_t frames, uint32_t frameBytes);

private:
    int32_t fillForward(char* buffer, uint32_t frames, uint32_t frameBytes);
    // Puts `frames` frames of `frameBytes` (at most 8) in the opposite order.
    static void reverseFrames(char* buffer, uint32_t frames, uint32_t frameBytes);

    PcmFileSource* mFile = nullptr;
    PcmSource* mForward = nullptr;
};

}  // namespace wv
