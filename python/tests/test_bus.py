# SPDX-License-Identifier: Apache-2.0
# The bus from Python: what is sent arrives, between threads, processes, and Python and the tool.
import json
import logging
import os
import select
import subprocess
import sys
import threading
from typing import Literal, Optional

import pytest
import vorn_nac
from support import NAC, ROOT, nac
from vorn_nac import _bus, Bus, BusError, Nac_SetPortMsg, Nac_SetUserTableMsg, Nac_UserTableHitMsg, Result, WrongKind


@pytest.fixture
def url(vorn_bus_url: str) -> str:
    return vorn_bus_url


def test_a_batch_arrives_in_order_and_together(url: str) -> None:
    with Bus(url, 1) as sender, Bus(url, 2) as receiver:
        sent = [Nac_SetPortMsg(f0=24, f1=1), Nac_UserTableHitMsg(f3=9), Nac_SetUserTableMsg(f15=[1, 2], f31=b"alice")]
        sender.send(2, sent, target=77)
        arrived = [receiver.receive(timeout=10) for _ in sent]
        assert [each.record for each in arrived if each] == sent
        assert [(each.source, each.destination, each.target, each.repeated, each.faults) for each in arrived if each] \
            == [(1, 2, 77, False, [])] * 3
        assert [each.packed for each in arrived if each] == [vorn_nac.pack(each, "sent") for each in sent]
        assert receiver.receive(timeout=0.05) is None
        sender.flush(timeout=10)
        assert (sender.counters.sent_batches, sender.counters.sent_messages) == (1, 3)
        assert (receiver.counters.received_batches, receiver.counters.received_messages) == (1, 3)


def test_all_types_of_the_example_session_arrive(url: str) -> None:
    lines = [json.loads(line) for line in (ROOT / "examples/access-session.jsonl").read_text().splitlines()]
    records = [vorn_nac.from_json(vorn_nac.TYPES[line["type"]], line["record"]) for line in lines]
    assert len({type(record) for record in records}) == 25
    with Bus(url, 1) as sender, Bus(url, 2) as receiver:
        for record in records:
            sender.send(2, record)
        for record, message in zip(records, receiver):
            assert message.record == record


def test_refusals_are_exceptions_that_name_the_reason(url: str) -> None:
    with Bus(url, 1, send_timeout=0) as bus:
        with pytest.raises(BusError, match="sending to 9: ") as caught:
            bus.send(9, Nac_SetPortMsg())
        assert caught.value.result == Result.NO_PEER
        with pytest.raises(BusError) as caught:
            bus.send(9, [])
        assert caught.value.result == Result.BAD_ARGUMENT
        with pytest.raises(BusError) as caught:
            Bus(url, 1)
        assert caught.value.result == Result.ADDRESS_TAKEN
        with pytest.raises(ValueError, match="to 4294967296 does not fit into 32 bits"):
            bus.send(1 << 32, Nac_SetPortMsg())
    with pytest.raises(BusError, match="this bus is closed") as caught:
        bus.send(2, Nac_SetPortMsg())
    assert caught.value.result == Result.NOT_OPEN
    bus.close()
    with pytest.raises(BusError) as caught:
        Bus("carrier-pigeon://", 1)
    assert caught.value.result == Result.BAD_URL


def test_what_is_no_record_is_named(url: str) -> None:
    with Bus(url, 1) as bus:
        for given in (Nac_SetPortMsg, {"f0": 1}, "Nac_SetPortMsg", 7, [Nac_SetPortMsg], b"abc"):
            with pytest.raises(WrongKind, match="was given for a record"):
                bus.send(1, given)  # type: ignore[arg-type]
        bus.send(1, (Nac_SetPortMsg(f0=k) for k in range(3)))
        assert [message.record for message in (bus.receive(timeout=10) for _ in range(3)) if message] == \
            [Nac_SetPortMsg(f0=k) for k in range(3)]


def test_what_is_out_of_range_or_absent_is_named(url: str) -> None:
    with Bus(url, 1) as bus:
        with pytest.raises(ValueError, match="target 18446744073709551616 does not fit into 64 bits"):
            bus.send(1, Nac_SetPortMsg(), target=1 << 64)
        with pytest.raises(BusError, match="asking address 9: "):
            vorn_nac.ask_counters(9, url, timeout=0.1)
        assert bus.endpoint.startswith(url)


def test_lines_of_the_bus_go_to_the_logger(caplog: pytest.LogCaptureFixture) -> None:
    _bus._log_line(b"a line of the bus", None)
    assert caplog.record_tuples == [("vorn_nac", logging.WARNING, "a line of the bus")]


def test_a_thread_receives_while_others_send(url: str) -> None:
    with Bus(url, 1) as sender, Bus(url, 2) as receiver:
        numbers: list[int] = []

        def listen() -> None:
            while len(numbers) < 400:
                message = receiver.receive(timeout=10)
                assert message is not None and isinstance(message.record, Nac_SetPortMsg)
                numbers.append(message.record.f0)

        def send_hundred(first: int) -> None:
            for k in range(100):
                sender.send(2, Nac_SetPortMsg(f0=first + k))

        listener = threading.Thread(target=listen)
        senders = [threading.Thread(target=send_hundred, args=[first]) for first in range(0, 400, 100)]
        for thread in (listener, *senders):
            thread.start()
        for thread in (listener, *senders):
            thread.join()
        assert sorted(numbers) == list(range(400))
        for first in range(0, 400, 100):
            assert [each for each in numbers if first <= each < first + 100] == list(range(first, first + 100))


def test_the_descriptor_is_readable_when_something_has_come(url: str) -> None:
    with Bus(url, 1) as sender, Bus(url, 2) as receiver:
        while receiver.receive(timeout=0) is not None:
            pass
        sender.send(2, Nac_SetPortMsg(f0=5))
        assert select.select([receiver], [], [], 10)[0] == [receiver]
        message = receiver.receive(timeout=10)
        assert message is not None and message.record == Nac_SetPortMsg(f0=5)


def test_the_tool_receives_what_python_sends(url: str) -> None:
    listener = subprocess.Popen([NAC, "listen", "--bus", url, "--as", "2", "--count", "1", "--timeout", "20", "--json"],
                                stdout=subprocess.PIPE, text=True)
    with Bus(url, 1, send_timeout=10) as bus:
        bus.send(2, Nac_SetPortMsg(f0=24, f1=1))
        bus.flush(timeout=10)
    printed = json.loads(listener.communicate(timeout=20)[0])
    assert printed["type"] == "Nac_SetPortMsg" and printed["record"] == {"f0": 24, "f1": 1}


def test_python_receives_what_the_tool_sends_and_counts_it(url: str) -> None:
    with Bus(url, 2) as bus:
        sender = subprocess.Popen([NAC, "send", "--bus", url, "--to", "2", str(ROOT / "examples/access-session.jsonl")],
                                  stderr=subprocess.DEVNULL)
        messages = [bus.receive(timeout=10) for _ in range(29)]
        assert sender.wait(timeout=20) == 0
        assert len({type(each.record) for each in messages if each}) == 25
        assert vorn_nac.ask_counters(2, url).received_messages == 29


def test_the_example_of_two_processes_runs() -> None:
    path = ROOT / "python/examples/two_processes.py"
    done = subprocess.run([sys.executable, str(path)], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == "from 1: Nac_SetPortMsg(f0=24, f1=1)\nfrom 1: Nac_SetPortMsg(f0=25, f1=0)\n"
    code = [line for line in path.read_text().splitlines() if line and not line.startswith("#")]
    assert len(code) <= 15


def test_the_example_receives_checks_and_prints_by_name(url: str) -> None:
    path = ROOT / "python/examples/receive_and_check.py"
    receiver = subprocess.Popen([sys.executable, str(path), "28"], stdout=subprocess.PIPE, text=True,
                                env={**os.environ, "VORN_BUS_URL": url})
    assert receiver.stdout is not None and receiver.stdout.readline() == "listening\n"
    nac("replay", "--bus", url, "--speed", "max", "--as", "1", "--redirect", "2", "examples/port-move.pcapng")
    printed = receiver.communicate(timeout=60)[0]
    assert receiver.returncode == 0
    assert printed.count("damaged: ") == 1
    assert "  damaged: at 180, f15 of Nac_SetUserTableMsg: 16777216 elements of 2 bytes, and 109 bytes are left\n" in printed
    assert "Nac_SetPortMsg from 1\n  f0: 24\n  f1: 1\n" in printed
    code = [line for line in path.read_text().splitlines() if line and not line.startswith("#")]
    assert len(code) <= 15


def test_a_damaged_message_arrives_with_its_flag_or_not_at_all(url: str) -> None:
    def replay() -> None:
        nac("replay", "--bus", url, "--speed", "max", "--as", "1", "--redirect", "2", "examples/port-move.pcapng")

    checks: dict[Literal["flag", "drop", "none"], list[Optional[bool]]] = {
        "flag": [*[False] * 17, True, *[False] * 10], "drop": [*[False] * 27], "none": [*[None] * 28]}
    for check, damaged in checks.items():
        with Bus(url, 2, check=check) as bus:
            threading.Thread(target=replay).start()
            messages = [message for message in (bus.receive(timeout=10) for _ in damaged) if message]
            assert [message.damaged for message in messages] == damaged
            assert sum(1 for message in messages if message.faults) == (0 if check == "drop" else 1)
            assert bus.counters.damaged_messages == (0 if check == "none" else 1)
    with pytest.raises(ValueError, match="'ignore' is no check of messages"):
        Bus(url, 1, check="ignore")  # type: ignore[arg-type]


def test_a_forked_child_with_an_open_bus_ends(url: str) -> None:
    program = f"""
import os, sys
from vorn_nac import Bus, BusError, Nac_SetPortMsg, Result
bus = Bus({url!r}, 1)
child = os.fork()
if child == 0:
    try:
        bus.send(1, Nac_SetPortMsg())
    except BusError as error:
        sys.exit(7 if error.result == Result.NOT_OPEN else 1)
    sys.exit(2)
print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
bus.send(1, Nac_SetPortMsg(f0=3))
print(bus.receive(timeout=10).record.f0)
"""
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=60, check=False)
    assert (done.stdout, done.stderr, done.returncode) == ("7\n3\n", "", 0)


def test_a_forked_child_of_a_process_whose_thread_receives_ends(url: str) -> None:
    program = f"""
import os, threading, time
from vorn_nac import Bus, BusError
bus = Bus({url!r}, 1)
threading.Thread(target=bus.receive, daemon=True).start()
time.sleep(0.5)
child = os.fork()
if child == 0:
    try:
        bus.receive(timeout=1)
    except BusError as error:
        print(error, flush=True)
    bus.close()
else:
    print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), flush=True)
    os._exit(0)
"""
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=60, check=False)
    assert done.stdout.splitlines() == [
        "this bus was opened before a fork, by the parent: " + str(BusError("", Result.NOT_OPEN)).removeprefix(": "), "0"]
    assert done.stderr == ""


def test_a_pool_of_forked_processes_packs_and_ends(url: str) -> None:
    program = f"""
import multiprocessing
from vorn_nac import Bus, Nac_SetPortMsg, pack
def packed(number): return len(pack(Nac_SetPortMsg(f0=number)))
with Bus({url!r}, 1) as bus, multiprocessing.get_context("fork").Pool(2) as pool:
    print(sum(pool.map(packed, range(1, 101))))
"""
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=60, check=False)
    assert (done.stdout, done.stderr, done.returncode) == ("2000\n", "", 0)
