"""A PipeWire without hardware or desktop: null devices, a player, and quendel-pipewire, which measures them."""

import itertools
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import wave

from desk import PATIENCE, Screen, wait_until

NEEDED = 'pipewire', 'wireplumber', 'dbus-daemon', 'pw-cli', 'pw-cat', 'pw-metadata', 'pw-profiler', 'pw-top'
TICKS = 10_000_000  # a second

TALK_COMPLETE, ISOC_Q_DPC, CLOCK_ADJUST, DEBUG_COUNTS = 9, 14, 17, 23
NO_ENTRY = 0xFFFFFFFF


def missing():
    """The needed programs that are not installed."""
    return [name for name in NEEDED if not shutil.which(name)]


class Interface:
    """One device interface in the machine folder, and a connection to its driver."""

    def __init__(self, folder):
        descriptor = os.open(folder, os.O_PATH)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(f'/proc/self/fd/{descriptor}/driver')
        os.close(descriptor)
        self.section = self._command(7)[1][0]

    def _command(self, code, parameter=0):
        self.socket.send(struct.pack('<8I40x', 0x1D2008, 64, 0, 0, code, parameter, 0, 0))
        reply, descriptors, *_ = socket.recv_fds(self.socket, 100, 1)
        assert len(reply) == 68 and reply[:4] == bytes(4), reply
        return reply[4:], descriptors

    def stream(self):
        """Sample rate and buffer size."""
        return struct.unpack_from('<8xIxxxxI', self._command(3)[0], 12)

    def reset(self):
        self._command(8)

    def counters(self):
        """Overflows, underruns, FIFO level and sync count."""
        self.socket.send(struct.pack('<2I23I', 0x1D2004, 92, 0, 22, 0, 0, 0, 4, *[0] * 17))
        reply = self.socket.recv(200)
        return [struct.unpack_from('<I', reply, 4 + offset)[0] for offset in (28, 32, 44, 52)]

    def playback(self):
        """Number of cycles, and their average and longest distance in seconds."""
        block = os.pread(self.section, 156, 0)
        average, longest = struct.unpack_from('<2q', block)
        return struct.unpack_from('<i', block, 124)[0], average / TICKS, longest / TICKS

    def has_offset(self):
        return struct.unpack_from('<2q', os.pread(self.section, 156, 0), 0x8C) != (-1 << 63, (1 << 63) - 1)

    def events(self):
        """The log: time in seconds, type and parameter of each."""
        entries = (struct.unpack_from('<2q2I', self._command(19, index)[0], 12) for index in range(16384))
        return [(time / rate, kind, parameter)
                for time, rate, kind, parameter in itertools.takewhile(lambda entry: entry[2] != NO_ENTRY, entries)]


def stall(client, has_shown):
    """Stops a client, so that PipeWire waits for it, until a condition holds."""
    client.process.send_signal(signal.SIGSTOP)
    wait_until('an xrun', has_shown)
    client.process.send_signal(signal.SIGCONT)


class Studio(Screen):
    def __init__(self, build):
        """build -- the folder that the programs were built in"""
        super().__init__()
        self.folder = tempfile.TemporaryDirectory(prefix='quendel-')
        root = pathlib.Path(self.folder.name)
        self.machine, self.runtime = root / 'machine', root / 'run'
        self.runtime.mkdir(mode=0o700)
        self.environment = {'XDG_RUNTIME_DIR': str(self.runtime), 'HOME': str(root / 'home'),
                            'DBUS_SESSION_BUS_ADDRESS': '', 'QUENDEL_MACHINE': str(self.machine), 'TZ': 'UTC',
                            'JUCE_FONT_PATH': '/usr/share/fonts/truetype/liberation'}
        (root / 'home/Documents').mkdir(parents=True)
        self.build, self.home = build, root / 'home'

        # The session manager needs a bus. dbus-run-session would leave one behind if it was killed.
        self.bus = self.runtime / 'bus'
        self.start('dbus-daemon', '--session', '--nofork', f'--address=unix:path={self.bus}')
        wait_until('the message bus listens', self.bus.exists)

        with wave.open(str(root / 'silence.wav'), 'wb') as file:
            file.setparams((2, 2, 48000, 0, 'NONE', ''))
            file.writeframes(bytes(4 * 48000 * 600))

    def end(self):
        self.close()
        self.folder.cleanup()

    def start(self, *command, **options):
        # pw-profiler writes files into its working folder.
        return super().start(command, cwd=self.home, **options)

    def run(self, *command):
        """Runs a program and expects it to succeed."""
        program = self.start(*command)
        assert program.wait_for_exit() == 0, program.read_errors()

    # ------------------------------------------------------------------------------------------------------------
    def start_pipewire(self, *options):
        self.server = self.start('pipewire', *options)
        wait_until('PipeWire listens', (self.runtime / 'pipewire-0').exists)
        self.manager = self.start('env', f'DBUS_SESSION_BUS_ADDRESS=unix:path={self.bus}', 'wireplumber')

    def stop_pipewire(self):
        for program in self.manager, self.server:
            program.process.send_signal(signal.SIGTERM)
            program.wait_for_exit()

    def make_sink(self, name, properties='media.class=Audio/Sink'):
        """A null device, or one of its nodes."""
        self.run('pw-cli', 'create-node', 'adapter',
                 '{ factory.name=support.null-audio-sink object.linger=true audio.position=[FL FR] '
                 f'node.name={name} node.description="{name} (null)" {properties} }}')

    def make_firewire(self, *clock):
        """A FireWire device "Fake" whose source drives and whose sink follows, as the session manager has it.

        clock -- an argument for a source with a clock of its own
        """
        device = self.start(self.build / 'tests/desktop/fake-device', *clock, stdout=subprocess.PIPE)
        mine = f'node.group=fake device.id={int(device.process.stdout.readline())}'
        self.make_sink('Fake-In', f'media.class=Audio/Source/Virtual priority.driver=3000 {mine}')
        self.make_sink('Fake-Out', f'media.class=Audio/Sink priority.driver=2000 {mine}')

    def play(self, sink):
        self.player = self.start('pw-cat', '-p', '--target', sink, pathlib.Path(self.folder.name) / 'silence.wav')

    def record(self, source):
        self.recorder = self.start('pw-cat', '-r', '--target', source, pathlib.Path(self.folder.name) / 'recorded.wav')

    def set(self, key, value):
        self.run('pw-metadata', '-n', 'settings', '0', f'clock.force-{key}', str(value))

    def measure(self, *options):
        self.journal = pathlib.Path(self.folder.name) / 'journal'

        with open(self.journal, 'w') as journal:
            self.driver = self.start(self.build / 'drivers/pipewire/quendel-pipewire', *options, stdout=journal)

        wait_until('quendel-pipewire serves', (self.machine / 'interfaces').exists)

    def xruns(self):
        """Side and process id of each client that was late so far."""
        return re.findall(r' Fake FireWire: (\w+), .* \(process (\d+)\) was (?:more than )?[0-9.]+ ms late\n',
                          self.journal.read_text())

    def wait_for_words(self, words):
        wait_until(f'quendel-pipewire says "{words}"', lambda: words in self.driver.read_errors())

    def play_to_main(self):
        """Makes a sink, plays to it and measures it."""
        self.make_sink('Main')
        self.measure('--all')
        self.wait_for_names('Main')
        self.play('Main')
        self.main = self.open('Main')
        wait_until('cycles', lambda: self.main.playback()[0] > 0)

    def stall_player(self):
        """Stalls the player until there is another underrun, and returns their number: a busy machine makes some, too."""
        before = self.main.counters()[1]
        stall(self.player, lambda: self.main.counters()[1] > before)
        return self.main.counters()[1]

    # ------------------------------------------------------------------------------------------------------------
    def wait_for_names(self, *names):
        """Waits until exactly these devices are served."""
        folders = (self.machine / 'interfaces').iterdir
        wait_until(f'the devices are {names}', lambda: sorted(names) == sorted(
            folder.name.split('#')[1] for folder in folders() if folder.name[0] != '.'))

    def open(self, name):
        return Interface(next((self.machine / 'interfaces').glob(f'pipewire#{name}#*')))
