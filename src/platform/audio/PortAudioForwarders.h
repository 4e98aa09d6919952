// PortAudio is opened the first time a real sound device is wanted (see
// platform/LazyLibraries.h); the Pa_ functions the audio layer calls are
// forwarders to it.
#pragma once

namespace wv {

// Opens PortAudio and the sound libraries it links (ALSA, JACK) into the
// global scope; later calls only return the outcome. False (and logged)
// when it cannot be opened. Call it before any Pa_ function.
bool loadPortAudio();

}  // namespace wv
