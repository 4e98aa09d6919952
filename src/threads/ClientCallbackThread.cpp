#include "threads/ClientCallbackThread.h"

namespace wv {

void ClientCallbackThread::notify(const WVThreadCmd& event, int32_t delayMs) {
    const WVThreadCmdContainer entry =
        delayMs != 0 ? delayedEntry(event, static_cast<uint32_t>(delayMs)) : runEntry(event, 7);
    std::lock_guard<std::mutex> guard(mLock);
    // Waveform levels are only worth anything live: don't let them pile up
    // while nobody listens.
    if (mLoopCount == 0 && event.code == EVT_RECORD_LEVEL) return;
    enqueueLocked(entry);
    mCond.notify_one();
}

void ClientCallbackThread::procCmd(WVThreadCmd& event) {
    // The client must never hear of the end before playback has stopped.
    if (event.code == EVT_PLAY_END) mEngine->playStop(event.pcmId);
    // Before the callback: a client that takes its events from a queue
    // its callback fills can ask, on taking the ending event, how the job
    // ended, and a callback can ask about the job it hears end.
    mJobEnds.handingOut(event.code, event.pcmId, event.arg);
    ClientCallback callback;
    void* user;
    {
        std::lock_guard<std::mutex> guard(mTargetLock);
        callback = mCallback;
        user = mUser;
    }
    if (callback != nullptr) {
        JobEnds::Delivering delivering;
        callback(static_cast<int>(event.code), static_cast<int>(event.pcmId), event.arg, nullptr,
                 user);
    }
}

}  // namespace wv
