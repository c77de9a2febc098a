#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Four readers of the format agree which of many damaged messages are valid: the library, inspection, the reference in
Python, and the dissector in Wireshark.

`damage_sweep N` compares the first two, and the plain reader, over N million messages. Of the same messages this script
asks the other two: it takes blocks of messages with the plain reader's verdict from `damage_sweep --write`, reads them
with tests/reference and with tshark, and ends with the first disagreement. BUILD is the folder of a build.
"""
import argparse
import concurrent.futures
import os
import pathlib
import struct
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(ROOT / "tests/reference"), str(ROOT / "tests/tool")]
import catalogue
import pcapng
import reader

VERDICTS = ("ok", "argument", "header", "field")  # by their numbers
BLOCK = 10_000  # messages, or none: a quarter of the blocks is big-endian
BLOCKS_AT_ONCE = 10
NAMES = {each.message_id: name for name, each in catalogue.TYPES.items() if each.message_id is not None}

Message = tuple[str, int, bytes]  # verdict, id, bytes


def written(build: pathlib.Path, seed: int) -> list[Message]:
    data = subprocess.run([build / "fuzz/damage_sweep", "--write", str(BLOCKS_AT_ONCE), str(seed)], stdout=subprocess.PIPE,
                          check=True).stdout
    messages, at = [], 0
    while at < len(data):
        verdict, id, length = struct.unpack_from("<BII", data, at)
        at += 9 + length
        messages.append((VERDICTS[verdict], id, data[at - length:at]))
    return messages


def by_reference(messages: list[Message]) -> list[bool]:
    return [reader.unpack(NAMES[id], data).outcome == verdict for verdict, id, data in messages]


def by_dissector(script: pathlib.Path, messages: list[Message]) -> list[bool]:
    """The dissector knows valid and damaged."""
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder, "capture.pcapng")
        file.write_bytes(pcapng.capture([pcapng.Message(id, data) for _, id, data in messages]))
        done = subprocess.run(["tshark", "-X", f"lua_script:{script}", "-r", str(file), "-T", "fields", "-e", "nac.damaged"],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True, text=True,
                              env={**os.environ, "HOME": folder, "LC_ALL": "C.UTF-8"})
    shown = done.stdout.split("\n")[:-1]
    return [(damaged == "") == (verdict == "ok") for damaged, (verdict, _, _) in zip(shown, messages, strict=True)]


def disagreements(build: pathlib.Path, script: pathlib.Path, seed: int) -> tuple[int, int, list[str]]:
    """How many messages were read, how many of them valid, and where a reader disagrees."""
    messages = written(build, seed)
    found = []
    for name, agrees in (("the reference", by_reference(messages)), ("the dissector", by_dissector(script, messages))):
        found += [f"{name} disagrees with \"{verdict}\": {NAMES[id]} {data.hex()}"
                  for (verdict, id, data), same in zip(messages, agrees) if not same]
    return len(messages), sum(verdict == "ok" for verdict, _, _ in messages), found


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--messages", type=int, default=10_000_000, help="at least (10,000,000)")
    parser.add_argument("--seed", type=int, default=0)
    options = parser.parse_args()
    total = valid = 0
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ProcessPoolExecutor() as pool:
        script = pathlib.Path(folder, "nac.lua")
        script.write_bytes(subprocess.run([options.build / "nac", "dissector"], stdout=subprocess.PIPE, check=True).stdout)
        seed = options.seed
        while total < options.messages:
            jobs = os.cpu_count() or 1
            seeds = [seed + k * BLOCKS_AT_ONCE for k in range(jobs)]
            seed += jobs * BLOCKS_AT_ONCE
            for count, good, found in pool.map(disagreements, [options.build] * jobs, [script] * jobs, seeds):
                total, valid = total + count, valid + good
                if found:
                    print("\n".join(found[:10]))
                    return 1
    print(f"count: {total} damaged messages, {valid} of them valid, on which four readers agree")
    return 0 if valid > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
