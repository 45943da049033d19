"""Both reports, byte for byte: the same files in every world."""

import datetime
import re

from desk import wait_until
from worlds import ROOT

GOLD = ROOT / 'tests/gold'
ROWS = 551, 58, 200, 400  # of the event window's "Event Name" column


def expect_gold(written, name):
    expected = (GOLD / name).read_bytes()
    assert written == expected, f'not {name}, but:\n{written.decode(errors="replace")}'


def without_date(report):
    return re.sub(rb'\n[1-9]\d? [A-Z][a-z]{2} \d{4} [1-9]\d?:\d\d:\d\d[ap]m\r\n', b'\nDATE\r\n', report)


def now():
    return datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)


def expect_time(text, start):
    """Between the start and now."""
    time = datetime.datetime.strptime(text.replace('_', ':') + ' +0000', '%d %b %Y %I:%M:%S%p %z')
    assert start <= time <= now()


def lines_in(file):
    """The number of lines; 0 while the file is being replaced."""
    try:
        return file.read_bytes().count(b'\n')
    except FileNotFoundError:
        return 0


def test_saves_the_statistics(world):
    report = world.documents / 'Quendel report.txt'
    world.plug('Alpha', 'Zwölf')
    world.order('buffer all 512')
    world.order('glitch Alpha')
    world.order('tick 1000')
    world.start()

    # The second device has no DSP, the third no FPGA.
    saved = world.save_statistics()
    world.plug('Gamma')
    world.order('tick 1234')
    world.wait_for_columns(3)
    world.wait_for_looks('Gamma')

    def reads_beside_ticks():
        """How often the newest device's firmware was asked outside of ticks; one more while a tick is halfway."""
        counts = world.counts('Gamma')
        return counts['read-counters'] - counts['stream-status']

    reads_before = reads_beside_ticks()
    start = now()
    assert world.save_statistics() == saved
    expect_time(re.findall(rb'report\r\n(.*)\r', report.read_bytes())[-1].decode(), start)
    expect_gold(without_date(report.read_bytes()), 'desktop-statistics.txt')

    # Two ways in which a file cannot be written.
    report.unlink()
    report.mkdir()
    failed = world.save_statistics()
    assert failed != saved
    assert not list(report.iterdir())
    report.rmdir()
    world.documents.rmdir()
    assert world.save_statistics() == failed
    assert not world.documents.exists()
    assert reads_beside_ticks() - reads_before in (2, 3, 4)


def test_saves_the_events(world):
    world.start('Alpha', 'Zwölf', events=300)
    events = world.open_events()

    def wait_for_report(file):
        lines = 600 if file.name == 'all.txt' else 300
        wait_until('a whole report', lambda: lines_in(file) == lines)
        world.wait_until_saved('Alpha', events)
        return file.read_bytes()

    # Saved under the proposed name, in order of time.
    start = now()
    proposed = world.save_events(events)
    when = re.fullmatch(r'Quendel event log ([1-9]\d? [A-Z][a-z]{2} \d{4} [1-9]\d?_\d\d_\d\d[ap]m)\.txt', proposed.name)
    expect_time(when[1], start)
    expect_gold(wait_for_report(proposed), 'desktop-events.txt')

    # A click on a header also sorts what is saved. Replacing a file needs an answer.
    world.wait_for_change(lambda: world.desk.click(events, 651, 44), *ROWS, window=events)
    mine = world.documents / 'mine.txt'
    mine.write_bytes(b'precious')
    world.open_save_dialog(events)
    world.name_file('mine.txt')
    world.wait_for_question()
    world.answer(False)
    world.wait_for_save_dialog()
    assert mine.read_bytes() == b'precious'
    world.press('Return')
    world.wait_for_question()
    assert mine.read_bytes() == b'precious'
    world.answer(True)
    expect_gold(wait_for_report(mine), 'desktop-events-by-name.txt')

    # Both devices' events in one order of time. Return does not cancel.
    world.wait_for_change(lambda: world.desk.click(events, 158, 15), *ROWS, window=events)
    world.open_save_dialog(events)
    world.name_file('all.txt')
    expect_gold(wait_for_report(world.documents / 'all.txt'), 'desktop-events-aggregate.txt')
