#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs the tests in the build that counts, and fails unless they run every line and branch of the library.
set -eu
cd "$(dirname "$0")/../.."
mkdir -p build
cmake --preset coverage -DNAC_BUILD_TESTS=ON >build/coverage.log 2>&1 || { cat build/coverage.log >&2; exit 1; }
cmake --build --preset coverage
find build/coverage -name "*.gcda" -delete
ctest --preset coverage --progress
python3 tests/long/coverage.py
