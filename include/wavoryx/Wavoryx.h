/*
 * Wavoryx: an audio-editing engine.
 *
 * The application drives the engine through one class, `Wavoryx`, and hears
 * back through one callback. Every operation returns at once; long work
 * (loading, rendering, recording) runs on the engine's worker threads and is
 * reported as events on the callback thread.
 *
 * Items. Everything the engine works on is a PCM item named by an id (1, 2,
 * 3, ... never reused during the life of an engine): a loaded file, a clip
 * list or a recording. An item lives until the application has released it
 * (`removePcm`) and no job or clip list uses it any more; then its PCM file
 * in the working directory is deleted.
 *
 * Results. Operations return int32_t: WV_OK (0) for success (or the new
 * item's id for operations that create one), or one of the WV_ERR_ values
 * below. Failures inside the workers are never results: they arrive as events.
 *
 * Events. The callback is called as cb(code, itemId, value, NULL, NULL), one
 * event at a time, only on the thread that runs the callback loop
 * (`startThreadLoop`), in posting order; the codes are the WV_EVENT_ values
 * below, each with what its value means.
 *
 * Threads. Operations may be called from any thread, including from inside
 * the callback, at the same time as any other operation but the destructor.
 * A call holds the item it names until it returns: an item removed by another
 * thread meanwhile is either used whole or reported missing (-1), and a job
 * queued before its item went ends with its one ending event. Only
 * `stopThreadLoop` and the destructor wait for threads.
 */
#ifndef WAVORYX_WAVORYX_H
#define WAVORYX_WAVORYX_H

#include <stddef.h>
#include <stdint.h>

#if defined(WAVORYX_BUILDING_LIBRARY)
#define WAVORYX_API __attribute__((visibility("default")))
#else
#define WAVORYX_API
#endif

/* Output encoding of a clip list or a recording. Any other value renders as
 * ENCODE_WAV. FLAC is lossless; Opus (in Ogg) is always written at 48 kHz;
 * AAC is AAC-LC in an MP4 (.m4a) file, which needs an output that can seek;
 * Vorbis is in Ogg. Default bit rates when none is set: MP3 320, Opus 128,
 * AAC and Vorbis 192 kbit/s (Vorbis lowers a rate its encoder refuses for
 * the sample rate and channels). Default names in the working folder:
 * "<id>.wav", ".mp3", ".flac", ".opus", ".m4a", ".ogg". */
enum encode_type {
    ENCODE_WAV = 0,
    ENCODE_MP3 = 1,
    ENCODE_FLAC = 2,
    ENCODE_OPUS = 3,
    ENCODE_AAC = 4,
    ENCODE_VORBIS = 5
};

/* What operations return (besides ids of new items). */
enum wv_result {
    WV_OK = 0,
    WV_ERR_NO_ITEM = -1,          /* no such item */
    WV_ERR_WRONG_ITEM = -2,       /* the item's kind or status does not allow it */
    WV_ERR_DURATION_UNKNOWN = -3, /* the duration is not known yet */
    WV_ERR_OUT_OF_RANGE = -4,     /* an argument out of range */
    WV_ERR_NOT_READY = -5,        /* recorder or player not in the state needed */
    WV_ERR_NO_MEMORY = -6,
    WV_ERR_PLAY_START = -14       /* playback could not start */
};

/* The event codes of the callback, and what their values mean. */
enum wv_event {
    WV_EVENT_LOAD_FAILED = 0,        /* 2 unreadable, 1 not audio, 4 PCM file not created,
                                      * -11 PCM file not written */
    WV_EVENT_LOAD_PROGRESS = 3,      /* percent */
    WV_EVENT_LOAD_DONE = 4,
    WV_EVENT_LOAD_CANCELLED = 5,
    WV_EVENT_LOAD_STARTED = 6,       /* decoding started: format and duration known */
    WV_EVENT_LOAD_NO_SPACE = 7,      /* load stopped, storage full */
    WV_EVENT_LOAD_DAMAGED = 8,       /* damaged packets skipped so far (see
                                      * getLoadDamage); after a chunk that skipped
                                      * more, before the load's ending event */
    WV_EVENT_RENDER_FAILED = 20,     /* -1 no encoder (or a source that will not load),
                                      * -11 write/read/encode error, -17 the output's
                                      * name was taken (WV_OUTPUT_NO_REPLACE) */
    WV_EVENT_RENDER_PROGRESS = 21,   /* percent */
    WV_EVENT_RENDER_DONE = 22,
    WV_EVENT_RENDER_CANCELLED = 23,
    WV_EVENT_RENDER_STOPPED = 25,    /* storage full or encoder not initialised */
    WV_EVENT_LOUDNESS = 26,          /* integrated loudness, tenths of LUFS */
    WV_EVENT_TRUE_PEAK = 27,         /* tenths of dBTP */
    WV_EVENT_LOUDNESS_RANGE = 28,    /* tenths of LU; the last event of a measurement */
    WV_EVENT_SILENCES = 29,          /* silences found (getSilences); a silence scan's end */
    WV_EVENT_PLAY_FAILED = 40,       /* playback could not start */
    WV_EVENT_PLAY_END = 42,          /* playback reached the end */
    WV_EVENT_PLAY_WAITING = 43,      /* the player caught up with a load in progress:
                                      * it holds its position (the device gets
                                      * silence, a "file:" output nothing) until
                                      * more is decoded; value: the position, ms */
    WV_EVENT_PLAY_RESUMED = 44,      /* frames came after 43: playing on; value as 43 */
    WV_EVENT_RECORD_FAILED = 60,     /* 5, 3 or 1 */
    WV_EVENT_RECORD_STARTED = 61,
    WV_EVENT_RECORD_ENDED = 63,      /* 0 finished, 1 write error, 3 no space, -1 failed start */
    WV_EVENT_RECORD_NO_SPACE = 64,   /* paused, storage full */
    WV_EVENT_RECORD_RESUMED = 65,
    WV_EVENT_RECORD_PAUSED = 66,
    WV_EVENT_RECORD_LOST_AUDIO = 67, /* ms lost, filled with silence; a burst is summed,
                                      * at most one event about every 100 ms */
    WV_EVENT_RECORD_LEVEL = 80       /* waveform level 0..255, about every 20 ms */
};

/* The jobs waitForJob waits for, as a mask. */
enum wv_job {
    WV_JOB_LOAD = 1,   /* loadFile, loadFileRange, loadStream, scanFile */
    WV_JOB_RENDER = 2, /* process, measureLoudness, scanSilence: the encoder's jobs */
    WV_JOB_ANY = 3
};

/* Background-work setting of the decoder and encoder. With WV_PRIORITY_LOW
 * each worker pauses after every chunk for as long as the chunk took, so it
 * uses about half of a core. It changes no operating-system priority. */
typedef int32_t thread_priority_t;
enum { WV_PRIORITY_NORMAL = 0, WV_PRIORITY_LOW = 1 };

/* Shapes of fades and crossfades (setClipFade, setListCrossfade); x runs
 * from 0 to 1 across the fade. Linear: x. Equal power: sin(x pi/2) (a
 * crossfade keeps the power of uncorrelated material; the usual choice).
 * Logarithmic: a straight line in dB from -60 dB to 0 dB. */
enum wv_fade_shape { WV_FADE_LINEAR = 0, WV_FADE_EQUAL_POWER = 1, WV_FADE_LOG = 2 };

/* How a list's output takes its place (setOutputMode), as flags; 0 is the
 * placement setOutputPara describes.
 * WV_OUTPUT_WHOLE: nothing appears at the output's name until the render
 *   has written all of it: a missing file is written under a ".part" name
 *   beside it too, as an existing one is, flushed to the storage and then
 *   renamed over whatever regular file is at the name by then.
 * WV_OUTPUT_NO_REPLACE (implies WHOLE): the finished file takes the name
 *   only while it is free (no-replace rename); when another file took it
 *   meanwhile the render ends with event 20 (-17) and that file is left as
 *   it is. A file at the name when the render starts is never replaced.
 * WV_OUTPUT_NO_WAVEFORM: no "<file>.wave" is written.
 * WV_OUTPUT_HOLD (implies WHOLE): event 22 leaves the finished file under
 *   its ".part" name (the "<file>.wave" is placed as usual); placeOutput
 *   then puts it at the name, as WHOLE and NO_REPLACE say, or removes it.
 *   The next render of the list, or removing the list, removes it too.
 * A device or FIFO output is written as setOutputPara says in every mode. */
enum wv_output_mode {
    WV_OUTPUT_WHOLE = 1,
    WV_OUTPUT_NO_REPLACE = 2,
    WV_OUTPUT_NO_WAVEFORM = 4,
    WV_OUTPUT_HOLD = 8
};

/* How a loudness-normalised render came out (getListLoudnessResult). */
enum wv_loudness_result {
    WV_LOUDNESS_MET = 0,          /* within 0.5 LU of the target, or above it */
    WV_LOUDNESS_GAIN_LIMIT = 1,   /* short: it needed more than the +40 dB gain limit */
    WV_LOUDNESS_PEAK_CEILING = 2, /* short: the limiter holding the true-peak ceiling took
                                   * off more than the gain could add back */
    WV_LOUDNESS_NONE = 3          /* the list has no loudness to bring (silence, or under
                                   * 0.4 s of audio): rendered at 0 dB */
};

/* What a loaded file's container and codec state about its audio track
 * (see getSourceInfo). Texts are NUL-terminated, cut to fit. */
struct WvSourceInfo {
    char container[32];     /* container's short name: "mp3", "flac", "ogg", "wav",
                             * "mov,mp4,m4a,3gp,3g2,mj2", ... */
    char codec[32];         /* codec's short name: "mp3", "aac", "vorbis", "opus",
                             * "flac", "pcm_s16le", ... */
    char channelLayout[32]; /* "mono", "stereo", "5.1", ...; "" when unstated */
    int32_t sampleRate;     /* Hz */
    int32_t channels;       /* in the file; the item holds at most 2 (more are
                             * mixed down to stereo) */
    int32_t bitsPerSample;  /* of PCM and lossless codecs (FLAC's 16 or 24); 0
                             * for codecs that have no such width */
    int32_t bitRate;        /* bit/s as stated (a mean for VBR); 0 when unstated */
    int64_t durationUs;     /* the stated duration; -1 when unstated. A decoded
                             * length may differ by a few codec frames. */
};

/* One set of peaks a scan (scanFile) gathers: frames [startFrame, startFrame
 * + frames) of the file, counted as its item counts them (the rate and the
 * one or two channels getPcmSampleRate and getPcmChannelCount report), in
 * `count` bins split as getWaveformPeaks splits them: bin i covers frames
 * [startFrame + i x frames / count, startFrame + (i + 1) x frames / count),
 * and gets the smallest and largest sample of its frames. `channel` picks
 * the samples: WV_PEAKS_ALL_CHANNELS every channel's, WV_PEAKS_CHANNEL_MEAN
 * each frame's sum of its channels divided by their number (rounded toward
 * zero), 0 or 1 that channel's alone (0 is left, or the mono channel). A
 * bin with no frame in the file (the file ends sooner, count > frames, a
 * channel 1 of a mono file) gives (0, 0). */
enum { WV_PEAKS_ALL_CHANNELS = -1, WV_PEAKS_CHANNEL_MEAN = -2 };
struct WvPeakSet {
    uint32_t startFrame;
    uint32_t frames; /* 1 or more */
    uint32_t count;  /* 1 or more */
    int32_t channel; /* WV_PEAKS_ALL_CHANNELS, WV_PEAKS_CHANNEL_MEAN, 0 or 1 */
};

/* The client callback: (event code, item id, event value, NULL, NULL). */
typedef void (*wavoryx_callback_t)(int, int, int, char*, void*);

/* Up to here the header is also C (wavoryx_c.h includes it for these
 * types and codes); the class and the rest are C++ only. */
#ifdef __cplusplus
class WavoryxPriv;

class WAVORYX_API Wavoryx {
public:
    /* Starts the decoder, encoder and recorder workers. The
     * callback loop is not started: see startThreadLoop. */
    Wavoryx();
    /* Ends and joins the workers (the chunk in progress finishes, queued work
     * is dropped) and stops playback. Call stopThreadLoop first. Items still
     * registered are not released: their PCM files stay on the disk. */
    ~Wavoryx();
    Wavoryx(const Wavoryx&) = delete;
    Wavoryx& operator=(const Wavoryx&) = delete;

    /* Runs the callback loop: on the calling thread when inCallerThread is
     * non-zero (returns only after stopThreadLoop), else on a new thread
     * (returns at once). Events posted before it wait for it, except the
     * waveform levels (80), which are dropped while no loop runs. Each start
     * needs a matching stop. Returns 0. */
    int32_t startThreadLoop(int inCallerThread);
    /* Ends the callback loop; joins its thread when startThreadLoop(0)
     * started it. Events still queued wait for the next start. Returns 0. */
    int32_t stopThreadLoop();
    /* NULL switches delivery off: events are then taken and dropped. */
    int32_t setCallback(wavoryx_callback_t callback);
    /* The same, and every event then carries `user` as the callback's last
     * argument (cb(code, itemId, value, NULL, user)), so that one callback
     * serves several engines. Callback and user change together: an event
     * is delivered with the pair set before it or the pair set after it,
     * never one of each. Returns 0. */
    int32_t setCallback(wavoryx_callback_t callback, void* user);
    /* Kept for compatibility: no effect, returns 0. */
    [[deprecated("does nothing; kept for compatibility")]] int32_t enableWaveformCallback(int, int,
                                                                                          int, int);
    /* Prefix of every file name the engine makes ("<dir><id>.pcm"): give it
     * with its trailing '/'. Default "/mnt/sdcard/". Set it before starting
     * work. A NULL text counts as "". Returns 0.
     * Give the engine a folder of its own (mkdtemp): PCM files are created
     * with mode 0600 and O_EXCL, close-on-exec, and stay locked (flock) for
     * their item's life. An existing "<dir><id>.pcm" is reused only when it
     * is a regular file of this user with one link that no live engine
     * holds (one left by an earlier run); anything else there (a symlink, a
     * hard link, another user's file, another engine's live file) is left
     * untouched and the load fails with event 0 (4). */
    int32_t setWorkingDir(char const* dir);
    int32_t setThreadPriority(thread_priority_t priority);
    /* Diagnostic walk of the engine's queues and items; prints nothing. */
    int32_t dump();
    /* Drops the application's reference: returns the id, or 0 when no item
     * has it. */
    int32_t removePcm(int id);
    /* Waits for the end of the item's jobs of `kinds` (a wv_job mask):
     * its load or scan (loadFile, loadFileRange, loadStream, scanFile;
     * WV_JOB_LOAD) and its renders and
     * loudness measurements and silence scans (process, measureLoudness,
     * scanSilence; WV_JOB_RENDER),
     * whichever were queued and not yet ended. A job has ended when the
     * callback loop takes its ending event to deliver it (load 0, 4, 5 or
     * 7; render 20, 22, 23 or 25; measurement 20, 23 or 28; silence scan
     * 20, 23 or 29): by then the
     * callback has returned from every earlier event, the engine's answers
     * about the job (frames, rates, damage, loudness result) are final, and
     * the ending event is in or on its way to the callback. So the one
     * callback the application installed still gets every event; one that
     * queues them for another thread finds, when it takes an ending event
     * from its queue, that this answers it at once. With no callback set the
     * events are dropped as usual and the wait ends all the same; but only a
     * running callback loop (startThreadLoop) hands events out.
     * Returns the code of the last ending event (>= 0) and stores its value
     * in *value when `value` is not NULL; the same answer comes at once, as
     * often as asked, until a new job of those kinds is queued for the item.
     * timeoutMs: how long to wait, in ms; 0 only looks; negative: no limit.
     * WV_ERR_NOT_READY (-5) when a job still runs after timeoutMs. On the
     * thread of the callback loop (inside the callback) it never waits, as
     * the loop would wait for itself: it answers at once, -5 while a job
     * runs, the ending code from the ending event on. WV_ERR_WRONG_ITEM
     * (-2) for an item that never had a job of those kinds (recordings have
     * none: see event 63); WV_ERR_NO_ITEM (-1) for an id that names no item
     * and never had one (an item removed after its job still answers);
     * WV_ERR_OUT_OF_RANGE (-4) for `kinds` outside 1..3. Any thread, any
     * number at once; not while the engine is being destroyed. */
    int32_t waitForJob(int id, int kinds, int timeoutMs, int32_t* value);

    /* Registers a new item for the audio file and queues its decoding into
     * "<dir><id>.pcm". Returns the new id; an unreadable file is reported by
     * event 0. Only regular files are read: a FIFO, socket or device (or a
     * link to one) is refused with event 0 (2) without blocking. */
    int32_t loadFile(char const* path);
    /* What the file of a loaded item states (container, codec, rate,
     * channels, layout, bits, bit rate, duration), known from event 6 on
     * without decoding anything: a client that only wants these may cancel
     * the load then. Returns 0; -1 for an unknown id; -2 for a list or a
     * recording under way; -3 before event 6, after a load that failed to
     * open the file, or for a finished recording; -4 for a null `info`. */
    int32_t getSourceInfo(int id, WvSourceInfo* info);
    /* A tag the loaded file states about itself. `name` is one of "title",
     * "artist", "album", "date", "track" or "comment" (any case), the same
     * for ID3, Vorbis comments, MP4 atoms and the other containers' tags; a
     * tag of the container comes before one of the audio track. Copies the
     * value (UTF-8) into `value`, NUL-terminated and cut to `size` - 1
     * bytes at most (never inside a character), and returns the value's
     * whole length in bytes: a result >= size means it was cut. Returns 0
     * (and "") when the file states no such tag. Known from event 6 on, as
     * getSourceInfo; -1, -2, -3 as there; -4 for a null `name` or `value`,
     * a `size` of 0 or another name. */
    int32_t getSourceTag(int id, char const* name, char* value, unsigned int size);
    /* The chapters the loaded file states, as FFmpeg reads them (MP3
     * ID3v2 CHAP frames, MP4 chapters, Ogg and FLAC CHAPTERxx comments,
     * Matroska chapters), in the container's order. Returns their number;
     * -1, -2, -3 as getSourceInfo. Known from event 6 on. */
    int32_t getSourceChapterCount(int id);
    /* Chapter `index` (0 for the first): its first frame and the frame
     * after its last, at the rate getPcmSampleRate reports, rounded to the
     * nearest frame from the container's times (for a part loaded by
     * loadFileRange, counted from the part's start and cut to the part: a
     * chapter that began before it starts at 0, one wholly outside it is not
     * counted),
     * and its title as getSourceTag copies a value (UTF-8, cut to `size` -
     * 1 bytes, never inside a character; "" when it has none). Returns the
     * title's whole length in bytes; -1, -2, -3 as getSourceInfo; -4 for
     * an index past the last, a null pointer or a `size` of 0. Any thread. */
    int32_t getSourceChapter(int id, unsigned int index, uint32_t* startFrame, uint32_t* endFrame,
                             char* title, unsigned int size);
    /* Damaged data a load passed over. A packet the codec refuses or cannot
     * decode (corrupt bytes, a frame cut short) is skipped and decoding goes
     * on with the next one, the codec keeping its state (what it conceals
     * stays); so a damaged file gives the audio around the damage, without
     * the skipped packets' frames. Returns how many packets were skipped
     * so far (0: none; final once the load ended), and sets *firstMs (when
     * not NULL) to the time in the item, in ms, where the first one lay.
     * Event 8 tells when the count grew. -1 for an unknown id. A file cut
     * short ends where its data ends: that is no damage (compare the frames
     * with the stated length). */
    int32_t getLoadDamage(int id, unsigned int* firstMs);
    /* The length the file of a loaded item states, in frames at the rate
     * getPcmSampleRate reports, into *frames (for a part loaded by
     * loadFileRange, the part's, cut at the stated end), known from event 6
     * on without decoding anything; the same answer every time, whether or
     * not the load has ended since. Returns 1 when the container states the
     * length exactly: a WAV's data size, the total of a FLAC or WavPack
     * stream header, an MP3's info frame (frame count x samples per frame
     * less the encoder delay and padding of its encoder tag, which the
     * decoder drops); a load that ends well then holds exactly that many
     * frames. Returns 0 when the length is only an estimate from a stated
     * or guessed duration (rounded down to a frame). -3 (and *frames 0) when
     * the file states no length, and as getSourceInfo; -1 and -2 as there;
     * -4 for a null `frames`. Any thread. */
    int32_t getSourceFrames(int id, uint32_t* frames);
    /* Like loadFile (same events 6/3/4/0/5/7, same "<dir><id>.pcm", same
     * cancelLoadFile), but the item holds only the frames
     * [startMs x rate / 1000, endMs x rate / 1000) of the file (64-bit
     * integer arithmetic, rate = the track's), the end cut at the file's
     * end; where the file states its length exactly (see getSourceFrames)
     * an endMs in its last, partial millisecond or past it takes the file
     * to its last frame. Those frames are identical, bit for bit, to the same frames of a
     * loadFile of the whole file. The decoding starts a little before the
     * part; what lies before that is read (demuxed) but not decoded. Two
     * exceptions decode every packet from the start (keeping nothing
     * before the part): Opus, whose decoder state only converges towards
     * the whole decode's, and AAC, whose noise substitution draws from a
     * generator that carries the whole stream's history. A WAV is copied
     * to the PCM file, not read in place. Expected length (at event 6) is
     * the part's length cut at the file's stated duration. A start at or
     * past the end gives an empty item: 0 frames, events 6 then 4,
     * PCM_READY, and getPcmDuration -3 (no expected length); ask
     * getPcmFrameLength to tell it apart. endMs <= startMs: -4, nothing is
     * registered. A file damaged before the part may give frames where a
     * whole load would have stopped early. */
    int32_t loadFileRange(char const* path, unsigned int startMs, unsigned int endMs);
    /* Decodes the file once from start to end and keeps none of its audio:
     * nothing is written to the working directory (a WAV is decoded too,
     * not read in place), so it works with a full or unwritable one. On
     * its way it counts the frames and gathers what is asked for: the
     * `setCount` peak sets of `sets` (see WvPeakSet; copied, read back with
     * getScanPeaks) and, when `loudness` is non-zero, the loudness that
     * measureLoudness would find for a loadFile of the same file (read back
     * with getScanLoudness). Returns the new item's id, whose load runs as
     * loadFile's: the same events 6, 3, 8, then 4, or 0 (1 or 2 as there;
     * -11 when the loudness cannot be measured, e.g. at a rate the meter
     * does not take), or 5 after cancelLoadFile; never 7. Its facts, tags,
     * damage, rate, channels and frame count (getSourceInfo, getSourceTag,
     * getLoadDamage, getSourceFrames, getPcmSampleRate,
     * getPcmChannelCount, getPcmFrameLength, getPcmDuration) are as for a
     * loadFile of the file; the frames it counts are exactly those a
     * loadFile holds. The item has no audio: addClip (as a source),
     * measureLoudness, getWaveformSamples and getWaveformPeaks refuse it
     * with -2; playStart plays the file itself (see there). Release it with removePcm as any item. The work is
     * the decoder worker's (one file at a time with the loads, one step of
     * about 64 KB of audio per command); memory is the peak sets' bins (4
     * bytes each) and, for the loudness, under 1 KB per second of audio.
     * Returns -4 for setCount > 0 with a NULL `sets`, a set whose frames or
     * count is 0 or whose channel is not one of the four values, or whose
     * startFrame + frames passes 2^32; -6 when the bins do not fit in
     * memory. Any thread. */
    int32_t scanFile(char const* path, WvPeakSet const* sets, unsigned int setCount, int loudness);
    /* The bins of peak set `set` (0 for the first) of a scan, once its
     * event 4 is posted: `count` pairs into minMax (2 x count values,
     * minimum then maximum of each bin). Returns count; -1 unknown id; -2
     * not a scan; -3 before event 4 or after a scan that failed or was
     * cancelled; -4 for a set the scan was not given, a count other than
     * that set's or a NULL minMax. Any thread. */
    int32_t getScanPeaks(int id, unsigned int set, int16_t* minMax, unsigned int count);
    /* The loudness a scan measured, once its event 4 is posted, in the
     * units and rounding of events 26, 28 and 27: integrated loudness
     * (tenths of LUFS), loudness range (tenths of LU), true peak (tenths
     * of dBTP); INT32_MIN for minus infinity. Returns 0; -1 unknown id; -2
     * not a scan, or one not asked for its loudness; -3 as getScanPeaks;
     * -4 for a NULL pointer. Any thread. */
    int32_t getScanLoudness(int id, int32_t* integratedTenths, int32_t* rangeTenths,
                            int32_t* truePeakTenths);
    /* Like loadFile (same events, same "<dir><id>.pcm", same cancelLoadFile),
     * but the audio comes from the open descriptor `fd` (a pipe, a socket, or
     * a file read from where its offset stands), read once, front to back,
     * never seeking, as the decoding goes: the item grows while the bytes
     * arrive, so a render of its first seconds can end long before the
     * stream does. The engine reads its own duplicate of `fd` (the caller
     * may close `fd` at once) and closes it when the load ends; the load
     * ends at the stream's end (event 4) or on cancelLoadFile, which acts
     * once the read under way has returned: a writer that stalls holds the
     * decoder until it writes or closes its end. Formats whose parser reads
     * front to back stream: MP3, ADTS AAC, Ogg (Vorbis, Opus, FLAC), FLAC,
     * WAV (decoded, never read in place). One that needs to seek (an MP4
     * with its index after its samples, unless the file is small enough to
     * stay in the parser's buffer) gives no audio: event 0 (1), or event 4
     * with 0 frames; keep such a stream in a file and use loadFile. The stream states no length unless its header does:
     * getSourceFrames may answer -3, as for a file that states none. Returns
     * the new id; -4 when `fd` is not an open descriptor (nothing is
     * registered). Any thread. */
    int32_t loadStream(int fd);
    int32_t cancelLoadFile(int id);
    /* Rate (Hz) and channels of the item. For a list being rendered or
     * rendered, and a recording, those of its file once the encoder has
     * started (an MP3 at a low bit rate is written at a lower rate of the
     * encoder's choice). */
    int32_t getPcmSampleRate(int id);
    int32_t getPcmChannelCount(int id);
    /* Frames present now: grows while the item loads or renders; counted
     * at the rate getPcmSampleRate reports. */
    int32_t getPcmFrameLength(int id);
    /* Expected duration in ms, -3 while unknown. */
    int32_t getPcmDuration(int id);
    /* A loaded file's samples where the engine keeps them, to map rather
     * than copy: returns a new read-only, close-on-exec descriptor (>= 0)
     * of the file that holds them, which the caller owns and closes, with
     * *offset the byte their first frame starts at and *bytes their
     * length: getPcmFrameLength x channels x 2 bytes of interleaved
     * little-endian int16 at getPcmSampleRate and getPcmChannelCount, the
     * decoded item's own format. The file is the item's PCM file in the
     * working directory (offset 0), or the WAV itself for one read in place
     * (offset 44). The data never changes while the descriptor or a mapping
     * of it lives, also after removePcm or the engine's end (the name is
     * gone then, the file not). Returns WV_ERR_NO_ITEM; WV_ERR_WRONG_ITEM
     * for an item that is not a finished load (a clip list, a scan, a
     * recording, a load still running, failed or cancelled) or whose file
     * cannot be opened or is shorter than its frames (a WAV read in place
     * that was replaced); WV_ERR_OUT_OF_RANGE for a NULL pointer. Any
     * thread; no event. */
    int32_t openPcmData(int id, uint64_t* offset, uint64_t* bytes);
    /* `count` 8-bit peaks of [startMs, endMs) into `buffer`; an endMs in
     * the item's last, partial millisecond or past it ends at its last
     * frame. */
    int32_t getWaveformSamples(int id, unsigned int startMs, unsigned int endMs, unsigned int count,
                               void* buffer);
    /* True minimum and maximum of [startMs, endMs), for drawing: `count`
     * pairs into minMax (2 x count values), minMax[2i] the smallest and
     * minMax[2i + 1] the largest 16-bit sample of bin i over all channels,
     * as stored (a positive-only signal keeps a positive minimum).
     * Milliseconds become frames as ms x rate / 1000 (integers), cut at the
     * item's length (the expected length of an item still loading), and an
     * endMs in the last, partial millisecond or past it is the last frame,
     * so that a range to the end leaves nothing out; a clip
     * list's time runs through its clips one after the other, each lasting
     * its frames / its source's rate, exactly. With start and end those
     * frames and n = end - start, bin i covers frames [start + i x n /
     * count, start + (i + 1) x n / count), integer division in 64 bits, so
     * every frame is in exactly one bin. When count > n some bins hold no
     * frame: they give (0, 0), as do bins whose frames an item still
     * loading has not produced yet. A list's frames are its clips' frames
     * one after the other, each in its source's own rate and channels,
     * unconverted: the extremes are the sources' own samples. Reads the
     * PCM files once from start to end, 64 KB at a time, on the calling
     * thread: an hour of 44.1 kHz stereo (635 MB in the page cache) takes
     * about 0.12 s of CPU, no memory beyond 64 KB. Returns count;
     * WV_ERR_NO_ITEM; WV_ERR_OUT_OF_RANGE for an empty range (a start at or
     * past the end, an item with no frames yet), count 0 or a NULL minMax;
     * WV_ERR_NO_MEMORY. */
    int32_t getWaveformPeaks(int id, unsigned int startMs, unsigned int endMs, unsigned int count,
                             int16_t* minMax);
    /* The same peaks over frames [startFrame, endFrame) of the item,
     * counted as getWaveformPeaks counts them (a list: its clips' frames
     * one after the other, each in its source's own rate, unconverted).
     * endFrame is cut at the item's length (the expected length of an item
     * still loading), so PcmInfoReader-style "to the end" is UINT32_MAX.
     * getWaveformPeaks is this call on the frames its milliseconds name:
     * the bins are the same. Bins, threads and cost as there. Returns
     * count; WV_ERR_NO_ITEM; WV_ERR_WRONG_ITEM for a scan;
     * WV_ERR_OUT_OF_RANGE for an empty range (a start at or past the end),
     * count 0 or a NULL minMax; WV_ERR_NO_MEMORY. */
    int32_t getWaveformPeaksFrames(int id, uint32_t startFrame, uint32_t endFrame,
                                   unsigned int count, int16_t* minMax);
    /* Reads the output of item `id` from its output frame startFrame on:
     * up to `frames` frames of 16-bit interleaved PCM into `out` (frames x
     * channels values), exactly the frames a WAV render of the item
     * (process() with ENCODE_WAV) writes at those places: for a clip list
     * its effects, fades, crossfades, gains and rate conversion included,
     * at the rate and channels that render would use (setEncodePara's,
     * else those its clips suggest; see getPcmSampleRate). For a loaded
     * file, its own frames. Loudness normalisation is not applied. From
     * any frame, in pieces of any size, the frames are the render's, byte
     * for byte. A read that continues where an earlier one of the item
     * ended (from any thread; the engine keeps a few such places) goes on
     * from there. Elsewhere in a list of one rate it starts at once; in a
     * list that converts a clip's rate (whose converter would start afresh
     * in the middle of the clip) it reads on from the nearest kept place
     * before the frame, or from the list's start, up to it: such a seek
     * costs the reading of the frames it passes. Returns the frames read: 0 at the
     * end of the item, WV_ERR_NOT_READY (-5) when a source still loads and
     * none of the frames asked for is decoded yet (ask again),
     * WV_ERR_NO_ITEM, WV_ERR_WRONG_ITEM for a scan, a recording or a list
     * whose source failed to load (or whose format is not known yet: -5),
     * WV_ERR_OUT_OF_RANGE for a NULL `out` or 0 frames, WV_ERR_NO_MEMORY.
     * Writes nothing; runs on the calling thread; any thread, any number
     * at once. */
    int32_t readPcm(int id, uint32_t startFrame, int16_t* out, uint32_t frames);
    /* How many frames readPcm hands out for the item in all (the frame
     * count of its WAV render), into *frames, without reading them: a
     * loaded file's frames; a list's length after its crossfades and rate
     * conversions, once every source has finished loading. Returns 0;
     * WV_ERR_DURATION_UNKNOWN (-3) while a source still loads, or for a
     * list without effects whose linear converter (setResampleQuality 0)
     * converts a clip (its lengths are known only by reading);
     * WV_ERR_NO_ITEM; WV_ERR_WRONG_ITEM as for readPcm;
     * WV_ERR_OUT_OF_RANGE for a NULL `frames`. Any thread. */
    int32_t getPcmOutputFrames(int id, uint32_t* frames);

    /* A new empty clip list; returns its id. */
    int32_t newClipList();
    /* Appends the frames [startFrame, endFrame) of item pcmId to the list;
     * the range is cut at the source's length. A list as the source counts
     * the frames its own render would hand out (at its setEncodePara rate
     * and channels, else its clips': crossfades, tempo and converted clips
     * included), and is heard as that render would be: read in its own
     * format, then converted like a file of it. Returns the clip's number
     * (1, 2, ...), -1, -2, or -4 when the list would contain itself. */
    int32_t addClip(int listId, int pcmId, unsigned int startFrame, unsigned int endFrame);
    /* The same in milliseconds, converted when the source's rate is known;
     * an endMs in the source's last, partial millisecond or past it ends the
     * clip at the source's last frame. */
    int32_t addClipMs(int listId, int pcmId, unsigned int startMs, unsigned int endMs);
    /* Effects of a list, applied wherever the list is read: render,
     * playback (forwards and backwards, from any seek), waveform, loudness.
     * They are computed in 32-bit float and converted to 16 bits once, with
     * triangular dither whose noise depends only on the frame's place, so a
     * list renders to the same bytes every time and playback hands out
     * exactly those bytes (noise reduction and tempo: see setListDenoise).
     * A list with no effect set (every gain 0, no fade, no crossfade, no
     * noise reduction, tempo 100) reads byte for byte as plain joined
     * clips. Gains are in millibels (hundredths of a dB), -9600 to +2400;
     * samples beyond full scale saturate, never wrap. Settings take effect
     * at the next block read, also during playback; a render uses each
     * block's settings.
     * A clip whose rate differs from the output's takes the length the
     * converter makes of it, and its fades and crossfades count at the
     * output rate; a seek into such a clip restarts its converter, so
     * playback from there can differ slightly from the render (at equal
     * rates it never does).
     * A list used as a clip of another list brings its own effects
     * (converted to 16 bits there) and the outer list adds its own.
     * Read while a source still loads, the list hands out what it will
     * hand out once loaded: the frames that the source's final length
     * decides (its clip's last fade out or crossfade, where the next clip
     * starts) wait for that length.
     * Each returns 0; -1 (WV_ERR_NO_ITEM) for an unknown listId, -2
     * (WV_ERR_WRONG_ITEM) for an item that is not a list, -4
     * (WV_ERR_OUT_OF_RANGE) for a value out of range or a clip number the
     * list does not have. */
    /* Gain of one clip (its number as addClip returned it). */
    int32_t setClipGain(int listId, int clip, int millibels);
    /* Fade in from silence over the clip's first inMs (its first frame is
     * silent) and out to silence over its last outMs (its last frame is
     * silent), in `shape` (a wv_fade_shape). 0 turns a fade off. When
     * inMs + outMs exceed the clip, both are shortened in proportion to
     * fit it exactly (the fades meet, never overlap). */
    int32_t setClipFade(int listId, int clip, unsigned int inMs, unsigned int outMs, int shape);
    /* Each join of consecutive clips overlaps by ms (counted at the rate of
     * the clip before the join): the clip before fades out while the next
     * fades in, in `shape` (WV_FADE_EQUAL_POWER is the usual choice). The
     * list gets shorter by the overlap of every join, and so do its frame
     * count, duration and every frame or ms position in it. An overlap is
     * clamped to half of the shorter of its two clips, so no frame mixes
     * more than two clips. 0 (the default) keeps hard joins exactly. */
    int32_t setListCrossfade(int listId, unsigned int ms, int shape);
    /* Gain of the whole list, applied to the sum of its clips. */
    int32_t setListGain(int listId, int millibels);
    /* Noise reduction of the whole list, after its gains, fades and
     * crossfades: FFmpeg's afftdn filter (spectral noise gating that tracks
     * the noise floor; no model file), pulling the noise down by about
     * amountDb, 1 to 97 dB; 0 (the default) turns it off. 20 dB takes the
     * noise between words of speech with noise 20 dB below it down by
     * about 14 dB and changes the speech's loudness by less than 1 LU. The
     * filter's delay is taken out: output frame i is list frame i, and the
     * list keeps its length. Costs about 1/50 of real time for 44.1 kHz
     * stereo. FFmpeg's libavfilter is opened at the first list read with
     * it on. */
    int32_t setListDenoise(int listId, int amountDb);
    /* Tempo of the whole list without moving its pitch (SoundTouch's time
     * stretch, after the noise reduction), in percent of the clips' own
     * speed: 50 (half speed) to 200 (double); 100 (the default) is off. A
     * list of N frames (as its crossfades leave it) then lasts exactly
     * round(N x 100 / tempoPercent) frames, and every frame count,
     * duration and position of the list counts in that time.
     * Both effects run over the list as one stream: a render, a loudness
     * measurement or playback from the start hear the same frames; a read
     * that starts elsewhere (a seek) starts them half a second of the list
     * earlier, so its first frames can differ slightly from a read
     * straight through (playing backwards reads in such pieces).
     * getWaveformPeaks reads the clips' own frames, unstretched. Both
     * return as the other effects do (-4 for a value out of range). */
    int32_t setListTempo(int listId, int tempoPercent);
    /* Output file (empty: "<dir><id>.wav" or ".mp3") and encoding.
     * Outputs (this file, its "<file>.wave", a recording's file) are
     * created new, mode 0666 less the umask. An existing regular file (or a
     * link to one: the file it leads to) is kept, bytes and mode, until the
     * job completes: the job writes "<file>.<pid>.<n>.part" beside it and
     * renames that over it at the end. The job locks (flock) that file while
     * it lives; one left unlocked by a killed process is removed by the next
     * job that replaces the same file. A device or FIFO (or a link to one)
     * is written as it is, never removed, renamed over or chmod'ed; a FIFO
     * needs a reader when the job starts. A link to nothing is refused. */
    int32_t setOutputPara(int listId, char const* path, encode_type type);
    /* How the list's outputs take their place from the next process() on:
     * wv_output_mode flags, 0 (the default) as setOutputPara says. Returns
     * 0; -4 for other bits; -1 for an unknown id, -2 for an item that is
     * not a list. Any thread. */
    int32_t setOutputMode(int listId, int flags);
    /* After a render under WV_OUTPUT_HOLD that ended with event 22: keep 1
     * puts its file at the output's name, keep 0 removes it. Returns 0;
     * -17 when WV_OUTPUT_NO_REPLACE found the name taken and -11 when the
     * file could not be put in place (both remove it, and leave whatever is
     * at the name as it was); -3 when the list holds no such file (none
     * rendered, or already placed or removed); -1 for an unknown id, -2 for
     * an item that is not a list. Any thread. */
    int32_t placeOutput(int listId, int keep);
    /* Writes `size` bytes of `data` (a picture, a text the client made) as
     * the output `path`, placed as a render's output with setOutputMode's
     * WV_OUTPUT_WHOLE and WV_OUTPUT_NO_REPLACE flags (other flags: -EINVAL);
     * a device or FIFO is written into as setOutputPara says. Returns 0, or
     * minus an errno value: -ENOSPC when the storage is full, -EEXIST when
     * NO_REPLACE found the name taken; the target is then as it was. Needs
     * no engine thread; any thread. */
    static int32_t writeOutputFile(char const* path, const void* data, size_t size, int flags);
    /* Output format; values below 1 are chosen from the clips when the
     * render starts (bit rate: 320 kbit/s). forceStereo makes 2 channels. */
    int32_t setEncodePara(int listId, int sampleRate, int bitRate, int channelCount,
                          int forceStereo);
    /* MP3 encoding choices of a list, or with id 0 of the recordings
     * started from then on; read when a render or recording starts.
     * `quality`: LAME's algorithm quality, 0 (best, slowest) to 9; default
     * 5. `vbr`: 0 (default) a constant bit rate, setEncodePara's; 1 to 9
     * LAME's VBR quality levels 1 (larger, better) to 9, the bit rate then
     * being LAME's choice. `jointStereo`: 0 (default) two channels are
     * coded apart (dual channel); 1 joint stereo, as most MP3 encoders do
     * by default; 2 plain stereo (left and right coded apart in every
     * frame, one programme, as some decoders need). Returns 0; -4 for a
     * value out of range; -1 for an unknown id, -2 for an item that is not
     * a list. WAV ignores them. */
    int32_t setEncodeOptions(int id, int quality, int vbr, int jointStereo);
    /* Sample-rate converter of a list's renders, used for every clip whose
     * source rate differs from the output rate; read when a render starts.
     * 0 (default): the process default, which is the linear converter
     * (output byte for byte as earlier versions made it) unless the
     * property "af.resampler.quality" says 5 (high) or 6 (very high).
     * 1 high, 2 very high: a band-limited converter (20- and 28-bit
     * precision) whatever the property says; any rate from 8 to 192 kHz to
     * any other, no aliasing, and a clip of N frames at rate `in` becomes
     * exactly round(N x out / in) frames at rate `out` (halves round up;
     * the list's length is the sum over its clips). The linear converter
     * gives about one frame more per clip and needs a source rate below
     * 4 x the output rate. Returns 0; -4 for a value out of range; -1 for
     * an unknown id, -2 for an item that is not a list. */
    int32_t setResampleQuality(int listId, int quality);
    /* Threads that encode a list's renders, read when a render starts; 0
     * to 64. 1: one encoder on the render's own thread, the output byte for
     * byte as earlier versions made it. 0 (default): the process default,
     * the property "af.encoder.threads" (0 to 64), whose own default 0
     * means one thread per core for renders of at least 10 s, one for
     * shorter ones. With more than one, an MP3 is encoded in segments of
     * about 10 s on that many threads, joined so that the file decodes to
     * exactly the list's frames, at the same place, gapless (the audio of
     * each join within LAME's own run-to-run differences, not the bytes of
     * a one-thread encode; a VBR MP3 at most a few hundred bytes per join
     * larger); a render of one segment or less, or an MP3 whose rate LAME
     * converts, is encoded on one thread as before. A FLAC is encoded
     * in segments of whole blocks (about 10 s) on that many threads, its
     * frames renumbered into one stream: the same bytes as with 1.
     * Opus, AAC and Vorbis are encoded on one thread of their own while
     * the render's thread reads, mixes and applies effects to the list:
     * the same bytes as with 1 (Ogg stream serial numbers aside, which
     * differ between any two renders). A normalised render
     * (setListLoudness) also measures the list in parts at once on that
     * many threads when every source is loaded, at the output rate and not
     * a list, without noise reduction or tempo, and the list lasts at
     * least 2 s; the loudness found then matches one thread's within
     * 0.01 LU, so the gain and a sample here and there may differ by their
     * last digit (one step of 16-bit). Returns 0; -4 for a value out of
     * range; -1 for an unknown id, -2 for an item that is not a list. */
    int32_t setEncodeThreads(int listId, int threads);
    /* Loudness normalisation of the list's renders from the next process()
     * on. lufsTenths: the integrated loudness (ITU-R BS.1770 / EBU R128)
     * the output is brought to, in tenths of LUFS, -700 to -50 (-160 for
     * -16 LUFS, -230 for -23); truePeakTenths: the true peak the output
     * stays at or under, in tenths of dBTP, -200 to 0 (-10 for -1 dBTP).
     * lufsTenths 0 switches normalisation off again (truePeakTenths is
     * then ignored): the list renders as one that never had it, byte for
     * byte.
     *
     * Such a render reads the list two to five times. It measures the list
     * (progress 0-25 %); when the gain would bring its sample peak within
     * 1 dB of the ceiling, it measures the gained and limited audio (25-50
     * %, up to three times) and raises the gain by what limiting took off
     * the loudness, until a check is within 0.1 LU of the target (at most
     * +15 dB over the plain gain); then it encodes (50-100 %). The plain
     * gain is target - measured loudness, at most +40 dB; a list without an
     * integrated loudness (silence, under 0.4 s of audio) keeps 0 dB, so
     * silence stays silence but for the dither (+-1 LSB). A look-ahead
     * limiter (5 ms attack ramp, 100 ms release, no added delay: the output
     * has the list's length and timing) keeps the true peak (4x and 8x
     * oversampled) 0.1 dB under the ceiling, so that meters built either
     * way read at most the ceiling; the audio is processed in 32-bit float
     * and dithered (TPDF) to 16-bit once. The result meets the target
     * within 0.5 LU on speech and music; lossy formats (MP3, Opus, AAC,
     * Vorbis) may move the decoded peak by their coding error. Any output
     * format; events, outputs, cancel (in any pass; nothing is left
     * behind), suspend and resume as for process(). Returns 0; -4 for a
     * value out of range; -1 for an unknown id, -2 for an item that is not
     * a list. */
    int32_t setListLoudness(int listId, int lufsTenths, int truePeakTenths);
    /* How the list's last normalised render that ended with event 22 came
     * out, once that event is posted and until its next render starts:
     * stores the integrated loudness of the audio rendered (after gain and
     * limiter, before dither and encoding; tenths of LUFS, INT32_MIN for
     * none) in *reachedTenths and returns a wv_loudness_result: 0 when the
     * target was met, else why the output stays more than 0.5 LU under it
     * (1 gain limit, 2 true-peak ceiling, 3 no loudness at all). The render
     * itself is as setListLoudness describes whatever the result. Returns
     * -1 for an unknown id, -2 for an item that is not a list, -3 when no
     * normalised render of the list has ended (or a render is under way),
     * -4 for a null `reachedTenths`. Any thread. */
    int32_t getListLoudnessResult(int listId, int32_t* reachedTenths);
    /* Tags, chapters and a cover picture of a list's renders, read when a
     * render starts (later calls change the next render). A list with none
     * of them set (the default, or after clearListTags) renders byte for
     * byte as before, with no tag at all. Where they go:
     *   MP3: an ID3v2.4 tag at the start (UTF-8 text frames TIT2, TPE1,
     *        TALB, TDRC, TRCK, COMM; APIC; one CHAP frame per chapter, up
     *        to 255, with start and end in ms, and a CTOC listing them);
     *        LAME's info frame follows it, so the file still decodes to
     *        exactly the frames encoded;
     *   FLAC, Opus, Vorbis: Vorbis comments (tags, CHAPTERxx and
     *        CHAPTERxxNAME, the cover as METADATA_BLOCK_PICTURE);
     *   AAC (.m4a): MP4 tags, a chapter track and the cover (covr);
     *   WAV: nothing.
     * Containers count chapters in ms: a chapter starts at its frame's
     * time rounded to the nearest ms, and lasts until the next one or the
     * end of the output.
     * Each returns 0; -1 for an unknown listId, -2 for an item that is not
     * a list; -4 as each says. Any thread. */
    /* Sets tag `name` ("title", "artist", "album", "date", "track" or
     * "comment", any case) to the UTF-8 `value`; NULL or "" removes it.
     * -4 for another name. */
    int32_t setListTag(int listId, char const* name, char const* value);
    /* Adds a chapter titled `title` (UTF-8; line breaks become spaces)
     * starting at startMs of the output's time. Chapters are kept sorted
     * by start; one added at the time of another follows it. -4 for a
     * NULL title. */
    int32_t addListChapter(int listId, unsigned int startMs, char const* title);
    /* carry 1: the chapters of the clips' sources (getSourceChapter) move
     * with the clips into the output, beside those addListChapter added.
     * A chapter whose start a clip keeps starts exactly where that frame
     * lands in the output (crossfades and rate conversion counted); one
     * whose start was cut away but part of which a clip keeps starts
     * where the clip starts, unless the clip before kept the same chapter
     * up to there; one no clip keeps any of is dropped. Lists used as
     * clips bring none. A render of a list with a source that has
     * chapters and still loads waits for that load to end before it
     * starts (the clips' lengths place the chapters). 0 (the default):
     * none are carried. -4 for another value. */
    int32_t setListChapterCarry(int listId, int carry);
    /* Reads the JPEG or PNG picture at `path` now (at most 16 MB) as the
     * front cover; NULL or "" removes it. -4 when the file cannot be read
     * or is neither. */
    int32_t setListCover(int listId, char const* path);
    /* Removes every tag, chapter and the cover set, and stops carrying. */
    int32_t clearListTags(int listId);
    /* Bit rate (kbit/s) of a list's or recording's output. Once its
     * encoder has started (during the render and after it), the rate the
     * file is encoded at: LAME rounds a constant MP3 rate to the nearest
     * one its frames hold (100 gives 96), libvorbis lowers one it cannot
     * reach. Before that, the rate the encoder will be asked for. 0 for
     * outputs with no fixed rate (WAV, FLAC, MP3 VBR, and Vorbis where
     * libvorbis takes no bit rate: above 50 kHz, or under about 22 kbit/s
     * a channel, it encodes in quality mode, at the quality nearest the
     * rate asked); -1 for an unknown id. */
    int32_t getOutputBitRate(int id);
    /* Queues the render of the list to its output file and "<file>.wave".
     * While a source is still loading the render waits for its data (the
     * wait is logged at debug level); a source whose load failed or was
     * cancelled, before or during the render, ends it with event 20 (-1).
     * The file and its "<file>.wave" are put in place at event 22 only, after every write succeeded
     * (LAME's last frames and the WAV header included). Any other ending
     * (20, 23, 25, or the engine destroyed) leaves both targets as they
     * were: absent stays absent, no ".part" file stays behind. The list
     * can be played while it renders. The render uses the list's output
     * file, format, encoding, resampler and loudness settings as they are
     * when process is called: setting them again meanwhile changes the next
     * render. */
    int32_t process(int listId);
    /* Stops the render of the list, or the loudness measurement or silence
     * scan of the item or list (all that are queued): event 23. */
    int32_t cancelProcess(int listId);
    /* Queues a loudness measurement (ITU-R BS.1770 / EBU R128) of a loaded
     * item or a clip list on the encoder worker, read like a render at the
     * item's own rate and channels (a list's: setEncodePara's, else those
     * its clips suggest) and writing nothing. A loaded file (not a part of
     * one) of more than two channels, which the item holds mixed down to
     * stereo, is measured on its own channels, decoded again from the
     * file, weighted as BS.1770 says: 1 for the front channels, 1.41 for
     * side and back ones, 0 for low-frequency effects. A source still loading is
     * waited for as by a render; one whose load failed or was cancelled,
     * before or during the measurement, ends it with event 20 (-1); a read
     * error with 20 (-11). Progress is event 21 (percent, when the length
     * is known); cancelProcess(id) ends it with 23. A finished measurement
     * sends, in this order and each once:
     *   26 integrated loudness, tenths of LUFS (-23.1 LUFS gives -231),
     *   27 true peak, the largest of the channels, tenths of dBTP,
     *   28 loudness range, tenths of LU (0 for a steady or short programme).
     * Values are rounded half away from zero; INT32_MIN stands for minus
     * infinity: the loudness of silence or of less than 0.4 s of audio (26),
     * the true peak of digital silence (27). Memory grows with the length
     * (under 1 KB per second of audio). Returns 0; -1 unknown id; -2 a
     * recording under way. */
    int32_t measureLoudness(int id);
    /* Queues a silence scan of a loaded item or a clip list on the encoder
     * worker, read like a render at the item's own rate and channels (as
     * measureLoudness reads it), writing nothing. A frame is quiet when
     * every channel's 16-bit sample s has |s| / 32768 below 10^(T / 20),
     * T = thresholdTenthsDb / 10 dBFS (-1200 to 0: -500 for -50 dBFS; at 0
     * every sample but -32768 is quiet, at -90 and below only 0 is). A
     * silence is a run of consecutive quiet frames lasting at least minMs
     * (0 to 86,400,000 ms; round(minMs x rate / 1000) frames, at least 1),
     * given as [start, end): its first quiet frame and the frame after its
     * last (the item's end for a run that reaches it). This is ffmpeg's
     * silencedetect rule with the channels taken together (n=-50dB:d=1 is
     * -500, 1000), so the intervals agree with it to the frame on the same
     * samples. Frames count as the item's: a loaded file's, or a list's
     * output frames at its rate (setEncodePara's, else its clips').
     * A source still loading is waited for as by a render (the scan follows
     * the load); one whose load failed or was cancelled ends it with event
     * 20 (-1), a read error with 20 (-11). Progress is event 21 (percent,
     * when the length is known); cancelProcess(id) ends it with 23. A
     * finished scan ends with event 29, its value the number of silences;
     * they can be read with getSilences from then on. Speed: far more than
     * the disk's (a few GB/s of PCM on one core); memory 8 bytes a silence.
     * Returns 0; -1 unknown id; -2 a scan's item (scanFile: no audio) or a
     * recording under way; -4 a threshold or length out of range. */
    int32_t scanSilence(int id, int thresholdTenthsDb, unsigned int minMs);
    /* The same silences found on a scan of a file (as scanFile: decoded
     * once, nothing written to the working directory, the item keeping no
     * audio), with the same rule and arguments: the frames are the file's
     * as a loadFile holds them. The load's events are scanFile's (6, 3, 8,
     * then 4, or 0 or 5); getSilences and getSilenceScanFrames answer from
     * event 4 on. Returns the new item's id; -4 for a threshold or length
     * out of range (nothing is registered). Any thread. */
    int32_t scanFileSilence(char const* path, int thresholdTenthsDb, unsigned int minMs);
    /* The silences the item's last silence scan found, once its event 29
     * (scanFileSilence: 4) is posted and until scanSilence is called again: up to maxPairs of them
     * into startEnd (2 values each, start then end frame, in order); returns
     * how many there are in all (more than maxPairs: ask again with room
     * for all). startEnd may be NULL with maxPairs 0 to ask the count.
     * Returns -1 unknown id; -3 no scan of the item ended with 29 or 4 (none
     * queued, under way, failed or cancelled); -4 a NULL startEnd with
     * maxPairs > 0. Any thread. */
    int32_t getSilences(int id, uint32_t* startEnd, unsigned int maxPairs);
    /* What that scan read: returns the rate (Hz) its frames count at and
     * stores in *frames how many it read (the item's length as scanned: a
     * list's at its output rate, which getPcmFrameLength tells only once
     * the list renders). -1, -3 as getSilences; -4 for a NULL frames. */
    int32_t getSilenceScanFrames(int id, uint32_t* frames);

    /* Makes `id` the item played and prepares its player, paused
     * (playResume starts it); an item already played is rewound to 0 at
     * speed 1. Events: 40 when playback could not start, 42 at the end, 43
     * and 44 when it catches up with a load and goes on. A scan's item
     * (scanFile) keeps no audio: its player decodes the file itself as it
     * plays, so it needs no working space, while the scan may still run
     * or after it ended. Such playback goes forwards only (setPlaySpeed
     * refuses a negative speed with -4), never waits for the scan, and a
     * seek to T ms starts it at frame T x rate / 1000, from where it hands
     * out exactly the frames a loadFile of the file holds; the decoding
     * from the file's start to a seek's target (demuxing, for most codecs)
     * runs on the output's thread. Returns 0; -1 unknown id; -14 (with
     * event 40) when the file cannot be opened or no output opens. Any
     * thread. */
    int32_t playStart(int id);
    int32_t playPause();
    int32_t playResume();
    int32_t playStop();
    int32_t playSeekTo(int ms);
    /* A negative speed plays backwards: a loaded item, or a list (its
     * clips read backwards, effects included, the same bytes as forwards).
     * -4 for 0, or backwards when the item's PCM data is not in the
     * output's format or there is none (a recording, a scan). */
    int32_t setPlaySpeed(int speed);
    int32_t getPlayPositionMs();

    /* Records into `path` (empty: "<dir><id>" and the format's suffix) and
     * "<path>.wave", outputs as for setOutputPara: an existing file is
     * replaced when the recording ends (63 with 0). A WAV file's header is
     * rewritten after every second of audio and at each pause, so the file
     * on disk (the ".part" file while replacing) plays all but the last
     * second even if the process dies. A recording that never starts
     * creates and changes nothing; one that ends with 63 value 1 or 3
     * leaves the target as it was. The recording can be played and sampled
     * while it runs. */
    int32_t recordStart(char const* path, encode_type type, int sampleRate, int channelCount,
                        int bitRate, int audioSource, int effect);
    int32_t recordPause();
    int32_t recordResume();
    int32_t recordStop();
    /* Ends the current recording by itself once it holds `ms` ms of audio
     * (pauses do not count): the captured buffer that reaches the length is
     * cut there, so the item and its file hold exactly round(ms x rate /
     * 1000) frames at the recording's rate, and the file is finished as by
     * a stop (event 63). Called at once after recordStart, no audio is
     * recorded past the length, however late the client looks. A length
     * already reached ends the recording at its next buffer. recordStop is
     * still called afterwards, as after any end. 0 clears the length.
     * Returns WV_OK; WV_ERR_OUT_OF_RANGE for a negative length;
     * WV_ERR_NOT_READY with no current recording. */
    int32_t setRecordDuration(int ms);

private:
    WavoryxPriv* mPriv;
};

/* Kept for compatibility: no effect, return 0. */
[[deprecated("does nothing; kept for compatibility")]] WAVORYX_API int32_t insertClip(int, int, int,
                                                                                      unsigned int,
                                                                                      unsigned int);
[[deprecated("does nothing; kept for compatibility")]] WAVORYX_API int32_t
insertClipMs(int, int, int, unsigned int, unsigned int);
[[deprecated("does nothing; kept for compatibility")]] WAVORYX_API int32_t removeClip(int,
                                                                                      unsigned int);
#endif /* __cplusplus */

#endif /* WAVORYX_WAVORYX_H */
