# SPDX-License-Identifier: Apache-2.0
# Installed into a folder, which is then moved: consumers find the libraries there, and the tool runs.
#
# BUILD in the environment is the folder of the build.
import importlib.metadata
import os
import pathlib
import subprocess
import sys
import tempfile
import tomllib
import unittest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
GENERATED = {"share/bash-completion/completions/nac": ["completion", "bash"],
          "share/zsh/vendor-completions/_nac": ["completion", "zsh"],
          "share/fish/vendor_completions.d/nac.fish": ["completion", "fish"],
          "wireshark/plugins/vorn_nac.lua": ["dissector"]}
HEADERS = {"inspect/vorn_inspect.h", "nac/nac_messages.h", "vorn/vorn_bus.h",
           "nac/message_functions.hpp", "nac/nac.hpp", "nac/owned_records.hpp", "nac/typed_bus.hpp"}
# Of which packages of messages are made.
KIT = {*(str(path.relative_to(ROOT)) for folder in ("runtime", "bus") for path in (ROOT / folder).glob("*.h*")),
       *(f"inspect/{name}.h" for name in ("bounded_text", "checked_record", "description_tables", "package_catalogue",
                                          "type_operations"))}


class Installed(unittest.TestCase):
    folder: tempfile.TemporaryDirectory[str]
    prefix: pathlib.Path

    @classmethod
    def setUpClass(cls) -> None:
        cls.folder = tempfile.TemporaryDirectory()
        first = pathlib.Path(cls.folder.name) / "first"
        subprocess.run(["cmake", "--install", os.environ["BUILD"], "--prefix", first], check=True, capture_output=True,
                       env={key: value for key, value in os.environ.items() if key != "DESTDIR"})
        cls.prefix = first.rename(pathlib.Path(cls.folder.name) / "moved")

    @classmethod
    def tearDownClass(cls) -> None:
        cls.folder.cleanup()

    def one(self, suffix: str) -> pathlib.Path:
        (found,) = [path for path in self.prefix.rglob("*") if str(path).endswith("/" + suffix)]
        return found

    def test_consumers_compile_and_run(self) -> None:
        done = subprocess.run([sys.executable, HERE / "consumers.py", "--prefix", self.prefix], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        print(done.stdout, end="")

    def test_a_package_of_ones_own_is_built_and_used(self) -> None:
        done = subprocess.run([sys.executable, HERE / "own_package.py", "--prefix", self.prefix], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        print(done.stdout, end="")

    def test_two_versions_of_a_package_talk(self) -> None:
        done = subprocess.run([sys.executable, HERE / "two_versions.py", "--prefix", self.prefix], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        print(done.stdout, end="")

    def test_headers_are_the_public_ones_and_the_kit(self) -> None:
        include = self.prefix / "include/vorn_nac"
        self.assertEqual({str(path.relative_to(include)) for path in include.rglob("*.h*")}, HEADERS | KIT)

    def test_what_the_tool_generates_is_installed(self) -> None:
        for suffix, arguments in GENERATED.items():
            with self.subTest(suffix=suffix):
                printed = subprocess.run([self.prefix / "bin/nac", *arguments], check=True, capture_output=True).stdout
                self.assertGreater(len(printed), 100)
                self.assertEqual(self.one(suffix).read_bytes(), printed)

    def test_the_python_package_runs(self) -> None:
        package = self.one("dist-packages/vorn_nac")
        self.assertEqual([path for path in package.iterdir() if path.is_symlink()], [])
        done = subprocess.run(["/usr/bin/python3", "-c", "import vorn_nac as v; print(v.unpack(v.Nac_SetPortMsg, v.pack("
                               "v.Nac_SetPortMsg(f0=7))))"], capture_output=True, text=True, env={
                                   "PYTHONPATH": str(package.parent), "PYTHONDONTWRITEBYTECODE": "1",
                                   "VORN_NAC_LIBRARY_DIR": str(self.one("libvorn_bus.so.1").parent)})
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "Nac_SetPortMsg(f0=7, f1=0)\n", ""))
        (installed,) = importlib.metadata.distributions(name="vorn-nac", path=[str(package.parent)])
        with open(ROOT / "pyproject.toml", "rb") as file:
            project = tomllib.load(file)["project"]
        self.assertEqual(installed.metadata["Summary"], project["description"])
        self.assertEqual({each.group: {each.name: each.value} for each in installed.entry_points}, project["entry-points"])

    def test_the_manual_is_that_of_the_build(self) -> None:
        installed = self.one("man3").parent
        made = pathlib.Path(os.environ["BUILD"]) / "man"
        pages = {str(path.relative_to(made)): path.read_bytes() for path in made.rglob("*.?")}
        self.assertIn("man3/vorn_bus_open.3", pages)
        self.assertEqual({str(path.relative_to(installed)): path.read_bytes() for path in installed.rglob("*.?")}, pages)

    def test_writers_are_compared_with_the_installed_corpus(self) -> None:
        nac = self.prefix / "bin/nac"
        done = subprocess.run([self.one("conformance/conformance.py"), "--writer", f"{nac} encode -", "--image-writer",
                               f"{nac} encode --layout image -"], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        self.assertRegex(done.stdout, r"\n(\d+) of \1 cases of \d+ types agree\n\Z")

    def test_no_file_names_the_build(self) -> None:
        build = os.environ["BUILD"].encode()
        for path in self.prefix.rglob("*"):
            if path.is_file():
                self.assertNotIn(build, path.read_bytes(), path)


if __name__ == "__main__":
    unittest.main()
