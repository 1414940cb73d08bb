#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Faults that the worlds are known to find, put into the library's sources one after the other.

Usage: scripts/dev world-faults [--check | --recorded] [--seeds N] [NAME...]
  --check     only that the place of each fault is still in the sources; nothing is built
  --recorded  run the one seed that is written down here for each, instead of all from 1 on
  --seeds N   look so far (1000)

Each fault is put into a copy of the tree (build/world-faults), the worlds are built there and run from seed 1 on until
one fails. A fault that is not found, or not by the words that it should be found by, fails the whole.
"""
import argparse
import contextlib
import dataclasses
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
COPY = ROOT / "build" / "world-faults"


@dataclasses.dataclass(frozen=True)
class Fault:
    name: str
    what: str
    changes: tuple  # of (file, text, replacement); the text stands once in the file
    words: str  # a regular expression: what the verdict says
    seed: int  # the first that found it


FAULTS = (
    Fault(
        "inuse-after-release",
        "a channel left INUSE after RELEASE COMPLETE",
        (
            (
                "src/call/call_events.cpp",
                "  HangUp(trunk, call, kCauseNormalClearing);\n  device.Call().End();\n",
                "  HangUp(trunk, call, kCauseNormalClearing);\n",
            ),
        ),
        "came where the call may be free",
        1,
    ),
    Fault(
        "reset-of-newer-call",
        "a newer call reset by the clearing of an older one",
        (
            (
                "src/call/call_events.cpp",
                "current != nullptr && call.event.call != nullptr && call.event.call != current",
                "false",
            ),
        ),
        "a last call of channel 2 is not answered",
        50,
    ),
    Fault(
        "unbounded-shutdown",
        "an unbounded wait in shut-down behind a callback",
        (("src/card/card.cpp", "constexpr uint32_t kLockMs = 3000;", "constexpr uint32_t kLockMs = kNoLimitMs;"),),
        "ZELK_Shutdown takes longer than it may",
        3,
    ),
    Fault(
        "events-under-lifecycle",
        "events posted under the lifecycle lock",
        (
            (
                "src/card/card.cpp",
                "  TellReopening(caller);\n  return !caller.IsSet()",
                "  {\n    const CScopedLock<CMutex> held(lifecycle);\n    TellReopening(caller);\n  }\n"
                "  return !caller.IsSet()",
            ),
        ),
        "ZELK_Shutdown takes longer than it may",
        22,
    ),
    Fault(
        "freed-address",
        "the address of a freed call taken for a live call",
        (
            (
                "src/card/call_registry.h",
                "entries[kept++] = {record, NewHandle()};",
                "entries[kept++] = {record, CCallHandle(reinterpret_cast<uintptr_t>(record))};",
            ),
            (
                "src/card/call_registry.h",
                "entries.push_back({record, NewHandle()});",
                "entries.push_back({record, CCallHandle(reinterpret_cast<uintptr_t>(record))});",
            ),
        ),
        "cleared by nobody|while its far end has the call",
        16,
    ),
    Fault(
        "log-wake-up",
        "a wake-up of the log's writer lost",
        (
            (
                "src/runtime/log_writer.cpp",
                "    wake.Reset();\n    WritePass(mine);\n",
                "    WritePass(mine);\n    wake.Reset();\n",
            ),
        ),
        "not in the log after half a second",
        10,
    ),
    Fault(
        "stop-eats-next-play",
        "a stop that eats the first block of the next play",
        (("src/call/channel_media.cpp", "      fill.flushCount = wave.FillBlock(", "      wave.FillBlock("),),
        "hear the beginning of what was played after a stop",
        10,
    ),
    Fault(
        "pacer-after-stop",
        "a pacer that goes on after its stop",
        (
            (
                "src/stream/audio_pacer.cpp",
                "  while (!stop.IsSet()) {\n    const uint32_t waitMs",
                "  while (true) {\n    const uint32_t waitMs",
            ),
        ),
        "Shutdown of channel -1 took",
        1,
    ),
    Fault(
        "trunk-lock-left-out",
        "the trunk's lock left out of one path",
        (
            (
                "src/call/call_operations.cpp",
                "    CScopedLock held(trunk.lock);\n    isSent = !device.IsRetired() && SendHangup(device, trunk);",
                "    isSent = !device.IsRetired() && SendHangup(device, trunk);",
            ),
        ),
        "a controller of libpri is used without its lock",
        1,
    ),
    Fault(
        "lock-order-in-dial",
        "the order of locks turned round in Dial",
        (
            ("src/call/device.h", "  mutable CMutex infoLock;", " public:\n  mutable CMutex infoLock;\n\n private:"),
            (
                "src/call/call_operations.cpp",
                "    CScopedLock held(trunk.lock);\n    result = PlaceCall(device, trunk, number);",
                "    device.infoLock.Lock();\n    CScopedLock held(trunk.lock);\n    device.infoLock.Unlock();\n"
                "    result = PlaceCall(device, trunk, number);",
            ),
        ),
        "locks are taken in two orders",
        1,
    ),
    Fault(
        "ring-off-by-one",
        "an index of a ring off by one at its wrap",
        (
            (
                "src/stream/block_pool.h",
                "to >= from ? to - from : to + 2 * blockCount - from;",
                "to >= from ? to - from : to + 2 * blockCount - from - 1;",
            ),
        ),
        "the far end does not hear: byte",
        50,
    ),
    Fault(
        "descriptor-closed-inside",
        "a descriptor closed while a thread is in it",
        (
            (
                "src/platform/socket.cpp",
                "  native.Wake();\n  if (gate.Leave()) {\n    Release();\n  }\n",
                "  native.Wake();\n  gate.Leave();\n  Release();\n",
            ),
        ),
        "a call on socket .*, which is closed",
        1,
    ),
)


def misplaced(fault):
    """What is wrong with the places of a fault, a line each."""
    for file, text, _ in fault.changes:
        count = (ROOT / file).read_text().count(text)
        if count != 1:
            yield f"{fault.name}: {file} has its text {count} times:\n{text}"


def tracked():
    listing = subprocess.run(["git", "ls-files"], cwd=ROOT, capture_output=True, text=True, check=True).stdout
    return [name for name in listing.splitlines() if (ROOT / name).is_file()]


def store(path, content):
    """Writes where it differs, so that only what changed is built again."""
    if not path.exists() or path.read_bytes() != content:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)


def copy_tree():
    for name in tracked():
        store(COPY / name, (ROOT / name).read_bytes())
        os.chmod(COPY / name, (ROOT / name).stat().st_mode)


@contextlib.contextmanager
def put_in(fault):
    """The copy has the fault for the length of a block."""
    before = {file: (COPY / file).read_bytes() for file, _, _ in fault.changes}
    for file, text, replacement in fault.changes:
        place = COPY / file
        place.write_text(place.read_text().replace(text, replacement))
    try:
        yield
    finally:
        for file, content in before.items():
            store(COPY / file, content)


def build():
    if not (COPY / "build" / "release" / "build.ninja").exists():
        command = ["cmake", "--preset", "release", "-Wno-dev", f"-DZELK_DEPS_DIR={ROOT}/build/deps"]
        subprocess.run(command, cwd=COPY, check=True, stdout=subprocess.DEVNULL)
    command = ["cmake", "--build", "--preset", "release", "--target", "world"]
    done = subprocess.run(command, cwd=COPY, capture_output=True, text=True)
    if done.returncode != 0:
        raise SystemExit(done.stdout + done.stderr)


def run(seeds):
    """The lowest seed of those that failed, and what it said; (None, "") when all passed."""
    command = ["scripts/netns", "build/release/bin/world", "--seeds", seeds, "--jobs", str(os.cpu_count())]
    done = subprocess.run(command, cwd=COPY, capture_output=True, text=True, errors="replace")
    found = re.findall(r"^seed (\d+) failed:\n((?:  .*\n)*)", done.stdout, re.M)
    if not found and done.returncode != 0:
        raise SystemExit(done.stdout + done.stderr)
    return min(((int(seed), words) for seed, words in found), default=(None, ""))


def examine(fault, options):
    seeds = f"{fault.seed}-{fault.seed}" if options.recorded else f"1-{options.seeds}"
    with put_in(fault):
        build()
        seed, words = run(seeds)
    first = words.strip().splitlines()[0].strip() if words.strip() else ""
    is_right = seed is not None and re.search(fault.words, words) is not None
    print(f"{'found' if is_right else 'NOT FOUND'}: {fault.name}: {fault.what}")
    print(f"  seeds {seeds}" if seed is None else f"  seed {seed}: {first}", flush=True)
    return is_right


def arguments():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--recorded", action="store_true")
    parser.add_argument("--seeds", type=int, default=1000)
    parser.add_argument("names", nargs="*")
    return parser.parse_args()


def main():
    options = arguments()
    unknown = set(options.names) - {fault.name for fault in FAULTS}
    wrong = [f"{name}: no such fault" for name in sorted(unknown)]
    wrong += [line for fault in FAULTS for line in misplaced(fault)]
    if wrong or options.check:
        print("\n".join(wrong), file=sys.stderr)
        return 1 if wrong else 0
    chosen = [fault for fault in FAULTS if not options.names or fault.name in options.names]
    copy_tree()
    missed = [fault.name for fault in chosen if not examine(fault, options)]
    if missed:
        print("not found: " + ", ".join(missed))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
