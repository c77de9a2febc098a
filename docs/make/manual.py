# SPDX-License-Identifier: Apache-2.0
# Makes the manual: pages of section 1 from `nac --help`, pages of section 3 from the headers and the descriptions.
# Only what a group of verbs is for is written here. The build runs this, and installs what it makes:
#
#     NAC=build/release/nac python3 docs/make/manual.py FOLDER    # writes FOLDER/man1 and FOLDER/man3; needs scdoc
import functools
import os
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap
from typing import Iterable, NamedTuple

from described_types import (HEADER, NAC, ROOT, Type, conventions, functions, module_functions, nac, paragraphs_of,
                             function_descriptions, purposes, sizes, struct_of, types)


class Group(NamedTuple):
    """Verbs that share a page: those that `nac --help` lists under its heading."""

    heading: str
    page: str
    title: str
    about: str
    example: str

    @property
    def verbs(self) -> list[str]:
        return listed_verbs()[self.heading]


GROUPS = [
    Group("Message types", "nac-types", "list, describe and compare message types",
          "Lists the message types, describes one field by field: kind, size, offset in the record and on the wire, and "
          "compares two descriptions: which changes keep old and new processes talking.",
          "nac describe Nac_SetPortMsg"),
    Group("Messages", "nac-messages", "read, write, verify and compare messages",
          "Converts bytes to records and records to bytes, as the library does, and reports what is wrong with bytes.",
          "echo '{\"f0\": 7, \"f1\": 1}' | nac encode --type Nac_SetPortMsg --format hex - | "
          "nac decode --format hex --type Nac_SetPortMsg -"),
    Group("Bus", "nac-bus", "send and receive records over the bus",
          "Sends records to an address of a bus and prints those that arrive at one. Without a URL the bus is the one that "
          "VORN_BUS_URL names.",
          "nac exchange access-session.jsonl | tail -n 1"),
    Group("Captures", "nac-capture", "watch, record and replay messages of the bus",
          "Shows the messages on a bus without disturbing it, records them into pcapng files, sends them again, and "
          "prints a dissector with which Wireshark shows them.",
          "nac info port-move.pcapng | tail -n 1"),
    Group("This machine", "nac-machine", "measure this machine, and complete the command line",
          "Measures how long packing and unpacking take on this machine, and prints completion scripts for shells.",
          "nac completion bash | head -n 1"),
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
    made = f"{name}({section})\n\n# NAME\n\n{escaped(name)} - {title}\n"
    for heading, text in parts:
        made += f"\n# {heading}\n\n{text.strip(chr(10))}\n"
    return made


def see_also(*pages: tuple[str, int]) -> str:
    return ", ".join(f"*{escaped(name)}*({section})" for name, section in pages) + "\n"


def example(command: str) -> str:
    """A command and what it prints."""
    path = {**os.environ, "PATH": os.path.dirname(NAC) + ":" + os.environ["PATH"]}
    done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, env=path, cwd=ROOT / "examples")
    if done.returncode != 0 or not done.stdout:
        sys.exit(f"manual: the example {command!r} fails with {done.returncode}: {done.stderr}")
    return literal("$ " + command + "\n" + done.stdout)


# ---- section 1 --------------------------------------------------------------------------------------


@functools.cache
def listed_verbs() -> dict[str, list[str]]:
    """The verbs by heading, as --help lists them; "bus stats" for "bus"."""
    headings: dict[str, list[str]] = {}
    for heading, rows in re.findall(r"^(\S.*):\n((?:  .*\n)+)", nac("--help"), re.M):
        if heading == "Options":
            continue
        headings[heading] = []
        for verb in re.findall(r"^  ([a-z]+)", rows, re.M):
            inner = re.findall(r"^  ([a-z]+)", nac(verb, "--help"), re.M)
            headings[heading] += [f"{verb} {name}" for name in inner] or [verb]
    return headings


def description(verb: str) -> str:
    """What --help says before the usage."""
    return " ".join(nac(*verb.split(), "--help").split("Usage:")[0].split())


def exit_codes() -> str:
    found = re.search(r"^Exit codes: (.*)", nac("--help"), re.M)
    assert found is not None
    return found[1]


def catalogue_help() -> str:
    found = re.search(r"--catalogue FILE .*\n +(.*)", nac("--help"))
    assert found is not None
    return found[1] + "."


def option_list(verb: str) -> str:
    """A verb's synopsis and options, as --help prints them."""
    lines = nac(*verb.split(), "--help").splitlines()
    usage = next(line for line in lines if line.startswith("Usage:")).removeprefix("Usage: ")
    made = f"## {escaped(usage)}\n\n" + paragraph(description(verb) + ".") + "\n"
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
            if not line.startswith("Exit codes:"):  # in a part of their own
                footer += line + "\n"
    return made + entry_text(entry) + ("\n" + literal(footer) if footer else "")


def entry_text(entry: str) -> str:
    if not entry:
        return ""
    name, text = entry.split("\0")
    return f"*{escaped(name)}*\n" + paragraph(text.strip() or "See below.", "\t") + "\n"


def variable(name: str, text: str) -> str:
    return f"*{escaped(name)}*\n{paragraph(text, chr(9))}\n"


def bus_environment() -> str:
    """The variables that a bus reads; those of servers as docs/nats.md has them."""
    made = variable("VORN_BUS_URL", "The bus, where no --bus names one.")
    made += variable("XDG_RUNTIME_DIR, HOME", "Where the folder of ipc:// is: $XDG_RUNTIME_DIR/vorn, or else $HOME/.vorn.")
    for names, text in re.findall(r"^\| ((?:`VORN_NATS_\w+`(?:, )?)+) \| (.*) \|$", (ROOT / "docs/nats.md").read_text(), re.M):
        made += variable(names.replace("`", ""), f"With nats: {text.replace('`', '')}.")
    return made


def verb_pages() -> dict[str, str]:
    pages = {}
    assert list(listed_verbs()) == [group.heading for group in GROUPS], "a heading of nac --help has no manual page"
    others = [("nac", 1), *((group.page, 1) for group in GROUPS)]
    for group in GROUPS:
        parts = [("SYNOPSIS", "".join(f"*nac {verb}* [options] ...\n\n" for verb in group.verbs)),
                 ("DESCRIPTION", paragraph(group.about)),
                 ("VERBS", "\n".join(option_list(verb) for verb in group.verbs)),
                 *([("ENVIRONMENT", bus_environment())] if group.heading in ("Bus", "Captures") else []),
                 ("EXIT STATUS", paragraph(exit_codes())),
                 ("EXAMPLE", example(group.example)),
                 ("SEE ALSO", see_also(*(each for each in others if each[0] != group.page)))]
        pages[group.page] = page(group.page, 1, group.title, parts)
    table = "\n".join(f"## {group.page}(1)\n\n" + "".join(
        f"*{verb}*\n{paragraph(description(verb) + '.', chr(9))}\n" for verb in group.verbs) for group in GROUPS)
    pages["nac"] = page("nac", 1, "messages of the Nac package, as bytes, as records, and on a bus", [
        ("SYNOPSIS", "*nac* [--catalogue _FILE_] _verb_ [options] ...\n"),
        ("DESCRIPTION", paragraph(
            "nac reads and writes messages of the Nac package exactly as libvorn_nac_user does. Data goes to standard "
            "output, errors and progress go to standard error; - is standard input. Every verb has --help. With --json a "
            "verb prints one JSON object a line, with stable keys.")),
        ("OPTIONS", "*--catalogue* _FILE_\n" + paragraph(catalogue_help(), "\t")),
        ("VERBS", table),
        ("ENVIRONMENT", variable("NAC_CATALOGUE", "What --catalogue names, where it is not given.") +
         variable("NO_COLOR", "If it is set, output has no colours.") + bus_environment()),
        ("EXIT STATUS", paragraph(exit_codes())),
        ("EXAMPLE", example("nac types | head -n 2")),
        ("SEE ALSO", see_also(*((group.page, 1) for group in GROUPS), ("nac_messages", 3), ("vorn_bus", 3)))])
    return pages


# ---- section 3 --------------------------------------------------------------------------------------


def folded(prototype: str) -> str:
    """A prototype, broken between parameters."""
    unbroken = re.sub(r"(?<!,) ", "\0", " ".join(prototype.split()))
    return "\n".join(textwrap.wrap(unbroken, 78, subsequent_indent="    ", break_long_words=False)).replace("\0", " ")


def synopsis(header: str, prototypes: Iterable[str]) -> tuple[str, str]:
    return "SYNOPSIS", literal(f'#include "{header}"\n\n' + "\n".join(map(folded, prototypes)))


def prefix_of(module: str) -> str:
    """What the names of a module's functions begin with."""
    return next(name for _, name, _ in module_functions() if name.endswith(f"{module}_recv_init")).removesuffix("_recv_init")


def own_functions(module: str) -> list[tuple[str, str, str]]:
    names = re.compile(prefix_of(module) + "(_recv_init|_send_init|__send_resource_clean)")
    return [each for each in module_functions() if names.fullmatch(each[1])]


def field_table(each: Type) -> str:
    lines = [f"{'field':<6} {'kind':<40} {'shown as':<17} {'record':>6} {'image':>6}"]
    lines += [f"{field['name']:<6} {field['kind']:<40} {field['display']:<17} {field['record_offset']:>6} "
              f"{'-' if field['image_offset'] is None else field['image_offset']:>6}" for field in each["fields"]]
    return literal("\n".join(lines))


def layout(each: Type) -> str:
    return literal(struct_of(each["name"])) + "\n" + field_table(each) + "\n"


def functions_of(name: str) -> list[tuple[str, str]]:
    return [(function.replace("Message", name), prototype.replace("Message", name)) for function, prototype in functions()]


def nested(each: Type, by_name: dict[str, Type]) -> list[Type]:
    return [by_name[name] for name in dict.fromkeys(field["table"] for field in each["fields"]) if name]


def type_page(each: Type, by_name: dict[str, Type]) -> str:
    """One message type: its seven functions and its record."""
    name = each["name"]
    inner = nested(each, by_name)
    purpose = purposes()
    record = paragraph(f"{sizes()[name]} The table gives each field's offset in the record and in the fixed image, in bytes.")
    record += "\n" + layout(each)
    for other in inner:
        if other["id"] is None:
            record += f"## {escaped(other['name'])}\n\n{paragraph(purpose[other['name']] + ' ' + sizes()[other['name']])}\n"
            record += layout(other)
    shown = purpose[name].rstrip(".")
    return page(name, 3, escaped(shown[0].lower() + shown[1:]), [
        synopsis(HEADER, (prototype for _, prototype in functions_of(name))),
        ("DESCRIPTION", paragraph(f"{purpose[name]} Message id 0x{each['id']:08X}, {name}_ID, module {each['module']}.") + "\n" +
         "\n".join(paragraph(each.replace("Message", name)) for each in function_descriptions())),
        ("RECORD", record),
        ("SEE ALSO", see_also(("nac_messages", 3), (prefix_of(each["module"]), 3),
                              *((other["name"], 3) for other in inner if other["id"] is not None), ("nac-types", 1)))])


def type_list(messages: Iterable[Type]) -> str:
    return "".join(f"*{escaped(each['name'])}*(3)\n{paragraph(purposes()[each['name']], chr(9))}\n" for each in messages)


def module_page(module: str, messages: list[Type]) -> str:
    prefix = prefix_of(module)
    own = own_functions(module)
    return page(prefix, 3, f"register the message types of module {escaped(module)}", [
        synopsis(HEADER, (prototype for prototype, _, _ in own)),
        ("DESCRIPTION", "".join(f"*{escaped(name)}*\n{paragraph(text, chr(9))}\n" for _, name, text in own)),
        ("MESSAGE TYPES", type_list(messages)),
        ("SEE ALSO", see_also(("nac_messages", 3), ("vorn_bus_api", 3), ("vorn_bus", 3)))])


def messages_page(prefixes: list[str], messages: list[Type]) -> str:
    return page("nac_messages", 3, "pack, unpack, free and send the messages of the Nac package", [
        synopsis(HEADER, (prototype for _, prototype in functions())),
        ("DESCRIPTION", paragraph("Each message type has these seven functions; Message stands for its name. Link with "
                                  "-lvorn_nac_user and a VORN bus, for example -lvorn_bus.") + "\n" +
         "\n".join(paragraph(each) for each in function_descriptions())),
        ("CONVENTIONS", "\n".join(paragraph(each) for each in conventions()[1:])),
        ("MESSAGE TYPES", type_list(messages)),
        ("SEE ALSO", see_also(*((prefix, 3) for prefix in prefixes), ("vorn_bus_api", 3), ("zeb_osal_api", 3),
                              ("vorn_bus", 3), ("nac", 1)))])


def header_page(name: str, header: str, title: str, others: list[tuple[str, int]]) -> tuple[str, list[str]]:
    """A page for a header, and the names of the functions and structs that it declares."""
    text = (ROOT / header).read_text()
    intro = re.search(r"\*/\n/\* (.*?) ?\*/", text, re.S)
    assert intro is not None, header
    body = text.split('extern "C" {\n#endif')[1].rsplit("#ifdef __cplusplus", 1)[0]
    body = re.sub(r"^VORN_INSPECT_API ", "", body, flags=re.M)
    body = re.sub(r"^static inline ([^;]*?) \{\n.*?^\}$", r"\1;", body, flags=re.M | re.S)
    described = "\n".join(paragraph(each) for each in paragraphs_of(intro[1])) + "\n"
    for block in re.split(r"\n\n(?=/\*|[a-z])", body.strip()):
        if found := re.match(r"/\* ---- ([\w ]+?) -+ \*/\s*", block):
            described += f"## {found[1]}\n\n"
            block = block[found.end():]
        comment = re.match(r"/\* ((?:(?!\*/).)*?)\s*\*/\n", block, re.S)
        if comment:
            described += paragraph(re.sub(r"\s*\n \* ?", " ", comment[1])) + "\n"
            block = block[comment.end():]
        if block.strip():
            described += literal(block.strip()) + "\n"
    uncommented = re.sub(r"/\*.*?\*/", "", body, flags=re.S)
    prototypes = re.findall(r"^((?!typedef)[a-z][^;{}#]*?\b(\w+)\([^;{}]*\)[ \w]*;)", uncommented, re.M)
    structs = re.findall(r"^typedef struct (\w+)", body, re.M)
    return page(name, 3, title, [synopsis(header, (prototype for prototype, _ in prototypes)), ("DESCRIPTION", described),
                                 ("SEE ALSO", see_also(*others))]), [*(each for _, each in prototypes), *structs]


HEADER_PAGES = [
    ("vorn_bus", "vorn/vorn_bus.h", "a VORN bus for machines that have none",
     [("vorn_bus_api", 3), ("nac_messages", 3), ("nac-bus", 1)]),
    ("vorn_bus_api", "bus/vorn_bus_api.h", "what libvorn_nac_user needs of a VORN bus",
     [("nac_messages", 3), ("vorn_bus", 3), ("zeb_osal_api", 3)]),
    ("vorn_stub_bus", "bus/stub_bus.h", "a VORN bus for unit tests",
     [("vorn_bus_api", 3), ("nac_messages", 3), ("vorn_bus", 3)]),
    ("vorn_inspect", "inspect/vorn_inspect.h", "what a message of the VORN bus is, as data",
     [("nac_messages", 3), ("vorn_bus", 3), ("nac-types", 1), ("nac-messages", 1)]),
    ("zeb_osal_api", "runtime/zeb_osal_api.h", "services of a host process that libvorn_nac_user uses",
     [("nac_messages", 3), ("vorn_bus_api", 3)]),
]


def library_pages() -> tuple[dict[str, str], dict[str, str]]:
    """The pages of section 3, and for every other name the page that describes it."""
    all_types = types()
    by_name = {each["name"]: each for each in all_types}
    messages = [each for each in all_types if each["id"] is not None]
    pages, aliases = {}, {}
    for each in messages:
        pages[each["name"]] = type_page(each, by_name)
        aliases |= {name: each["name"] for name, _ in functions_of(each["name"])}
        for other in nested(each, by_name):
            if other["id"] is None:
                aliases.setdefault(other["name"], each["name"])
    modules = list(dict.fromkeys(each["module"] for each in messages))
    for module in modules:
        pages[prefix_of(module)] = module_page(module, [each for each in messages if each["module"] == module])
    aliases |= {name: prefix_of(module) for module in modules for _, name, _ in own_functions(module)}
    pages["nac_messages"] = messages_page([prefix_of(module) for module in modules], messages)
    for name, header, title, others in HEADER_PAGES:
        pages[name], declared = header_page(name, header, title, others)
        aliases |= {each: name for each in declared if each != name}
    return pages, aliases


def write(folder: pathlib.Path, name: str, section: int, text: bytes) -> None:
    (folder / f"man{section}/{name}.{section}").write_bytes(text)


def main() -> int:
    folder = pathlib.Path(sys.argv[1])
    library, aliases = library_pages()
    for section, pages in ((3, library), (1, verb_pages())):
        shutil.rmtree(folder / f"man{section}", ignore_errors=True)
        (folder / f"man{section}").mkdir(parents=True)
        for name, text in pages.items():
            made = subprocess.run(["scdoc"], input=text.encode(), stdout=subprocess.PIPE, check=True)
            write(folder, name, section, made.stdout)
    for name, leads_to in aliases.items():
        write(folder, name, 3, f".so man3/{leads_to}.3\n".encode())
    return 0


if __name__ == "__main__":
    sys.exit(main())
