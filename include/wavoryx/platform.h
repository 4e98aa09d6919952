/*
 * Wavoryx platform settings: where the engine's log goes and the system
 * properties it reads. C linkage, callable from any thread.
 *
 * Environment:
 *   WAVORYX_LOG         verbose, debug, info, warn, error or off (default
 *                       warn): the least priority that is logged.
 *   WAVORYX_PROPERTIES  path of a file of key=value lines ('#' starts a
 *                       comment), read at the first property look-up.
 */
#ifndef WAVORYX_PLATFORM_H
#define WAVORYX_PLATFORM_H

#include "Wavoryx.h"

#ifdef __cplusplus
extern "C" {
#endif

enum { WAVORYX_LOG_VERBOSE = 2, WAVORYX_LOG_DEBUG = 3, WAVORYX_LOG_INFO = 4,
       WAVORYX_LOG_WARN = 5, WAVORYX_LOG_ERROR = 6, WAVORYX_LOG_FATAL = 7 };

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

#ifdef __cplusplus
}
#endif

#endif /* WAVORYX_PLATFORM_H */
