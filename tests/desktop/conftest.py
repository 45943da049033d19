import pathlib

import pytest
from desk import Desk
from worlds import ROOT, LinuxWorld, WineSession, WineWorld

WORLDS = 'bare', 'openbox', 'wine'


def pytest_addoption(parser):
    parser.addoption('--build', type=pathlib.Path, default=ROOT / 'build/dev', help='where the Linux programs are')
    parser.addoption('--windows-build', type=pathlib.Path, default=ROOT / 'build/windows', help='where the others are')
    parser.addoption('--worlds', default='bare,openbox', help=f'of {", ".join(WORLDS)}')


def pytest_configure(config):
    config.addinivalue_line('markers', 'display(width, height): the size of the display, if it is not the usual one')
    config.addinivalue_line('markers', 'only_in(*worlds, why): where a case runs that does not run everywhere')


def pytest_generate_tests(metafunc):
    if 'world' in metafunc.fixturenames:
        metafunc.parametrize('world', metafunc.config.getoption('--worlds').split(','), indirect=True)


def pytest_collection_modifyitems(config, items):
    """Leaves out the cases that do not run in a world. Those that take no world are for Linux."""

    def runs(item):
        mark = item.get_closest_marker('only_in')
        world = item.callspec.params['world'] if 'world' in item.fixturenames else None
        return world in mark.args if mark else world or config.getoption('--worlds') != 'wine'

    items[:] = filter(runs, items)


@pytest.fixture(scope='session')
def wine(request):
    session = WineSession(Desk(True), request.config.getoption('--windows-build').resolve(), 'pl_PL', 'ja_JP')

    try:
        session.install()
        yield session
    finally:
        session.end()


@pytest.fixture
def world(request):
    """Display, home and driver of the case's own, with nothing plugged in; under Wine all cases share them, cleared."""
    if request.param == 'wine':
        world = WineWorld(request.getfixturevalue('wine'))
    else:
        display = request.node.get_closest_marker('display')
        world = LinuxWorld(Desk(request.param == 'openbox', *([display.args] if display else [])),
                           request.config.getoption('--build').resolve())

    yield world

    # What a case leaves running is ended as a user would end it.
    try:
        if request.node.has_passed and world.program and world.program.is_running():
            if world.desk.windows('Event log'):
                world.close('Event log', 'Escape')

            world.quit()
    except AssertionError:
        print(describe(world, request.node.name))
        raise
    finally:
        world.end()


def describe(world, case):
    """Keeps a picture of the screen; returns what the program said."""
    picture = ROOT / 'build' / f'{case.replace("/", "_")}.png'
    world.desk.picture().save(picture)
    said = f'{picture}\n{world.desk.windows()}'

    if world.program:
        state = 'running' if world.program.is_running() else f'exit code {world.program.process.returncode}'
        said += f'\nThe program: {state}\n{world.errors(world.program)}'

    return said


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    item.has_passed = report.passed

    if report.failed and report.when == 'call' and 'world' in getattr(item, 'funcargs', {}):
        report.sections.append(('the desk', describe(item.funcargs['world'], item.name)))
