// The encoder worker: renders clip lists into output files, one block per
// command.
//
// Commands: {1, listId} starts a render (posted by process, urgency 7);
// {2, listId, -1, job} renders the next block (posted by the worker itself,
// urgency 2, so one render runs to its end before the next starts).
// Progress is event 21 in steps of more than 10 %.
#pragma once

#include "engine/ChunkedJobThread.h"

namespace wv {

class EncoderThread : public ChunkedJobThread {
public:
    static constexpr float kProgressStep = 0.1f;
    explicit EncoderThread(WavoryxPriv* editor);
    ~EncoderThread() override;

protected:
    void procCmd(WVThreadCmd& cmd) override;
    void onCmdCancel(WVThreadCmd& cmd) override;
};

}  // namespace wv
