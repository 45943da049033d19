"""The event window: tabs, order of the rows, closing."""

import pytest
from desk import contrast, wait_until
from worlds import SAVE_DIALOG, VISIBLE

ROWS = 401, 58, 350, 400  # of the columns "Param" and "Event Name"


def test_headers_sort_and_tabs_show_another_table(world):
    world.start('Alpha', 'Beta', events=60)
    events = world.open_events()
    assert events.bounds[2:] == (800, 600)

    def change(action):
        return world.wait_for_change(action, *ROWS, window=events)

    by_time = world.picture(*ROWS, window=events)
    change(lambda: world.desk.click(events, 651, 44))
    assert change(lambda: world.desk.click(events, 150, 44)) == by_time

    # The keyboard goes round all tabs and back.
    for key in 'ctrl+Next', 'ctrl+Tab':
        change(lambda: world.press(key))

    shown = change(lambda: world.press('ctrl+Next'))

    for key in 'ctrl+Prior', 'ctrl+shift+Tab':
        change(lambda: world.press(key))

    assert change(lambda: world.press('ctrl+Prior')) == shown

    # New events are shown when the window is opened again.
    world.order('fill all 50')
    assert world.picture(*ROWS, window=events) == shown
    world.close('Event log', 'Escape')
    assert world.picture(*ROWS, window=world.open_events()) != by_time


def test_pointing_explains(world):
    """At a label, a time, a name and an event."""
    world.start('Alpha')
    world.order('tick 1000')

    for x, y in (60, 140), (240, 140), (240, 100):
        world.wait_for_change(lambda: world.desk.move_pointer(world.view, x, y), 20, 92, 300, 500)

    events = world.open_events()
    world.wait_for_change(lambda: world.desk.move_pointer(events, 300, 100), *ROWS, window=events)


def test_every_part_has_its_key_and_a_mark_that_is_seen(world):
    world.start('Alpha', 'Beta', events=60)
    world.press('Tab', 'Tab', 'Tab', 'space')
    events = world.wait_for_events()
    tab, table, button = (0, 0, 80, 30), (0, 30, 790, 522), (355, 564, 90, 26)

    def look(area):
        world.picture(*area, window=events)
        return world.desk.picture(events, area)

    shown = look(tab)

    for key in 'Down', 'ctrl+Next', '6':
        world.wait_for_change(lambda: world.press(key), *ROWS, window=events)

    assert contrast(shown, look(tab)) >= VISIBLE
    with_keyboard, without = look(table), look(button)
    world.press('Tab')
    wait_until('the button is marked', lambda: contrast(without, look(button)) >= VISIBLE)
    assert contrast(with_keyboard, look(table)) >= VISIBLE
    marked = look(button)

    # After the first dialog the button has the keyboard again.
    for _ in range(2):
        world.press('space')
        world.wait_for_save_dialog()
        world.press('Escape')
        world.desk.wait_until_gone(SAVE_DIALOG)
        assert world.desk.wait_for_window('Event log') == events
        wait_until('the button has the keyboard', lambda: look(button) == marked)

    assert list(world.documents.iterdir()) == []


@pytest.mark.only_in('openbox', why='only a window manager changes the order of windows, and Windows has its own dialog')
def test_the_save_dialog_stays_in_front(world):
    world.start('Alpha', events=50)
    events = world.open_events()
    mine = world.documents / 'mine.txt'
    mine.write_bytes(b'precious')

    # Holding Return does not answer the question.
    dialog = world.open_save_dialog(events)
    world.press('ctrl+a')
    world.desk.type('mine.txt')

    def wait_for_repeats():
        world.wait_for_question()
        world.wait_for_looks('Alpha', 8)

    world.desk.hold('Return', wait_for_repeats)
    question = world.wait_for_question()

    def expect_order(*windows):
        """The windows are in this order from the front, which has the keyboard, whichever one behind is clicked."""
        for blocked in windows[1:]:
            for y in 20, -10:
                world.desk.click(blocked, 200, y)
                world.wait_for_looks('Alpha')
                assert world.desk.wait_for_window(windows[0].title) == windows[0]
                assert all(map(world.desk.is_above, windows, windows[1:]))

    expect_order(question, dialog, events, world.view)
    world.answer(False)
    assert world.wait_for_save_dialog() == dialog
    expect_order(dialog, events)

    # The name has kept the keyboard: what is typed there is saved.
    world.name_file('yours.txt')
    wait_until('a report', (world.documents / 'yours.txt').exists)
    world.wait_until_saved('Alpha', events)
    assert mine.read_bytes() == b'precious'


@pytest.mark.only_in('bare', 'openbox', why='Windows has pointers of its own')
def test_pointer_tells_of_the_reading(world):
    world.start('Alpha', 'Beta', 'Gamma', events=16384)
    world.desk.move_pointer(world.view, 300, 300)
    world.wait_for_looks('Alpha')
    usual = world.desk.pointer()
    world.press('Tab', 'Tab', 'Tab', 'space')
    wait_until('another pointer', lambda: world.desk.pointer() != usual)
    world.desk.wait_for_window('Event log')
    world.close('Event log', 'Escape')
    world.desk.move_pointer(world.view, 301, 300)
    wait_until('the usual pointer', lambda: world.desk.pointer() == usual)
