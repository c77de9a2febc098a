# SPDX-License-Identifier: Apache-2.0
# Where a source can be made faulty by a small change: a comparison shifted by one, reversed, or decided beforehand, a
# condition decided beforehand, a statement left out, a sum turned into a difference, a constant one higher, a trait
# flipped, an acquire or release order relaxed.
import dataclasses
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]


@dataclasses.dataclass(frozen=True)
class Fault:
    path: str
    start: int
    end: int
    text: str  # put in offset of [start, end)
    line_number: int
    line: str  # as it stands
    what: str

    def key(self) -> tuple[str, str, str]:
        return self.path, self.line, self.what


def masked(text: str) -> str:
    """The text with comments, literals and preprocessor lines blanked out, of the same length."""
    pattern = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|(?m:^)[ \t]*#(?:[^\n]*\\\n)*[^\n]*'
    blank = lambda match: re.sub(r"[^\n]", " ", match[0])
    return re.sub(pattern, blank, text, flags=re.DOTALL)


def operand_start(text: str, at: int) -> int:
    """Where the operand starts that ends before `at`."""
    depth = 0
    for i in range(at - 1, -1, -1):
        if text[i] in ")]}":
            depth += 1
        elif text[i] in "([{":
            if depth == 0:
                return i + 1
            depth -= 1
        elif depth == 0 and (text[i] in ";,?!" or text[i - 1 : i + 1] in ("&&", "||", "= ", ": ")
                             or re.match(r"return\b", text[i : i + 7])):
            return i + (6 if text[i] == "r" else 1)
    return 0


def operand_end(text: str, at: int) -> int:
    """Where the operand ends that starts at `at`."""
    depth = 0
    for i in range(at, len(text)):
        if text[i] in "([{":
            depth += 1
        elif text[i] in ")]}":
            if depth == 0:
                return i
            depth -= 1
        elif depth == 0 and (text[i] in ";,?" or text[i : i + 3] in (" &&", " ||", " : ")):
            return i
    return len(text)


def closing(text: str, at: int) -> int:
    """The parenthesis that closes the one at `at`."""
    depth = 0
    for i in range(at, len(text)):
        depth += {"(": 1, ")": -1}.get(text[i], 0)
        if depth == 0:
            return i
    raise ValueError("unbalanced")


SHIFTED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
NO_CODE = r"\s*(static_assert|using|template|#)"


def faults_in(path: str, text: str) -> list[tuple[int, int, str, str]]:
    """(start, end, replacement, what) of every fault in a source."""
    code = masked(text)
    found = []

    def lines_start(at: int) -> int:
        return code.rfind("\n", 0, at) + 1

    def is_code(at: int) -> bool:
        line = code[lines_start(at) : code.find("\n", at)]
        statement = code[max(code.rfind(c, 0, at) for c in ";{}") + 1 : at]
        return not re.match(NO_CODE, line) and "static_assert" not in statement

    for match in re.finditer(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)", code):
        if not is_code(match.start()):
            continue
        found.append((*match.span(), SHIFTED[match[0]], f"{match[0]} becomes {SHIFTED[match[0]]}"))
        start, end = operand_start(code, match.start()), operand_end(code, match.end())
        operand = " ".join(text[start:end].split())
        for decided in ("true", "false"):
            found.append((start, end, f" {decided}", f"{operand} becomes {decided}"))
    for match in re.finditer(r"\bif (?:constexpr )?(\()", code):
        end = closing(code, match.start(1))
        condition = code[match.end(1) : end]
        if re.search(r"\s(<=|>=|==|!=|<|>)\s", condition) or " = " in condition:
            continue  # its comparisons are decided above
        for decided in ("true", "false"):
            found.append((match.end(1), end, decided, f"condition becomes {decided}"))
    for match in re.finditer(r"(?<=[;{}\n)])[ \t]*((?:[\w:.]|->|\*(?=\w))+(?:<[^;<>]*>)?(?:\([^;{}]*?\))?(?:\[\w+\])?"
                             r"(?: [+]?= [^;{}]*|\([^;{}]*\))?;)", code):
        statement = " ".join(match[1].split())
        if re.match(r"(return|break|using|friend|static_assert|NAC_\w+|std::uint|public|private|T |F )\b", statement) or (
                not re.search(r"[(=]", statement)):
            continue
        found.append((match.start(1), match.end(1), ";", f"without {statement}"))
    for match in re.finditer(r"(?<= )([+-])(?= )|(?<= )([+-])=(?= )", code):
        if is_code(match.start()):
            sign = match[1] or match[2]
            other = "-" if sign == "+" else "+"
            found.append((match.start(), match.start() + 1, other, f"{sign} becomes {other}"))
    for match in re.finditer(r"\bconstexpr [\w:]+ k\w+ = ((?:0x)?[0-9A-F]+);", code):
        found.append((*match.span(1), f"{match[1]} + 1", f"{match[1]} becomes {match[1]} + 1"))
    for match in re.finditer(r"static constexpr bool \w+ =\s+(true|false);", code):
        other = "false" if match[1] == "true" else "true"
        found.append((*match.span(1), other, f"{match[1]} becomes {other}"))
    for match in re.finditer(r"AllocationComplaint::(sixteen_blanks|one_blank)\b", code):
        other = "one_blank" if match[1] == "sixteen_blanks" else "sixteen_blanks"
        found.append((*match.span(1), other, f"{match[1]} becomes {other}"))
    for match in re.finditer(r"memory_order_(acquire|release)\b", code):
        found.append((*match.span(1), "relaxed", f"{match[1]} becomes relaxed"))
    return found


def all_faults(sources: list[str]) -> list[Fault]:
    """Those of the files that the patterns name."""
    faults = {}
    for pattern in sources:
        for path in sorted(ROOT.glob(pattern)):
            text = path.read_text()
            name = str(path.relative_to(ROOT))
            for start, end, replacement, what in faults_in(name, text):
                begin = text.rfind("\n", 0, start) + 1
                line = text[begin : text.find("\n", start)].strip()
                faults[name, start, end, replacement] = Fault(
                    name, start, end, replacement, text.count("\n", 0, start) + 1, line, what)
    return list(faults.values())
