# SPDX-License-Identifier: Apache-2.0
# One word for one thing: words that the sources do not use, and what they use instead.
#
# Run with --count FOLDER to print how often each stands in another tree.
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# A pattern, and the words to use.
WORDS = {
    r"\b(?<!\bin )(\w+_)?[Pp]laces?_?\b(?<!_in_place)":
        "offset, path, endpoint or position",
    r"\b[Bb]ehind\b": "after",
    r"\b[Tt]ells\b|\btold in\b": "returns, reports, logs, prints",
    r"\b([Hh]eld|[Hh]olds?|[Hh]olding)\b[^.\n]{0,40}\bagainst\b": "checked against, compared with",
    r"\b[Ss]o many\b": "the number",
    r"\b\w*[Rr]oom(?!s\b)\b(?<!headroom)": "remaining bytes, capacity",
    r"\bsound\b": "valid",
    r"[Pp]arcel": "Delivery",
    r"\b\w*Patience\b|\bpatience\b": "Deadline, timeout",
    r"\b[Bb]ell_?\b": "Notifier",
    r"\b[Ss]trangers?\b|\bstrange\b": "unknown peer, malformed",
    r"VORN_BUS_TROUBLE|VORN_BUS_UNSURE": "VORN_BUS_SYSTEM_ERROR",
    r"\b[Ss]poken\b|SPOKEN": "generated",
    r"[Ff]or lack of|\bis turned round": "by default, reversed",
}
# Of the bus, where what one send carries is a batch.
BATCH = re.compile(r"(?<![A-Za-z])[Uu]nits?(?![A-Za-z])")
BATCH_FILES = ("vorn/", "tests/bus/", "docs/bus.md", "docs/nats.md", "docs/captures.md", "python/vorn_nac/_bus.py")
LEFT_OUT = ("tests/layout/words_test.py", "LICENSE", "tests/tool/page/package-lock.json")
TEXTS = {".c", ".cpp", ".h", ".hpp", ".in", ".py", ".md", ".cmake", ".txt", ".json", ".lua", ".sh", ".cjs", ".yml", ".map", ".list", ""}


def texts(root: pathlib.Path) -> dict[str, str]:
    found = {}
    for top in root.iterdir():
        if top.name in ("build", ".git"):
            continue
        for path in [top] if top.is_file() else top.rglob("*"):
            name = str(path.relative_to(root))
            if (path.is_file() and path.suffix in TEXTS and name not in LEFT_OUT and "__pycache__" not in name
                    and not name.startswith(("fuzz/corpus", "docs/performance"))):
                found[name] = path.read_text()
    return found


def uses(root: pathlib.Path) -> dict[str, list[str]]:
    found: dict[str, list[str]] = {pattern: [] for pattern in [*WORDS, BATCH.pattern]}
    for name, text in sorted(texts(root).items()):
        for number, line in enumerate(text.splitlines(), 1):
            for pattern in WORDS:
                found[pattern] += [f"{name}:{number}: {line.strip()}"] * len(re.findall(pattern, line))
            if name.startswith(BATCH_FILES):
                found[BATCH.pattern] += [f"{name}:{number}: {line.strip()}"] * len(BATCH.findall(line))
    return found


class Words(unittest.TestCase):
    def test_no_other_words_are_used(self) -> None:
        for pattern, lines in uses(ROOT).items():
            with self.subTest(instead=WORDS.get(pattern, "batch")):
                self.assertEqual(lines, [])


if __name__ == "__main__":
    if sys.argv[1:2] == ["--count"]:
        counts = {WORDS.get(pattern, "batch"): len(lines) for pattern, lines in uses(pathlib.Path(sys.argv[2])).items()}
        for instead, count in counts.items():
            print(f"{count:6} instead of {instead}")
        print(f"{sum(counts.values()):6} in all")
    else:
        unittest.main()
