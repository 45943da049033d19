"""Long and hard use. QUENDEL_STORM_ROUNDS says how often the program is started in the storm, 5 times if not set;
QUENDEL_ENDURANCE_MINUTES how long it is used, not at all if not set, by the sequence of QUENDEL_ENDURANCE_SEED."""

import os
import pathlib
import random
import threading
import time

import pytest
from desk import wait_until
from worlds import ask


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


NAMES = 'ABCDEFG'
CHANGES = ('plug {}', 'fill {} 200', 'unplug {}', 'kill {}', 'glitch {}', 'rate {} 96000', 'fail {} stream-status 3',
           'fail {} read-counters 3', 'fail {} probe 3', 'fail {} event-entry 3')


@pytest.mark.skipif('QUENDEL_ENDURANCE_MINUTES' not in os.environ, reason='scripts/endurance runs it')
@pytest.mark.timeout(0)
@pytest.mark.only_in('openbox', why='one long time is enough')
def test_endures(world):
    """Somebody does this and that, while devices come, go, glitch and fail."""
    choose = random.Random(os.environ.get('QUENDEL_ENDURANCE_SEED', '1')).choice

    # A full log takes seconds to read, and nothing else happens meanwhile.
    world.start('Watched', *NAMES, events=200)

    def change():
        """What is not possible just now is refused."""
        ask(world.orders, choose(CHANGES).format(choose(NAMES)))

    def look_at_events():
        events = world.open_events()
        change()
        world.save_events(events)
        world.wait_until_saved('Watched', events)
        world.close('Event log', 'Escape')

    samples, end = [], time.monotonic() + 60 * float(os.environ['QUENDEL_ENDURANCE_MINUTES'])

    while time.monotonic() < end or len(samples) < 4:
        for _ in range(20):
            choose([*6 * [change], world.save_statistics, look_at_events])()
            world.order(f'tick {choose(range(1000))}')
            world.wait_for_looks('Watched', 1)

        # Each sample is of the same state: all interfaces there, no window open.
        for name in NAMES:
            ask(world.orders, f'plug {name}')

        world.wait_for_columns(1 + len(NAMES))
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
