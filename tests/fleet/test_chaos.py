# SPDX-License-Identifier: GPL-2.0-only
"""The checks of chaos.py in small, and the demonstration."""
import argparse
import datetime

import chaos
import clock
import demo


def test_hosts_servers_and_cables_that_go_away(tmp_path):
    options = argparse.Namespace(jobs=300, seed=3, servers=3, hosts=3, hold=1000, channels=15, every=3, disk=False, clock=300,
                                 submitter=False)
    assert chaos.run(tmp_path, options)


def test_the_demonstration_in_small(tmp_path, capsys):
    assert demo.run(tmp_path, 60)
    table = capsys.readouterr().out
    assert "host-lost" in table and "host lost in the call" in table


def test_what_is_wrong_is_told():
    """The checks see what they are for."""
    jobs = [{"id": name, "to": name} for name in "abcdefgh"]
    calls = [{"called": number, "connected": number != "g", "clearedBy": "lost" if number == "e" else "library"}
             for number in "abbdefg"]
    results = [{"id": name, "to": name, "outcome": outcome, "message": message} for name, outcome, message in (
        ("a", "connected", ""), ("a", "connected", ""), ("c", "connected", ""), ("d", "host-lost", ""), ("e", "connected", ""),
        ("f", "bad-job", ""), ("g", "connected", ""), ("h", "host-lost", "host lost in the call"))]
    assert chaos.check(calls, jobs, results, 1) == [
        "8 jobs, 7 of them with a result", "a has 2 results", "b was dialled 2 times",
        "c is told to be connected, its number was not dialled", "d does not say what became of it",
        "e is told to be connected, its host died in the call", "f ended with bad-job",
        "g is told to be connected, the exchange says otherwise",
        "2 calls were lost with their hosts, there can have been 1"]


def test_times_of_a_wrong_clock_are_told():
    results = [{"times": {"taken": f"2026-01-31T08:0{minute}:00.000Z"}} for minute in (1, 7)]
    began = datetime.datetime.fromisoformat("2026-01-31T08:00:00+00:00").timestamp()
    assert clock.wrong_times(results, began, began + 120) == [
        "1 of 2 times are not of this run, one is 420 s after its begin"]
