// Opening the first audio track of a file, shared by everything that reads
// audio files (the decoder of a load, the player, the file input).
//
// Two steps, so that a caller can look at the track's metadata (and refuse
// it, or read it in place) before a decoder is made: making one loads the
// FFmpeg libraries, which a WAV file read in place never needs. Neither step
// logs; each caller reports its own failures in its own words.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/media/DataSource.h"
#include "platform/media/MediaExtractor.h"
#include "platform/media/MediaSource.h"
#include "platform/media/MetaData.h"

namespace wv {

struct FirstAudioTrack {
    enum Status {
        kFound,         // extractor, meta, index and mime describe the track
        kNotOpenable,   // the path cannot be opened as a regular file
        kNoParser,      // no container parser accepts the file
        kNoAudioTrack,  // the file has no track whose MIME type is "audio/..."
    };
    Status status = kNotOpenable;
    std::shared_ptr<MediaExtractor> extractor;
    // The track's metadata (the caller's own copy) and its MIME type, which
    // points into it.
    std::shared_ptr<MetaData> meta;
    const char* mime = nullptr;
    size_t index = 0;
    // Some track before the one found (or, when none was found, any track)
    // came without metadata or MIME type, which the extractor's contract
    // rules out; such tracks are passed over.
    bool sawTrackWithoutMime = false;

    // The found track's source, not started; null when there is none.
    std::shared_ptr<MediaSource> openTrack() const {
        return extractor ? extractor->getTrack(index) : nullptr;
    }
};

// Opens `path` and finds its first audio track.
FirstAudioTrack findFirstAudioTrack(const char* path);
// The same for bytes already open (a stream from CreateFromStream); a null
// source is kNotOpenable.
FirstAudioTrack findFirstAudioTrack(const std::shared_ptr<DataSource>& dataSource);

// Makes the decoded source of a track from the track's format and the track.
using AudioDecoderFactory = std::function<std::shared_ptr<MediaSource>(
    const std::shared_ptr<MetaData>& format, const std::shared_ptr<MediaSource>& track)>;

// Whether a MIME type names PCM that is read as it is, without a decoder.
bool isRawAudioMime(const char* mime);

// The PCM source of `track`, not started: the track itself when its format
// is raw PCM, else the decoder `makeDecoder` makes from its format. Null
// when `track` is null or no decoder can be made.
std::shared_ptr<MediaSource> pcmSourceOf(const std::shared_ptr<MediaSource>& track,
                                         const AudioDecoderFactory& makeDecoder);
// The same with the library's own decoder.
std::shared_ptr<MediaSource> pcmSourceOf(const std::shared_ptr<MediaSource>& track);

// The PCM source of frames [firstFrame, endFrame) of the found track, not
// started: exactly those frames of what pcmSourceOf gives for the whole
// track (see FrameRangeCodec), cut at the track's end. A WAV read in place
// is read from the first frame's offset. Null when `found` holds no track
// or no decoder can be made.
std::shared_ptr<MediaSource> pcmRangeSourceOf(const FirstAudioTrack& found, int64_t firstFrame,
                                              int64_t endFrame);

}  // namespace wv
