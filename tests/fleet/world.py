# SPDX-License-Identifier: GPL-2.0-only
"""Servers, and hosts with simulated cards, each host in a network namespace of its own that hangs on this one by a cable.

Run inside scripts/netns. The environment names the programs, see CMakeLists.txt.
"""
import json
import os
import shutil
import signal
import socket
import subprocess
import threading
import time
import urllib.request
from pathlib import Path

LONGEST = 60  # seconds that anything may be waited for
SERVER_ADDRESS = "10.9.0.1"


def command(*words, check=True):
    return subprocess.run(words, check=check, capture_output=True, text=True)


def wait_until(condition, what, longest=LONGEST):
    end = time.monotonic() + longest
    while not (found := condition()):
        assert time.monotonic() < end, f"not within {longest} s: {what() if callable(what) else what}"
        time.sleep(0.05)
    return found


class Program:
    """A program whose output goes to a file."""

    def __init__(self, log, words, **more):
        self.log = log
        with open(log, "ab") as out:
            self.process = subprocess.Popen([str(word) for word in words], stdout=out, stderr=subprocess.STDOUT, **more)

    def said(self, text):
        return text in self.log.read_text(errors="replace")

    def wait_said(self, text):
        def is_said():
            assert self.process.poll() is None or self.said(text), self.log.read_text(errors="replace")
            return self.said(text)
        wait_until(is_said, lambda: f"{text!r} in {self.log.read_text(errors='replace')}")

    def is_running(self):
        return self.process.poll() is None

    def kill(self, number=signal.SIGKILL):
        self.process.send_signal(number)
        return self.process.wait(timeout=LONGEST)


class Server:
    """One of the fleet's servers; several are a cluster."""

    def __init__(self, folder, number, count, extra=""):
        self.number = number
        self.folder = folder / f"server{number}"
        self.folder.mkdir()
        self.port, self.page = 4221 + number, 8221 + number
        routes = ", ".join(f'"nats://127.0.0.1:{6221 + each}"' for each in range(1, count + 1) if each != number)
        cluster = f'cluster {{ name: "zelk", listen: "127.0.0.1:{6221 + number}", routes: [{routes}] }}' if count > 1 else ""
        self.config = self.folder / "server.conf"
        self.config.write_text(f"""
server_name: "server{number}"
listen: "{SERVER_ADDRESS}:{self.port}"
http: "127.0.0.1:{self.page}"
jetstream {{ store_dir: "{self.folder}/store", max_file_store: 1G }}
{cluster}
{extra}
""")
        self.program = None

    def start(self):
        self.program = Program(self.folder / "log", ["nats-server", "-c", self.config])

    def wait_up(self):
        self.program.wait_said("Server is ready")

    def kill(self, number=signal.SIGKILL):
        self.program.kill(number)

    def is_well(self):
        """Whether its streams work, as it says itself."""
        try:
            return urllib.request.urlopen(f"http://127.0.0.1:{self.page}/healthz", timeout=5).status == 200
        except OSError:
            return False


class Host:
    """A computer with simulated cards, zelk-node on it, and a cable to the servers."""

    def __init__(self, world, number, cards=1, trunks=1, simulator=()):
        self.world, self.number, self.name = world, number, f"host{number}"
        self.folder = world.folder / self.name
        (self.folder / "files").mkdir(parents=True)
        for place, program in (("bin", "ZELK_NODE"), ("lib", "ZELKAPI_BUILT_LIBRARY")):
            (self.folder / place).mkdir()
            shutil.copy(os.environ[program], self.folder / place)
        self.keeper = subprocess.Popen(["unshare", "--net", "cat"], stdin=subprocess.PIPE)
        own = os.stat("/proc/self/ns/net").st_ino
        wait_until(lambda: os.stat(f"/proc/{self.keeper.pid}/ns/net").st_ino != own, "a namespace")
        self.inside = ["nsenter", "-t", str(self.keeper.pid), "-n"]
        self.cable = f"cable{number}"
        command("ip", "link", "add", self.cable, "type", "veth", "peer", "name", "eth0", "netns", str(self.keeper.pid))
        command("ip", "address", "add", f"10.9.{number}.1/24", "dev", self.cable)
        command("ip", "link", "set", self.cable, "up")
        for words in ("link set lo up", f"address add 10.9.{number}.2/24 dev eth0", "link set eth0 up",
                      f"route add {SERVER_ADDRESS} via 10.9.{number}.1"):
            command(*self.inside, "ip", *words.split())
        self.reports = []
        self.node = None
        self.started = 0.0  # by this computer's clock
        self.simulator = None
        self.cards, self.trunks, self.simulator_options = cards, trunks, simulator
        self.start_simulator()

    def start_simulator(self):
        self.reports.append(self.folder / f"report{len(self.reports)}.json")
        self.simulator = Program(self.folder / f"simulator{len(self.reports)}.txt", [
            *self.inside, os.environ["ZELK_CARDSIM"], "--cards", self.cards, "--trunks", self.trunks, "--serial",
            100000 + 100 * self.number, "--report", self.reports[-1], *self.simulator_options])
        self.simulator.wait_said(f"card {self.cards}:")

    def start(self, *options, env=None, role=""):
        self.started = time.time()
        self.node = Program(self.folder / "node.txt", [
            *self.inside, self.folder / "bin" / "zelk-node", "--node", self.name, "--files", self.folder / "files",
            *self.world.link_options(role), *options], env=env)

    def wait_up(self):
        self.node.wait_said(f"node {self.name} of fleet")

    def unplug(self):
        command("ip", "link", "set", self.cable, "down")

    def plug(self):
        command("ip", "link", "set", self.cable, "up")
        command(*self.inside, "ip", "route", "replace", SERVER_ADDRESS, "via", f"10.9.{self.number}.1")

    def calls(self):
        """Ends the simulator, and gives the calls of its report."""
        if self.simulator.is_running():
            self.simulator.kill(signal.SIGTERM)
        return [call for report in self.reports for call in json.loads(report.read_text())["calls"]]

    def end(self):
        for each in (self.node, self.simulator):
            if each is not None and each.is_running():
                each.kill()
        command("ip", "link", "delete", self.cable)
        self.keeper.stdin.close()
        self.keeper.wait()


class World:
    """All of it."""

    def __init__(self, folder, servers=1, server_extra="", role="", prepare=None):
        self.folder = Path(folder)
        self.role = role  # of the user as whom zelk-fleet runs, if not told otherwise
        command("ip", "link", "add", "servers", "type", "dummy", check=False)
        command("ip", "address", "replace", f"{SERVER_ADDRESS}/32", "dev", "lo")
        self.servers = [Server(self.folder, number, servers, server_extra) for number in range(1, servers + 1)]
        self.hosts = []
        if prepare:
            prepare(self)
        for server in self.servers:
            server.start()
        for server in self.servers:
            server.wait_up()

    def link_options(self, role=""):
        role = role or self.role
        user = ["--user", role, "--password-file", self.folder / f"{role}.password"] if role else []
        return [*user, "--servers", ",".join(f"nats://{SERVER_ADDRESS}:{each.port}" for each in self.servers), "--plain"]

    def host(self, **options):
        self.hosts.append(Host(self, len(self.hosts) + 1, **options))
        return self.hosts[-1]

    def fleet(self, *words, text=None, check=True, timeout=LONGEST, role=""):
        words = (os.environ["ZELK_FLEET"], *self.link_options(role), *[str(word) for word in words])
        try:
            done = subprocess.run(words, input=text, capture_output=True, text=True, timeout=timeout)
        except subprocess.TimeoutExpired:
            done = subprocess.CompletedProcess(words, -signal.SIGKILL, "", f"not within {timeout} s")
        assert not check or done.returncode == 0, done.stderr + done.stdout
        return done

    def init(self, *options):
        """A cluster takes a while until it has a leader."""
        replicas = str(len(self.servers))
        wait_until(lambda: self.fleet("init", "--replicas", replicas, *options, check=False).returncode == 0,
                   lambda: self.fleet("init", "--replicas", replicas, *options, check=False).stderr)

    def submit(self, jobs):
        return self.fleet("submit", "-", text="\n".join(json.dumps(job) for job in jobs)).stdout

    def results(self):
        return [json.loads(line) for line in self.fleet("results").stdout.splitlines()]

    def wait_results(self, count, longest=LONGEST):
        """Servers may be away meanwhile."""
        seen: list[str] = []

        def is_there():
            done = self.fleet("results", check=False)
            seen[:] = done.stdout.splitlines() if done.returncode == 0 else seen
            return len(seen) >= count
        wait_until(is_there, lambda: f"{count} results; there are {len(seen)}", longest)
        return [json.loads(line) for line in seen]

    def nodes(self, check=True):
        return [json.loads(line) for line in self.fleet("nodes", "--json", check=check).stdout.splitlines()]

    def standing(self):
        done = self.fleet("watch", "--once", "--json", check=False)
        line = json.loads(done.stdout) if done.returncode == 0 else {}
        return line if "waiting" in line else None

    def stream(self, name):
        """The state of a stream, as the page of a server that has a copy shows it; nothing while none does."""
        for server in self.servers:
            try:
                page = json.load(urllib.request.urlopen(f"http://127.0.0.1:{server.page}/jsz?streams=true", timeout=LONGEST))
            except OSError:
                continue
            for account in page.get("account_details", []):
                for each in account.get("stream_detail", []):
                    if each["name"] == name:
                        return each["state"]
        return {}

    def busy(self):
        """How many jobs each host has, as its entry says."""
        return {node["node"]: node["jobs"] for node in self.nodes()}

    def end(self):
        for host in self.hosts:
            host.end()
        for server in self.servers:
            if server.program.is_running():
                server.kill()


class Events:
    """What the fleet's hosts say, line by line: the protocol is a line for the head, and the data after it."""

    def __init__(self, world, subject="zelk.zelk.event.>", user=""):
        self.socket = socket.create_connection(("10.9.0.1", world.servers[0].port), timeout=LONGEST)
        self.file = self.socket.makefile("rwb")
        self.file.readline()  # what the server says of itself
        options = {"verbose": False, **({"user": user, "pass": user} if user else {})}
        self.file.write(b"CONNECT " + json.dumps(options).encode() + b"\r\nSUB " + subject.encode() + b" 1\r\nPING\r\n")
        self.file.flush()
        self.lines, self.refused = [], []
        self.ready = threading.Event()
        threading.Thread(target=self._run, daemon=True).start()
        assert self.ready.wait(LONGEST)

    def _run(self):
        try:
            for head in self.file:
                words = head.split()
                if words[0] == b"MSG":
                    data = self.file.read(int(words[-1]) + 2)
                    self.lines.append((words[1].decode(), json.loads(data)))
                elif words[0] == b"PING":
                    self.file.write(b"PONG\r\n")
                    self.file.flush()
                elif words[0] == b"-ERR":
                    self.refused.append(head.decode())
                elif words[0] == b"PONG":
                    self.ready.set()
        except (OSError, ValueError):
            pass

    def publish(self, subject, data):
        self.file.write(f"PUB {subject} {len(data)}\r\n".encode() + data + b"\r\n")
        self.file.flush()

    def of(self, kind):
        return [line for _, line in self.lines if line["type"] == kind]
