// Choosing the device behind the audio inputs or the audio outputs. Both
// are named by a short text ("device", "auto", "file:PATH", ...) that the
// public setter gives, or else an environment variable; both open it the
// same way and differ only in their kinds of device and their words.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "base/Log.h"
#include "platform/audio/OpenDevice.h"

namespace wv {

// What sets the inputs' choice apart from the outputs'.
struct DeviceKinds {
    const char* logTag;
    const char* noun;                 // "input" or "output"
    const char* environmentVariable;  // read while nothing is set
    const char* environmentRefusal;   // logged after a refused value: "is not a device"
    bool (*isValid)(const std::string& text);
    // What "auto" opens when the system's device does not open, and the
    // log line that says so.
    const char* autoFallback;
    int autoFallbackLogPriority;
    const char* autoFallbackText;
};

class DeviceSelection {
public:
    explicit DeviceSelection(const DeviceKinds& kinds) : mKinds(kinds) {}
    DeviceSelection(const DeviceSelection&) = delete;
    DeviceSelection& operator=(const DeviceSelection&) = delete;

    const DeviceKinds& kinds() const { return mKinds; }
    // The last text set, else the environment variable, else "auto". A
    // refused variable is logged as a warning and gives "auto".
    std::string selected() const;
    // The public setter: 0, or -1 (nothing changed) for a text the kinds
    // refuse. Null goes back to the environment.
    int set(const char* text);

private:
    const DeviceKinds& mKinds;
    mutable std::mutex mLock;
    std::string mChosen;  // empty: nothing set (no kind accepts "")
};

// ARGUMENT of "KIND:ARGUMENT" (`kind` without its colon); "" when `text` is
// not of that kind or has nothing after the colon.
std::string kindArgument(const std::string& text, const char* kind);

// The choice of one direction (inputs or outputs): its selection, the
// maker a test may put in place of it, and the opening of what it names.
template <class Device>
class DeviceChoice {
public:
    using TestMaker = std::function<std::unique_ptr<Device>()>;
    // makeSystemDevice: the system's default device, for "device" and
    // "auto". makeNamedDevice: the device any other text names, null for a
    // text that names none.
    DeviceChoice(const DeviceKinds& kinds, std::unique_ptr<Device> (*makeSystemDevice)(),
                 std::unique_ptr<Device> (*makeNamedDevice)(const std::string& text))
        : mSelection(kinds), mMakeSystemDevice(makeSystemDevice),
          mMakeNamedDevice(makeNamedDevice) {}

    DeviceSelection& selection() { return mSelection; }
    // For tests: while set, every open gets its device from `maker`,
    // whatever the text (a null device fails the open with -19).
    void setTestMaker(TestMaker maker) {
        std::lock_guard<std::mutex> guard(mLock);
        mTestMaker = std::move(maker);
    }

    // Makes and opens the device `text` names. The system's device for
    // "device" (its error is returned) and "auto" (which falls back to
    // kinds.autoFallback); an unknown text gives -22. 0 with the open device
    // in *out, or a negative status with *out null.
    template <class Client>
    int32_t open(const std::string& text, uint32_t sampleRate, uint32_t channels, Client* client,
                 std::unique_ptr<Device>* out) const {
        const DeviceKinds& kinds = mSelection.kinds();
        out->reset();
        TestMaker maker;
        {
            std::lock_guard<std::mutex> guard(mLock);
            maker = mTestMaker;
        }
        if (maker) return openDevice(maker(), sampleRate, channels, client, out);
        std::unique_ptr<Device> device;
        if (text == "device" || text == "auto") {
            const int32_t err = openDevice(mMakeSystemDevice(), sampleRate, channels, client, out);
            if (err == 0) return 0;
            if (text == "device") {
                logPrint(WAVORYX_LOG_ERROR, kinds.logTag,
                         "the audio %s device cannot be opened (%d)", kinds.noun, err);
                return err;
            }
            logPrint(kinds.autoFallbackLogPriority, kinds.logTag, "%s", kinds.autoFallbackText);
            device = mMakeNamedDevice(kinds.autoFallback);
        } else {
            device = mMakeNamedDevice(text);
            if (!device) {
                logPrint(WAVORYX_LOG_ERROR, kinds.logTag, "unknown audio %s %s", kinds.noun,
                         text.c_str());
                return -22;
            }
        }
        return openDevice(std::move(device), sampleRate, channels, client, out);
    }

private:
    DeviceSelection mSelection;
    std::unique_ptr<Device> (*const mMakeSystemDevice)();
    std::unique_ptr<Device> (*const mMakeNamedDevice)(const std::string& text);
    mutable std::mutex mLock;
    TestMaker mTestMaker;
};

}  // namespace wv
