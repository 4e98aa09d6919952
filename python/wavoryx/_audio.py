"""Audio (a loaded file, a part of one, or a mix of several with effects)
and Job (an export under way). Times are seconds everywhere."""
import ctypes
import mmap
import os
import struct
import threading
import weakref

from . import _capi as C
from ._engine import default_engine
from ._errors import CancelledError, Error, OutOfRangeError, check

_FORMATS = {".wav": "wav", ".mp3": "mp3", ".flac": "flac", ".opus": "opus", ".m4a": "aac",
            ".aac": "aac", ".mp4": "aac", ".ogg": "vorbis", ".oga": "vorbis"}


def _ms(seconds, name):
    ms = round(float(seconds) * 1000)
    if ms < 0 or ms > 0xFFFFFFFE:
        raise OutOfRangeError("%s: %r seconds is out of range" % (name, seconds))
    return ms


def _millibels(db):
    mb = round(float(db) * 100)
    if not -9600 <= mb <= 2400:
        raise OutOfRangeError("gain: %r dB is out of range (-96 to +24)" % (db,))
    return mb


class Audio:
    """Audio the engine holds. Made by load(), from_numpy(), concat(), a
    slice (a[1.5:3.0]) or an effect (fade_in, fade_out, gain), each a new
    Audio: an Audio never changes. Decoding of a loaded file runs in the
    background; what needs all of it waits for it. An Audio keeps the
    Audio it is made from alive."""

    def __init__(self, engine, item=None, parts=(), crossfade=0, fade=(0, 0), gain=0,
                 what="audio", keep=None):
        self._engine = engine
        self._item = item            # the engine's id, once made
        self._loaded = item is not None
        self._parts = tuple(parts)   # (Audio, start frame, end frame)
        self._crossfade = crossfade  # ms
        self._fade = fade            # (in ms, out ms)
        self._gain = gain            # millibels
        self._what = what
        self._lock = threading.Lock()
        self._ending = None
        if item is not None:
            paths = (keep,) if keep else ()
            self._finalizer = weakref.finalize(self, engine.release, item, *paths)

    def __repr__(self):
        return "<wavoryx.Audio %s>" % self._what

    # -- the engine's item ---------------------------------------------
    def _id(self):
        """The engine's item for this audio, made on first use (a clip list
        of the parts, with the effects)."""
        with self._lock:
            if self._item is None:
                engine = self._engine
                item = engine.create(C.lib.wv_new_clip_list, what="clip list")
                self._finalizer = weakref.finalize(self, engine.release, item)
                for audio, start, end in self._parts:
                    engine.call(C.lib.wv_add_clip, item, audio._id(), start, end,
                                what="clip")
                if self._crossfade:
                    engine.call(C.lib.wv_set_list_crossfade, item, self._crossfade,
                                C.FADE_EQUAL_POWER, what="crossfade")
                if self._fade != (0, 0):
                    engine.call(C.lib.wv_set_clip_fade, item, 1, self._fade[0], self._fade[1],
                                C.FADE_EQUAL_POWER, what="fade")
                if self._gain:
                    engine.call(C.lib.wv_set_list_gain, item, self._gain, what="gain")
                self._item = item
            return self._item

    def wait(self):
        """Blocks until every file this audio comes from is decoded (the
        GIL released; Ctrl-C cancels the loads). Raises ReadError,
        StorageFullError or CancelledError when a load did not end well.
        Returns self."""
        if self._loaded:
            if self._ending is None:
                self._ending = self._engine.wait(self._item, C.lib.wv_cancel_load_file,
                                                 what=self._what)
            from ._errors import from_ending
            error = from_ending(self._ending[0], self._ending[1], self._what)
            if error is not None:
                raise error
        for audio, _, _ in self._parts:
            audio.wait()
        return self

    # -- facts ------------------------------------------------------------
    def _leaf(self):
        """An audio the engine knows the length of: a load as it is; a mix
        rendered once to a WAV in the private folder and loaded (the engine
        counts a clip list's frames only when it renders it)."""
        if self._loaded:
            self.wait()
            return self
        with self._lock:
            bounce = getattr(self, "_bounce", None)
        if bounce is None:
            self.wait()
            path = self._engine.private_path(".wav")
            try:
                Job(self, self._render_list(path, C.ENCODE["wav"], source=self._id()),
                    "render of %s" % self._what).wait()
                item = self._engine.create(C.lib.wv_load_file, path.encode(), what=self._what)
            except BaseException:
                _unlink(path)
                raise
            finally:
                _unlink(path + ".wave")
            bounce = Audio(self._engine, item, what=self._what, keep=path)
            bounce.wait()
            with self._lock:
                self._bounce = bounce
        return bounce

    @property
    def sample_rate(self):
        """Frames per second (Hz)."""
        if not self._loaded:
            if len(self._parts) == 1:
                return self._parts[0][0].sample_rate
            return self._leaf().sample_rate
        return self._engine.call(C.lib.wv_get_pcm_sample_rate, self._item, what=self._what)

    @property
    def channels(self):
        """1 or 2 (files of more channels are mixed down to stereo)."""
        if not self._loaded:
            if len(self._parts) == 1:
                return self._parts[0][0].channels
            return self._leaf().channels
        return self._engine.call(C.lib.wv_get_pcm_channel_count, self._item, what=self._what)

    @property
    def frames(self):
        """Length in frames; waits for the decoding."""
        leaf = self._leaf()
        return self._engine.call(C.lib.wv_get_pcm_frame_length, leaf._item, what=self._what)

    @property
    def duration(self):
        """Length in seconds; waits for the decoding."""
        return self.frames / self.sample_rate

    # -- cuts and effects --------------------------------------------------
    def __getitem__(self, key):
        """A part, in seconds: a[12.5:70.0], a[:30], a[-10:]. Negative
        times count from the end, out-of-range times are clipped, and an
        empty range gives an empty Audio, as Python's slices do."""
        if not isinstance(key, slice):
            raise TypeError("wavoryx.Audio: index with a slice of seconds, a[start:stop]")
        if key.step is not None:
            raise ValueError("wavoryx.Audio: a slice takes no step")
        rate = self.sample_rate
        start, stop = key.start, key.stop
        need_length = any(t is not None and t < 0 for t in (start, stop))
        length = self.frames if need_length else None

        def frame(t, default):
            if t is None:
                return default
            f = round(float(t) * rate)
            if f < 0:
                f = max(0, length + f)
            return f

        first = frame(start, 0)
        last = frame(stop, C.END)
        if length is not None:
            first, last = min(first, length), min(last, length)
        last = max(first, min(last, C.END))
        what = "%s[%s:%s]" % (self._what, start if start is not None else "",
                              stop if stop is not None else "")
        if self._loaded:
            return Audio(self._engine, parts=[(self, first, last)], what=what)
        if len(self._parts) == 1 and not self._effects() and self._parts[0][0]._loaded:
            audio, s0, e0 = self._parts[0]
            return Audio(self._engine, parts=[(audio, min(s0 + first, e0), min(s0 + last, e0))],
                         what=what)
        # A mix is cut from its render: a cut inside a clip the engine
        # converts would start its converter there, and the part would not
        # be the frames of the whole.
        return Audio(self._engine, parts=[(self._leaf(), first, last)], what=what)

    def _effects(self):
        return self._crossfade or self._fade != (0, 0) or self._gain

    def _single(self):
        """This audio as one clip to put effects on: its own clip when it
        is one part without a crossfade, else itself wrapped."""
        if len(self._parts) == 1 and not self._crossfade:
            return self._parts[0], self._fade, self._gain
        return (self, 0, C.END), (0, 0), 0

    def fade_in(self, seconds, *, _out=False):
        """A copy that fades in from silence over its first `seconds`."""
        part, fade, gain = self._single()
        ms = _ms(seconds, "fade")
        fade = (fade[0], ms) if _out else (ms, fade[1])
        return Audio(self._engine, parts=[part], fade=fade, gain=gain,
                     what="%s.fade_%s(%g)" % (self._what, "out" if _out else "in", seconds))

    def fade_out(self, seconds):
        """A copy that fades out to silence over its last `seconds`."""
        return self.fade_in(seconds, _out=True)

    def gain(self, db):
        """A copy louder by `db` decibels (-96 to +24; negative is quieter).
        Samples beyond full scale saturate."""
        part, fade, gain = self._single()
        return Audio(self._engine, parts=[part], fade=fade, gain=gain + _millibels(db),
                     what="%s.gain(%g)" % (self._what, db))

    # -- reading -----------------------------------------------------------
    def peaks(self, count, start=0.0, end=None):
        """`count` bins of [start, end) seconds (to the end when None): a
        pair of int16 numpy arrays (minimum, maximum of each bin over all
        channels). Waits for the decoding."""
        import numpy as np
        self.wait()
        if count < 1:
            raise OutOfRangeError("peaks: count must be 1 or more")
        buffer = (ctypes.c_int16 * (2 * count))()
        end_ms = C.END if end is None else _ms(end, "peaks")
        self._engine.call(C.lib.wv_get_waveform_peaks, self._leaf()._item, _ms(start, "peaks"), end_ms,
                          count, buffer, what="peaks")
        pairs = np.frombuffer(buffer, dtype=np.int16).reshape(count, 2)
        return pairs[:, 0].copy(), pairs[:, 1].copy()

    def loudness(self):
        """EBU R128 loudness: {"integrated": LUFS, "true_peak": dBTP,
        "range": LU}; float("-inf") for silence (and for under 0.4 s of
        audio, the integrated loudness)."""
        self.wait()
        engine = self._engine
        target = engine.create(C.lib.wv_new_clip_list, what="loudness")
        try:
            engine.call(C.lib.wv_add_clip, target, self._id(), 0, C.END, what="loudness")
            engine.call(C.lib.wv_measure_loudness, target, what="loudness")
            engine.finish(target, C.lib.wv_cancel_process, what="loudness of %s" % self._what)
            values = engine.values(target)
        finally:
            engine.release(target)

        def tenths(code):
            value = values.get(code, C.INT32_MIN)
            return float("-inf") if value == C.INT32_MIN else value / 10.0
        return {"integrated": tenths(C.LOUDNESS), "true_peak": tenths(C.TRUE_PEAK),
                "range": tenths(C.LOUDNESS_RANGE)}

    def silences(self, threshold=-50.0, min_length=1.0):
        """The silences: [(start, end)] in seconds, where every channel
        stays below `threshold` dBFS (-120 to 0) for at least `min_length`
        seconds; ffmpeg's silencedetect rule (n=-50dB:d=1 by default)."""
        if not -120.0 <= threshold <= 0.0 or not 0.0 <= min_length <= 86400.0:
            raise ValueError("silences: threshold -120 to 0 dBFS, min_length 0 to 86400 s")
        self.wait()
        engine = self._engine
        target = engine.create(C.lib.wv_new_clip_list, what="silences")
        try:
            engine.call(C.lib.wv_add_clip, target, self._id(), 0, C.END, what="silences")
            engine.call(C.lib.wv_scan_silence, target, round(threshold * 10), round(min_length * 1000),
                        what="silences")
            engine.finish(target, C.lib.wv_cancel_process, what="silences of %s" % self._what)
            frames = ctypes.c_uint32()
            rate = engine.call(C.lib.wv_get_silence_scan_frames, target, ctypes.byref(frames), what="silences")
            count = engine.call(C.lib.wv_get_silences, target, None, 0, what="silences")
            pairs = (ctypes.c_uint32 * (2 * count + 2))()
            engine.call(C.lib.wv_get_silences, target, pairs, count, what="silences")
        finally:
            engine.release(target)
        return [(pairs[2 * i] / rate, pairs[2 * i + 1] / rate) for i in range(count)]

    def export(self, path, format=None, *, bitrate=None, sample_rate=None, channels=None,
               normalize=None, true_peak=-1.0, progress=None, wait=True):
        """Writes the audio to `path`, in `format` ("wav", "mp3", "flac",
        "opus", "aac", "vorbis"; by default from the extension). bitrate:
        kbit/s of lossy formats; normalize: the integrated loudness to
        bring it to (LUFS, -70 to -5) with true_peak the ceiling (dBTP, -20
        to 0). An existing file is replaced only by a finished export.
        progress(percent) is called on this thread while it waits. With
        wait=False returns the Job at once; else waits and returns it,
        raising when the export fails."""
        path = os.fspath(path)
        if format is None:
            ext = os.path.splitext(path)[1].lower()
            if ext not in _FORMATS:
                raise ValueError("export: cannot tell the format from %r: give format=" % path)
            format = _FORMATS[ext]
        if format not in C.ENCODE:
            raise ValueError("export: unknown format %r" % (format,))
        job = Job(self, self._render_list(path, C.ENCODE[format], bitrate, sample_rate,
                                          channels, normalize, true_peak), "export to %s" % path,
                  wave=path + ".wave")
        if wait:
            job.wait(progress)
        return job

    def _render_list(self, path, encode, bitrate=None, sample_rate=None, channels=None,
                     normalize=None, true_peak=-1.0, source=None):
        engine = self._engine
        target = engine.create(C.lib.wv_new_clip_list, what="export")
        try:
            source = self._id() if source is None else source
            engine.call(C.lib.wv_add_clip, target, source, 0, C.END, what="export")
            engine.call(C.lib.wv_set_output_para, target, path.encode(), encode, what="export")
            if bitrate or sample_rate or channels:
                engine.call(C.lib.wv_set_encode_para, target, int(sample_rate or 0),
                            int(bitrate or 0), int(channels or 0), 0, what="export settings")
            if normalize is not None:
                engine.call(C.lib.wv_set_list_loudness, target, round(normalize * 10),
                            round(true_peak * 10), what="normalize")
            engine.call(C.lib.wv_process, target, what="export")
        except BaseException:
            engine.release(target)
            raise
        return target

    def to_numpy(self):
        """The samples as int16, shape (frames, channels), at sample_rate,
        read-only. A loaded file, or a plain cut of one, is a memory map of
        the engine's own PCM file: nothing is copied or read until used,
        and the array stays valid after the Audio goes (a WAV the engine
        reads in place is that file itself: keep it unchanged while the
        array is used). A mix or an effect is rendered to a WAV in the
        engine's private folder first and mapped the same way."""
        self.wait()
        if self._loaded:
            mapped = _map_pcm(self._engine, self._item, self.channels)
            if mapped is not None:
                return mapped
        elif len(self._parts) == 1 and not self._effects() and self._parts[0][0]._loaded:
            audio, start, end = self._parts[0]
            return audio.to_numpy()[start:end]
        return self._render_numpy()

    def _render_numpy(self):
        import numpy as np
        path = self._engine.private_path(".wav")
        job = Job(self, self._render_list(path, C.ENCODE["wav"]), "to_numpy")
        try:
            job.wait()
            with open(path, "rb") as f:
                header = f.read(1 << 16)
            offset, size, channels = _wav_data(header)
            frames = size // (2 * channels)
            if frames == 0:
                return np.zeros((0, channels), dtype=np.int16)
            with open(path, "rb") as f:
                return _map(f.fileno(), offset, frames * channels * 2, channels)
        finally:
            _unlink(path)
            _unlink(path + ".wave")


def _map(fd, offset, size, channels):
    """A read-only int16 (frames, channels) array over size bytes of the
    file at offset; the mapping lives as long as the array."""
    import numpy as np
    if size == 0:
        return np.zeros((0, channels), dtype=np.int16)
    start = offset - offset % mmap.ALLOCATIONGRANULARITY
    view = mmap.mmap(fd, offset - start + size, access=mmap.ACCESS_READ, offset=start)
    array = np.frombuffer(view, dtype="<i2", count=size // 2, offset=offset - start)
    return array.reshape(-1, channels)


def _map_pcm(engine, item, channels):
    """The loaded item's samples mapped where the engine keeps them, or
    None when it keeps them in no such file."""
    offset, size = ctypes.c_uint64(), ctypes.c_uint64()
    fd = C.lib.wv_open_pcm_data(engine._ptr, item, ctypes.byref(offset), ctypes.byref(size))
    if fd < 0:
        return None
    try:
        return _map(fd, offset.value, size.value, channels)
    finally:
        os.close(fd)


def _unlink(path):
    try:
        os.unlink(path)
    except OSError:
        pass


def _wav_data(header):
    """(offset, size, channels) of a RIFF WAV's data chunk."""
    if header[:4] != b"RIFF" or header[8:12] != b"WAVE":
        raise Error("to_numpy: the render is not a WAV file")
    pos, channels = 12, 0
    while pos + 8 <= len(header):
        tag, size = header[pos:pos + 4], struct.unpack("<I", header[pos + 4:pos + 8])[0]
        if tag == b"fmt ":
            channels = struct.unpack("<H", header[pos + 10:pos + 12])[0]
        elif tag == b"data":
            return pos + 8, size, channels
        pos += 8 + size + (size & 1)
    raise Error("to_numpy: no data in the render")


class Job:
    """An export under way (export(..., wait=False))."""

    def __init__(self, audio, item, what, wave=None):
        self._audio = audio  # keeps the sources alive while it runs
        self._engine = audio._engine
        self._item = item
        self._what = what
        self._wave = wave  # the waveform file the engine writes beside the output
        self._cancelled = False
        self._finalizer = weakref.finalize(self, self._engine.release, item)

    def __repr__(self):
        return "<wavoryx.Job %s>" % self._what

    @property
    def progress(self):
        """Percent done, 0 to 100 (100 once it has ended well)."""
        if self.done:
            code, _ = self._engine.wait(self._item, what=self._what)
            if code == C.RENDER_DONE:
                return 100
        return self._engine.progress(self._item)

    @property
    def done(self):
        """Whether the job has ended (well or not)."""
        got = C.lib.wv_wait(self._engine._ptr, self._item, 0, None)
        return check(got, self._what) == 1

    @property
    def cancelled(self):
        """Whether cancel() stopped it (it ended without its output)."""
        return self._cancelled and self.done and self._engine.wait(self._item)[0] != C.RENDER_DONE

    def cancel(self):
        """Asks the job to stop. The target file is left as it was; wait()
        then returns, and `cancelled` tells whether it stopped before it
        was done."""
        self._cancelled = True
        self._engine.call(C.lib.wv_cancel_process, self._item, what=self._what)

    def wait(self, progress=None):
        """Blocks until the job ends (the GIL released; Ctrl-C cancels
        it), calling progress(percent) on this thread as it goes. Raises
        when it did not end well: CancelledError when it was cancelled
        other than by its own cancel()."""
        try:
            self._engine.finish(self._item, C.lib.wv_cancel_process, progress, what=self._what)
        except CancelledError:
            if self._cancelled:
                return self
            raise
        if progress is not None:
            progress(100)
        # Only a finished export put it there (else the engine left it as it was).
        if self._wave is not None:
            _unlink(self._wave)
            self._wave = None
        return self


def load(path, engine=None, *, start=None, end=None):
    """Starts decoding the file and returns its Audio once the format is
    known (decoding goes on in the background). With start and/or end
    (seconds) only that part is decoded, its samples those of the same
    part of the whole file: a few minutes of a long file load in the time
    of those minutes. Raises ReadError for a file that cannot be read or
    is not audio."""
    engine = engine or default_engine()
    path = os.fspath(path)
    if start is None and end is None:
        item = engine.create(C.lib.wv_load_file, path.encode(), what="load %s" % path)
    else:
        first = _ms(start or 0.0, "load")
        last = C.END if end is None else _ms(end, "load")
        if last <= first:
            raise OutOfRangeError("load: end %r is not after start %r" % (end, start))
        item = engine.create(C.lib.wv_load_file_range, path.encode(), first, last,
                             what="load %s" % path)
    audio = Audio(engine, item, what=repr(path))
    ending = engine.wait(item, C.lib.wv_cancel_load_file, until_started=True, what="load %s" % path)
    if ending is not None:
        audio._ending = ending
        audio.wait()
    return audio


def concat(audios, crossfade=0.0):
    """The audios one after the other; with crossfade (seconds), each join
    overlaps by that much, equal-power (shortened to half of the shorter
    clip where a clip is short)."""
    audios = list(audios)
    if not audios:
        raise ValueError("concat: nothing to join")
    engine = audios[0]._engine
    if any(a._engine is not engine for a in audios):
        raise ValueError("concat: every audio must come from the same engine")
    return Audio(engine, parts=[(a, 0, C.END) for a in audios], crossfade=_ms(crossfade, "crossfade"),
                 what="concat(%d)" % len(audios))


def from_numpy(samples, sample_rate, engine=None):
    """Audio from int16 samples of shape (frames, channels) or (frames,)
    (1 or 2 channels). Floats are taken as -1.0..1.0 and rounded."""
    import numpy as np
    engine = engine or default_engine()
    x = np.asarray(samples)
    if x.ndim == 1:
        x = x[:, None]
    if x.ndim != 2 or x.shape[1] not in (1, 2):
        raise ValueError("from_numpy: shape must be (frames,) or (frames, 1 or 2)")
    if x.dtype.kind == "f":
        x = np.clip(np.rint(x * 32767.0), -32768, 32767)
    x = np.ascontiguousarray(x, dtype="<i2")
    rate = int(sample_rate)
    if not 1000 <= rate <= 384000:
        raise OutOfRangeError("from_numpy: sample_rate %r is out of range" % (sample_rate,))
    channels = x.shape[1]
    size = x.nbytes
    if size > 0xFFFFFFFF - 36:
        raise OutOfRangeError("from_numpy: over 4 GB of samples do not fit in one WAV")
    path = engine.private_path(".wav")
    fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC | os.O_NOFOLLOW, 0o600)
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(b"RIFF" + struct.pack("<I", 36 + size) + b"WAVEfmt " +
                    struct.pack("<IHHIIHH", 16, 1, channels, rate, rate * 2 * channels,
                                2 * channels, 16) + b"data" + struct.pack("<I", size))
            f.write(x.reshape(-1).view(np.uint8))  # the array's own bytes, not a copy of them
    except BaseException:
        os.unlink(path)
        raise
    item = engine.create(C.lib.wv_load_file, path.encode(), what="from_numpy")
    audio = Audio(engine, item, what="from_numpy", keep=path)
    audio.wait()
    return audio


def info(path, engine=None):
    """What the file states, without decoding it: {"format", "codec",
    "sample_rate", "channels", "frames" (stated; None when not), "duration"
    (seconds; None when not stated), "bit_rate" (bit/s; 0 when not stated),
    "tags" (title, artist, ... that it has)}."""
    engine = engine or default_engine()
    path = os.fspath(path)
    what = "info %s" % path
    item = engine.create(C.lib.wv_load_file, path.encode(), what=what)
    try:
        ending = engine.wait(item, C.lib.wv_cancel_load_file, until_started=True, what=what)
        if ending is not None:
            from ._errors import from_ending
            error = from_ending(ending[0], ending[1], what)
            if error is not None:
                raise error
        source = C.SourceInfo()
        engine.call(C.lib.wv_get_source_info, item, ctypes.byref(source), what=what)
        frames = ctypes.c_uint32()
        stated = C.lib.wv_get_source_frames(engine._ptr, item, ctypes.byref(frames))
        tags = {}
        value = ctypes.create_string_buffer(4096)
        for name in ("title", "artist", "album", "date", "track", "comment"):
            if C.lib.wv_get_source_tag(engine._ptr, item, name.encode(), value, len(value)) > 0:
                tags[name] = value.value.decode("utf-8", "replace")
        return {"format": source.container.decode(), "codec": source.codec.decode(),
                "sample_rate": source.sampleRate, "channels": source.channels,
                "frames": frames.value if stated >= 0 else None,
                "duration": source.durationUs / 1e6 if source.durationUs >= 0 else None,
                "bit_rate": source.bitRate, "tags": tags}
    finally:
        C.lib.wv_cancel_load_file(engine._ptr, item)
        engine.release(item)
