/*
 * Wavoryx signal-processing helpers, exported for applications.
 *
 * Samples are signed 16-bit, native (little-endian) order, interleaved left
 * then right for stereo. Float samples are 32-bit with full scale +-1.0.
 * None of these functions allocates; all work in place on caller memory and
 * the caller guarantees the buffer sizes.
 */
#ifndef WAVORYX_DSP_H
#define WAVORYX_DSP_H

#include <stdint.h>

#include "Wavoryx.h"

/* Keeps the left sample of each of `frames` stereo frames; the result is the
 * first `frames` samples of buf, the rest of buf is left as it was. */
WAVORYX_API void Stereo2Mono(void* buf, unsigned int frames);
/* Duplicates each of `frames` mono samples into left and right; buf must
 * have room for 2 x frames samples. */
WAVORYX_API void Mono2Stereo(void* buf, unsigned int frames);
/* Replaces each 4-byte stereo frame by one float: left / 32768 (the right
 * sample is dropped). */
WAVORYX_API void Stereo2Float(void* buf, unsigned int frames);
/* Replaces each of `count` floats, clamped to [-1, 1] and scaled by 32767
 * (truncated), by a stereo frame holding that value in both channels. */
WAVORYX_API void Float2Stereo(void* buf, unsigned int count);
/* Copies min(srcSize - srcPos, dstSize - dstPos) bytes from src + srcPos to
 * dst + dstPos, advances both positions, and returns the new dstPos. */
WAVORYX_API unsigned int mem_copy(void* dst, unsigned int dstSize, unsigned int& dstPos, void* src,
                                  unsigned int srcSize, unsigned int& srcPos);
/* Kept for compatibility: does nothing. */
[[deprecated("does nothing; kept for compatibility")]] WAVORYX_API void ramp_up(void* buf,
                                                                                unsigned int count);

/* Reduces `bytes` bytes of 16-bit samples to `count` 8-bit peak points in
 * `out` (peaks above 16383 saturate at 255). Returns 0. */
WAVORYX_API uint32_t Pcm16toWaveform8(int16_t* pcm, uint32_t bytes, uint8_t* out, uint32_t count);

/* Short-time Fourier transform pitch shifter for 16-bit mono samples.
 *
 * Shifts `numSampsToProcess` samples from indata into outdata (which may be
 * the same buffer) by the frequency ratio pitchShift (0.5 an octave down, 2.0
 * an octave up; components moved above half the sample rate are dropped).
 * fftFrameSize is a power of two from 2 to 8192; osamp, the overlap factor,
 * is at least 1 and divides it (frames start every fftFrameSize / osamp
 * samples); sampleRate is in Hz. Output is clamped to +-32767.
 *
 * Lag: the output lags the input by one whole frame, fftFrameSize samples
 * (1024 at a frame size of 1024 with overlap 4), not
 * fftFrameSize - fftFrameSize/osamp (768 there): that is only the input
 * FIFO's share, and the overlap-add releases each hop of fftFrameSize/osamp
 * samples one hop later. The first fftFrameSize/osamp outputs of a stream
 * are 0.
 * At a ratio of 1 the output is the input times 3/8 x osamp (1.5 at overlap
 * 4), so loud input clips.
 *
 * State: process-wide (static storage, about 416 KiB), so one stream at a
 * time is served; consecutive calls continue that stream whatever their
 * sizes. The first call, and every call with another fftFrameSize or osamp
 * than the previous one, clears the state and starts a new stream. Calls from
 * several threads are serialised, but they still share the one stream.
 *
 * Misuse: frame parameters out of range, a sample rate that is not positive,
 * a pitchShift that is not a finite number, or a missing input buffer log an
 * error and write numSampsToProcess zero samples to outdata; the stream's
 * state is left as it was. */
WAVORYX_API void smbPitchShift(float pitchShift, long numSampsToProcess, long fftFrameSize,
                               long osamp, float sampleRate, void* indata, void* outdata);
/* In-place complex FFT of fftFrameSize interleaved (re, im) float pairs:
 * sign -1 forward, 1 inverse (unnormalised: forward then inverse scales by
 * fftFrameSize). */
WAVORYX_API void smbFft(float* fftBuffer, long fftFrameSize, long sign);
/* atan2(x, y) with the special cases: 0 when x is 0; +-pi/2 (the sign of x)
 * when y is 0. */
WAVORYX_API double smbAtan2(double x, double y);

#endif /* WAVORYX_DSP_H */
