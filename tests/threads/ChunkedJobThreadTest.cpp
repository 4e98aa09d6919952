#include "threads/ChunkedJobThread.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using wv::WVThreadCmd;

constexpr uint32_t kProgressEvent = 50;
constexpr uint32_t kCancelledEvent = 51;
constexpr uint32_t kDoneEvent = 52;
constexpr uint8_t kUrgency = 4;
constexpr wv::Check kMissingItemSite = wv::Check::kDecoderJobItem;  // "WavoryxPriv:24"

struct CountingJob {
    explicit CountingJob(int* freed) : freedCount(freed) {}
    ~CountingJob() { ++*freedCount; }
    int* freedCount;
    int stepsLeft = 2;
};

// A worker that is never launched: the tests call its hooks and look at what
// it queued. Each job takes two steps of kStepMs and ends with kDoneEvent.
class FakeWorker : public wv::EventSink, public wv::ChunkedJobThread {
public:
    static constexpr int32_t kStepMs = 5;

    FakeWorker() : ChunkedJobThread(this, {0.5f, kProgressEvent, kCancelledEvent, kUrgency, kMissingItemSite}) {}

    void notifyClient(WVThreadCmd event, int32_t) override {
        log.push_back("event " + std::to_string(event.code) + "/" + std::to_string(event.pcmId) + "/" +
                      std::to_string(event.arg));
    }

    void run(WVThreadCmd cmd) { procCmd(cmd); }
    void cancel(WVThreadCmd cmd) { onCmdCancel(cmd); }
    void discard(WVThreadCmd cmd) { onCmdDiscard(cmd); }
    int32_t suspend(WVThreadCmd cmd) { return onCmdSuspend(cmd); }

    // Takes the one queued command: its priority, or 255 for a delayed one;
    // -1 when the queue does not hold exactly one.
    int queuedOnly(WVThreadCmd* out) {
        std::lock_guard<std::mutex> guard(mLock);
        if (mQueue.size() + mDelayed.size() != 1) return -1;
        const auto entry = mQueue.empty() ? mDelayed.front() : mQueue.front();
        *out = entry.cmd;
        mQueue.clear();
        mDelayed.clear();
        return entry.kind == wv::WVCMD_DELAYED ? 255 : entry.priority;
    }

    std::set<uint32_t> registered{7};
    bool low = false;
    int freed = 0;
    std::vector<std::string> log;

protected:
    bool isRegistered(uint32_t id) override { return registered.count(id) != 0; }
    const uint32_t* itemOf(const WVThreadCmd& cmd) const {
        auto found = registered.find(cmd.pcmId);
        return found == registered.end() ? nullptr : &*found;
    }
    void startJob(WVThreadCmd& cmd) override {
        takeItem(cmd, itemOf(cmd));
        postFirstStep(cmd.pcmId, new CountingJob(&freed));
    }
    void runStep(WVThreadCmd& cmd) override {
        takeItem(cmd, itemOf(cmd));
        auto* job = static_cast<CountingJob*>(cmd.data);
        update(job->stepsLeft == 2 ? 0.5f : 1.0f);
        if (--job->stepsLeft > 0) {
            postNextStep(cmd, kStepMs);
            return;
        }
        delete job;
        endJob(cmd.pcmId, kDoneEvent, -1);
    }
    void deleteJob(void* job) override { delete static_cast<CountingJob*>(job); }
    void endJob(uint32_t id, uint32_t event, int32_t value) override {
        notifyClient(WVThreadCmd(event, id, value), 0);
        log.push_back("release " + std::to_string(id));
    }
    void dropReference(uint32_t id) override { log.push_back("release " + std::to_string(id)); }
    bool lowPriority() override { return low; }
};

TEST(ChunkedJobThread, AJobRunsItsStepsAtTheStepUrgencyAndEndsOnce) {
    FakeWorker worker;
    worker.run(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1));
    EXPECT_EQ(worker.currentId(), 7u);
    WVThreadCmd step;
    ASSERT_EQ(worker.queuedOnly(&step), kUrgency + 3);
    EXPECT_EQ(step.code, wv::JobThread::kCmdContinue);
    ASSERT_NE(step.data, nullptr);

    worker.run(step);
    ASSERT_EQ(worker.queuedOnly(&step), kUrgency + 3);
    worker.run(step);
    WVThreadCmd none;
    EXPECT_EQ(worker.queuedOnly(&none), -1);
    EXPECT_EQ(worker.freed, 1);
    EXPECT_EQ(worker.log, (std::vector<std::string>{"event 50/7/50", "event 50/7/100", "event 52/7/-1", "release 7"}));
}

TEST(ChunkedJobThread, AtLowPriorityTheNextStepWaitsAsADelayedCommand) {
    FakeWorker worker;
    worker.low = true;
    worker.run(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1));
    WVThreadCmd step;
    // The first step is never delayed: nothing was measured yet.
    ASSERT_EQ(worker.queuedOnly(&step), kUrgency + 3);
    worker.run(step);
    EXPECT_EQ(worker.queuedOnly(&step), 255);
    worker.run(step);
    EXPECT_EQ(worker.freed, 1);
}

TEST(ChunkedJobThread, CancelEndsWithTheCancelEventAndDiscardOnlyFreesTheJob) {
    FakeWorker worker;
    worker.cancel(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1));
    worker.cancel(WVThreadCmd(wv::JobThread::kCmdContinue, 7, -1, new CountingJob(&worker.freed)));
    EXPECT_EQ(worker.freed, 1);
    worker.cancel(WVThreadCmd(9, 8, -1));  // not part of a job: the reference only
    EXPECT_EQ(worker.log,
              (std::vector<std::string>{"event 51/7/-1", "release 7", "event 51/7/-1", "release 7", "release 8"}));

    worker.log.clear();
    worker.discard(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1));
    worker.discard(WVThreadCmd(wv::JobThread::kCmdContinue, 7, -1, new CountingJob(&worker.freed)));
    EXPECT_EQ(worker.freed, 2);
    EXPECT_TRUE(worker.log.empty());
}

TEST(ChunkedJobThread, OnlyAStepCanBeParked) {
    FakeWorker worker;
    worker.registered.insert(8);
    EXPECT_NE(worker.suspend(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1)), 0);
    EXPECT_EQ(worker.suspend(WVThreadCmd(wv::JobThread::kCmdContinue, 8, -1)), 0);
    EXPECT_EQ(worker.currentId(), 8u);
}

// A job that runs its own commands, returning what it was given to return;
// it counts its frees.
class ScriptedJob : public wv::ChunkedJob {
public:
    ScriptedJob(int* freed, std::vector<wv::JobStep> steps) : mFreed(freed), mSteps(std::move(steps)) {}
    ~ScriptedJob() override { ++*mFreed; }
    wv::JobStep start(WVThreadCmd&) override { return take(); }
    wv::JobStep step(WVThreadCmd&) override { return take(); }

private:
    wv::JobStep take() {
        const wv::JobStep next = mSteps.front();
        mSteps.erase(mSteps.begin());
        return next;
    }
    int* mFreed;
    std::vector<wv::JobStep> mSteps;
};

// A worker whose jobs are ChunkedJobs: it only follows what they return.
class FollowingWorker : public FakeWorker {
protected:
    void startJob(WVThreadCmd& cmd) override { follow(cmd, static_cast<wv::ChunkedJob*>(cmd.data)->start(cmd)); }
    void runStep(WVThreadCmd& cmd) override { follow(cmd, static_cast<wv::ChunkedJob*>(cmd.data)->step(cmd)); }
    void deleteJob(void* job) override { delete static_cast<wv::ChunkedJob*>(job); }
};

TEST(ChunkedJobThread, AJobCarriedFromItsStartIsFollowedAndFreedHoweverItEnds) {
    FollowingWorker worker;
    auto* job = new ScriptedJob(&worker.freed, {wv::JobStep::next(0), wv::JobStep::next(FakeWorker::kStepMs),
                                                wv::JobStep::wait(300), wv::JobStep::end(kDoneEvent, 4)});
    worker.low = true;
    worker.run(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1, job));
    WVThreadCmd step;
    ASSERT_EQ(worker.queuedOnly(&step), kUrgency + 3);
    EXPECT_EQ(step.code, wv::JobThread::kCmdContinue);
    EXPECT_EQ(step.data, job);
    worker.run(step);
    EXPECT_EQ(worker.queuedOnly(&step), 255);  // paced: a delayed command
    worker.run(step);
    EXPECT_EQ(worker.queuedOnly(&step), 255);  // waiting
    EXPECT_EQ(worker.freed, 0);
    worker.run(step);
    EXPECT_EQ(worker.queuedOnly(&step), -1);
    EXPECT_EQ(worker.freed, 1);
    EXPECT_EQ(worker.log, (std::vector<std::string>{"event 52/7/4", "release 7"}));

    // A start that ends at once, a cancelled one, a discarded one and one a
    // suspend drops: each frees the job it carries, once.
    worker.log.clear();
    worker.run(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1,
                           new ScriptedJob(&worker.freed, {wv::JobStep::end(kDoneEvent, -11)})));
    EXPECT_EQ(worker.freed, 2);
    worker.cancel(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1, new ScriptedJob(&worker.freed, {})));
    EXPECT_EQ(worker.freed, 3);
    worker.discard(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1, new ScriptedJob(&worker.freed, {})));
    EXPECT_EQ(worker.freed, 4);
    EXPECT_NE(worker.suspend(WVThreadCmd(wv::JobThread::kCmdStart, 7, -1, new ScriptedJob(&worker.freed, {}))), 0);
    EXPECT_EQ(worker.freed, 5);
    EXPECT_EQ(worker.log,
              (std::vector<std::string>{"event 52/7/-11", "release 7", "event 51/7/-1", "release 7"}));
}

TEST(ChunkedJobThreadDeathTest, ACommandOfAMissingItemAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            FakeWorker worker;
            worker.run(WVThreadCmd(wv::JobThread::kCmdContinue, 3, -1));
        },
        "WavoryxPriv:24 CHECK\\(info != NULL\\) failed\\.");
    EXPECT_DEATH(
        {
            FakeWorker worker;
            worker.cancel(WVThreadCmd(wv::JobThread::kCmdContinue, 3, -1));
        },
        "WavoryxPriv:24 CHECK\\(info != NULL\\) failed\\.");
}

}  // namespace
