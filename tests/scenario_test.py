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


class Orders:
    """What orders are right at rest, from what is configured and what has changed, and from nothing else.

    An address that an interface has lost, or that the operator has taken out of a group, stays a destination of every
    order that stood then, until it is reported again or the order itself goes.
    """

    def __init__(self, report):
        self.probes = dict(report['configured']['probes'])
        self.switches = {name: {key: dict(value) if isinstance(value, dict) else value for key, value in each.items()}
                         for name, each in report['configured']['switches'].items()}
        self.enabled = True
        self.stale = {}  # by switch and order, as long as the order stands
        self.stand()
        for change in report['changes']:
            check('done' in change, f'{change} was not carried out')
            self.follow(change)
            self.stand()

    def standing(self):
        """(switch, probe, own group, peer group) of each order."""
        if not self.enabled:
            return
        for probe, settings in self.probes.items():
            for own, peer in {(settings['srcGroup'], settings['dstGroup']),
                              (settings['dstGroup'], settings['srcGroup'])}:
                for name, switch in self.switches.items():
                    if own in switch['groups']:
                        yield name, probe, own, peer

    def stand(self):
        keys = {(name, probe, own) for name, probe, own, _ in self.standing()}
        self.stale = {key: self.stale.get(key, set()) for key in keys}

    def lost(self, member, groups, address):
        for name, probe, own, peer in self.standing():
            if name != member and peer in groups:
                self.stale[name, probe, own].add(address)

    def follow(self, change):
        kind, node = change['kind'], change.get('node')
        groups = self.switches[node]['groups'] if node else None
        addresses = self.switches[node]['addresses'] if node else None
        if kind == 'probe':
            before, after = self.probes.pop(change['name'], None), change.get('probe')
            if before and after and (before['srcGroup'], before['dstGroup']) != (after['srcGroup'], after['dstGroup']):
                self.stand()  # it goes, and comes again
            if after:
                self.probes[change['name']] = after
        elif kind == 'group':
            name, after = change['name'], change.get('interfaces')
            for interface in set(groups.pop(name, []) if after is not None else []) - set(after or []):
                groups[name] = after  # the order's own side, for lost()
                if interface in addresses:
                    self.lost(node, {name}, addresses[interface])
            if after is None:
                groups.pop(name, None)
            else:
                groups[name] = after
        elif kind == 'address':
            before = addresses.pop(change['interface'], None)
            if change['to'] != 'none':
                addresses[change['interface']] = change['to']
            elif before:
                self.lost(node, {name for name, interfaces in groups.items() if change['interface'] in interfaces}, before)
        elif kind == 'service' and not node:
            self.enabled = change['enabled']
        elif kind == 'restart' and change['what'] == 'centre':
            self.stale = {}
        elif kind == 'restart' and change['what'] == 'agent':
            self.stale = {key: value for key, value in self.stale.items() if key[0] != node}

    def expected(self):
        orders = {name: {} for name in self.switches}
        for name, probe, own, peer in self.standing():
            settings = self.probes[probe]
            destinations = set(self.stale[name, probe, own])
            for other, switch in self.switches.items():
                if other != name:
                    destinations |= {switch['addresses'][interface] for interface in switch['groups'].get(peer, [])
                                     if interface in switch['addresses']}
            orders[name][f'{probe}:{own}'] = {
                'enabled': settings['enabled'], 'sources': sorted(self.switches[name]['groups'][own]),
                'destinations': sorted(destinations), 'ports': sorted(settings['ports']),
                'hops': {str(hop): settings['rate'] for hop in range(1, settings['distance'] + 1)}}
        return orders

    def streams(self):
        """(source, destination, port) of each stream that is to be sent; those from nowhere wait."""
        result = set()
        for name, orders in self.expected().items():
            for order in orders.values():
                if order['enabled']:
                    addresses = self.switches[name]['addresses']
                    result |= {(addresses[source], destination, port) for source in order['sources']
                               if source in addresses for destination in order['destinations']
                               for port in order['ports']}
        return result


def orders(report):
    """The orders that stand at the probing services are those that are right; so are what leads to them."""
    reading = Orders(report)
    for name, expected in reading.expected().items():
        got = report['orders'].get(name, {})
        for order in {**got, **expected}:
            have = got.get(order)
            if have:
                have = {**have, 'sources': sorted(have['sources']), 'destinations': sorted(have['destinations'])}
            check(have == expected.get(order), f'{name} {order}: expected {expected.get(order)}, got {have}')
    for name, switch in reading.switches.items():
        addresses = {group: {interface: switch['addresses'].get(interface, '0.0.0.0') for interface in interfaces}
                     for group, interfaces in switch['groups'].items()}
        check(report['clients'][name]['groups'] == addresses,
              f"{name}: expected groups {addresses}, got {report['clients'][name]['groups']}")
    named = {settings[side] for settings in reading.probes.values() for side in ('srcGroup', 'dstGroup')}
    check(set(report['groups']) == (named if reading.enabled else set()), f"groups {list(report['groups'])}, not {named}")
    for group, content in report['groups'].items():
        members = sorted(name for name, switch in reading.switches.items() if group in switch['groups'])
        check(sorted(content['members']) == members, f"{group}: expected {members}, got {content['members']}")


def nothing_left(report):
    """No row, no pair and no loss record of a stream that has ended.

    A row may outlive an address of its stream: nobody is left there to tell of the end, or to ask for it.
    """
    reading = Orders(report)
    streams = reading.streams()
    owned = {address for switch in reading.switches.values() for address in switch['addresses'].values()}
    for name, tables in report['rows'].items():
        for table, rows in tables.items():
            ended = [row for row in rows if tuple(row[:3]) not in streams and {row[0], row[1]} <= owned]
            check(not ended, f'{len(ended)} {table} rows of ended streams at {name}, such as {ended[:1]}')
    stand = [record['stream'] for record in report['standingLossRecords']]
    stand += [stream for pair in report['pairs'] for stream in pair['streams']]
    ended = [each for each in stand if (each['source'], each['destination'], each['port']) not in streams]
    check(not ended, f'{len(ended)} loss records or pairs of ended streams, such as {ended[:1]}')


def no_pair(report):
    check(not report['pairs'], f"pairs stand: {[pair['devices'] for pair in report['pairs']]}")


def no_new_stream(after, until=float('inf')):
    def judge(report):
        late = {name: times for name, times in report['epochs'].items()
                if any(after < time < until for time in times)}
        check(not late, f'streams began anew after {after} s: {late}')

    return judge


def deaths(least, most):
    def judge(report):
        check(least <= len(report['deaths']) <= most, f"deaths: {report['deaths']}")

    return judge


def named_only(*expected):
    """Messages of these pairs, in this order, and of no other."""

    def judge(report):
        got = [devices for devices, _ in messages(report)]
        check(got == list(expected), f'expected messages of {expected}, got {messages(report)}')

    return judge


def all_of(*judges):
    def judge(report):
        for each in judges:
            each(report)

    return judge


moved = all_of(silence, no_pair, orders, nothing_left)


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
    'change-probe': moved,
    'change-group': moved,
    'change-address': moved,
    'change-hostname': all_of(one_each(('edge-1', 'spine1', 0)), orders),
    'change-service': all_of(moved, deaths(1, 3)),
    'change-clear': all_of(one_each(('leaf1', 'spine1', 0)), no_pair, orders),
    'change-restart': all_of(moved, no_new_stream(8, 27)),
    'change-centre-in-loss': all_of(named_only(('leaf1', 'spine1'), ('leaf1', 'spine1'), ('spine2', 'leaf3')), orders),
    'change-many': moved,
    'change-many-restarts': moved,
    'move-link-down': moved,
    'move-spine-off': all_of(silence, no_pair),
    'move-then-loss': all_of(one_each(('leaf1', 'spine1', 1)), orders),
    'move-link-up': moved,
    'move-link-returns': moved,
    'move-spine-returns': moved,
    'move-leaf-cut-off': moved,
    'move-hash': all_of(moved, no_new_stream(8)),
    'move-agent-restarts': all_of(moved, no_new_stream(8)),
    'move-sonar-restarts': moved,
    'move-probe-stopped': moved,
    'move-probe-stopped-after-link': moved,
    'move-probe-stopped-in-loss': all_of(one_each(('leaf1', 'spine1', 0)), no_pair, orders, nothing_left),
    'move-probe-stopped-at-restart': moved,
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
    alive = '0 streams alive between 0 pairs' if '--tap-closed' in more else 'streams alive between 12 pairs'
    check(any(line.startswith('p1: ') and alive in line for line in lines), f'the demo must say {alive!r}')
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
