#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Counts the nonblank lines of code and of tests.
set -euo pipefail

count() {
	xargs -r cat | grep -cv '^[[:space:]]*$' || true
}

files=$(git ls-files '*.cpp' '*.h' '*.c' '*.sh')
tests=$(grep -E '^(tests|fuzz)/' <<<"$files" | count)
code=$(grep -vE '^(tests|fuzz)/' <<<"$files" | count)
echo "code:  $code lines"
echo "tests: $tests lines, $((100 * tests / code)) % of the code"
