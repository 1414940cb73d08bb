#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Jobs for three hosts and three servers of which one host, server or cable is taken away every few seconds, from a seed.

Usage, inside scripts/netns: chaos.py [--jobs N] [--seed N] [--every S] [--servers N] [--hosts N] [--folder DIR]
  [--disk]      the disk of one server is full for 10 s
  [--clock [S]] the clock of one host is 5 minutes ahead, or so many seconds
  [--submitter] the submitter is killed and run again
Every job must have one result, no number may be dialled twice, jobs of hosts that died in a call must say so, nothing may
hang, and all channels must be usable at the end. What was to be taken away must have been, or the run says nothing.
"""
import argparse
import collections
import json
import os
import random
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from clock import clock_faults, wrong_clock, wrong_times
from world import LONGEST, World, command, wait_until


class Faults:
    """Takes one thing away at a time, every few seconds, and gives it back before the next one goes."""

    def __init__(self, world, seed, every):
        self.world, self.random, self.every = world, random.Random(seed), every
        self.told: collections.Counter[str] = collections.Counter()
        self.stop = threading.Event()
        self.thread = threading.Thread(target=self._run)
        self.failed = None
        self.lock = threading.Lock()  # while something is away
        self.sick = None  # a server that is not taken away

    def _run(self):
        try:
            due = time.monotonic() + self.every
            while not self.stop.wait(max(0, due - time.monotonic())):
                due += self.every
                with self.lock:
                    self.all_run()
                    what = self.random.choice([self.host, self.host, self.server, self.cable])
                    self.told[what.__name__] += 1
                    what(self.random.uniform(0.3, 0.9) * self.every)
        except Exception as error:  # told by the main thread
            self.failed = error

    def all_run(self):
        """What ended by itself would be started again unseen."""
        for host in self.world.hosts:
            assert host.node.is_running(), f"{host.name} ended by itself: {host.node.log.read_text(errors='replace')[-2000:]}"
        for server in self.world.servers:
            assert server is self.sick or server.program.is_running(), f"server {server.number} ended by itself"

    def host(self, seconds):
        host = self.random.choice(self.world.hosts)
        host.node.kill()
        self.stop.wait(seconds)
        host.start(*host.options, env=host.env)

    def server(self, seconds):
        server = self.random.choice([each for each in self.world.servers if each is not self.sick])
        server.kill()
        self.stop.wait(seconds)
        server.start()

    def cable(self, seconds):
        host = self.random.choice(self.world.hosts)
        host.unplug()
        self.stop.wait(seconds)
        host.plug()

    def end(self):
        self.stop.set()
        self.thread.join()
        if self.failed:
            raise self.failed
        self.all_run()


def small_disk(world):
    """Puts the store of the first server, before it starts, on a disk of its own."""
    store = world.servers[0].folder / "store"
    store.mkdir()
    command("mount", "-t", "tmpfs", "-o", "size=64m", "tmpfs", store)
    return store


class FullDisk:
    """Fills the disk of a server and keeps it full for 10 s: what is freed meanwhile is taken again. A server that does not work
    afterwards is started again, which its operator has to do."""

    def __init__(self, server, faults):
        self.server, self.faults_beside = server, faults
        self.free = []  # blocks, each time that it was looked at
        self.needed_start = False
        faults.sick = server
        self.thread = threading.Thread(target=self._run)
        self.thread.start()

    def _run(self):
        end = time.monotonic() + 10
        store = self.server.folder / "store"
        with open(store / "filler", "wb", buffering=0) as filler:
            while time.monotonic() < end and not self.faults_beside.stop.is_set():
                try:
                    while True:
                        filler.write(bytes(65536))
                except OSError:
                    self.free.append(os.statvfs(store).f_bavail)
                self.faults_beside.stop.wait(0.02)
        (store / "filler").unlink()
        with self.faults_beside.lock:
            end = time.monotonic() + 10
            while not self.server.is_well() and time.monotonic() < end:
                time.sleep(0.5)
            self.needed_start = not self.server.is_well()
            if self.needed_start:
                if self.server.program.is_running():
                    self.server.kill()
                self.server.start()
            self.faults_beside.sick = None

    def faults(self):
        """Whether it was full, and the server felt it."""
        self.thread.join()
        full = self.free.count(0)
        told = self.server.program.log.read_text(errors="replace").count("no space left on device")
        print(f"disk: full {full} of {len(self.free)} times that it was looked at, the server told {told} times of it, "
              f"and {'had to be started again' if self.needed_start else 'worked on'}")
        # It may lock itself up at the first write that fails, before it has told of it.
        if full < 100 or (told == 0 and not self.needed_start):
            return [f"the disk was full {full} times that it was looked at, its server told {told} times of it"]
        return []


def submit_and_be_killed(world, folder, text):
    """A submitter that ends when a part of its jobs is stored; fails if it was not killed in time."""
    path = Path(folder) / "jobs.json"
    path.write_text(text)
    submitter = subprocess.Popen([os.environ["ZELK_FLEET"], *world.link_options(), "submit", path],
                                 stdout=subprocess.DEVNULL)
    end = time.monotonic() + LONGEST
    while world.stream("zelk-zelk-jobs").get("last_seq", 0) == 0:
        assert time.monotonic() < end, "no job was stored"
    submitter.kill()
    assert submitter.wait() < 0, "the submitter was done before it was killed"


def submit(world, text):
    """A submitter may lose its server as well: what it did not finish it does when it is run again. What it says at last."""
    said = []

    def is_done():
        done = world.fleet("submit", "-", text=text, check=False, timeout=600)
        said.append(done.stdout)
        return done.returncode == 0
    wait_until(is_done, "submitted", 600)
    return said[-1]


def ready_channels(world):
    """Nothing while the servers elect a leader."""
    return {node["node"]: (node["usable"], node["free"], node["jobs"]) for node in world.nodes(check=False)}


def wrong_outcome(result, call):
    """What a result and the exchange's record of the call, if there is one, say otherwise."""
    outcome = result["outcome"]
    if outcome not in ("connected", "host-lost", "not-connected", "line-lost"):
        yield f"ended with {outcome}"
    if outcome == "host-lost" and result["message"] != "host lost in the call":
        yield "does not say what became of it"
    if outcome in ("connected", "not-connected") and call is None:
        yield f"is told to be {outcome}, its number was not dialled"
    elif outcome in ("connected", "not-connected") and call["connected"] != (outcome == "connected"):
        yield f"is told to be {outcome}, the exchange says otherwise"
    elif call is not None and call["clearedBy"] == "lost" and outcome not in ("host-lost", "line-lost"):
        yield f"is told to be {outcome}, its host died in the call"


def check(calls, jobs, results, most_lost):
    """The faults, one line each."""
    faults = []
    by_id = collections.Counter(result["id"] for result in results)
    if sorted(by_id) != sorted(job["id"] for job in jobs):
        faults.append(f"{len(jobs)} jobs, {len(by_id)} of them with a result")
    faults += [f"{ident} has {count} results" for ident, count in by_id.items() if count != 1]
    dialled = collections.Counter(call["called"] for call in calls)
    faults += [f"{number} was dialled {count} times" for number, count in dialled.items() if count != 1]
    records = {call["called"]: call for call in calls}
    for result in results:
        faults += [f"{result['id']} {fault}" for fault in wrong_outcome(result, records.get(result["to"]))]
    lost = sum(result["outcome"] == "host-lost" for result in results)
    if lost > most_lost:
        faults.append(f"{lost} calls were lost with their hosts, there can have been {most_lost}")
    return faults


def make_hosts(world, folder, options):
    for _ in range(options.hosts):
        host = world.host(cards=2, trunks=1, simulator=["--hold", str(options.hold), "--answer-after", "50"])
        host.options = ["--channels", str(options.channels)]
        host.env = wrong_clock(folder, options.clock) if options.clock and host.number == 1 else None
        host.start(*host.options, env=host.env)
    for host in world.hosts:
        host.wait_up()


def do_jobs(world, folder, options, jobs, faults):
    """All of it while things go away. Results, and what was not done as it was to be."""
    text = "\n".join(json.dumps(job) for job in jobs)
    found = []
    faults.thread.start()
    try:
        disk = FullDisk(world.servers[0], faults) if options.disk else None
        if options.submitter:
            submit_and_be_killed(world, folder, text)
        said = submit(world, text)
        known = int(said.split()[3])
        if options.submitter and not 0 < known < len(jobs):
            found.append(f"the second submitter says: {said}")
        world.wait_results(len(jobs), 60 + len(jobs) // 10)
    finally:
        faults.end()
    return found + (disk.faults() if disk else [])


def run(folder, options):
    stores = []
    world = World(folder, servers=options.servers,
                  prepare=lambda made: stores.append(small_disk(made)) if options.disk else None)
    try:
        world.init("--ack-wait", "3", "--node-life", "4")
        make_hosts(world, folder, options)
        jobs = [{"id": f"j{n}", "to": f"030{n:06}", "digits": 1} for n in range(options.jobs)]
        began, began_at = time.monotonic(), time.time()
        faults = Faults(world, options.seed, options.every)
        found = do_jobs(world, folder, options, jobs, faults)
        seconds = time.monotonic() - began
        channels = 60
        wait_until(lambda: ready_channels(world) == {host.name: (channels, channels, 0) for host in world.hosts},
                   lambda: ready_channels(world))
        # What is left in the stream would be dialled again.
        wait_until(lambda: (line := world.standing()) and line["waiting"] + line["running"] == 0, world.standing)
        found += clock_faults(world, options.clock)
        results = world.results()
        calls = [call for host in world.hosts for call in host.calls()]
        told = faults.told
        found += check(calls, jobs, results, options.channels * (told["host"] + told["cable"]))
        found += wrong_times(results, began_at, time.time())
        found += [f"{host.name} did nothing" for host in world.hosts if host.name not in {each["node"] for each in results}]
        if not told:
            found.append("nothing was taken away")
        outcomes = collections.Counter(result["outcome"] for result in results)
        lost = sum(call["clearedBy"] == "lost" for call in calls)
        print(f"seed {options.seed}: {options.jobs} jobs in {seconds:.0f} s, {dict(outcomes)}, {len(calls)} numbers dialled, {lost} "
              f"calls lost by the exchanges, taken away: {dict(told)}: {'; '.join(found[:5]) or 'as it should be'}", flush=True)
        return not found
    finally:
        world.end()
        for store in stores:
            command("umount", store)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name, value in (("jobs", 300), ("seed", 1), ("servers", 3), ("hosts", 3), ("hold", 300), ("channels", 30)):
        parser.add_argument(f"--{name}", type=int, default=value)
    parser.add_argument("--every", type=float, default=5)
    parser.add_argument("--folder")
    parser.add_argument("--clock", type=int, nargs="?", const=300, default=0)
    for name in ("disk", "submitter"):
        parser.add_argument(f"--{name}", action="store_true")
    options = parser.parse_args()
    command("ip", "link", "set", "lo", "up", check=False)
    if options.folder:
        return 0 if run(options.folder, options) else 1
    with tempfile.TemporaryDirectory() as folder:
        return 0 if run(folder, options) else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except subprocess.CalledProcessError as error:
        sys.exit(f"{error.cmd}: {error.stderr}")
