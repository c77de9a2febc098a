# SPDX-License-Identifier: Apache-2.0
# libvorn_nac_inspect exports the functions of its header, under its version, and nothing else.
#
# LIBRARY in the environment is the shared library.
import os
import pathlib
import re
import subprocess
import unittest

HEADER = pathlib.Path(__file__).resolve().parents[2] / "inspect/vorn_inspect.h"
VERSION = "VORN_NAC_INSPECT_1"


class ExportedNames(unittest.TestCase):
    def test_they_are_those_of_the_header(self) -> None:
        declared = set(re.findall(r"^VORN_INSPECT_API [^;]*?\b(\w+)\(", HEADER.read_text(), re.M))
        self.assertGreater(len(declared), 15)
        listed = subprocess.run(["nm", "--dynamic", "--defined-only", "--format=posix", os.environ["LIBRARY"]],
                                check=True, capture_output=True, text=True).stdout
        exported = {line.split()[0] for line in listed.splitlines()} - {f"{VERSION}@@{VERSION}", VERSION}
        self.assertEqual(exported, {f"{name}@@{VERSION}" for name in declared})


if __name__ == "__main__":
    unittest.main()
