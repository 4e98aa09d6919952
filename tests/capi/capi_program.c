/* Drives the C API as a C program does: strict C99, the shared library,
 * both ways of hearing events, waits, several engines at once. */
#define _POSIX_C_SOURCE 200809L
#include <wavoryx/wavoryx_c.h>

#include <dirent.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static int failures = 0;

#define CHECK(cond, ...)                                  \
    do {                                                  \
        if (!(cond)) {                                    \
            fprintf(stderr, "line %d: ", __LINE__);       \
            fprintf(stderr, __VA_ARGS__);                 \
            fputc('\n', stderr);                          \
            ++failures;                                   \
        }                                                 \
    } while (0)

enum { RATE = 8000, FRAMES = 12000 };

static void put32(unsigned char* p, uint32_t v) {
    p[0] = (unsigned char)v; p[1] = (unsigned char)(v >> 8); p[2] = (unsigned char)(v >> 16); p[3] = (unsigned char)(v >> 24);
}

static int16_t sample(int frame, int channel) { return (int16_t)((frame * (37 + channel * 11)) % 30000 - 15000); }

/* A 16-bit stereo WAV of FRAMES frames whose samples the checks know. */
static int writeWav(const char* path) {
    unsigned char header[44];
    static unsigned char data[FRAMES * 4];
    FILE* f;
    int i;
    for (i = 0; i < FRAMES; ++i) {
        int c;
        for (c = 0; c < 2; ++c) {
            uint16_t v = (uint16_t)sample(i, c);
            data[4 * i + 2 * c] = (unsigned char)v;
            data[4 * i + 2 * c + 1] = (unsigned char)(v >> 8);
        }
    }
    memcpy(header, "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\x02\0", 24);
    put32(header + 4, 36 + sizeof data);
    put32(header + 24, RATE);
    put32(header + 28, RATE * 4);
    memcpy(header + 32, "\x04\0\x10\0data", 8);
    put32(header + 40, sizeof data);
    f = fopen(path, "wb");
    if (f == NULL) return 0;
    fwrite(header, 1, sizeof header, f);
    fwrite(data, 1, sizeof data, f);
    return fclose(f) == 0;
}

/* The rendered WAV holds frames [first, first + count) of the source. */
static int holdsFrames(const char* path, int first, int count) {
    unsigned char buffer[44 + FRAMES * 4];
    size_t got;
    int i;
    FILE* f = fopen(path, "rb");
    if (f == NULL) return 0;
    got = fread(buffer, 1, sizeof buffer, f);
    fclose(f);
    if (got != 44 + (size_t)count * 4) return 0;
    for (i = 0; i < count; ++i) {
        int c;
        for (c = 0; c < 2; ++c) {
            const unsigned char* p = buffer + 44 + 4 * i + 2 * c;
            if ((int16_t)(p[0] | (p[1] << 8)) != sample(first + i, c)) return 0;
        }
    }
    return 1;
}

static int entries(const char* folder) {
    int n = 0;
    struct dirent* entry;
    DIR* dir = opendir(folder);
    if (dir == NULL) return -1;
    while ((entry = readdir(dir)) != NULL) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) ++n;
    }
    closedir(dir);
    return n;
}

/* Written on the engine's event thread, read on the main one. */
struct Heard {
    pthread_mutex_t lock;
    int done; /* LOAD_DONE events */
};

static void onEvent(int code, int32_t id, int32_t value, void* user) {
    struct Heard* heard = (struct Heard*)user;
    (void)id;
    (void)value;
    if (code != WV_EVENT_LOAD_DONE) return;
    pthread_mutex_lock(&heard->lock);
    ++heard->done;
    pthread_mutex_unlock(&heard->lock);
}

static int doneOf(struct Heard* heard) {
    int done;
    pthread_mutex_lock(&heard->lock);
    done = heard->done;
    pthread_mutex_unlock(&heard->lock);
    return done;
}

static void namesAndTexts(void) {
    CHECK(strchr(wv_version(), '.') != NULL, "version %s", wv_version());
    CHECK(strcmp(wv_event_name(WV_EVENT_LOAD_DONE), "LOAD_DONE") == 0, "event name");
    CHECK(strcmp(wv_event_name(12345), "UNKNOWN") == 0, "unknown event name");
    CHECK(strcmp(wv_result_text(WV_ERR_NO_ITEM), "no such item") == 0, "result text");
    CHECK(wv_result_text(-999) != NULL, "unknown result text");
}

/* A scan keeps no audio and gives the extremes of each bin. */
static void scanned(wv_engine* e, const char* source) {
    WvPeakSet set;
    int16_t minMax[2 * 3];
    int32_t id, integrated = 0, range = 0, peak = 0;
    int bin;
    set.startFrame = 3000;
    set.frames = 6000;
    set.count = 3;
    set.channel = 1;
    id = wv_scan_file(e, source, &set, 1, 1);
    CHECK(id > 0, "scan %d", id);
    CHECK(wv_wait(e, id, 10000, NULL) == 1, "scan's end");
    CHECK(wv_get_scan_peaks(e, id, 0, minMax, 3) == 3, "scan peaks");
    for (bin = 0; bin < 3; ++bin) {
        int16_t low = 32767, high = -32768;
        int f;
        for (f = 3000 + bin * 2000; f < 3000 + (bin + 1) * 2000; ++f) {
            if (sample(f, 1) < low) low = sample(f, 1);
            if (sample(f, 1) > high) high = sample(f, 1);
        }
        CHECK(minMax[2 * bin] == low && minMax[2 * bin + 1] == high, "bin %d: %d %d, not %d %d", bin,
              minMax[2 * bin], minMax[2 * bin + 1], low, high);
    }
    CHECK(wv_get_scan_loudness(e, id, &integrated, &range, &peak) == WV_OK && integrated > -200 && integrated < 0,
          "scan loudness %d", integrated);
    CHECK(wv_get_pcm_frame_length(e, id) >= 0, "frames");
    wv_remove_pcm(e, id);
}

/* Queue mode: load, pull the events in order, cut a range, render it. */
static void pulledEvents(const char* folder, const char* source) {
    char work[600], out[600];
    wv_engine* e;
    wv_event_record event, ending;
    int32_t id, list, first = -1;
    int sawStarted = 0, sawDone = 0, guard;
    snprintf(work, sizeof work, "%s/work", folder);
    snprintf(out, sizeof out, "%s/part.wav", folder);
    CHECK(mkdir(work, 0700) == 0, "mkdir");
    e = wv_engine_new(work);
    CHECK(e != NULL, "engine");
    if (e == NULL) return;
    CHECK(wv_wait(e, 1, 0, &ending) == WV_ERR_NO_ITEM, "a wait for no item");
    id = wv_load_file(e, source);
    CHECK(id > 0, "load %d", id);
    CHECK(wv_wait(e, id, 10000, &ending) == 1 && ending.code == WV_EVENT_LOAD_DONE && ending.id == id,
          "load's ending %d", ending.code);
    CHECK(wv_wait(e, id, 0, NULL) == 1, "an ended job's wait returns at once");
    for (guard = 0; guard < 1000 && !sawDone; ++guard) {
        if (wv_next_event(e, &event, 5000) != 1) break;
        if (first < 0) first = event.code;
        if (event.code == WV_EVENT_LOAD_STARTED) sawStarted = 1;
        if (event.code == WV_EVENT_LOAD_DONE) sawDone = sawStarted;
    }
    CHECK(first == WV_EVENT_LOAD_STARTED && sawDone, "queued events: first %d, started then done %d", first, sawDone);
    CHECK(wv_get_pcm_frame_length(e, id) == FRAMES, "frames %d", wv_get_pcm_frame_length(e, id));

    list = wv_new_clip_list(e);
    CHECK(wv_add_clip_ms(e, list, id, 250, 1000) == 1, "clip");
    CHECK(wv_set_output_para(e, list, out, ENCODE_WAV) == WV_OK, "output");
    CHECK(wv_process(e, list) == WV_OK, "process");
    CHECK(wv_wait(e, list, 20000, &ending) == 1 && ending.code == WV_EVENT_RENDER_DONE, "render's ending %d",
          ending.code);
    CHECK(holdsFrames(out, 2000, 6000), "the rendered range differs from the source's frames");

    CHECK(wv_wait(e, list, 0, &ending) == 1, "a list's render still answers");

    CHECK(wv_measure_loudness(e, id) == WV_OK, "measure");
    CHECK(wv_wait(e, id, 20000, &ending) == 1 && ending.code == WV_EVENT_LOUDNESS_RANGE, "measurement's ending %d",
          ending.code);
    {
        /* The source is a tone throughout: no silence at -50 dBFS, all of
         * it at 0 dBFS. */
        uint32_t pair[2] = {0, 0};
        CHECK(wv_scan_silence(e, id, -500, 100) == WV_OK, "silence scan");
        CHECK(wv_wait(e, id, 20000, &ending) == 1 && ending.code == WV_EVENT_SILENCES && ending.value == 0,
              "silence scan's ending %d (%d)", ending.code, ending.value);
        CHECK(wv_scan_silence(e, id, 0, 100) == WV_OK && wv_wait(e, id, 20000, &ending) == 1 &&
                  wv_get_silences(e, id, pair, 1) == 1 && pair[0] == 0 && pair[1] == FRAMES,
              "silences at 0 dBFS: %u-%u", pair[0], pair[1]);
        CHECK(wv_get_silence_scan_frames(e, id, &pair[0]) == RATE && pair[0] == FRAMES, "scanned %u frames",
              pair[0]);
        CHECK(strcmp(wv_event_name(WV_EVENT_SILENCES), "SILENCES") == 0, "event name");
        {
            const int32_t scan = wv_scan_file_silence(e, source, 0, 100);
            CHECK(scan > 0 && wv_wait(e, scan, 20000, &ending) == 1 && ending.code == WV_EVENT_LOAD_DONE &&
                      wv_get_silences(e, scan, pair, 1) == 1 && pair[0] == 0 && pair[1] == FRAMES,
                  "a file's silence scan at 0 dBFS: %u-%u", pair[0], pair[1]);
            wv_remove_pcm(e, scan);
        }
    }
    scanned(e, source);
    /* An ending may still be on its way to the queue when its wait
     * returns: drain until the engine has been quiet for a while. */
    while (wv_next_event(e, &event, 300) == 1) {
    }
    CHECK(wv_next_event(e, &event, 0) == 0, "an empty queue");
    CHECK(wv_next_event(e, NULL, 0) == WV_ERR_OUT_OF_RANGE, "NULL out");
    CHECK(wv_remove_pcm(e, list) == list && wv_remove_pcm(e, id) == id, "remove");
    wv_engine_free(e);
}

/* Callback mode, two engines at once, each with its own pointer; a private
 * working folder goes with its engine. */
static void twoEngines(const char* folder, const char* source) {
    char tmp[600];
    struct Heard heard[2];
    wv_engine* e[2];
    int32_t id[2];
    int i;
    const struct timespec tenMs = {0, 10000000};
    memset(heard, 0, sizeof heard);
    for (i = 0; i < 2; ++i) pthread_mutex_init(&heard[i].lock, NULL);
    snprintf(tmp, sizeof tmp, "%s/tmp", folder);
    CHECK(mkdir(tmp, 0700) == 0, "mkdir");
    setenv("TMPDIR", tmp, 1);
    for (i = 0; i < 2; ++i) {
        e[i] = wv_engine_new(NULL);
        CHECK(e[i] != NULL, "engine %d", i);
        if (e[i] == NULL) return;
        wv_set_callback(e[i], onEvent, &heard[i]);
    }
    CHECK(entries(tmp) == 2, "private folders: %d", entries(tmp));
    for (i = 0; i < 2; ++i) id[i] = wv_load_file(e[i], source);
    for (i = 0; i < 2; ++i) CHECK(wv_wait(e[i], id[i], 10000, NULL) == 1, "wait %d", i);
    /* The ending is counted before the callback runs: give it a moment. */
    for (i = 0; i < 200 && (doneOf(&heard[0]) == 0 || doneOf(&heard[1]) == 0); ++i) nanosleep(&tenMs, NULL);
    CHECK(doneOf(&heard[0]) == 1 && doneOf(&heard[1]) == 1, "each engine's callback heard its own load: %d %d",
          doneOf(&heard[0]), doneOf(&heard[1]));
    for (i = 0; i < 2; ++i) wv_engine_free(e[i]);
    CHECK(entries(tmp) == 0, "private folders left behind: %d", entries(tmp));
    wv_engine_free(NULL);
}

int main(void) {
    char source[600];
    const char* tmp = getenv("TMPDIR");
    char pattern[512];
    snprintf(pattern, sizeof pattern, "%s/wavoryx-capi-XXXXXX", tmp != NULL && *tmp != '\0' ? tmp : "/tmp");
    if (mkdtemp(pattern) == NULL) return 2;
    snprintf(source, sizeof source, "%s/a.wav", pattern);
    if (!writeWav(source)) return 2;
    namesAndTexts();
    pulledEvents(pattern, source);
    twoEngines(pattern, source);
    if (failures == 0) {
        char command[700];
        snprintf(command, sizeof command, "rm -rf '%s'", pattern);
        if (system(command) != 0) return 2;
    }
    printf("%s\n", failures == 0 ? "capi: ok" : "capi: FAILED");
    return failures == 0 ? 0 : 1;
}
