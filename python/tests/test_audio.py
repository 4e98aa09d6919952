"""Loading, facts, slices, joins and effects, checked sample by sample
against ffmpeg's decode of the same files."""
import numpy as np
import pytest

import wavoryx as wv
from conftest import decode, probe

RATE = 44100


def test_info_states_what_the_file_says_without_decoding(media):
    got = wv.info(media / "talk.m4a")
    assert got["codec"] == "aac" and "mp4" in got["format"]
    assert (got["sample_rate"], got["channels"]) == (RATE, 2)
    assert got["duration"] == pytest.approx(8.0, abs=0.05)
    assert got["frames"] == pytest.approx(8 * RATE, abs=2048)
    assert 100000 < got["bit_rate"] < 160000
    assert got["tags"] == {"title": "A talk", "artist": "Someone"}
    wav = wv.info(media / "tones.wav")
    assert (wav["codec"], wav["frames"], wav["tags"]) == ("pcm_s16le", 8 * RATE, {})


def test_load_gives_rate_channels_length_and_ffmpegs_samples(media):
    for name in ("tones.wav", "tones.flac", "tones.mp3", "mono.wav"):
        a = wv.load(media / name)
        expected = decode(media / name)
        assert a.wait() is a
        assert (a.sample_rate, a.channels) == (int(probe(media / name, "stream=sample_rate")),
                                               expected.shape[1])
        assert a.frames == len(expected)
        assert a.duration == pytest.approx(len(expected) / a.sample_rate)
        assert np.array_equal(a.to_numpy(), expected), name


def test_aac_in_mp4_is_ffmpegs_decode_cut_at_the_stated_length(media):
    a = wv.load(media / "talk.m4a")
    x = decode(media / "talk.m4a")
    stated = wv.info(media / "talk.m4a")["frames"]
    assert a.frames == stated <= len(x)
    # ffmpeg keeps the encoder's padding after the stated end; the engine drops it.
    assert np.array_equal(a.to_numpy(), x[:stated])


def test_slices_behave_like_python_slices_in_seconds(media):
    a = wv.load(media / "tones.flac")
    x = decode(media / "tones.flac")
    cases = {(1.5, 3.0): x[66150:132300], (None, 2.0): x[:88200], (-1.0, None): x[-44100:],
             (-3.0, -1.0): x[-132300:-44100], (7.5, 100.0): x[330750:], (-100.0, 0.5): x[:22050],
             (6.0, None): x[264600:]}
    for (start, stop), want in cases.items():
        part = a[start:stop]
        assert part.frames == len(want), (start, stop)
        assert np.array_equal(part.to_numpy(), want), (start, stop)
    # A slice of a slice is the same part of the source.
    assert np.array_equal(a[1.0:5.0][0.5:-1.0].to_numpy(), x[66150:176400])
    assert a[5.0:2.0].frames == 0 and a[9.0:].frames == 0
    with pytest.raises(TypeError):
        a[3]
    with pytest.raises(ValueError):
        a[0:1:2]


def test_concat_joins_exactly_and_crossfade_overlaps(media):
    intro, outro = wv.load(media / "intro.wav"), wv.load(media / "outro.wav")
    a = wv.load(media / "tones.wav")
    pieces = [intro, a[1.0:2.0], outro]
    plain = wv.concat(pieces).to_numpy()
    want = np.concatenate([decode(media / "intro.wav"), decode(media / "tones.wav")[RATE:2 * RATE],
                           decode(media / "outro.wav")])
    assert np.array_equal(plain, want)
    faded = wv.concat(pieces, crossfade=0.5)
    assert faded.frames == len(want) - 2 * 22050
    assert faded.duration == pytest.approx(len(want) / RATE - 1.0)
    y = faded.to_numpy()
    # Away from the joins the clips are untouched but for the dither of a
    # list with effects (1 LSB either way).
    head, tail = 3 * RATE - 22050, 4 * RATE - 22050
    assert np.max(np.abs(y[:head].astype(int) - want[:head])) <= 1
    assert np.max(np.abs(y[-tail:].astype(int) - want[-tail:])) <= 1


def test_a_mix_of_rates_and_channels_is_cut_in_its_own_seconds(media):
    stereo, mono = wv.load(media / "tones.wav"), wv.load(media / "mono.wav")  # 44.1 kHz, 22.05 kHz
    mix = wv.concat([stereo, mono])
    assert (mix.sample_rate, mix.channels, mix.frames) == (RATE, 2, 10 * RATE)
    whole = mix.to_numpy()
    for start, stop in ((-1.0, None), (-3.0, -1.0), (7.5, 9.0), (None, 0.25)):
        part = mix[start:stop]
        want = whole[slice(None if start is None else round(start * RATE),
                           None if stop is None else round(stop * RATE))]
        assert part.frames == len(want), (start, stop)
        assert np.array_equal(part.to_numpy(), want), (start, stop)
    assert mix.gain(0.0)[-2.0:].frames == 2 * RATE
    # Effects on a mix of rates keep its whole length.
    assert mix.fade_in(0.5).frames == 10 * RATE
    crossfaded = wv.concat([mono, stereo], crossfade=0.5)
    assert crossfaded.frames == crossfaded.gain(-1.0).fade_out(1.0).frames == 9.5 * RATE
    assert wv.concat([mix, stereo], crossfade=0.2).frames == 18 * RATE - 0.2 * RATE


def test_mixes_nest_as_their_own_renders(media, tmp_path):
    # A crossfaded mix of rates, and a mix of mixes, used inside another
    # mix: the engine nests them, and they sound as their exports do.
    stereo, mono = wv.load(media / "tones.wav"), wv.load(media / "mono.wav")
    inner = wv.concat([mono, stereo[:3.0]], crossfade=0.5)
    deeper = wv.concat([inner, wv.concat([mono, stereo[1.0:2.0]])], crossfade=0.25)
    for nested in (inner, deeper):
        nested.export(tmp_path / "inner.wav")
        bounce = wv.load(tmp_path / "inner.wav")
        got = wv.concat([stereo[:1.0], nested, mono], crossfade=0.1)
        want = wv.concat([stereo[:1.0], bounce, mono], crossfade=0.1)
        assert got.frames == want.frames
        assert np.array_equal(got.to_numpy(), want.to_numpy())


def test_a_normalised_export_of_a_mix_of_rates_keeps_its_length(media, tmp_path):
    mix = wv.concat([wv.load(media / "mono.wav"), wv.load(media / "tones.wav")])
    mix.export(tmp_path / "n.wav", normalize=-20.0)
    assert wv.load(tmp_path / "n.wav").frames == mix.frames == 10 * RATE


def test_fades_and_gain(media):
    a = wv.load(media / "outro.wav")
    x = decode(media / "outro.wav").astype(float)
    y = a.fade_in(0.5).fade_out(1.0).gain(-6.0).to_numpy().astype(float)
    assert len(y) == len(x)
    assert np.all(y[0] == 0) and np.all(np.abs(y[-1]) <= 1)
    middle = slice(RATE, 2 * RATE)
    # Dither moves a sample by at most 1 LSB either way.
    assert np.max(np.abs(y[middle] - x[middle] * 10 ** (-6 / 20))) <= 1.5
    assert np.max(np.abs(y[:100])) < np.max(np.abs(x[:100])) / 10
    with pytest.raises(wv.OutOfRangeError):
        a.gain(30.0)
    with pytest.raises(ValueError):  # OutOfRangeError is a ValueError too
        a.fade_in(-1.0)


def test_export_formats_bitrate_and_loudness_target(media, tmp_path):
    a = wv.load(media / "tones.wav")
    codecs = {"x.mp3": "mp3", "x.flac": "flac", "x.wav": "pcm_s16le", "x.opus": "opus",
              "x.m4a": "aac", "x.ogg": "vorbis"}
    for name, codec in codecs.items():
        a[:1.0].export(tmp_path / name)
        assert probe(tmp_path / name, "stream=codec_name") == codec, name
    a[:1.0].export(tmp_path / "named.audio", format="opus")
    assert probe(tmp_path / "named.audio", "stream=codec_name") == "opus"
    assert np.array_equal(decode(tmp_path / "x.flac"), decode(media / "tones.wav")[:RATE])
    a.export(tmp_path / "ep.mp3", bitrate=192, normalize=-16.0, true_peak=-1.0)
    assert int(probe(tmp_path / "ep.mp3", "stream=bit_rate")) == 192000
    level = wv.load(tmp_path / "ep.mp3").loudness()
    assert level["integrated"] == pytest.approx(-16.0, abs=0.5)
    assert level["true_peak"] <= -0.5
    # No waveform or part file is left beside the outputs.
    assert sorted(p.name for p in tmp_path.iterdir()) == sorted(list(codecs) + ["named.audio", "ep.mp3"])
    with pytest.raises(ValueError):
        a.export(tmp_path / "x.unknown")
    with pytest.raises(ValueError):
        a.export(tmp_path / "x.wav", format="tape")


def test_a_ranged_load_holds_the_frames_of_a_whole_load(media):
    for name in ("tones.flac", "tones.mp3"):
        whole = wv.load(media / name).to_numpy()
        part = wv.load(media / name, start=2.5, end=5.0)
        assert np.array_equal(part.to_numpy(), whole[110250:220500]), name
        assert np.array_equal(wv.load(media / name, start=6.0).to_numpy(), whole[264600:]), name
    with pytest.raises(wv.OutOfRangeError):
        wv.load(media / "tones.flac", start=3.0, end=2.0)
