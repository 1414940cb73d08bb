#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Jobs for three hosts and three servers of which one host, server or cable is taken away every few seconds, from a seed.

Usage, inside scripts/netns: chaos.py [--jobs N] [--seed N] [--every S] [--servers N] [--hosts N] [--folder DIR]
  [--disk]      the disk of one server is full for 10 s
  [--clock]     the clock of one host is 5 minutes ahead
  [--submitter] the submitter is killed and run again
Every job must have one result, no number may be dialled twice, jobs of hosts that died in a call must say so, nothing may
hang, and all channels must be usable at the end.
"""
import argparse
import collections
import datetime
import json
import os
import random
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from world import World, command, wait_until


class Faults:
    """Takes one thing away at a time, and gives it back before the next one goes."""

    def __init__(self, world, seed, every):
        self.world, self.random, self.every = world, random.Random(seed), every
        self.told: collections.Counter[str] = collections.Counter()
        self.stop = threading.Event()
        self.thread = threading.Thread(target=self._run)
        self.failed = None

    def _run(self):
        try:
            while not self.stop.wait(self.every):
                what = self.random.choice([self.host, self.host, self.server, self.cable])
                self.told[what.__name__] += 1
                what(self.random.uniform(0.3, 0.9) * self.every)
        except Exception as error:  # told by the main thread
            self.failed = error

    def host(self, seconds):
        host = self.random.choice(self.world.hosts)
        host.node.kill()
        self.stop.wait(seconds)
        host.start(*host.options, env=host.env)

    def server(self, seconds):
        server = self.random.choice(self.world.servers)
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


CLOCK_AHEAD = """
#define _GNU_SOURCE
#include <dlfcn.h>
#include <time.h>
int clock_gettime(clockid_t clock, struct timespec* time) {
  int (*real)(clockid_t, struct timespec*) = dlsym(RTLD_NEXT, "clock_gettime");
  int result = real(clock, time);
  if (clock == CLOCK_REALTIME) {
    time->tv_sec += 300;
  }
  return result;
}
"""


def clock_ahead(folder):
    """The environment of a program whose clock is 5 minutes ahead."""
    source = Path(folder) / "ahead.c"
    source.write_text(CLOCK_AHEAD)
    command("cc", "-shared", "-fPIC", "-o", source.with_suffix(".so"), source, "-ldl")
    return {**os.environ, "LD_PRELOAD": str(source.with_suffix(".so"))}


def small_disk(world):
    """Puts the store of the first server, before it starts, on a disk of its own."""
    store = world.servers[0].folder / "store"
    store.mkdir()
    command("mount", "-t", "tmpfs", "-o", "size=64m", "tmpfs", store)
    return store


class FullDisk:
    """Fills a disk and keeps it full for 10 s: what is freed meanwhile is taken again."""

    def __init__(self, server, store, stop):
        self.server, self.store, self.stop = server, store, stop
        self.free = []  # blocks, each time that it was looked at
        self.thread = threading.Thread(target=self._run)
        self.thread.start()

    def _run(self):
        end = time.monotonic() + 10
        with open(self.store / "filler", "wb", buffering=0) as filler:
            while time.monotonic() < end and not self.stop.is_set():
                try:
                    while True:
                        filler.write(bytes(65536))
                except OSError:
                    self.free.append(os.statvfs(self.store).f_bavail)
                self.stop.wait(0.02)
        (self.store / "filler").unlink()

    def faults(self):
        """Whether it was full, and the server felt it."""
        self.thread.join()
        full = self.free.count(0)
        told = self.server.program.log.read_text(errors="replace").count("no space left on device")
        print(f"disk: full {full} of {len(self.free)} times that it was looked at, the server told {told} times of it")
        if full < 100 or told == 0:
            return [f"the disk was full {full} times that it was looked at, its server told {told} times of it"]
        return []


def submit_and_be_killed(world, folder, text):
    """A submitter that ends when a part of its jobs is stored; fails if it was not killed in time."""
    path = Path(folder) / "jobs.json"
    path.write_text(text)
    submitter = subprocess.Popen([os.environ["ZELK_FLEET"], *world.link_options(), "submit", path],
                                 stdout=subprocess.DEVNULL)
    wait_until(lambda: (line := world.standing()) and line["waiting"] + line["running"] + line["done"] > 0, "a job")
    submitter.kill()
    assert submitter.wait() < 0, "the submitter was done before it was killed"


def ready_channels(world):
    return {node["node"]: (node["usable"], node["free"], node["jobs"]) for node in world.nodes()}


def check(world, jobs, results, told):
    """The faults, one line each."""
    faults = []
    by_id = collections.Counter(result["id"] for result in results)
    if sorted(by_id) != sorted(job["id"] for job in jobs):
        faults.append(f"{len(jobs)} jobs, {len(by_id)} of them with a result")
    faults += [f"{ident} has {count} results" for ident, count in by_id.items() if count != 1]
    dialled: collections.Counter[str] = collections.Counter()
    for host in world.hosts:
        dialled.update(call["called"] for call in host.calls())
    faults += [f"{number} was dialled {count} times" for number, count in dialled.items() if count != 1]
    for result in results:
        is_call = result["to"] in dialled
        if result["outcome"] == "connected" and not is_call:
            faults.append(f"{result['id']} is told to be connected, its number was not dialled")
        if result["outcome"] == "host-lost" and result["message"] != "host lost in the call":
            faults.append(f"{result['id']} does not say what became of it")
        if result["outcome"] not in ("connected", "host-lost", "not-connected", "line-lost"):
            faults.append(f"{result['id']} ended with {result['outcome']}")
    if told["host"] == 0 and any(result["outcome"] == "host-lost" for result in results) and told["cable"] == 0:
        faults.append("hosts were lost, none was taken away")
    if told["clock"]:
        faults += wrong_times(results)
    return faults


def wrong_times(results):
    """All are by the servers' clock, which is this computer's."""
    now = datetime.datetime.now(datetime.timezone.utc)
    ahead = [result for result in results if "ended" in result["times"] and
             datetime.datetime.fromisoformat(result["times"]["ended"].replace("Z", "+00:00")) > now]
    return [f"{len(ahead)} calls ended in the future"] if ahead else []


def run(folder, options):
    stores = []
    world = World(folder, servers=options.servers,
                  prepare=lambda made: stores.append(small_disk(made)) if options.disk else None)
    try:
        world.init("--ack-wait", "3", "--node-life", "4")
        for _ in range(options.hosts):
            host = world.host(cards=2, trunks=1, simulator=["--hold", str(options.hold), "--answer-after", "50"])
            host.options = ["--channels", str(options.channels)]
            host.env = clock_ahead(folder) if options.clock and host.number == 1 else None
            host.start(*host.options, env=host.env)
        for host in world.hosts:
            host.wait_up()
        jobs = [{"id": f"j{n}", "to": f"030{n:06}", "digits": 1} for n in range(options.jobs)]
        began = time.monotonic()
        faults = Faults(world, options.seed, options.every)
        faults.told["clock"] += options.clock
        faults.thread.start()
        try:
            text = "\n".join(json.dumps(job) for job in jobs)
            disk = FullDisk(world.servers[0], stores[0], faults.stop) if options.disk else None
            if options.submitter:
                submit_and_be_killed(world, folder, text)
            # The submitter may lose its server as well: what it did not finish it does when it is run again.
            wait_until(lambda: world.fleet("submit", "-", text=text, check=False, timeout=600).returncode == 0,
                       "submitted", 600)
            results = world.wait_results(options.jobs, 60 + options.jobs // 10)
        finally:
            faults.end()
        seconds = time.monotonic() - began
        channels = 60
        wait_until(lambda: ready_channels(world) == {host.name: (channels, channels, 0) for host in world.hosts},
                   lambda: ready_channels(world))
        time.sleep(5)  # a job that came back only now would be dialled again
        results = world.results()
        found = check(world, jobs, results, faults.told) + (disk.faults() if disk else [])
        outcomes = collections.Counter(result["outcome"] for result in results)
        print(f"seed {options.seed}: {options.jobs} jobs in {seconds:.0f} s, {dict(outcomes)}, taken away: "
              f"{dict(+faults.told)}: {'; '.join(found[:5]) or 'as it should be'}", flush=True)
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
    for name in ("disk", "clock", "submitter"):
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
