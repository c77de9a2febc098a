# SPDX-License-Identifier: Apache-2.0
# Captures of `nac record`, read in Python: each message with its record, and a complaint where a file ends early.
import os
import pathlib
import subprocess

import pytest
import vorn_nac
from support import NAC, ROOT, nac
from vorn_nac import BadCapture, LibraryNotFound, Nac_SetPortMsg, Nac_SetUserTableMsg, open_capture

CAPTURE = ROOT / "examples/port-move.pcapng"


def test_each_message_has_its_header_and_its_record() -> None:
    with open_capture(CAPTURE) as capture:
        messages = list(capture)
    assert len(messages) == 28 and [message.packet for message in messages] == list(range(1, 29))
    ports = [message for message in messages if message.type is Nac_SetPortMsg]
    assert [message.record for message in ports] == [vorn_nac.unpack(Nac_SetPortMsg, message.packed) for message in ports]
    first = messages[0]
    assert (first.time, first.batch, first.position, first.count) == (1763736000250113000, 1, 0, 1)
    assert (first.source, first.destination, first.target, first.cut_bytes) == (1, 2, 0, 0)
    assert first.type is not None and first.id == first.type.shape.id


def test_the_damaged_message_of_the_example_is_found_with_its_fault() -> None:
    with open_capture(str(CAPTURE)) as capture:
        damaged = [message for message in capture if message.faults]
    assert [message.packet for message in damaged] == [18]
    assert str(damaged[0].faults[0]) == \
        "at 180, f15 of Nac_SetUserTableMsg: 16777216 elements of 2 bytes, and 109 bytes are left"
    record = damaged[0].record
    assert isinstance(record, Nac_SetUserTableMsg) and (record.f0, record.f2, record.f15, record.f31) == (4711, 31, [], b"")


def test_a_file_that_ends_early_is_read_as_far_as_it_goes(tmp_path: pathlib.Path) -> None:
    short = tmp_path / "-"
    short.write_bytes(CAPTURE.read_bytes()[:-100])
    messages = []
    with open_capture(short) as capture, pytest.raises(BadCapture, match="ends within the block at byte 5888"):
        for message in capture:
            messages.append(message)
    assert 20 < len(messages) < 28


@pytest.mark.parametrize(("content", "text"), [(b"", "it is empty"), (b"no capture at all", "not a capture")])
def test_what_is_no_capture_is_refused(content: bytes, text: str, tmp_path: pathlib.Path) -> None:
    file = tmp_path / "file"
    file.write_bytes(content)
    with open_capture(file) as capture, pytest.raises(BadCapture, match=text):
        list(capture)
    with open_capture(tmp_path / "missing") as capture, pytest.raises(BadCapture, match="missing.*No such file"):
        list(capture)


def test_messages_of_unknown_types_have_no_record(tmp_path: pathlib.Path) -> None:
    data = CAPTURE.read_bytes()
    file = tmp_path / "unknown.pcapng"
    id_bytes = (0x47986D1D).to_bytes(4, "little")
    assert data.count(b"\x01\x28\0\0" + id_bytes) == 2
    file.write_bytes(data.replace(b"\x01\x28\0\0" + id_bytes, b"\x01\x28\0\0" + bytes([77, 0, 0, 0])))
    with open_capture(file) as capture:
        unknown = [message for message in capture if message.type is None]
    assert [(message.id, message.record, message.faults) for message in unknown] == [(77, None, [])] * 2


def test_reading_ends_when_the_capture_is_closed() -> None:
    capture = open_capture(CAPTURE)
    assert next(iter(capture)).packet == 1
    capture.close()
    capture.close()
    assert list(capture) == []


def test_without_the_program_nac_it_says_so(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("VORN_NAC_LIBRARY_DIR", str(tmp_path))
    with pytest.raises(LibraryNotFound, match="the program nac, which reads captures"):
        open_capture(CAPTURE)


def test_what_the_tool_records_python_reads(tmp_path: pathlib.Path, vorn_bus_url: str) -> None:
    file = tmp_path / "recorded.pcapng"
    with vorn_nac.Bus(vorn_bus_url, 2) as receiver, vorn_nac.Bus(vorn_bus_url, 1) as sender:
        recorder = subprocess.Popen([NAC, "record", "--bus", vorn_bus_url, "-o", str(file), "--count", "2"],
                                    stderr=subprocess.PIPE)
        for number in range(200):  # until the recorder watches, nothing is recorded
            sender.send(2, Nac_SetPortMsg(f0=number), target=7)
            assert receiver.receive(timeout=10)
            try:
                recorder.wait(0.05)
                break
            except subprocess.TimeoutExpired:
                pass
        recorder.communicate()
    with open_capture(file) as capture:
        first, second = capture
    assert isinstance(first.record, Nac_SetPortMsg) and isinstance(second.record, Nac_SetPortMsg)
    assert second.record.f0 == first.record.f0 + 1 and (first.source, first.destination, first.target) == (1, 2, 7)
    assert os.path.getsize(file) > 0 and nac("info", str(file)).returncode == 0
