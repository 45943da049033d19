"""The worlds that the built program runs in: Linux with a machine folder and the simulator, and Windows under Wine with the
test bus and its remote. Both take the same orders, and in both the driver's time moves only by order.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from desk import Desk, wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONTROLLERS = 'ROOT\\OHCI1394\\0000', 'ROOT\\OHCI1394\\0001'

FIRST_PLACE = 64, 51  # of the view, a twentieth into the display
LAYOUT = (ROOT / 'source/stats/StatisticsLayout.h').read_text()
VIEW_HEIGHT = 148 + 18 * len(re.findall(r'^    {(}| RowKind::)', LAYOUT, re.MULTILINE))
BUTTONS = {'Save': 1, 'Reset': 2, 'Events': 3}  # and the quarter of the view's width that each stands at
BUTTONS_Y = VIEW_HEIGHT - 33
SAVE_DIALOG = 'Save event report'
VISIBLE = 3  # the contrast with its ground that a mark needs for people who see less well


def view_width(columns):
    return 150 * columns + 190


def click_button(desk, view, name):
    """Clicks a button of the view, whatever size the view is shown in."""
    *_, width, height = view.bounds
    desk.click(view, BUTTONS[name] * width // 4, BUTTONS_Y * height // VIEW_HEIGHT)


def start_driver(desk, command, environment):
    """Starts a driver that takes orders, and waits until it serves."""
    driver = desk.start(command, environment, encoding='utf-8', stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    told = driver.process.stdout.readline()
    assert told.startswith('serving'), told + driver.read_errors()
    return driver


def ask(driver, line):
    """The driver's answer to an order."""
    driver.process.stdin.write(line + '\n')
    driver.process.stdin.flush()
    return driver.process.stdout.readline().strip()


def windows_path(path):
    return 'Z:' + str(path).replace('/', '\\')


class World:
    """A machine with nothing plugged in, and its user. The program is the one in a build folder.

    view    -- the main window
    program -- the one that was started last
    """

    def __init__(self, desk, home):
        self.desk, self.home, self.documents = desk, home, home / 'Documents'
        shutil.rmtree(self.documents, ignore_errors=True)
        self.documents.mkdir(parents=True)
        self.program = self.view = None

    def order(self, line):
        """The answer to an order, without the "ok" in front."""
        answer = ask(self.orders, line)
        assert answer.split()[:1] == ['ok'], f'{line}: {answer or "no answer"}'
        return answer[3:]

    def plug(self, *names):
        for name in names:
            self.order(f'plug {name}')

    def counts(self, device):
        """How often a device has been asked, by kind of request."""
        return {name: int(count) for name, count in re.findall(r'(\S+)=(\d+)', self.order(f'counts {device}'))}

    def looks(self, device):
        """How often the view has asked a device for its figures; with "all", the least often asked."""
        return min(map(int, re.findall(r'read-counters=(\d+)', self.order(f'counts {device}'))))

    def wait_for_looks(self, device, number=3):
        """Waits until the view has asked that many times more, and so shows what the driver has."""
        enough = self.looks(device) + number
        wait_until(f'the view asks {device}', lambda: self.looks(device) >= enough)

    # ------------------------------------------------------------------------------------------------------------
    def launch(self):
        """Starts the program and waits for its window."""
        self.program = self.run()
        self.view = self.desk.wait_for_window('Quendel')

    def start(self, *plugged, events=0, asked='all'):
        """Plugs devices in, with some events each, and starts the program. Waits until its window is where it was left, and
        shows the driver's figures for one device, or for all.
        """
        self.plug(*plugged)

        if events:
            self.order(f'fill all {events}')

        self.launch()
        self.wait_for_place(self.stored() or FIRST_PLACE)
        self.wait_for_looks(asked, 2)

    def wait_for_place(self, place):
        """Waits for the view's place: after its frame has come it is beside it at times, for a third of a second."""
        wait_until(f'the view is at {place}', lambda: self.view.bounds[:2] == place)

    def wait_for_columns(self, columns):
        size = view_width(columns), VIEW_HEIGHT
        wait_until(f'a view of {columns} columns', lambda: self.view.bounds[2:] == size)

    def expect_exit(self):
        assert self.program.wait_for_exit() == 0
        assert self.errors(self.program) == ''

    def quit(self):
        wait_until('the view has the keyboard', lambda: self.desk.has_keyboard(self.view))
        self.press('Escape')
        self.expect_exit()

    def press(self, *keys):
        for key in keys:
            self.desk.press(key)

    def click_button(self, name):
        click_button(self.desk, self.view, name)

    def wait_for_box(self):
        """Waits for the message box in front of the view."""
        return self.desk.wait_for_window('Quendel', [self.view])

    def save_statistics(self):
        """Saves the statistics; returns what the message box says."""
        self.click_button('Save')
        said = self.read_box(self.wait_for_box())
        self.close('Quendel', 'Return')
        return said

    def close(self, title, key):
        """Closes the window in front of the view with a key; afterwards the view has the keyboard again."""
        self.press(key)
        self.desk.wait_until_gone(title, [self.view])
        assert self.desk.wait_for_window('Quendel') == self.view

    def open_events(self):
        self.click_button('Events')
        return self.wait_for_events()

    def wait_for_events(self):
        """Waits for the event window in its final place."""
        events = self.desk.wait_for_window('Event log')
        self.wait_until_placed(events)
        return events

    def open_save_dialog(self, events):
        self.desk.click(events, 400, 577)
        return self.wait_for_save_dialog()

    def name_file(self, name):
        """Types a name in the save dialog, where the name has the keyboard."""
        self.press('ctrl+a')
        self.desk.type(name)
        self.press('Return')

    def save_events(self, events):
        """Begins a report in the proposed file; returns the file."""
        before = set(self.documents.iterdir())
        self.open_save_dialog(events)
        self.press('Return')
        self.desk.wait_until_gone(SAVE_DIALOG)
        [file] = wait_until('a report', lambda: set(self.documents.iterdir()) - before)
        return file

    def wait_until_saved(self, device, events):
        """Waits until the progress window of a complete report is gone: it goes before the view has asked a device anew."""
        self.wait_for_looks(device)
        assert self.desk.wait_for_window('Event log') == events

    def stored(self):
        """The stored position of the window, or None."""
        found = self.settings()
        return tuple(int(found[name]) if re.fullmatch(r'-?\d+', found[name]) else 0 for name in 'xy') if found else None

    def picture(self, *area, window=None):
        """What an area shows once it no longer changes."""
        window = window or self.view

        def look():
            return window.bounds, self.desk.picture(window, area or None).tobytes()

        seen = look()

        while True:
            # There is time to paint between two looks; the first of them can come at once.
            self.wait_for_looks('all', 2)

            if (later := look()) == seen:
                return seen[1]

            seen = later

    def wait_for_change(self, action, *area, window=None):
        """The picture of an area after an action has changed it."""
        before = self.picture(*area, window=window)
        action()
        wait_until('another picture',
                   lambda: self.desk.picture(window or self.view, area or None).tobytes() != before)
        return self.picture(*area, window=window)


class LinuxWorld(World):
    def __init__(self, desk, build):
        self.folder = tempfile.TemporaryDirectory(prefix='quendel-')
        folder = pathlib.Path(self.folder.name)
        (folder / 'runtime').mkdir()
        super().__init__(desk, folder / 'home')
        self.build = build
        self.file = self.home / '.config/Vendrel/Quendel.settings'
        self.environment = {'HOME': str(self.home), 'XDG_RUNTIME_DIR': str(folder / 'runtime'), 'TZ': 'UTC',
                            'QUENDEL_MACHINE': str(folder / 'machine'),
                            'JUCE_FONT_PATH': '/usr/share/fonts/truetype/liberation'}
        simulator = [build / 'drivers/simulator/quendel-simulator', '--interfaces', '0', '--clock', 'orders',
                     '--controllers', ','.join(CONTROLLERS)]
        self.orders = start_driver(self.desk, simulator, self.environment)

    def end(self):
        self.desk.close()
        self.folder.cleanup()

    def run(self, **environment):
        return self.desk.start([self.build / 'source/quendel'], {**self.environment, **environment},
                               stdout=subprocess.PIPE)

    @staticmethod
    def errors(program):
        """What the program said on standard error, without what the toolkit always says in debug builds."""
        return re.sub(r'(JUCE v|ERROR: X returned)[^\n]*\n|\n(?=ERROR: X)', '', program.read_errors())

    def settings(self):
        return dict(re.findall(r'name="([xy])" val="([^"]*)"', self.file.read_text())) if self.file.exists() else {}

    def store(self, x, y):
        self.file.parent.mkdir(parents=True, exist_ok=True)
        self.file.write_text(f'<PROPERTIES><VALUE name="x" val="{x}"/><VALUE name="y" val="{y}"/></PROPERTIES>')

    def read_box(self, box):
        """A picture of what a message box says, without the edge and the button, which are never painted the same."""
        *_, width, height = box.bounds
        return self.picture(8, 8, width - 16, height // 2, window=box)

    def wait_until_placed(self, window):
        """Waits until a window is in the middle of the display with its frame; a click before that can miss."""
        def is_in_the_middle():
            (x, y, width, height), (left, right, above, below) = window.bounds, self.desk.frame(window)
            all_width, all_height = self.desk.size
            return (abs((x - left) - (all_width - x - width - right)) <= 1
                    and abs((y - above) - (all_height - y - height - below)) <= 1)

        wait_until(f'{window} is in the middle', is_in_the_middle)

    def wait_for_save_dialog(self):
        return self.desk.wait_for_window(SAVE_DIALOG)

    def wait_for_question(self):
        """Waits for the question whether to replace a file."""
        return self.desk.wait_for_window('File already exists')

    def answer(self, yes):
        self.press('Return' if yes else 'Escape')


class WineSession:
    """A Wine prefix with the test bus and its remote. All cases share it, because making one takes a while."""

    LOADER, SERVER = '/usr/lib/wine/wine64', '/usr/lib/wine/wineserver64'

    def __init__(self, desk, build, *languages):
        """languages -- of the user; programs have the first one unless they are given another"""
        self.folder = tempfile.TemporaryDirectory(prefix='quendel-wine-')
        folder = pathlib.Path(self.folder.name)
        self.desk, self.build, self.prefix = desk, build, folder / 'prefix'

        # Windows stores text in the code page of the user's language.
        for language in languages:
            subprocess.run(['localedef', '-i', language, '-f', 'UTF-8', folder / f'{language}.UTF-8'], check=True)

        # Shows what the program prints, and its crashes, but nothing of Wine's.
        self.environment = {'LOCPATH': str(folder), 'LC_CTYPE': [*languages, 'C'][0] + '.UTF-8', 'HOME': str(folder),
                            'TZ': 'UTC', 'WINELOADER': self.LOADER, 'WINEDLLOVERRIDES': 'mscoree,mshtml,winedbg.exe=',
                            'WINEDEBUG': '-all,warn+debugstr'}

    def install(self):
        """Installs the test bus; afterwards the remote takes orders."""
        self.home = self.make_prefix(self.build / 'machine')
        self.remote = start_driver(self.desk, [self.LOADER, self.build / 'QuendelTestRemote.exe'], self.environment)

    def make_prefix(self, template):
        """Copies a prefix, which is made first where there is none: that takes longer than many cases."""
        if not template.exists():
            self.environment['WINEPREFIX'] = f'{template}.new'
            shutil.rmtree(f'{template}.new', ignore_errors=True)
            assert self.run('wineboot', '--init').wait_for_exit(patience=300) == 0
            registry = windows_path(ROOT / 'drivers/windows/machine.reg')
            assert self.run('regedit', '/S', registry).wait_for_exit() == 0
            self.tell_server('-w')
            pathlib.Path(f'{template}.new').rename(template)

        subprocess.run(['cp', '-a', template, self.prefix], check=True)
        shutil.copy(self.build / 'QuendelTestBus.sys', self.prefix / 'drive_c/windows/system32/drivers')
        self.environment['WINEPREFIX'] = str(self.prefix)

        # The user's folders, which the template has for another home.
        [user] = self.prefix.glob('drive_c/users/[!P]*')

        for folder in filter(pathlib.Path.is_symlink, list(user.iterdir())):
            folder.unlink()
            folder.mkdir()

        return user

    def run(self, *command, language=None, **options):
        environment = {'LC_CTYPE': language + '.UTF-8'} if language else {}
        return self.desk.start([self.LOADER, *command], {**self.environment, **environment}, **options)

    def tell_server(self, option):
        subprocess.run([self.SERVER, option], env={**os.environ, **self.environment}, check=True)

    def end(self):
        self.tell_server('-k')
        self.desk.close()
        self.folder.cleanup()


class WineWorld(World):
    def __init__(self, session):
        super().__init__(session.desk, session.home)
        self.session, self.orders, self.build = session, session.remote, session.build
        self.older = len(self.desk.programs)
        self.order('reset')
        self.order('store')

    def end(self):
        for program in self.desk.programs[self.older:]:
            program.kill()

        wait_until('no window any more', lambda: not self.desk.windows())

    def run(self):
        return self.session.run(self.build / 'Quendel.exe')

    @staticmethod
    def errors(program):
        return program.read_errors()

    def press(self, *keys):
        """Holds each key until the program has handled it, because it also looks at the keyboard's state."""
        for key in keys:
            wait_until('a window in front', lambda: self.order('watch-keys') == '1')
            handled = '-1', str(key.count('+') + 1)
            self.desk.press(key, lambda: wait_until(f'{key} is handled', lambda: self.order('keys-down') in handled))

    def settings(self):
        return dict(pair.split('=') for pair in self.order('stored').split())

    def store(self, x, y):
        self.order(f'store {x} {y}')

    def read_box(self, box):
        return self.order(f'box-text {box.title}')

    def wait_until_placed(self, window):
        self.picture(window=window)

    def wait_for_keyboard(self, control):
        """Waits for a control of a system dialog, to which Wine gives the keyboard without telling the display."""
        wait_until(f'{control} with the keyboard', lambda: self.order('keyboard') == f'{control} {SAVE_DIALOG}')

    def wait_for_save_dialog(self):
        self.wait_for_keyboard('Edit')

    def wait_for_question(self):
        self.wait_for_keyboard('Button')

    def answer(self, yes):
        self.press(*['Return'] if yes else ['Right', 'Return'])

