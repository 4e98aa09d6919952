// What a list's renders or a recording make: every output and encoding
// choice of the item, as one value. The item keeps it under its lock (see
// SPcmInfo::renderSettings); the public setters change it there, and a
// render or a recording takes one copy when it is asked for and goes on
// with that, whatever the client changes meanwhile.
#pragma once

#include <cstdint>
#include <string>

#include "base/OutputTags.h"

namespace wv {

struct RenderSettings {
    // A list's output file (setOutputPara); empty: "<working dir><id>" and
    // the format's suffix. A recording's is its item's path.
    std::string path;
    // The output format. For a list, a rate or channel count under 1 leaves
    // it to the list's clips (see PcmClipList::getSamplerate).
    // How the output takes its place (setOutputMode): wv_output_mode flags.
    int32_t outputMode = 0;
    int32_t sampleRate = 0;  // Hz
    int32_t channels = 0;
    // An encode_type value as the client gave it; one that names no encoder
    // renders WAV.
    int32_t type = 0;
    int32_t bitRate = 0;  // kbit/s; under 1: the format's default
    // Lossy encoders' choices (see codec EncodeOptions); the defaults keep
    // the output every earlier version made.
    int32_t quality = 5;
    int32_t vbr = 0;
    int32_t jointStereo = 0;
    // The resampler quality asked for (an AudioResampler::src_quality):
    // SRC_DEFAULT leaves it to the process default, which the render
    // resolves once when it starts.
    int32_t resampleQuality = 0;
    // Encoder threads asked for (setEncodeThreads): 0 leaves it to the
    // process default, which the render resolves when it starts.
    int32_t encodeThreads = 0;
    // Loudness normalisation (setListLoudness): the integrated loudness
    // aimed at, tenths of LUFS (0: off), and the true peak not to exceed,
    // tenths of dBTP.
    int32_t loudnessTarget = 0;
    int32_t truePeakCeiling = -10;
    // A recording's capture source and voice effect: a pitch shift in
    // semitones (0: none), else the robot voice when robot is 1.
    int32_t audioSource = 0;
    float pitch = 0.0f;
    int32_t robot = 0;
    // Tags, chapters and cover the output carries (setListTag,
    // addListChapter, setListCover); empty: none, the bytes as before.
    OutputTags outputTags;
    // Whether the chapters of the clips' sources move with their kept
    // ranges into the output (setListChapterCarry).
    bool carryChapters = false;
};

}  // namespace wv
