# SPDX-License-Identifier: GPL-2.0-only
"""Two networks and the programs in them, for what measures the library under load."""
import contextlib
import json
import os
import pathlib
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = ROOT / "build/release/bin"
ANSWERER = "10.9.0.1"  # the library's or the echo's address
BROADCAST = "10.9.0.255"
CARD_CORE, ANSWERER_CORE = 0, 1


class Network:
    """A namespace of its own, for who answers, joined by a veth pair to ours, which has the cards."""

    def __init__(self, cards):
        self.holder = subprocess.Popen(["unshare", "--net", "cat"], stdin=subprocess.PIPE)
        own = os.readlink("/proc/self/ns/net")
        while os.readlink(f"/proc/{self.holder.pid}/ns/net") == own:
            time.sleep(0.01)
        self.inside = ["nsenter", f"--net=/proc/{self.holder.pid}/ns/net"]
        self.addresses = [f"10.9.0.{11 + card}" for card in range(cards)]
        ip("link", "add", "cards", "type", "veth", "peer", "name", "host", "netns", str(self.holder.pid))
        for address in self.addresses:
            ip("address", "add", f"{address}/24", "brd", BROADCAST, "dev", "cards")
        ip("link", "set", "cards", "up")
        ip("address", "add", f"{ANSWERER}/24", "brd", BROADCAST, "dev", "host", before=self.inside)
        ip("link", "set", "host", "up", before=self.inside)
        ip("link", "set", "lo", "up", before=self.inside)

    def close(self):
        self.holder.stdin.close()
        self.holder.wait()


def ip(*arguments, before=()):
    subprocess.run([*before, "ip", *arguments], check=True)


class Process:
    """A program that says when it is ready, and says its figures when its input ends."""

    def __init__(self, *command, core, before=(), folder=None, environment=None):
        self.process = subprocess.Popen([*before, "taskset", "-c", str(core), *map(str, command)], text=True, cwd=folder,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        env={**os.environ, **(environment or {})})
        self.ready = self.line().strip()
        if not self.ready.startswith("ready"):
            raise RuntimeError(f"{command[0]} did not start")

    def line(self):
        return self.process.stdout.readline()

    def tell(self, text):
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()

    def ask(self):
        self.tell("")
        return json.loads(self.line())

    def finish(self):
        self.process.stdin.close()
        last = self.line()
        self.process.wait()
        return json.loads(last) if last.strip() else {}


def threads(pid):
    """Of every thread of a process: its name, its time on a core in ns, its voluntary and other switches."""
    found = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(FileNotFoundError):  # one that has just ended
            status = dict(line.split(":", 1) for line in (task / "status").read_text().splitlines())
            run = int((task / "schedstat").read_text().split()[0])
            switches = [int(status[key]) for key in ("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")]
            found[task.name] = (status["Name"].strip(), run, *switches)
    return found


def memory(pid):
    status = dict(line.split(":", 1) for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines())
    return {key: int(status[key].split()[0]) for key in ("VmRSS", "VmHWM")}


def busy_seconds(core):
    """For how long a core was not idle since the machine's start."""
    fields = next(line.split() for line in pathlib.Path("/proc/stat").read_text().splitlines()
                  if line.startswith(f"cpu{core} "))
    user, nice, system, _, _, irq, softirq, steal = map(int, fields[1:9])
    return (user + nice + system + irq + softirq + steal) / os.sysconf("SC_CLK_TCK")


def watch(pid, seconds):
    """What a process used of a core in this time: percent by thread name, and switches a second. "others" is what else
    ran on its core: the kernel's part of packets that arrived, and whatever disturbed the measurement."""
    begun, before, busy = time.monotonic(), threads(pid), busy_seconds(ANSWERER_CORE)
    time.sleep(seconds)
    ended, after, busy = time.monotonic(), threads(pid), busy_seconds(ANSWERER_CORE) - busy
    elapsed = ended - begun
    cpu, switches = {}, 0
    for task, (name, run, *counts) in after.items():
        was = before.get(task, (name, 0, 0, 0))
        cpu[name] = cpu.get(name, 0) + (run - was[1]) / elapsed / 1e7
        switches += sum(counts) - sum(was[2:])
    return {"seconds": elapsed, "cpu": cpu, "others": max(busy / elapsed * 100 - sum(cpu.values()), 0),
            "switches": switches / elapsed, **memory(pid)}
