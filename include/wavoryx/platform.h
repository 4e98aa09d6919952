/*
 * Wavoryx platform settings: where the engine's log goes, the system
 * properties it reads, the audio devices, and what an audio file is. C
 * linkage, callable from any thread.
 *
 * Environment:
 *   WAVORYX_LOG         verbose, debug, info, warn, error or off (default
 *                       warn): the least priority that is logged.
 *   WAVORYX_PROPERTIES  path of a file of key=value lines ('#' starts a
 *                       comment), read at the first property look-up.
 *   WAVORYX_AUDIO_OUT   where playback goes, as for wavoryx_set_audio_output
 *                       (default auto); read when an output is opened.
 *   WAVORYX_AUDIO_IN    where recording comes from, as for
 *                       wavoryx_set_audio_input (default auto).
 *   WAVORYX_DEVICE_PACE a positive number N: the null and file: outputs and
 *                       the silence, tone: and file: inputs run N times
 *                       faster than real time (default 1).
 */
#ifndef WAVORYX_PLATFORM_H
#define WAVORYX_PLATFORM_H

#include "Wavoryx.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    WAVORYX_LOG_VERBOSE = 2,
    WAVORYX_LOG_DEBUG = 3,
    WAVORYX_LOG_INFO = 4,
    WAVORYX_LOG_WARN = 5,
    WAVORYX_LOG_ERROR = 6,
    WAVORYX_LOG_FATAL = 7
};

/* Receives each message that passes the level, whole, one call per message;
 * it may be called from any of the engine's threads at once. */
typedef void (*wavoryx_log_sink)(int priority, const char* tag, const char* message);

/* NULL restores the default sink: one line "<L>/<tag>: <message>" on
 * standard error, L one of V D I W E F. */
WAVORYX_API void wavoryx_set_log_sink(wavoryx_log_sink sink);
/* Messages below `priority` are dropped; above WAVORYX_LOG_FATAL silences
 * everything but the fatal message written just before an abort. Overrides
 * WAVORYX_LOG. */
WAVORYX_API void wavoryx_set_log_level(int priority);
/* Sets a property for this process, overriding the WAVORYX_PROPERTIES file;
 * a NULL value removes the override. Values hold at most 91 bytes. Returns
 * 0 on success, -1 for a NULL or empty key or a value too long. */
WAVORYX_API int wavoryx_set_property(const char* key, const char* value);
/* Chooses where audio outputs opened from now on play, overriding
 * WAVORYX_AUDIO_OUT; NULL goes back to the environment. One of:
 *   "device"     the system's default output device
 *   "null"       no sound, paced by a clock as a device would be
 *   "file:PATH"  as "null", and every frame handed to the output is also
 *                written to a 16-bit WAV file at PATH (at the rate the
 *                output was opened with), finished when the output closes
 *   "auto"       "device" when one can be opened, else "null"
 * Returns 0, or -1 for any other text. */
WAVORYX_API int wavoryx_set_audio_output(const char* spec);
/* Chooses where audio inputs opened from now on capture from, overriding
 * WAVORYX_AUDIO_IN; NULL goes back to the environment. One of:
 *   "device"   the system's default input device
 *   "silence"  zeros, paced by a clock as a device would be
 *   "tone:HZ"  a sine of HZ hertz at half of full scale, paced likewise
 *   "file:PATH" the audio file PATH (any format the engine loads), converted
 *              to the recording's rate and channels and paced likewise;
 *              silence after its end. Each input opened starts the file
 *              from its beginning. PATH must be readable now.
 *   "auto"     "device" when one can be opened, else "silence" (logged as
 *              a warning)
 * Returns 0, or -1 for any other text. */
WAVORYX_API int wavoryx_set_audio_input(const char* spec);
/* The PATH of a "file:PATH" device text, as wavoryx_set_audio_input and
 * wavoryx_set_audio_output read it, so that an application can check that
 * file (whether it can be read, whether it is one of its own) on the
 * library's terms. Copies PATH NUL-terminated into `path`, cut to size - 1
 * bytes, and returns its whole length (a result >= size means it was cut);
 * 0 (and "") for a text that names no file ("auto", "tone:440", "file:").
 * -1 for a NULL spec or path or a size of 0. Any thread; nothing is opened. */
WAVORYX_API int wavoryx_audio_device_file(const char* spec, char* path, unsigned int size);
/* What the audio file at `path` is, from its first bytes (an extension may
 * lie): "WAV", "MP3", "FLAC", "Ogg Vorbis", "Ogg Opus", "Ogg" (another
 * codec), "MP4", "3GP" or "AMR"; for other contents the upper-cased
 * extension ("AIFF"), or "unknown" without one (also for a file that cannot
 * be read). Copies the name NUL-terminated into `name`, cut to size - 1
 * bytes, and returns its whole length. *variableRate (when not NULL): 1 for
 * an MP3 whose first frame carries a variable-rate tag ("Xing" or "VBRI";
 * a constant rate's is "Info"), else 0. -1 for a NULL path or name or a
 * size of 0. Reads the first few hundred bytes; decodes nothing; any
 * thread. */
WAVORYX_API int wavoryx_file_format(const char* path, char* name, unsigned int size,
                                    int* variableRate);
/* Opens /dev/null on whichever of descriptors 0, 1 and 2 is closed, so that
 * no file opened later takes one of those numbers (and receives what is
 * written to standard error). A Wavoryx engine does it when constructed;
 * an application started with a closed standard stream calls it first
 * thing in main(), before it opens any file itself. Any thread; the three
 * descriptors are left inheritable. Returns 0, or -errno when /dev/null
 * cannot be opened. */
WAVORYX_API int wavoryx_keep_standard_descriptors(void);

#ifdef __cplusplus
}
#endif

#endif /* WAVORYX_PLATFORM_H */
