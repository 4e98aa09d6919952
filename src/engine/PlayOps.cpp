// The engine's play controls. One item at a time is the current play item
// (mPlayingId); every control but playStart addresses it. The player and its
// reader live until the item is released. Each control holds the item
// (REF_PLAYER) for the length of the call only: the client may have removed
// the item it plays while a job still keeps it, and that job may let go on
// its own thread at any moment; the last release then waits for the call.
// The controls also run one at a time (mPlayLock): a player is made on the
// first play of its item and is not ready for the other controls until it
// has started, and two first plays of one item would each make one.
#define WV_LOG_TAG "WavoryxPriv"
#include <memory>

#include "base/Log.h"
#include "engine/WavoryxPriv.h"
#include "items/PcmInfoReader.h"
#include "play/AudioPlayer.h"

using namespace wv;

namespace {

// The item's player; the play controls are the only ones that make one.
AudioPlayer* playerOf(SPcmInfo* item) { return static_cast<AudioPlayer*>(item->player.get()); }

}  // namespace

int32_t WavoryxPriv::playStart(pcm_id_t id) {
    std::lock_guard<std::mutex> guard(mPlayLock);
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kPlayStart);
    if (item == nullptr) return -1;
    mPlayingId = id;
    if (AudioPlayer* player = playerOf(item)) {
        // Rewinds at normal speed; a paused player stays silent until resumed.
        player->setPlaybackRatePermille(1000);
        player->seekTo(0);
        return 0;
    }
    AudioPlayer* player = new AudioPlayer(events());
    item->player.reset(player);
    bool started = false;
    if (player->setDataSource(item->currentPath().c_str()) != 0) {
        WV_LOGE("setDataSource error");
    } else {
        // A scan keeps no audio: its player decodes the file itself.
        player->setReader(item, item->scan ? nullptr
                                           : std::unique_ptr<PcmInfoReader>(new PcmInfoReader(item)));
        if (player->start(true) != 0) {
            WV_LOGE("player start error");
        } else {
            started = true;
        }
    }
    if (started) return 0;
    // The player owns the reader: both go (player first).
    item->player.reset();
    mPlayingId = 0;
    notifyClient(WVThreadCmd(EVT_PLAY_FAILED, id, -1), 0);
    return -14;
}

int32_t WavoryxPriv::playPause(pcm_id_t) {
    std::lock_guard<std::mutex> guard(mPlayLock);
    const pcm_id_t playing = mPlayingId.load();
    ItemHold hold(this, playing);
    SPcmInfo* item = holdItem(hold, playing, Report::kPlayPause);
    if (item == nullptr) return -1;
    if (AudioPlayer* player = playerOf(item)) player->pause(false);
    return 0;
}

int32_t WavoryxPriv::playResume(pcm_id_t) {
    std::lock_guard<std::mutex> guard(mPlayLock);
    const pcm_id_t playing = mPlayingId.load();
    ItemHold hold(this, playing);
    SPcmInfo* item = holdItem(hold, playing, Report::kPlayResume);
    if (item == nullptr) return -1;
    AudioPlayer* player = playerOf(item);
    if (player == nullptr) return -5;
    player->resume();
    return 0;
}

int32_t WavoryxPriv::playStop(pcm_id_t id) {
    std::lock_guard<std::mutex> guard(mPlayLock);
    const pcm_id_t target = id != 0 ? id : mPlayingId.exchange(0);
    ItemHold hold(this, target);
    SPcmInfo* item = holdItem(hold, target, Report::kPlayStop);
    if (item == nullptr) return -1;
    if (AudioPlayer* player = playerOf(item)) player->pause(true);
    return 0;
}

int32_t WavoryxPriv::playSeekTo(int32_t ms) {
    std::lock_guard<std::mutex> guard(mPlayLock);
    const pcm_id_t playing = mPlayingId.load();
    ItemHold hold(this, playing);
    SPcmInfo* item = holdItem(hold, playing, Report::kPlaySeekTo);
    if (item == nullptr) return -1;
    AudioPlayer* player = playerOf(item);
    if (player == nullptr) return -5;
    player->seekTo(int64_t(ms) * 1000);
    return 0;
}

int32_t WavoryxPriv::setPlaySpeed(int32_t speed) {
    std::lock_guard<std::mutex> guard(mPlayLock);
    const pcm_id_t playing = mPlayingId.load();
    ItemHold hold(this, playing);
    SPcmInfo* item = holdItem(hold, playing, Report::kSetPlaySpeed);
    if (item == nullptr) return -1;
    AudioPlayer* player = playerOf(item);
    if (player == nullptr) return -5;
    // No speed 0, and no backwards play for data that cannot be read
    // backwards (a recording, a clip list): both would only play silence.
    if (speed == 0 || (speed < 0 && !player->canPlayBackwards())) {
        WV_LOGE("play speed %d refused for pcm %d", speed, static_cast<int>(item->id));
        return -4;
    }
    player->setPlaybackRatePermille(static_cast<int32_t>(static_cast<uint32_t>(speed) * 1000u));
    return 0;
}

int32_t WavoryxPriv::getPlayPositionMs() {
    std::lock_guard<std::mutex> guard(mPlayLock);
    const pcm_id_t playing = mPlayingId.load();
    ItemHold hold(this, playing);
    SPcmInfo* item = holdItem(hold, playing, Report::kGetPlayPositionMs);
    if (item == nullptr) return -1;
    AudioPlayer* player = playerOf(item);
    if (player == nullptr) return 0;
    return static_cast<int32_t>(player->getMediaTimeUs() / 1000);
}
