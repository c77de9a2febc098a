# SPDX-License-Identifier: Apache-2.0
# Adds a message type with a field of every kind to a clone, by the recipe of CONTRIBUTING.md: its struct, its description,
# ./dev new-type. Then ./dev quick must pass.
#
#   type_recipe.py [--keep FOLDER]   where the clone goes, and stays
import argparse
import pathlib
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]

STRUCT = """
/* A field of every kind. */
typedef struct Nac_EveryKindMsg {
    uint8_t f0;
    uint16_t f1;
    uint32_t f2;
    uint64_t f3;
    uint8_t f4[6];  /* hardware address */
    uint8_t f5[16]; /* IPv6 address */
    uint8_t f6[5];
    uint16_t f7[3];
    Nac_SetPortMsg f8;
    uint32_t f9_count;
    uint8_t* f9;
    uint32_t f10_count;
    uint16_t* f10;
    uint32_t f11_count;
    uint32_t* f11;
    uint32_t f12_count;
    uint64_t* f12;
    uint32_t f13_count;
    Nac_SetPortMsg* f13;
} Nac_EveryKindMsg;
NAC_MESSAGE_FUNCTIONS(Nac_EveryKindMsg);
"""
DESCRIPTION = """
template <>
struct Description<Nac_EveryKindMsg> : Usual {
    using R = Nac_EveryKindMsg;
    static constexpr Text name = "Nac_EveryKindMsg";
    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>, Field<&R::f4>, Field<&R::f5>,
                        Field<&R::f6>, Field<&R::f7>, Field<&R::f8>, Vector<&R::f9_count, &R::f9>,
                        Vector<&R::f10_count, &R::f10>, Vector<&R::f11_count, &R::f11>,
                        Vector<&R::f12_count, &R::f12>, Vector<&R::f13_count, &R::f13>>;
};
static_assert(message_id<Nac_EveryKindMsg> == Nac_EveryKindMsg_ID);
"""


def insert(path: pathlib.Path, after: str, text: str) -> None:
    before, found, rest = path.read_text().partition(after)
    assert found, f"{path} has no {after!r}"
    path.write_text(before + after + text + rest)


def main() -> None:
    parser = argparse.ArgumentParser(description="Adds a message type to a clone, and runs ./dev quick.")
    parser.add_argument("--keep", type=pathlib.Path, help="where the clone goes, and stays")
    keep = parser.parse_args().keep
    with tempfile.TemporaryDirectory() as folder:
        clone = keep or pathlib.Path(folder) / "clone"
        subprocess.run(["git", "clone", "--quiet", ROOT, clone], check=True)
        insert(clone / "nac/nac_messages.h", "#define Nac_SetPortMsg_ID 0x09B58155u\n", STRUCT)
        insert(clone / "nac/port.h", "Image<Nac_SetPortMsg>::vtable_in_image == 16);\n", DESCRIPTION)
        for verb in ("new-type", "quick"):
            subprocess.run(["./dev", verb], cwd=clone, check=True)
    print("count: 1 message type with a field of every kind was added by its struct and its description")


if __name__ == "__main__":
    main()
