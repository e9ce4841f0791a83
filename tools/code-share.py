#!/usr/bin/env python3
"""Counts the lines of code per folder, and fails when a folder or the tests outgrow their ceiling.

Counted are sources, interface definitions and scripts; blank and comment lines are not, and a line
of more than 100 columns counts once per 100 begun.
"""
import argparse
import collections
import pathlib
import subprocess
import sys

WIDTH = 100
SUFFIXES = {'.cpp', '.h', '.hal', '.py', '.sh'}
LOG_READER = pathlib.Path('desk/ox-modem-log')  # has a row of its own
SCRIPTS = {'.ci/run', 'desk/ox-modem-log'}
DOC = '"""'


# Lines at most. A change that needs more of one takes them from something else in it.
CEILINGS = {
    'plug-in with its interface': (4365, ('plugin', 'interfaces')),
    'transport and what it shares': (2120, ('desk/libhidlbase', 'desk/runtime')),
    'lib-framework': (690, ('desk/lib-framework',)),
    'libcutils, libutils': (285, ('desk/libcutils', 'desk/libutils')),
    'fake modem': (2250, ('desk/libmodemapi_vendor',)),
    'host, with the sharing of the callbacks': (470, ('desk/host',)),
    'modemctl': (1950, ('desk/modemctl',)),
    'log reader': (850, ('desk/ox-modem-log',)),
    'scripts and generator': (735, ('tools',)),
    'device checks': (220, ('tools/device',)),
    'bench': (360, ('bench',)),
    'recorder and replay': (1100, ('desk/recorder',)),
    'everything': (22500, ('',)),
}
TESTS_MAX = 40.1  # in % of the rest


def is_code(path):
    return path.suffix in SUFFIXES or str(path) in SCRIPTS


def code_lines(path):
    """The lines of a file that are neither blank nor comment."""
    c_like = path.suffix in {'.cpp', '.h', '.hal'}
    begin, end = ('/*', '*/') if c_like else (DOC, DOC)
    inside = False
    for line in path.read_text(encoding='utf-8', errors='replace').splitlines():
        text = line.strip()
        if inside or text.startswith(begin):
            rest = text if inside else text[len(begin):]
            inside = end not in rest
            text = '' if inside else rest.split(end, 1)[1].strip()
        if text and not text.startswith('//' if c_like else '#'):
            yield line


def count(path):
    return sum(-(-len(line) // WIDTH) for line in code_lines(path))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--verbose', action='store_true', help='tell every folder')
    options = parser.parse_args()

    listed = subprocess.run(['git', 'ls-files', '-z', '--cached', '--others', '--exclude-standard'],
                            check=True, capture_output=True, text=True).stdout.split('\0')
    folders = collections.Counter()
    for path in map(pathlib.Path, filter(None, listed)):
        if is_code(path) and path.exists():
            folder = str(path) if path == LOG_READER else '/'.join(path.parts[:-1][:2]) or '.'
            folders[folder] += count(path)
    if options.verbose:
        for folder, lines in sorted(folders.items()):
            print(f'{lines:7} {folder}')
    within = [check_ceiling(name, *ceiling, folders) for name, ceiling in CEILINGS.items()]
    tests = lines_of(folders, 'tests')
    rest = sum(folders.values()) - tests
    share = 100 * tests / rest
    print(f'tests {tests} lines, everything else {rest}: {share:.1f} %, at most {TESTS_MAX:g} %')
    return 0 if all(within) and share <= TESTS_MAX else 1


def lines_of(folders, prefix):
    """Of a folder and those below; `tools` goes without the device checks, which have a row."""
    return sum(lines for folder, lines in folders.items()
               if (folder + '/').startswith(prefix + '/' if prefix else '')
               and not (prefix == 'tools' and folder == 'tools/device'))


def check_ceiling(name, most, prefixes, folders):
    lines = sum(lines_of(folders, prefix) for prefix in prefixes)
    print(f'{name}: {lines} lines, at most {most}')
    return lines <= most


if __name__ == '__main__':
    sys.exit(main())
