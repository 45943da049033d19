"""Start, end, keyboard and place of the main window."""

import pytest
from desk import wait_until
from worlds import VIEW_HEIGHT


def expect_reset(world, resets):
    wait_until('a reset', lambda: world.counts('Alpha')['clear-counters'] >= resets)

    # A key that means nothing, for a click that was left over to show itself.
    world.press('a')
    world.wait_for_looks('Alpha')

    for device in 'Alpha', 'Beta':
        counts = world.counts(device)
        assert (counts['reset-statistics'], counts['clear-counters']) == (resets, resets), device


def click_and_close(world, button):
    """Clicks a button and closes with a key what it opens."""
    if button == 'Save':
        world.save_statistics()
    elif button == 'Events':
        world.open_events()
        world.close('Event log', 'Escape')
    else:
        world.click_button(button)


def test_return_resets_once_whatever_was_clicked(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 50')
    world.start()
    resets = 0

    for button in None, 'Reset', 'Save', 'Events':
        if button:
            click_and_close(world, button)

        if button == 'Reset':
            resets += 1
            expect_reset(world, resets)

        world.press('Return')
        resets += 1
        expect_reset(world, resets)


def test_escape_quits_whatever_was_clicked(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 50')
    world.launch()
    world.quit()

    for button in 'Reset', 'Save', 'Events':
        world.start()
        click_and_close(world, button)

        if button == 'Reset':
            expect_reset(world, 1)

        world.quit()


def test_tab_and_space_reach_every_button(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 50')
    world.start()
    world.press('Tab', 'space')
    world.wait_for_box()
    world.close('Quendel', 'Return')
    assert (world.documents / 'Quendel report.txt').exists()
    world.quit()

    world.start()
    world.press('Tab', 'Tab', 'space')
    expect_reset(world, 1)
    world.press('Tab', 'space')
    world.desk.wait_for_window('Event log')
    world.close('Event log', 'Escape')


# ----------------------------------------------------------------------------------------------------------------
def test_comes_back_where_it_was_left(world):
    world.plug('Alpha', 'Beta')
    world.start()
    world.wait_for_columns(2)

    # While it settles in its frame the program puts it back where it belongs: 15 ticks of a timer of 20 ms.
    world.wait_for_looks('Alpha', 8)
    world.desk.move(world.view, 300, 200)
    wait_until('the view has moved', lambda: world.view.bounds[0] >= 300)
    place = world.view.bounds[:2]
    world.wait_for_looks('Alpha')
    world.quit()
    assert world.stored() == place

    for _ in range(3):
        world.start()
        world.wait_for_place(place)
        world.quit()
        assert world.stored() == place

    # Before it has settled in its frame.
    for _ in range(3):
        world.launch()
        world.quit()
        assert world.stored() == place


@pytest.mark.only_in('bare', 'openbox', why='there a display has any size')
@pytest.mark.display(1024, 600)
def test_everything_fits_on_a_low_display(world):
    world.plug('Alpha', 'Beta')

    for stored, place in (None, (51, 30)), (None, (51, 30)), ((99, 31), (99, 31)):
        if stored:
            world.store(*stored)

        world.launch()
        world.wait_for_place(place)
        x, y, width, height = world.view.bounds
        assert y + height + world.desk.frame(world.view)[3] <= 600
        assert abs(width / height - 490 / VIEW_HEIGHT) < 0.01

        world.click_button('Events')
        events = world.desk.wait_for_window('Event log').bounds
        assert events[1] + events[3] <= 600
        world.close('Event log', 'Escape')
        world.quit()
        assert world.stored() == place


@pytest.mark.only_in('openbox', 'wine', why='without a window manager nobody knows the key')
def test_the_window_managers_close_quits(world):
    world.plug('Alpha')
    world.store('abc', 77)
    world.start()
    world.wait_for_place((0, 77))
    world.desk.press('alt+F4')
    world.expect_exit()
    assert world.stored() == (0, 77)


def test_says_that_there_is_no_device(world):
    world.program = world.run()
    box = world.desk.wait_for_window('Quendel')
    assert len(world.desk.windows()) == 1
    assert box.bounds[3] < 300
    world.press('Return')
    world.expect_exit()
    assert world.stored() is None


def test_runs_only_once(world):
    world.plug('Alpha')
    world.start()
    opens = world.counts('Alpha')['open']

    second = world.run()
    assert second.wait_for_exit() == 0
    assert world.errors(second) == ''
    world.wait_for_looks('Alpha')
    assert world.counts('Alpha')['open'] == opens
    assert world.desk.windows() == [world.view]

    world.program.kill()
    world.desk.wait_until_gone('Quendel')
    world.start()


@pytest.mark.only_in('bare', why='Windows always has a display')
def test_says_that_there_is_no_display(world):
    world.plug('Alpha')
    world.desk.environment['DISPLAY'] = ':59999'
    program = world.run()
    assert program.wait_for_exit() == 1
    assert program.process.stdout.read() == b''
    errors = world.errors(program)
    assert 'display' in errors and errors.count('\n') == 1
    assert world.stored() is None
