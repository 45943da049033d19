"""Long and hard use. QUENDEL_STORM_ROUNDS says how often the program is started in the storm, 5 times if not set."""

import os
import threading

import pytest


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

    def has_ended():
        # A removal before there is a view ends the program as well.
        world.press('Escape')
        return not world.program.is_running()

    thread = threading.Thread(target=storm)
    thread.start()

    try:
        for i in range(int(os.environ.get('QUENDEL_STORM_ROUNDS', 5))):
            world.program, enough = world.run(), changes + i % 7 * 50
            world.wait_until('some changes', lambda: changes >= enough)
            world.wait_until('the program ends', has_ended)
            world.expect_exit()
    finally:
        calm.set()
        thread.join()
