// RecordJob: the context of one recording, carried in the data field of
// every command 2 of the recorder worker. It owns everything the recording
// uses; destroying it stops and frees the capture source and deletes the
// encoder (which removes its file unless finishEncoding() completed it).
//
// fadeIn() is the recording's own fade from silence, applied after the
// capture source's ramp: gain (c / L)^2 for frame c of L, so it reaches full
// level after fadeLength frames (0.3 s). It starts again after every pause.
#pragma once

#include <cstdint>
#include <memory>

#include "codec/AudioEncoder.h"
#include "codec/WaveEncoder.h"
#include "dsp/EffectRobot.h"
#include "dsp/VoicePitchShifter.h"
#include "dsp/WaveformData.h"
#include "record/AudioRecorder.h"
#include "record/LostAudioReport.h"
#include "threads/PacingTimer.h"

namespace wv {

struct RecordJob {
    // Length of the fade-in: sampleRate * 0.3 frames, truncated.
    static int32_t fadeLengthFor(int32_t sampleRate) { return int32_t(sampleRate * 0.3); }

    RecordJob() = default;
    ~RecordJob();
    RecordJob(const RecordJob&) = delete;
    RecordJob& operator=(const RecordJob&) = delete;

    // Stops and frees the capture source, if any (while paused there is none).
    void dropRecorder();

    std::unique_ptr<AudioRecorder> recorder;  // null while paused
    int32_t audioSource = 0;                  // of every capture source, the first's and a resume's
    std::unique_ptr<AudioEncoder> encoder;    // also the file writer
    WaveEncoder* wave = nullptr;  // the encoder when it writes WAV, for header refreshes
    uint32_t headerPeriod = 0;    // frames between header refreshes (one second)
    uint32_t sinceHeader = 0;     // frames encoded since the last refresh
    std::unique_ptr<WaveformState> waveform;          // its ".wave" file beside the output
    std::unique_ptr<PacingTimer> pacer;               // spaces events 80 by 20 ms
    std::unique_ptr<VoicePitchShifter> pitchShifter;  // male and female voices, or null
    std::unique_ptr<EffectRobot> robotEffect;         // robot voice, or null
    std::unique_ptr<LostAudioReport> lostAudio;       // events 67
    int32_t resumeRetries = 1;                        // retries left in the resume being handled
    int32_t fadeCount = 0;                            // frames faded so far
    int32_t fadeLength = 0;                           // frames
    uint32_t frameSize = 2;                           // bytes per frame of the recording
};

// Fades `frames` frames of `channels` interleaved samples in place while
// *fadeCount < fadeLength: each sample of frame c becomes, in single
// precision, sample * c * c / L / L truncated toward zero; *fadeCount
// advances once per frame.
void fadeIn(int16_t* data, uint32_t frames, uint32_t channels, int32_t* fadeCount,
            int32_t fadeLength);

}  // namespace wv
