#!/usr/bin/env python3
"""Counts what the plug-in takes: instructions, those of them that are atomic, and allocations.

Fails when a count is above its limit by more than 5 %.
"""
import argparse
import functools
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIMITS = ROOT / 'bench/limits.json'
TIMES = {'onLoad': 1, 'getOperatingMode': 1000, 'getBuildTime': 1000, 'modemRRCStateInd': 1000,
         'loadMbnConfigFile': 10, 'twoSteps': 1000}
GROWTH = 1.05


@functools.lru_cache(maxsize=None)
def atomic_addresses(library):
    """Where an instruction has a lock prefix, or is an exchange with memory, which locks as well."""
    text = subprocess.run(['objdump', '-d', '--no-show-raw-insn', library], check=True,
                          capture_output=True, text=True).stdout
    return {int(found[1], 16)
            for found in re.finditer(r'^ *([0-9a-f]+):\t(?:lock |xchg .*\()', text, re.M)}


def instructions(profile):
    """Yields each library's path, and an address with its count of instructions."""
    library, inclusive = None, False
    for line in profile.splitlines():
        if line.startswith('ob='):
            library = line[3:]
        elif line.startswith('calls='):
            inclusive = True  # the next line has what the callee took
        elif line.startswith('0x'):
            address, count = line.split()[0], line.split()[-1]
            if not inclusive:
                yield library, int(address, 16), int(count)
            inclusive = False


def count(bench, name, times):
    # Bound at the start, and the same functions for memory whatever the processor can do.
    environment = {**os.environ, 'LD_BIND_NOW': '1',
                   'GLIBC_TUNABLES': 'glibc.cpu.hwcaps=-AVX2,-AVX512F,-AVX512VL,-ERMS,-FSRM'}
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run(
            ['valgrind', '--quiet', '--tool=callgrind', '--dump-instr=yes', '--dump-line=no',
             '--compress-strings=no', '--compress-pos=no', '--collect-atstart=no',
             '--toggle-collect=countedRuns*', f'--callgrind-out-file={folder}/profile',
             bench, '--count', name, str(times)],
            check=True, stdout=subprocess.PIPE, text=True, env={**environment, 'TMPDIR': folder})
        profile = pathlib.Path(folder, 'profile').read_text(encoding='utf-8')
    total = atomic = 0
    for library, address, executed in instructions(profile):
        total += executed
        if library.startswith('/') and address in atomic_addresses(library):
            atomic += executed
    return {'instructions': total // times, 'atomic': atomic // times,
            'allocations': int(run.stdout)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--json', action='store_true', help='print the counts as JSON')
    parser.add_argument('--write', action='store_true', help='make the counts the limits')
    parser.add_argument('bench', nargs='?', default=ROOT / 'build/release/bin/ox-modem-bench')
    options = parser.parse_args()

    counts = {name: count(options.bench, name, times) for name, times in TIMES.items()}
    if options.write:
        LIMITS.write_text(json.dumps(counts, indent=2) + '\n', encoding='utf-8')
    limits = json.loads(LIMITS.read_text(encoding='utf-8'))
    grown = 0
    for name, figures in counts.items():
        for what, figure in figures.items():
            limit = limits[name][what]
            above = figure > limit * GROWTH
            grown += above
            if not options.json or above:
                print(f'{name:18} {what:13} {figure:9,} of {limit:9,}{"  grown" * above}',
                      file=sys.stderr if options.json else sys.stdout)
    if options.json:
        print(json.dumps(counts, indent=2))
    return 1 if grown else 0


if __name__ == '__main__':
    sys.exit(main())
