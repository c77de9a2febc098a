# SPDX-License-Identifier: Apache-2.0
# The package as pip makes and installs it, from the tree, in an environment that knows nothing of the build.
import os
import pathlib
import subprocess
import sys
import zipfile

import pytest
import vorn_nac
from support import NAC, ROOT

BUILD = pathlib.Path(os.environ.get("BUILD", pathlib.Path(NAC).parent))
OWN = ("NAC", "PATH", "PYTHONPATH", "VORN_NAC_LIBRARY_DIR", "LD_LIBRARY_PATH")


def pip(*arguments: str) -> None:
    done = subprocess.run([sys.executable, "-m", "pip", *arguments, "--no-index", "--no-deps", "--quiet"],
                          capture_output=True, text=True, cwd=ROOT, timeout=300, env={**os.environ, "VORN_NAC_BUILD": str(BUILD)})
    assert done.returncode == 0, done.stderr


@pytest.fixture(scope="module")
def wheel(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    folder = tmp_path_factory.mktemp("wheel")
    pip("wheel", "--no-build-isolation", "--wheel-dir", str(folder), str(ROOT))
    (made,) = folder.iterdir()
    return made


@pytest.fixture(scope="module")
def python(wheel: pathlib.Path, tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """An environment in which it is installed, and else what the system has: pytest."""
    folder = tmp_path_factory.mktemp("environment")
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", folder], check=True, timeout=60)
    pip("--python", str(folder / "bin/python"), "install", str(wheel))
    return folder / "bin/python"


def run(*arguments: str, folder: pathlib.Path) -> str:
    clean = {name: value for name, value in os.environ.items() if name not in OWN}
    done = subprocess.run(arguments, capture_output=True, text=True, cwd=folder, timeout=120,
                          env={**clean, "PATH": "/usr/bin:/bin"})
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_the_wheel_brings_the_libraries_and_fits_any_python_3_of_the_platform(wheel: pathlib.Path) -> None:
    assert wheel.name.startswith(f"vorn_nac-{vorn_nac.__version__}-py3-none-linux_")
    names = set(zipfile.ZipFile(wheel).namelist())
    written = {f"vorn_nac/{path.name}" for path in (ROOT / "python/vorn_nac").glob("*.py")}
    made = {f"vorn_nac/{name}" for name in ("records.py", "_version.py", "py.typed", "nac", "libvorn_bus.so.1",
                                            "libvorn_nac_user.so.1", "libvorn_nac_inspect.so.1")}
    assert {name for name in names if ".dist-info/" not in name} == written | made


def test_it_packs_and_sends_and_reads_captures_without_the_build(python: pathlib.Path, tmp_path: pathlib.Path) -> None:
    program = f"""
import importlib.metadata, vorn_nac
from vorn_nac import Bus, Nac_SetPortMsg, open_capture
with Bus("ipc://{tmp_path}", 1) as bus:
    bus.send(1, Nac_SetPortMsg(f0=24))
    print(bus.receive(timeout=10).record)
with open_capture("{ROOT}/examples/port-move.pcapng") as capture:
    print(sum(1 for message in capture if message.faults))
print(importlib.metadata.version("vorn-nac") == vorn_nac.__version__)
print("{BUILD}" in open("/proc/self/maps").read())
"""
    assert run(str(python), "-c", program, folder=tmp_path) == "Nac_SetPortMsg(f0=24, f1=0)\n1\nTrue\nFalse\n"


def test_pytest_finds_its_fixtures(python: pathlib.Path, tmp_path: pathlib.Path) -> None:
    (tmp_path / "test_port.py").write_text("def test_port(vorn_bus):\n    assert vorn_bus(1).address == 1\n")
    assert "1 passed" in run(str(python), "-m", "pytest", "-q", "-p", "no:cacheprovider", folder=tmp_path)
    (tmp_path / "conftest.py").write_text('pytest_plugins = ["vorn_nac.pytest_plugin"]\n')
    assert "1 passed" in run(str(python), "-m", "pytest", "-q", "-p", "no:cacheprovider", folder=tmp_path)
