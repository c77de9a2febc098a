#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Format, layout and clang-tidy of the sources: lint.sh BUILD, where BUILD was configured with clang. --format instead
# formats them in place. Prints every finding; exits with 1 after the first kind of finding.
set -eu
cd "$(dirname "$0")/../.."
sources() { find . -path ./build -prune -o \( -name "*.c" -o -name "*.cpp" -o -name "*.h" -o -name "*.hpp" \) -print | sed 's|^\./||' | sort; }
if [ "$1" = --format ]; then
    sources | xargs clang-format -i
    exit
fi
build=$1
printf '== format\n'
sources | xargs clang-format --dry-run --Werror
printf '== layout\n'
python3 tests/layout/layout_test.py
python3 tests/layout/words_test.py
printf '== clang-tidy\n'
# Only the summary of suppressed warnings goes to the error output of a clean source: it is shown with findings.
sources | grep -E '^(examples|inspect|runtime|nac|tool|vorn)/.*\.cpp$' | xargs -P "$(nproc)" -I{} sh -c '
    words=$(clang-tidy -p "$1" --quiet --warnings-as-errors="*" "$2" 2>&1) || { printf "%s\n" "$words"; exit 255; }
' lint "$build" {}
