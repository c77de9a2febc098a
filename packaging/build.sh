#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages of this tree: packaging/build.sh OUTPUT [FOLDER]
#
# The same files and the same last commit give the same packages: they are built in a copy, in FOLDER or a new one,
# where every file is as old as that commit. Without git, SOURCE_DATE_EPOCH has to be set.
set -eu
output=$(realpath -m "$1")
folder=${2:-$(mktemp -d)}
cd "$(dirname "$0")/.."
umask 022

# The git of a tree that belongs to somebody else is read too.
in_git() { git -c safe.directory="$PWD" "$@"; }
if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
    SOURCE_DATE_EPOCH=$(in_git log -1 --format=%ct)
fi
export SOURCE_DATE_EPOCH LC_ALL=C.UTF-8 TZ=UTC

source=$folder/vorn-nac
mkdir -p "$source"
if [ -e .git ]; then
    in_git ls-files --cached --others --exclude-standard -z
else
    find . -path ./build -prune -o -type f -print0
fi | tar --create --null --files-from=- --ignore-failed-read 2>/dev/null | tar --extract --directory "$source"
cd "$source"
cp -r packaging/debian debian

# Made of other files: the changelog of the package, of CMakeLists.txt's version; the symbols file.
version=$(sed -n 's/^project(vorn_nac VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
maintainer=$(sed -n 's/^Maintainer: //p' debian/control)
cat > debian/changelog <<TEXT
vorn-nac ($version-1) unstable; urgency=medium

  * Release $version; the upstream changelog says what has changed.

 -- $maintainer  $(date -R -d "@$SOURCE_DATE_EPOCH")
TEXT
{
    echo 'libvorn_nac_user.so.1 libvorn-nac1 #MINVER#'
    sed 's/.*/ &@Base 1.0.0/' tests/library/exported_symbols.txt
} > debian/libvorn-nac1.symbols
find . -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +

if ! DEB_BUILD_OPTIONS="parallel=${NAC_PACKAGE_JOBS:-$(nproc)}" \
    dpkg-buildpackage --build=binary --no-sign >"$folder/log" 2>&1; then
    tail -n 40 "$folder/log" >&2
    echo "packaging: the whole output is in $folder/log" >&2
    exit 1
fi

rm -rf "$output"
mkdir -p "$output"
cp "$folder"/*.deb "$folder"/*.changes "$folder"/*.buildinfo "$output"
for package in "$output"/*.deb; do
    case $package in *-dbgsym_*) continue ;; esac
    dpkg-deb --fsys-tarfile "$package" |
        tar --extract --directory "$output" --wildcards --strip-components=5 '*.spdx.json'
done
if [ -z "${2:-}" ]; then
    cd "$output" # lintian needs a folder that is still there
    rm -rf "$folder"
    # No package of ours closes a request of Debian's.
    lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs ./*.deb
fi
