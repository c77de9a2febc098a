# SPDX-License-Identifier: Apache-2.0
# Makes a wheel of the Python package, with the libraries and the program nac in it: `pip install .`
#
# VORN_NAC_BUILD names the folder of a build. If it is not set, they are built in build/wheel.
import os
import pathlib
import re
import shutil
import subprocess

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

ROOT = pathlib.Path(__file__).resolve().parent
BINARIES = ["libvorn_bus.so.1", "libvorn_nac_user.so.1", "libvorn_nac_inspect.so.1", "nac"]


def built() -> pathlib.Path:
    given = os.environ.get("VORN_NAC_BUILD")
    if given:
        return ROOT / given
    folder = ROOT / "build/wheel"
    subprocess.run(["cmake", "-S", ROOT, "-B", folder, "-DCMAKE_BUILD_TYPE=Release", "-DNAC_BUILD_TESTS=OFF"], check=True)
    subprocess.run(["cmake", "--build", folder, "--parallel", str(os.cpu_count()), "--target", "nac_python"], check=True)
    return folder


class WithBinaries(build_py):
    def run(self) -> None:
        shutil.rmtree(self.build_lib, ignore_errors=True)  # which may have modules that are gone from the sources
        super().run()
        if not self.editable_mode:  # an editable package finds them in the build
            for name in BINARIES:
                shutil.copy(BUILD / name, pathlib.Path(self.build_lib, "vorn_nac", name))


class OfPlatform(Distribution):
    def has_ext_modules(self) -> bool:
        return True


class PlatformWheel(bdist_wheel):
    """For any Python 3."""

    def get_tag(self) -> tuple[str, str, str]:
        return "py3", "none", super().get_tag()[2]


BUILD = built()
MADE = BUILD / "python/pip"  # what setuptools leaves
MADE.mkdir(parents=True, exist_ok=True)
setup(
    version=re.search(r"project\(vorn_nac VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1],
    packages=["vorn_nac"],
    package_dir={"": os.path.relpath(BUILD / "python", ROOT)},
    package_data={"vorn_nac": ["py.typed"]},
    distclass=OfPlatform,
    cmdclass={"build_py": WithBinaries, "bdist_wheel": PlatformWheel},
    options={"build": {"build_base": str(MADE)}, "egg_info": {"egg_base": os.path.relpath(MADE, ROOT)}},
    zip_safe=False)
