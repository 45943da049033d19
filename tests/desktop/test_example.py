"""The example of a driver, in the folder that the simulator serves as well."""

import re
import subprocess

import pytest
from desk import wait_until
from worlds import ROOT, SAVE_DIALOG


@pytest.mark.only_in('openbox', why='one of the two will do, and Windows has kernel drivers')
def test_the_example_measures_and_goes_and_leaves_the_others_alone(world):
    world.plug('Alpha')
    present = set(world.home.parent.glob('machine/**/*'))
    example = world.desk.start([ROOT / 'examples/wakeup.py'], world.environment, stdout=subprocess.PIPE)
    assert example.process.stdout.readline().startswith(b'serving '), example.read_errors()
    world.start('Alpha')
    world.wait_for_columns(2)

    figures = re.compile(r'\nWake-up\n.*Playback count: +[1-9].*\nAlpha\n', re.DOTALL)

    def report():
        world.save_statistics()
        return (world.documents / 'Quendel report.txt').read_text()

    wait_until('figures of it', lambda: figures.search(report()))
    events = world.open_events()
    world.open_save_dialog(events)
    world.press('Return')
    world.desk.wait_until_gone(SAVE_DIALOG)
    [log] = wait_until('a report', lambda: list(world.documents.glob('Quendel event log*')))
    wait_until('events of it', lambda: re.search(r',Wake-up:\d+,Isoc Q DPC\n', log.read_text()))
    world.wait_until_saved('Alpha', events)
    world.close('Event log', 'Escape')

    assert example.interrupt() == 0 and example.read_errors() == ''
    world.wait_for_columns(1)
    assert set(world.home.parent.glob('machine/**/*')) == present
