"""The supervisor that runs inside a device root for `devroot run`.

It starts the message broker (when given), waits for the broker's socket
and its readiness semaphore,
starts the settings service as its own child and waits for the service's
SIGUSR1, then reports on standard output, one line each:

  broker: socket ready
  ready                           or   not ready (REASON)
  command: exit status N          (COMMAND, when given and the service is ready)
  service: exit status N          or   service: killed by signal N (NAME)
  broker: exit status N

It stops (SIGTERM to the command, then the service, then the broker, each
waited for, SIGKILL after the time-out) when the stop time has passed after
readiness, when COMMAND ends, when the runner outside asks (its control pipe
is written to or closed: Ctrl-C, SIGTERM), or when the service or the broker
ends by itself.  The exit status is 0 only if the service was ready and every
program started ended with status 0 after being asked to stop; a service or
broker that ends by itself counts as a failure.

The supervisor must be the service's parent: bubblewrap, pid 1 here, drops
SIGUSR1.  Signals are blocked and taken synchronously with sigtimedwait, so
the sender of SIGUSR1 is known; the children get an empty mask.
"""

import argparse
import os
import shlex
import signal
import stat
import sys
import threading
import time

BROKER_SOCKET = "/var/volatile/message-broker.socket"
# The broker creates its readiness semaphore right after it listens; clients
# give up at once when it is missing, so the service starts only after it.
BROKER_SEMAPHORE = "/dev/shm/sem.message-broker-ready"
TICK = 0.05
WATCHED = {signal.SIGCHLD, signal.SIGUSR1, signal.SIGINT, signal.SIGTERM}
CHILD_DEFAULTS = (signal.SIGPIPE, signal.SIGXFSZ, signal.SIGINT, signal.SIGTERM,
                  signal.SIGUSR1, signal.SIGCHLD)


def report(text):
    print(text, flush=True)


def describe(status):
    if os.WIFSIGNALED(status):
        number = os.WTERMSIG(status)
        return f"killed by signal {number} ({signal.Signals(number).name})"
    return f"exit status {os.WEXITSTATUS(status)}"


class StartError(Exception):
    pass


class Child:
    """A started program; a daemon (broker, service) must run until it is stopped."""

    def __init__(self, name, argv, daemon):
        self.name = name
        self.argv = argv
        self.daemon = daemon
        self.pid = None
        self.status = None
        self.ended_by_itself = False

    def start(self):
        try:
            self.pid = os.posix_spawnp(self.argv[0], self.argv, os.environ, setsigmask=(),
                                       setsigdef=CHILD_DEFAULTS)
        except OSError as error:
            raise StartError(f"cannot start {self.argv[0]}: {error.strerror} "
                             "(is its folder bound into the root?)") from error

    @property
    def running(self):
        return self.pid is not None and self.status is None

    def reap(self):
        if self.running:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.status = status

    @property
    def succeeded(self):
        if self.daemon and self.ended_by_itself:
            return False
        return os.WIFEXITED(self.status) and os.WEXITSTATUS(self.status) == 0


class Supervisor:
    def __init__(self, options):
        self.options = options
        self.children = []
        self.stop_requested = False
        self.ready = False
        self.service = None

    def spawn(self, name, argv, daemon=True):
        child = Child(name, argv, daemon)
        child.start()
        self.children.append(child)
        return child

    def wait_until(self, condition, seconds):
        """Takes signals until condition() holds, a stop is asked or time is up."""
        deadline = None if seconds is None else time.monotonic() + seconds
        while not condition() and not self.stop_requested:
            remaining = TICK if deadline is None else min(TICK, deadline - time.monotonic())
            if remaining <= 0:
                return False
            info = signal.sigtimedwait(WATCHED, remaining)
            if info is not None:
                self.on_signal(info)
            for child in self.children:
                child.reap()
        return condition()

    def on_signal(self, info):
        if info.si_signo in (signal.SIGINT, signal.SIGTERM):
            self.stop_requested = True
        elif info.si_signo == signal.SIGUSR1:
            service = self.service
            if service is not None and info.si_pid == service.pid:
                self.ready = True

    def start_broker(self, argv):
        broker = self.spawn("broker", argv)
        socket_there = self.wait_until(
            lambda: not broker.running or _broker_listening(), self.options.timeout)
        if broker.running and socket_there:
            report("broker: socket ready")
            return None
        if self.stop_requested:
            return "stopped before the broker's socket appeared"
        if not broker.running:
            return f"broker ended before its socket appeared, {describe(broker.status)}"
        return (f"broker socket {BROKER_SOCKET} or semaphore {BROKER_SEMAPHORE} did not appear "
                f"within {self.options.timeout:g} s")

    def start_service(self, argv):
        self.service = self.spawn("service", argv)
        service = self.service
        self.wait_until(lambda: self.ready or not service.running, self.options.timeout)
        if self.ready:
            return None
        if not service.running:
            return f"service ended before signalling, {describe(service.status)}"
        if self.stop_requested:
            return "stopped before the service signalled"
        return f"no SIGUSR1 from the service within {self.options.timeout:g} s"

    def run(self):
        emulator = shlex.split(self.options.emulator or "")
        reason = None
        try:
            if self.options.broker:
                reason = self.start_broker(emulator + [self.options.broker])
            if reason is None:
                reason = self.start_service(emulator + [self.options.service])
        except StartError as error:
            reason = str(error)
        report("ready" if reason is None else f"not ready ({reason})")
        if reason is None:
            self.serve()
        self.stop()
        return 0 if self.ready and all(child.succeeded for child in self.children) else 1

    def serve(self):
        """Runs until the stop time, the command's end, a stop request or an early end."""
        command = None
        if self.options.command:
            try:
                command = self.spawn("command", self.options.command, daemon=False)
            except StartError as error:
                report(f"command: {error}")
                self.ready = False
                return
        watched = [child for child in self.children if child is not command]

        def finished():
            return (command is not None and not command.running) or \
                any(not child.running for child in watched)

        self.wait_until(finished, self.options.stop_after)

    def stop(self):
        for child in self.children:
            child.ended_by_itself = not child.running
        for child in reversed(self.children):
            if child.running:
                os.kill(child.pid, signal.SIGTERM)
                self.stop_requested = False
                if not self.wait_until(lambda: not child.running, self.options.timeout):
                    report(f"{child.name}: did not end within {self.options.timeout:g} s "
                           "of SIGTERM; killed")
                    os.kill(child.pid, signal.SIGKILL)
                    child.status = os.waitpid(child.pid, 0)[1]
            early = "ended by itself, " if child.daemon and child.ended_by_itself else ""
            report(f"{child.name}: {early}{describe(child.status)}")


def _broker_listening():
    return _is_socket(BROKER_SOCKET) and os.path.exists(BROKER_SEMAPHORE)


def _is_socket(path):
    try:
        return stat.S_ISSOCK(os.stat(path).st_mode)
    except FileNotFoundError:
        return False


def _watch_control(fd):
    """The runner outside writes to (or closes) the control pipe to ask for a stop."""
    os.read(fd, 1)
    os.kill(os.getpid(), signal.SIGTERM)


def main():
    parser = argparse.ArgumentParser(prog="devroot-supervisor")
    parser.add_argument("--started-fd", type=int, required=True)
    parser.add_argument("--control-fd", type=int, required=True)
    parser.add_argument("--timeout", type=float, required=True)
    parser.add_argument("--stop-after", type=float)
    parser.add_argument("--broker")
    parser.add_argument("--service", required=True)
    parser.add_argument("--emulator")
    parser.add_argument("command", nargs="*")
    options = parser.parse_args()

    signal.pthread_sigmask(signal.SIG_BLOCK, WATCHED)
    signal.signal(signal.SIGCHLD, lambda *_: None)
    os.write(options.started_fd, b"started\n")
    os.close(options.started_fd)
    threading.Thread(target=_watch_control, args=(options.control_fd,), daemon=True).start()
    return Supervisor(options).run()


if __name__ == "__main__":
    sys.exit(main())
