"""Runs the program beside a driver, which takes orders on standard input; the end of scripts/run.

Where there is no display it is on a virtual one for a few seconds, of which a picture is left.
"""

import math
import os
import pathlib
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / 'tests/desktop'))

from desk import Desk, Screen, wait_until  # noqa: E402
from worlds import WineSession, ask, start_driver  # noqa: E402

BUILD = ROOT / 'build/release'
PICTURE = ROOT / 'build/quendel.png'


def start_simulator(screen, environment):
    return start_driver(screen, [BUILD / 'drivers/simulator/quendel-simulator', '--interfaces', '2'], environment)


def start_pipewire(screen, environment):
    driver = screen.start([BUILD / 'drivers/pipewire/quendel-pipewire', '--all'], environment)
    interfaces = pathlib.Path(environment['QUENDEL_MACHINE']) / 'interfaces'
    print("Waiting for PipeWire's devices")
    wait_until('devices', lambda: not driver.is_running() or list(interfaces.glob('[!.]*')), math.inf)
    assert driver.is_running(), driver.read_errors()


def take_orders(driver):
    for line in sys.stdin:
        print(ask(driver, line.strip()), flush=True)

        if line.strip() == 'quit':
            break


def show(desk):
    """For long enough to see figures, and what orders did that came at once."""
    print('There is no display: running on a virtual one for a few seconds.')
    desk.wait_for_window('Quendel')
    time.sleep(4)
    seen = desk.picture()
    seen.crop(seen.getbbox()).save(PICTURE)
    print(f'Picture: {PICTURE}')


def start(screen, kind, folder):
    """The driver, if it takes orders, the program, and what ends them."""
    if kind == 'windows':
        session = WineSession(screen, ROOT / 'build/windows')
        session.install()

        for order in 'clock real', 'plug', 'plug':
            ask(session.remote, order)

        return session.remote, session.run(session.build / 'Quendel.exe'), session.end

    environment = {'QUENDEL_MACHINE': f'{folder}/machine'}
    driver = start_pipewire(screen, environment) if kind == 'pipewire' else start_simulator(screen, environment)
    return driver, screen.start([BUILD / 'source/quendel'], environment), screen.close


def main(kind):
    screen = Screen() if os.environ.get('DISPLAY') else Desk(True)

    with tempfile.TemporaryDirectory(prefix='quendel-') as folder:
        driver, program, end = start(screen, kind, folder)

        if driver:
            print('Orders, please, for example "plug Deck" or "glitch all"; "help" names them.', flush=True)
            threading.Thread(target=take_orders, args=[driver], daemon=True).start()

        try:
            if isinstance(screen, Desk):
                show(screen)
            else:
                program.process.wait()
        except KeyboardInterrupt:
            program.wait_for_exit()
        finally:
            sys.stderr.write(program.read_errors())
            end()

    return max(program.process.poll() or 0, 0)


sys.exit(main(sys.argv[1]))
