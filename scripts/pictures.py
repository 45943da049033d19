"""Makes the pictures in docs/images anew; scripts/screenshots runs it."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / 'tests/desktop'))

from desk import Desk, wait_until  # noqa: E402
from studio import Studio  # noqa: E402
from worlds import FIRST_PLACE, LinuxWorld  # noqa: E402

BUILD = ROOT / 'build/release'
FIRST_FIGURE = 174, 112, 140, 14


def save(name, desk, window):
    picture = ROOT / f'docs/images/{name}.png'
    desk.picture(window).save(picture)
    print(picture)


def picture_simulator():
    world = LinuxWorld(Desk(True), BUILD)

    def take(name, window):
        world.picture(window=window)
        save(name, world.desk, window)

    world.plug('Studio', 'Stage')
    world.order('glitch Stage')
    world.order('tick 4321')
    world.start()
    take('main-window', world.view)
    world.click_button('Save')
    take('message-box', world.wait_for_box())
    world.close('Quendel', 'Return')
    take('event-window', world.open_events())
    world.close('Event log', 'Escape')
    world.quit()
    world.end()


def picture_pipewire():
    """These figures are measured: no two pictures are the same."""
    studio, desk = Studio(BUILD), Desk(True)
    studio.start_pipewire()
    studio.play_to_main()
    studio.stall_player()
    wait_until('two seconds of cycles', lambda: studio.main.playback()[0] > 46)
    desk.start([BUILD / 'source/quendel'], studio.environment)
    view = desk.wait_for_window('Quendel')
    wait_until('the view is where it belongs', lambda: view.bounds[:2] == FIRST_PLACE)
    wait_until('figures', lambda: max(desk.picture(view, FIRST_FIGURE).getextrema()[0]) > 200)
    save('pipewire-window', desk, view)
    desk.close()
    studio.end()


picture_simulator()
picture_pipewire()
