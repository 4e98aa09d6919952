"""Audio files made with sox and ffmpeg, once per session, in a temp folder."""
import subprocess

import numpy as np
import pytest


def run(*args):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def decode(path, rate=None, channels=None):
    """ffmpeg's decode of a file as int16 (frames, channels)."""
    args = ["ffmpeg", "-v", "error", "-i", str(path)]
    if rate:
        args += ["-ar", str(rate)]
    if channels:
        args += ["-ac", str(channels)]
    out = subprocess.run(args + ["-f", "s16le", "-"], check=True, stdout=subprocess.PIPE).stdout
    probe = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries",
                            "stream=channels", "-of", "csv=p=0", str(path)],
                           check=True, stdout=subprocess.PIPE, text=True).stdout
    ch = channels or int(probe.split()[0])
    return np.frombuffer(out, dtype="<i2").reshape(-1, ch)


def probe(path, entry):
    return subprocess.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries", entry,
                           "-of", "csv=p=0", str(path)], check=True, stdout=subprocess.PIPE,
                          text=True).stdout.strip()


@pytest.fixture(scope="session")
def media(tmp_path_factory):
    d = tmp_path_factory.mktemp("media")
    # 8 s of two tones a second apart in level, stereo, 44.1 kHz.
    run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", str(d / "tones.wav"), "synth", "8",
        "sine", "440", "sine", "660", "gain", "-8")
    run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", str(d / "intro.wav"), "synth", "3",
        "pinknoise", "gain", "-15")
    run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", str(d / "outro.wav"), "synth", "4",
        "sine", "300", "gain", "-12")
    run("sox", "-n", "-r", "22050", "-c", "1", "-b", "16", str(d / "mono.wav"), "synth", "2",
        "sine", "500", "gain", "-3")
    run("ffmpeg", "-v", "error", "-i", str(d / "tones.wav"), "-c:a", "flac", str(d / "tones.flac"))
    run("ffmpeg", "-v", "error", "-i", str(d / "tones.wav"), "-c:a", "aac", "-b:a", "128k",
        "-metadata", "title=A talk", "-metadata", "artist=Someone", str(d / "talk.m4a"))
    run("ffmpeg", "-v", "error", "-i", str(d / "tones.wav"), "-c:a", "libmp3lame", "-b:a", "128k",
        str(d / "tones.mp3"))
    run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", str(d / "long.wav"), "synth", "240",
        "pinknoise", "gain", "-10")
    (d / "text.mp3").write_text("this is not audio\n" * 100)
    return d
