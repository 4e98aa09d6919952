#include "codec/WaveEncoder.h"

#include <algorithm>
#include <cstring>

namespace wv {
namespace {

void put16(uint8_t* at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

void put32(uint8_t* at, uint32_t value) {
    put16(at, value);
    put16(at + 2, value >> 16);
}

constexpr uint32_t kBitsPerSample = 16;
constexpr uint32_t kRiffOverhead = 36;  // header bytes after the RIFF size field, less data

}  // namespace

void WaveEncoder::buildHeader(uint64_t dataBytes) {
    constexpr uint64_t kMax = 0xFFFFFFFFu;
    std::memcpy(mHeader + 0, "RIFF", 4);
    put32(mHeader + 4, static_cast<uint32_t>(std::min(dataBytes + kRiffOverhead, kMax)));
    std::memcpy(mHeader + 8, "WAVE", 4);
    std::memcpy(mHeader + 12, "fmt ", 4);
    put32(mHeader + 16, 16);
    put16(mHeader + 20, 1);
    put16(mHeader + 22, mChannels);
    put32(mHeader + 24, mSampleRate);
    put32(mHeader + 28, mChannels * kBitsPerSample * mSampleRate / 8);
    put16(mHeader + 32, mChannels * kBitsPerSample / 8);
    put16(mHeader + 34, kBitsPerSample);
    std::memcpy(mHeader + 36, "data", 4);
    put32(mHeader + 40, static_cast<uint32_t>(std::min(dataBytes, kMax)));
}

int WaveEncoder::initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t, int) {
    mSampleRate = mInputRate = sampleRate;
    mChannels = mInputChannels = channels;
    mDataBytes = 0;
    mPendingBytes = 0;
    // A stream reader takes these sizes as "to the end".
    buildHeader(isSeekable() ? 0 : 0xFFFFFFFFu);
    return write(mHeader, HEADER_BYTES) == WRITE_OK ? 0 : INIT_FAILED;
}

int WaveEncoder::encoding(const int16_t* pcm, int bytes) {
    if (bytes < 0) return WRITE_ERROR;
    // Counted even when the write comes out short: the writer holds the rest.
    mPendingBytes += static_cast<uint64_t>(bytes);
    return write(pcm, static_cast<uint32_t>(bytes));
}

int WaveEncoder::writeSizes() {
    // A remainder not in the file yet is not counted.
    mDataBytes += mPendingBytes - heldLength();
    mPendingBytes = heldLength();
    buildHeader(mDataBytes);
    return writeAt(0, mHeader, HEADER_BYTES);
}

void WaveEncoder::dropHeld() {
    mPendingBytes -= heldLength();
    FileWriter::dropHeld();
}

int WaveEncoder::refreshHeader() {
    if (!isSeekable()) return WRITE_OK;
    return writeSizes();
}

int WaveEncoder::flushEncoding() {
    const int held = checkStatus();
    if (held != WRITE_OK) return held;
    if (!isSeekable()) return 0;
    const int status = writeSizes();
    return status == WRITE_OK ? 0 : status;
}

}  // namespace wv
