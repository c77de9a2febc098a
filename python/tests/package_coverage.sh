#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Counts which lines and branches of the Python package its tests run, in a build: package_coverage.sh build/release
#
# Fails below 98 %. The rest needs arrays of 4 GiB, a registration that the bus refuses, or runs in child processes.
set -eu
build=$(realpath "$1")
tests=$(dirname "$(realpath "$0")")
counts=$build/python/coverage
export NAC="$build/nac" VORN_NAC_LIBRARY_DIR="$build" PYTHONPATH="$build/python" PYTHONDONTWRITEBYTECODE=1
/usr/bin/python3 -m coverage run --branch --data-file "$counts" --source vorn_nac -m pytest -q -p no:cacheprovider "$tests"
/usr/bin/python3 -m coverage report --data-file "$counts" --show-missing --fail-under 98
