#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""What a fleet does in a second, and how long a job waits for its SETUP. Usage, inside scripts/netns:
measure.py [--servers N] [--hosts N] [--jobs N] [--half RATE] [--compare [--pairs N]]
--compare: what a host of the fleet costs beside zelk-phone serve, which does the same calls."""
import argparse
import datetime
import json
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from world import Events, World, wait_until


def seconds_of(process):
    fields = open(f"/proc/{process.pid}/stat").read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def processors(world):
    """Seconds of processor time of all nodes, servers and simulators."""
    return [sum(seconds_of(each) for each in group) for group in
            ([host.node.process for host in world.hosts], [server.program.process for server in world.servers],
             [host.simulator.process for host in world.hosts])]


def stored(world):
    line = world.standing()
    return line["done"] if line else 0


def throughput(world, count):
    jobs = [{"id": f"t{n}", "to": f"03{n:06}", "digits": 1} for n in range(count)]
    before = processors(world)
    began = time.monotonic()
    world.submit(jobs)
    submitted = time.monotonic() - began
    wait_until(lambda: stored(world) >= count, "results", 600)
    seconds = time.monotonic() - began
    used = [after - earlier for after, earlier in zip(processors(world), before)]
    print(f"{count} jobs: submitted in {submitted:.1f} s, done in {seconds:.1f} s, {count / seconds:.0f} a second; processor "
          f"time: hosts {used[0]:.1f} s, servers {used[1]:.1f} s, simulators {used[2]:.1f} s")
    for stream in ("zelk-zelk-results", "KV_zelk-zelk-claims"):
        state = world.stream(stream)
        print(f"{stream}: {state['messages']} messages, {state['bytes'] / state['messages']:.0f} bytes each")


def latency(world, rate, count):
    link = Events(world, "nothing")
    sent = {}
    next_at = time.monotonic()
    for n in range(count):
        time.sleep(max(0, next_at - time.monotonic()))
        next_at += 1 / rate
        sent[f"l{n}"] = time.time()
        link.publish(f"zelk.zelk.job.l{n}", json.dumps({"id": f"l{n}", "to": f"04{n:06}", "digits": 1}).encode())
    results = wait_until(lambda: (all_of := [r for r in world.results() if r["id"] in sent]) and len(all_of) == count and all_of,
                         "results")
    waited = sorted(datetime.datetime.fromisoformat(r["times"]["dialled"].replace("Z", "+00:00")).timestamp() - sent[r["id"]]
                    for r in results)
    print(f"{count} jobs at {rate} a second, from the job to the SETUP: median {waited[count // 2] * 1000:.0f} ms, p99 "
          f"{waited[count * 99 // 100] * 1000:.0f} ms, most {waited[-1] * 1000:.0f} ms")


def cost_of_node(world, numbers):
    """Seconds of processor time of zelk-node for jobs with these numbers."""
    host = world.hosts[0]
    host.start()
    wait_until(lambda: [node["free"] for node in world.nodes()] == [60], world.nodes)
    before = stored(world)
    calm = seconds_of(host.node.process)
    world.submit([{"id": f"c{number}", "to": number, "digits": 1} for number in numbers])
    wait_until(lambda: stored(world) >= before + len(numbers), "results", 600)
    used = seconds_of(host.node.process) - calm
    host.node.kill(signal.SIGTERM)
    return used


def cost_of_serve(world, numbers):
    """The same calls by zelk-phone serve, under a script that keeps as many channels busy as the fleet's host had."""
    phone = subprocess.Popen([*world.hosts[0].inside, os.environ["ZELK_PHONE"], "serve", "--json"], stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, text=True)
    left, over, calm = list(numbers), 0, 0
    for line in map(json.loads, phone.stdout):
        if line["type"] == "snapshot":
            calm = seconds_of(phone)
            free = list(range(len(line["channels"])))
        elif line["type"] == "disconnected":
            over += 1
            free = [line["channel"]]
        else:
            continue
        for channel in free:
            if left:
                print(json.dumps({"id": len(left), "do": "dial", "channel": channel, "number": left.pop()}), file=phone.stdin,
                      flush=True)
        if over == len(numbers):
            break
    used = seconds_of(phone) - calm
    phone.stdin.close()
    phone.wait()
    return used


def compare(world, count, pairs):
    """In turns, because what else this computer does changes."""
    costs = []
    for pair in range(pairs):
        costs.append((cost_of_serve(world, [f"04{pair:03}{n:06}" for n in range(count)]),
                      cost_of_node(world, [f"05{pair:03}{n:06}" for n in range(count)])))
        print(f"{count} calls on one host: zelk-phone serve {costs[-1][0]:.2f} s of processor time, zelk-node "
              f"{costs[-1][1]:.2f} s, {costs[-1][1] / costs[-1][0]:.2f} times as much", flush=True)
    print(f"median of {pairs}: {statistics.median(node / serve for serve, node in costs):.2f} times as much")


def main():
    parser = argparse.ArgumentParser()
    for name, value in (("servers", 3), ("hosts", 3), ("jobs", 5000), ("half", 75), ("hold", 300), ("pairs", 5)):
        parser.add_argument(f"--{name}", type=int, default=value)
    parser.add_argument("--compare", action="store_true")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        world = World(folder, servers=options.servers)
        try:
            world.init()
            if options.compare:
                world.host(cards=2, trunks=1, simulator=["--hold", str(options.hold)])
                compare(world, options.jobs, options.pairs)
            else:
                for _ in range(options.hosts):
                    world.host(cards=2, trunks=1, simulator=["--hold", str(options.hold)]).start()
                for host in world.hosts:
                    host.wait_up()
                throughput(world, options.jobs)
                latency(world, options.half, 10 * options.half)
        finally:
            world.end()


if __name__ == "__main__":
    sys.exit(main())
