// Thins the progress reports of a job. A value is reported when it exceeds
// the last reported one by more than mStep, or reaches 1.0 (once), and the
// first positive value of a job is always reported. Values that are not a
// number are never reported; +infinity is reported once.
#pragma once

namespace wv {

class ProgressNotifier {
public:
    explicit ProgressNotifier(float step, float last = 0.0f) : mLast(last), mStep(step) {}
    virtual ~ProgressNotifier() = default;

    // `last` is the caller's own record of the last reported value (one per
    // job), or null to use mLast. Calls onProgress(progress) when reported.
    void update(float progress, float* last = nullptr);

    float step() const { return mStep; }

protected:
    virtual void onProgress(float progress);

    float mLast;
    float mStep;
};

}  // namespace wv
