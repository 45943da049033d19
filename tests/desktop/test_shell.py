"""Start, end, keyboard and place of the main window."""

import signal

import pytest
from desk import contrast, wait_until
from worlds import BUTTONS, BUTTONS_Y, SAVE_DIALOG, VIEW_HEIGHT, VISIBLE
from Xlib import X

LINUX = pytest.mark.only_in('bare', 'openbox', why='Windows has windows, signals and displays of its own kind')


def expect_reset(world, resets):
    wait_until('a reset', lambda: world.counts('Alpha')['clear-counters'] >= resets)

    # A key that does nothing gives a stray click the time to show.
    world.press('a')
    world.wait_for_looks('Alpha')

    for device in 'Alpha', 'Beta':
        counts = world.counts(device)
        assert (counts['reset-statistics'], counts['clear-counters']) == (resets, resets), device


def test_return_resets_once_and_escape_quits_whatever_was_clicked(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 50')
    resets = 0

    for button in None, 'Reset', 'Save', 'Events':
        world.start()

        if button == 'Reset':
            world.click_button(button)
            resets += 1
            expect_reset(world, resets)
        elif button == 'Save':
            world.save_statistics()
        elif button == 'Events':
            world.open_events()
            world.close('Event log', 'Escape')

        for key in 'Return', 'KP_Enter':
            world.press(key)
            resets += 1
            expect_reset(world, resets)

        world.quit()


@pytest.mark.parametrize('key', ['space', 'Return'])
def test_tab_shows_and_reaches_every_button(world, key):
    world.start('Alpha', 'Beta', events=50)

    def look(button):
        area = BUTTONS[button] * 490 // 4 - 35, BUTTONS_Y - 13, 70, 26
        world.picture(*area)
        return world.desk.picture(world.view, area)

    def tab_to(button):
        before = look(button)
        world.press('Tab')
        wait_until(f'"{button}" is marked', lambda: contrast(before, look(button)) >= VISIBLE)

    tab_to('Save')
    world.press(key)
    world.wait_for_box()
    world.close('Quendel', 'Return')
    assert (world.documents / 'Quendel report.txt').exists()

    # The keyboard stayed where it was, and nothing was reset.
    tab_to('Reset')
    world.press('a')
    world.wait_for_looks('Alpha')
    assert world.counts('Alpha')['reset-statistics'] == 0
    world.press(key)
    expect_reset(world, 1)
    tab_to('Events')
    world.press(key)
    world.desk.wait_for_window('Event log')
    world.close('Event log', 'Escape')

    # After a click Return is "Reset" again.
    world.click_button('Reset')
    expect_reset(world, 2)
    world.press('Return')
    expect_reset(world, 3)


def test_a_key_counts_only_in_the_window_where_it_was_pressed(world):
    world.start('Alpha', 'Beta')
    world.click_button('Save')
    world.wait_for_box()

    def hold(key, title):
        """Holds a key for longer than the window with this title is there."""

        def wait_for_repeats():
            world.desk.wait_until_gone(title, [world.view])
            world.wait_for_looks('Alpha', 8)

        world.desk.hold(key, wait_for_repeats)
        world.press('a')
        world.wait_for_looks('Alpha')

    hold('Return', 'Quendel')
    assert world.counts('Alpha')['reset-statistics'] == 0
    world.press('Return')
    expect_reset(world, 1)
    world.open_events()
    hold('Escape', 'Event log')


def test_tells_about_itself_in_both_windows(world):
    world.start('Alpha')
    world.press('F1')
    said = world.read_box(world.wait_for_box())
    world.close('Quendel', 'Return')
    events = world.open_events()
    world.press('F1')
    assert world.read_box(world.desk.wait_for_window('Quendel', [world.view])) == said
    world.press('Escape')
    world.desk.wait_until_gone('Quendel', [world.view])
    assert world.desk.wait_for_window('Event log') == events


# ----------------------------------------------------------------------------------------------------------------
def test_comes_back_where_it_was_left(world):
    world.start('Alpha', 'Beta')
    world.wait_for_columns(2)

    # For the first 300 ms in its frame the program puts the window back where it belongs.
    world.wait_for_looks('Alpha', 8)
    world.desk.move(world.view, 300, 200)
    wait_until('the view has moved', lambda: world.view.bounds[0] >= 300)
    place = world.view.bounds[:2]
    world.wait_for_looks('Alpha')
    world.quit()
    assert world.stored() == place

    # The same holds when it is quit before that time is over.
    for start in [world.start] * 3 + [world.launch] * 3:
        start()
        world.quit()
        assert world.stored() == place


@LINUX
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
    world.store('abc', 77)
    world.start('Alpha')
    world.wait_for_place((0, 77))
    world.desk.press('alt+F4')
    world.expect_exit()
    assert world.stored() == (0, 77)


@LINUX
@pytest.mark.parametrize('number', [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_quits_in_order(world, number):
    world.store(300, 200)
    world.start('Alpha')
    world.open_events()
    world.file.unlink()
    world.program.process.send_signal(number)
    world.expect_exit()
    assert world.stored() == (300, 200)


@pytest.mark.only_in('openbox', why='a window manager wants to know what windows are, and asks them to close')
def test_each_window_says_what_it_is_and_keeps_the_one_behind_it_from_closing(world):
    """The window it belongs to, its fixed size, and its icon."""
    world.start('Alpha')

    def expect_to_belong(window, blocked):
        assert window.resource.get_wm_transient_for().id == blocked.resource.id

    def expect_open_behind(window, blocked):
        expect_to_belong(window, blocked)
        world.desk.ask_to_close(blocked)
        world.wait_for_looks('Alpha')
        assert world.desk.has_keyboard(window)

    def expect_one_size(window):
        hints = window.resource.get_wm_normal_hints()
        sizes = [(getattr(hints, f'{end}_width'), getattr(hints, f'{end}_height')) for end in ('min', 'max')]
        assert sizes == [window.bounds[2:]] * 2

    def expect_icon(window):
        icon = window.resource.get_full_property(world.desk.display.intern_atom('_NET_WM_ICON'), X.AnyPropertyType)
        width, height = icon.value[:2]
        assert len(icon.value) == 2 + width * height
        assert {0xff0f0f0f, 0xff00c800, 0xffffffff} <= set(icon.value[2:])

    def close(window):
        world.wait_for_looks('Alpha')
        assert world.desk.wait_for_window(window.title) == window
        world.desk.ask_to_close(window)

    expect_one_size(world.view)
    expect_icon(world.view)
    world.plug('Beta')
    world.wait_for_columns(2)
    expect_one_size(world.view)
    world.click_button('Save')
    box = world.wait_for_box()
    expect_open_behind(box, world.view)
    expect_one_size(box)
    world.close('Quendel', 'Return')
    events = world.open_events()
    expect_open_behind(events, world.view)
    expect_one_size(events)
    expect_icon(events)
    (world.documents / 'mine.txt').touch()
    dialog = world.open_save_dialog(events)
    expect_open_behind(dialog, events)
    world.name_file('mine.txt')
    expect_to_belong(world.wait_for_question(), dialog)
    world.answer(False)
    world.wait_for_save_dialog()
    world.press('Escape')
    world.desk.wait_until_gone(SAVE_DIALOG)
    close(events)
    world.desk.wait_until_gone('Event log')
    close(world.view)
    world.expect_exit()


def test_says_that_there_is_no_device(world):
    world.program = world.run()
    box = world.desk.wait_for_window('Quendel')
    assert len(world.desk.windows()) == 1
    assert box.bounds[3] < 300
    world.press('Return')
    world.expect_exit()
    assert world.stored() is None


def test_runs_only_once(world):
    world.start('Alpha')
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


@pytest.mark.only_in('bare', why='Windows always has a display, and fonts')
@pytest.mark.parametrize('missing, variable, value', [('display', 'DISPLAY', ':59999'), ('display', 'DISPLAY', ''),
                                                      ('font', 'JUCE_FONT_PATH', '/nowhere')])
def test_says_what_is_missing(world, missing, variable, value):
    world.plug('Alpha')
    world.desk.environment[variable] = value
    program = world.run()
    assert program.wait_for_exit() == 1
    assert program.process.stdout.read() == b''
    errors = world.errors(program)
    assert missing in errors and errors.count('\n') == 1
    assert world.stored() is None
