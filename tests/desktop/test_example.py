"""The example of a driver, in the folder that the simulator serves as well."""

import subprocess

import pytest
from desk import wait_until
from studio import ISOC_Q_DPC, Interface
from worlds import ROOT


@pytest.mark.only_in('openbox', why='one of the two will do, and Windows has kernel drivers')
def test_the_example_measures_and_goes_and_leaves_the_others_alone(world):
    world.plug('Alpha')
    present = set(world.home.parent.glob('machine/**/*'))
    example = world.desk.start([ROOT / 'examples/wakeup.py'], world.environment, stdout=subprocess.PIPE)
    serving, folder = example.process.stdout.readline().decode().split()
    assert serving == 'serving', example.read_errors()
    world.start(asked='Alpha')
    world.wait_for_columns(2)
    wakeup = Interface(folder)
    assert wakeup.stream() == (48000, 480)
    wait_until('figures', lambda: wakeup.playback()[0] > 0)
    assert {kind for _, kind, _ in wakeup.events()} == {ISOC_Q_DPC}

    example.process.terminate()
    assert example.wait_for_exit() == 0 and example.read_errors() == ''
    world.wait_for_columns(1)
    assert set(world.home.parent.glob('machine/**/*')) == present
