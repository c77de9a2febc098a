#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Compares the binary interface of the bus, in the build debug, with the one on record; --update renews the record.
# That of the library itself is tests/library/interface_test.py.
set -eu
cd "$(dirname "$0")/../.."
known=tests/bus/libvorn_bus.abi
if [ "${1:-}" = --update ]; then
    abidw --exported-interfaces-only --drop-private-types --headers-dir vorn --no-corpus-path --no-comp-dir-path \
        --no-show-locs --no-elf-needed --type-id-style hash --out-file "$known" build/debug/libvorn_bus.so
    sed -i -e "s|path='$PWD/|path='./|" -e "1a <!-- Made by abidw: ./dev bus-interface, with its option update -->" "$known"
else
    abidiff --headers-dir2 vorn "$known" build/debug/libvorn_bus.so
fi
