# SPDX-License-Identifier: GPL-2.0-only
"""Hosts, servers and cables that go away while calls are under way."""
import collections
import signal
import time

import pytest
from world import wait_until

QUICK = ("--ack-wait", "2", "--node-life", "3")
# The far end stays until the host has heard enough digits, which never come, or hangs up by itself.
LONG_CALLS = ["--hold", "4000"]


def jobs_of(count, **members):
    return [{"id": f"job-{n}", "to": f"0305550{n:03}", "digits": 1, **members} for n in range(count)]


def dialled(host):
    """Numbers that the exchange of a host was called for."""
    return [call["called"] for call in host.calls()]


def outcomes(results):
    return collections.Counter(result["outcome"] for result in results)


@pytest.fixture
def pair(make_world):
    """Two hosts with ten channels each for jobs, and calls that last."""
    world = make_world()
    world.init(*QUICK)
    for _ in range(2):
        host = world.host(simulator=LONG_CALLS)
        host.start("--channels", "10")
        host.wait_up()
    return world, *world.hosts


def test_a_host_that_dies_in_its_calls(pair):
    world, first, second = pair
    jobs = jobs_of(20)
    world.submit(jobs)
    wait_until(lambda: world.busy() == {"host1": 10, "host2": 10}, world.busy)
    first.node.kill()
    results = world.wait_results(20)
    assert outcomes(results) == {"connected": 10, "host-lost": 10}
    lost = {result["to"] for result in results if result["outcome"] == "host-lost"}
    assert all(result["message"] == "host lost in the call" for result in results if result["to"] in lost)
    assert set(dialled(first)) == lost, "each is told of whose number was dialled there"
    assert sorted(dialled(first) + dialled(second)) == [job["to"] for job in jobs], "none twice"


def test_a_job_that_says_so_is_dialled_again(pair):
    world, first, second = pair
    world.submit(jobs_of(20, attempts=2))
    wait_until(lambda: world.busy() == {"host1": 10, "host2": 10}, world.busy)
    first.node.kill()
    results = world.wait_results(20)
    assert outcomes(results) == {"connected": 20}
    assert {result["node"] for result in results} == {"host2"}
    again = {result["to"] for result in results if result["attempt"] == 2}
    assert again == set(dialled(first)) and len(again) == 10
    assert len(dialled(second)) == 20


def test_a_server_that_starts_again_costs_nothing(pair):
    world, first, second = pair
    world.submit(jobs_of(40))
    wait_until(lambda: world.busy() == {"host1": 10, "host2": 10}, world.busy)
    server = world.servers[0]
    server.kill()
    server.start()
    results = world.wait_results(40)
    assert outcomes(results) == {"connected": 40}
    assert sorted(dialled(first) + dialled(second)) == sorted(job["to"] for job in jobs_of(40))


def test_calls_go_on_while_the_link_is_cut(pair):
    """Not for as long as the others would take the host for dead."""
    world, first, second = pair
    world.submit(jobs_of(20))
    wait_until(lambda: world.busy() == {"host1": 10, "host2": 10}, world.busy)
    first.unplug()
    results = world.wait_results(10)
    assert {result["node"] for result in results} == {"host2"}
    first.plug()
    results = world.wait_results(20)
    assert set(outcomes(results)) <= {"connected", "host-lost"} and len(results) == 20
    assert sorted(dialled(first) + dialled(second)) == [job["to"] for job in jobs_of(20)]


def test_a_drained_host_ends_its_calls_and_takes_no_more(pair):
    world, first, second = pair
    world.submit(jobs_of(30))
    wait_until(lambda: world.busy() == {"host1": 10, "host2": 10}, world.busy)
    assert first.node.kill(signal.SIGTERM) == 0
    stored = [result for result in world.results() if result["node"] == "host1"]
    assert outcomes(stored) == {"connected": 10}, "all of its results were stored before it ended"
    assert outcomes(world.wait_results(30)) == {"connected": 30}
    assert len(dialled(first)) == 10
    assert "host1" not in world.busy(), "its entry is gone"


def test_a_host_that_starts_while_no_server_leads(make_world):
    """It waits for them: whoever starts all computers at once has both."""
    world = make_world(servers=3)
    world.init()
    for server in world.servers[1:]:
        server.kill()
    host = world.host()
    host.start()
    asked_twice = time.monotonic() + 7  # a question waits for 5 s
    wait_until(lambda: time.monotonic() > asked_twice or not host.node.is_running(), "a while")
    for server in world.servers[1:]:
        server.start()
    host.wait_up()
