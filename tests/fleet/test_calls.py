# SPDX-License-Identifier: GPL-2.0-only
"""Events, requests, incoming calls and sounds."""
import argparse
import json
import os
import signal
import subprocess
import wave
from pathlib import Path

import incoming
import jsonschema
from incoming import Worker
from world import Events, wait_until

SCHEMA = json.loads(Path(os.environ["ZELK_PHONE_SCHEMA"]).read_text())


def write_sound(path, seconds):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(8000)
        file.writeframes(bytes(int(16000 * seconds)))
    return path


def test_events_are_those_of_the_telephone(make_world):
    """And requests are its commands; numbers stay out when they shall."""
    world = make_world()
    world.init()
    events = Events(world)
    host = world.host(simulator=["--digits", "7"])
    host.start("--no-numbers")
    host.wait_up()
    worker = Worker(world, lambda call: None)
    worker.say(node="host1", id=1, do="dial", channel=3, number="0305551234")
    wait_until(lambda: events.of("digit"), lambda: events.lines)
    worker.say(node="host1", id=2, do="state", channel=3)
    worker.say(node="host1", id=3, do="play", channel=3, file="../../secret")
    worker.say(node="host1", id=4, do="record", channel=3, file="heard.wav")
    worker.say(node="host1", id=5, do="hangup", channel=3)
    wait_until(lambda: events.of("recorded"), lambda: events.lines)
    wait_until(lambda: len(worker.results) == 5, lambda: worker.results)
    worker.end()
    by_id = {result["id"]: result for result in worker.results}
    assert [by_id[n]["ok"] for n in range(1, 6)] == [True, True, False, True, True], worker.results
    assert by_id[2]["channels"][0]["call"] == "connected" and by_id[3]["error"] == "file"
    assert (host.folder / "files" / "heard.wav").exists()
    assert host.node.kill(signal.SIGTERM) == 0
    wait_until(lambda: events.of("end"), lambda: events.lines)
    for subject, line in events.lines:
        jsonschema.Draft202012Validator(SCHEMA).validate(line)
        assert subject == f"zelk.zelk.event.host1.{line.get('channel', 'node')}"
    assert [line["digit"] for line in events.of("digit")] == ["7"]


def test_incoming_calls_have_one_answer_each(make_world):
    """Of a worker, or the default; a worker dies meanwhile."""
    world = make_world()
    world.init()
    host = world.host(simulator=["--calls", "60", "--calls-per-second", "30", "--concurrent", "20", "--stay", "--hold", "300"])
    workers = [Worker(world, lambda call: {"do": "answer"}) for _ in range(2)]
    workers.append(Worker(world, lambda call: None))  # asleep
    time_limit = 500
    host.start("--incoming-within", str(time_limit))
    wait_until(lambda: workers[0].asked, "a call")
    workers[0].end()
    wait_until(lambda: world.nodes()[0]["incomingAnswered"] + world.nodes()[0]["incomingDefaulted"] == 60, world.nodes)
    entry = world.nodes()[0]
    for worker in workers[1:]:
        worker.end()
    calls = [call for call in host.calls() if call["direction"] != "from library"]
    assert len(calls) == 60
    refused = [call for call in calls if call["cause"] == 21]
    assert len(refused) == entry["incomingDefaulted"] > 0, "the default is to refuse"
    assert len(workers[2].asked) <= len(refused)
    assert entry["incomingAnswered"] > 0


def test_workers_that_are_killed_in_turns(tmp_path):
    assert incoming.run(tmp_path, argparse.Namespace(calls=120, workers=3, per_second=30, every=1))


def test_two_answers_for_a_call_are_told():
    """The check sees what it is for."""
    calls = [{"connected": True, "cause": 16, "setupMs": 20}, {"connected": True, "cause": 16, "setupMs": 5000},
             {"connected": False, "cause": 102, "setupMs": -1}]
    entry = {"incomingAnswered": 3, "incomingDefaulted": 2}
    assert incoming.check(calls, [(0, "a"), (0, "a"), (1, "a")], entry, 4) == [
        "3 of 4 calls in the exchange's records", "1 calls were asked about twice",
        "3 answers and 2 times the default for 4 calls", "2 calls were answered, 0 refused",
        "1 were answered late, one after 5000 ms"]


def test_the_example_workers_take_calls(make_world, tmp_path):
    world = make_world()
    world.init()
    write_sound(tmp_path / "hello.wav", 0.2)
    world.fleet("sound", tmp_path / "hello.wav")
    host = world.host(simulator=["--calls", "4", "--calls-per-second", "20", "--stay", "--calling", "030", "--called", "0401"])
    shell = subprocess.Popen([os.environ["ZELK_SOURCE"] + "/examples/fleet/worker.sh", "hello.wav", *world.link_options()],
                             env={**os.environ, "PATH": f"{Path(os.environ['ZELK_FLEET']).parent}:{os.environ['PATH']}"},
                             start_new_session=True)
    server = world.link_options()[1]
    program = subprocess.Popen([os.environ["ZELK_FLEET_WORKER"], server, "zelk", "hello.wav"], stdout=subprocess.PIPE, text=True)
    assert program.stdout.readline() == "working\n"
    events = Events(world)
    host.start("--incoming-within", "10000")
    wait_until(lambda: len(events.of("disconnected")) == 4, lambda: events.lines)
    os.killpg(shell.pid, signal.SIGTERM)
    shell.wait()
    program.terminate()
    assert program.wait() == 0
    assert [call["cause"] for call in host.calls()] == [16] * 4
    assert len(events.of("played")) == 4 and events.of("connected")


def test_sounds_come_from_the_bucket_or_the_folder(make_world, tmp_path):
    world = make_world()
    world.init()
    (tmp_path / "sounds").mkdir()
    prompt = write_sound(tmp_path / "sounds" / "two parts.wav", 40)
    said = world.fleet("sound", prompt).stdout
    assert world.fleet("sound", write_sound(tmp_path / "sounds" / "long.wav", 70), check=False).returncode == 1
    host = world.host(simulator=["--hold", "1500"])
    write_sound(host.folder / "files" / "own.wav", 0.2)
    host.start()
    world.submit([{"id": "a", "to": "1", "play": "two parts.wav"}, {"id": "b", "to": "2", "play": "own.wav"},
                  {"id": "c", "to": "3", "play": "none.wav"}, {"id": "d", "to": "4", "record": "heard.wav", "digits": 1}])
    results = {result["id"]: result for result in world.wait_results(4)}
    assert results["a"]["outcome"] == "connected" and "message" not in results["a"], results["a"]
    assert results["b"]["outcome"] == "connected" and "played" in results["b"]["times"], results["b"]
    assert results["c"]["outcome"] == "bad-job" and "none.wav" in results["c"]["message"], results["c"]
    assert results["d"]["recording"] == "heard.wav" and (host.folder / "files" / "heard.wav").stat().st_size > 1000
    kept = host.folder / "files" / ".sounds" / (said.split()[-1] + ".wav")
    assert kept.read_bytes() == prompt.read_bytes()
    assert sorted(call["called"] for call in host.calls()) == ["1", "2", "4"]


def test_watch_counts_what_there_is(make_world):
    world = make_world()
    world.init()
    world.submit([{"id": f"j{n}", "to": "1"} for n in range(5)])
    assert json.loads(world.fleet("watch", "--json", "--once").stdout)["waiting"] == 5
    host = world.host(simulator=["--refuse", "17"])
    host.start()
    world.wait_results(5)
    standing = json.loads(world.fleet("watch", "--json", "--once").stdout)
    assert standing["byOutcome"] == {"not-connected": 5} and standing["byNode"] == {"host1": 5}
    table = world.fleet("results", "--csv").stdout.splitlines()
    assert table[0].startswith("id,to,outcome,cause") and "j0,1,not-connected,17,USER_BUSY" in table[1], table
    assert "host1 takes no more jobs" in world.fleet("drain", "host1").stdout
    bad = world.fleet("submit", "-", text="id,to\na,1\nb,x\n", check=False)
    assert bad.returncode == 2 and "line 3: \"to\" is no number" in bad.stderr
    assert json.loads(world.fleet("watch", "--json", "--once").stdout)["waiting"] == 0
