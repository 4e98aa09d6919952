#include "threads/JobThread.h"

namespace wv {

void JobThread::onCmdDiscard(WVThreadCmd& cmd) {
    if (cmd.data != nullptr) deleteJob(cmd.data);
}

}  // namespace wv
