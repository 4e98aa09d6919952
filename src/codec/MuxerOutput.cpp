#define WV_LOG_TAG "MuxerOutput"
#include "codec/MuxerOutput.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/Log.h"
#include "codec/FileWriter.h"

namespace wv {
namespace {

// The muxer's own buffer; it is emptied into mGathered when full.
constexpr int kBufferBytes = 16384;

}  // namespace

MuxerOutput::MuxerOutput(FileWriter& writer) : mWriter(writer) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    if (buffer == nullptr) return;
    mContext = avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, &MuxerOutput::writePacket,
                                  writer.isSeekable() ? &MuxerOutput::seekTo : nullptr);
    if (mContext == nullptr) av_free(buffer);
}

MuxerOutput::~MuxerOutput() {
    if (mContext == nullptr) return;
    // The context may have replaced the buffer it was given.
    av_freep(&mContext->buffer);
    avio_context_free(&mContext);
}

int MuxerOutput::commit() {
    if (mContext != nullptr) avio_flush(mContext);
    if (mFailure != 0) return mFailure;
    if (mGathered.empty()) return FileWriter::WRITE_OK;
    const auto length = static_cast<uint32_t>(mGathered.size());
    const int status = mWriter.write(mGathered.data(), length);
    // A short write is held by the writer: those bytes count as passed on.
    mCommitted += length;
    mGathered.clear();
    return status;
}

void MuxerOutput::forgetHeld(uint32_t bytes) {
    mCommitted -= bytes;
    mPosition -= bytes;
    mGap = true;
}

int MuxerOutput::writePacket(void* opaque, uint8_t* data, int size) {
    auto* self = static_cast<MuxerOutput*>(opaque);
    if (size < 0 || !self->place(data, size)) return AVERROR(EIO);
    return size;
}

bool MuxerOutput::place(const uint8_t* data, int size) {
    if (mFailure != 0) return false;
    int64_t at = mPosition;
    int64_t left = size;
    // Bytes for the part of the file the writer already has.
    if (at < mCommitted) {
        const int64_t inFile = std::min(left, mCommitted - at);
        // A held remainder would later land over bytes written here.
        const int status = mWriter.heldLength() != 0
                               ? FileWriter::WRITE_STORAGE_FULL
                               : mWriter.writeAt(at, data, static_cast<uint32_t>(inFile));
        if (status != FileWriter::WRITE_OK) {
            mFailure = status;
            return false;
        }
        at += inFile;
        data += inFile;
        left -= inFile;
    }
    // Bytes over the gathered ones, then bytes appended.
    const int64_t gatheredAt = at - mCommitted;
    const int64_t over = std::min(left, static_cast<int64_t>(mGathered.size()) - gatheredAt);
    if (over > 0) {
        std::memcpy(mGathered.data() + gatheredAt, data, static_cast<size_t>(over));
        data += over;
        left -= over;
    }
    mGathered.insert(mGathered.end(), data, data + left);
    mPosition += size;
    return true;
}

int64_t MuxerOutput::seekTo(void* opaque, int64_t offset, int whence) {
    auto* self = static_cast<MuxerOutput*>(opaque);
    if (self->mGap) {
        self->mFailure = FileWriter::WRITE_STORAGE_FULL;
        return AVERROR(ENOSPC);
    }
    if (whence & AVSEEK_SIZE) return self->end();
    int64_t target = offset;
    switch (whence & ~AVSEEK_FORCE) {
        case SEEK_SET:
            break;
        case SEEK_CUR:
            target += self->mPosition;
            break;
        case SEEK_END:
            target += self->end();
            break;
        default:
            return AVERROR(EINVAL);
    }
    // Muxers only go back over what they wrote; a gap would need filling.
    if (target < 0 || target > self->end()) return AVERROR(EINVAL);
    self->mPosition = target;
    return target;
}

}  // namespace wv
