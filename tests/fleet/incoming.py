#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Incoming calls for workers of which one is killed every few seconds, and started again.

Usage, inside scripts/netns: incoming.py [--calls N] [--every S] [--workers N] [--per-second N]
Each call must be answered or refused by one worker, or answered by the host in its place, all in time; none is asked about
twice. One worker is slow at times: its answers come when the host has done without.
"""
import argparse
import collections
import itertools
import json
import os
import subprocess
import sys
import tempfile
import threading
import time

from world import World, command, wait_until

WITHIN = 1.0  # seconds that a worker has
SLACK = 0.7   # for the way of the signalling on a computer that does other work as well


class Worker:
    """zelk-fleet work, with a function that answers each call."""

    def __init__(self, world, answer):
        self.process = subprocess.Popen([os.environ["ZELK_FLEET"], *world.link_options(), "work"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.asked, self.results = [], []
        self.thread = threading.Thread(target=self._run, args=(answer,), daemon=True)
        self.thread.start()

    def _run(self, answer):
        for line in map(json.loads, self.process.stdout):
            if line["type"] == "result":
                self.results.append(line)
                continue
            self.asked.append(line)
            wish = answer(line)
            if wish:
                try:
                    self.say(id=line["id"], **wish)
                except OSError:  # it was killed
                    return

    def say(self, **line):
        print(json.dumps(line), file=self.process.stdin, flush=True)

    def end(self):
        self.process.kill()
        self.process.wait()
        self.thread.join()


class Crew:
    """Workers of which one is killed now and then, and what all of them were asked and wanted."""

    def __init__(self, world, count):
        self.world = world
        self.number = itertools.count()
        self.late = 0
        self.workers = [Worker(world, self.answer) for _ in range(count)]
        self.gone = []

    def answer(self, _call):
        number = next(self.number)
        if number % 25 == 24:
            self.late += 1
            time.sleep(WITHIN * 1.5)
        return {"do": "reject" if number % 2 else "answer"}

    def kill_one(self):
        place = len(self.gone) % len(self.workers)
        old = self.workers[place]
        old.end()
        self.gone.append(old)
        self.workers[place] = Worker(self.world, self.answer)

    def asked(self):
        return [(call["channel"], call["time"]) for worker in self.gone + self.workers for call in worker.asked]


def check(calls, asked, entry, count):
    """The faults, one line each."""
    faults = []
    if len(calls) != count:
        faults.append(f"{len(calls)} of {count} calls in the exchange's records")
    twice = [key for key, times in collections.Counter(asked).items() if times != 1]
    if twice:
        faults.append(f"{len(twice)} calls were asked about twice")
    answered, defaulted = entry["incomingAnswered"], entry["incomingDefaulted"]
    if answered + defaulted != count:
        faults.append(f"{answered} answers and {defaulted} times the default for {count} calls")
    connected = [call for call in calls if call["connected"]]
    refused = [call for call in calls if not call["connected"] and call["cause"] == 21]
    if len(connected) + len(refused) != count:
        faults.append(f"{len(connected)} calls were answered, {len(refused)} refused")
    if len(connected) < defaulted:
        faults.append(f"{defaulted} times the default, which is to answer, and {len(connected)} calls were answered")
    late = [call["setupMs"] for call in connected if call["setupMs"] > 1000 * (WITHIN + SLACK)]
    if late:
        faults.append(f"{len(late)} were answered late, one after {max(late):.0f} ms")
    return faults


def run(folder, options):
    world = World(folder)
    crew = None
    try:
        world.init()
        host = world.host(cards=2, simulator=["--calls", str(options.calls), "--calls-per-second", str(options.per_second),
                                              "--concurrent", "50", "--stay", "--hold", "500"])
        crew = Crew(world, options.workers)
        host.start("--incoming-within", str(int(WITHIN * 1000)), "--incoming-default", "answer")
        host.wait_up()

        def done():
            nodes = world.nodes()
            return nodes and nodes[0]["incomingAnswered"] + nodes[0]["incomingDefaulted"] >= options.calls
        end = time.monotonic() + 60 + 3 * options.calls / options.per_second
        next_kill = time.monotonic() + options.every
        while not done():
            assert time.monotonic() < end, world.nodes()
            if time.monotonic() >= next_kill:
                next_kill += options.every
                crew.kill_one()
            time.sleep(0.1)
        time.sleep(2 * WITHIN)  # a late answer would be carried out only now, a second one counted
        wait_until(lambda: world.nodes()[0]["free"] == 60, world.nodes)
        entry = world.nodes()[0]
        for worker in crew.workers:
            worker.end()
        calls = [call for call in host.calls() if call["direction"] != "from library"]
        found = check(calls, crew.asked(), entry, options.calls)
        print(f"{options.calls} calls, {len(crew.gone)} workers killed: {entry['incomingAnswered']} answers, "
              f"{entry['incomingDefaulted']} times the default, {crew.late} answers too late, slowest "
              f"{max(call['setupMs'] for call in calls):.0f} ms: {'; '.join(found) or 'as it should be'}", flush=True)
        return not found and len(crew.gone) > 0 and crew.late > 0 and entry["incomingDefaulted"] > 0
    finally:
        if crew:
            for worker in crew.workers:
                worker.end()
        world.end()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name, value in (("calls", 1000), ("workers", 3), ("per-second", 12)):
        parser.add_argument(f"--{name}", type=int, default=value)
    parser.add_argument("--every", type=float, default=10)
    options = parser.parse_args()
    command("ip", "link", "set", "lo", "up", check=False)
    with tempfile.TemporaryDirectory() as folder:
        return 0 if run(folder, options) else 1


if __name__ == "__main__":
    sys.exit(main())
