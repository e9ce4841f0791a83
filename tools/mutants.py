#!/usr/bin/env python3
"""Plants one fault at a time and tells which of them the tests do not see.

The faults are picked at random over all places where one can be planted: comparisons, conditions,
numbers, results, and statements left out; lines that only log are left alone. Work on a clean clone:
the sources are changed in place and put back.
"""
import argparse
import contextlib
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time

SWAPS = [
    (r' == ', ' != '), (r' != ', ' == '), (r' < ', ' <= '), (r' > ', ' >= '), (r' <= ', ' < '),
    (r' >= ', ' > '), (r' && ', ' || '), (r' \|\| ', ' && '), (r' \+ ', ' - '), (r' - ', ' + '),
    (r' \+= ', ' -= '), (r'\btrue\b', 'false'), (r'\bfalse\b', 'true'), (r'\+\+', '--'),
    (r'(?<=[( ])!(?=[\w(])', ''), (r'\bstd::min\b', 'std::max'), (r'\bstd::max\b', 'std::min'),
    (r'\bERRNO_SUCCESS\b', 'ERRNO_FAILED'), (r'\bERRNO_FAILED\b', 'ERRNO_SUCCESS'),
    (r'\bERRNO_(?:NOT_CONNECTED|NO_MEMORY|UNSUPPORTED)\b', 'ERRNO_INVALID_PARAM'),
    (r'\bERRNO_INVALID_PARAM\b', 'ERRNO_FAILED'), (r'\bnullptr\b', '{}'),
]
NUMBER = r'(?<![\w.\'"%])\d+(?![\w.\'"])'
STATEMENT = re.compile(r'\s+(?!return\b|using\b|delete\b|throw\b|goto\b|case\b)[\w:>.()-]+\(.*\);$')
MARK, MARKED = 'OX_MUTANTS', str(os.getpid())  # in the environment of all that a run starts
IGNORED = re.compile(r'\s*(//|/?\*|#|LOG_|static_assert|template|using\b|extern\b)')


def mutants_of(path):
    """All (path, line number, changed line) of a file."""
    before = '{'
    for number, line in enumerate(path.read_text().splitlines()):
        code = re.sub(r'"(\\.|[^"\\])*"', lambda found: '"' + ' ' * (len(found[0]) - 2) + '"', line)
        code = code.split('//')[0].rstrip()
        whole = before[-1:] in ';{}:'
        before = code or before
        if not code or IGNORED.match(line):
            continue
        for pattern, other in SWAPS:
            for found in re.finditer(pattern, code):
                yield path, number, line[:found.start()] + other + line[found.end():]
        for found in re.finditer(NUMBER, code):
            last = found.end() - 1  # digit by digit, since a number may be octal
            yield path, number, line[:last] + str(int(line[last]) + 1) + line[found.end():]
        if whole and STATEMENT.match(code):
            yield path, number, re.match(r'\s*', line)[0] + ';'


def run(command, limit):
    """Whether it succeeds in so many seconds; what it has started ends with it either way."""
    process = subprocess.Popen(command, shell=True, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, env={**os.environ, MARK: MARKED})
    try:
        return process.wait(limit) == 0
    except subprocess.TimeoutExpired:
        return False
    finally:
        while kill_marked():
            pass
        process.wait()


def kill_marked():
    """Kills all that have the mark, also those in sessions of their own; how many there were."""
    killed = 0
    for path in pathlib.Path('/proc').glob('[0-9]*/environ'):
        with contextlib.suppress(OSError):
            if f'{MARK}={MARKED}'.encode() in path.read_bytes().split(b'\0'):
                os.kill(int(path.parent.name), signal.SIGKILL)
                killed += 1
    return killed


def try_mutant(mutant, options):
    path, number, changed = mutant
    original = path.read_text()
    lines = original.splitlines(keepends=True)
    lines[number] = changed + '\n'
    path.write_text(''.join(lines))
    try:
        if not run(options.build, 600):
            return 'does not build'
        return 'survived' if run(options.test, options.limit) else 'killed'
    finally:
        path.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('paths', nargs='+', type=pathlib.Path, help='sources, or folders of them')
    parser.add_argument('--count', type=int, default=20, help='faults that build (default 20)')
    parser.add_argument('--seed', type=int, default=1)
    parser.add_argument('--build', default='cmake --build --preset dev')
    parser.add_argument('--test', default='ctest --preset dev --stop-on-failure --timeout 120')
    parser.add_argument('--limit', type=float, default=300, help='seconds a test run may take')
    options = parser.parse_args()

    if subprocess.run(['git', 'diff', '--quiet', 'HEAD'], check=False).returncode != 0:
        parser.error('the sources have changes that are not committed')
    files = [file for path in options.paths
             for file in ([path] if path.is_file() else sorted(path.rglob('*.cpp')) +
                          sorted(path.rglob('*.h')))]
    mutants = [mutant for file in files for mutant in mutants_of(file)]
    random.Random(options.seed).shuffle(mutants)
    tally = {'killed': 0, 'survived': 0}
    for mutant in mutants:
        if sum(tally.values()) == options.count:
            break
        start = time.monotonic()
        path, number, changed = mutant
        verdict = try_mutant(mutant, options)
        if verdict in tally:
            tally[verdict] += 1
            print(f'{verdict:8} {time.monotonic() - start:4.0f} s  {path}:{number + 1}: '
                  f'{changed.strip()}', flush=True)
    print(f'{len(mutants)} places; {tally["killed"]} killed, {tally["survived"]} survived')
    return 0 if tally['survived'] == 0 else 1


if __name__ == '__main__':
    sys.exit(main())
