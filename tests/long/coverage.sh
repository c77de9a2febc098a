#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs the tests in the builds that count, and fails unless they run every line and branch of the library, nearly all of
# libvorn_bus, libvorn_nac_inspect and nac, and nearly all of the Python package.
set -eu
cd "$(dirname "$0")/../.."
mkdir -p build
for preset in coverage coverage-programs; do
    cmake --preset $preset -DNAC_BUILD_TESTS=ON >build/$preset.log 2>&1 || { cat build/$preset.log >&2; exit 1; }
    cmake --build --preset $preset
    find build/$preset -name "*.gcda" -delete
    ctest --preset $preset --progress
done
NAC="$PWD/build/coverage-programs/nac" python3 tests/tool/failures/injected_failures.py --most 10
python3 tests/long/coverage.py
python/tests/package_coverage.sh build/coverage-programs
