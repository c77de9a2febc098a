#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The slow sweeps, one after the other, after the builds of ./dev test; as root. Ends with the first that fails.
set -eu
cd "$(dirname "$0")/../.."
say() { printf '== %s\n' "$*"; }
build() {
    cmake --preset "$1" -DNAC_BUILD_TESTS=ON >"build/$1.log" 2>&1 || { cat "build/$1.log" >&2; exit 1; }
    cmake --build --preset "$1" ${2:+--target "$2"}
}
say "failures of the system under every verb"
python3 tests/tool/failures/injected_failures.py --most 2000
say "four readers"
python3 tests/long/four_readers.py build/release
say "a new message type"
python3 tests/long/type_recipe.py
say "all pairs of damages"
build/release/fuzz/exhaustive --all-pairs
say "threads under helgrind"
build debug first_use_test
python3 tests/long/helgrind.py
say "a NATS cluster under kills"
PEER="$PWD/build/release/tests/bus/bus_peer" python3 tests/long/bus_chaos.py --messages 1000000 --batch 20 --kills 100
PEER="$PWD/build/release/tests/bus/bus_peer" python3 tests/long/bus_chaos.py --messages 200000 --takeover
say "compilers"
python3 tests/long/compilers.py
for machine in aarch64 s390x; do
    say "tests on $machine"
    build $machine
    ctest --preset $machine --progress
done
say "coverage"
tests/long/coverage.sh
python/tests/package_coverage.sh build/release
say "seeded faults"
python3 tests/long/seed_faults.py
say "fuzzers"
./dev fuzz --seconds 600
say "interface of the bus"
./dev bus-interface
say "packages"
./dev test-packages
say "a newcomer on a bare machine"
./dev newcomer --bare
