// Typed key/value description of a track, a decoded format or one buffer.
//
// Keys are four-character codes. A value has one type per key: setting a key
// again replaces its value and type; a find with the wrong type fails. The
// keys the engine relies on:
//   kKeyMIMEType      C string   "audio/mpeg", "audio/raw", "video/avc", ...
//   kKeySampleRate    int32      Hz
//   kKeyChannelCount  int32      channels of the decoded audio (1 or 2 for
//                                tracks of more than two, which are downmixed)
//   kKeyChannelMask   int32      positional output mask (0x1 mono, 0x3 stereo)
//   kKeyDuration      int64      microseconds; absent when the container does
//                                not state it
//   kKeyFrameCount    int64      frames at kKeySampleRate, present only where
//                                the container states the length exactly
//                                (not rounded through a duration)
//   kKeyTime          int64      media time of a buffer's first frame, us
//   kKeyBitRate       int32      bits per second, when known
//   kKeyPcmEncoding   int32      1: interleaved signed 16-bit samples
//
// Not thread-safe: one thread fills it, others may read it once filled.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace wv {

constexpr uint32_t fourcc(char a, char b, char c, char d) {
    return (uint32_t(uint8_t(a)) << 24) | (uint32_t(uint8_t(b)) << 16) |
           (uint32_t(uint8_t(c)) << 8) | uint32_t(uint8_t(d));
}

enum : uint32_t {
    kKeyMIMEType = fourcc('m', 'i', 'm', 'e'),
    kKeySampleRate = fourcc('s', 'r', 't', 'e'),
    kKeyChannelCount = fourcc('#', 'c', 'h', 'n'),
    kKeyChannelMask = fourcc('c', 'h', 'n', 'm'),
    kKeyDuration = fourcc('d', 'u', 'r', 'a'),
    kKeyTime = fourcc('t', 'i', 'm', 'e'),
    kKeyBitRate = fourcc('b', 'r', 't', 'e'),
    kKeyPcmEncoding = fourcc('P', 'C', 'M', 'e'),
    kKeyFrameCount = fourcc('#', 'f', 'r', 'm'),
    // Channels the container states, before any downmix (int32).
    kKeySourceChannelCount = fourcc('s', 'c', 'h', 'n'),
    // What the file states, for the client to show (C strings and int32):
    // the container's and codec's short names, the channel layout ("5.1"),
    // and the bits per sample of PCM and lossless codecs.
    kKeyContainerName = fourcc('c', 'o', 'n', 't'),
    kKeyCodecName = fourcc('c', 'o', 'd', 'c'),
    kKeyChannelLayout = fourcc('l', 'a', 'y', 'o'),
    kKeyBitsPerSample = fourcc('b', 'i', 't', 's'),
    // Tags the file states about itself (C strings), see kTagKeys.
    kKeyTagTitle = fourcc('T', 't', 'i', 't'),
    kKeyTagArtist = fourcc('T', 'a', 'r', 't'),
    kKeyTagAlbum = fourcc('T', 'a', 'l', 'b'),
    kKeyTagDate = fourcc('T', 'd', 'a', 't'),
    kKeyTagTrack = fourcc('T', 't', 'r', 'k'),
    kKeyTagComment = fourcc('T', 'c', 'm', 't'),
    // The container's chapters (C string), one line each, in order:
    // "<start us> <end us> <title>\n", the title's line breaks made spaces.
    kKeyChapters = fourcc('C', 'h', 'a', 'p'),
};

// The tags kept from a file, by the names its container's metadata uses
// for them whatever the format (ID3 frames, Vorbis comments and MP4 atoms
// alike), and their keys.
struct TagKey {
    const char* name;
    uint32_t key;
};
constexpr TagKey kTagKeys[] = {{"title", kKeyTagTitle}, {"artist", kKeyTagArtist},
                               {"album", kKeyTagAlbum}, {"date", kKeyTagDate},
                               {"track", kKeyTagTrack}, {"comment", kKeyTagComment}};

extern const char* const MEDIA_MIMETYPE_AUDIO_RAW;  // "audio/raw"

class MetaData {
public:
    enum class Type { INT32, INT64, CSTRING };

    void clear() { mEntries.clear(); }
    bool remove(uint32_t key);
    bool has(uint32_t key) const { return lookup(key) != nullptr; }

    void setInt32(uint32_t key, int32_t value);
    void setInt64(uint32_t key, int64_t value);
    void setCString(uint32_t key, const char* value);

    bool findInt32(uint32_t key, int32_t* value) const;
    bool findInt64(uint32_t key, int64_t* value) const;
    // The string stays valid until the key is set again or removed.
    bool findCString(uint32_t key, const char** value) const;

    // One info-level log line per entry, under the media layer's tag.
    void dumpToLog() const;

private:
    struct Entry {
        uint32_t key;
        Type type;
        int64_t number;
        std::string text;
    };
    const Entry* lookup(uint32_t key) const;
    Entry& slot(uint32_t key, Type type);

    std::vector<Entry> mEntries;
};

}  // namespace wv
