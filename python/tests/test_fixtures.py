# SPDX-License-Identifier: Apache-2.0
# The fixtures that the package gives to tests of others.
import pathlib
import subprocess
import sys
from typing import Callable

import pytest
from vorn_nac import Bus, BusError, Nac_SetPortMsg, Result

OPENED: list[Bus] = []


def test_a_test_opens_buses_at_addresses(vorn_bus: Callable[..., Bus]) -> None:
    tester, switch = vorn_bus(1), vorn_bus(2, queue_batches=4)
    OPENED.extend([tester, switch])
    tester.send(2, Nac_SetPortMsg(f0=24))
    message = switch.receive(timeout=10)
    assert message is not None and message.record == Nac_SetPortMsg(f0=24)


def test_they_are_closed_when_the_test_has_ended() -> None:
    for bus in OPENED:
        with pytest.raises(BusError) as caught:
            bus.flush()
        assert caught.value.result == Result.NOT_OPEN


def test_each_test_has_a_bus_of_its_own(tmp_path: pathlib.Path) -> None:
    (tmp_path / "test_two.py").write_text("""
def test_one(vorn_bus, vorn_bus_url):
    assert vorn_bus(1).endpoint.startswith(vorn_bus_url)

def test_another(vorn_bus):
    assert vorn_bus(1).address == 1
""")
    done = subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "vorn_nac.pytest_plugin",
                           str(tmp_path)], capture_output=True, text=True, timeout=60)
    assert done.returncode == 0 and "2 passed" in done.stdout, done.stdout
