# SPDX-License-Identifier: Apache-2.0
# Makes the record classes of the Python package from the library's descriptions. The build runs this:
#
#     NAC=build/release/nac python3 docs/make/python_records.py FOLDER    # writes FOLDER/records.py
import pathlib
import sys
from typing import Any

from described_types import Type, purposes, sizes, types

LICENCE = "# SPDX-License-Identifier: Apache-2.0\n"
MADE = "# Made by docs/make/python_records.py; not to be edited.\n"


def attribute(field: dict[str, Any]) -> tuple[str, str, str]:
    """Annotation, default, and a comment on what the annotation leaves out."""
    kind, form, display, count = field["kind"], field["form"], field["display"], field["count"]
    if form == "scalar":
        return kind, "0", ""
    if form == "nested table":
        return kind, f"field(default_factory={kind})", ""
    element = field["table"] or f"u{8 * field['element_bytes']}"
    if form == "fixed array" and element == "u8":
        return f"Annotated[bytes, Length({count})]", f"bytes({count})", "" if display == "hexadecimal" else display
    if form == "fixed array":
        return f"Annotated[list[{element}], Length({count})]", f"field(default_factory=lambda: [0] * {count})", ""
    return ("bytes", 'b""', "") if element == "u8" else (f"list[{element}]", "field(default_factory=list)", "")


def records_module(all_types: list[Type]) -> str:
    purpose, size = purposes(), sizes()
    text = LICENCE + '"""The record types, fields in field-id order; every default is zero or empty.\n\n'
    text += "Numbers are integers of the width that their annotation has, checked when they are packed. Byte strings, hardware\n"
    text += 'and IPv6 addresses are bytes.\n"""\n' + MADE
    text += "from dataclasses import dataclass, field\nfrom typing import Annotated, ClassVar\n\n"
    text += "from ._catalogue import SHAPES, Shape\nfrom ._codec import Record\n"
    text += "from ._ranges import Length, u8, u16, u32, u64\n"
    for each in all_types:
        name = each["name"]
        text += f'\n\n@dataclass(slots=True)\nclass {name}(Record):\n    """{purpose[name]}\n\n'
        where = f"Message 0x{each['id']:08X} of module {each['module']}." if each["id"] is not None else ""
        text += f"    {(where + ' ' + size[name]).strip()}\n"
        text += f'    """\n\n    shape: ClassVar[Shape] = SHAPES["{name}"]\n'
        for each_field in each["fields"]:
            annotation, default, comment = attribute(each_field)
            text += f"    {each_field['name']}: {annotation} = {default}" + (f"  # {comment}" if comment else "") + "\n"
    text += "\n\n__all__ = [\n" + "".join(f'    "{each["name"]}",\n' for each in all_types) + "]\n"
    return text


def main() -> int:
    package = pathlib.Path(sys.argv[1])
    (package / "records.py").write_text(records_module(types()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
