"""The event window: tabs, order of the rows, closing."""

ROWS = 551, 58, 200, 400  # of the "Event Name" column


def test_headers_sort_and_tabs_show_another_table(world):
    world.plug('Alpha', 'Beta')
    world.order('fill all 60')
    world.start()
    events = world.open_events()
    assert events.bounds[2:] == (800, 600)

    def change(action):
        return world.wait_for_change(action, *ROWS, window=events)

    by_time = world.picture(*ROWS, window=events)
    change(lambda: world.desk.click(events, 651, 44))
    assert change(lambda: world.desk.click(events, 150, 44)) == by_time

    # Another tab and back, with the keyboard.
    change(lambda: world.press('ctrl+Next'))
    shown = change(lambda: world.press('ctrl+Prior'))

    # What is logged meanwhile is seen when the window is opened again.
    world.order('fill all 50')
    assert world.picture(*ROWS, window=events) == shown
    world.close('Event log', 'Escape')
    assert world.picture(*ROWS, window=world.open_events()) != by_time
    world.close('Event log', 'Escape')
    world.quit()


def test_reads_each_log_to_its_end_and_no_further(world):
    world.plug('Alpha', 'Beta')
    world.order('fill Alpha 7')
    world.order('fill Beta 16384')
    world.start()
    world.open_events()
    world.wait_for_looks('Alpha')

    # Once for the device's own tab and once for "Aggregate"; one entry more says that there are none.
    assert world.counts('Alpha')['event-entry'] == 2 * 8
    assert world.counts('Beta')['event-entry'] == 2 * 16384
    world.close('Event log', 'Escape')
    world.quit()
