# SPDX-License-Identifier: GPL-2.0-only
"""Jobs in, results out."""
import collections
import datetime
import signal
import time

import clock
from world import Events, wait_until


def test_twenty_jobs_have_one_result_each(make_world):
    """Every number is dialled once, and the result says how its call went."""
    world = make_world()
    world.init()
    host = world.host(simulator=["--hold", "300", "--alert-after", "50", "--answer-after", "100", "--digits", "42"])
    host.start()
    jobs: list[dict] = [{"id": f"job-{n}", "to": f"0305550{n:03}", "from": "0309", "digits": 2} for n in range(20)]
    assert "20 jobs submitted, 0 were there already" in world.submit(jobs)
    results = world.wait_results(20)
    assert sorted(result["id"] for result in results) == sorted(job["id"] for job in jobs)
    for result in results:
        assert result["outcome"] == "connected" and result["node"] == "host1", result
        assert result["cause"] == 16 and result["digits"] in ("4", "42"), result
        assert list(result["times"]) == ["taken", "dialled", "proceeding", "alerting", "connected", "ended"], result
    assert "0 jobs submitted, 20 were there already" in world.submit(jobs)
    assert host.node.kill(signal.SIGTERM) == 0
    assert sorted(call["called"] for call in host.calls()) == [job["to"] for job in jobs]
    assert len(world.results()) == 20


USERS = """authorization {{ users: [ {{ user: admin, password: admin }},
  {{ user: node, password: node, permissions: {{ publish: {{ deny: [{deny}] }} }} }} ] }}"""
READ_CLOCK = "$JS.API.STREAM.MSG.GET.KV_zelk-zelk-nodes"


def test_a_host_whose_clock_is_ahead(make_world, tmp_path):
    """What is to be done by a time is done by the servers' clock, and nothing before that is known."""
    for role in ("admin", "node"):
        (tmp_path / f"{role}.password").write_text(role)
    deny = USERS.format(deny=f'"{READ_CLOCK}"')
    world = make_world(server_extra=deny, role="admin")
    world.init("--node-life", "4")
    began = time.time()
    by = datetime.datetime.fromtimestamp(began + 120, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    world.submit([{"id": f"job-{n}", "to": f"0305550{n:03}", "digits": 1, "notAfter": by} for n in range(30)])
    entries = Events(world, "$KV.zelk-zelk-nodes.>", "admin")
    host = world.host(simulator=["--hold", "300"])
    host.start(env=clock.wrong_clock(tmp_path, 300), role="node")
    wait_until(lambda: len(entries.lines) == 3, lambda: entries.lines)
    assert world.results() == [], "without the servers' clock it is not known which job is too late"
    server = world.servers[0]
    server.config.write_text(server.config.read_text().replace(deny, USERS.format(deny="")))
    server.program.process.send_signal(signal.SIGHUP)
    results = world.wait_results(30)
    assert clock.clock_faults(world, 300) == []
    assert collections.Counter(result["outcome"] for result in results) == {"connected": 30}
    assert clock.wrong_times(results, began, time.time()) == []
