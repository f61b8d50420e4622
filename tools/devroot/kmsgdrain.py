"""Drains a FIFO that stands in for /dev/kmsg into a log file.

The FIFO is opened read-write, so the drain never sees end-of-file and the
writers' open never blocks.  A writer's record below the pipe's atomic size
(4096 bytes) arrives in one piece, so every line is recorded whole: bytes are
written to the log only up to the last complete line, the rest waits for its
end.  Each line is also handed to an optional echo function.
"""

import os
import select
import threading

READ_SIZE = 1 << 16
POLL_SECONDS = 0.1


class KmsgDrain:
    def __init__(self, fifo, log_path, echo=None):
        self._fd = os.open(fifo, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
        self._log = open(log_path, "ab", buffering=0)
        self._echo = echo
        self._pending = b""
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self.lines = []

    def start(self):
        self._thread.start()
        return self

    def stop(self):
        """Takes what is still in the FIFO, records an unfinished last line and closes."""
        self._stop.set()
        self._thread.join()
        self._read_available()
        if self._pending:
            self._record(self._pending + b"\n")
            self._pending = b""
        os.close(self._fd)
        self._log.close()

    def _run(self):
        while not self._stop.is_set():
            ready, _, _ = select.select([self._fd], [], [], POLL_SECONDS)
            if ready:
                self._read_available()

    def _read_available(self):
        while True:
            try:
                data = os.read(self._fd, READ_SIZE)
            except BlockingIOError:
                return
            if not data:
                return
            self._pending += data
            end = self._pending.rfind(b"\n") + 1
            if end:
                self._record(self._pending[:end])
                self._pending = self._pending[end:]

    def _record(self, complete):
        self._log.write(complete)
        for line in complete.decode("utf-8", "replace").splitlines():
            self.lines.append(line)
            if self._echo:
                self._echo(line)
