import pathlib

import pytest
from desk import Desk
from worlds import ROOT, LinuxWorld

WORLDS = 'bare', 'openbox', 'wine'


def pytest_addoption(parser):
    parser.addoption('--build', type=pathlib.Path, default=ROOT / 'build/dev', help='where the Linux programs are')
    parser.addoption('--worlds', default='bare,openbox', help=f'of {", ".join(WORLDS)}')


def pytest_configure(config):
    config.addinivalue_line('markers', 'display(width, height): the size of the display, if it is not the usual one')
    config.addinivalue_line('markers', 'only_in(*worlds, why): where a case runs that does not run everywhere')


def pytest_generate_tests(metafunc):
    if 'world' not in metafunc.fixturenames:
        return

    mark = metafunc.definition.get_closest_marker('only_in')
    possible = mark.args if mark else WORLDS
    wanted = metafunc.config.getoption('--worlds').split(',')
    metafunc.parametrize('world', [name for name in wanted if name in possible], indirect=True)


@pytest.fixture
def world(request):
    """A machine of the case's own: display, home and driver."""
    display = request.node.get_closest_marker('display')
    world = LinuxWorld(Desk(request.param == 'openbox', *([display.args] if display else [])),
                       request.config.getoption('--build').resolve())
    yield world
    world.end()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A picture of the screen, and what the program said, tell more than a message."""
    report = (yield).get_result()

    if report.failed and 'world' in getattr(item, 'funcargs', {}):
        world = item.funcargs['world']
        picture = ROOT / 'build' / f'{item.name}.png'
        world.desk.picture().save(picture)
        report.sections.append(('the desk', f'{picture}\n{world.desk.windows()}'))

        if world.program:
            report.sections.append(('the program', world.errors(world.program)))
