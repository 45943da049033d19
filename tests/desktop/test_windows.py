"""What only Windows has: its message boxes, files that others hold, drivers that keep requests, installers, and the unit
tests under it."""

import re
import shutil
import subprocess

import pytest
from desk import wait_until
from worlds import ROOT, windows_path

pytestmark = pytest.mark.only_in('wine', why='nothing else has it, or lets it be seen')

# This case closes so many windows that it takes more than a minute.
UNSUITABLE = 'SaveReportTaskTests.cancelAtAnyMomentLeavesWholeLines'
FIGURES = 170, 22, 300, 574
FIRST_COLUMN = 170, 110, 150, 486


# Only on Windows can boxes be read, and can other programs keep a file from ours.
def test_says_what_became_of_a_report_and_leaves_a_file_that_another_program_holds(world):
    report = world.documents / 'Quendel report.txt'
    report.write_bytes(b'held')
    world.order(f'hold-file {windows_path(report)}')
    world.program = world.run()
    assert 'No compatible hardware detected.' in world.read_box(world.desk.wait_for_window('Quendel'))
    world.press('Return')
    world.expect_exit()
    world.start('Alpha')

    assert 'Unable to save report' in world.save_statistics()
    assert report.read_bytes() == b'held'
    world.order('hold-file')
    assert 'Report saved to your documents folder.' in world.save_statistics()
    assert report.read_bytes().startswith(b'held---')


# Elsewhere names have one encoding, and letters come from the installed fonts.
def test_names_are_read_in_full_and_drawn(world):
    """The names have letters that neither the user's code page nor the usual typeface has."""
    world.start('Zażółć', '東京', '京都')
    names = [world.picture(170 + 150 * column, 92, 150, 18) for column in range(3)]
    assert len(set(names)) == 3
    world.save_statistics()
    report = (world.documents / 'Quendel report.txt').read_text()
    assert re.findall(r'^(\w+)\nARM', report, re.MULTILINE) == ['京都', '東京', 'Zażółć']


# Only Windows has warnings as a kind of status.
def test_a_warning_is_a_failure_and_a_slow_driver_none(world):
    world.start('Alpha', 'Beta')
    before = world.picture(*FIGURES)

    def warn(when):
        for kind in 'read-counters', 'stream-status':
            world.order(f'warn all {kind} {when}')

    warn('always')
    world.wait_for_looks('Beta')
    assert world.picture(*FIGURES) == before
    warn('never')
    world.order('slow Beta 200')
    world.wait_for_change(lambda: world.order('tick 1000'), *FIGURES)
    world.order('slow Beta 0')


# Elsewhere a request is two packets, so a driver cannot keep one.
@pytest.mark.parametrize('mode', ['hang', 'hold'])
def test_a_driver_that_keeps_requests_holds_nobody_up(world, mode):
    """It keeps them until they are cancelled, or for good."""
    world.start('Alpha', 'Beta')
    world.order(f'{mode} Beta read-counters always')
    world.order(f'{mode} Beta stream-status always')
    wait_until('a request waits', lambda: world.counts('Beta')['waiting'] > 0)
    world.wait_for_looks('Alpha', 8)
    world.click_button('Reset')
    wait_until('a reset of the other', lambda: world.counts('Alpha')['reset-statistics'] == 1)
    world.press('Escape')
    world.expect_exit()
    world.start(asked='Alpha')
    world.order('resume Beta')
    world.wait_for_looks('Beta')
    wait_until('nothing waits any more', lambda: world.counts('Beta')['waiting'] == 0)


# Elsewhere unit tests cover late drivers.
def test_a_driver_that_is_late_is_shown_and_takes_nothing_from_the_others(world):
    world.plug('Alpha', 'Beta')
    world.order('hold Beta map-statistics 1')
    world.start(asked='Alpha')
    assert world.counts('Alpha')['views'] == 1 and world.looks('Beta') == 0
    world.order('resume Beta')
    world.wait_for_looks('Beta')
    world.wait_for_change(lambda: world.order('tick 1000'), *FIRST_COLUMN)


# Elsewhere the program sets no priorities, and chooses the 32-bit addresses itself.
def test_no_thread_is_urgent_and_no_address_is_cut(world):
    world.start('Alpha')
    assert world.order('urgent-threads Quendel') == '0'

    # One block, at an address that 32 bits can hold.
    counts = world.counts('Alpha')
    assert counts['views'] == 1 and 0 < counts['highest-view'] < 1 << 31


def expect_to_start(world, program):
    world.program = world.session.run(program)
    world.desk.wait_for_window('Quendel')
    world.press('Return')
    world.expect_exit()


# The installer and the archive are for Windows.
def test_installs_upgrades_repairs_and_goes_without_a_trace(world, tmp_path):
    """The older package has an older program, of which nothing must stay."""
    drive = world.session.prefix / 'drive_c'
    folder = drive / 'Program Files/Quendel'

    def install(*arguments):
        assert world.session.run('msiexec', *arguments, '/qn').wait_for_exit() == 0

    def contents(folder):
        return {file.name: file.read_bytes() for file in folder.iterdir()}

    def installed():
        """Codes and versions of the products that the system lists."""
        asked = world.session.run('reg', 'query', r'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall', '/s',
                                  stdout=subprocess.PIPE, text=True)
        return re.findall(r'Uninstall\\(\{.*?\})\s.*?DisplayVersion\s+REG_SZ\s+(\S+)', asked.process.communicate()[0], re.DOTALL)

    for packages in world.build / 'older', ROOT / 'build/packages':
        [package] = packages.glob('Quendel-*.msi')
        [archive] = packages.glob('Quendel-*-windows.zip')
        shutil.unpack_archive(archive, tmp_path / package.stem)
        expected = contents(tmp_path / package.stem / 'Quendel')
        install('/i', windows_path(package))
        assert contents(folder) == expected
        [(code, version)] = installed()
        assert package.stem == f'Quendel-{version}'
        assert len(list(drive.rglob('Quendel.lnk'))) == 1

    expect_to_start(world, tmp_path / package.stem / 'Quendel/Quendel.exe')  # where it was unpacked

    (folder / 'Quendel.exe').unlink()
    install('/i', windows_path(package), 'REINSTALL=ALL', 'REINSTALLMODE=omus')  # Wine does not know /f
    assert contents(folder) == expected
    expect_to_start(world, folder / 'Quendel.exe')
    install('/x', code)
    assert not folder.exists() and installed() == [] and not list(drive.rglob('Quendel.lnk'))


# Elsewhere ctest runs them. Added here are the guard with structured exceptions, and names in another code page.
@pytest.mark.parametrize('program, tests, language, told',
                         [('QuendelTests', '-' + UNSUITABLE, None, 'code page 1250'),
                          ('QuendelTests', 'SystemTextTests.*', 'ja_JP', 'code page 932'),
                          ('QuendelStructuredTests', '*', None, '3 tests')])
def test_the_unit_tests_pass(world, program, tests, language, told):
    tests = world.session.run(world.build / f'{program}.exe', '--gtest_brief=1', f'--gtest_filter={tests}',
                              language=language, stdout=subprocess.PIPE)
    said = tests.process.communicate()[0].decode(errors='replace')
    assert tests.wait_for_exit() == 0 and 'PASSED' in said and told in said, said[-4000:]
