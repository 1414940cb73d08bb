# SPDX-License-Identifier: GPL-2.0-only
"""The checks of chaos.py in small, and the demonstration."""
import argparse
import collections

import chaos
import demo


def test_hosts_servers_and_cables_that_go_away(tmp_path):
    options = argparse.Namespace(jobs=300, seed=3, servers=3, hosts=3, hold=1000, channels=15, every=3, disk=False, clock=True,
                                 submitter=False)
    assert chaos.run(tmp_path, options)


def test_the_demonstration_in_small(tmp_path, capsys):
    assert demo.run(tmp_path, 60)
    table = capsys.readouterr().out
    assert "host-lost" in table and "host lost in the call" in table


def test_what_is_wrong_is_told():
    """The checks see what they are for."""
    class Host:
        def __init__(self, *numbers):
            self.numbers = numbers

        def calls(self):
            return [{"called": number} for number in self.numbers]

    class World:
        hosts = [Host("1", "2"), Host("2")]

    jobs = [{"id": "a", "to": "1"}, {"id": "b", "to": "2"}, {"id": "c", "to": "3"}]
    results = [{"id": "a", "to": "1", "outcome": "connected"}, {"id": "a", "to": "1", "outcome": "connected"},
               {"id": "c", "to": "3", "outcome": "connected"}]
    faults = chaos.check(World, jobs, results, collections.Counter())
    assert faults == ["3 jobs, 2 of them with a result", "a has 2 results", "2 was dialled 2 times",
                      "c is told to be connected, its number was not dialled"]
