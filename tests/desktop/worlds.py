"""The worlds that the built program runs in: Linux with a machine folder and the simulator, and Windows as Wine has it,
with the test bus and its remote. Both take the same orders, and in both the driver's time moves by order only.
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
VISIBLE = 3  # what a mark's contrast with its ground has to be for people who see less well


def view_width(columns):
    return 150 * columns + 190


def click_button(desk, view, name):
    """Whatever size the view is shown in."""
    *_, width, height = view.bounds
    desk.click(view, BUTTONS[name] * width // 4, BUTTONS_Y * height // VIEW_HEIGHT)


def start_driver(desk, command, environment):
    """One that takes orders, once it serves."""
    driver = desk.start(command, environment, encoding='utf-8', stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    told = driver.process.stdout.readline()
    assert told.startswith('serving'), told + driver.read_errors()
    return driver


def ask(driver, line):
    """Its answer to an order."""
    driver.process.stdin.write(line + '\n')
    driver.process.stdin.flush()
    return driver.process.stdout.readline().strip()


def windows_path(path):
    return 'Z:' + str(path).replace('/', '\\')


class World:
    """A machine with nothing plugged in, and its user. The program is the one in a build folder.

    view    -- the main window
    program -- as it was started last
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
        """How often a device was asked for what."""
        return {name: int(count) for name, count in re.findall(r'(\S+)=(\d+)', self.order(f'counts {device}'))}

    def looks(self, device):
        """How often the view has asked a device, or each of all of them, for its figures."""
        return min(map(int, re.findall(r'read-counters=(\d+)', self.order(f'counts {device}'))))

    def wait_for_looks(self, device, number=3):
        """Until the view has asked anew so often: what is on show then is what the driver has."""
        enough = self.looks(device) + number
        wait_until(f'the view asks {device}', lambda: self.looks(device) >= enough)

    # ------------------------------------------------------------------------------------------------------------
    def launch(self):
        """Starts the program and waits for its window."""
        self.program = self.run()
        self.view = self.desk.wait_for_window('Quendel')

    def start(self, *plugged, events=0, asked='all'):
        """Also plugs devices in, with so many events each, and waits until the window is where it was left, and the figures
        of a device on it, or of all, are the driver's.
        """
        self.plug(*plugged)

        if events:
            self.order(f'fill all {events}')

        self.launch()
        self.wait_for_place(self.stored() or FIRST_PLACE)
        self.wait_for_looks(asked, 2)

    def wait_for_place(self, place):
        """For a third of a second after its frame has come the view is beside its place at moments."""
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
        """The message box before the view."""
        return self.desk.wait_for_window('Quendel', [self.view])

    def save_statistics(self):
        """What the message about it says."""
        self.click_button('Save')
        said = self.read_box(self.wait_for_box())
        self.close('Quendel', 'Return')
        return said

    def close(self, title, key):
        """Closes what is open before the view with a key; afterwards the view has the keyboard again."""
        self.press(key)
        self.desk.wait_until_gone(title, [self.view])
        assert self.desk.wait_for_window('Quendel') == self.view

    def open_events(self):
        self.click_button('Events')
        return self.wait_for_events()

    def wait_for_events(self):
        """The event window, once it is where it stays."""
        events = self.desk.wait_for_window('Event log')
        self.wait_until_placed(events)
        return events

    def open_save_dialog(self, events):
        self.desk.click(events, 400, 577)
        return self.wait_for_save_dialog()

    def name_file(self, name):
        """In the save dialog, where the name has the keyboard."""
        self.press('ctrl+a')
        self.desk.type(name)
        self.press('Return')

    def save_events(self, events):
        """Begins a report in the file that is proposed, and returns that."""
        before = set(self.documents.iterdir())
        self.open_save_dialog(events)
        self.press('Return')
        self.desk.wait_until_gone(SAVE_DIALOG)
        [file] = wait_until('a report', lambda: set(self.documents.iterdir()) - before)
        return file

    def wait_until_saved(self, device, events):
        """Once a report is complete. The box that tells of the saving is still there, or yet to come: it goes when it next
        looks whether all is done, which is more often than the view asks a device.
        """
        self.wait_for_looks(device)
        assert self.desk.wait_for_window('Event log') == events

    def stored(self):
        """The position that the program has stored, or None."""
        found = self.settings()
        return tuple(int(found[name]) if re.fullmatch(r'-?\d+', found[name]) else 0 for name in 'xy') if found else None

    def picture(self, *area, window=None):
        """What is to be seen there once it stands still."""
        window = window or self.view

        def look():
            return window.bounds, self.desk.picture(window, area or None).tobytes()

        seen = look()

        while True:
            # From one look to the next there is time to paint; the first one can come at once.
            self.wait_for_looks('all', 2)

            if (later := look()) == seen:
                return seen[1]

            seen = later

    def wait_for_change(self, action, *area, window=None):
        """The picture that an action makes of another one."""
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
        """Without what the toolkit always says in builds for debugging."""
        return re.sub(r'(JUCE v|ERROR: X returned)[^\n]*\n|\n(?=ERROR: X)', '', program.read_errors())

    def settings(self):
        return dict(re.findall(r'name="([xy])" val="([^"]*)"', self.file.read_text())) if self.file.exists() else {}

    def store(self, x, y):
        self.file.parent.mkdir(parents=True, exist_ok=True)
        self.file.write_text(f'<PROPERTIES><VALUE name="x" val="{x}"/><VALUE name="y" val="{y}"/></PROPERTIES>')

    def read_box(self, box):
        """What a message box says, to be compared with what another one says: a picture without its edge and the button's,
        which are not the same each time that they are painted.
        """
        *_, width, height = box.bounds
        return self.picture(8, 8, width - 16, height // 2, window=box)

    def wait_until_placed(self, window):
        """In the middle of the display, with the frame that comes later; a click before that can miss."""
        def is_in_the_middle():
            (x, y, width, height), (left, right, above, below) = window.bounds, self.desk.frame(window)
            all_width, all_height = self.desk.size
            return (abs((x - left) - (all_width - x - width - right)) <= 1
                    and abs((y - above) - (all_height - y - height - below)) <= 1)

        wait_until(f'{window} is in the middle', is_in_the_middle)

    def wait_for_save_dialog(self):
        return self.desk.wait_for_window(SAVE_DIALOG)

    def wait_for_question(self):
        """Whether a file is to be replaced."""
        return self.desk.wait_for_window('File already exists')

    def answer(self, yes):
        self.press('Return' if yes else 'Escape')


class WineSession:
    """A Wine prefix, with the test bus and its remote: one for all cases, as it takes a while."""

    LOADER, SERVER = '/usr/lib/wine/wine64', '/usr/lib/wine/wineserver64'

    def __init__(self, desk, build, *languages):
        """languages -- of the user; the first one is that of programs for which no other is said"""
        self.folder = tempfile.TemporaryDirectory(prefix='quendel-wine-')
        folder = pathlib.Path(self.folder.name)
        self.desk, self.build, self.prefix = desk, build, folder / 'prefix'

        # Windows keeps text in the code page of the user's language.
        for language in languages:
            subprocess.run(['localedef', '-i', language, '-f', 'UTF-8', folder / f'{language}.UTF-8'], check=True)

        # What the program says of itself, and crashes; the rest is Wine's.
        self.environment = {'LOCPATH': str(folder), 'LC_CTYPE': [*languages, 'C'][0] + '.UTF-8', 'HOME': str(folder),
                            'TZ': 'UTC', 'WINELOADER': self.LOADER, 'WINEDLLOVERRIDES': 'mscoree,mshtml,winedbg.exe=',
                            'WINEDEBUG': '-all,warn+debugstr'}

    def install(self):
        """Afterwards the remote takes orders."""
        self.home = self.make_prefix(self.build / 'machine')
        self.remote = start_driver(self.desk, [self.LOADER, self.build / 'QuendelTestRemote.exe'], self.environment)

    def make_prefix(self, template):
        """A copy, as making one takes longer than many cases."""
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

        # The folders of the user, who had another home then.
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
        """The program looks at the keyboard's state and not only at what it is sent: a key is down until it has."""
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
        """In a box of the system's own, to which Wine gives the keyboard without a word to the display."""
        wait_until(f'{control} with the keyboard', lambda: self.order('keyboard') == f'{control} {SAVE_DIALOG}')

    def wait_for_save_dialog(self):
        self.wait_for_keyboard('Edit')

    def wait_for_question(self):
        self.wait_for_keyboard('Button')

    def answer(self, yes):
        self.press(*['Return'] if yes else ['Right', 'Return'])

