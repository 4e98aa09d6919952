"""Ctrl-C as a user sends it, a storage that fills up, other threads while
one waits, and the help texts."""
import os
import pydoc
import signal
import subprocess
import sys
import tempfile
import threading

import pytest

import wavoryx as wv

CHILD = """
import sys
import wavoryx as wv, wavoryx._engine as e
a = wv.load(sys.argv[1]).wait()
print(e.default_engine().folder, flush=True)
started = []
def progress(percent):
    if not started:
        started.append(percent)
        print("started", flush=True)
a.export(sys.argv[2], normalize=-16.0, progress=progress)
print("finished", flush=True)
"""


def test_sigint_to_an_interpreter_waiting_for_an_export_cancels_it_and_leaves_nothing(media, tmp_path):
    target = tmp_path / "out.mp3"
    target.write_bytes(b"precious")
    child = subprocess.Popen([sys.executable, "-c", CHILD, str(media / "long.wav"), str(target)],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                             env=dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path)))
    try:
        folder = child.stdout.readline().strip()
        assert child.stdout.readline().strip() == "started"
        child.send_signal(signal.SIGINT)
        out, err = child.communicate(timeout=120)
    finally:
        if child.poll() is None:
            child.kill()
            child.wait()
    assert "finished" not in out
    assert "KeyboardInterrupt" in err
    assert child.returncode in (-signal.SIGINT, 128 + signal.SIGINT, 1)
    assert target.read_bytes() == b"precious"
    assert os.listdir(tmp_path) == ["out.mp3"]
    assert folder and not os.path.exists(folder)


@pytest.fixture
def small_tmpfs(tmp_path):
    """A 1 MB tmpfs, where root may mount one."""
    mount = tmp_path / "small"
    mount.mkdir()
    if os.geteuid() != 0:
        pytest.skip("mounting a tmpfs needs root")
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m,mode=0700", "tmpfs", str(mount)],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if done.returncode != 0:
        pytest.skip("no tmpfs could be mounted here")
    try:
        yield mount
    finally:
        subprocess.run(["umount", "-l", str(mount)], check=True)


def test_a_full_storage_is_a_storage_full_error_and_leaves_nothing(media, small_tmpfs, monkeypatch):
    # An export larger than the storage.
    a = wv.load(media / "long.wav")
    with pytest.raises(wv.StorageFullError, match="storage full") as failure:
        a[:60.0].export(small_tmpfs / "out.flac")
    assert isinstance(failure.value, wv.Error)
    assert os.listdir(small_tmpfs) == []
    (small_tmpfs / "kept.wav").write_bytes(b"precious")
    with pytest.raises(wv.StorageFullError):
        a[:60.0].export(small_tmpfs / "kept.wav")
    assert (small_tmpfs / "kept.wav").read_bytes() == b"precious"
    os.unlink(small_tmpfs / "kept.wav")
    # A decode larger than the engine's working folder (8 s of stereo: 1.4 MB).
    monkeypatch.setattr(tempfile, "tempdir", str(small_tmpfs))
    engine = wv.Engine()
    try:
        with pytest.raises(wv.StorageFullError, match="storage full"):
            wv.load(media / "tones.flac", engine=engine).wait()
    finally:
        engine.close()
    assert os.listdir(small_tmpfs) == []


def test_other_python_threads_run_while_one_waits(media, tmp_path):
    a = wv.load(media / "long.wav")
    job = a.export(tmp_path / "out.mp3", normalize=-16.0, wait=False)
    waiting = threading.Event()
    outcome = []

    def wait():
        waiting.set()
        outcome.append(job.wait(progress=lambda p: None))

    waiter = threading.Thread(target=wait)
    waiter.start()
    waiting.wait()
    # This thread holds the GIL for Python work while the other one is in
    # its wait: were the GIL kept there, cancel() would never be reached.
    total = sum(range(100000))
    job.cancel()
    waiter.join(timeout=120)
    assert not waiter.is_alive() and outcome == [job] and total > 0
    assert job.cancelled or job.progress == 100


def test_every_public_name_has_help_and_export_says_what_the_readme_says():
    for name in wv.__all__:
        assert getattr(wv, name).__doc__, name
    for name in ("export", "to_numpy", "peaks", "loudness", "wait", "fade_in", "fade_out", "gain"):
        assert getattr(wv.Audio, name).__doc__, name
    for name in ("wait", "cancel"):
        assert getattr(wv.Job, name).__doc__, name
    text = pydoc.render_doc(wv.Audio.export, renderer=pydoc.plaintext)
    for words in ("format", "bitrate", "normalize", "true_peak", "LUFS", "dBTP", "progress",
                  "wait=False", "An existing file is replaced only by a finished export"):
        assert words in " ".join(text.split()), words
    assert "memory map" in " ".join(pydoc.render_doc(wv.Audio.to_numpy).split())
