"""quendel-pipewire with a real PipeWire, and the built program beside it."""

import os
import pathlib
import re
import signal
import time

import pytest
from desk import Desk, wait_until
from studio import CLOCK_ADJUST, DEBUG_COUNTS, TALK_COMPLETE, Studio, missing, stall
from worlds import FIRST_PLACE, click_button

pytestmark = pytest.mark.skipif(bool(missing()), reason=f'not installed: {", ".join(missing())}')


@pytest.fixture
def studio(request):
    studio = Studio(request.config.getoption('--build').resolve())
    studio.start_pipewire()
    yield studio
    studio.end()


@pytest.fixture
def playing(studio):
    studio.play_to_main()
    return studio


def distances(events):
    """Microseconds between the sink's cycles."""
    times = [time for time, kind, _ in events if kind == TALK_COMPLETE]
    return [round((later - earlier) * 1e6) for earlier, later in zip(times, times[1:])]


def merge_late(periods, quantum=42667):
    """One 0 for each run of periods that are far from a quantum: pw-profiler has several rows, with other times, for a late
    cycle and those that catch up."""
    far = [abs(period - quantum) > quantum // 3 for period in periods]
    return [0 if now else period for period, now, before in zip(periods, far, [False, *far]) if not (now and before)]


def contains(whole, part):
    """Whether one list of microseconds is part of another, but for rounding."""
    return any(all(abs(a - b) <= 1 for a, b in zip(part, whole[start:])) for start in range(len(whole) - len(part) + 1))


def test_every_cycle_is_that_of_pw_profiler(playing):
    log = playing.home / 'profile.log'
    profiler = playing.start('pw-profiler', '-o', log)
    count = playing.main.playback()[0]
    wait_until('four seconds of cycles', lambda: playing.main.playback()[0] > count + 96)
    profiler.interrupt()

    # It must not compete with the audio.
    threads = map(int, os.listdir(f'/proc/{playing.driver.pid}/task'))
    assert {os.sched_getscheduler(thread) for thread in threads} == {os.SCHED_OTHER}

    # The first line is about a time before it started.
    rows = [int(line.split('\t')[0]) for line in log.read_text().splitlines()][1:]
    periods = merge_late([period for period in rows if period > 0])  # 0 repeats that a cycle was late
    assert len(periods) > 48
    wait_until('all of them are logged here as well',
               lambda: contains(merge_late(distances(playing.main.events())), periods))
    logged = distances(playing.main.events())
    _, average, longest = playing.main.playback()
    assert abs(average - sum(logged) / len(logged) / 1e6) < average / 100
    assert longest >= max(logged) / 1e6 - 1e-6


def test_a_client_that_stalls_makes_an_xrun(playing):
    start = time.monotonic()
    underruns = playing.stall_player()
    xruns = [(when, number) for when, kind, number in playing.main.events() if kind == DEBUG_COUNTS]
    assert [number for _, number in xruns][:underruns] == list(range(1, underruns + 1))
    assert any(start < when < time.monotonic() for when, _ in xruns)
    assert playing.main.counters()[0] == 0


def test_late_clients_of_a_firewire_device_are_named_and_charged_to_their_side(studio):
    studio.make_firewire()
    studio.make_sink('Other')
    studio.measure('--clients')
    studio.wait_for_names('Fake')
    studio.play('Fake-Out')
    studio.record('Fake-In')
    studio.wait_for_names('Fake', *('client' for _ in range(2)))
    fake = studio.open('Fake')
    player, recorder = ('underrun', str(studio.player.pid)), ('overflow', str(studio.recorder.pid))

    # While the player is stopped the sink, which follows, is never triggered.
    underruns, overflows = fake.counters()[1], fake.counters()[0]
    stall(studio.player, lambda: fake.counters()[1] > underruns + 20)
    stall(studio.recorder, lambda: fake.counters()[0] > overflows + 20)
    wait_until('the clients are named', lambda: min(map(studio.xruns().count, (player, recorder))) > 20)

    # A busy machine can make more xruns, but never on another side.
    assert set(studio.xruns()) == {player, recorder}
    clients = [studio.open(f'client#pw-cat_({process})').counters() for _, process in (player, recorder)]
    assert all(overflows == 0 and underruns > 20 for overflows, underruns, *_ in clients)

    # Source and sink begin at once.
    count = fake.playback()[0]
    wait_until('cycles', lambda: fake.playback()[0] > count + 20)
    assert not fake.has_offset()


def test_hardware_tells_of_its_clock_and_its_xruns(studio):
    studio.make_firewire('clock')
    studio.measure()
    studio.wait_for_names('Fake')
    studio.play('Fake-Out')
    fake = studio.open('Fake')
    wait_until('cycles', lambda: fake.playback()[0] > 20)
    assert fake.stream() == (48000, 960)
    assert fake.playback()[1] == pytest.approx(0.02, rel=0.05)
    assert fake.counters()[2] == 256
    assert 1000100 in [parameter for _, kind, parameter in fake.events() if kind == CLOCK_ADJUST]
    wait_until('an xrun in every second', lambda: fake.counters()[0] >= 3)


def test_quantum_and_rate_are_followed(playing):
    for quantum, rate in (1024, 48000), (2048, 44100):
        playing.set('quantum', quantum)
        playing.set('rate', rate)
        wait_until(f'{quantum} frames at {rate} Hz', lambda: playing.main.stream() == (rate, quantum))
        playing.main.reset()

        def have_that_length():
            number, average, _ = playing.main.playback()
            return number > 24 and average == pytest.approx(quantum / rate, rel=0.05)

        wait_until('cycles of that length', have_that_length)


def test_devices_and_pipewire_come_and_go(playing):
    playing.make_sink('Other')
    playing.wait_for_names('Main', 'Other')
    playing.run('pw-cli', 'destroy', 'Other')
    playing.wait_for_names('Main')
    playing.stop_pipewire()
    playing.wait_for_names()
    playing.start_pipewire()
    playing.make_sink('Main')
    playing.wait_for_names('Main')
    playing.driver.process.send_signal(signal.SIGTERM)
    assert playing.driver.wait_for_exit() == 0
    assert not playing.machine.exists()


def test_only_what_is_asked_for_is_served(studio):
    studio.make_sink('Main', 'media.class=Audio/Sink node.group=both')
    studio.make_sink('Other')
    studio.measure('--device', 'Other (null)')
    studio.wait_for_names('Other')
    studio.driver.interrupt()

    # None of them is on a FireWire bus. That neither "Main3" nor "nobody" is served shows once the others are.
    studio.measure('--device', 'Main', '--device', 'Main2', '--device', 'nobody')
    studio.wait_for_words('no device is called "nobody"')
    studio.make_sink('Main2', 'media.class=Audio/Source/Virtual node.group=both')
    studio.make_sink('Main3')
    studio.wait_for_names('both')
    studio.driver.interrupt()
    studio.measure()
    studio.wait_for_words('no FireWire device')


def test_what_is_missing_is_said(studio):
    studio.stop_pipewire()
    studio.measure()
    studio.wait_for_words('waiting for PipeWire')
    configuration = pathlib.Path('/usr/share/pipewire/pipewire.conf').read_text()
    mine = studio.home / 'pipewire.conf'
    mine.write_text(configuration.replace('module-profiler', 'module-link-factory'))  # a module that may be loaded twice
    studio.start_pipewire('-c', mine)
    studio.wait_for_words('profiler module is not loaded')


def test_the_program_shows_and_reports_it(playing):
    underruns = playing.stall_player()
    desk = Desk(True)

    try:
        program = desk.start([playing.build / 'source/quendel'], playing.environment)
        view = desk.wait_for_window('Quendel')
        wait_until('the view is where it belongs', lambda: view.bounds[:2] == FIRST_PLACE)
        report = playing.home / 'Documents/Quendel report.txt'
        figures = re.compile(r'\nMain \(null\)\n.*Playback count: +[1-9].*Underruns: +(\d+)', re.DOTALL)

        def save():
            click_button(desk, view, 'Save')
            desk.wait_for_window('Quendel', [view])
            desk.press('Return')
            desk.wait_until_gone('Quendel', [view])
            return report.read_text()

        reported = wait_until('a report with figures', lambda: figures.search(save()))
        assert underruns <= int(reported[1]) <= playing.main.counters()[1]
        playing.driver.interrupt()
        assert program.wait_for_exit() == 0
    finally:
        desk.close()
