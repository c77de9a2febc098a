# SPDX-License-Identifier: Apache-2.0
# The library as it is installed, stripped, stays within its size budget.
#
# LIBRARY and STRIP in the environment are the library and the tool.
import os
import pathlib
import subprocess
import sys
import tempfile

BUDGET_BYTES = 256 * 1024


def main() -> None:
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder) / "stripped.so"
        subprocess.run([os.environ["STRIP"], "-o", stripped, os.environ["LIBRARY"]], check=True)
        size = stripped.stat().st_size
    print(f"count: {size} of {BUDGET_BYTES} bytes of the stripped library")
    if size > BUDGET_BYTES:
        sys.exit(f"the stripped library has {size} bytes, {size - BUDGET_BYTES} more than its budget")


main()
