"""The exceptions: wavoryx.Error and one subclass per kind of failure."""
from . import _capi as C


class Error(Exception):
    """Something the engine refused or a job that did not end well; the
    message gives the engine's reason."""


class ReadError(Error):
    """A file that cannot be read: missing, unreadable, or not audio."""


class StorageFullError(Error):
    """The storage filled up while a load or an export was writing."""


class OutOfRangeError(Error, ValueError):
    """An argument out of the range the engine takes."""


class CancelledError(Error):
    """The job was cancelled (cancel(), or a KeyboardInterrupt while waiting)."""


class RenderError(Error):
    """An export that failed for another reason than storage: no encoder,
    a write, read or encoding error."""


def check(result, what):
    """Returns result when it is not an error code, else raises."""
    if result >= 0:
        return result
    text = "%s: %s" % (what, C.result_text(result))
    if result == C.ERR_OUT_OF_RANGE:
        raise OutOfRangeError(text)
    raise Error(text)


_LOAD_REASONS = {2: "the file cannot be read", 1: "the file is not audio",
                 4: "the working file could not be created", -11: "the working file could not be written"}
_RENDER_REASONS = {-1: "no encoder for the output, or a source that will not load",
                   -11: "a write, read or encoding error"}


def from_ending(code, value, what):
    """The exception for a job's ending event, or None when it ended well."""
    if code in (C.LOAD_DONE, C.RENDER_DONE, C.LOUDNESS_RANGE, C.SILENCES):
        return None
    if code == C.LOAD_FAILED:
        reason = _LOAD_REASONS.get(value, "failed (%d)" % value)
        kind = ReadError if value in (1, 2) else Error
        return kind("%s: %s" % (what, reason))
    if code in (C.LOAD_CANCELLED, C.RENDER_CANCELLED):
        return CancelledError("%s: cancelled" % what)
    if code == C.LOAD_NO_SPACE:
        return StorageFullError("%s: storage full while decoding" % what)
    if code == C.RENDER_STOPPED:
        return StorageFullError("%s: storage full, or the encoder could not start" % what)
    if code == C.RENDER_FAILED:
        return RenderError("%s: %s" % (what, _RENDER_REASONS.get(value, "failed (%d)" % value)))
    return Error("%s: ended with %s (%d)" % (what, C.event_name(code), value))
