"""Long and hard use. QUENDEL_STORM_ROUNDS says how often the program is started in the storm, 5 times if not set;
QUENDEL_ENDURANCE_MINUTES how long it is used, not at all if not set, by the sequence of QUENDEL_ENDURANCE_SEED."""

import os
import pathlib
import random
import threading
import time

import pytest
from desk import wait_until
from worlds import SAVE_DIALOG


@pytest.mark.timeout(0)  # as long as it was told to
@pytest.mark.only_in('bare', why='what makes the storm hard is the notifications, whatever shows the window')
def test_starts_and_stops_in_a_storm_of_changes(world):
    world.plug('Alpha')
    changes, calm = 0, threading.Event()

    def storm():
        nonlocal changes

        while not calm.is_set():
            name = f'S{changes % 5}'
            world.order(f'plug {name}')
            world.order(('kill ' if changes % 3 == 0 else 'unplug ') + name)
            changes += 1

    def can_hear():
        # A removal before there is a view ends the program as well.
        return not world.program.is_running() or any(map(world.desk.has_keyboard, world.desk.windows('Quendel')))

    thread = threading.Thread(target=storm)
    thread.start()

    try:
        for i in range(int(os.environ.get('QUENDEL_STORM_ROUNDS', 5))):
            world.program, enough = world.run(), changes + i % 7 * 50
            wait_until('some changes', lambda: changes >= enough)
            wait_until('the program can hear', can_hear)
            world.press('Escape')
            world.expect_exit()
    finally:
        calm.set()
        thread.join()


def take_sample(program):
    """What a process holds, and what it may hold more of after a long time."""
    process = pathlib.Path(f'/proc/{program.pid}')
    memory = next(int(line.split()[1]) for line in (process / 'status').open() if line.startswith('VmRSS'))
    return {('descriptors', 0): len(list((process / 'fd').iterdir())),
            ('threads', 0): len(list((process / 'task').iterdir())),
            ('mappings', 0): len((process / 'maps').read_text().splitlines()),
            ('memory KiB', 8192): memory}


class User:
    """Somebody who does this and that, while devices come, go, glitch and fail."""

    NAMES = 'ABCDEFG'

    def __init__(self, world, seed):
        self.world, self.random, self.present = world, random.Random(seed), set()
        self.restore()

    def plug(self, name):
        # A full log takes seconds to read, and nothing else happens meanwhile.
        self.world.plug(name)
        self.world.order(f'fill {name} 200')
        self.present.add(name)

    def restore(self):
        for name in set(self.NAMES) - self.present:
            self.plug(name)

    def change(self):
        name, what = self.random.choice(self.NAMES), self.random.randrange(6)

        if name not in self.present:
            self.plug(name)
        elif what < 2:
            self.world.order(f'{("unplug", "kill")[what]} {name}')
            self.present.remove(name)
        elif what == 2:
            self.world.order(f'rate {name} {self.random.choice((44100, 48000, 88200, 96000))}')
        elif what == 3:
            kinds = 'stream-status', 'read-counters', 'probe', 'event-entry'
            self.world.order(f'fail {name} {self.random.choice(kinds)} 3')
        else:
            self.world.order(f'glitch {name}')

    def look_at_events(self, saves):
        events = self.world.open_events()
        self.change()

        if saves:
            before = len(list(self.world.documents.iterdir()))
            self.world.open_save_dialog(events)
            self.world.press('Return')
            self.world.desk.wait_until_gone(SAVE_DIALOG)
            wait_until('a report', lambda: len(list(self.world.documents.iterdir())) > before)
            self.world.wait_until_saved('Watched', events)

        self.world.close('Event log', 'Escape')

    def act(self):
        what = self.random.randrange(8)

        if what == 0:
            self.look_at_events(self.random.randrange(3) == 0)
        elif what == 1:
            self.world.save_statistics()
        else:
            self.change()

        self.world.order(f'tick {self.random.randrange(1000)}')
        self.world.wait_for_looks('Watched', 1)


@pytest.mark.skipif('QUENDEL_ENDURANCE_MINUTES' not in os.environ, reason='scripts/endurance runs it')
@pytest.mark.timeout(0)
@pytest.mark.only_in('openbox', why='one long time is enough')
def test_endures(world):
    user = User(world, os.environ.get('QUENDEL_ENDURANCE_SEED', '1'))
    user.plug('Watched')
    world.start()

    # Everything once, so that what is made on first use is there.
    world.save_statistics()
    user.look_at_events(True)

    # Four looks a second, as long as nothing happens.
    start, quiet = time.monotonic(), 20
    world.wait_for_looks('Watched', quiet * 4 * 95 // 100)
    assert time.monotonic() - start < quiet, 'looks are missing'
    samples, end = [], time.monotonic() + 60 * float(os.environ['QUENDEL_ENDURANCE_MINUTES'])

    while time.monotonic() < end or len(samples) < 4:
        for _ in range(20):
            user.act()

        # Each sample is of the same state: all interfaces there, no window open.
        user.restore()
        world.wait_for_columns(1 + len(user.NAMES))
        world.wait_for_looks('Watched', 6)
        samples.append(take_sample(world.program))

    quarter = len(samples) // 4
    grew = []
    print()

    for what in samples[0]:
        numbers = [sample[what] for sample in samples]
        print(f'{what[0]:<12} {numbers[0]:>9} {max(numbers):>9} {numbers[-1]:>9}')

        if min(numbers[-quarter:]) > max(numbers[:quarter]) + what[1]:
            grew.append(what[0])

    assert not grew
