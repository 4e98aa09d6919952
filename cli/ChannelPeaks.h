// Each channel's own minimum and maximum per pixel, for waveform data with
// one channel of data per audio channel. The engine's peaks merge the
// channels, so the frames are rendered to a 16-bit WAV in the working
// folder (a list with no effect reads byte for byte as its clip) and read
// back from there.
#ifndef WAVORYX_CLI_CHANNELPEAKS_H
#define WAVORYX_CLI_CHANNELPEAKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Jobs.h"

namespace wvcli {

// Frames [firstFrame, endFrame) of `source` in pixels of `perPixel` frames
// (the last may hold fewer): per pixel, per channel, a (min, max) pair.
// Returns 0, or 1 / the interrupt status with the failure reported.
// `shownPath`: the data file the render is shown and reported as.
int channelPeaks(Session& session, const LoadedSource& source, uint64_t firstFrame, uint64_t endFrame,
                 uint32_t perPixel, const std::string& shownPath, std::vector<int16_t>& minMax);

}  // namespace wvcli

#endif
