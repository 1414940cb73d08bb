#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""zelk-trace.exe and zelk-doctor.exe beside the programs of Linux, on the same files: the same bytes on standard output, the
same sentences on standard error, the same files written, the same exit codes. And live, with a dumpcap of ours.

usage: tests/windows/captures.py LINUX_BIN WINDOWS_BIN TEST_PROGRAMS    (inside scripts/wine-netns)
"""
import concurrent.futures
import fcntl
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

from wire_files import d_channel_file, moved, packets_of, pcap, pcapng, status_page, with_sound

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
AT_ONCE = 3  # Wine's server, one thread, serves them all
SOUND_SECONDS = 20
# Of each kind that tests/replay has, one or two.
CAPTURES = ("answers/hang-up-crosses-refusal.pcapng", "calls/export-of-a-call.pcapng", "calls/no-channel-named.pcapng",
            "calls/second-trunk-of-the-second-card.pcapng", "clearing/every-cause.pcapng", "loss/hdlc-errors.pcapng",
            "loss/of-the-line.pcapng", "network/answered-and-cleared.pcapng", "restart/of-a-channel.pcapng",
            "restart/of-the-card-with-calls.pcapng")
YEAR = 31_557_600 * 1_000_000_000
INI = b"[Debug]\r\nLevel=abc\r\n[Generel]\r\nx=1\r\n[General]\r\nClientType=3\r\nAudioBufers=4\r\n"


def run(command, folder, stdin=None):
    with open(stdin, "rb") if stdin else open(os.devnull, "rb") as given:
        done = subprocess.run(command, cwd=folder, stdin=given, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
                              timeout=120)
    return done.returncode, done.stdout, done.stderr


class Programs:
    """The programs of both systems."""

    def __init__(self, linux, windows, folder):
        self.commands = ([os.path.join(linux, "{}")], ["wine", os.path.join(windows, "{}.exe")])
        self.folder = folder
        self.faults = []
        self.runs = 0

    def command(self, system, program, arguments):
        return [part.format(program) for part in self.commands[system]] + arguments

    def compare(self, line):
        """line: "PROGRAM ARGUMENT... [< INPUT]"; OUT among the arguments is a file that is written."""
        words = line.split()
        stdin = os.path.join(self.folder, words[-1]) if "<" in words else None
        words = words[:words.index("<")] if stdin else words
        results = []
        for system in (0, 1):
            written = f"written-{system}-{abs(hash(line))}"
            arguments = [written if word == "OUT" else word for word in words[1:]]
            code, output, errors = run(self.command(system, words[0], arguments), self.folder, stdin)
            path = os.path.join(self.folder, written)
            contents = None
            if os.path.exists(path):
                with open(path, "rb") as file:
                    contents = file.read()
                os.remove(path)
            # The report of the doctor has the moment of each line.
            output = re.sub(rb'"time":"[^"]*"', b'"time":""', output) if "doctor" in line else output
            results.append((code, output, errors.replace(written.encode(), b"OUT"), contents))
        self.runs += 1
        if results[0] != results[1]:
            shown = [part[:2000] if isinstance(part, bytes) else part for result in results for part in result]
            self.faults.append(f"{line}\n  Linux:   {shown[:4]}\n  Windows: {shown[4:]}")
        return results[0]

    def expect(self, is_so, what):
        if not is_so:
            self.faults.append(what)


def write(folder, name, data):
    with open(os.path.join(folder, name), "wb") as file:
        file.write(data)


def make_files(folder):
    """Names of captures of tests/replay, which are there too, and what is made of them."""
    names = []
    for name in CAPTURES:
        shutil.copy(os.path.join(ROOT, "tests", "replay", name), folder)
        names.append(os.path.basename(name))
    packets = list(packets_of(os.path.join(folder, "of-the-line.pcapng")))
    loud = with_sound(packets, 1, SOUND_SECONDS)
    write(folder, "loud.pcapng", pcapng(loud))
    write(folder, "loud.pcap", pcap(loud))
    write(folder, "other-order.pcap", pcap(packets, ">", True))
    write(folder, "next-century.pcapng", pcapng(moved(packets, 100 * YEAR)))
    write(folder, "behind-2038.pcap", pcap(moved(packets, 14 * YEAR)))
    write(folder, "cut.pcapng", pcapng(packets)[:-40])
    write(folder, "cut.pcap", pcap(packets)[:-5])
    write(folder, "none.pcap", b"no capture at all\r\n")
    write(folder, "short.pcap", b"\x0a")
    write(folder, "empty.pcap", pcap([]))
    write(folder, "page.status", status_page())
    write(folder, "zelk-100001-1.hdlc", d_channel_file())
    return names


def commands(names):
    every = ["calls", "calls --csv", "calls --json", "calls --number *1*", "calls --cause 16", "ladder --call 1",
             "ladder --call 1 --layer2", "ladder --call 1 --svg OUT", "ladder --call 99", "audio --call 1 -o OUT",
             "audio --call 99 -o OUT", "export -o OUT", "export -o -", "export --anonymise -o OUT", "board", "board --once",
             "board --json", "board --metrics"]
    for verb in every:
        yield "zelk-trace " + verb.replace(" ", " loud.pcapng ", 1) if " " in verb else f"zelk-trace {verb} loud.pcapng"
    for verb in ("calls --json", "board --json", "audio --call 1 -o OUT"):
        yield "zelk-trace " + verb.replace(" ", " loud.pcap ", 1)
    for name in [*names, "other-order.pcap", "next-century.pcapng", "behind-2038.pcap", "cut.pcapng", "cut.pcap", "none.pcap",
                 "short.pcap", "empty.pcap", "there-is-none.pcap"]:
        yield f"zelk-trace calls {name} --json"
    yield "zelk-trace calls - --csv < loud.pcapng"
    yield "zelk-trace export zelk-100001-1.hdlc -o OUT"
    yield "zelk-trace calls loud.pcapng --surely-not"
    yield "zelk-trace audio loud.pcapng --call 1 -o no-folder/x.wav"
    for form in ("", " --json", " --metrics"):
        yield f"zelk-trace board --status page.status{form}"
    for name in ("loud.pcapng", "of-the-line.pcapng", "of-the-card-with-calls.pcapng", "cut.pcap", "none.pcap"):
        yield f"zelk-doctor --capture {name}"
    yield "zelk-doctor --capture loud.pcapng --json"
    yield "zelk-doctor --capture - < loud.pcap"


def live(programs, windows_tests):
    """With tests/windows/dumpcap.c, which is found in the folder."""
    shutil.copy(os.path.join(windows_tests, "dumpcap.exe"), programs.folder)
    shutil.copy(os.path.join(programs.folder, "loud.pcapng"), os.path.join(programs.folder, "wire.pcapng"))
    expected = run(programs.command(0, "zelk-trace", ["calls", "wire.pcapng"]), programs.folder)[1]
    code, output, errors = run(programs.command(1, "zelk-trace", ["calls", "-i", "wire"]), programs.folder)
    programs.expect(code == 0 and output == expected and output, f"live: {code}, {output[:500]}, {errors[:500]}")
    with open(os.path.join(programs.folder, "priority.txt"), encoding="ascii") as file:
        programs.expect(file.read() == "idle", "live: the program does not run behind all others")
    code, output, errors = run(programs.command(1, "zelk-trace", ["board", "-i", "nowhere", "--json"]), programs.folder)
    programs.expect((code, errors) == (2, b"zelk-trace: nowhere: cannot be captured (There is no such adapter.)\n"),
                    f"live, without the adapter: {code}, {errors}")


def board_on_a_console(programs):
    """A terminal, which Wine makes a console of: the table appears in it, and Ctrl-C, as which Wine takes the signal, ends
    it."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 130, 0, 0))
    command = programs.command(1, "zelk-trace", ["board", "-i", "wire"])
    with subprocess.Popen(command, cwd=programs.folder, stdin=theirs, stdout=theirs, stderr=theirs) as board:
        os.close(theirs)
        seen = b""
        end = time.monotonic() + 60
        while not all(text in seen for text in (b"100001-1", b"The capture has ended.")) and time.monotonic() < end:
            if select.select([ours], [], [], 1)[0]:
                seen += os.read(ours, 65536)
        board.send_signal(signal.SIGINT)
        while board.poll() is None and time.monotonic() < end:
            if select.select([ours], [], [], 0.1)[0]:
                seen += os.read(ours, 65536)
        code = board.poll()
        board.kill()
    os.close(ours)
    programs.expect(code == 0 and b"The capture has ended." in seen, f"board on a console: {code}, {seen[-2000:]}")


def rules_of(report):
    """(rule, sentence, evidence) of the findings on files, in words that every system uses."""
    found = re.findall(r"^(\w[\w ]*): (.*) \[((?:ini|library|page|folder|file)-[\w-]+)\]$", report, re.M)
    return sorted((rule, severity, sentence.replace("Z:", "").replace("\\", "/")) for severity, sentence, rule in found)


def library(programs):
    """The folder of a library: its files make the same findings. Of the machine Wine shows less than a system does, and what
    it does not show is said."""
    folder = os.path.join(programs.folder, "app")
    os.mkdir(folder)
    write(folder, "ZelkApi64.dll", b"MZ")
    write(folder, "ZelkApi.ini", INI)
    write(folder, "ZelkApi.status", status_page())
    reports = [run(programs.command(system, "zelk-doctor", ["--library", "app"]), programs.folder) for system in (0, 1)]
    rules = [rules_of(report[1].decode()) for report in reports]
    programs.expect(rules[0] == rules[1] and len(rules[0]) >= 5, f"library: {rules}\n{reports}")
    missing = [run(programs.command(system, "zelk-doctor", ["--library", "nowhere"]), programs.folder) for system in (0, 1)]
    programs.expect([each[0] for each in missing] == [3, 3], f"no library: {missing}")
    programs.expect(reports[1][0] == 2 and not reports[1][2] and b"\r" not in reports[1][1], f"library: {reports[1]}")


def main():
    linux, windows, windows_tests = (os.path.abspath(path) for path in sys.argv[1:4])
    with tempfile.TemporaryDirectory() as folder:
        programs = Programs(linux, windows, folder)
        # The programs that come with Wine's server write to the standard error of whoever is first.
        run(programs.command(1, "zelk-trace", ["--help"]), folder)
        lines = list(commands(make_files(folder)))
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            results = dict(zip(lines, pool.map(programs.compare, lines)))
        # What is compared is something.
        for line in ("zelk-trace calls loud.pcapng", "zelk-doctor --capture loud.pcapng"):
            programs.expect(results[line][1].count(b"\n") >= 1, f"{line} says nothing")
        programs.expect(len(results["zelk-trace audio loud.pcapng --call 1 -o OUT"][3] or b"") > 1000, "there is no sound")
        live(programs, windows_tests)
        board_on_a_console(programs)
        library(programs)
    for fault in programs.faults:
        print(f"captures: differs: {fault}", file=sys.stderr)
    print(f"{programs.runs} commands, {len(programs.faults)} differ")
    sys.exit(1 if programs.faults else 0)


main()
