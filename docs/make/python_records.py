# SPDX-License-Identifier: Apache-2.0
# Makes the record classes of the Python package and their shapes from the library's descriptions. The build runs this:
#
#     NAC=build/release/nac python3 docs/make/python_records.py FOLDER    # writes FOLDER/records.py and FOLDER/_shapes.py
import json
import pathlib
import sys

from described_types import Type, purposes, sizes, types

LICENCE = "# SPDX-License-Identifier: Apache-2.0\n"
MADE = "# Made by docs/make/python_records.py; not to be edited.\n"


def literal(value: object) -> str:
    return json.dumps(value) if isinstance(value, str) else repr(value)


def shapes_module(all_types: list[Type]) -> str:
    text = LICENCE + "# The shape of each record type.\n" + MADE
    text += "from ._shape import Field, Shape\n\nSHAPES: dict[str, Shape] = {\n"
    for each in all_types:
        text += f'    "{each["name"]}": Shape(\n        '
        text += ", ".join(identifier(each) if key == "id" else literal(value)
                          for key, value in each.items() if key != "fields") + ", (\n"
        for field in each["fields"]:
            text += "            Field(" + ", ".join(literal(value) for value in field.values()) + "),\n"
        text += "        )),\n"
    return text + "}\n"


def identifier(each: Type) -> str:
    return "None" if each["id"] is None else f"0x{each['id']:08X}"


def attribute(field: dict[str, object]) -> tuple[str, str, str]:
    """Annotation, default, and a comment on what the annotation leaves out."""
    kind, form, display = str(field["kind"]), field["form"], field["display"]
    if form == "scalar":
        return "int", "0", kind
    if form == "nested table":
        return kind, f"field(default_factory={kind})", ""
    if form == "table vector":
        return f"list[{field['table']}]", "field(default_factory=list)", ""
    if field["element_bytes"] == 1 and form == "fixed array":
        return "bytes", f"bytes({field['count']})", f"{field['count']} bytes" + \
            ("" if display == "hexadecimal" else f", {display}")
    if field["element_bytes"] == 1:
        return "bytes", 'b""', ""
    if form == "fixed array":
        return "list[int]", f"field(default_factory=lambda: [0] * {field['count']})", f"{kind}"
    return "list[int]", "field(default_factory=list)", kind


def records_module(all_types: list[Type]) -> str:
    purpose, size = purposes(), sizes()
    text = LICENCE + '"""The record types, fields in field-id order; every default is zero or empty.\n\n'
    text += "Numbers are plain integers, checked against their width when they are packed. Byte strings, hardware and\n"
    text += 'IPv6 addresses are bytes.\n"""\n' + MADE
    text += "from dataclasses import dataclass, field\nfrom typing import ClassVar\n\n"
    text += "from ._record import Record\nfrom ._shape import Shape\nfrom ._shapes import SHAPES\n"
    for each in all_types:
        name = each["name"]
        text += f'\n\n@dataclass(slots=True)\nclass {name}(Record):\n    """{purpose[name]}\n\n'
        where = f"Message 0x{each['id']:08X} of module {each['module']}." if each["id"] is not None else ""
        text += f"    {(where + ' ' + size[name]).strip()}\n"
        text += f'    """\n\n    shape: ClassVar[Shape] = SHAPES["{name}"]\n'
        for each_field in each["fields"]:
            annotation, default, comment = attribute(each_field)
            text += f"    {each_field['name']}: {annotation} = {default}" + (f"  # {comment}" if comment else "") + "\n"
    text += "\n\nRECORDS: tuple[type[Record], ...] = (\n"
    text += "".join(f"    {each['name']},\n" for each in all_types) + ")\n"
    text += "\n__all__ = [\n" + "".join(f'    "{each["name"]}",\n' for each in all_types) + "]\n"
    return text


def main() -> int:
    package = pathlib.Path(sys.argv[1])
    all_types = types()
    (package / "_shapes.py").write_text(shapes_module(all_types))
    (package / "records.py").write_text(records_module(all_types))
    return 0


if __name__ == "__main__":
    sys.exit(main())
