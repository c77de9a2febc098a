#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Two processes over a bus of their own: one listens, the other sends the records of access-session.jsonl.
set -eu
cd "$(dirname "$0")/.."
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export VORN_BUS_URL="ipc://$folder/bus"
records=$(wc -l <examples/access-session.jsonl)
run() {
    printf '$ %s\n' "$*"
    "$@"
}
printf '$ export VORN_BUS_URL=%s\n' "$VORN_BUS_URL"
run build/release/nac listen --as 2 --count "$records" --timeout 20 &
listener=$!
run build/release/nac send --to 2 examples/access-session.jsonl
wait "$listener"
