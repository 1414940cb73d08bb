#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Three servers, three hosts with two simulated cards each, jobs for them, one host and one server killed in the middle, and
the table of results. Usage, inside scripts/netns: demo.py [JOBS]"""
import csv
import io
import collections
import sys
import tempfile

from world import World, wait_until


def say(text):
    print(f"\n== {text}", flush=True)


def run(folder, count):
    say("three servers, each with a copy of everything")
    world = World(folder, servers=3)
    try:
        world.init("--ack-wait", "3", "--node-life", "4")
        say("three hosts with two cards each, every host in a network namespace of its own")
        for _ in range(3):
            host = world.host(cards=2, trunks=1, simulator=["--hold", "2500", "--alert-after", "100", "--answer-after", "300"])
            host.start("--channels", str(max(count // 12, 1)))
        for host in world.hosts:
            host.wait_up()
        print(world.fleet("nodes").stdout, end="")
        say(f"{count} jobs")
        lines = [f"job-{n},030555{n:04}" for n in range(count)]
        print(world.fleet("submit", "-", text="id,to,digits\n" + "".join(f"{line},1\n" for line in lines)).stdout, end="")
        wait_until(lambda: world.busy().get("host2") == max(count // 12, 1), world.busy)
        say("host2 is killed with -9, in its calls, and server 1 as well")
        world.hosts[1].node.kill()
        world.servers[0].kill()
        world.wait_results(count)
        say("the results")
        table = world.fleet("results", "--csv").stdout
        rows = list(csv.DictReader(io.StringIO(table)))
        tally = collections.Counter((row["outcome"], row["causeName"], row["message"], row["node"]) for row in rows)
        for (outcome, cause, message, node), number in sorted(tally.items()):
            print(f"{number:5}  {outcome:14} {cause:18} {message:24} told by {node}")
        dialled = collections.Counter(call["called"] for host in world.hosts for call in host.calls())
        twice = [number for number, times in dialled.items() if times > 1]
        print(f"{len(rows)} results of {count} jobs, {len(dialled)} numbers dialled, {len(twice)} of them twice")
        return len(rows) == len({row["id"] for row in rows}) == count and not twice
    finally:
        world.end()


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as place:
        sys.exit(0 if run(place, int(sys.argv[1]) if len(sys.argv) > 1 else 300) else 1)
