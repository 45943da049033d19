"""The figures on show are the driver's; what they cost the driver."""

import time

# The figures that the driver measures, without the firmware's.
COLUMNS = (170, 110, 150, 400), (320, 110, 150, 400)
FIRMWARE = 170, 530, 150, 70


def figures(world):
    """The figures of both columns, once they are the driver's."""
    world.wait_for_looks('Beta')
    world.wait_for_looks('Alpha')
    return [world.picture(*column) for column in COLUMNS]


def test_figures_move_when_the_drivers_do_and_are_reset(world):
    world.start('Alpha', 'Beta')
    first = figures(world)
    assert figures(world) == first

    # White labels, green buttons.
    picture = world.desk.picture(world.view)
    assert min(brightest for _, brightest in picture.crop((40, 110, 150, 128)).getextrema()) > 200
    assert picture.getpixel((105, 610)) == (20, 200, 20)

    world.order('glitch Beta')
    world.order('tick 1000')
    second = figures(world)
    assert first[0] != second[0] and first[1] != second[1]

    # A reset empties the firmware's counters, too.
    counters = world.picture(*FIRMWARE)
    world.wait_for_change(lambda: world.press('Return'), *COLUMNS[0])
    assert world.picture(*FIRMWARE) != counters


def test_looks_four_times_a_second_and_asks_for_nothing_else(world):
    world.start('Alpha', 'Beta')
    before = world.counts('Alpha'), world.counts('Beta')
    start = time.monotonic()
    world.wait_for_looks('Beta', 24)
    seconds = time.monotonic() - start
    after = world.counts('Alpha'), world.counts('Beta')
    alpha, beta = ({name: late[name] - early[name] for name in late} for early, late in zip(before, after))

    # About six seconds, on a busy machine more.
    assert seconds > 4

    # The requests may be counted in the middle of a tick.
    assert abs(alpha.pop('read-counters') - beta['read-counters']) <= 1
    assert abs(beta.pop('stream-status') - beta.pop('read-counters')) <= 1
    assert not any(alpha.values()) and not any(beta.values()), (alpha, beta)
