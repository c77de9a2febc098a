# SPDX-License-Identifier: Apache-2.0
"""Fixtures for tests that use the bus. A package that pip or apt has installed registers them with pytest; otherwise write
pytest_plugins = ["vorn_nac.pytest_plugin"] into conftest.py.

    def test_the_port_is_set(vorn_bus):
        tester, switch = vorn_bus(1), vorn_bus(2)
        tester.send(2, Nac_SetPortMsg(f0=24))
        assert switch.receive(timeout=10).record.f0 == 24
"""
import contextlib
import tempfile
from typing import Any, Callable, Iterator

import pytest

from . import Bus


@pytest.fixture
def vorn_bus_url() -> Iterator[str]:
    """The URL of a bus that only this test uses, also from other processes; for VORN_BUS_URL of their environment."""
    # Not tmp_path, whose name may be too long for a socket's.
    with tempfile.TemporaryDirectory(prefix="vorn-") as folder:
        yield f"ipc://{folder}"


@pytest.fixture
def vorn_bus(vorn_bus_url: str) -> Iterator[Callable[..., Bus]]:
    """Opens buses at addresses, with the options of Bus: vorn_bus(1). They are closed when the test ends."""
    with contextlib.ExitStack() as stack:
        def opened(address: int, **options: Any) -> Bus:
            return stack.enter_context(Bus(vorn_bus_url, address, **options))

        yield opened
