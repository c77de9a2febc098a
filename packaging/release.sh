#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The checklist of a release: packaging/release.sh [--quick]
#
# Checks every point, stops at the first that fails, and at the end prints what is left to do. It changes nothing but
# build/. --quick leaves out the tests that take long.
set -eu
cd "$(dirname "$0")/.."

point() { printf '\n[ ] %s\n' "$*"; }
passed() { printf '[x] %s\n' "$*"; }
refuse() {
    printf 'release: %s\n' "$*" >&2
    exit 1
}

version=$(sed -n 's/^project(vorn_nac VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
major=${version%%.*}

point "the tree is what was committed"
[ -z "$(git status --porcelain)" ] || refuse "there are changes that are not committed: $(git status --porcelain | head -n 5)"
passed "commit $(git rev-parse --short HEAD), of $(git log -1 --format=%cs)"

point "the version is new and in the changelog"
! git rev-parse -q --verify "refs/tags/v$version" >/dev/null || refuse "v$version is released already"
newest=$(sed -n 's/^## //p' CHANGELOG.md | head -n 1)
[ "${newest%%,*}" = "$version" ] || refuse "CHANGELOG.md begins with $newest, CMakeLists.txt says $version"
passed "version $version, soname .so.$major"

point "the binary interface is the one on record, or has grown"
for record in tests/library/libvorn_nac_user.abi tests/bus/libvorn_bus.abi; do
    [ -e "$record" ] || refuse "$record is missing"
    grep -q "soname='$(basename "$record" .abi).so.$major'" "$record" || refuse "$record is of another soname"
done
python3 tests/library/interface_test.py
./dev bus-interface
passed "a program that was linked with .so.$major runs"

point "all tests"
if [ "${1:-}" = --quick ]; then
    ./dev quick
else
    ./dev test-long
fi
passed "all passed"

point "packages: built, without lintian errors, used in a clean root, the same bytes twice"
./dev test-packages
[ -z "$(git status --porcelain -- . :!docs/reliability.md :!tests/long/figures.json)" ] || refuse "the tests have changed files of the tree"
passed "build/packages"

printf '\n'
(cd build/packages && sha256sum ./*)
cat <<TEXT

All points hold. What is left: set the date of $version in CHANGELOG.md if it has none, and commit that
and docs/reliability.md with its figures; then
  git tag -s v$version && git push origin v$version
and publish build/packages with the hashes above.
TEXT
