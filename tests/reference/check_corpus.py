# SPDX-License-Identifier: Apache-2.0
"""Checks that the stored corpus is what make_corpus.py writes."""

import filecmp
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True

import make_corpus


def main() -> int:
    with tempfile.TemporaryDirectory() as folder:
        written = Path(folder)
        make_corpus.write(written)
        names = sorted({path.name for folder in (written, make_corpus.FOLDER) for path in folder.iterdir()})
        _, different, missing = filecmp.cmpfiles(written, make_corpus.FOLDER, names, shallow=False)
    for name in different + missing:
        print(f"{name} is not what make_corpus.py writes")
    return 1 if different or missing else 0


if __name__ == "__main__":
    sys.exit(main())
