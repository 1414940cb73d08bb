# SPDX-License-Identifier: GPL-2.0-only
"""The commands by their exit codes, the same with and without --json, and the lines of --json."""
import contextlib
import os
import signal
import socket

import pytest
from conftest import checked
from test_serve import write_prompt

FAILED, USAGE, NO_CARD, NO_TRUNK, REFUSED, NO_ANSWER, FILE, IN_USE = range(1, 9)
NAMES = {0: "done", FAILED: "failed", USAGE: "usage", NO_CARD: "no-card", REFUSED: "refused", NO_ANSWER: "no-answer",
         FILE: "file", IN_USE: "cards-in-use"}


def fails(bench, code, *words):
    """Runs the command with --json; the last line tells the failure, and so does standard error."""
    phone = bench.phone(*words, "--json")
    assert phone.finish() == code, (words, phone.lines)
    end = phone.lines[-1]
    assert end["name"] == NAMES[code]
    assert phone.process.stderr.read() == f"zelk-phone: {end['message']}\n"
    return phone.lines


def test_a_mistake_on_the_command_line(bench):
    for words in ([], ["explode"], ["dial"], ["dial", "x", "5"], ["channels", "--wait-trunks", "-1"], ["answer", "--calls", "x"]):
        phone = bench.phone(*words, "--json")
        assert phone.process.wait(timeout=30) == USAGE, words
        assert phone.next() is None
        assert phone.process.stderr.read() != ""
    assert fails(bench, USAGE, "dial", "0", "5", "--digits", "1x")[-1]["message"] == "not a digit to send: x"
    bench.card()
    for words in (["dial", "30", "5"], ["answer", "--channel", "30"]):
        assert fails(bench, USAGE, *words)[-1]["message"] == "there is no channel 30; the last is 29"


def test_no_card(bench):
    for words in (["channels"], ["dial", "0", "5"], ["answer"], ["serve"]):
        assert [line["type"] for line in fails(bench, NO_CARD, *words)] == ["hello", "end"]


def test_cards_in_use(bench):
    bench.card()
    with contextlib.closing(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) as held:
        held.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        held.bind(("0.0.0.0", 5854))
        for words in (["channels"], ["dial", "0", "5"], ["answer"], ["serve"]):
            lines = fails(bench, IN_USE, *words)
            assert [line["type"] for line in lines] == ["hello", "end"]
            assert f"held by process {os.getpid()} " in lines[-1]["message"]
        assert bench.run("channels", "--force")[0] == 0


@pytest.mark.parametrize("options, code, cause", [(["--refuse", "17"], REFUSED, 17), (["--refuse", "1"], REFUSED, 1),
                                                  (["--refuse", "19"], NO_ANSWER, 19), (["--no-answer"], NO_ANSWER, 16)])
def test_a_call_that_is_not_connected(bench, options, code, cause):
    card = bench.card(*options)
    lines = fails(bench, code, "dial", "3", "0405", "--answer-within", "1")
    assert [line["cause"] for line in lines if line["type"] == "disconnected"] == [cause]
    assert [line["type"] for line in lines][:3] == ["hello", "snapshot", "dialling"]
    assert [call["cause"] for call in card.calls()] == [cause]


def test_nobody_calls(bench):
    bench.card()
    lines = fails(bench, NO_ANSWER, "answer", "--wait", "1")
    assert [line["type"] for line in lines] == ["hello", "snapshot", "waiting", "end"]


def test_files_that_cannot_be_used(bench):
    card = bench.card()
    broken = bench.folder / "broken.wav"
    broken.write_bytes(b"RIFF")
    for words in (["--play", "/none.wav"], ["--play", str(broken)], ["--record", "/none/heard.wav"]):
        fails(bench, FILE, "dial", "0", "5", *words)
    fails(bench, FILE, "answer", "--play", "/none.wav")
    assert [call["connected"] for call in card.calls()] == [True], "only what is broken is noticed in the call"


def test_a_call_that_does_not_run_to_its_end(bench):
    card = bench.card()
    phone = bench.phone("dial", "0", "5", "--json")
    phone.until("connected")
    card.fall_silent()
    phone.until("lost", channel=0)
    assert phone.finish() == FAILED
    card.kill()
    bench.card()
    phone = bench.phone("dial", "0", "5", "--json")
    phone.until("connected")
    phone.signal(signal.SIGINT)
    phone.until("hanging-up", why="stopped by the user")
    phone.until("disconnected", cause=16)
    assert phone.finish() == FAILED


def test_a_dialled_call_line_by_line(bench):
    bench.card()
    prompt, heard = write_prompt(bench.folder / "prompt.wav"), str(bench.folder / "heard.wav")
    code, lines = bench.run("dial", "3", "0405", "--from", "0309", "--digits", "1", "--play", prompt, "--record", heard,
                            "--hangup-after-play")
    assert code == 0
    assert [line["type"] for line in lines] == [
        "hello", "snapshot", "dialling", "proceeding", "alerting", "connected", "digits", "played", "hanging-up",
        "disconnected", "recorded", "end"]
    assert (lines[2]["channel"], lines[2]["number"], lines[2]["from"]) == (3, "0405", "0309")
    assert lines[-2]["file"] == heard and os.path.getsize(heard) >= lines[-2]["bytes"] + 44
    snapshot = lines[1]
    assert [(card["card"], card["channels"]) for card in snapshot["cards"]] == [(100001, 30)]
    assert snapshot["channels"][3]["state"] == "READY"  # it waits for its own channel, not for the others
    assert [(trunk["trunk"], trunk["channels"]) for trunk in snapshot["trunks"]] == [(1, 30)]
    assert [each["timeslot"] for each in snapshot["channels"]] == [*range(1, 16), *range(17, 32)]


def test_channels_of_several_cards(bench):
    bench.card("--cards", "2", "--trunks", "2,1")
    code, lines = bench.run("channels")
    assert code == 0 and [line["type"] for line in lines] == ["hello", "snapshot", "end"]
    assert [(card["card"], card["firstChannel"], card["channels"], card["usable"]) for card in lines[1]["cards"]] == [
        (100001, 0, 60, 60), (100002, 60, 30, 30)]
    assert [(trunk["card"], trunk["trunk"], trunk["firstChannel"]) for trunk in lines[1]["trunks"]] == [
        (100001, 1, 0), (100001, 2, 30), (100002, 1, 60)]


def test_answer_serves_many_calls_and_on_when_a_card_fails(bench):
    first = bench.card("--calls", "3", "--calls-per-second", "100", "--concurrent", "1", "--stay", "--hold", "100")
    phone = bench.phone("answer", "--calls", "5", "--json")
    for _ in range(3):
        phone.until("connected")
        phone.until("disconnected", cause=16)
    first.kill()
    second = bench.card("--announce", "--calls", "1", "--calls-per-second", "100", "--stay")
    phone.until("connected")
    second.fall_silent()
    phone.until("lost")
    second.kill()
    bench.card("--announce", "--calls", "1", "--calls-per-second", "100", "--stay", "--hold", "100")
    phone.until("connected")
    phone.until("disconnected", cause=16)
    assert phone.finish() == FAILED, "one of five did not run to its end"
    assert phone.lines[-1]["message"] == "1 of the calls did not run to their end"
    assert [line["type"] for line in phone.lines].count("connected") == 5


def test_lines_for_people_are_no_json(bench):
    bench.card()
    phone = bench.phone("channels")
    said = [phone.arrived.get(timeout=30) for _ in range(33)]
    assert said[-1] == "30 of 30 channels usable\n" or said[-2] == "30 of 30 channels usable\n"
    with pytest.raises(ValueError):
        checked(said[0])
