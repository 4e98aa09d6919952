/*
 * Wavoryx from C (C99) and from languages that call C.
 *
 * Every operation of the C++ class `Wavoryx` (Wavoryx.h) as a function
 * wv_<name>(engine, ...) with the same arguments, results, units, events
 * and thread rules: where a line below says "as X", X's contract in
 * Wavoryx.h is the whole contract. The codes (WV_OK, WV_ERR_*,
 * WV_EVENT_*, ENCODE_*, WV_FADE_*, ...) and struct WvSourceInfo are those
 * of Wavoryx.h, which this header includes.
 *
 * An engine is an opaque handle; any number of them may live in a process,
 * each with its own workers, items and working folder. Any thread may call
 * any function on an engine at any time, except wv_engine_free, which must
 * be the last call on it.
 *
 * Events reach the application one of two ways:
 *  - a callback (wv_set_callback), called on the engine's own event thread,
 *    one event at a time, in posting order, with the user pointer given;
 *  - or, while no callback is set, a queue the application pulls from any
 *    thread (wv_next_event), for languages that must not be called from a
 *    thread they did not make. The queue keeps the newest 65,536 events:
 *    older ones are dropped first, so an application that never pulls
 *    loses only old events, never memory.
 * Either way wv_wait can wait for the end of an item's job (see
 * waitForJob in Wavoryx.h).
 */
#ifndef WAVORYX_WAVORYX_C_H
#define WAVORYX_WAVORYX_C_H

#include <stdint.h>

#include "Wavoryx.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct wv_engine wv_engine;

/* One event: the code (a WV_EVENT_ value), the item it is about, and its
 * value (what the code's comment in Wavoryx.h says). */
typedef struct wv_event_record {
    int code;
    int32_t id;
    int32_t value;
} wv_event_record;

typedef void (*wv_event_fn)(int code, int32_t id, int32_t value, void* user);

#ifndef __cplusplus
typedef struct WvSourceInfo WvSourceInfo;
typedef struct WvPeakSet WvPeakSet;
#endif

/* A new engine, its workers and its event thread running. working_dir: the
 * folder its PCM files go in (it must exist; a '/' is added when missing);
 * NULL makes a private folder (mode 0700) under $TMPDIR (or /tmp), which
 * wv_engine_free removes with everything the engine left in it. NULL when
 * the folder cannot be made or memory is short. */
WAVORYX_API wv_engine* wv_engine_new(const char* working_dir);
/* Stops the engine's work (the chunk in progress finishes, queued jobs are
 * dropped, playback stops), joins its threads and frees it. No callback
 * runs after it returns. NULL is ignored. */
WAVORYX_API void wv_engine_free(wv_engine* engine);

/* Events to fn(code, id, value, user) from now on; NULL fn: to the queue
 * again. Returns 0. */
WAVORYX_API int wv_set_callback(wv_engine* engine, wv_event_fn fn, void* user);
/* Takes the oldest queued event into *out: 1 when there was one, 0 when
 * none came within timeout_ms (0: do not wait; negative: wait as long as
 * it takes); -4 for a NULL out. Events delivered to a callback are not
 * queued. */
WAVORYX_API int wv_next_event(wv_engine* engine, wv_event_record* out, int timeout_ms);
/* Waits for the end of the item's load, scan, render or loudness
 * measurement, as waitForJob(id, WV_JOB_ANY, ...) does, and copies the
 * ending event into *ending (when not NULL). A job that ended before the
 * call counts: it returns at once, as often as asked, until the item's next
 * job is queued. Returns 1 when ended, 0 when timeout_ms (0: only look;
 * negative: no limit) passed first, WV_ERR_WRONG_ITEM (-2) for an item
 * that never had such a job (playback and recordings have none: see events
 * 42 and 63), WV_ERR_NO_ITEM (-1) for an id that never named an item. In a
 * callback it never waits (0 while the job runs). Does not take events from
 * the queue. */
WAVORYX_API int wv_wait(wv_engine* engine, int32_t id, int timeout_ms, wv_event_record* ending);

/* A constant English phrase for a result (WV_OK, WV_ERR_*), "unknown
 * result" for others; never NULL. */
WAVORYX_API const char* wv_result_text(int32_t result);
/* The WV_EVENT_ name of a code without its prefix ("LOAD_DONE"), or
 * "UNKNOWN"; never NULL. */
WAVORYX_API const char* wv_event_name(int code);
/* The library's version, "MAJOR.MINOR.PATCH". */
WAVORYX_API const char* wv_version(void);

/* Items: as setThreadPriority, dump, removePcm, loadFile, getSourceInfo,
 * getSourceTag, getLoadDamage, getSourceFrames, loadFileRange, loadStream, scanFile,
 * getScanPeaks, getScanLoudness, cancelLoadFile. */
WAVORYX_API int32_t wv_set_thread_priority(wv_engine* engine, int32_t priority);
WAVORYX_API int32_t wv_dump(wv_engine* engine);
WAVORYX_API int32_t wv_remove_pcm(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_load_file(wv_engine* engine, const char* path);
WAVORYX_API int32_t wv_get_source_info(wv_engine* engine, int32_t id, WvSourceInfo* info);
WAVORYX_API int32_t wv_get_source_tag(wv_engine* engine, int32_t id, const char* name, char* value,
                                      unsigned int size);
WAVORYX_API int32_t wv_get_load_damage(wv_engine* engine, int32_t id, unsigned int* first_ms);
WAVORYX_API int32_t wv_get_source_frames(wv_engine* engine, int32_t id, uint32_t* frames);
WAVORYX_API int32_t wv_load_file_range(wv_engine* engine, const char* path, unsigned int start_ms,
                                       unsigned int end_ms);
WAVORYX_API int32_t wv_load_stream(wv_engine* engine, int fd);
WAVORYX_API int32_t wv_scan_file(wv_engine* engine, const char* path, const WvPeakSet* sets,
                                 unsigned int set_count, int loudness);
WAVORYX_API int32_t wv_get_scan_peaks(wv_engine* engine, int32_t id, unsigned int set,
                                      int16_t* min_max, unsigned int count);
WAVORYX_API int32_t wv_get_scan_loudness(wv_engine* engine, int32_t id, int32_t* integrated_tenths,
                                         int32_t* range_tenths, int32_t* true_peak_tenths);
WAVORYX_API int32_t wv_cancel_load_file(wv_engine* engine, int32_t id);

/* PCM facts, data and peaks: as getPcmSampleRate, getPcmChannelCount,
 * getPcmFrameLength, getPcmDuration, openPcmData, getWaveformSamples,
 * getWaveformPeaks. */
WAVORYX_API int32_t wv_get_pcm_sample_rate(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_get_pcm_channel_count(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_get_pcm_frame_length(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_get_pcm_duration(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_open_pcm_data(wv_engine* engine, int32_t id, uint64_t* offset,
                                     uint64_t* bytes);
WAVORYX_API int32_t wv_get_waveform_samples(wv_engine* engine, int32_t id, unsigned int start_ms,
                                            unsigned int end_ms, unsigned int count, void* buffer);
WAVORYX_API int32_t wv_get_waveform_peaks(wv_engine* engine, int32_t id, unsigned int start_ms,
                                          unsigned int end_ms, unsigned int count,
                                          int16_t* min_max);
/* As getWaveformPeaksFrames, readPcm and getPcmOutputFrames. */
WAVORYX_API int32_t wv_get_waveform_peaks_frames(wv_engine* engine, int32_t id, uint32_t start_frame,
                                                 uint32_t end_frame, unsigned int count,
                                                 int16_t* min_max);
WAVORYX_API int32_t wv_read_pcm(wv_engine* engine, int32_t id, uint32_t start_frame, int16_t* out,
                                uint32_t frames);
WAVORYX_API int32_t wv_get_pcm_output_frames(wv_engine* engine, int32_t id, uint32_t* frames);

/* Clip lists: as newClipList, addClip, addClipMs, setClipGain, setClipFade,
 * setListCrossfade, setListGain, setListDenoise, setListTempo. */
WAVORYX_API int32_t wv_new_clip_list(wv_engine* engine);
WAVORYX_API int32_t wv_add_clip(wv_engine* engine, int32_t list_id, int32_t pcm_id,
                                unsigned int start_frame, unsigned int end_frame);
WAVORYX_API int32_t wv_add_clip_ms(wv_engine* engine, int32_t list_id, int32_t pcm_id,
                                   unsigned int start_ms, unsigned int end_ms);
WAVORYX_API int32_t wv_set_clip_gain(wv_engine* engine, int32_t list_id, int clip, int millibels);
WAVORYX_API int32_t wv_set_clip_fade(wv_engine* engine, int32_t list_id, int clip,
                                     unsigned int in_ms, unsigned int out_ms, int shape);
WAVORYX_API int32_t wv_set_list_crossfade(wv_engine* engine, int32_t list_id, unsigned int ms,
                                          int shape);
WAVORYX_API int32_t wv_set_list_gain(wv_engine* engine, int32_t list_id, int millibels);
WAVORYX_API int32_t wv_set_list_denoise(wv_engine* engine, int32_t list_id, int amount_db);
WAVORYX_API int32_t wv_set_list_tempo(wv_engine* engine, int32_t list_id, int tempo_percent);

/* Rendering: as setOutputPara (type: an ENCODE_ value, any other renders
 * as WAV), setOutputMode, placeOutput, setEncodePara, setEncodeOptions, setResampleQuality,
 * as WAV), setEncodePara, setEncodeOptions, setResampleQuality, setEncodeThreads,
 * setListLoudness, getListLoudnessResult, getOutputBitRate, process,
 * cancelProcess, measureLoudness, scanSilence, scanFileSilence,
 * getSilences, getSilenceScanFrames. */
WAVORYX_API int32_t wv_set_output_para(wv_engine* engine, int32_t list_id, const char* path,
                                       int type);
WAVORYX_API int32_t wv_set_output_mode(wv_engine* engine, int32_t list_id, int flags);
WAVORYX_API int32_t wv_place_output(wv_engine* engine, int32_t list_id, int keep);
/* As Wavoryx::writeOutputFile. */
WAVORYX_API int32_t wv_write_output_file(const char* path, const void* data, size_t size,
                                         int flags);
WAVORYX_API int32_t wv_set_encode_para(wv_engine* engine, int32_t list_id, int sample_rate,
                                       int bit_rate, int channel_count, int force_stereo);
WAVORYX_API int32_t wv_set_encode_options(wv_engine* engine, int32_t id, int quality, int vbr,
                                          int joint_stereo);
WAVORYX_API int32_t wv_set_resample_quality(wv_engine* engine, int32_t list_id, int quality);
WAVORYX_API int32_t wv_set_encode_threads(wv_engine* engine, int32_t list_id, int threads);
WAVORYX_API int32_t wv_set_list_loudness(wv_engine* engine, int32_t list_id, int lufs_tenths,
                                         int true_peak_tenths);
WAVORYX_API int32_t wv_get_list_loudness_result(wv_engine* engine, int32_t list_id,
                                                int32_t* reached_tenths);
WAVORYX_API int32_t wv_get_output_bit_rate(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_process(wv_engine* engine, int32_t list_id);
WAVORYX_API int32_t wv_cancel_process(wv_engine* engine, int32_t list_id);
WAVORYX_API int32_t wv_measure_loudness(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_scan_silence(wv_engine* engine, int32_t id, int threshold_tenths_db,
                                    unsigned int min_ms);
WAVORYX_API int32_t wv_get_silences(wv_engine* engine, int32_t id, uint32_t* start_end,
                                    unsigned int max_pairs);
WAVORYX_API int32_t wv_scan_file_silence(wv_engine* engine, const char* path,
                                         int threshold_tenths_db, unsigned int min_ms);
WAVORYX_API int32_t wv_get_silence_scan_frames(wv_engine* engine, int32_t id, uint32_t* frames);

/* Chapters and tags: as getSourceChapterCount, getSourceChapter,
 * setListTag, addListChapter, setListChapterCarry, setListCover,
 * clearListTags. */
WAVORYX_API int32_t wv_get_source_chapter_count(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_get_source_chapter(wv_engine* engine, int32_t id, unsigned int index,
                                          uint32_t* start_frame, uint32_t* end_frame, char* title,
                                          unsigned int size);
WAVORYX_API int32_t wv_set_list_tag(wv_engine* engine, int32_t list_id, const char* name,
                                    const char* value);
WAVORYX_API int32_t wv_add_list_chapter(wv_engine* engine, int32_t list_id, unsigned int start_ms,
                                        const char* title);
WAVORYX_API int32_t wv_set_list_chapter_carry(wv_engine* engine, int32_t list_id, int carry);
WAVORYX_API int32_t wv_set_list_cover(wv_engine* engine, int32_t list_id, const char* path);
WAVORYX_API int32_t wv_clear_list_tags(wv_engine* engine, int32_t list_id);

/* Playback: as playStart, playPause, playResume, playStop, playSeekTo,
 * setPlaySpeed, getPlayPositionMs. */
WAVORYX_API int32_t wv_play_start(wv_engine* engine, int32_t id);
WAVORYX_API int32_t wv_play_pause(wv_engine* engine);
WAVORYX_API int32_t wv_play_resume(wv_engine* engine);
WAVORYX_API int32_t wv_play_stop(wv_engine* engine);
WAVORYX_API int32_t wv_play_seek_to(wv_engine* engine, int ms);
WAVORYX_API int32_t wv_set_play_speed(wv_engine* engine, int speed);
WAVORYX_API int32_t wv_get_play_position_ms(wv_engine* engine);

/* Recording: as recordStart (type: an ENCODE_ value), recordPause,
 * recordResume, recordStop, setRecordDuration. */
WAVORYX_API int32_t wv_record_start(wv_engine* engine, const char* path, int type, int sample_rate,
                                    int channel_count, int bit_rate, int audio_source, int effect);
WAVORYX_API int32_t wv_record_pause(wv_engine* engine);
WAVORYX_API int32_t wv_record_resume(wv_engine* engine);
WAVORYX_API int32_t wv_record_stop(wv_engine* engine);
WAVORYX_API int32_t wv_set_record_duration(wv_engine* engine, int ms);

#ifdef __cplusplus
}
#endif

#endif /* WAVORYX_WAVORYX_C_H */
