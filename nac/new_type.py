# SPDX-License-Identifier: Apache-2.0
# What a new message type needs beside its struct and its description, for ./dev new-type. Prints what it changes.
#
#   new_type.py header          gives each message of nac_messages.h its id and its row in its module's list
#   new_type.py records BUILD   renews what is on record of all types, with what BUILD has built: their descriptions,
#                               exported names, binary interface and corpus
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
HEADER = ROOT / "nac/nac_messages.h"
DESCRIPTIONS = ROOT / "tests/reference/descriptions.jsonl"
EXPORTED = ROOT / "tests/library/exported_symbols.txt"


def refuse(why: str) -> None:
    sys.exit(f"new-type: {why}")


def message_id(name: str) -> int:
    """FNV-1a, as bus/message_id.h computes it; a static_assert in the description compares."""
    value = 0x811C9DC5
    for byte in f"Nac.{name.removeprefix('Nac_')}".encode():
        value = (value ^ byte) * 0x01000193 & 0xFFFFFFFF
    return value


def listed(text: str, module: str) -> list[str]:
    found = re.search(rf"^#define NAC_{module}_MESSAGES\(MESSAGE\)((?:[^\n]*\\\n)*[^\n]*)\n", text, re.M)
    if not found:
        refuse(f"{HEADER} has no list NAC_{module}_MESSAGES")
    return re.findall(r"MESSAGE\((\w+)\)", found[1])


def with_row(text: str, module: str, name: str) -> str:
    names = [*listed(text, module), name]
    first = f"#define NAC_{module}_MESSAGES(MESSAGE)"
    rows = [first, *(f"    MESSAGE({each})" for each in names)]
    width = max(map(len, rows[:-1]))
    list_text = "".join(f"{row.ljust(width)} \\\n" for row in rows[:-1]) + rows[-1] + "\n"
    return re.sub(rf"^{re.escape(first)}(?:[^\n]*\\\n)*[^\n]*\n", lambda _: list_text, text, flags=re.M)


def module_of(name: str) -> str:
    """The module in whose header the description stands."""
    for path in sorted((ROOT / "nac").glob("*.h")):
        if re.search(rf"struct Description<{name}>", path.read_text()):
            return path.stem.upper()
    refuse(f"{name} has no description: struct Description<{name}> in the header of its module, nac/port.h for example")
    return ""


def complete_header() -> None:
    text = HEADER.read_text()
    for name in re.findall(r"^NAC_MESSAGE_FUNCTIONS\((\w+)\);", text, re.M):
        if not re.search(rf"/\* (?:(?!\*/).)*? \*/\ntypedef struct {name} ", text, re.S):
            refuse(f"{name} has no comment before its struct that says what it is for: the manual is made of it")
        if f"#define {name}_ID " not in text:
            functions = f"NAC_MESSAGE_FUNCTIONS({name});\n"
            text = text.replace(functions, f"{functions}#define {name}_ID 0x{message_id(name):08X}u\n")
            print(f"{name}: its id, 0x{message_id(name):08X}")
        module = module_of(name)
        if name not in listed(text, module):
            text = with_row(text, module, name)
            print(f"{name}: its row in NAC_{module}_MESSAGES")
    if text != HEADER.read_text():
        HEADER.write_text(text)


def exported_names() -> str:
    text = HEADER.read_text()
    suffixes = ("__pack", "__sendbatch", "__sendmsg", "__sendsingle", "__sendtomsg", "__unpack", "_free__unpacked")
    names = [name + suffix for name in re.findall(r"^NAC_MESSAGE_FUNCTIONS\((\w+)\);", text, re.M) for suffix in suffixes]
    names += [name + suffix for name in set(re.findall(r"\b(nac_\w+)_recv_init\b", text))
              for suffix in ("_recv_init", "_send_init", "__send_resource_clean")]
    return "".join(name + "\n" for name in sorted(names))


def renew_records(build: pathlib.Path) -> None:
    nac = build / "nac"
    compared = subprocess.run([nac, "compat", DESCRIPTIONS], capture_output=True, text=True)
    print(compared.stdout + compared.stderr, end="")
    if compared.returncode != 0:
        refuse("what is on record of a type changes so that released processes do not understand it any more; docs/versions.md "
               "says what may change. Nothing was renewed")
    DESCRIPTIONS.write_bytes(subprocess.run([nac, "describe", "--json"], capture_output=True, check=True).stdout)
    EXPORTED.write_text(exported_names())
    subprocess.run([sys.executable, ROOT / "tests/library/interface_test.py", "--write"], check=True,
                   env={**os.environ, "OBJECTS": str(build)})
    subprocess.run([sys.executable, ROOT / "tests/reference/make_corpus.py"], check=True, stdout=subprocess.DEVNULL)
    print("renewed; what is different from what is committed:", flush=True)
    subprocess.run(["git", "-C", ROOT, "status", "--short", "--", "nac", "tests/library", "tests/reference"], check=True)


def main() -> None:
    match sys.argv[1:]:
        case ["header"]:
            complete_header()
        case ["records", build]:
            renew_records(pathlib.Path(build).resolve())
        case _:
            refuse("new_type.py header, or new_type.py records BUILD; ./dev new-type runs both")


if __name__ == "__main__":
    main()
