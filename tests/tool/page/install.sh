#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Installs what drives the browser in page_test.cjs into build/page, with Debian's npm unless another is there.
set -eu
cd "$(dirname "$0")/../../.."
here=tests/tool/page
cmp -s $here/package-lock.json build/page/installed && exit 0
printf '== installing playwright-core\n'
mkdir -p build/page
as_root=""
[ "$(id -u)" = 0 ] || as_root=sudo
if ! command -v npm >/dev/null; then
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y --no-install-recommends npm \
        >build/page.log 2>&1 || { tail build/page.log; exit 1; }
fi
cp $here/package.json $here/package-lock.json build/page/
if ! (cd build/page && npm ci --no-audit --no-fund --ignore-scripts) >build/page.log 2>&1; then
    tail build/page.log >&2
    printf 'npm ci failed; its whole output is in build/page.log\n' >&2
    exit 1
fi
cp $here/package-lock.json build/page/installed
