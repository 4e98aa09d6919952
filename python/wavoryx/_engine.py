"""An engine: the C engine handle, its private working folder, and the one
place its event queue is pulled from.

Any Python thread may wait for any item. Whoever waits pulls the queue
(under a lock) into per-item records, so each waiter finds its own job's
progress there and hands it to its callback on its own thread; the C
library never calls into Python."""
import ctypes
import os
import shutil
import tempfile
import threading
import weakref

from . import _capi as C
from ._errors import check, from_ending

_POLL_MS = 100  # how often a wait looks up from wv_wait: the latency of Ctrl-C and of progress


class _Record:
    __slots__ = ("started", "progress", "pending", "values")

    def __init__(self):
        self.started = False
        self.progress = 0
        self.pending = []
        self.values = {}


def _close(ptr, folder):
    C.lib.wv_engine_free(ptr)
    shutil.rmtree(folder, ignore_errors=True)


class Engine:
    """One engine: its own worker threads, items and private working folder
    (removed with everything in it when the engine goes or the process
    exits). The module's functions use a default engine; make more for
    work that must not queue behind other work."""

    def __init__(self):
        self._folder = tempfile.mkdtemp(prefix="wavoryx-")
        ptr = C.lib.wv_engine_new((self._folder + "/").encode())
        if not ptr:
            shutil.rmtree(self._folder, ignore_errors=True)
            raise MemoryError("wavoryx: the engine could not start")
        self._ptr = ptr
        self._lock = threading.RLock()
        self._records = {}
        self._names = 0
        self._finalizer = weakref.finalize(self, _close, ptr, self._folder)

    @property
    def folder(self):
        """The engine's private working folder."""
        return self._folder

    def close(self):
        """Stops the engine's work and removes its folder. Items made by it
        must not be used afterwards."""
        self._finalizer()

    # -- items --------------------------------------------------------
    def create(self, fn, *args, what="call"):
        """Calls fn(engine, *args), which makes an item, and records its
        events from the first one on."""
        with self._lock:
            item = check(fn(self._ptr, *args), what)
            self._records[item] = _Record()
        return item

    def call(self, fn, *args, what="call"):
        return check(fn(self._ptr, *args), what)

    def release(self, item, *paths):
        if not self._finalizer.alive:
            return
        with self._lock:
            self._records.pop(item, None)
        C.lib.wv_remove_pcm(self._ptr, item)
        for path in paths:
            try:
                os.unlink(path)
            except OSError:
                pass

    def private_path(self, suffix):
        """A new name in the working folder, unused by the engine's own
        names (which are numbers)."""
        with self._lock:
            self._names += 1
            return os.path.join(self._folder, "py-%d-%d%s" % (os.getpid(), self._names, suffix))

    # -- events -------------------------------------------------------
    def _pump(self):
        event = C.Event()
        with self._lock:
            while C.lib.wv_next_event(self._ptr, ctypes.byref(event), 0) == 1:
                record = self._records.get(event.id)
                if record is None:
                    continue
                if event.code == C.LOAD_STARTED:
                    record.started = True
                elif event.code in (C.LOAD_PROGRESS, C.RENDER_PROGRESS):
                    record.progress = event.value
                    record.pending.append(event.value)
                elif event.code in (C.LOUDNESS, C.TRUE_PEAK, C.LOUDNESS_RANGE):
                    record.values[event.code] = event.value

    def progress(self, item):
        self._pump()
        record = self._records.get(item)
        return record.progress if record else 0

    def values(self, item):
        self._pump()
        record = self._records.get(item)
        return dict(record.values) if record else {}

    def wait(self, item, cancel=None, progress=None, until_started=False, what="job"):
        """Waits for the end of the item's job and returns its ending
        (code, value); with until_started, returns None as soon as a load
        has started. The GIL is released inside wv_wait. A
        KeyboardInterrupt cancels the job (cancel(engine, item)), waits for
        its end and is raised again."""
        ending = C.Event()
        # wv_wait wakes at a job's end, not at its start: a wait for the
        # start looks often at first (a load starts within milliseconds)
        # and backs off to the usual period.
        poll = 1 if until_started else _POLL_MS
        try:
            while True:
                got = C.lib.wv_wait(self._ptr, item, poll, ctypes.byref(ending))
                poll = min(2 * poll, _POLL_MS)
                check(got, what)
                self._pump()
                record = self._records.get(item)
                if record is not None and record.pending:
                    pending, record.pending = record.pending, []
                    if progress is not None:
                        for value in pending:
                            progress(value)
                if got == 1:
                    return ending.code, ending.value
                if until_started and record is not None and record.started:
                    return None
        except KeyboardInterrupt:
            if cancel is not None:
                cancel(self._ptr, item)
                while True:
                    try:
                        if C.lib.wv_wait(self._ptr, item, -1, None) != 0:
                            break
                    except KeyboardInterrupt:
                        continue
            raise

    def finish(self, item, cancel, progress=None, what="job"):
        """wait(), then raises the ending's exception, if any."""
        code, value = self.wait(item, cancel, progress, what=what)
        error = from_ending(code, value, what)
        if error is not None:
            raise error
        return code, value


_default = None
_default_lock = threading.Lock()


def default_engine():
    global _default
    with _default_lock:
        if _default is None:
            _default = Engine()
        return _default


__all__ = ["Engine", "default_engine"]
