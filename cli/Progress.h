// Progress of a load or a render, on standard error.
//
// Three looks, chosen at construction:
//   a terminal:     one line redrawn in place:
//                   "label  [#########...........]  45%  0:03"
//   anything else:  plain lines, the first and then one per quarter,
//                   "label: 50% (0:03)", ending with 100 % on success
//   quiet:          nothing.
// The engine reports loads in steps of about 20 % and renders in steps of
// about 10 %, so the plain form stays short. Not thread-safe: one thread
// drives it.
#ifndef WAVORYX_CLI_PROGRESS_H
#define WAVORYX_CLI_PROGRESS_H

#include <chrono>
#include <string>

namespace wvcli {

class Progress {
public:
    Progress(std::string label, bool quiet);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // percent is clamped to 0..100; repeated values draw nothing new.
    void update(int percent);
    // Shows 100 % when ok, then clears the terminal bar; the caller prints
    // the result or the reason of the failure.
    void finish(bool ok);
    // Prints `line` (a whole report line, newline included) on standard
    // error without breaking a terminal bar: the bar is drawn again after it.
    void interject(const std::string& line);

private:
    void draw();
    std::string elapsedText() const;

    std::string mLabel;
    bool mQuiet;
    bool mTerminal;
    bool mFinished = false;
    int mPercent = -1;
    std::chrono::steady_clock::time_point mStart;
};

}  // namespace wvcli

#endif
