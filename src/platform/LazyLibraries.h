// Shared libraries opened the first time one of their functions is needed.
//
// FFmpeg's shared libraries, as Debian builds them, pull in about 130 more
// (codecs, TLS, XML, fonts...) with eager symbol binding: linked directly,
// they cost every process about 0.15 s of start-up and 25 MB of resident
// pages before the engine does anything. Most jobs (WAV sources read in
// place, clip lists, waveforms) never call them, and PortAudio is needed
// only when a real sound device opens. The engine therefore calls small
// forwarding functions of the same names (media/FfmpegForwarders.cpp,
// audio/PortAudioForwarders.cpp), which open the set through a LazyLibraries
// on the first call and then jump straight to the real function.
#pragma once

#include <atomic>
#include <mutex>

namespace wv {

class LazyLibraries {
public:
    // `sonames`: the libraries of the set, null-terminated, opened in order
    // with RTLD_NOW | RTLD_GLOBAL (so that their own dependencies are visible
    // to dlsym(RTLD_DEFAULT, ...) as when linked). `onLoaded`, when not null,
    // runs once right after the whole set has opened, on the thread that
    // opened it; it must find functions with lookUp(), not symbol(). Neither is copied:
    // both must outlive the object (static storage).
    LazyLibraries(const char* const* sonames, void (*onLoaded)());

    // Opens the set once; later calls only return the outcome. False (and
    // logged, with the loader's message) when a library cannot be opened;
    // the libraries opened before it stay open.
    bool load();
    bool loaded() const { return mLoaded.load(std::memory_order_acquire); }
    // True when some library of the set is already mapped in the process
    // (e.g. linked by the program), whether or not load() ran.
    bool presentInProcess() const;

    // The address of `name` in the first library of the set that defines
    // it, loading the set first. Ends the process with a fatal log when the
    // set cannot be opened or lacks the function: the engine was built
    // against these libraries and has no way on without them.
    void* symbolOrDie(const char* name);
    // The same, null when missing.
    void* symbol(const char* name);
    // `name` among the libraries opened so far, without opening any: for
    // `onLoaded`, which runs while the set is still being opened.
    void* lookUp(const char* name) const;

private:
    const char* const* mSonames;
    void (*mOnLoaded)();
    std::once_flag mOnce;
    std::atomic<bool> mLoaded{false};
    bool mFailed = false;  // written inside mOnce only
    void* mHandles[8] = {};
};

}  // namespace wv
