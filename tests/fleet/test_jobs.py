# SPDX-License-Identifier: GPL-2.0-only
"""Jobs in, results out."""
import signal


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
