#include "threads/WVCmdThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Wait.h"

namespace {

using wv::WVCMD_ANY;
using wv::WVThreadCmd;

const int32_t kAnyArg = static_cast<int32_t>(WVCMD_ANY);

// Records every hook call as "<hook>:<code>/<pcmId>" and can hold procCmd
// until released, to post requests while a chunk "runs".
class RecordingThread : public wv::WVCmdThread {
public:
    ~RecordingThread() override { exit(); }

    std::vector<std::string> log() {
        std::lock_guard<std::mutex> guard(mLogLock);
        return mLog;
    }
    bool waitForLog(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> guard(mLogLock);
        return mLogChanged.wait_for(guard, timeout, [&] { return mLog.size() >= count; });
    }
    // Kinds of the queued entries, head first.
    std::vector<int32_t> queuedCodes() {
        std::lock_guard<std::mutex> guard(mLock);
        std::vector<int32_t> codes;
        for (const auto& entry : mQueue) codes.push_back(static_cast<int32_t>(entry.cmd.code));
        for (const auto& entry : mDelayed) codes.push_back(static_cast<int32_t>(entry.cmd.code));
        return codes;
    }
    size_t parkedCount() {
        std::lock_guard<std::mutex> guard(mLock);
        return mSuspended.size();
    }

    // procCmd of code 99 blocks until open() is called.
    void open() {
        std::lock_guard<std::mutex> guard(mGateLock);
        mGateOpen = true;
        mGate.notify_all();
    }
    // Jobs of code 2 post their next chunk until `chunksLeft` reaches 0.
    int chunksLeft = 0;
    bool resumeReposts = true;
    int32_t suspendResult = 0;

protected:
    void procCmd(WVThreadCmd& cmd) override {
        if (cmd.code == 99) {
            note("run", cmd);
            std::unique_lock<std::mutex> guard(mGateLock);
            mGate.wait(guard, [&] { return mGateOpen; });
            return;
        }
        note("run", cmd);
        if (cmd.code == 2 && --chunksLeft > 0) sendCmd(cmd, 7);
        // The loop stops itself, and starting it from here is a no-op.
        if (cmd.code == 98) {
            exit();
            launch();
        }
    }
    int32_t onCmdSuspend(WVThreadCmd& cmd) override {
        note("suspend", cmd);
        return suspendResult;
    }
    void onCmdResume(WVThreadCmd& cmd) override {
        note("resume", cmd);
        if (resumeReposts) sendCmd(cmd, 7);
    }
    void onCmdCancel(WVThreadCmd& cmd) override { note("cancel", cmd); }
    void onCmdDiscard(WVThreadCmd& cmd) override { note("discard", cmd); }

private:
    void note(const char* hook, const WVThreadCmd& cmd) {
        std::lock_guard<std::mutex> guard(mLogLock);
        mLog.push_back(std::string(hook) + ":" + std::to_string(cmd.code) + "/" + std::to_string(cmd.pcmId));
        mLogChanged.notify_all();
    }
    std::mutex mLogLock;
    std::condition_variable mLogChanged;
    std::vector<std::string> mLog;
    std::mutex mGateLock;
    std::condition_variable mGate;
    bool mGateOpen = false;
};

TEST(WVCmdThread, QueueOrderPrioritiesFifoAndDelayedEntries) {
    RecordingThread thread;
    for (uint32_t i = 10; i < 20; ++i) thread.sendCmd(WVThreadCmd(i, 0, -1), 7);
    thread.sendCmd(WVThreadCmd(1, 0, -1), 2);  // urgency 2: ahead of the 7s
    thread.sendCmd(WVThreadCmd(2, 0, -1), 1);  // urgency 1: ahead of that
    thread.sendDelayedCmd(WVThreadCmd(50, 0, -1), 5000);
    thread.sendDelayedCmd(WVThreadCmd(51, 0, -1), 10);  // due first
    thread.sendDelayedCmd(WVThreadCmd(52, 0, -1), 10);  // same due time: posting order
    thread.sendCmd(WVThreadCmd(3, 0, -1), 253);         // priority 0 after the modulo: at the very front
    thread.cancelCmd(WVThreadCmd(77, 0, -1));           // control requests go ahead of ordinary ones
    EXPECT_EQ(thread.queuedCodes(),
              (std::vector<int32_t>{3, 77, 2, 1, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 51, 52, 50}));
}

TEST(WVCmdThread, DelayedEntryWaitsForItsTimeAndForOrdinaryWork) {
    RecordingThread thread;
    thread.sendDelayedCmd(WVThreadCmd(5, 1, -1), 0);
    thread.sendCmd(WVThreadCmd(6, 1, -1), 7);
    thread.sendDelayedCmd(WVThreadCmd(7, 1, -1), 150);
    const auto start = std::chrono::steady_clock::now();
    thread.launch();
    ASSERT_TRUE(thread.waitForLog(3));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(thread.log(), (std::vector<std::string>{"run:6/1", "run:5/1", "run:7/1"}));
    EXPECT_GE(elapsed, std::chrono::milliseconds(140));
}

TEST(WVCmdThread, WakeWaitingRunsWaitersAtOnceAndLeavesOtherDelaysAlone) {
    RecordingThread thread;
    EXPECT_EQ(thread.wakeWaiting(), 0);  // none waits: nothing happens
    thread.sendWaitingCmd(WVThreadCmd(8, 1, -1), 60000, thread.wakeCount());
    thread.sendDelayedCmd(WVThreadCmd(9, 1, -1), 60000);  // a pacing delay: never woken
    thread.sendWaitingCmd(WVThreadCmd(10, 2, -1), 60000, thread.wakeCount());
    EXPECT_EQ(thread.queuedCodes(), (std::vector<int32_t>{8, 9, 10}));
    thread.launch();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(thread.log().empty());
    EXPECT_EQ(thread.wakeWaiting(), 2);
    ASSERT_TRUE(thread.waitForLog(2));
    EXPECT_EQ(thread.log(), (std::vector<std::string>{"run:8/1", "run:10/2"}));
    EXPECT_EQ(thread.queuedCodes(), (std::vector<int32_t>{9}));
    // Woken once: a second wake finds nothing, and a cancelled waiter is gone.
    EXPECT_EQ(thread.wakeWaiting(), 0);
    thread.sendWaitingCmd(WVThreadCmd(11, 3, -1), 60000, thread.wakeCount());
    thread.cancelCmd(WVThreadCmd(11, 3, kAnyArg));
    ASSERT_TRUE(thread.waitForLog(3));
    EXPECT_EQ(thread.wakeWaiting(), 0);
    EXPECT_EQ(thread.queuedCodes(), (std::vector<int32_t>{9}));
}

// The producer may wake between the job's look for data and its wait: that
// wake finds nothing to wake, and the job must not then sleep its delay out.
TEST(WVCmdThread, AWakeBetweenTheLookAndTheWaitIsNotLost) {
    RecordingThread thread;
    const uint64_t seen = thread.wakeCount();  // the job looks: nothing yet
    EXPECT_EQ(thread.wakeWaiting(), 0);        // the data come meanwhile
    thread.sendWaitingCmd(WVThreadCmd(12, 4, -1), 600000, seen);
    thread.launch();
    ASSERT_TRUE(thread.waitForLog(1));
    EXPECT_EQ(thread.log(), (std::vector<std::string>{"run:12/4"}));
    // Without a wake in between it waits to be woken.
    thread.sendWaitingCmd(WVThreadCmd(13, 5, -1), 600000, thread.wakeCount());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(thread.log().size(), 1u);
    EXPECT_EQ(thread.wakeWaiting(), 1);
    ASSERT_TRUE(thread.waitForLog(2));
}

TEST(WVCmdThread, CancelDuringAChunkCatchesTheNextChunk) {
    RecordingThread thread;
    thread.chunksLeft = 1000;
    thread.sendCmd(WVThreadCmd(99, 4, -1), 7);  // holds the worker
    thread.sendCmd(WVThreadCmd(2, 4, -1), 7);   // the job's first chunk waits behind it
    thread.launch();
    ASSERT_TRUE(thread.waitForLog(1));
    thread.cancelCmd(WVThreadCmd(2, 4, kAnyArg));
    thread.open();
    ASSERT_TRUE(thread.waitForLog(2));
    thread.exit();
    EXPECT_EQ(thread.log(), (std::vector<std::string>{"run:99/4", "cancel:2/4"}));
}

TEST(WVCmdThread, CancelRequestsMatchQueuedOrParkedCommandsOnly) {
    RecordingThread thread;
    thread.sendCmd(WVThreadCmd(1, 7, 3), 7);
    thread.sendCmd(WVThreadCmd(2, 8, 3), 7);
    thread.suspendCmd(WVThreadCmd(2, 8, kAnyArg));
    thread.cancelCmd(WVThreadCmd(1, 9, kAnyArg));    // other item: no match
    thread.cancelCmd(WVThreadCmd(WVCMD_ANY, 7, 4));  // other arg: no match
    thread.launch();
    ASSERT_TRUE(thread.waitForLog(2));  // the suspend, then the run of 1/7
    ASSERT_TRUE(wvtest::waitUntil([&] { return thread.parkedCount() == 1; }, std::chrono::seconds(5)));
    thread.cancelCmd(WVThreadCmd(2, 8, kAnyArg));  // finds the parked command
    ASSERT_TRUE(thread.waitForLog(3));
    thread.exit();
    EXPECT_EQ(thread.log(), (std::vector<std::string>{"suspend:2/8", "run:1/7", "cancel:2/8"}));
    EXPECT_EQ(thread.parkedCount(), 0u);
}

TEST(WVCmdThread, SuspendAndResumeMoveTheJobOnceOrDropIt) {
    {
        RecordingThread thread;
        thread.chunksLeft = 2;
        thread.sendCmd(WVThreadCmd(2, 1, -1), 7);
        thread.suspendCmd(WVThreadCmd(2, 1, kAnyArg));
        thread.launch();
        ASSERT_TRUE(wvtest::waitUntil([&] { return thread.parkedCount() == 1; }, std::chrono::seconds(5)));
        thread.resumeCmd(WVThreadCmd(2, 1, kAnyArg));
        thread.resumeCmd(WVThreadCmd(2, 1, kAnyArg));  // nothing parked any more: no effect
        ASSERT_TRUE(thread.waitForLog(4));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        thread.exit();
        EXPECT_EQ(thread.log(), (std::vector<std::string>{"suspend:2/1", "resume:2/1", "run:2/1", "run:2/1"}));
    }
    {
        // A hook that refuses parking drops the command; a resume hook that
        // does not post ends the job.
        RecordingThread thread;
        thread.suspendResult = -1;
        thread.resumeReposts = false;
        thread.sendCmd(WVThreadCmd(2, 1, -1), 7);
        thread.sendCmd(WVThreadCmd(3, 1, -1), 7);
        thread.suspendCmd(WVThreadCmd(2, 1, kAnyArg));
        thread.suspendCmd(WVThreadCmd(3, 1, kAnyArg));
        thread.launch();
        ASSERT_TRUE(thread.waitForLog(2));
        thread.exit();
        EXPECT_EQ(thread.log(), (std::vector<std::string>{"suspend:2/1", "suspend:3/1"}));
        EXPECT_EQ(thread.parkedCount(), 0u);
    }
}

TEST(WVCmdThread, ExitFinishesTheCurrentCommandAndDiscardsTheRest) {
    RecordingThread thread;
    thread.sendCmd(WVThreadCmd(99, 0, -1), 7);
    for (int i = 0; i < 100; ++i) thread.sendCmd(WVThreadCmd(5, 0, -1), 7);
    thread.launch();
    ASSERT_TRUE(thread.waitForLog(1));
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        thread.open();
    });
    thread.exit();  // returns once the held command has finished
    opener.join();
    EXPECT_EQ(thread.log(), (std::vector<std::string>{"run:99/0"}));
    EXPECT_EQ(thread.queuedCodes().size(), 100u);
    EXPECT_FALSE(thread.loopRunning());
    // The owner can still let the dropped jobs free what they hold.
    thread.discardAll();
    EXPECT_EQ(thread.log().size(), 101u);
    EXPECT_EQ(thread.log().back(), "discard:5/0");
    EXPECT_TRUE(thread.queuedCodes().empty());
}

TEST(WVCmdThread, LoopOnALentThreadReturnsAfterExitAndCanRunAgain) {
    RecordingThread thread;
    thread.sendCmd(WVThreadCmd(1, 0, -1), 7);
    for (int round = 0; round < 2; ++round) {
        std::thread lent([&] { wv::WVCmdThread::threadLoop(&thread); });
        ASSERT_TRUE(thread.waitForLog(static_cast<size_t>(round + 1)));
        thread.exit();  // does not wait for a thread it did not start
        lent.join();
        EXPECT_FALSE(thread.loopRunning());
        thread.sendCmd(WVThreadCmd(1, 0, -1), 7);
    }
}

TEST(WVCmdThread, LoopThatStoppedItselfCanBeLaunchedAgain) {
    RecordingThread thread;
    for (int round = 0; round < 3; ++round) {
        thread.sendCmd(WVThreadCmd(98, round, -1), 7);
        thread.launch();
        ASSERT_TRUE(thread.waitForLog(static_cast<size_t>(2 * round + 1)));
        ASSERT_TRUE(wvtest::waitUntil([&] { return !thread.loopRunning(); }, std::chrono::seconds(5)));
        // Queued after the loop ended: served by the next launch.
        thread.sendCmd(WVThreadCmd(1, round, -1), 7);
        thread.launch();
        ASSERT_TRUE(thread.waitForLog(static_cast<size_t>(2 * round + 2)));
        thread.exit();
    }
    EXPECT_EQ(thread.log(),
              (std::vector<std::string>{"run:98/0", "run:1/0", "run:98/1", "run:1/1", "run:98/2", "run:1/2"}));
}

TEST(WVCmdThread, LaunchAndExitFromManyThreadsAtOnce) {
    RecordingThread thread;
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                thread.launch();
                thread.sendCmd(WVThreadCmd(1, 0, -1), 7);
                thread.exit();
            }
        });
    }
    for (std::thread& caller : callers) caller.join();
    // Exit requests left over by exits that found no loop are taken by the
    // next loops; in the end one launch keeps serving.
    thread.sendCmd(WVThreadCmd(7, 0, -1), 7);
    ASSERT_TRUE(wvtest::waitUntil(
        [&] {
            thread.launch();
            const std::vector<std::string> log = thread.log();
            return !log.empty() && log.back() == "run:7/0";
        },
        std::chrono::seconds(5)));
}

TEST(WVCmdThread, PatternMatching) {
    WVThreadCmd cmd(2, 5, 7);
    EXPECT_TRUE(wv::cmdMatches(WVThreadCmd(WVCMD_ANY, WVCMD_ANY, kAnyArg), cmd));
    EXPECT_TRUE(wv::cmdMatches(WVThreadCmd(2, 5, kAnyArg), cmd));
    EXPECT_TRUE(wv::cmdMatches(WVThreadCmd(2, 5, 7, &cmd), cmd));  // data never matters
    EXPECT_FALSE(wv::cmdMatches(WVThreadCmd(2, 6, kAnyArg), cmd));
    EXPECT_FALSE(wv::cmdMatches(WVThreadCmd(WVCMD_ANY, 5, 8), cmd));
    // An unused arg (-1) is the same 32 bits as the wildcard.
    EXPECT_TRUE(wv::cmdMatches(WVThreadCmd(2, 5, -1), cmd));
}

}  // namespace
