#!/usr/bin/python3 -B
"""Compares the running program with a bare window of the toolkit that refreshes as much as often, and with other monitors,
all at once on one display, and tells how long device changes and the event window take: measure.py SECONDS [PEER...]

A ratio is the median of those of five spans of time. What costs is told by the kernel's own accounts of each thread.
"""

import pathlib
import statistics
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / 'tests/desktop'))

from desk import Desk, wait_until  # noqa: E402
from worlds import ask, click_button, start_driver, view_width  # noqa: E402

BUILD = ROOT / 'build/release'
BACKGROUND = 15, 15, 15  # of our windows
SPANS, STARTS = 5, 7
LOOKS = 4  # a second

PEERS = {'gkrellm': ['gkrellm', '--without-libsensors'],
         'xosview': ['xosview', '-xrm', 'xosview*cpuPriority: 2', '-xrm', 'xosview*memPriority: 2', '-xrm', 'xosview*loadPriority: 2'],
         'conky': ['conky', '-c', 'conky.conf']}


def start_simulator(desk, environment, *options):
    return start_driver(desk, [BUILD / 'drivers/simulator/quendel-simulator', *options], environment)


def wait_for_window(desk, title, ready=lambda window: True):
    return wait_until(f'"{title}" is there', lambda: next(filter(ready, desk.windows(title)), None))


def milliseconds_until(reached, action):
    begin = time.monotonic()
    action()
    reached()
    return (time.monotonic() - begin) * 1000


def account(program):
    """Nanoseconds of processor and context switches, of all threads that there are."""
    nanoseconds = switches = 0

    for thread in pathlib.Path(f'/proc/{program.pid}/task').iterdir():
        nanoseconds += int((thread / 'schedstat').read_text().split()[0])
        switches += sum(int(line.split()[1]) for line in (thread / 'status').read_text().splitlines() if 'ctxt' in line)

    return nanoseconds, switches


def memory(program):
    status = pathlib.Path(f'/proc/{program.pid}/status').read_text()
    return int(status.split('VmRSS:')[1].split()[0])


def spend(programs, seconds):
    """For each program, what each span cost: milliseconds of processor a minute, switches a second."""
    costs = {name: [] for name in programs}

    for _ in range(SPANS):
        before = {name: account(program) for name, program in programs.items()}
        begin = time.monotonic()
        time.sleep(seconds / SPANS)
        lasted = time.monotonic() - begin

        for name, program in programs.items():
            used, switches = (now - then for now, then in zip(account(program), before[name]))
            costs[name].append((used * 60e-6 / lasted, switches / lasted))

    return costs


def measure_start(desk, programs):
    """For each of the programs, by title, the milliseconds from its start to its painted window; by turns."""
    times = {title: [] for title in programs}

    def is_painted(window):
        return desk.picture(window, (5, 5, 1, 1)).getpixel((0, 0)) == BACKGROUND

    for _ in range(STARTS):
        for title, start in programs.items():
            started = []
            times[title].append(milliseconds_until(lambda: wait_for_window(desk, title, is_painted),
                                                   lambda: started.append(start())))
            started[0].interrupt()

    return {title: statistics.median(spans) for title, spans in times.items()}


def compare(desk, environment, devices, seconds, peers):
    simulator = start_simulator(desk, environment, '--interfaces', devices)
    width = view_width(devices)
    starters = {'Quendel': lambda: desk.start([BUILD / 'source/quendel'], environment),
                'Bare window': lambda: desk.start([BUILD / 'benchmarks/quendel-bare-window', width], environment)}
    starts = measure_start(desk, starters)
    programs = {title: start() for title, start in starters.items()}
    programs |= {peer: desk.start(PEERS[peer], environment, cwd=environment['HOME']) for peer in peers}

    for title in starters:
        wait_for_window(desk, title)

    desk.move_pointer(desk.windows('Quendel')[0], *desk.size)  # or the figure that it is on has its explanation shown
    time.sleep(5)  # until all have done what they do at their start
    costs = spend(programs, seconds)
    print(f'\n{f"{devices} devices":14} processor, ms/minute   switches/s   memory, KiB   start, ms   '
          'Quendel\'s processor against it')

    for name, program in programs.items():
        processor, switches = (statistics.median(column) for column in zip(*costs[name]))
        ratio = statistics.median(ours[0] / theirs[0] for ours, theirs in zip(costs['Quendel'], costs[name]))
        start = f'{starts[name]:.0f}' if name in starts else '-'
        print(f'{name:14} {processor:20.0f} {switches:12.0f} {memory(program):13} {start:>11} {ratio:12.2f}')

    print(f'start to painted window against the bare window: {starts["Quendel"] / starts["Bare window"]:.2f}, memory above '
          f'it: {memory(programs["Quendel"]) - memory(programs["Bare window"]):+} KiB')

    for program in programs.values():
        program.kill()

    simulator.kill()


def measure_changes(desk, environment):
    simulator = start_simulator(desk, environment, '--names', 'One,Two')
    ask(simulator, 'fill all 16384')
    program = desk.start([BUILD / 'source/quendel'], environment)
    window = wait_for_window(desk, 'Quendel')
    took = {'plug': [], 'unplug': []}

    for _ in range(7):
        for change, width in (('plug', view_width(3)), ('unplug', view_width(2))):
            took[change].append(milliseconds_until(
                lambda: wait_for_window(desk, 'Quendel', lambda it: it.bounds[2] == width),
                lambda: ask(simulator, f'{change} Three')))
            time.sleep(0.3)  # one change at a time

    opened = milliseconds_until(lambda: wait_for_window(desk, 'Event log'), lambda: click_button(desk, window, 'Events'))
    arrival, removal = (statistics.median(took[change]) for change in took)
    print(f'\nfrom the order to the column on screen:      {arrival:.0f} ms, {arrival * LOOKS / 1000:.2f} ticks of the view\n'
          f'from the order to the column gone:           {removal:.0f} ms, {removal * LOOKS / 1000:.2f} ticks of the view\n'
          f'from the click to the window, two full logs: {opened:.0f} ms, {4 * 16384} requests')
    program.kill()
    simulator.kill()


def main():
    seconds, peers = int(sys.argv[1]), sys.argv[2:]
    desk = Desk(managed=False, size=(2800, 1024))

    with tempfile.TemporaryDirectory() as home:
        environment = {'HOME': home, 'QUENDEL_MACHINE': f'{home}/machine',
                       'JUCE_FONT_PATH': '/usr/share/fonts/truetype/liberation'}
        settings = pathlib.Path(home) / '.gkrellm2/user-config'
        settings.parent.mkdir()
        settings.write_text(f'update_HZ {LOOKS}\n')
        (pathlib.Path(home) / 'conky.conf').write_text(
            f'conky.config = {{ update_interval = {1 / LOOKS}, own_window = true, own_window_type = "normal" }}\n'
            'conky.text = [[$cpu % $mem $uptime\n$processes $loadavg]]\n')

        try:
            compare(desk, environment, 2, seconds, peers)
            compare(desk, environment, 16, seconds, peers)
            measure_changes(desk, environment)
        finally:
            desk.close()


main()
