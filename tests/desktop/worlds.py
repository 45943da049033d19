"""The worlds that the built program runs in: Linux with a machine folder and the simulator, and Windows as Wine has it,
with the test bus and its remote. Both take the same orders, and in both the driver's time moves by order only.
"""

import pathlib
import re
import subprocess
import tempfile

from desk import wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONTROLLERS = 'ROOT\\OHCI1394\\0000', 'ROOT\\OHCI1394\\0001'

BUTTONS = {'Save': 1, 'Reset': 2, 'Events': 3}  # and the quarter of the view's width that each stands at
BUTTONS_Y = 619


def view_width(columns):
    return 150 * columns + 190


class World:
    """A machine with nothing plugged in, and its user. The program is the one in a build folder.

    view    -- the main window
    program -- as it was started last
    """

    def __init__(self, desk, home):
        self.desk, self.home, self.documents = desk, home, home / 'Documents'
        self.documents.mkdir(parents=True)
        self.program = self.view = None

    def order(self, line):
        """The answer to an order, without the "ok" in front."""
        self.orders.process.stdin.write(line + '\n')
        self.orders.process.stdin.flush()
        answer = self.orders.process.stdout.readline().strip()
        assert answer.split()[:1] == ['ok'], f'{line}: {answer or "no answer"}'
        return answer[3:]

    def plug(self, *names):
        for name in names:
            self.order(f'plug {name}')

    def counts(self, device):
        """How often a device was asked for what."""
        pairs = (word.split('=') for word in self.order(f'counts {device}').split() if '=' in word)
        return {name: int(count) for name, count in pairs}

    def looks(self, device):
        """How often the view has asked a device for its figures."""
        return self.counts(device)['read-counters']

    def wait_for_looks(self, device, number=3):
        """Until the view has asked anew so often: what is on show then is what the driver has."""
        enough = self.looks(device) + number
        wait_until(f'the view asks {device}', lambda: self.looks(device) >= enough)

    # ------------------------------------------------------------------------------------------------------------
    def launch(self):
        """Starts the program and waits for its window."""
        self.program = self.run()
        self.view = self.desk.wait_for_window('Quendel')

    def start(self):
        """Also waits until the window is where it belongs, and the figures on it are the driver's."""
        self.launch()
        place = self.stored() or (64, 51)
        wait_until(f'the view is at {place}', lambda: self.view.bounds[:2] == place)
        self.wait_for_looks('all', 2)

    def wait_for_columns(self, columns):
        wait_until(f'a view of {columns} columns', lambda: self.view.bounds[2:] == (view_width(columns), 652))

    def expect_exit(self):
        assert self.program.wait_for_exit() == 0
        assert self.errors(self.program) == ''

    def quit(self):
        self.press('Escape')
        self.expect_exit()

    def press(self, *keys):
        for key in keys:
            self.desk.press(key)

    def click_button(self, name):
        self.desk.click(self.view, BUTTONS[name] * self.view.bounds[2] // 4, BUTTONS_Y)

    def wait_for_box(self):
        """The message box before the view."""
        return self.desk.wait_for_window('Quendel', [self.view])

    def close(self, title, key):
        """Closes what is open before the view with a key; afterwards the view has the keyboard again."""
        self.press(key)
        self.desk.wait_until_gone(title, [self.view])
        assert self.desk.wait_for_window('Quendel') == self.view

    def open_events(self):
        self.click_button('Events')
        return self.wait_until_still(self.desk.wait_for_window('Event log'))

    def wait_until_still(self, window):
        """A new window is moved when its frame has come, and what is clicked before is somewhere else afterwards."""
        self.picture(window=window)
        return window

    def picture(self, *area, window=None):
        """What is to be seen there once it stands still."""
        def look():
            return self.desk.picture(window or self.view, area or None).tobytes()

        picture = look()

        while True:
            self.wait_for_looks('all', 1)

            if (later := look()) == picture:
                return picture

            picture = later

    def wait_for_change(self, action, *area, window=None):
        """The picture that an action makes of another one."""
        before = self.picture(*area, window=window)
        action()
        wait_until('another picture',
                   lambda: self.desk.picture(window or self.view, area or None).tobytes() != before)
        return self.picture(*area, window=window)


class LinuxWorld(World):
    SAVE_DIALOG, QUESTION = 'Save event report', 'File already exists'

    def __init__(self, desk, build):
        self.folder = tempfile.TemporaryDirectory(prefix='quendel-')
        folder = pathlib.Path(self.folder.name)
        (folder / 'runtime').mkdir()
        super().__init__(desk, folder / 'home')
        self.build = build
        self.settings = self.home / '.config/Vendrel/Quendel.settings'
        self.environment = {'HOME': str(self.home), 'XDG_RUNTIME_DIR': str(folder / 'runtime'), 'TZ': 'UTC',
                            'QUENDEL_MACHINE': str(folder / 'machine'),
                            'JUCE_FONT_PATH': '/usr/share/fonts/truetype/liberation'}
        simulator = [build / 'drivers/simulator/quendel-simulator', '--interfaces', '0', '--clock', 'orders',
                     '--controllers', ','.join(CONTROLLERS)]
        self.orders = self.desk.start(simulator, self.environment, text=True, stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE)
        assert self.orders.process.stdout.readline().startswith('serving'), self.orders.read_errors()

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

    def stored(self):
        """The position that the program has stored, or None."""
        if not self.settings.exists():
            return None

        found = dict(re.findall(r'name="([xy])" val="([^"]*)"', self.settings.read_text()))
        return tuple(int(found[name]) if re.fullmatch(r'-?\d+', found[name]) else 0 for name in 'xy')

    def store(self, x, y):
        self.settings.parent.mkdir(parents=True, exist_ok=True)
        self.settings.write_text(f'<PROPERTIES><VALUE name="x" val="{x}"/><VALUE name="y" val="{y}"/></PROPERTIES>')

    def forget(self):
        self.settings.unlink(missing_ok=True)

    def name_file(self, dialog, name):
        # A window manager holds a click back for a moment: keys that do not wait for its effect overtake it.
        self.wait_for_change(lambda: self.desk.click(dialog, 300, 437), 150, 425, 250, 24, window=dialog)
        self.press('ctrl+a')
        self.desk.type(name)
        self.press('Return')
