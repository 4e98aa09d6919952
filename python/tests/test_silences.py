"""Audio.silences: exact intervals on known gaps, and ffmpeg's silencedetect
on a file sox made."""
import subprocess

import numpy as np
import pytest

import wavoryx as wv


def test_known_gaps_give_exact_intervals():
    rate = 48000
    loud = np.full((rate, 2), 8000, dtype=np.int16)
    loud[::2] = -8000
    quiet = np.zeros((rate * 3 // 2, 2), dtype=np.int16)
    short = np.zeros((rate // 2, 2), dtype=np.int16)
    audio = wv.from_numpy(np.concatenate([loud, quiet, loud, short, loud, quiet]), sample_rate=rate)
    assert audio.silences() == [(1.0, 2.5), (5.0, 6.5)]
    assert audio.silences(min_length=0.5) == [(1.0, 2.5), (3.5, 4.0), (5.0, 6.5)]
    assert audio.silences(threshold=0.0) == [(0.0, 6.5)]
    assert audio.silences(min_length=2.0) == []
    # A part of it: times count from the part's start.
    assert audio[0.5:3.0].silences() == [(0.5, 2.0)]
    with pytest.raises(ValueError):
        audio.silences(threshold=1.0)


def test_agrees_with_ffmpeg(tmp_path):
    path = tmp_path / "gaps.wav"
    tone = "sox -V1 -n -r 44100 -c 2 -b 16 -p synth".split()
    parts = [tone + ["1.2", "sine", "300"], tone + ["1.7", "sine", "300", "gain", "-200"],
             tone + ["0.9", "sine", "500"], tone + ["1.1", "sine", "300", "gain", "-200"]]
    subprocess.run(["sox"] + ["|" + " ".join(p) for p in parts] + [str(path)], check=True)
    log = subprocess.run(["ffmpeg", "-nostdin", "-hide_banner", "-nostats", "-i", str(path), "-af",
                          "silencedetect=n=-50dB:d=1", "-f", "null", "-"], capture_output=True, text=True,
                         check=True).stderr
    starts = [float(w.split()[0]) for w in log.split("silence_start: ")[1:]]
    ends = [float(w.split()[0]) for w in log.split("silence_end: ")[1:]]
    got = wv.load(path).silences()
    assert len(got) == len(starts) == 2
    for (start, end), theirs in zip(got, starts):
        assert start == pytest.approx(theirs, abs=0.010)
    for (start, end), theirs in zip(got, ends):
        assert end == pytest.approx(theirs, abs=0.010)
