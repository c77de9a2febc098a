# SPDX-License-Identifier: Apache-2.0
# The package: it finds its libraries, type-checks, and describes itself.
import dataclasses
import inspect
import json
import os
import pathlib
import pydoc
import re
import shutil
import subprocess
import sys
import typing

import pytest
import vorn_nac
from support import NAC, ROOT, nac

PACKAGE = pathlib.Path(vorn_nac.__file__).parents[1]
LIBRARIES = pathlib.Path(NAC).parent


def python(code: str, **environment: str) -> subprocess.CompletedProcess[str]:
    inherited = {key: value for key, value in os.environ.items() if key not in ("VORN_NAC_LIBRARY_DIR", "LD_LIBRARY_PATH")}
    return subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60,
                          env={**inherited, "PYTHONPATH": str(PACKAGE), **environment})


NAMES = ("libvorn_bus.so.1", "libvorn_nac_user.so.1", "libvorn_nac_inspect.so.1")
USE = "import vorn_nac; print(vorn_nac.pack(vorn_nac.Nac_SetPortMsg(f0=7)).hex())"
PACKED = "0c00000008000c000400000008000000" + "07000000"


def test_finds_the_libraries_in_the_folder_that_is_named(tmp_path: pathlib.Path) -> None:
    for name in NAMES:
        shutil.copy(LIBRARIES / name, tmp_path)
    done = python(USE + "; print(open('/proc/self/maps').read())", VORN_NAC_LIBRARY_DIR=str(tmp_path))
    assert (done.returncode, done.stderr) == (0, "")
    assert f"{tmp_path}/libvorn_bus.so.1" in done.stdout


def test_finds_the_libraries_where_the_loader_looks() -> None:
    done = python(USE + "; print(open('/proc/self/maps').read())", LD_LIBRARY_PATH=str(LIBRARIES))
    assert (done.returncode, done.stderr) == (0, "")
    assert str(LIBRARIES) in done.stdout


def test_finds_the_libraries_of_the_build_tree_in_which_it_lies(tmp_path: pathlib.Path) -> None:
    (tmp_path / "python").mkdir()
    shutil.copytree(PACKAGE / "vorn_nac", tmp_path / "python/vorn_nac")
    for name in NAMES:
        shutil.copy(LIBRARIES / name, tmp_path)
    done = python(USE + "; print(open('/proc/self/maps').read())", PYTHONPATH=str(tmp_path / "python"))
    assert (done.returncode, done.stderr) == (0, "")
    assert f"{tmp_path}/libvorn_nac_user.so.1" in done.stdout


def test_says_where_it_looked_in_vain(tmp_path: pathlib.Path) -> None:
    done = python("import vorn_nac", VORN_NAC_LIBRARY_DIR=str(tmp_path))
    assert done.returncode == 1
    assert "LibraryNotFound: libvorn_bus.so.1, libvorn_nac_user.so.1, libvorn_nac_inspect.so.1 cannot be loaded" in done.stderr
    assert str(tmp_path) in done.stderr


def test_type_checks_strictly() -> None:
    if shutil.which("mypy") is None:
        pytest.fail("mypy is not installed")
    done = subprocess.run(["mypy", "--strict", "--cache-dir", os.devnull, PACKAGE / "vorn_nac", "examples", "tests"],
                          cwd=ROOT / "python", capture_output=True, text=True, timeout=300,
                          env={**os.environ, "MYPYPATH": f"{PACKAGE}:tests"})
    assert done.returncode == 0, done.stdout


def test_help_describes_every_public_name() -> None:
    text = pydoc.plain(pydoc.render_doc(vorn_nac))
    for name in vorn_nac.__all__:
        assert name in text or name == "__version__"
        each = getattr(vorn_nac, name)
        if callable(each) and name != "Layout":
            assert pydoc.getdoc(each).strip(), f"{name} has no description"
    assert text.index("from vorn_nac import Bus") < 1500
    assert {getattr(vorn_nac, name).__module__ for name in ("Bus", "Damaged", "Fault", "pack")} == {"vorn_nac"}


def test_annotations_of_all_classes_and_functions_can_be_evaluated() -> None:
    for each in (getattr(vorn_nac, name) for name in vorn_nac.__all__):
        members = [getattr(member, "__func__", getattr(member, "fget", member)) for member in vars(each).values()] \
            if isinstance(each, type) else []
        for one in (each, *members):
            if isinstance(one, type) or inspect.isfunction(one):
                typing.get_type_hints(one, include_extras=True)


def test_annotations_of_fields_have_ranges_and_lengths() -> None:
    hints = typing.get_type_hints(vorn_nac.Nac_SetUserTableMsg, include_extras=True)
    assert hints["f0"].__metadata__ == (vorn_nac.Range(0, 0xFFFFFFFF),)
    assert hints["f5"].__metadata__ == (vorn_nac.Length(6),)
    assert hints["f53"].__metadata__ == (vorn_nac.Length(16),)
    assert typing.get_args(hints["f15"])[0].__metadata__ == (vorn_nac.Range(0, 0xFFFF),)
    assert typing.get_type_hints(vorn_nac.Nac_SetUserTableMsg)["f0"] is int


def test_the_version_is_that_of_the_project() -> None:
    version = re.search(r"project\(vorn_nac VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    assert version is not None and vorn_nac.__version__ == version[1]


def test_shapes_are_those_that_the_tool_prints() -> None:
    printed = [json.loads(line) for line in nac("describe", "--json", *(name for name in vorn_nac.__all__
                                                                        if name.startswith("Nac_"))).stdout.splitlines()]
    assert len(printed) > 25
    for each in printed:
        shape = dataclasses.asdict(getattr(vorn_nac, each["name"]).shape)
        del shape["address"]
        assert {**shape, "fields": list(shape["fields"])} == each


def test_results_and_counters_are_those_of_the_header() -> None:
    header = (ROOT / "vorn/vorn_bus.h").read_text()
    results = re.findall(r"^    VORN_BUS_(?!CHECK_)(\w+) =\s+(\d+)", header, re.M)
    assert {name: int(number) for name, number in results} == {each.name: each.value for each in vorn_nac.Result}
    counters = re.search(r"typedef struct vorn_bus_counters \{(.*?)\}", header, re.S)
    assert counters is not None
    assert re.findall(r"uint64_t (\w+);", counters[1]) == list(vorn_nac.Counters.__dataclass_fields__)


def test_every_name_of_the_header_has_a_class() -> None:
    header = (ROOT / "nac/nac_messages.h").read_text()
    assert all(f"NAC_MESSAGE_FUNCTIONS({name});" in header for name in vorn_nac.TYPES)
    assert header.count("NAC_MESSAGE_FUNCTIONS(Nac_") == len(vorn_nac.TYPES)
