"""Long use, for QUENDEL_ENDURANCE_MINUTES, or not at all; QUENDEL_ENDURANCE_SEED gives the sequence."""

import os
import pathlib
import random
import time

import pytest
from worlds import ask


def take_sample(program):
    """What a process holds, and how much more of it is allowed after a long time."""
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
    """A user does this and that while devices come, go, glitch and fail."""
    choose = random.Random(os.environ.get('QUENDEL_ENDURANCE_SEED', '1')).choice

    # A full log would take seconds to read, during which nothing else happens.
    world.start('Watched', *NAMES, events=200)

    def change():
        """Changes something about a device; an order that is impossible just now is refused."""
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
