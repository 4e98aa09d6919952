// wavoryx play FILE [--seek T] [--speed N]: loads the file and plays it
// through the engine's output (the device, or what WAVORYX_AUDIO_OUT
// chooses), until its end, q or Ctrl-C.
//
// While it plays, a terminal on standard error shows the position line,
// and a terminal on standard input takes single keys (see PlayKeys.h).
// At the end the command waits for the output to play what it still holds
// (at most kDrainLimitMs), so the last fraction of a second is heard (or
// written, for a "file:" output) before the item is released.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "AudioChoice.h"
#include "Commands.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "Keyboard.h"
#include "LiveLine.h"
#include "OptionChecks.h"
#include "OutputFile.h"
#include "PlayKeys.h"
#include "Session.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

constexpr int kTickMs = 50;
constexpr int kDrainPollMs = 20;
constexpr int kDrainSteadyPolls = 5;  // unchanged this long: the output is empty
constexpr int kDrainLimitMs = 3000;

enum PlayEvent { kPlayFailed = WV_EVENT_PLAY_FAILED, kPlayEnded = WV_EVENT_PLAY_END };
enum class Outcome { Ended, Quit, Interrupted, Failed };

struct PlayOptions {
    std::string file;
    std::string seek;
    int speed = 1;
    uint32_t seekMs = 0;
};

std::vector<WholeRange> playableSpeeds() { return {{-kMaxPlaySpeed, -1}, {1, kMaxPlaySpeed}}; }

void checkPlayOptions(PlayOptions& options) {
    std::string why;
    if (!options.seek.empty() && !parseTimeMs(options.seek, options.seekMs, why)) {
        throw CLI::ValidationError("--seek", why);
    }
    if (!isPlayableSpeed(options.speed)) {
        throw CLI::ValidationError(
            "--speed", std::to_string(options.speed) + " is out of range: use " + describeRanges(playableSpeeds()));
    }
}

uint64_t positionMs(Wavoryx& engine) {
    const int32_t position = engine.getPlayPositionMs();
    return position > 0 ? uint64_t(position) : 0;
}

// One playback: the player's state as the command set it, and the keys.
class PlayLoop {
public:
    PlayLoop(Session& session, const LoadedSource& source, int speed)
        : mSession(session), mEngine(session.engine()), mSource(source), mLine(session.options().quiet) {
        mView.durationMs = source.durationMs();
        mView.speed = speed;
    }

    Outcome run() {
        RawKeyboard keyboard;
        while (true) {
            for (Key key : keyboard.poll(kTickMs)) {
                if (key == Key::Quit) return Outcome::Quit;
                onKey(key);
            }
            if (interruptSignal() != 0) return Outcome::Interrupted;
            EngineEvent event;
            while (mSession.waitEvent(event, 0)) {
                if (event.id != mSource.id) continue;
                if (event.code == kPlayEnded) return Outcome::Ended;
                if (event.code == kPlayFailed) return Outcome::Failed;
            }
            draw();
        }
    }

    // After the end: the output still holds what the player handed it;
    // the position moves on until that has played.
    void drain() {
        uint64_t last = positionMs(mEngine);
        int steady = 0;
        for (int waited = 0; waited < kDrainLimitMs && steady < kDrainSteadyPolls && interruptSignal() == 0;
             waited += kDrainPollMs) {
            mSession.waitEvent(mIgnored, kDrainPollMs);
            const uint64_t now = positionMs(mEngine);
            steady = now == last ? steady + 1 : 0;
            last = now;
            draw();
        }
    }

    void clearLine() { mLine.clear(); }
    bool live() const { return mLine.live(); }
    uint64_t lastPositionMs() const { return mView.positionMs; }

private:
    void draw() {
        mView.positionMs = positionMs(mEngine);
        mLine.show(playStatusText(mView));
    }

    void onKey(Key key) {
        switch (key) {
            case Key::Space:
                if (mView.paused) {
                    mEngine.playResume();
                } else {
                    mEngine.playPause();
                }
                mView.paused = !mView.paused;
                break;
            case Key::Left:
            case Key::Right:
                mEngine.playSeekTo(int(seekTargetMs(int64_t(positionMs(mEngine)),
                                                    key == Key::Left ? -kSeekStepMs : kSeekStepMs, mView.durationMs)));
                break;
            case Key::Plus:
            case Key::Minus:
            case Key::Reverse: changeSpeed(key); break;
            default: break;
        }
    }

    void changeSpeed(Key key) {
        const SpeedStep step = stepSpeed(mView.speed, key);
        if (!step.refusal.empty()) {
            mLine.note(step.refusal);
        } else if (mEngine.setPlaySpeed(step.speed) != 0) {
            mLine.note("speed " + std::to_string(step.speed) + "x refused");
        } else {
            mView.speed = step.speed;
        }
    }

    Session& mSession;
    Wavoryx& mEngine;
    const LoadedSource& mSource;
    LiveLine mLine;
    PlayView mView;
    EngineEvent mIgnored;
};

int runPlay(const PlayOptions& options, const GlobalOptions& global) {
    AudioChoice output;
    std::string why;
    if (!chooseAudioOutput(output, why)) {
        reportLine(why);
        return 1;
    }
    if (!output.file.empty() && isSameFile(output.file, options.file)) {
        reportError(output.file, sameFileReason(options.file) + " (WAVORYX_AUDIO_OUT)");
        return 1;
    }
    Session session(global);
    if (!session.open()) return 1;
    std::vector<LoadedSource> sources;
    const int loaded = loadSources(session, {options.file}, sources);
    if (loaded != 0) return loaded;
    const LoadedSource& source = sources[0];
    if (source.frames == 0) {
        reportError(source.path, "holds no audio to play");
        return 1;
    }
    // Backwards play starts from the end unless told otherwise.
    const uint64_t duration = source.durationMs();
    const bool backwards = options.speed < 0;
    const uint64_t startMs = !options.seek.empty() ? options.seekMs : backwards ? duration : 0;
    if (backwards ? startMs == 0 || startMs > duration : startMs >= duration) {
        reportError(source.path, "nothing to play " + std::string(backwards ? "backwards " : "") + "from " +
                                     formatTimeMs(startMs) + ": the file lasts " + formatTimeMs(duration));
        return 1;
    }

    Wavoryx& engine = session.engine();
    if (engine.playStart(source.id) != 0) {
        reportError(source.path, "cannot play: no audio output could be opened");
        return 1;
    }
    if (options.speed != 1 && engine.setPlaySpeed(options.speed) != 0) {
        engine.playStop();
        reportError(source.path, "cannot be played at speed " + std::to_string(options.speed));
        return 1;
    }
    if (startMs > 0) engine.playSeekTo(int(startMs));

    PlayLoop loop(session, source, options.speed);
    if (!loop.live() && !global.quiet) {
        std::fprintf(stderr, "playing %s: %s from %s at %dx %s\n", source.path.c_str(),
                     formatTimeMs(source.durationMs()).c_str(), formatTimeMs(startMs).c_str(), std::abs(options.speed),
                     backwards ? "backwards" : "forwards");
    }
    engine.playResume();
    const Outcome outcome = loop.run();
    if (outcome == Outcome::Ended) {
        loop.drain();
    } else {
        // Silence at once; stopping alone would play out the queue.
        engine.playPause();
    }
    engine.playStop();
    // Releasing the item closes its output (a "file:" WAV is finished).
    engine.removePcm(source.id);
    loop.clearLine();

    switch (outcome) {
        case Outcome::Failed: reportError(source.path, "playback could not start"); return 1;
        case Outcome::Interrupted: return interruptExitStatus();
        case Outcome::Ended:
            if (!global.quiet) std::printf("played %s to the end\n", source.path.c_str());
            return 0;
        case Outcome::Quit:
            if (!global.quiet) {
                std::printf("stopped %s at %s\n", source.path.c_str(), formatTimeMs(loop.lastPositionMs()).c_str());
            }
            return 0;
    }
    return 0;
}

}  // namespace

void addPlayCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<PlayOptions>();
    CLI::App* play =
        app.add_subcommand("play", "Play an audio file, with keys to pause, seek, change speed and reverse");
    play->add_option("FILE", options->file, "An audio file")->required();
    play->add_option("--seek", options->seek, "Start at this time (default 0, or the end for backwards play)")
        ->type_name("T");
    play->add_option("--speed", options->speed, "Whole-number speed, 1 to 4; negative plays backwards (default 1)")
        ->check(wholeNumberIn(playableSpeeds()))
        ->type_name("N");
    play->footer(
        "Keys (when standard input is a terminal): space pause/resume, left/right seek 5 s,\n"
        "+/- speed, r reverse, q quit. Ctrl-C stops and exits with status 130.\n"
        "The output is the sound device; WAVORYX_AUDIO_OUT=null or file:PATH plays elsewhere.\n"
        "Examples:\n"
        "  wavoryx play song.mp3\n"
        "  wavoryx play song.mp3 --seek 1:30 --speed 2\n"
        "  wavoryx play take.wav --speed -1                         # backwards from the end\n"
        "  WAVORYX_AUDIO_OUT=file:heard.wav wavoryx play song.mp3   # the frames played, to a WAV");
    play->callback([options, &line] {
        checkPlayOptions(*options);
        line.run = [options, &line] { return runPlay(*options, line.global); };
    });
}

}  // namespace wvcli
