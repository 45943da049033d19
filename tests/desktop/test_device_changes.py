"""Interfaces that come, go, fail and fall silent."""

import pytest
from worlds import FIRST_PLACE

NAME = 170, 92, 150, 18
SECOND_NAME = 320, 92, 150, 18
RATE = 170, 22, 112, 14


def test_follows_the_devices(world):
    world.start('Alpha', 'Beta')
    beta = world.picture(*NAME)

    # The newest is leftmost, and the sample rate is its own.
    world.plug('Gamma')
    world.wait_for_columns(3)
    world.wait_for_looks('Gamma')
    assert world.picture(*SECOND_NAME) == beta
    assert world.picture(*NAME) != beta
    assert world.counts('Gamma')['stream-status'] > 0
    world.wait_for_change(lambda: world.order('rate Gamma 96000'), *RATE)

    world.order('unplug Alpha')
    world.wait_for_columns(2)
    world.order('kill Gamma')
    world.wait_for_columns(1)
    world.wait_for_looks('Beta')
    assert world.picture(*NAME) == beta

    assert world.view.bounds[:2] == FIRST_PLACE
    world.order('unplug Beta')
    world.expect_exit()
    assert world.stored() == FIRST_PLACE


@pytest.mark.parametrize('opened', ['message', 'events', 'dialog', 'question'])
def test_ends_with_the_last_device_whatever_is_open(world, opened):
    world.start('Alpha', events=50)

    if opened == 'message':
        world.click_button('Save')
        world.wait_for_box()
    else:
        events = world.open_events()

    if opened in ('dialog', 'question'):
        world.open_save_dialog(events)

    if opened == 'question':
        (world.documents / 'mine.txt').write_bytes(b'precious')
        world.name_file('mine.txt')
        world.wait_for_question()

    world.order('kill all')
    world.expect_exit()
    assert world.stored() == FIRST_PLACE
    files = [file.read_bytes() for file in world.documents.iterdir()]
    assert files == [b'precious'] if opened == 'question' else len(files) == (opened == 'message')


def test_goes_on_when_a_driver_stops_answering(world):
    world.start('Alpha', 'Beta')

    # The newest is the one that is asked most.
    world.order('stop Beta')
    asked = world.looks('Beta')
    world.wait_for_looks('Alpha', 6)
    assert world.looks('Beta') <= asked + 1

    world.order('resume Beta')
    world.wait_for_looks('Beta', 6)
    world.order('stop all')
    world.quit()
    assert world.stored() == FIRST_PLACE


@pytest.mark.only_in('wine', why='only Windows asks before it takes a device away')
def test_a_query_for_removal_takes_only_a_device_that_is_dead(world):
    world.start('Alpha', 'Beta')
    world.order('notify query-remove Beta')
    world.wait_for_looks('Beta')
    world.order('fail Beta probe always')
    world.order('notify query-remove-failed Beta')
    world.wait_for_looks('Beta')
    world.wait_for_columns(2)
    world.order('notify query-remove Beta')
    world.wait_for_columns(1)
