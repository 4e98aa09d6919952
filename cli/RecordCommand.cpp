// wavoryx record -o OUT [--rate] [--channels] [--format] [--bitrate]
// [--quality] [--vbr] [--joint | --no-joint] [--effect E] [--duration T]:
// records the engine's audio input (the microphone, or what
// WAVORYX_AUDIO_IN chooses) into a WAV, MP3, FLAC, Opus, AAC or Vorbis file.
//
// The recording ends with --duration (counted in recorded audio: pauses do
// not count; the engine itself cuts it at exactly T x rate frames, so it is
// never late however busy the machine), q, or a signal (Ctrl-C, SIGTERM,
// SIGHUP, SIGQUIT).
// Each of these finishes the file and keeps it: the exit status is 0 after
// --duration and q, since stopping is how a recording is meant to end, and
// 128 + the signal after a signal. A recording that fails (the file cannot
// be written, storage fills up, the input fails) leaves no file and exits 1.
//
// Where it records while it runs: OUT itself when nothing is there yet; a
// fresh "STEM.recording-XXXXXX.EXT" beside an existing OUT, renamed over it
// once finished, so that OUT keeps its bytes until a recording replaces it;
// the working folder for a device or FIFO, copied into it at the end. A
// killed command leaves the recording where the start line said.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "AudioChoice.h"
#include "Commands.h"
#include "Encoding.h"
#include "FileKind.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "Keyboard.h"
#include "LiveLine.h"
#include "OptionChecks.h"
#include "OutputFile.h"
#include "Session.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

constexpr int kTickMs = 10;
constexpr int kDrawMs = 100;
constexpr int kMicrophoneSource = 1;
constexpr uint32_t kShortestDurationMs = 100;
// How long a stopped recording may take to end: a started one finishes its
// file; one not started yet ends at once or never.
constexpr auto kStopWait = std::chrono::seconds(10);
constexpr auto kSetupWait = std::chrono::milliseconds(300);

enum RecordEvent {
    kRecordFailed = WV_EVENT_RECORD_FAILED,
    kRecordStarted = WV_EVENT_RECORD_STARTED,
    kRecordEnded = WV_EVENT_RECORD_ENDED,
    kRecordFull = WV_EVENT_RECORD_NO_SPACE,
    kRecordResumed = WV_EVENT_RECORD_RESUMED,
    kRecordPaused = WV_EVENT_RECORD_PAUSED,
    kRecordLost = WV_EVENT_RECORD_LOST_AUDIO,
    kRecordLevel = WV_EVENT_RECORD_LEVEL
};
enum EndValue { kEndWriteError = 1, kEndNoSpace = 3 };

struct RecordOptions {
    std::string output;
    int rate = 44100;
    int channels = 1;
    EncodingChoice encoding;
    std::string effect = "none";
    std::string duration;
    uint32_t durationMs = 0;
};

int effectCode(const std::string& effect) {
    if (effect == "male") return 1;
    if (effect == "female") return 2;
    if (effect == "female-high") return 3;
    if (effect == "robot") return 4;
    return 0;
}

void checkRecordOptions(RecordOptions& options) {
    std::string why;
    if (!options.duration.empty()) {
        if (!parseTimeMs(options.duration, options.durationMs, why)) throw CLI::ValidationError("--duration", why);
        // Shorter than a few captured buffers: nothing worth keeping.
        if (options.durationMs < kShortestDurationMs) {
            throw CLI::ValidationError("--duration", "'" + options.duration + "' is " +
                                                         std::to_string(options.durationMs) + " ms: use at least " +
                                                         formatTimeMs(kShortestDurationMs));
        }
    }
    settleEncoding(options.encoding, options.output);
}

// How one recording went, from its events.
struct RecordState {
    bool started = false;
    bool paused = false;
    bool stopping = false;
    bool ended = false;
    int endValue = 0;
    bool full = false;      // paused for lack of storage space
    int failedWith = 0;     // the value of a failure event, or 0
    int level = 0;          // the loudest point since the last redraw
    uint64_t lostMs = 0;    // audio the input lost, recorded as silence
    bool haveFile = false;  // `file` is the recording's file, seen once it started
    struct stat file = {};
};

// Where the recording is written while it runs, and how it reaches OUT.
struct RecordPlace {
    OutputTarget target;
    std::string path;  // what the engine writes
    bool inPlace() const { return path == target.path; }
};

class RecordLoop {
public:
    RecordLoop(Session& session, int id, const RecordOptions& options, const RecordPlace& place)
        : mSession(session), mEngine(session.engine()), mId(id), mOptions(options), mPlace(place),
          mLine(session.options().quiet) {
        mLengthSet = options.durationMs > 0 && mEngine.setRecordDuration(int(options.durationMs)) == 0;
    }

    const RecordState& run() {
        using Clock = std::chrono::steady_clock;
        RawKeyboard keyboard;
        Clock::time_point nextDraw = Clock::now();
        while (!mState.ended) {
            for (Key key : keyboard.poll(kTickMs)) onKey(key);
            takeEvents();
            const bool timeUp = mOptions.durationMs > 0 && recordedMs() >= mOptions.durationMs;
            if (!mState.stopping && (timeUp || interruptSignal() != 0 || failed())) stop(timeUp);
            // A set-up that failed, or was stopped before it ran, sends no
            // end event; a started recording does once the file is done.
            const Clock::duration wait = mState.started ? Clock::duration(kStopWait) : Clock::duration(kSetupWait);
            if (mState.stopping && Clock::now() - mStoppedAt > wait) break;
            if (Clock::now() >= nextDraw) {
                draw();
                nextDraw = Clock::now() + std::chrono::milliseconds(kDrawMs);
            }
        }
        mLine.clear();
        return mState;
    }

    uint64_t recordedMs() const {
        const int32_t frames = mEngine.getPcmFrameLength(mId);
        const int32_t rate = mEngine.getPcmSampleRate(mId);
        return frames > 0 && rate > 0 ? uint64_t(frames) * 1000 / uint32_t(rate) : 0;
    }

private:
    // Every way of stopping (q, a signal, the duration, a failure) starts
    // the wait for the end event from now. At the duration the engine has
    // already ended the recording at its exact length: a stop now could
    // only come later than that.
    void stop(bool timeUp = false) {
        if (!timeUp || !mLengthSet) mEngine.recordStop();
        mState.stopping = true;
        mStoppedAt = std::chrono::steady_clock::now();
    }

    void onKey(Key key) {
        if (key == Key::Quit && !mState.stopping) stop();
        if (key != Key::Space || mState.stopping || !mState.started) return;
        // The display follows the engine's events 65 and 66.
        mPauseAsked = !mPauseAsked;
        if (mPauseAsked) {
            mEngine.recordPause();
        } else {
            mEngine.recordResume();
        }
    }

    void takeEvents() {
        EngineEvent event;
        while (mSession.waitEvent(event, 0)) {
            if (event.id != mId) continue;
            switch (event.code) {
                case kRecordStarted:
                    mState.started = true;
                    mState.haveFile = ::lstat(mPlace.path.c_str(), &mState.file) == 0;
                    announceStart();
                    break;
                case kRecordLost: onLost(event.value); break;
                case kRecordLevel:
                    if (event.value > mState.level) mState.level = event.value;
                    break;
                case kRecordPaused: mState.paused = true; break;
                case kRecordResumed: mState.paused = false; break;
                case kRecordFull: mState.full = true; break;
                case kRecordFailed:
                    if (mState.failedWith == 0) mState.failedWith = event.value;
                    break;
                case kRecordEnded:
                    mState.ended = true;
                    mState.endValue = event.value;
                    break;
                default: break;
            }
        }
    }

    bool failed() const { return mState.full || mState.failedWith != 0; }

    void announceStart() {
        if (mSession.options().quiet) return;
        // A live line shows the format; where the file lies is said either way.
        const std::string where = mPlace.inPlace() ? ""
                                  : mPlace.target.kind == TargetKind::Special
                                      ? " (in the working folder until it ends)"
                                      : " (in " + mPlace.path + " until it ends)";
        if (mLine.live() && where.empty()) return;
        mLine.clear();
        std::fprintf(stderr, "recording to %s%s: %s, %d Hz, %s\n", mOptions.output.c_str(), where.c_str(),
                     encodingName(mOptions.encoding.type), mEngine.getPcmSampleRate(mId),
                     mEngine.getPcmChannelCount(mId) == 1 ? "mono" : "stereo");
    }

    void onLost(int ms) {
        if (ms <= 0) return;
        mState.lostMs += uint64_t(ms);
        mLine.clear();
        reportLine(lostAudioWarning(mOptions.output, uint64_t(ms), recordedMs()));
    }

    void draw() {
        RecordView view;
        view.recordedMs = recordedMs();
        view.level = mState.level;
        view.paused = mState.paused;
        mState.level = 0;
        mLine.show(recordStatusText(view));
    }

    Session& mSession;
    Wavoryx& mEngine;
    const int mId;
    const RecordOptions& mOptions;
    const RecordPlace& mPlace;
    LiveLine mLine;
    RecordState mState;
    bool mPauseAsked = false;
    bool mLengthSet = false;  // the engine ends the recording at --duration
    std::chrono::steady_clock::time_point mStoppedAt;
};

// Why creating `path` fails now, or "" when it can be created (the
// engine's encoder could not create it, or something else failed).
std::string whyNotCreatable(const std::string& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) return errno == EEXIST ? "" : "cannot write (" + std::string(std::strerror(errno)) + ")";
    ::close(fd);
    ::unlink(path.c_str());
    return "";
}

// Why the recording failed, or "" when it finished its file.
std::string failureReason(const RecordState& state, const std::string& path) {
    if (state.full || (state.ended && state.endValue == kEndNoSpace)) return "storage full";
    if (state.failedWith == 1 || (state.ended && state.endValue == kEndWriteError)) return "write error";
    if (state.failedWith == 3) {
        // The encoder writes its header as it starts: storage or descriptors
        // that ran out fail it too.
        const std::string folder = folderOf(path);
        const int problem = folderProblem(folder);
        if (isStorageFull(problem)) return "storage full in " + folder;
        if (problem != 0) return "cannot write in " + folder + ": " + folderProblemText(problem);
        return "the encoder does not accept this rate, channel count or bit rate";
    }
    if (state.failedWith != 0) {
        if (state.started) return "the audio input failed";
        // A failed set-up ends with event 63 when the input opened but the
        // file or the input's start failed; without it the input failed.
        if (!state.ended) return "the audio input could not be opened";
        const std::string why = whyNotCreatable(path);
        return why.empty() ? "the audio input could not be started" : why;
    }
    if (!state.ended && state.started) return "the recording did not finish";
    return "";
}

// Chooses where the engine writes (see the top of this file). The engine
// also writes "<path>.wave" beside it, so a name whose ".wave" already
// exists is not used either.
// `checked` is the target as examined and decided on before the recording.
void choosePlace(const Session& session, const RecordOptions& options, const OutputTarget& checked,
                 RecordPlace& place) {
    place.target = checked;
    const OutputTarget& target = place.target;
    struct stat st;
    if (target.kind == TargetKind::Special) {
        place.path = session.workDir() + "recording" + encodingSuffix(options.encoding.type);
    } else if (target.kind == TargetKind::Absent && ::lstat((target.path + ".wave").c_str(), &st) != 0) {
        place.path = target.path;
    } else {
        do {
            place.path = freshNameBeside(target.filePath, "recording");
        } while (::lstat((place.path + ".wave").c_str(), &st) == 0);
    }
}

// Removes what a failed recording left at `place`: the file the engine
// started, never one that was there before.
void removeFailed(const RecordPlace& place, const RecordState& state) {
    struct stat st;
    if (::lstat(place.path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;
    const bool same = state.haveFile && st.st_dev == state.file.st_dev && st.st_ino == state.file.st_ino;
    // Before it started, only the engine can have made a file at a name
    // that was free: an empty one, or a bare header.
    const bool fresh = !state.haveFile && st.st_uid == ::getuid() && st.st_nlink == 1 && st.st_size <= 4096;
    if (same || fresh) ::unlink(place.path.c_str());
}

int runRecord(const RecordOptions& options, const GlobalOptions& global) {
    std::string why;
    AudioChoice input;
    if (!chooseAudioInput(input, why)) {
        reportLine(why);
        return 1;
    }
    OutputTarget checked;
    if (!examineOutput(options.output, checked, why)) {
        reportError(options.output, why);
        return 1;
    }
    if (!input.file.empty() && isSameFile(options.output, input.file)) {
        reportError(options.output, sameFileReason(input.file) + " (WAVORYX_AUDIO_IN)");
        return 1;
    }
    if (!mayReplace(checked, global.overwrite)) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    const std::string note = unusedOptionsNote(options.encoding);
    if (!note.empty()) reportLine(note);
    Session session(global);
    if (!session.open()) return 1;
    RecordPlace place;
    choosePlace(session, options, checked, place);
    Wavoryx& engine = session.engine();
    applyEncodingOptions(engine, 0, options.encoding);
    const int id = engine.recordStart(place.path.c_str(), options.encoding.type, options.rate, options.channels,
                                      options.encoding.bitrate, kMicrophoneSource, effectCode(options.effect));
    if (id <= 0) {
        reportError(options.output, "the engine refused to record (" + std::to_string(options.channels) +
                                        " channels at " + std::to_string(options.rate) + " Hz)");
        return 1;
    }
    RecordLoop loop(session, id, options, place);
    const RecordState state = loop.run();
    engine.recordStop();  // the recording stays current after a failure
    ::unlink((place.path + ".wave").c_str());

    const std::string failure = failureReason(state, place.path);
    if (!failure.empty() || !state.ended) {
        removeFailed(place, state);
        engine.removePcm(id);
        if (!failure.empty()) {
            reportError(options.output, failure);
            return 1;
        }
        // Stopped before it started: nothing was recorded.
        return interruptSignal() != 0 ? interruptExitStatus() : 1;
    }
    if (place.inPlace()) {
        giveDocumentMode(place.path);
    } else if (!commitOutput(place.path, place.target, false, why)) {
        // Beside a file, the recording is kept where it is rather than lost.
        if (place.target.kind == TargetKind::Special) {
            reportError(options.output, why);
        } else {
            reportError(options.output, why + "; the recording is in " + place.path);
        }
        engine.removePcm(id);
        return 1;
    }
    if (!global.quiet) {
        const int rate = engine.getPcmSampleRate(id);
        const uint32_t frames = uint32_t(engine.getPcmFrameLength(id));
        // Audio on standard output: the result line goes with the messages.
        std::fprintf(place.target.standardOutput ? stderr : stdout, "wrote %s: %s, %d Hz, %s, %u frames, %s%s\n",
                     options.output.c_str(), encodingSummary(engine, id, options.encoding.type).c_str(), rate,
                     engine.getPcmChannelCount(id) == 1 ? "mono" : "stereo", frames,
                     formatTimeMs(rate > 0 ? uint64_t(frames) * 1000 / uint32_t(rate) : 0).c_str(),
                     lostAudioSummary(state.lostMs).c_str());
    }
    engine.removePcm(id);
    return interruptSignal() != 0 ? interruptExitStatus() : 0;
}

}  // namespace

void addRecordCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* record = app.add_subcommand(
        "record", "Record the audio input to an audio file (WAV, MP3, FLAC, Opus, AAC, Vorbis), with a level meter");
    record->add_option("-o,--output", options->output, "The file to write; - is standard output (give --format)")
        ->required()
        ->type_name("OUT");
    record->add_option("--rate", options->rate, "Sample rate in Hz (default 44100)")
        ->check(wholeNumberIn(1000, 192000));
    record->add_option("--channels", options->channels, "1 or 2 (default 1)")->check(wholeNumberIn(1, 2));
    addEncodingOptions(record, options->encoding);
    record->add_option("--effect", options->effect, "Voice effect: none, male, female, female-high or robot")
        ->check(oneOf({"none", "male", "female", "female-high", "robot"}));
    record
        ->add_option("--duration", options->duration,
                     "Stop after this much recorded audio, at least 0.1 s (pauses do not count)")
        ->type_name("T");
    record->footer(
        "Keys (when standard input is a terminal): space pause/resume, q stop.\n"
        "q or --duration stop the recording and finish the file, which is kept (status 0);\n"
        "Ctrl-C and other signals do the same, and exit with 128 + the signal (130 for Ctrl-C).\n"
        "An existing OUT is replaced (after -y, or yes when asked) only once the recording has finished.\n"
        "A failed recording leaves no file and exits with 1.\n"
        "--duration T records exactly T x rate frames.\n"
        "Every recording, and every resume after a pause, starts silent for its first captured buffer\n"
        "(1024 frames mono, 512 stereo; at least 10 ms) and fades in to full level by 0.31 s,\n"
        "so that the click of the input starting up is not recorded.\n"
        "The input is the sound device; WAVORYX_AUDIO_IN=tone:440, silence or file:PATH records those.\n"
        "Examples:\n"
        "  wavoryx record -o take.wav\n"
        "  wavoryx record -o memo.mp3 --rate 16000 --bitrate 64 --duration 1:00\n"
        "  wavoryx record -o robot.wav --effect robot --channels 2\n"
        "  WAVORYX_AUDIO_IN=tone:440 wavoryx record -o a4.wav --duration 2.0");
    record->callback([options, &line] {
        checkRecordOptions(*options);
        line.run = [options, &line] { return runRecord(*options, line.global); };
    });
}

}  // namespace wvcli
