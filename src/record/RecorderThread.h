// The recorder worker: captures the microphone into an item's output file,
// one captured buffer per command (continuations at urgency 1, ahead of
// everything but control requests).
#pragma once

#include "threads/WVCmdThread.h"

class WavoryxPriv;

namespace wv {

class RecorderThread : public WVCmdThread {
public:
    explicit RecorderThread(WavoryxPriv* editor) : mEditor(editor) {}

protected:
    void procCmd(WVThreadCmd& cmd) override;

private:
    WavoryxPriv* mEditor;
};

}  // namespace wv
