"""The C API of libwavoryx (wavoryx_c.h) through ctypes.

ctypes drops the GIL around every foreign call, so a wv_wait blocks only
the calling Python thread. The library is found, in this order: the file
named by $WAVORYX_LIBRARY, the copy installed beside the package (a wheel),
the path `cmake --install` recorded in _libpath.py, the loader's search."""
import ctypes
import ctypes.util
import os

_HERE = os.path.dirname(os.path.abspath(__file__))


class Event(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int), ("id", ctypes.c_int32), ("value", ctypes.c_int32)]


class SourceInfo(ctypes.Structure):
    _fields_ = [("container", ctypes.c_char * 32), ("codec", ctypes.c_char * 32),
                ("channelLayout", ctypes.c_char * 32), ("sampleRate", ctypes.c_int32),
                ("channels", ctypes.c_int32), ("bitsPerSample", ctypes.c_int32),
                ("bitRate", ctypes.c_int32), ("durationUs", ctypes.c_int64)]


def _candidates():
    env = os.environ.get("WAVORYX_LIBRARY")
    if env:
        yield env
        return
    yield os.path.join(_HERE, "libwavoryx.so.0")
    try:
        from . import _libpath  # written by `cmake --install`
        yield os.path.normpath(os.path.join(_HERE, _libpath.LIBRARY))
    except ImportError:
        pass
    found = ctypes.util.find_library("wavoryx")
    if found:
        yield found


def _open():
    tried = []
    for path in _candidates():
        if os.path.isabs(path) and not os.path.exists(path):
            tried.append(path)
            continue
        try:
            return ctypes.CDLL(path)
        except OSError as error:
            tried.append("%s (%s)" % (path, error))
    raise ImportError("wavoryx: libwavoryx not found; tried: " + ", ".join(tried or ["nothing"]))


lib = _open()

# Python code hears of failures through exceptions: the engine's own log on
# standard error stays quiet unless WAVORYX_LOG asks for it.
if "WAVORYX_LOG" not in os.environ:
    lib.wavoryx_set_log_level(ctypes.c_int(7))  # WAVORYX_LOG_FATAL

_P, _I, _U, _I32 = ctypes.c_void_p, ctypes.c_int, ctypes.c_uint, ctypes.c_int32
_SIGNATURES = {
    "wv_engine_new": (_P, [ctypes.c_char_p]),
    "wv_engine_free": (None, [_P]),
    "wv_next_event": (_I, [_P, ctypes.POINTER(Event), _I]),
    "wv_wait": (_I, [_P, _I32, _I, ctypes.POINTER(Event)]),
    "wv_result_text": (ctypes.c_char_p, [_I32]),
    "wv_event_name": (ctypes.c_char_p, [_I]),
    "wv_version": (ctypes.c_char_p, []),
    "wv_remove_pcm": (_I32, [_P, _I32]),
    "wv_load_file": (_I32, [_P, ctypes.c_char_p]),
    "wv_load_file_range": (_I32, [_P, ctypes.c_char_p, _U, _U]),
    "wv_get_source_info": (_I32, [_P, _I32, ctypes.POINTER(SourceInfo)]),
    "wv_get_source_tag": (_I32, [_P, _I32, ctypes.c_char_p, ctypes.c_char_p, _U]),
    "wv_get_source_frames": (_I32, [_P, _I32, ctypes.POINTER(ctypes.c_uint32)]),
    "wv_cancel_load_file": (_I32, [_P, _I32]),
    "wv_get_pcm_sample_rate": (_I32, [_P, _I32]),
    "wv_get_pcm_channel_count": (_I32, [_P, _I32]),
    "wv_get_pcm_frame_length": (_I32, [_P, _I32]),
    "wv_open_pcm_data": (_I32, [_P, _I32, ctypes.POINTER(ctypes.c_uint64),
                                ctypes.POINTER(ctypes.c_uint64)]),
    "wv_get_waveform_peaks": (_I32, [_P, _I32, _U, _U, _U, ctypes.POINTER(ctypes.c_int16)]),
    "wv_new_clip_list": (_I32, [_P]),
    "wv_add_clip": (_I32, [_P, _I32, _I32, _U, _U]),
    "wv_set_clip_gain": (_I32, [_P, _I32, _I, _I]),
    "wv_set_clip_fade": (_I32, [_P, _I32, _I, _U, _U, _I]),
    "wv_set_list_crossfade": (_I32, [_P, _I32, _U, _I]),
    "wv_set_list_gain": (_I32, [_P, _I32, _I]),
    "wv_set_output_para": (_I32, [_P, _I32, ctypes.c_char_p, _I]),
    "wv_set_encode_para": (_I32, [_P, _I32, _I, _I, _I, _I]),
    "wv_set_list_loudness": (_I32, [_P, _I32, _I, _I]),
    "wv_process": (_I32, [_P, _I32]),
    "wv_cancel_process": (_I32, [_P, _I32]),
    "wv_measure_loudness": (_I32, [_P, _I32]),
    "wv_scan_silence": (_I32, [_P, _I32, _I, _U]),
    "wv_get_silences": (_I32, [_P, _I32, ctypes.POINTER(ctypes.c_uint32), _U]),
    "wv_get_silence_scan_frames": (_I32, [_P, _I32, ctypes.POINTER(ctypes.c_uint32)]),
}
for _name, (_res, _args) in _SIGNATURES.items():
    _fn = getattr(lib, _name)
    _fn.restype = _res
    _fn.argtypes = _args

# Codes of Wavoryx.h.
OK, ERR_NO_ITEM, ERR_WRONG_ITEM, ERR_DURATION_UNKNOWN, ERR_OUT_OF_RANGE = 0, -1, -2, -3, -4
LOAD_FAILED, LOAD_PROGRESS, LOAD_DONE, LOAD_CANCELLED, LOAD_STARTED, LOAD_NO_SPACE = 0, 3, 4, 5, 6, 7
RENDER_FAILED, RENDER_PROGRESS, RENDER_DONE, RENDER_CANCELLED, RENDER_STOPPED = 20, 21, 22, 23, 25
LOUDNESS, TRUE_PEAK, LOUDNESS_RANGE = 26, 27, 28
SILENCES = 29
ENCODE = {"wav": 0, "mp3": 1, "flac": 2, "opus": 3, "aac": 4, "m4a": 4, "vorbis": 5, "ogg": 5}
FADE_EQUAL_POWER = 1
INT32_MIN = -2 ** 31
END = 0xFFFFFFFF  # an end past the source's: the engine cuts it there


def result_text(code):
    return lib.wv_result_text(code).decode()


def event_name(code):
    return lib.wv_event_name(code).decode()


def version():
    return lib.wv_version().decode()
