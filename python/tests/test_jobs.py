"""Jobs and their endings: progress on the waiting thread, cancel, Ctrl-C,
errors as exceptions, several threads and engines, working files."""
import _thread
import gc
import os
import subprocess
import sys
import threading

import numpy as np
import pytest

import wavoryx as wv


def test_progress_runs_on_the_waiting_thread_and_rises_to_100(media, tmp_path):
    a = wv.load(media / "long.wav")
    seen = []
    a[:60.0].export(tmp_path / "p.mp3", progress=lambda p: seen.append((p, threading.get_ident())))
    assert {t for _, t in seen} == {threading.get_ident()}
    values = [p for p, _ in seen]
    assert values == sorted(values) and values[-1] == 100 and len(values) > 2
    job = a[:30.0].export(tmp_path / "q.flac", wait=False)
    assert 0 <= job.progress <= 100
    job.wait()
    assert job.done and job.progress == 100


def test_cancel_keeps_an_existing_file_and_leaves_nothing(media, tmp_path):
    a = wv.load(media / "long.wav")
    target = tmp_path / "out.mp3"
    target.write_bytes(b"precious")
    job = a.export(target, wait=False)
    job.cancel()
    assert job.wait() is job
    assert job.done and job.cancelled
    assert target.read_bytes() == b"precious"
    assert os.listdir(tmp_path) == ["out.mp3"]


def test_keyboard_interrupt_during_a_wait_cancels_the_export(media, tmp_path):
    # Four minutes of audio, normalised into an MP3: seconds of work, so the
    # interrupt comes while the export runs.
    a = wv.load(media / "long.wav")
    target = tmp_path / "out.mp3"
    target.write_bytes(b"precious")
    timer = threading.Timer(0.3, _thread.interrupt_main)
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        a.export(target, normalize=-16.0)
    timer.join()
    assert target.read_bytes() == b"precious"
    assert os.listdir(tmp_path) == ["out.mp3"]
    # A job stopped that way (not by its own cancel()) says so when waited for again.
    job = a.export(target, normalize=-16.0, wait=False)
    timer = threading.Timer(0.3, _thread.interrupt_main)
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        job.wait()
    timer.join()
    with pytest.raises(wv.CancelledError, match="cancelled"):
        job.wait()
    assert not job.cancelled
    assert target.read_bytes() == b"precious"


def test_errors_are_exceptions_with_the_reason(media, tmp_path):
    with pytest.raises(wv.ReadError, match="cannot be read"):
        wv.load(tmp_path / "missing.mp3")
    with pytest.raises(wv.ReadError, match="not audio"):
        wv.load(media / "text.mp3")
    with pytest.raises(wv.ReadError):
        wv.info(tmp_path / "missing.wav")
    a = wv.load(media / "tones.wav")
    with pytest.raises(wv.OutOfRangeError, match="out of range"):
        a.export(tmp_path / "x.mp3", normalize=-100.0)
    with pytest.raises(wv.OutOfRangeError):
        a.peaks(0)
    # A write that finds no space: /dev/full answers every write with ENOSPC.
    with pytest.raises(wv.StorageFullError, match="storage full") as failure:
        a.export("/dev/full", format="wav")
    assert isinstance(failure.value, wv.Error)
    assert issubclass(wv.OutOfRangeError, ValueError)


def test_threads_and_engines_work_at_once(media, tmp_path):
    want = wv.load(media / "tones.flac").to_numpy()
    engines = [None, wv.Engine()]
    results, errors = {}, []

    def work(n):
        try:
            engine = engines[n % 2]
            a = wv.load(media / "tones.flac", engine=engine)
            a[1.0:3.0].export(tmp_path / ("t%d.flac" % n))
            results[n] = (wv.load(tmp_path / ("t%d.flac" % n), engine=engine).to_numpy(),
                          a.peaks(10))
        except BaseException as error:  # reported below, on the test's thread
            errors.append(error)

    threads = [threading.Thread(target=work, args=(n,)) for n in range(6)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors
    for samples, peaks in results.values():
        assert np.array_equal(samples, want[44100:3 * 44100])
        assert np.array_equal(peaks[0], results[0][1][0])


def test_an_audio_keeps_its_sources_and_working_files_go_with_the_objects(media, tmp_path):
    engine = wv.Engine()
    folder = engine.folder
    a = wv.load(media / "tones.wav", engine=engine)
    part = wv.concat([a[:1.0], a[2.0:3.0]], crossfade=0.2).gain(-3.0)
    del a
    gc.collect()
    part.export(tmp_path / "kept.wav")  # its source is still there
    assert part.frames == 2 * 44100 - 8820
    x = wv.from_numpy(np.zeros((100, 2), dtype=np.int16), sample_rate=8000, engine=engine)
    assert x.frames == 100
    assert os.listdir(folder)
    del part, x
    gc.collect()
    assert os.listdir(folder) == []
    engine.close()
    assert not os.path.exists(folder)


def test_the_working_folder_goes_when_the_process_exits(media):
    code = ("import wavoryx as wv, wavoryx._engine as e\n"
            "a = wv.load(%r)\n"
            "a[1.0:2.0].fade_in(0.5).frames\n"
            "print(e.default_engine().folder)\n" % str(media / "tones.mp3"))
    out = subprocess.run([sys.executable, "-c", code], check=True, stdout=subprocess.PIPE,
                         text=True).stdout.strip()
    assert out and not os.path.exists(out)
