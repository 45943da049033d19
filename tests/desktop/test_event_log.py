"""The event window: tabs, order of the rows, closing."""

import pytest
from desk import contrast, wait_until
from worlds import SAVE_DIALOG, VISIBLE

LINUX = pytest.mark.only_in('bare', 'openbox', why='Windows has its own save dialog, frames and pointers')
ROWS = 401, 58, 350, 400  # of the columns "Param" and "Event Name"
SAVE_BUTTON = 360, 567, 80, 20  # within the line that tells who has the keyboard


def test_headers_sort_and_tabs_show_another_table(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 60')
    world.start()
    events = world.open_events()
    assert events.bounds[2:] == (800, 600)

    def change(action):
        return world.wait_for_change(action, *ROWS, window=events)

    by_time = world.picture(*ROWS, window=events)
    change(lambda: world.desk.click(events, 651, 44))
    assert change(lambda: world.desk.click(events, 150, 44)) == by_time

    # Another tab and back, with the keyboard.
    change(lambda: world.press('ctrl+Next'))
    shown = change(lambda: world.press('ctrl+Prior'))

    # What is logged meanwhile is seen when the window is opened again.
    world.order('fill all 50')
    assert world.picture(*ROWS, window=events) == shown
    world.close('Event log', 'Escape')
    assert world.picture(*ROWS, window=world.open_events()) != by_time
    world.close('Event log', 'Escape')


def test_pointing_explains(world):
    """A label, a time and a name; an event."""
    world.plug('Alpha')
    world.order('tick 1000')
    world.start()

    for x, y in (60, 140), (240, 140), (240, 100):
        world.wait_for_change(lambda: world.desk.move_pointer(world.view, x, y), 20, 92, 300, 500)

    events = world.open_events()
    world.wait_for_change(lambda: world.desk.move_pointer(events, 300, 100), *ROWS, window=events)
    world.close('Event log', 'Escape')


def test_reads_each_log_to_its_end_and_no_further(world):
    world.plug('Alpha', 'Beta')
    world.order('fill Alpha 7')
    world.order('fill Beta 16384')
    world.start()
    world.open_events()
    world.wait_for_looks('Alpha')

    # Once for the device's own tab and once for "Aggregate"; one entry more says that there are none.
    assert world.counts('Alpha')['event-entry'] == 2 * 8
    assert world.counts('Beta')['event-entry'] == 2 * 16384
    world.close('Event log', 'Escape')


@LINUX
def test_every_part_has_its_key(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 60')
    world.start()
    world.press('Tab', 'Tab', 'Tab', 'space')
    events = world.wait_for_events()

    for key in 'Down', 'ctrl+Next', '6':
        world.wait_for_change(lambda: world.press(key), *ROWS, window=events)

    with_keyboard = world.wait_for_change(lambda: world.press('Tab'), *SAVE_BUTTON, window=events)

    # After the first dialog the button has the keyboard again.
    for _ in range(2):
        world.press('space')
        world.wait_for_save_dialog()
        world.press('Escape')
        world.desk.wait_until_gone(SAVE_DIALOG)
        assert world.desk.wait_for_window('Event log') == events
        wait_until('the button has the keyboard',
                   lambda: world.desk.picture(events, SAVE_BUTTON).tobytes() == with_keyboard)

    world.close('Event log', 'Escape')
    assert list(world.documents.iterdir()) == []


@pytest.mark.only_in('openbox', why='only a window manager changes the order of windows, and Windows has its own dialog')
def test_the_save_dialog_stays_in_front(world):
    world.plug('Alpha')
    world.order('fill Alpha 50')
    world.start()
    events = world.open_events()
    mine = world.documents / 'mine.txt'
    mine.write_bytes(b'precious')

    # A Return that is held is no answer to the question.
    dialog = world.open_save_dialog(events)
    world.press('ctrl+a')
    world.desk.type('mine.txt')

    def wait_for_repeats():
        world.wait_for_question()
        world.wait_for_looks('Alpha', 8)

    world.desk.hold('Return', wait_for_repeats)
    question = world.wait_for_question()

    def click(blocked, y):
        """The window manager sees to a click when it can, and the program to what that has done."""
        world.desk.click(blocked, 200, y)

        for _ in range(2):
            world.desk.wait_for_manager()
            world.wait_for_looks('Alpha')

    # Clicks in the window behind and on its title bar.
    for blocked in world.view, events, dialog:
        for y in 20, -10:
            click(blocked, y)
            assert world.desk.is_above(question, dialog) and world.desk.is_above(dialog, events)

    # The keyboard can be with the window that was clicked last.
    world.desk.click(question, 200, 20)
    world.answer(False)
    assert world.wait_for_save_dialog() == dialog
    world.desk.wait_for_manager()
    assert world.desk.is_above(dialog, events)

    for y in 20, -10:
        click(events, y)
        assert world.wait_for_save_dialog() == dialog
        assert world.desk.is_above(dialog, events)

    # The name has kept the keyboard: what is typed there is saved.
    world.name_file('yours.txt')
    wait_until('a report', (world.documents / 'yours.txt').exists)
    world.wait_until_saved('Alpha', events)
    assert mine.read_bytes() == b'precious'
    world.close('Event log', 'Escape')


def test_the_table_and_its_tab_are_marked(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 60')
    world.start()
    events = world.open_events()
    tab, table, button = (0, 0, 80, 30), (0, 30, 790, 522), (355, 564, 90, 26)

    def look(area):
        world.picture(*area, window=events)
        return world.desk.picture(events, area)

    with_keyboard, without = look(table), look(button)
    world.press('Tab')
    wait_until('the button is marked', lambda: contrast(without, look(button)) >= VISIBLE)
    assert contrast(with_keyboard, look(table)) >= VISIBLE
    shown = look(tab)
    world.press('ctrl+Next')
    wait_until('another tab is marked', lambda: contrast(shown, look(tab)) >= VISIBLE)
    world.close('Event log', 'Escape')


@pytest.mark.only_in('openbox', why='without a window manager nobody asks a window to close, and Windows asks none')
def test_closing_is_refused_behind_a_dialog(world):
    world.plug('Alpha')
    world.start()
    events = world.open_events()
    world.press('Tab', 'space')
    world.wait_for_save_dialog()
    world.desk.ask_to_close(events)
    world.press('Escape')
    world.desk.wait_until_gone(SAVE_DIALOG)
    assert world.desk.wait_for_window('Event log') == events
    world.wait_for_looks('Alpha')
    assert world.desk.windows('Event log') == [events]
    world.desk.ask_to_close(events)
    world.desk.wait_until_gone('Event log')


@LINUX
def test_pointer_tells_of_the_reading(world):
    world.plug('Alpha', 'Beta', 'Gamma')
    world.order('fill all 16384')
    world.start()
    world.desk.move_pointer(world.view, 300, 300)
    world.wait_for_looks('Alpha')
    usual = world.desk.pointer()
    world.press('Tab', 'Tab', 'Tab', 'space')
    wait_until('another pointer', lambda: world.desk.pointer() != usual)
    world.desk.wait_for_window('Event log')
    world.close('Event log', 'Escape')
    world.desk.move_pointer(world.view, 301, 300)
    wait_until('the usual pointer', lambda: world.desk.pointer() == usual)
