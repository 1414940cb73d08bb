# SPDX-License-Identifier: GPL-2.0-only
"""Who may do what, by the example configuration; TLS, and its absence."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest
from world import SERVER_ADDRESS, Events, wait_until

ROLES = ("admin", "node", "submitter", "watcher", "worker")
EXAMPLE = Path(os.environ["ZELK_SOURCE"]) / "examples" / "fleet" / "accounts.conf"


@pytest.fixture
def guarded(make_world, tmp_path):
    """A fleet with the example's users, and a host on which a call can be placed."""
    shutil.copy(EXAMPLE, tmp_path / "accounts.conf")
    for role in ROLES:
        (tmp_path / f"{role}.password").write_text(role + "\n")
    world = make_world(server_extra='include "../accounts.conf"', role="admin")
    world.init()
    host = world.host(simulator=["--hold", "300"])
    host.start(role="node")
    host.wait_up()
    return world, host


def test_each_role_can_do_its_work(guarded, tmp_path):
    world, host = guarded
    events = Events(world, user="watcher")
    (tmp_path / "jobs.csv").write_text("id,to,digits\na,030,1\n")
    world.fleet("submit", tmp_path / "jobs.csv", role="submitter")
    wait_until(lambda: "a,030,connected" in world.fleet("results", "--csv", role="submitter").stdout, "a result")
    assert "host1" in world.fleet("nodes", role="watcher").stdout
    assert "connected 1" in world.fleet("watch", "--once", role="watcher").stdout
    wait_until(lambda: events.of("disconnected"), lambda: events.lines)
    assert events.refused == []
    assert "takes no more jobs" in world.fleet("drain", "host1", role="worker").stdout
    assert host.node.is_running()


@pytest.mark.parametrize("role,subject", [("submitter", "zelk.zelk.event.>"), ("submitter", "_INBOX.node.>"),
                                          ("submitter", "zelk.zelk.job.>"), ("watcher", "zelk.zelk.incoming"),
                                          ("worker", "_INBOX.>"), ("node", "zelk.zelk.job.>")])
def test_nobody_hears_what_is_not_theirs(make_world, tmp_path, role, subject):
    shutil.copy(EXAMPLE, tmp_path / "accounts.conf")
    heard = Events(make_world(server_extra='include "../accounts.conf"'), subject, role)
    assert len(heard.refused) == 1 and "Permissions Violation" in heard.refused[0]


def test_a_watcher_cannot_dial_nor_submit(guarded):
    world, host = guarded
    for role in ("watcher", "submitter"):
        link = Events(world, "nothing", role)
        link.publish("zelk.zelk.do.host1", b'{"id":1,"do":"dial","channel":0,"number":"0666"}')
        wait_until(lambda: link.refused, "a refusal")
    link = Events(world, "nothing", "watcher")
    link.publish("zelk.zelk.job.b", b'{"id":"b","to":"0666"}')
    wait_until(lambda: link.refused, "a refusal")
    worker = Events(world, "zelk.zelk.event.>", "worker")
    worker.publish("zelk.zelk.do.host1", b'{"id":1,"do":"dial","channel":0,"number":"0777"}')
    wait_until(lambda: worker.of("disconnected"), lambda: worker.lines)
    assert [call["called"] for call in host.calls()] == ["0777"]


def make_certificate(folder):
    """Of an authority of its own, for the servers' address."""
    def openssl(*words):
        subprocess.run(["openssl", *words], check=True, capture_output=True, cwd=folder)
    key = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes")
    openssl("req", "-x509", *key, "-keyout", "ca.key", "-out", "ca.pem", "-days", "2", "-subj", "/CN=authority")
    openssl("req", *key, "-keyout", "server.key", "-out", "server.csr", "-subj", "/CN=server")
    (folder / "names").write_text(f"subjectAltName=IP:{SERVER_ADDRESS}\n")
    openssl("x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial", "-days", "2",
            "-extfile", "names", "-out", "server.pem")


def test_tls_or_nothing(make_world, tmp_path):
    """Servers elsewhere are reached with TLS, by a certificate that is trusted, or not at all."""
    make_certificate(tmp_path)
    world = make_world(server_extra=f'tls {{ cert_file: "{tmp_path}/server.pem", key_file: "{tmp_path}/server.key" }}')
    server = f"{SERVER_ADDRESS}:{world.servers[0].port}"

    def init(*words):
        return subprocess.run([os.environ["ZELK_FLEET"], "--servers", *words, "init"], capture_output=True, text=True)
    done = init(f"nats://{server}")
    assert done.returncode == 2 and "would be reached without TLS" in done.stderr, done
    done = init(f"tls://{server}")
    assert done.returncode == 1 and "unable to get local issuer certificate" in done.stderr, done
    done = init(f"tls://{server}", "--ca", tmp_path / "ca.pem")
    assert done.returncode == 0, done
    config = tmp_path / "zelk-fleet.conf"
    config.write_text(f"servers = tls://{server}\nca = {tmp_path}/ca.pem\n")
    assert subprocess.run([os.environ["ZELK_FLEET"], "--config", config, "nodes"], capture_output=True).returncode == 0
    host = world.host()
    refused = subprocess.run([*host.inside, host.folder / "bin" / "zelk-node", "--node", "host1", "--servers",
                              f"nats://{server}"], capture_output=True, text=True)
    assert refused.returncode == 2 and "would be reached without TLS" in refused.stderr, refused
