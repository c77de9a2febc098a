# SPDX-License-Identifier: Apache-2.0
# The manual of this build: mandoc finds no errors in it, references lead to pages, and every exported function has a
# page with its prototype. NAC names the tool, beside which the manual is.
import functools
import os
import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = pathlib.Path(os.environ.get("NAC", ROOT / "build/release/nac")).parent / "man"
FILES = sorted(FOLDER.glob("man?/*.?"))
ALIASES = [path for path in FILES if path.read_text().startswith(".so ")]
PAGES = [path for path in FILES if path not in ALIASES]


@functools.cache
def shown(path: pathlib.Path) -> str:
    """The page as a reader sees it."""
    done = subprocess.run(["mandoc", "-Tutf8", "-Owidth=200", path], capture_output=True, text=True, check=True)
    return re.sub(".\b", "", done.stdout)


def part(path: pathlib.Path, heading: str) -> str:
    found = re.search(rf"^{heading}\n(.*?)(?=^\S|\Z)", shown(path), re.M | re.S)
    return found[1] if found else ""


def page_of(name: str) -> pathlib.Path:
    """Where `man 3 name` leads."""
    path = FOLDER / f"man3/{name}.3"
    return FOLDER / path.read_text().split()[1] if path in ALIASES else path


class Manual(unittest.TestCase):
    def test_pages_have_no_errors_and_all_parts(self) -> None:
        for path in PAGES:
            with self.subTest(page=path.name):
                # Errors alone: mandoc warns of how scdoc writes paragraphs.
                lint = subprocess.run(["mandoc", "-Tlint", "-Werror", path], capture_output=True, text=True)
                self.assertEqual((lint.returncode, lint.stdout), (0, ""))
                for heading in ("NAME", "SYNOPSIS", "DESCRIPTION", "SEE ALSO"):
                    self.assertTrue(part(path, heading), heading)

    def test_references_lead_to_pages(self) -> None:
        names = {path.name for path in PAGES}
        for path in PAGES:
            for name, section in re.findall(r"([\w-]+)\((\d)\)", part(path, "SEE ALSO")):
                self.assertIn(f"{name}.{section}", names, path.name)
        for path in ALIASES:
            self.assertIn(page_of(path.stem), PAGES, path.name)

    def test_every_function_has_a_page_with_its_prototype(self) -> None:
        library = (ROOT / "tests/library/exported_symbols.txt").read_text().split()
        bus = re.findall(r"^\w[^;{}#/]*?\b(vorn_bus_\w+)\(", (ROOT / "vorn/vorn_bus.h").read_text(), re.M)
        self.assertIn("Nac_SetPortMsg__pack", library)
        self.assertIn("vorn_bus_open", bus)
        for name in [*library, *bus]:
            with self.subTest(name=name):
                self.assertRegex(part(page_of(name), "SYNOPSIS"), rf"\b{name}\([\w ]")
        print(f"count: {len(library)} functions of the library and {len(bus)} of the bus have a manual page")

    def test_section_3_has_prototypes_of_what_it_describes(self) -> None:
        for path in PAGES:
            if path.suffix == ".3":
                self.assertRegex(part(path, "SYNOPSIS"), r'#include "\w+/\w+\.h"\n\s*\n.*\w\([^.]+\);', path.name)

    def test_every_variable_of_the_environment_is_described(self) -> None:
        names = {"NAC_CATALOGUE"}
        for folder in ("tool", "vorn"):
            for path in (ROOT / folder).rglob("*.[ch]*"):
                names |= set(re.findall(r'getenv\(\s*"(\w+)"|= "(VORN_NATS_\w+)";', path.read_text()) and
                             re.findall(r'"((?:VORN_NATS|VORN_BUS|XDG|NO|HOME)\w*)"', path.read_text()))
        names = {name for name in names if not re.match("VORN_BUS_(?!URL)", name)}
        self.assertGreater(len(names), 10)
        for name in names:
            self.assertIn(name, part(FOLDER / "man1/nac.1", "ENVIRONMENT"))
            self.assertTrue(name.startswith("N") or name in part(FOLDER / "man1/nac-bus.1", "ENVIRONMENT"), name)

    def test_every_verb_has_its_options_in_a_page(self) -> None:
        tool = shown(FOLDER / "man1/nac.1")
        text = subprocess.run([FOLDER.parent / "nac", "--help"], capture_output=True, text=True, check=True).stdout
        verbs = re.findall(r"^ {2}([a-z]+)", text, re.M)
        self.assertIn("decode", verbs)
        for verb in verbs:
            self.assertRegex(tool, rf"(?m)^ +{verb}\b")
            self.assertTrue([path for path in PAGES if path.suffix == ".1" and
                             re.search(rf"^ +(Usage: )?nac {verb} .*OPTIONS", shown(path), re.M)], verb)


if __name__ == "__main__":
    unittest.main()
