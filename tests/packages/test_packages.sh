#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the packages, uses them in a clean Debian 12, and builds them again elsewhere: the same bytes. As root.
set -eu
cd "$(dirname "$0")/../.."
packaging/build.sh build/packages
printf '== packages in a clean root\n'
python3 tests/packages/clean_root.py build/packages
printf '== the same packages once more, elsewhere\n'
python3 packaging/reproducible.py --first build/packages
