# SPDX-License-Identifier: Apache-2.0
# The same sources give the same library, byte for byte, in whatever folder, at whatever time, by whatever user.
#
# CXX and CC in the environment name the compilers.
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ["CMakeLists.txt", "cmake", "runtime", "bus", "nac"]


def digest(source: pathlib.Path, build: pathlib.Path, **environment: str) -> str:
    source.mkdir(parents=True)
    for name in FOLDERS:
        copy = shutil.copytree if (ROOT / name).is_dir() else shutil.copy
        copy(ROOT / name, source / name)
    settings = {**os.environ, **environment}
    for command in (["cmake", "-G", "Ninja", "-S", source, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DNAC_BUILD_TOOL=OFF",
                     "-DNAC_BUILD_TESTS=OFF", "-DNAC_BUILD_INSPECT=OFF", "-DNAC_BUILD_BUS=OFF", "-DNAC_INSTALL=OFF"], ["cmake", "--build", build]):
        subprocess.run(command, check=True, capture_output=True, env=settings)
    return hashlib.sha256((build / "libvorn_nac_user.so").read_bytes()).hexdigest()


class Reproducible(unittest.TestCase):
    def test_two_builds_in_different_folders_times_and_languages_are_the_same_bytes(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            here = pathlib.Path(folder)
            one = digest(here / "a", here / "a/build", TZ="UTC", LC_ALL="C", HOME="/nonexistent")
            other = digest(here / "another folder" / "source", here / "out", TZ="Asia/Tokyo", LC_ALL="C.UTF-8", USER="somebody")
        self.assertEqual(one, other)
        print(f"count: two builds, one sha256 {one}")


if __name__ == "__main__":
    unittest.main()
