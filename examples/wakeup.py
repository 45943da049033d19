#!/usr/bin/python3
"""A driver in plain Python, written against docs/machine-folder.md and docs/driver-interface.md alone.

It measures how punctually this machine wakes a process that sleeps until every 10th millisecond. Quendel shows the time
between two wake-ups as Playback, and how late they came as ASIO wakeup; one that came after the next was due is an
underrun. The log has an event for each, with the microseconds that it was late. Ctrl and C ends it.
"""

import collections
import contextlib
import os
import pathlib
import shutil
import signal
import socket
import struct
import threading
import time

TICKS_PER_SECOND = 10_000_000
RATE, FRAMES = 48000, 480
PERIOD = TICKS_PER_SECOND * FRAMES // RATE

# Nobody else's, and the same at every start: what a run that was killed has left behind is known by it.
NAME = 'example#wakeup#0001#{136a52d3-45e2-49bc-8327-c3f05acff416}'

COMMAND, TRANSACTION = 0x1D2008, 0x1D2004
STREAM_STATUS, MAP_STATISTICS, RESET_STATISTICS, EVENT_ENTRY = ((COMMAND, code) for code in (3, 7, 8, 19))
PROBE, COUNTERS = (TRANSACTION, 1), (TRANSACTION, 4)
CLEAR, NO_ENTRY, WOKEN, INVALID_FUNCTION = 0xFFFFFFFF, 0xFFFFFFFF, 14, 1


def now():
    return time.monotonic_ns() // 100


class Meter:
    """What is measured, on a thread of its own: answering must not make it late."""

    def __init__(self):
        self.lock, self.section = threading.Lock(), os.memfd_create('wakeup')
        self.events, self.underruns = collections.deque(maxlen=16384), 0
        self.reset()

    def reset(self):
        self.count = self.total = self.longest = self.late = self.worst = 0
        self.publish()

    def publish(self):
        """The whole block in one call: no reader meets half a figure. There is no sample of the offset."""
        number = max(self.count, 1)
        block = struct.pack('<2q56x2q36xi12x2q', self.total // number, self.longest, self.late // number, self.worst,
                            self.count, -1 << 63, (1 << 63) - 1)
        os.pwrite(self.section, block, 0)

    def run(self):
        due = before = now()

        while True:
            due = max(due, before - PERIOD) + PERIOD
            time.sleep(max(due - now(), 0) / TICKS_PER_SECOND)
            woken = now()
            late = max(woken - due, 0)

            with self.lock:
                self.count, self.total, self.late = self.count + 1, self.total + woken - before, self.late + late
                self.longest, self.worst = max(self.longest, woken - before), max(self.worst, late)
                self.underruns += late > PERIOD
                self.events.append((woken, TICKS_PER_SECOND, WOKEN, late // 10))
                self.publish()

            before = woken


def plug_in(folder, hidden):
    """Makes the interface present; returns the socket that it listens on."""
    for leftover in folder, hidden:
        shutil.rmtree(leftover, ignore_errors=True)

    os.umask(0o077)  # of the machine folder as well, if this makes it
    (hidden / 'registry').mkdir(parents=True)
    (hidden / 'registry/hwinfo_caps').write_bytes(bytes(180))  # no firmware, no words behind a probe
    (hidden / 'registry/unique_name').write_bytes(b'Wake-up\0')
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    descriptor = os.open(hidden, os.O_PATH)
    listener.bind(f'/proc/self/fd/{descriptor}/driver')  # the whole path can be too long for an address
    listener.listen()
    hidden.rename(folder)
    return listener


def answer(meter, packet, log):
    """The reply to a packet, and what goes with it. A log that has been read from its beginning stands still."""
    control, size = struct.unpack_from('<2I', packet)
    code, parameter = struct.unpack_from('<2I' if control == COMMAND else '<12xI4xI', packet, 16)
    request, reply, section = (control, code), bytearray(92), []

    if request == STREAM_STATUS:
        struct.pack_into('<I4xI', reply, 20, RATE, FRAMES)
    elif request == MAP_STATISTICS:
        section = [meter.section]
    elif request == RESET_STATISTICS:
        meter.reset()
    elif request == EVENT_ENTRY:
        log[:] = meter.events if parameter == 0 else log
        struct.pack_into('<2q2I', reply, 12, *(log[parameter] if parameter < len(log) else (0, 0, NO_ENTRY, 0)))
    elif request == COUNTERS:
        meter.underruns = 0 if parameter == CLEAR else meter.underruns
        struct.pack_into('<I', reply, 32, meter.underruns)
    elif request != PROBE:
        return [struct.pack('<I', INVALID_FUNCTION)]

    return [bytes(4) + reply[:min(size, 64 if control == COMMAND else 92)], *section]


def serve(meter, connection):
    """Everybody who opens the interface is served by a thread."""
    log = []

    with connection, contextlib.suppress(OSError):
        while packet := connection.recv(200):
            with meter.lock:
                reply, *section = answer(meter, packet.ljust(100, b'\0'), log)  # bytes that are missing are 0

            socket.send_fds(connection, [reply], section)


runtime = os.environ.get('XDG_RUNTIME_DIR')
usual = f'{runtime}/quendel-machine' if runtime else f'/tmp/quendel-machine-{os.getuid()}'
folder = pathlib.Path(os.environ.get('QUENDEL_MACHINE') or usual, 'interfaces', NAME)
hidden = folder.with_name('.' + NAME)
signal.signal(signal.SIGTERM, signal.default_int_handler)
meter, listener = Meter(), plug_in(folder, hidden)
threading.Thread(target=meter.run, daemon=True).start()

try:
    print('serving', folder, flush=True)

    while True:
        threading.Thread(target=serve, args=[meter, listener.accept()[0]], daemon=True).start()
except KeyboardInterrupt:
    meter.lock.acquire()  # for good: nothing is answered or written any more
    folder.rename(hidden)
    os.ftruncate(meter.section, 0)
    shutil.rmtree(hidden)
