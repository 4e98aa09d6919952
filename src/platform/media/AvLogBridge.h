// Sends FFmpeg's own messages to the engine's log under the tag
// "MediaLayer", one log line per message line, at levels that keep a normal
// run quiet: FFmpeg's fatal and panic messages become errors, its errors
// info, its warnings debug, its info verbose; anything chattier is dropped.
// Installed once for the process and never removed (FFmpeg's log hook is
// global and may be called from any thread at any time).
#pragma once

namespace wv {

void installAvLogBridge();

// Engine log priority for an FFmpeg log level, or 0 when it is dropped.
int logPriorityForAvLevel(int avLevel);

}  // namespace wv
