// Process-wide use of PortAudio: the library is initialised while at least
// one user holds it. The first initialisation silences the diagnostics that
// the sound back ends (ALSA, JACK) print on standard error while probing, and
// keeps a JACK server from being started; our own log says what failed.
#pragma once

namespace wv {

class PortAudioSession {
public:
    // Initialises PortAudio if needed. false (and logged) if it cannot be.
    static bool acquire();
    // Pairs with a successful acquire().
    static void release();
};

}  // namespace wv
