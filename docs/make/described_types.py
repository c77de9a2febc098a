# SPDX-License-Identifier: Apache-2.0
# The record types as data, for the manual, the site and the Python package: layouts as `nac types` and `nac describe`
# print them, text from the comments of nac/nac_messages.h.
#
# NAC names the tool.
import json
import os
import pathlib
import re
import subprocess
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))
HEADER = "nac/nac_messages.h"
FUNCTIONS_HEADER = "bus/message_functions.h"  # what every package's messages have; here with the names of this one

Type = dict[str, Any]


def nac(*arguments: str, given: str = "") -> str:
    """What the tool prints."""
    return subprocess.run([NAC, *arguments], input=given, capture_output=True, text=True, check=True, cwd=ROOT).stdout


def types() -> list[Type]:
    """All types, each after the tables in it. A table that is no message has no id and no module."""
    messages = {each["name"]: each for each in map(json.loads, nac("types", "--json").splitlines())}
    found: dict[str, Type] = {}

    def add(name: str) -> None:
        if name in found:
            return
        each = messages.get(name) or json.loads(nac("describe", "--json", name))
        for field in each["fields"]:
            if field["table"] is not None:
                add(field["table"])
        found[name] = each

    for name in messages:
        add(name)
    return list(found.values())


def _header() -> str:
    return (ROOT / HEADER).read_text()


def _functions_header() -> str:
    return (ROOT / FUNCTIONS_HEADER).read_text().replace("VORN_REFUSED", "NAC_REFUSED")


def _unwrapped(comment: str) -> str:
    return re.sub(r"\s*\n \* ?", " ", comment).strip()


def paragraphs_of(comment: str) -> list[str]:
    return [each for each in map(_unwrapped, re.split(r"\n \*\n(?: \* )?", comment)) if each]


def purposes() -> dict[str, str]:
    """What each type is for: the sentence before its record."""
    found = re.findall(r"/\* ((?:(?!\*/).)*?) \*/\ntypedef struct (\w+)", _header(), re.S)
    return {name: _unwrapped(comment).split(" Record ")[0] for comment, name in found}


def sizes() -> dict[str, str]:
    """How large each type is in memory and on the wire: what follows that sentence, or what its description says."""
    found = re.findall(r"/\* ((?:(?!\*/).)*?) \*/\ntypedef struct (\w+)", _header(), re.S)
    sizes = {name: _unwrapped(comment).partition(" Record ")[2] for comment, name in found}
    for each in types():
        if not sizes.get(each["name"]):
            image = f", fixed image {each['image_bytes']}" if each["image_bytes"] else ""
            sizes[each["name"]] = f"{each['record_bytes']} bytes{image}."
    return {name: "Record " + text for name, text in sizes.items()}


def functions() -> list[tuple[str, str]]:
    """The seven functions of a message type, as name and prototype, with `Message` for the type."""
    body = re.search(r"#define VORN_MESSAGE_FUNCTIONS\(Message\)(.*?\)\n)\n", _functions_header(), re.S)
    assert body is not None
    text = re.sub(r"\s*\\?\n\s*", " ", body[1].replace("##", "")).replace("VORN_API ", "")
    prototypes = [re.sub(r"\s+", " ", each).strip() for each in text.split(";")]
    return [(re.findall(r"(\w+)\(", each)[0], each + ";") for each in prototypes if each]


def function_descriptions() -> list[str]:
    """What these functions do, a paragraph each."""
    comment = re.search(r"/\* The seven functions of a message type\.\n \*\n(.*?)\*/", _functions_header(), re.S)
    assert comment is not None
    return paragraphs_of(re.sub(r"^ \* ", "", comment[1]))


def conventions() -> list[str]:
    """The conventions of the header, a paragraph each."""
    comment = re.search(r"\*/\n/\* (.*?)\*/", _header(), re.S)
    assert comment is not None
    return paragraphs_of(comment[1])


def struct_of(name: str) -> str:
    """The record's declaration, as it stands in the header."""
    found = re.search(rf"typedef struct {name} \{{.*?\}} {name};", _header(), re.S)
    assert found is not None, name
    return found[0]


def module_functions() -> list[tuple[str, str, str]]:
    """Of each module's functions: the prototype, the function's name, what it does."""
    tail = _header().split("/* ---- modules ")[1]
    found = []
    for comment, block in re.findall(r"/\* ((?:(?!\*/).)*) \*/\n((?:NAC_API [^\n]+\n)+)", tail, re.S):
        for prototype, name in re.findall(r"NAC_API (.*?(\w+)\(void\);)", block):
            found.append((prototype, name, _unwrapped(comment)))
    return found
