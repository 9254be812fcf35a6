#!/usr/bin/env python3
"""Runs one of the examples, or the demo, and holds its report to what must come of it.

    scenario_test.py ZEB_LAB EXAMPLE.yaml [--seed N]
    scenario_test.py ZEB_LAB demo [--no-fault | --link FROM:TO | --tap-closed]

What is expected of each example stands here, in EXPECTED. A failure shows the run's seed and how late the machine was.
"""
import json
import subprocess
import sys
import tempfile
from pathlib import Path

# From a fault to its message: dormancy, export, batch and logger take 10.4 to 11.6 s, and we at most 0.5 s of our own.
EARLIEST, LATEST = 10.4, 12.1


class Failed(Exception):
    pass


def check(holds, text):
    if not holds:
        raise Failed(text)


def messages(report):
    return [(tuple(entry['devices']), entry['time']) for entry in report['log']]


def check_covered(report, fault):
    """A fault where no stream passes shows nothing."""
    if fault['kind'] != 'loss':
        return
    pair = [fault['from'].split(':')[0], fault['to'].split(':')[0]]
    streams = sum(entry[2] for entry in report['coverage'] if entry[:2] == pair)
    check(streams > 0, f'no stream passes {pair[0]} to {pair[1]}: choose another seed')


def silence(report):
    check(not report['log'], f'expected no message, got {messages(report)}')


def one_each(*expected):
    """One message for each (first device, second device, number of the fault), each in its window, and no other."""

    def judge(report):
        got = messages(report)
        check(len(got) == len(expected), f'expected {len(expected)} messages, got {got}')
        for first, second, fault in expected:
            times = [time for devices, time in got if devices == (first, second)]
            check(len(times) == 1, f'expected one message of {first} and {second}, got {got}')
            after = times[0] - report['faults'][fault]['began']
            check(EARLIEST <= after <= LATEST, f'{first} and {second} came {after:.2f} s after the fault, '
                                               f'expected {EARLIEST} to {LATEST}')
            print(f'{first} and {second}: {after:.2f} s after the fault')

    return judge


def five_percent(report):
    """At least one TTL beyond the lossy link was lossy; none whose way does not lead over it; and no message."""
    silence(report)
    over = under = 0
    for record in report['lossRecords']:
        if not record['lossy']:
            continue
        way = record['hops'][:record['ttl'] + 1]
        if ('leaf1', 'spine1') in zip(way, way[1:]):
            over += 1
        else:
            under += 1
            print('lossy elsewhere:', record)
    check(over > 0, 'no TTL over the lossy link was lossy')
    check(under == 0, f'{under} TTLs that do not touch the lossy link were lossy')
    print(f'{over} TTLs over the lossy link were lossy')


EXPECTED = {
    'leaf1-spine1-lost': one_each(('leaf1', 'spine1', 0)),
    'spine1-leaf4-lost': one_each(('spine1', 'leaf4', 0)),
    'spine1-powered-off': silence,
    'spine1-frozen': one_each(*(('spine1', f'leaf{i}', 0) for i in range(1, 5))),
    'leaf1-powered-off': silence,
    'two-links-lost': one_each(('leaf1', 'spine1', 0), ('spine2', 'leaf3', 1)),
    'loss-that-returns': one_each(('leaf1', 'spine1', 0)),
    'loss-of-8-seconds': silence,
    'healthy': silence,
    'five-percent-lost': five_percent,
    'link-down': silence,
}


def run(command):
    print('$', ' '.join(map(str, command)), flush=True)
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)


def check_example(zeb_lab, example, more):
    judge = EXPECTED[example.stem]
    with tempfile.TemporaryDirectory() as directory:
        path = Path(directory) / 'report.json'
        done = run([zeb_lab, 'run', example, '--report', path, *more])
        print(done.stdout, done.stderr, sep='')
        check(done.returncode == 0, f'exit status {done.returncode}')
        report = json.loads(path.read_text())
    print(f'seed {report["seed"]}, lateness {report["lateness"]}')
    try:
        for fault in report['faults']:
            check_covered(report, fault)
        judge(report)
    except Failed:
        for key in ('log', 'pairHistory', 'faults', 'packets'):
            print(f'{key}: {json.dumps(report.get(key))}')
        raise


def check_demo(zeb_lab, more):
    done = run([zeb_lab, 'demo', *more])
    print(done.stdout, done.stderr, sep='')
    lines = done.stdout.splitlines()
    said = [line for line in lines if line.startswith('Zeb detected')]
    if '--tap-closed' in more:
        check(not said and done.returncode == 1, 'with the tap closed nothing may be said')
        check('The line did not come.' in lines, 'the demo must say that its line did not come')
    elif '--no-fault' in more:
        check(not said and done.returncode == 0, 'without a fault nothing may be said')
        check('The fabric is healthy.' in lines, 'the demo must say that the fabric is healthy')
    else:
        first, second = more[more.index('--link') + 1].split(':') if '--link' in more else ('leaf1', 'spine1')
        wanted = f'Zeb detected probe loss between devices {first} and {second}.'
        check(said == [wanted] and done.returncode == 0, f'expected {wanted!r}, got {said}')


def main():
    zeb_lab, what, more = sys.argv[1], sys.argv[2], sys.argv[3:]
    try:
        if what == 'demo':
            check_demo(zeb_lab, more)
        else:
            check_example(zeb_lab, Path(what), more)
    except Failed as failure:
        print(f'FAILED: {failure}')
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
