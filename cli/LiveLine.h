// The live status line of `play` and `record`, on standard error.
//
// On a terminal (and not --quiet) the line is redrawn in place
// ("\r" + text + erase to the end of the line); a note (a refused speed, a
// pause for lack of space) is appended to it for kNoteMs. Anywhere else the
// live line draws nothing: the commands print plain start and result lines
// of their own. The destructor clears a line left on the terminal.
//
// The texts are built by the free functions below, so they can be checked
// without a terminal. Not thread-safe: the command's main thread draws.
#ifndef WAVORYX_CLI_LIVELINE_H
#define WAVORYX_CLI_LIVELINE_H

#include <chrono>
#include <cstdint>
#include <string>

namespace wvcli {

class LiveLine {
public:
    static constexpr int kNoteMs = 2500;

    explicit LiveLine(bool quiet);
    ~LiveLine();
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;

    // True when the line is drawn (a terminal, not quiet).
    bool live() const { return mLive; }
    // Redraws the line with `text` and the current note, if any.
    void show(const std::string& text);
    // Shows `message` after the text for a while, from the next show().
    void note(const std::string& message);
    // Erases the line, so that a result line can follow.
    void clear();

private:
    bool mLive;
    bool mDrawn = false;
    std::string mNote;
    std::chrono::steady_clock::time_point mNoteUntil;
};

// What `play` shows.
struct PlayView {
    uint64_t positionMs = 0;
    uint64_t durationMs = 0;
    int speed = 1;  // negative: backwards
    bool paused = false;
    bool buffering = false;  // the player waits for the load (events 43, 44)
};

// "0:01.250 / 0:05.000  2x forwards  playing" ("buffering" while the
// player waits for the load, "paused" above both).
std::string playStatusText(const PlayView& view);

// A peak level of the engine's waveform points (0 silence .. 255 full
// scale) in whole decibels below full scale, rounded; -99 for silence.
int levelDecibels(int level);

// A bar of `width` cells for a level, filled in proportion to its
// loudness from -48 dB (empty) to 0 dB (full): "[#######.......]".
std::string levelBar(int level, int width);

// What `record` shows.
struct RecordView {
    uint64_t recordedMs = 0;
    int level = 0;  // the loudest point since the last redraw
    bool paused = false;
};

// "REC 0:01.250  [#######.......]  -12 dB", or "... paused" while paused.
std::string recordStatusText(const RecordView& view);

// When the input lost audio (filled with silence), at `atMs` of recorded
// time: "OUT: the input lost 120 ms of audio at 0:03.250 (recorded as
// silence)", for reportError's "wavoryx: " in front.
std::string lostAudioWarning(const std::string& output, uint64_t lostMs, uint64_t atMs);

// What the result line adds for `lostMs` lost in all: "" for none, else
// "; the input lost 120 ms in all (recorded as silence)".
std::string lostAudioSummary(uint64_t lostMs);

}  // namespace wvcli

#endif
