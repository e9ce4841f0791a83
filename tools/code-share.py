#!/usr/bin/env python3
"""Counts the lines of code per folder, and fails when the tests outgrow the rest.

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
SCRIPTS = {'.ci/run'}
DOC = '"""'


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
    parser.add_argument('--max', type=float, default=35, help='tests allowed, in %% of the rest')
    parser.add_argument('--verbose', action='store_true', help='tell every folder')
    options = parser.parse_args()

    listed = subprocess.run(['git', 'ls-files', '-z', '--cached', '--others', '--exclude-standard'],
                            check=True, capture_output=True, text=True).stdout.split('\0')
    folders = collections.Counter()
    for path in map(pathlib.Path, filter(None, listed)):
        if is_code(path) and path.exists():
            folders['/'.join(path.parts[:-1][:2]) or '.'] += count(path)
    if options.verbose:
        for folder, lines in sorted(folders.items()):
            print(f'{lines:7} {folder}')
    tests = sum(lines for folder, lines in folders.items() if folder.split('/')[0] == 'tests')
    rest = sum(folders.values()) - tests
    share = 100 * tests / rest
    print(f'tests {tests} lines, everything else {rest}: {share:.1f} %, at most {options.max:g} %')
    return 0 if share <= options.max else 1


if __name__ == '__main__':
    sys.exit(main())
