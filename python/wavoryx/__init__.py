"""Wavoryx from Python: load, cut, join, fade, normalise and export audio.

    import wavoryx as wv
    a = wv.load("talk.m4a")
    wv.concat([a[:30], a[-10:]], crossfade=1.5).fade_out(2.0).export("short.mp3")

Times are seconds (floats) everywhere. Every call that waits releases the
GIL; Ctrl-C during a wait cancels the job. Errors are wavoryx.Error and its
subclasses."""
from ._capi import version as _version
from ._engine import Engine
from ._errors import CancelledError, Error, OutOfRangeError, ReadError, RenderError, StorageFullError
from ._audio import Audio, Job, concat, from_numpy, info, load

__version__ = _version()

__all__ = ["Audio", "Job", "Engine", "Error", "ReadError", "StorageFullError", "OutOfRangeError",
           "CancelledError", "RenderError", "load", "info", "concat", "from_numpy"]
