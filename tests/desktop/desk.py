"""A virtual display, the programs started on it, and a user's eyes and hands.

Looking, pressing and clicking all use one connection to the display; no tools are started for them.
"""

import os
import signal
import subprocess
import tempfile
import time

import Xlib.display
import Xlib.error
from PIL import Image
from Xlib import X, XK
from Xlib.ext import xtest
from Xlib.protocol import event

# Long enough for a loaded machine and for a build with sanitizers.
PATIENCE = 60

MODIFIERS = {'ctrl': 'Control_L', 'alt': 'Alt_L', 'shift': 'Shift_L'}


def wait_until(what, condition, patience=PATIENCE):
    """Waits until a condition returns something true, and returns that; an AssertionError when it never does."""
    end = time.monotonic() + patience

    while not (result := condition()):
        assert time.monotonic() < end, f'waited {patience} s in vain: {what}'
        time.sleep(0.01)

    return result


def contrast(before, after):
    """The highest contrast between the same pixel of two pictures of one size: WCAG's for greys, from 1 to 21."""
    pairs = zip(before.convert('L').getdata(), after.convert('L').getdata())
    lights = [sorted((value / 255) ** 2.2 + 0.05 for value in pair) for pair in pairs]
    return max(high / low for low, high in lights)


class Program:
    """A running program and its output. It does not outlive the tests."""

    def __init__(self, command, environment, **options):
        self.errors = tempfile.TemporaryFile()
        options = {'stdin': subprocess.DEVNULL, 'stdout': subprocess.DEVNULL, **options}
        self.process = subprocess.Popen(['setpriv', '--pdeathsig', 'KILL', *map(str, command)],
                                        env={**os.environ, **environment}, stderr=self.errors, **options)
        self.pid = self.process.pid

    def is_running(self):
        return self.process.poll() is None

    def wait_for_exit(self, patience=PATIENCE):
        """The exit code, or minus the signal that ended it."""
        wait_until(f'{self.process.args[3]} ends', lambda: not self.is_running(), patience)
        return self.process.returncode

    def interrupt(self):
        """Asks it to end in order; returns the exit code."""
        self.process.send_signal(signal.SIGINT)
        return self.wait_for_exit()

    def kill(self):
        if self.is_running():
            self.process.kill()
            self.process.wait()

    def read_errors(self):
        """All that it has written to standard error so far."""
        return os.pread(self.errors.fileno(), 1 << 20, 0).decode(errors='replace')


class Window:
    """A window with a title, without the frame that a window manager puts around it."""

    def __init__(self, resource, root, title):
        self.resource, self.root, self.title = resource, root, title

    def __eq__(self, other):
        return self.resource.id == other.resource.id

    def __repr__(self):
        return f'"{self.title}" {self.bounds}'

    @property
    def bounds(self):
        """x, y, width and height on the screen."""
        size, place = self.resource.get_geometry(), self.root.translate_coords(self.resource, 0, 0)
        return place.x, place.y, size.width, size.height


class Screen:
    """The user's display, and the programs that were started on it."""

    def __init__(self):
        self.programs, self.environment = [], {}

    def close(self):
        for program in reversed(self.programs):
            program.kill()

    def start(self, command, environment=None, **options):
        """Starts a program on this screen. It ends with the screen at the latest."""
        self.programs.append(Program(command, {**(environment or {}), **self.environment}, **options))
        return self.programs[-1]


class Desk(Screen):
    def __init__(self, managed, size=(1280, 1024)):
        """An empty screen, with a window manager or without."""
        super().__init__()
        self.probe, self.size = None, size
        reading, writing = os.pipe()
        self.server = self.start(['Xvfb', '-displayfd', writing, '-screen', 0, f'{size[0]}x{size[1]}x24', '-nolisten',
                                  'tcp', '-noreset'], pass_fds=[writing])
        os.close(writing)

        with os.fdopen(reading) as number:
            self.environment = {'DISPLAY': ':' + number.readline().strip()}

        self.display = Xlib.display.Display(self.environment['DISPLAY'])
        self.root = self.display.screen().root

        # A key that is held until the program has seen it must not repeat.
        self.display.change_keyboard_control(auto_repeat_mode=X.AutoRepeatModeOff)

        if managed:
            self.start(['openbox', '--config-file', '/etc/xdg/openbox/rc.xml'])  # without the user's settings
            self.probe = self.root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)

            # A question that reaches it while it starts stays unread until another comes.
            wait_until('openbox manages the windows', lambda: self._ask_manager() or self._has_manager_answered())

    def _ask_manager(self):
        request = self.display.intern_atom('_NET_REQUEST_FRAME_EXTENTS')
        self.root.send_event(event.ClientMessage(window=self.probe, client_type=request, data=(32, [0] * 5)),
                             X.SubstructureRedirectMask | X.SubstructureNotifyMask)

    def _has_manager_answered(self):
        return self.probe.get_full_property(self.display.intern_atom('_NET_FRAME_EXTENTS'), X.AnyPropertyType)

    def wait_for_manager(self):
        """Waits until the window manager, if there is one, has dealt with all earlier events, which it does in order."""
        if self.probe:
            self.probe.delete_property(self.display.intern_atom('_NET_FRAME_EXTENTS'))
            self._ask_manager()
            wait_until('the window manager answers', self._has_manager_answered)

    def close(self):
        self.display.close()
        super().close()

    # ------------------------------------------------------------------------------------------------------------
    def windows(self, title=None):
        """The windows on screen that have this title, or any, lowest first."""
        found = []
        self._find(self.root, 3, found)
        return [window for window in found if title in (None, window.title)]

    def _find(self, parent, depth, found):
        for child in self._ask(lambda: parent.query_tree().children) or []:
            if not self._ask(lambda: child.get_attributes().map_state == X.IsViewable):
                continue

            if name := self._ask(lambda: self._read_title(child)):
                found.append(Window(child, self.root, name))
            elif depth > 1:
                self._find(child, depth - 1, found)

    def _read_title(self, resource):
        title = resource.get_full_property(self.display.intern_atom('WM_NAME'), X.AnyPropertyType)
        return title and title.value.decode(errors='replace')

    @staticmethod
    def _ask(question):
        """The answer, or None when the window has gone meanwhile."""
        try:
            return question()
        except (Xlib.error.BadWindow, Xlib.error.BadDrawable):
            return None

    def has_keyboard(self, window):
        focus = self.display.get_input_focus().focus

        while focus not in (X.NONE, X.PointerRoot) and focus != self.root:
            if focus == window.resource:
                return True

            focus = self._ask(lambda: focus.query_tree().parent) or X.NONE

        return False

    def wait_for_window(self, title, but=()):
        """A window with this title, other than those given, once it has the keyboard."""

        def find():
            return [w for w in self.windows(title) if w not in but and self.has_keyboard(w)]

        found = wait_until(f'a window "{title}" with the keyboard', find)[0]

        # A click would be lost while the window manager is still busy with a window that has gone.
        self.wait_for_manager()
        return found

    def wait_until_gone(self, title, but=()):
        def is_gone():
            return not [window for window in self.windows(title) if window not in but]

        wait_until(f'no window "{title}" any more', is_gone)

    def picture(self, window=None, area=None):
        """The part of the screen where the window is, or an area (x, y, width, height) of the window."""
        x, y, width, height = window.bounds if window else (0, 0, *self.size)

        if area:
            x, y, width, height = x + area[0], y + area[1], area[2], area[3]

        image = self.root.get_image(x, y, width, height, X.ZPixmap, 0xFFFFFFFF)
        return Image.frombytes('RGB', (width, height), image.data, 'raw', 'BGRX')

    def is_above(self, window, other):
        """Whether a window is stacked above another."""
        shown = self.windows()
        return shown.index(window) > shown.index(other)

    def frame(self, window):
        """Widths of a window's frame: left, right, top and bottom."""
        widths = window.resource.get_full_property(self.display.intern_atom('_NET_FRAME_EXTENTS'), X.AnyPropertyType)
        return tuple(widths.value) if widths else (0, 0, 0, 0)

    def pointer(self):
        """The image of the pointer."""
        self.display.xfixes_query_version()
        return self.display.xfixes_get_cursor_image(self.root).cursor_image

    # ------------------------------------------------------------------------------------------------------------
    def _put_keys(self, kind, names):
        for name in names:
            keysym = XK.string_to_keysym(MODIFIERS.get(name, name))
            xtest.fake_input(self.display, kind, self.display.keysym_to_keycode(keysym))

        self.display.sync()

    def press(self, key, until_heard=lambda: None):
        """Presses and releases a key by its name in X, with modifiers in front: "Return", "ctrl+a".

        until_heard -- called while the key is down
        """
        keys = key.split('+')
        self._put_keys(X.KeyPress, keys)
        until_heard()
        self._put_keys(X.KeyRelease, reversed(keys))

    def hold(self, key, until):
        """Holds a key, which repeats, and releases it once a condition holds."""
        self.display.change_keyboard_control(auto_repeat_mode=X.AutoRepeatModeOn)
        self._put_keys(X.KeyPress, [key])
        until()
        self._put_keys(X.KeyRelease, [key])
        self.display.change_keyboard_control(auto_repeat_mode=X.AutoRepeatModeOff)

    def type(self, text):
        for letter in text:
            self.press({'.': 'period', ' ': 'space'}.get(letter, letter))

    def move_pointer(self, window, x, y):
        left, top, *_ = window.bounds
        xtest.fake_input(self.display, X.MotionNotify, x=left + x, y=top + y)
        self.display.sync()

    def click(self, window, x, y):
        self.move_pointer(window, x, y)
        xtest.fake_input(self.display, X.ButtonPress, 1)
        xtest.fake_input(self.display, X.ButtonRelease, 1)
        self.display.sync()

    def ask_to_close(self, window):
        """Asks a window to close, as a click on its close button does."""
        protocols, close = (self.display.intern_atom(name) for name in ('WM_PROTOCOLS', 'WM_DELETE_WINDOW'))
        window.resource.send_event(event.ClientMessage(window=window.resource, client_type=protocols,
                                                       data=(32, [close, X.CurrentTime, 0, 0, 0])))
        self.display.sync()

    def move(self, window, x, y):
        window.resource.configure(x=x, y=y)
        self.display.sync()
