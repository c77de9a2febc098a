# SPDX-License-Identifier: Apache-2.0
# Makes the manual pages in man/, for scdoc: those of section 3 from the headers and the descriptions, the options in those
# of section 1 from what the tool says of itself. Only what a group of verbs is for is written here.
#
#     python3 docs/make/manual.py            # complains if man/ is not up to date
#     python3 docs/make/manual.py --write
import os
import re
import subprocess
import sys
import textwrap
from typing import Iterable, NamedTuple

from described_types import (NAC, ROOT, Type, check_or_write, conventions, functions, module_functions, nac,
                             paragraphs_of, promises, purposes, sizes, struct_of, types)

MADE = "; SPDX-License-Identifier: Apache-2.0\n; Made by docs/make/manual.py; not to be edited.\n"
EXIT_CODES = "0: all is well. 1: the data was read and found bad, or differs. 2: the command line is wrong. " \
             "3: a file or the bus failed."


class Group(NamedTuple):
    """Verbs that share a page."""

    page: str
    title: str
    about: str
    verbs: list[str]
    example: str


GROUPS = [
    Group("nac-types", "what message types there are, and how their records lie",
          "Lists the message types, and tells one field by field: kinds, sizes, places in the record and on the wire.",
          ["types", "describe"], "nac describe Nac_SetPortMsg"),
    Group("nac-messages", "read, write, verify and compare messages",
          "Turns bytes into records and records into bytes, as the library does, and says what is wrong with bytes.",
          ["decode", "encode", "verify", "hex", "assemble", "diff", "random"],
          "echo '{\"f0\": 7, \"f1\": 1}' | nac encode --type Nac_SetPortMsg --format hex - | "
          "nac decode --format hex --type Nac_SetPortMsg -"),
    Group("nac-bus", "send and receive records over the bus",
          "Sends records to an address of a bus and prints those that arrive at one. Without a URL the bus is the one that "
          "VORN_BUS_URL names.",
          ["exchange", "send", "listen", "bus stats", "doctor"], "nac exchange access-session.jsonl | tail -n 1"),
    Group("nac-capture", "watch, record and replay what passes over the bus",
          "Shows what passes over the bus without disturbing it, keeps it in pcapng files, sends it again, and prints a "
          "dissector with which Wireshark shows it.",
          ["monitor", "record", "replay", "info", "dissector"], "nac info port-move.pcapng | tail -n 1"),
    Group("nac-machine", "time this machine, and complete the command line",
          "Times how long records take here, and prints completion scripts for shells.",
          ["bench", "completion"], "nac completion bash | head -n 1"),
]


def escaped(text: str) -> str:
    return re.sub(r"([\\_*`])", r"\\\1", text)


def paragraph(text: str, indent: str = "") -> str:
    lines = textwrap.wrap(escaped(text), 100, break_long_words=False, break_on_hyphens=False)
    # What would be markup at the start of a line joins the line before.
    joined: list[str] = []
    for line in lines:
        if joined and line[0] in "-.|[]#<;":
            joined[-1] += " " + line
        else:
            joined.append(line)
    return "".join(indent + line + "\n" for line in joined)


def literal(text: str) -> str:
    return "```\n" + text.rstrip("\n") + "\n```\n"


def page(name: str, section: int, title: str, parts: Iterable[tuple[str, str]]) -> str:
    made = f"{name}({section})\n\n{MADE}\n# NAME\n\n{escaped(name)} - {title}\n"
    for heading, text in parts:
        made += f"\n# {heading}\n\n{text.strip(chr(10))}\n"
    return made


def see_also(*pages: tuple[str, int]) -> str:
    return ", ".join(f"*{escaped(name)}*({section})" for name, section in pages) + "\n"


def example(command: str) -> str:
    """A command and its output, as the tests will find it."""
    path = {**os.environ, "PATH": os.path.dirname(NAC) + ":" + os.environ["PATH"]}
    done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, env=path, cwd=ROOT / "examples")
    return literal("$ " + command + "\n" + done.stdout)


# ---- section 1 --------------------------------------------------------------------------------------


def first_sentence(verb: str) -> str:
    return nac(*verb.split(), "--help").splitlines()[0].strip()


def option_list(verb: str) -> str:
    """A verb's synopsis and options, as --help tells them."""
    lines = nac(*verb.split(), "--help").splitlines()
    usage = next(line for line in lines if line.startswith("Usage:")).removeprefix("Usage: ")
    described = " ".join(line.strip() for line in lines[:lines.index("Usage: " + usage)])
    made = f"## {escaped(usage)}\n\n" + paragraph(described + ".") + "\n"
    entry = ""
    section = ""
    footer = ""
    for line in lines[lines.index("Usage: " + usage) + 1:]:
        if re.match(r"(Options|Positionals|Subcommands):$", line):
            section = line
        elif section and (found := re.match(r"  (\S.*?)(?:  +(\S.*))?$", line)):
            made += entry_text(entry)
            entry = found[1] + "\0" + (found[2] or "")
        elif section and entry and line.startswith("     "):
            entry += " " + line.strip()
        elif line.strip():
            made += entry_text(entry)
            entry, section = "", ""
            footer += line + "\n"
    return made + entry_text(entry) + ("\n" + literal(footer) if footer else "")


def entry_text(entry: str) -> str:
    if not entry:
        return ""
    name, text = entry.split("\0")
    return f"*{escaped(name)}*\n" + paragraph(text.strip() or "See below.", "\t") + "\n"


def verb_pages() -> dict[str, str]:
    pages = {}
    others = [("nac", 1), *((group.page, 1) for group in GROUPS)]
    for group in GROUPS:
        parts = [("SYNOPSIS", "".join(f"*nac {verb}* [options] ...\n\n" for verb in group.verbs)),
                 ("DESCRIPTION", paragraph(group.about)),
                 ("VERBS", "\n".join(option_list(verb) for verb in group.verbs)),
                 ("EXIT STATUS", paragraph(EXIT_CODES)),
                 ("EXAMPLE", example(group.example)),
                 ("SEE ALSO", see_also(*(each for each in others if each[0] != group.page)))]
        pages[f"{group.page}.1.scd"] = page(group.page, 1, group.title, parts)
    table = "".join(f"*{escaped(group.page)}*(1)\n" +
                    "".join(paragraph(f"{verb}: {first_sentence(verb)}." + ("" if verb == group.verbs[-1] else "\0"), "\t")
                            .replace("\0", "++") for verb in group.verbs) + "\n" for group in GROUPS)
    pages["nac.1.scd"] = page("nac", 1, "messages of the Nac package, as bytes, as records, and on a bus", [
        ("SYNOPSIS", "*nac* _verb_ [options] ...\n"),
        ("DESCRIPTION", paragraph(
            "nac reads and writes messages of the Nac package exactly as libvorn_nac_user does. Data goes to standard "
            "output, words to standard error; - is standard input. Every verb has --help, and --json for output with "
            "stable keys, one object a line.")),
        ("VERBS", table),
        ("ENVIRONMENT", "*VORN\\_BUS\\_URL*\n" + paragraph("The bus, where no --bus names one.", "\t") +
         "\n*NO\\_COLOR*\n" + paragraph("If it is set, output has no colours.", "\t")),
        ("EXIT STATUS", paragraph(EXIT_CODES)),
        ("EXAMPLE", example("nac types | head -n 2")),
        ("SEE ALSO", see_also(*((group.page, 1) for group in GROUPS), ("nac_messages", 3), ("vorn_bus", 3)))])
    return pages


# ---- section 3 --------------------------------------------------------------------------------------


def modules(all_types: list[Type]) -> list[str]:
    return list(dict.fromkeys(each["module"] for each in all_types if each["module"]))


def initialiser(module: str) -> str:
    return next(name for _, name, _ in module_functions() if name.endswith(f"{module}_recv_init")).removesuffix("_recv_init")


def field_table(each: Type) -> str:
    lines = [f"{'field':<6} {'kind':<40} {'shown as':<17} {'record':>6} {'image':>6}"]
    lines += [f"{field['name']:<6} {field['kind']:<40} {field['display']:<17} {field['record_offset']:>6} "
              f"{'-' if field['image_offset'] is None else field['image_offset']:>6}" for field in each["fields"]]
    return literal("\n".join(lines))


def module_pages(all_types: list[Type]) -> dict[str, str]:
    purpose, size = purposes(), sizes()
    by_name = {each["name"]: each for each in all_types}
    pages = {}
    for module in modules(all_types):
        prefix = initialiser(module)
        messages = [each for each in all_types if each["module"] == module]
        inner = [by_name[field["table"]] for each in messages for field in each["fields"] if field["table"]]
        shown = {each["name"]: each for each in inner if each["id"] is None} | {each["name"]: each for each in messages}
        own = [(prototype, words) for prototype, name, words in module_functions() if name.startswith(prefix)]
        parts = [("SYNOPSIS", literal('#include "nac/nac_messages.h"\n\n' + "\n".join(each for each, _ in own))),
                 ("DESCRIPTION", "".join(f"*{escaped(prototype)}*\n{paragraph(words, chr(9))}\n" for prototype, words in own) +
                  paragraph("The functions of each message type are told in nac_messages(3)."))]
        text = ""
        for each in shown.values():
            number = f"Message id 0x{each['id']:08X}. " if each["id"] is not None else ""
            text += f"## {escaped(each['name'])}\n\n{paragraph(purpose[each['name']])}\n"
            text += paragraph(number + size[each["name"]]) + "\n"
            text += literal(struct_of(each["name"])) + "\n" + field_table(each) + "\n"
        parts += [("TYPES", text), ("SEE ALSO", see_also(("nac_messages", 3), ("vorn_bus", 3), ("nac-types", 1)))]
        pages[f"{prefix}.3.scd"] = page(prefix, 3, f"the message types of module {escaped(module)}", parts)
    names = [(initialiser(module), module) for module in modules(all_types)]
    listed = "".join(f"*{escaped(prefix)}*(3)\n" + "".join(
        f"\t{escaped(each['name'])}{'' if each is last else '++'}\n"
        for group in [[each for each in all_types if each["module"] == module]] for last in group[-1:] for each in group) +
        "\n" for prefix, module in names)
    pages["nac_messages.3.scd"] = page("nac_messages", 3, "pack, unpack, free and send the messages of the Nac package", [
        ("SYNOPSIS", literal('#include "nac/nac_messages.h"\n\n' + "\n".join(text for _, text in functions()))),
        ("DESCRIPTION", paragraph("Each message type has these seven functions; Message stands for its name. Link with "
                                  "-lvorn_nac_user and a VORN bus, as libvorn_bus is one.") + "\n" +
         "\n".join(paragraph(each) for each in promises())),
        ("CONVENTIONS", "\n".join(paragraph(each) for each in conventions()[1:])),
        ("MESSAGE TYPES", listed),
        ("SEE ALSO", see_also(*((prefix, 3) for prefix, _ in names), ("vorn_bus", 3), ("nac", 1)))])
    return pages


def bus_page() -> dict[str, str]:
    """vorn_bus(3), from its header."""
    header = (ROOT / "vorn/vorn_bus.h").read_text()
    body = header.split("#include \"bus/vorn_bus_api.h\"")[1].split('extern "C" {\n#endif')[1].split("#ifdef __cplusplus")[0]
    intro = re.search(r"\*/\n/\* (.*?)\*/", header, re.S)
    assert intro is not None
    about = paragraphs_of(intro[1])
    text = "\n".join(paragraph(each) for each in about) + "\n"
    for block in re.split(r"\n\n(?=/\*|[a-z])", body.strip()):
        if found := re.match(r"/\* ---- (\w+) -+ \*/\s*", block):
            text += f"## {found[1]}\n\n"
            block = block[found.end():]
        comment = re.match(r"/\* ((?:(?!\*/).)*?)\s*\*/\n", block, re.S)
        if comment:
            text += paragraph(re.sub(r"\s*\n \* ?", " ", comment[1])) + "\n"
            block = block[comment.end():]
        if block.strip():
            text += literal(block.strip()) + "\n"
    names = re.findall(r"^[a-z].*?\b(vorn_bus_\w+)\(", body, re.M)
    return {"vorn_bus.3.scd": page("vorn_bus", 3, "a VORN bus for machines that have none", [
        ("SYNOPSIS", literal('#include "vorn/vorn_bus.h"\n\n' + "\n".join(f"{name}(...)" for name in dict.fromkeys(names)))),
        ("DESCRIPTION", text), ("SEE ALSO", see_also(("nac_messages", 3), ("nac-bus", 1)))])}


def main() -> int:
    write = sys.argv[1:] == ["--write"]
    all_types = types()
    pages = {**verb_pages(), **module_pages(all_types), **bus_page()}
    complaints: list[str] = []
    for name, text in pages.items():
        check_or_write(ROOT / "man" / name, text, write, complaints.append)
    complaints += [f"man/{path.name} is made by nobody" for path in (ROOT / "man").glob("*.scd") if path.name not in pages]
    print("\n".join(complaints) or f"count: {len(pages)} manual pages are what the headers and the tool say")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
