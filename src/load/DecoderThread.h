// The decoder worker: turns audio files into the engine's PCM items, one
// decoded buffer per command, so that control requests act between chunks.
//
// Commands: {1, id} starts loading item id (posted by loadFile, urgency 7);
// {2, id, -1, job} decodes the next chunk (posted by the worker itself,
// urgency 7, so loads in progress take turns). Progress is event 3 in steps
// of more than 20 %.
#pragma once

#include "engine/ChunkedJobThread.h"

namespace wv {

class DecoderThread : public ChunkedJobThread {
public:
    static constexpr float kProgressStep = 0.2f;
    explicit DecoderThread(WavoryxPriv* editor);
    ~DecoderThread() override;

protected:
    void procCmd(WVThreadCmd& cmd) override;
    void onCmdCancel(WVThreadCmd& cmd) override;
};

}  // namespace wv
