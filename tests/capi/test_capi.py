"""The C API through ctypes, as a language binding uses it: the pull queue
from several threads, waits, errors as events, cancel."""
import ctypes
import os
import struct
import threading

import pytest

LIB = ctypes.CDLL(os.environ["WAVORYX_LIBRARY"])


class Event(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int), ("id", ctypes.c_int32), ("value", ctypes.c_int32)]


LIB.wv_engine_new.restype = ctypes.c_void_p
LIB.wv_engine_new.argtypes = [ctypes.c_char_p]
LIB.wv_engine_free.argtypes = [ctypes.c_void_p]
LIB.wv_next_event.argtypes = [ctypes.c_void_p, ctypes.POINTER(Event), ctypes.c_int]
LIB.wv_wait.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_int, ctypes.POINTER(Event)]
LIB.wv_event_name.restype = ctypes.c_char_p
for name in ("wv_load_file",):
    getattr(LIB, name).argtypes = [ctypes.c_void_p, ctypes.c_char_p]
LIB.wv_set_output_para.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_char_p, ctypes.c_int]
for name in ("wv_new_clip_list",):
    getattr(LIB, name).argtypes = [ctypes.c_void_p]
for name in ("wv_process", "wv_cancel_process", "wv_get_pcm_frame_length"):
    getattr(LIB, name).argtypes = [ctypes.c_void_p, ctypes.c_int32]
LIB.wv_add_clip_ms.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_uint, ctypes.c_uint]

LOAD_FAILED, LOAD_DONE, RENDER_DONE, RENDER_CANCELLED = 0, 4, 22, 23
ENCODE_MP3 = 1


def write_wav(path, seconds, rate=44100):
    frames = rate * seconds
    one = struct.pack("<hh", 1000, -1000) * 4410
    with open(path, "wb") as f:
        f.write(b"RIFF" + struct.pack("<I", 36 + frames * 4) + b"WAVEfmt " +
                struct.pack("<IHHIIHH", 16, 1, 2, rate, rate * 4, 4, 16) + b"data" + struct.pack("<I", frames * 4))
        for _ in range(frames // 4410):
            f.write(one)


@pytest.fixture
def engine(tmp_path):
    work = tmp_path / "work"
    work.mkdir()
    e = LIB.wv_engine_new(str(work).encode())
    assert e
    yield e
    LIB.wv_engine_free(e)


def wait(e, item, timeout_ms=30000):
    ending = Event()
    assert LIB.wv_wait(e, item, timeout_ms, ctypes.byref(ending)) == 1
    return ending


def test_errors_arrive_as_ending_events(engine, tmp_path):
    item = LIB.wv_load_file(engine, str(tmp_path / "missing.mp3").encode())
    assert item > 0
    ending = wait(engine, item)
    assert (ending.code, ending.value) == (LOAD_FAILED, 2)
    assert LIB.wv_event_name(ending.code) == b"LOAD_FAILED"


def test_queue_pulled_from_several_threads_gives_each_event_once(engine, tmp_path):
    write_wav(tmp_path / "a.wav", 2)
    items = [LIB.wv_load_file(engine, str(tmp_path / "a.wav").encode()) for _ in range(8)]
    for item in items:
        assert wait(engine, item).code == LOAD_DONE
    got, lock = [], threading.Lock()

    def pull():
        event = Event()
        while LIB.wv_next_event(engine, ctypes.byref(event), 200) == 1:
            with lock:
                got.append((event.code, event.id, event.value))

    threads = [threading.Thread(target=pull) for _ in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    done = sorted(item for code, item, _ in got if code == LOAD_DONE)
    assert done == sorted(items)


def test_cancelled_render_ends_with_its_event_and_leaves_nothing(engine, tmp_path):
    write_wav(tmp_path / "long.wav", 120)
    source = LIB.wv_load_file(engine, str(tmp_path / "long.wav").encode())
    assert wait(engine, source).code == LOAD_DONE
    target = tmp_path / "out.mp3"
    target.write_bytes(b"precious")
    lst = LIB.wv_new_clip_list(engine)
    assert LIB.wv_add_clip_ms(engine, lst, source, 0, 120000) == 1
    assert LIB.wv_set_output_para(engine, lst, str(target).encode(), ENCODE_MP3) == 0
    assert LIB.wv_process(engine, lst) == 0
    assert LIB.wv_wait(engine, lst, 0, None) == 0  # under way
    assert LIB.wv_cancel_process(engine, lst) == 0
    assert wait(engine, lst).code == RENDER_CANCELLED
    assert target.read_bytes() == b"precious"
    assert sorted(os.listdir(tmp_path)) == ["long.wav", "out.mp3", "work"]


LIB.wv_read_pcm.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_uint32, ctypes.POINTER(ctypes.c_int16),
                            ctypes.c_uint32]
LIB.wv_get_waveform_peaks_frames.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_uint32, ctypes.c_uint32,
                                             ctypes.c_uint, ctypes.POINTER(ctypes.c_int16)]
LIB.wv_get_pcm_output_frames.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.POINTER(ctypes.c_uint32)]
ENCODE_WAV = 0


def test_a_list_read_and_drawn_without_rendering_equals_its_wav_render(engine, tmp_path):
    write_wav(tmp_path / "a.wav", 2)
    source = LIB.wv_load_file(engine, str(tmp_path / "a.wav").encode())
    assert wait(engine, source).code == LOAD_DONE
    lst = LIB.wv_new_clip_list(engine)
    assert LIB.wv_add_clip_ms(engine, lst, source, 100, 600) == 1
    assert LIB.wv_add_clip_ms(engine, lst, source, 1000, 1500) == 2
    block = (ctypes.c_int16 * (2 * 5000))()
    read = b""
    while True:
        got = LIB.wv_read_pcm(engine, lst, len(read) // 4, block, 5000)
        assert got >= 0
        if got == 0:
            break
        read += bytes(block)[:got * 4]
    target = tmp_path / "out.wav"
    assert LIB.wv_set_output_para(engine, lst, str(target).encode(), ENCODE_WAV) == 0
    assert LIB.wv_process(engine, lst) == 0
    assert wait(engine, lst).code == RENDER_DONE
    assert read == target.read_bytes()[44:]
    frames = ctypes.c_uint32()
    assert LIB.wv_get_pcm_output_frames(engine, lst, ctypes.byref(frames)) == 0
    assert frames.value * 4 == len(read)
    peaks = (ctypes.c_int16 * 4)()
    assert LIB.wv_get_waveform_peaks_frames(engine, source, 0, 88200, 2, peaks) == 2
    assert list(peaks) == [-1000, 1000, -1000, 1000]
    assert LIB.wv_read_pcm(engine, 999, 0, block, 10) == -1
