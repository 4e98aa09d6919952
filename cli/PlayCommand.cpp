// wavoryx play FILE [--seek T] [--speed N]: plays the file through the
// engine's output (the device, or what WAVORYX_AUDIO_OUT chooses), until
// its end, q or Ctrl-C.
//
// Forwards, a compressed file is played straight from its decoder and
// needs no working space: it is scanned (Wavoryx::scanFile, which counts
// its frames and keeps no audio) and the scan's item played, which decodes
// the file as it plays; the r key is refused then, since only loaded audio
// plays backwards. A WAV is loaded (a 16-bit PCM one is read in place, so
// it needs no space either, and r works); backwards play and standard
// input load the audio into the working folder, as described below.
//
// While it plays, a terminal on standard error shows the position line,
// and a terminal on standard input takes single keys (see PlayKeys.h).
// At the end the command waits for the output to play what it still holds
// (at most kDrainLimitMs), so the last fraction of a second is heard (or
// written, for a "file:" output) before the item is released.
//
// Playback does not wait for the whole file to load (or scan): it starts once the
// loaded part reaches kStartLeadMs past the start (--seek, or 0), or when
// the load ends, whichever comes first; only backwards play from the end
// needs the whole file. The player then follows the item as it grows and
// ends at the file's real end; should it catch up with the load, it holds
// its position (the device plays silence, a "file:" output gets nothing)
// and the live line says "buffering" until more is decoded. While the file loads, the
// duration shown is what the file states, and the start line and the
// live line say how much has loaded. A load that fails meanwhile ends the
// playback with its own message (status 1); quitting cancels the load.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "AudioChoice.h"
#include "Commands.h"
#include "FileKind.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "Keyboard.h"
#include "LiveLine.h"
#include "OptionChecks.h"
#include "OutputFile.h"
#include "PlayKeys.h"
#include "Progress.h"
#include "Session.h"
#include "StandardInput.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

constexpr int kTickMs = 50;
constexpr int kDrainPollMs = 20;
constexpr int kDrainSteadyPolls = 5;  // unchanged this long: the output is empty
constexpr int kDrainLimitMs = 3000;
// Loaded audio past the start that playback waits for: enough that it does
// not run dry at once while the load goes on.
constexpr uint64_t kStartLeadMs = 500;

enum PlayEvent {
    kPlayFailed = WV_EVENT_PLAY_FAILED,
    kPlayEnded = WV_EVENT_PLAY_END,
    kPlayWaiting = WV_EVENT_PLAY_WAITING,
    kPlayResumed = WV_EVENT_PLAY_RESUMED
};
enum class Outcome { Ended, Quit, Interrupted, Failed, LoadFailed };

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

uint64_t loadedMs(Wavoryx& engine, const LoadedSource& source) {
    const int32_t frames = engine.getPcmFrameLength(source.id);
    return frames > 0 && source.sampleRate > 0 ? uint64_t(frames) * 1000 / uint32_t(source.sampleRate) : 0;
}

// Exact once the load has ended; before that, what the file states.
uint64_t knownDurationMs(const LoadedSource& source) {
    if (source.ended || source.sampleRate <= 0) return source.durationMs();
    return uint64_t(source.stated) * 1000 / uint32_t(source.sampleRate);
}

// "" once loaded, else how much has loaded, as a share of the stated length;
// always "" for a scan, whose progress is not the player's.
std::string loadingText(Wavoryx& engine, const LoadedSource& source, bool direct) {
    if (source.ended || direct) return "";
    const uint64_t stated = knownDurationMs(source);
    const uint64_t loaded = loadedMs(engine, source);
    // All of it is there (a WAV read in place is, at once): nothing to say
    // while the load's end is on its way.
    if (stated > 0 && loaded >= stated) return "";
    const uint64_t percent = stated > 0 ? std::min<uint64_t>(99, loaded * 100 / stated) : 0;
    return std::to_string(percent) + "% loaded";
}

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Loads the file until playback can start at `startMs` (see the top of
// this file); `whole`: until the load ends. 0, 1 after a failure (its line
// printed), or the interrupt status.
int loadUntilPlayable(Session& session, SourceLoads& loads, uint64_t startMs, bool whole) {
    Wavoryx& engine = session.engine();
    const LoadedSource& source = loads.sources()[0];
    Progress progress("loading " + baseName(source.path), session.options().quiet);
    loads.setProgress(&progress, true);
    const int status = loads.waitUntil(
        [&] { return source.ended || (!whole && source.begun && loadedMs(engine, source) >= startMs + kStartLeadMs); },
        true);
    loads.setProgress(nullptr, false);
    // A bar at 100 % would say the load is over when it goes on.
    progress.finish(status == 0 && source.ended);
    return status;
}

// Cancels a load still running and waits for the engine to confirm.
void endLoad(SourceLoads& loads) {
    if (loads.allEnded()) return;
    loads.cancelRunning();
    loads.waitUntil([&] { return loads.allEnded(); }, false);
}

// One playback: the player's state as the command set it, and the keys.
class PlayLoop {
public:
    PlayLoop(Session& session, SourceLoads& loads, int speed, bool direct)
        : mSession(session), mEngine(session.engine()), mLoads(loads), mSource(loads.sources()[0]),
          mLine(session.options().quiet), mDirect(direct) {
        mView.durationMs = knownDurationMs(mSource);
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
                if (event.code == kPlayWaiting || event.code == kPlayResumed) {
                    mView.buffering = event.code == kPlayWaiting;
                    continue;
                }
                // The load's own events: its end, or its failure.
                mLoads.take(event);
                if (mLoads.failed()) return Outcome::LoadFailed;
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
        mView.durationMs = knownDurationMs(mSource);
        const std::string loading = loadingText(mEngine, mSource, mDirect);
        mLine.show(playStatusText(mView) + (loading.empty() ? "" : "  " + loading));
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
        } else if (mDirect && step.speed < 0) {
            mLine.note("backwards play needs the file loaded: play it with --speed -1");
        } else if (mEngine.setPlaySpeed(step.speed) != 0) {
            mLine.note("speed " + std::to_string(step.speed) + "x refused");
        } else {
            mView.speed = step.speed;
        }
    }

    Session& mSession;
    Wavoryx& mEngine;
    SourceLoads& mLoads;
    const LoadedSource& mSource;
    LiveLine mLine;
    const bool mDirect;
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
    if (!session.open(options.file == "-")) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    SourceLoads loads(session);
    // Backwards play starts from the end unless told otherwise.
    const bool backwards = options.speed < 0;
    const bool direct = !backwards && options.file != "-" && fileKind(inputFile(options.file)) != "WAV";
    if (direct) loads.scanInstead({}, false);
    loads.startWhole(options.file);
    const LoadedSource& source = loads.sources()[0];
    const bool fromEnd = backwards && options.seek.empty();
    const int loaded = loadUntilPlayable(session, loads, options.seekMs, fromEnd);
    if (loaded != 0) return loaded;
    if (source.ended && source.frames == 0) {
        reportError(source.path, "holds no audio to play");
        return 1;
    }
    // A load still running has reached past the start: no check is due.
    const uint64_t duration = knownDurationMs(source);
    const uint64_t startMs = fromEnd ? duration : options.seekMs;
    if (source.ended && (backwards ? startMs == 0 || startMs > duration : startMs >= duration)) {
        reportError(source.path, "nothing to play " + std::string(backwards ? "backwards " : "") + "from " +
                                     formatTimeMs(startMs) + ": the file lasts " + formatTimeMs(duration));
        return 1;
    }

    Wavoryx& engine = session.engine();
    if (engine.playStart(source.id) != 0) {
        endLoad(loads);
        reportError(source.path, "cannot play: no audio output could be opened");
        return 1;
    }
    if (options.speed != 1 && engine.setPlaySpeed(options.speed) != 0) {
        engine.playStop();
        endLoad(loads);
        reportError(source.path, "cannot be played at speed " + std::to_string(options.speed));
        return 1;
    }
    if (startMs > 0) engine.playSeekTo(int(startMs));

    PlayLoop loop(session, loads, options.speed, direct);
    if (!loop.live() && !global.quiet) {
        const std::string loading = loadingText(engine, source, direct);
        std::fprintf(stderr, "playing %s: %s from %s at %dx %s%s\n", source.path.c_str(),
                     formatTimeMs(duration).c_str(), formatTimeMs(startMs).c_str(), std::abs(options.speed),
                     backwards ? "backwards" : "forwards",
                     loading.empty() ? "" : (" while it loads (" + loading + ")").c_str());
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
    endLoad(loads);
    // Releasing the item closes its output (a "file:" WAV is finished).
    engine.removePcm(source.id);
    loop.clearLine();

    switch (outcome) {
        case Outcome::Failed: reportError(source.path, "playback could not start"); return 1;
        case Outcome::LoadFailed: return interruptSignal() != 0 ? interruptExitStatus() : 1;
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
    play->add_option("FILE", options->file, "An audio file; - is standard input")->required();
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
