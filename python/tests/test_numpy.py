"""NumPy in and out, waveform peaks and loudness, against numpy and ffmpeg."""
import os
import re
import subprocess

import numpy as np
import pytest

import wavoryx as wv
from conftest import decode


def test_from_numpy_and_back_is_exact(media):
    rng = np.random.default_rng(7)
    stereo = rng.integers(-32768, 32768, size=(12345, 2), dtype=np.int16)
    c = wv.from_numpy(stereo, sample_rate=44100)
    assert (c.sample_rate, c.channels, c.frames) == (44100, 2, 12345)
    back = c.to_numpy()
    assert back.dtype == np.int16 and back.shape == (12345, 2)
    assert np.array_equal(back, stereo)
    with pytest.raises(ValueError):
        back[0, 0] = 1  # a view of the engine's data, which never changes
    mono = wv.from_numpy(np.array([0.0, 0.5, -1.0, 1.0]), sample_rate=8000)
    assert np.array_equal(mono.to_numpy()[:, 0], [0, 16384, -32767, 32767])
    assert wv.from_numpy(np.zeros((0, 2), dtype=np.int16), sample_rate=8000).frames == 0
    with pytest.raises(ValueError):
        wv.from_numpy(np.zeros((10, 3), dtype=np.int16), sample_rate=8000)
    with pytest.raises(wv.OutOfRangeError):
        wv.from_numpy(np.zeros(10, dtype=np.int16), sample_rate=0)
    joined = wv.concat([c, wv.load(media / "intro.wav")])
    assert np.array_equal(joined.to_numpy(), np.concatenate([stereo, decode(media / "intro.wav")]))


def test_to_numpy_maps_the_engines_own_data_and_outlives_it(media):
    engine = wv.Engine()
    want = decode(media / "tones.flac")
    a = wv.load(media / "tones.flac", engine=engine)
    x = a.to_numpy()
    part = a[1.0:2.5].to_numpy()
    mix = wv.concat([a[:1.0], a[-1.0:]], crossfade=0.5).to_numpy()
    for array in (x, part, mix):
        assert not array.flags.writeable and not array.flags.owndata
    folder = engine.folder
    del a
    engine.close()
    assert not os.path.exists(folder)
    assert np.array_equal(x, want)
    assert np.array_equal(part, want[44100:110250])
    assert mix.shape == (88200 - 22050, 2)


def test_peaks_are_each_bins_minimum_and_maximum(media):
    a = wv.load(media / "intro.wav")
    x = decode(media / "intro.wav")
    for count in (1, 7, 2000):
        low, high = a.peaks(count)
        assert low.dtype == np.int16 and len(low) == len(high) == count
        n = len(x)
        for i in range(0, count, max(1, count // 50)):
            part = x[i * n // count:(i + 1) * n // count]
            assert (low[i], high[i]) == (part.min(), part.max())
    low, high = a[1.0:2.0].peaks(4)
    assert high.max() == x[44100:88200].max() and low.min() == x[44100:88200].min()


def ffmpeg_loudness(path):
    log = subprocess.run(["ffmpeg", "-nostats", "-i", str(path), "-af", "ebur128=peak=true",
                          "-f", "null", "-"], stderr=subprocess.PIPE, text=True).stderr
    summary = log[log.rindex("Summary:"):]
    number = lambda label: float(re.search(label + r":\s+(-?[\d.]+)", summary).group(1))
    return number("I"), number("Peak"), number("LRA")


def test_loudness_agrees_with_ffmpeg(media):
    for name in ("intro.wav", "tones.flac"):
        got = wv.load(media / name).loudness()
        integrated, peak, lra = ffmpeg_loudness(media / name)
        assert got["integrated"] == pytest.approx(integrated, abs=0.2), name
        assert got["true_peak"] == pytest.approx(peak, abs=0.3), name
        if name != "intro.wav":  # 3 s: too short a programme for ffmpeg's range to mean much
            assert got["range"] == pytest.approx(lra, abs=0.5), name
    silence = wv.from_numpy(np.zeros((44100, 2), dtype=np.int16), sample_rate=44100).loudness()
    assert silence["integrated"] == float("-inf") and silence["true_peak"] == float("-inf")
