"""The README's Python example runs as written, on files made for it."""
import os
import pathlib

import wavoryx as wv
from conftest import run

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"


def python_example():
    text = README.read_text()
    section = text[text.index("## Python\n"):]
    start = section.index("```python\n") + len("```python\n")
    return section[start:section.index("```", start)]


def test_readme_example_runs(tmp_path, monkeypatch, capsys):
    run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", str(tmp_path / "talk.wav"), "synth", "90",
        "pinknoise", "gain", "-12")
    run("ffmpeg", "-v", "error", "-i", str(tmp_path / "talk.wav"), "-c:a", "aac",
        str(tmp_path / "talk.m4a"))
    for name, seconds in (("intro.wav", "3"), ("outro.wav", "4")):
        run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", str(tmp_path / name), "synth", seconds,
            "sine", "440", "gain", "-10")
    monkeypatch.chdir(tmp_path)
    exec(compile(python_example(), str(README), "exec"), {})
    printed = capsys.readouterr().out.split()
    assert printed[:2] == ["44100", "2"] and printed[-1] == "100"
    assert set(os.listdir(tmp_path)) == {"talk.wav", "talk.m4a", "intro.wav", "outro.wav",
                                         "ep.mp3", "ep.flac"}
    # intro 3 s, 57.5 s of the talk, outro 4 s, two joins of 1.5 s.
    assert abs(wv.load("ep.flac").duration - 61.5) < 0.001
