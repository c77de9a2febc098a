# SPDX-License-Identifier: Apache-2.0
# What is refused as a package's catalogue; tests/packages/own_package.py loads one.
import pathlib

import pytest
from vorn_nac import BadCatalogue, Error, load


def test_a_file_that_is_not_there_is_named(tmp_path: pathlib.Path) -> None:
    with pytest.raises(BadCatalogue, match=f"there is no file {tmp_path}/none; a catalogue is a file that CMake's "):
        load(tmp_path / "none")


def test_a_file_that_is_no_library_is_refused(tmp_path: pathlib.Path) -> None:
    (tmp_path / "text").write_text("no library")
    with pytest.raises(BadCatalogue, match="text cannot be loaded: .*; a catalogue is a file"):
        load(tmp_path / "text")


def test_a_library_that_is_no_catalogue_is_refused() -> None:
    mapped = pathlib.Path("/proc/self/maps").read_text().split()
    with pytest.raises(BadCatalogue, match="is a library, but no catalogue"):
        load(next(word for word in mapped if "/libvorn_nac_user.so" in word))


def test_types_that_are_there_already_are_refused() -> None:
    with pytest.raises(Error, match="nac has Nac_.*, which another catalogue of this process has"):
        load("nac")

