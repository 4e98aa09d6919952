// The C functions: each forwards to the engine's public class. The engine
// handle adds what C callers cannot do themselves: a user pointer on
// events, an event queue to pull from, waits for a job's end, and a private
// working folder made and removed for them.
#include <wavoryx/wavoryx_c.h>

#include <ftw.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <string>

#include "capi/EventBox.h"

struct wv_engine {
    Wavoryx engine;
    wvc::EventBox events;
    std::string ownFolder;  // made by wv_engine_new, removed by wv_engine_free
};

namespace {

void onEvent(int code, int id, int value, char*, void* user) {
    static_cast<wv_engine*>(user)->events.deliver(wv_event_record{code, id, value});
}

// A folder of our own: nobody else's files can be in it.
std::string makePrivateFolder() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/wavoryx-c-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) return std::string();
    return pattern;
}

int removeEntry(const char* path, const struct stat*, int, struct FTW*) { return ::remove(path); }

// The class takes any value as WAV; an int outside the enum's values must not
// become an encode_type (that is undefined), so it is made WAV here.
encode_type encodeType(int type) {
    return type >= ENCODE_WAV && type <= ENCODE_VORBIS ? static_cast<encode_type>(type)
                                                       : ENCODE_WAV;
}

}  // namespace

extern "C" {

wv_engine* wv_engine_new(const char* working_dir) {
    std::string folder = working_dir != nullptr ? working_dir : makePrivateFolder();
    if (folder.empty()) return nullptr;
    wv_engine* e = new (std::nothrow) wv_engine();
    if (e == nullptr) {
        if (working_dir == nullptr) ::rmdir(folder.c_str());
        return nullptr;
    }
    if (working_dir == nullptr) e->ownFolder = folder;
    if (folder.back() != '/') folder += '/';
    e->engine.setWorkingDir(folder.c_str());
    e->engine.setCallback(onEvent, e);
    e->engine.startThreadLoop(0);
    return e;
}

void wv_engine_free(wv_engine* e) {
    if (e == nullptr) return;
    e->engine.stopThreadLoop();
    e->engine.setCallback(nullptr, nullptr);
    const std::string own = e->ownFolder;
    delete e;
    if (!own.empty()) ::nftw(own.c_str(), removeEntry, 8, FTW_DEPTH | FTW_PHYS);
}

int wv_set_callback(wv_engine* e, wv_event_fn fn, void* user) {
    e->events.setCallback(fn, user);
    return WV_OK;
}

int wv_next_event(wv_engine* e, wv_event_record* out, int timeout_ms) {
    return e->events.next(out, timeout_ms);
}

int wv_wait(wv_engine* e, int32_t id, int timeout_ms, wv_event_record* ending) {
    int32_t value = 0;
    const int32_t code = e->engine.waitForJob(id, WV_JOB_ANY, timeout_ms, &value);
    if (code == WV_ERR_NOT_READY) return 0;
    if (code < 0) return code;
    if (ending != nullptr) *ending = wv_event_record{code, id, value};
    return 1;
}

const char* wv_result_text(int32_t result) {
    switch (result) {
        case WV_OK:
            return "success";
        case WV_ERR_NO_ITEM:
            return "no such item";
        case WV_ERR_WRONG_ITEM:
            return "the item's kind or state does not allow it";
        case WV_ERR_DURATION_UNKNOWN:
            return "the duration is not known yet";
        case WV_ERR_OUT_OF_RANGE:
            return "an argument is out of range";
        case WV_ERR_NOT_READY:
            return "the recorder or player is not in the state needed";
        case WV_ERR_NO_MEMORY:
            return "out of memory";
        case WV_ERR_PLAY_START:
            return "playback could not start";
        default:
            return result > 0 ? "success (a new item's id)" : "unknown result";
    }
}

const char* wv_event_name(int code) {
    switch (code) {
        case WV_EVENT_LOAD_FAILED:
            return "LOAD_FAILED";
        case WV_EVENT_LOAD_PROGRESS:
            return "LOAD_PROGRESS";
        case WV_EVENT_LOAD_DONE:
            return "LOAD_DONE";
        case WV_EVENT_LOAD_CANCELLED:
            return "LOAD_CANCELLED";
        case WV_EVENT_LOAD_STARTED:
            return "LOAD_STARTED";
        case WV_EVENT_LOAD_NO_SPACE:
            return "LOAD_NO_SPACE";
        case WV_EVENT_LOAD_DAMAGED:
            return "LOAD_DAMAGED";
        case WV_EVENT_RENDER_FAILED:
            return "RENDER_FAILED";
        case WV_EVENT_RENDER_PROGRESS:
            return "RENDER_PROGRESS";
        case WV_EVENT_RENDER_DONE:
            return "RENDER_DONE";
        case WV_EVENT_RENDER_CANCELLED:
            return "RENDER_CANCELLED";
        case WV_EVENT_RENDER_STOPPED:
            return "RENDER_STOPPED";
        case WV_EVENT_LOUDNESS:
            return "LOUDNESS";
        case WV_EVENT_TRUE_PEAK:
            return "TRUE_PEAK";
        case WV_EVENT_LOUDNESS_RANGE:
            return "LOUDNESS_RANGE";
        case WV_EVENT_SILENCES:
            return "SILENCES";
        case WV_EVENT_PLAY_FAILED:
            return "PLAY_FAILED";
        case WV_EVENT_PLAY_END:
            return "PLAY_END";
        case WV_EVENT_PLAY_WAITING:
            return "PLAY_WAITING";
        case WV_EVENT_PLAY_RESUMED:
            return "PLAY_RESUMED";
        case WV_EVENT_RECORD_FAILED:
            return "RECORD_FAILED";
        case WV_EVENT_RECORD_STARTED:
            return "RECORD_STARTED";
        case WV_EVENT_RECORD_ENDED:
            return "RECORD_ENDED";
        case WV_EVENT_RECORD_NO_SPACE:
            return "RECORD_NO_SPACE";
        case WV_EVENT_RECORD_RESUMED:
            return "RECORD_RESUMED";
        case WV_EVENT_RECORD_PAUSED:
            return "RECORD_PAUSED";
        case WV_EVENT_RECORD_LOST_AUDIO:
            return "RECORD_LOST_AUDIO";
        case WV_EVENT_RECORD_LEVEL:
            return "RECORD_LEVEL";
        default:
            return "UNKNOWN";
    }
}

const char* wv_version(void) { return WAVORYX_VERSION_TEXT; }

int32_t wv_set_thread_priority(wv_engine* e, int32_t priority) {
    return e->engine.setThreadPriority(priority);
}
int32_t wv_dump(wv_engine* e) { return e->engine.dump(); }
int32_t wv_remove_pcm(wv_engine* e, int32_t id) { return e->engine.removePcm(id); }

int32_t wv_load_file(wv_engine* e, const char* path) { return e->engine.loadFile(path); }

int32_t wv_get_source_info(wv_engine* e, int32_t id, WvSourceInfo* info) {
    return e->engine.getSourceInfo(id, info);
}

int32_t wv_get_source_tag(wv_engine* e, int32_t id, const char* name, char* value,
                          unsigned int size) {
    return e->engine.getSourceTag(id, name, value, size);
}

int32_t wv_get_load_damage(wv_engine* e, int32_t id, unsigned int* first_ms) {
    return e->engine.getLoadDamage(id, first_ms);
}

int32_t wv_get_source_frames(wv_engine* e, int32_t id, uint32_t* frames) {
    return e->engine.getSourceFrames(id, frames);
}

int32_t wv_load_file_range(wv_engine* e, const char* path, unsigned int start_ms,
                           unsigned int end_ms) {
    return e->engine.loadFileRange(path, start_ms, end_ms);
}

int32_t wv_load_stream(wv_engine* e, int fd) { return e->engine.loadStream(fd); }

int32_t wv_scan_file(wv_engine* e, const char* path, const WvPeakSet* sets, unsigned int set_count,
                     int loudness) {
    return e->engine.scanFile(path, sets, set_count, loudness);
}

int32_t wv_get_scan_peaks(wv_engine* e, int32_t id, unsigned int set, int16_t* min_max,
                          unsigned int count) {
    return e->engine.getScanPeaks(id, set, min_max, count);
}

int32_t wv_get_scan_loudness(wv_engine* e, int32_t id, int32_t* integrated_tenths,
                             int32_t* range_tenths, int32_t* true_peak_tenths) {
    return e->engine.getScanLoudness(id, integrated_tenths, range_tenths, true_peak_tenths);
}

int32_t wv_cancel_load_file(wv_engine* e, int32_t id) { return e->engine.cancelLoadFile(id); }
int32_t wv_get_pcm_sample_rate(wv_engine* e, int32_t id) { return e->engine.getPcmSampleRate(id); }
int32_t wv_get_pcm_channel_count(wv_engine* e, int32_t id) {
    return e->engine.getPcmChannelCount(id);
}
int32_t wv_get_pcm_frame_length(wv_engine* e, int32_t id) {
    return e->engine.getPcmFrameLength(id);
}
int32_t wv_get_pcm_duration(wv_engine* e, int32_t id) { return e->engine.getPcmDuration(id); }
int32_t wv_open_pcm_data(wv_engine* e, int32_t id, uint64_t* offset, uint64_t* bytes) {
    return e->engine.openPcmData(id, offset, bytes);
}

int32_t wv_get_waveform_samples(wv_engine* e, int32_t id, unsigned int start_ms,
                                unsigned int end_ms, unsigned int count, void* buffer) {
    return e->engine.getWaveformSamples(id, start_ms, end_ms, count, buffer);
}

int32_t wv_get_waveform_peaks(wv_engine* e, int32_t id, unsigned int start_ms, unsigned int end_ms,
                              unsigned int count, int16_t* min_max) {
    return e->engine.getWaveformPeaks(id, start_ms, end_ms, count, min_max);
}

int32_t wv_get_waveform_peaks_frames(wv_engine* e, int32_t id, uint32_t start_frame,
                                     uint32_t end_frame, unsigned int count, int16_t* min_max) {
    return e->engine.getWaveformPeaksFrames(id, start_frame, end_frame, count, min_max);
}

int32_t wv_read_pcm(wv_engine* e, int32_t id, uint32_t start_frame, int16_t* out, uint32_t frames) {
    return e->engine.readPcm(id, start_frame, out, frames);
}

int32_t wv_get_pcm_output_frames(wv_engine* e, int32_t id, uint32_t* frames) {
    return e->engine.getPcmOutputFrames(id, frames);
}

int32_t wv_new_clip_list(wv_engine* e) { return e->engine.newClipList(); }

int32_t wv_add_clip(wv_engine* e, int32_t list_id, int32_t pcm_id, unsigned int start_frame,
                    unsigned int end_frame) {
    return e->engine.addClip(list_id, pcm_id, start_frame, end_frame);
}

int32_t wv_add_clip_ms(wv_engine* e, int32_t list_id, int32_t pcm_id, unsigned int start_ms,
                       unsigned int end_ms) {
    return e->engine.addClipMs(list_id, pcm_id, start_ms, end_ms);
}

int32_t wv_set_clip_gain(wv_engine* e, int32_t list_id, int clip, int millibels) {
    return e->engine.setClipGain(list_id, clip, millibels);
}

int32_t wv_set_clip_fade(wv_engine* e, int32_t list_id, int clip, unsigned int in_ms,
                         unsigned int out_ms, int shape) {
    return e->engine.setClipFade(list_id, clip, in_ms, out_ms, shape);
}

int32_t wv_set_list_crossfade(wv_engine* e, int32_t list_id, unsigned int ms, int shape) {
    return e->engine.setListCrossfade(list_id, ms, shape);
}

int32_t wv_set_list_gain(wv_engine* e, int32_t list_id, int millibels) {
    return e->engine.setListGain(list_id, millibels);
}

int32_t wv_set_list_denoise(wv_engine* e, int32_t list_id, int amount_db) {
    return e->engine.setListDenoise(list_id, amount_db);
}

int32_t wv_set_list_tempo(wv_engine* e, int32_t list_id, int tempo_percent) {
    return e->engine.setListTempo(list_id, tempo_percent);
}

int32_t wv_set_output_para(wv_engine* e, int32_t list_id, const char* path, int type) {
    return e->engine.setOutputPara(list_id, path, encodeType(type));
}

int32_t wv_set_encode_para(wv_engine* e, int32_t list_id, int sample_rate, int bit_rate,
                           int channel_count, int force_stereo) {
    return e->engine.setEncodePara(list_id, sample_rate, bit_rate, channel_count, force_stereo);
}

int32_t wv_set_output_mode(wv_engine* e, int32_t list_id, int flags) {
    return e->engine.setOutputMode(list_id, flags);
}

int32_t wv_place_output(wv_engine* e, int32_t list_id, int keep) {
    return e->engine.placeOutput(list_id, keep);
}

int32_t wv_write_output_file(const char* path, const void* data, size_t size, int flags) {
    return Wavoryx::writeOutputFile(path, data, size, flags);
}

int32_t wv_set_encode_options(wv_engine* e, int32_t id, int quality, int vbr, int joint_stereo) {
    return e->engine.setEncodeOptions(id, quality, vbr, joint_stereo);
}

int32_t wv_set_resample_quality(wv_engine* e, int32_t list_id, int quality) {
    return e->engine.setResampleQuality(list_id, quality);
}

int32_t wv_get_source_chapter_count(wv_engine* e, int32_t id) {
    return e->engine.getSourceChapterCount(id);
}

int32_t wv_get_source_chapter(wv_engine* e, int32_t id, unsigned int index, uint32_t* start_frame,
                              uint32_t* end_frame, char* title, unsigned int size) {
    return e->engine.getSourceChapter(id, index, start_frame, end_frame, title, size);
}

int32_t wv_set_list_tag(wv_engine* e, int32_t list_id, const char* name, const char* value) {
    return e->engine.setListTag(list_id, name, value);
}

int32_t wv_add_list_chapter(wv_engine* e, int32_t list_id, unsigned int start_ms,
                            const char* title) {
    return e->engine.addListChapter(list_id, start_ms, title);
}

int32_t wv_set_list_chapter_carry(wv_engine* e, int32_t list_id, int carry) {
    return e->engine.setListChapterCarry(list_id, carry);
}

int32_t wv_set_list_cover(wv_engine* e, int32_t list_id, const char* path) {
    return e->engine.setListCover(list_id, path);
}

int32_t wv_clear_list_tags(wv_engine* e, int32_t list_id) { return e->engine.clearListTags(list_id); }

int32_t wv_set_encode_threads(wv_engine* e, int32_t list_id, int threads) {
    return e->engine.setEncodeThreads(list_id, threads);
}

int32_t wv_set_list_loudness(wv_engine* e, int32_t list_id, int lufs_tenths, int true_peak_tenths) {
    return e->engine.setListLoudness(list_id, lufs_tenths, true_peak_tenths);
}

int32_t wv_get_list_loudness_result(wv_engine* e, int32_t list_id, int32_t* reached_tenths) {
    return e->engine.getListLoudnessResult(list_id, reached_tenths);
}

int32_t wv_get_output_bit_rate(wv_engine* e, int32_t id) { return e->engine.getOutputBitRate(id); }
int32_t wv_process(wv_engine* e, int32_t list_id) { return e->engine.process(list_id); }
int32_t wv_cancel_process(wv_engine* e, int32_t list_id) {
    return e->engine.cancelProcess(list_id);
}
int32_t wv_measure_loudness(wv_engine* e, int32_t id) { return e->engine.measureLoudness(id); }
int32_t wv_scan_silence(wv_engine* e, int32_t id, int threshold_tenths_db, unsigned int min_ms) {
    return e->engine.scanSilence(id, threshold_tenths_db, min_ms);
}
int32_t wv_get_silences(wv_engine* e, int32_t id, uint32_t* start_end, unsigned int max_pairs) {
    return e->engine.getSilences(id, start_end, max_pairs);
}
int32_t wv_scan_file_silence(wv_engine* e, const char* path, int threshold_tenths_db,
                             unsigned int min_ms) {
    return e->engine.scanFileSilence(path, threshold_tenths_db, min_ms);
}
int32_t wv_get_silence_scan_frames(wv_engine* e, int32_t id, uint32_t* frames) {
    return e->engine.getSilenceScanFrames(id, frames);
}
int32_t wv_play_start(wv_engine* e, int32_t id) { return e->engine.playStart(id); }
int32_t wv_play_pause(wv_engine* e) { return e->engine.playPause(); }
int32_t wv_play_resume(wv_engine* e) { return e->engine.playResume(); }
int32_t wv_play_stop(wv_engine* e) { return e->engine.playStop(); }
int32_t wv_play_seek_to(wv_engine* e, int ms) { return e->engine.playSeekTo(ms); }
int32_t wv_set_play_speed(wv_engine* e, int speed) { return e->engine.setPlaySpeed(speed); }
int32_t wv_get_play_position_ms(wv_engine* e) { return e->engine.getPlayPositionMs(); }

int32_t wv_record_start(wv_engine* e, const char* path, int type, int sample_rate,
                        int channel_count, int bit_rate, int audio_source, int effect) {
    return e->engine.recordStart(path, encodeType(type), sample_rate, channel_count, bit_rate,
                                 audio_source, effect);
}

int32_t wv_record_pause(wv_engine* e) { return e->engine.recordPause(); }
int32_t wv_record_resume(wv_engine* e) { return e->engine.recordResume(); }
int32_t wv_record_stop(wv_engine* e) { return e->engine.recordStop(); }
int32_t wv_set_record_duration(wv_engine* e, int ms) { return e->engine.setRecordDuration(ms); }

}  // extern "C"
