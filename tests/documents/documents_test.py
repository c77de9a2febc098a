# SPDX-License-Identifier: Apache-2.0
# The documents: every command that they show runs and prints what they show; every link has a target.
#
# A block marked console has commands after "$ ", continued after "> ", and what each prints; "..." stands for any lines.
# The commands of a document run in one folder, which looks like the root of the sources. NAC names the tool.
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
from typing import Iterator, NamedTuple

ROOT = pathlib.Path(__file__).resolve().parents[2]
NAC = pathlib.Path(os.environ.get("NAC", str(ROOT / "build/release/nac")))
PAGES = sorted(path for path in ROOT.rglob("*.md") if path.relative_to(ROOT).parts[0] not in ("build", ".git"))

# Commands that are shown and not run, each with the reason.
NOT_RUN = {
    ("README.md", "./dev run"): "builds all this from nothing; what it runs is run here",
    ("README.md", "./dev test"): "runs this test",
    ("docs/tutorial.md", "./dev build"): "builds all this from nothing; docs/make/newcomer.py runs it, and times it",
    ("tests/reference/README.md", "python3 test_reference.py"): "is the test reference/test_reference",
    ("tests/reference/README.md", "python3 make_corpus.py"): "writes into the sources; reference/check_corpus compares",
    ("docs/performance/README.md", "./dev bench "): "times the machine, for minutes, and writes into docs/",
    ("docs/performance/README.md", "./dev bench-instructions"): "is the test instructions",
    ("docs/python.md", "pip install ."): "python/tests/test_wheel.py runs it",
    ("docs/captures.md", "nac monitor"): "runs until it is stopped; tool/capture_test runs it",
    ("docs/captures.md", "nac record"): "runs until it is stopped; tool/capture_test runs it",
    ("docs/packages.md", "nac "): "needs a package that is built; tests/packages/own_package.py builds and uses one",
    ("docs/captures.md", "nac replay"): "needs what the line before it records; tool/capture_test runs it",
}
COMMAND = re.compile(r"(?:\./dev|nac|build/\S+|cmake|ctest|python3|pip|apt-get|apt|dpkg|gcc|g\+\+|cc|git|man|sudo)\s+\S")
PROGRAM_LANGUAGES = ("c", "cpp", "cmake", "json", "python")


class Shown(NamedTuple):
    command: str
    output: str


def commands_of(text: str) -> Iterator[Shown]:
    """Commands and what they print."""
    for command, more, output in re.findall(r"^\$ (.*\n)((?:> .*\n|>\n)*)((?:(?!\$ ).*\n)*)", text, re.M):
        yield Shown(command + re.sub(r"^> ?", "", more, flags=re.M), output)


def blocks(path: pathlib.Path) -> Iterator[tuple[str, str]]:
    """The fenced blocks of a document: language and text. Those indented by four blanks have no language."""
    text = path.read_text()
    yield from re.findall(r"^```(\w*)\n(.*?)^```", text, re.M | re.S)
    for block in re.findall(r"(?:^    \S.*\n)+", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S), re.M):
        yield "", re.sub(r"^    ", "", block, flags=re.M)


def consoles(path: pathlib.Path) -> Iterator[Shown]:
    for language, text in blocks(path):
        if language == "console":
            yield from commands_of(text)


def matches(printed: str, shown: str) -> bool:
    parts = [re.escape(line) if line != "...\n" else None for line in shown.splitlines(keepends=True)]
    return re.fullmatch("".join(r"(?:.*\n)*" if part is None else part for part in parts), printed) is not None


class Sandbox:
    """A folder that looks like the root of the sources, and a home, for the commands of one document."""

    def __init__(self, folder: pathlib.Path) -> None:
        self.root = folder / "root"
        (self.root / "build").mkdir(parents=True)
        (self.root / "build/release").symlink_to(NAC.resolve().parent)
        for name in ("docs", "examples", "python", "tests"):
            (self.root / name).symlink_to(ROOT / name)
        for path in (ROOT / "examples").iterdir():
            (self.root / path.name).symlink_to(path)
        (folder / "home").mkdir()
        (folder / "bin").mkdir()
        (folder / "bin/python3").symlink_to("/usr/bin/python3")
        self.environment = {"HOME": str(folder / "home"), "LC_ALL": "C.UTF-8", "PYTHONDONTWRITEBYTECODE": "1",
                            "PATH": f"{folder}/bin:{NAC.parent}:/usr/bin:/bin:/usr/sbin:/sbin",
                            "VORN_NAC_LIBRARY_DIR": str(NAC.resolve().parent)}
        if "ASAN_OPTIONS" in os.environ:
            self.environment["ASAN_OPTIONS"] = os.environ["ASAN_OPTIONS"]
        self.listening: list[tuple[Shown, subprocess.Popen[str]]] = []

    def start(self, shown: Shown) -> "subprocess.Popen[str]":
        return subprocess.Popen(["bash", "-c", shown.command], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                stdin=subprocess.DEVNULL, cwd=self.root, env=self.environment)

    def run(self, shown: Shown) -> list[tuple[Shown, str]]:
        """What commands have printed by now: one that listens ends when another has sent."""
        if found := re.match(r"export (\w+)=(\S+)\n", shown.command):
            self.environment[found[1]] = found[2]
            return []
        started = self.start(shown)
        if re.match(r"(build/release/)?nac listen [^|]*$", shown.command):
            self.listening.append((shown, started))
            return []
        return [(shown, self.printed(started))] + self.received(shown)

    def received(self, shown: Shown) -> list[tuple[Shown, str]]:
        if not re.search(" (send|replay) ", shown.command):
            return []
        ended, self.listening = self.listening, []
        return [(each, self.printed(started)) for each, started in ended]

    @staticmethod
    def printed(started: "subprocess.Popen[str]") -> str:
        try:
            output, errors = started.communicate(timeout=60)
        except subprocess.TimeoutExpired:
            started.kill()
            return "(does not end)\n"
        return output + "".join(line + "\n" for line in errors.splitlines() if "Running as user" not in line)


def slug(heading: str) -> str:
    """The anchor of a heading."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).strip().lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def without_code(text: str) -> str:
    return re.sub(r"`[^`\n]*`", "", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S))


class Commands(unittest.TestCase):
    def test_every_command_prints_what_is_shown(self) -> None:
        count = 0
        for path in PAGES:
            shown = list(consoles(path))
            if not shown:
                continue
            with tempfile.TemporaryDirectory() as folder:
                sandbox = Sandbox(pathlib.Path(folder))
                for each in shown:
                    count += 1
                    for command, printed in sandbox.run(each):
                        with self.subTest(document=str(path.relative_to(ROOT)), command=command.command):
                            self.assertTrue(matches(printed, command.output),
                                            f"\n{command.command}shown:\n{command.output}\nprinted:\n{printed}")
                self.assertEqual(sandbox.listening, [], f"{path}: a command listens, and none sends to it")
        self.assertGreater(count, 40)
        print(f"count: {count} commands of the documents print what is shown")

    def test_what_is_not_run_is_listed_with_a_reason(self) -> None:
        found = set()
        for path in PAGES:
            for language, text in blocks(path):
                if language == "console" or language in PROGRAM_LANGUAGES:
                    continue
                for line in filter(COMMAND.match, text.splitlines()):
                    listed = [key for key in NOT_RUN if key[0] == str(path.relative_to(ROOT)) and line.startswith(key[1])]
                    self.assertEqual(len(listed), 1, f"{path.relative_to(ROOT)}: run this, or list it: {line}")
                    found.update(listed)
        self.assertEqual(found, set(NOT_RUN))

    def test_a_wrong_output_is_noticed(self) -> None:
        self.assertTrue(matches("a\nb\nc\n", "a\n...\n"))
        self.assertTrue(matches("a\nb\nc\n", "...\nc\n"))
        self.assertFalse(matches("a\nb\nc\n", "a\nc\n"))
        self.assertFalse(matches("a.c\n", "abc\n"))
        self.assertEqual(list(commands_of("$ cat <<E\n> x\n> E\nx\n$ true\n")),
                         [Shown("cat <<E\nx\nE\n", "x\n"), Shown("true\n", "")])


class Links(unittest.TestCase):
    def test_every_link_leads_to_a_file_and_an_anchor(self) -> None:
        count = 0
        for path in PAGES:
            for target in re.findall(r"\]\(([^)\s]+)\)", without_code(path.read_text())):
                if re.match(r"\w+:", target):
                    continue
                count += 1
                name, _, anchor = target.partition("#")
                target_path = path.parent / name if name else path
                with self.subTest(document=str(path.relative_to(ROOT)), link=target):
                    self.assertTrue(target_path.exists())
                    if anchor:
                        self.assertEqual(target_path.suffix, ".md")
                        headings = re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```", "", target_path.read_text(),
                                                                  flags=re.M | re.S), re.M)
                        self.assertIn(anchor, [slug(heading) for heading in headings])
        self.assertGreater(count, 60)


def write() -> None:
    """Adds its output to every command without one, for the author of a page."""
    for path in map(pathlib.Path, sys.argv[2:]):
        text = path.read_text()
        with tempfile.TemporaryDirectory() as folder:
            sandbox = Sandbox(pathlib.Path(folder))
            for each in consoles(path):
                for command, printed in sandbox.run(each):
                    if not command.output:
                        text = text.replace("$ " + command.command + "```", "$ " + command.command + printed + "```", 1)
        path.write_text(text)


if __name__ == "__main__":
    if sys.argv[1:2] == ["--write"]:
        write()
    else:
        unittest.main()
