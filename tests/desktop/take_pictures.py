"""Makes the pictures in docs/images anew; scripts/screenshots runs it."""

from desk import Desk
from worlds import ROOT, LinuxWorld


def main():
    world = LinuxWorld(Desk(True), ROOT / 'build/release')

    def take(name, window):
        picture = ROOT / f'docs/images/{name}.png'
        world.picture(window=window)
        world.desk.picture(window).save(picture)
        print(picture)

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


main()
