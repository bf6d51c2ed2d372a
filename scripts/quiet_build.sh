#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: quiet_build.sh BUILD_DIR TARGET... -- CMAKE_FLAG...
# Configures and builds; says one line, or everything when it fails.
set -euo pipefail

build_dir=$1
shift
targets=()
while [ "$1" != -- ]; do
	targets+=("$1")
	shift
done
shift

mkdir -p "$build_dir"
log=$build_dir/build.log
if ! { cmake -S . -B "$build_dir" "$@" &&
	cmake --build "$build_dir" --target "${targets[@]}"; } >"$log" 2>&1; then
	cat "$log" >&2
	exit 1
fi
if grep -q 'no work to do' "$log"; then
	exit 0
fi
echo "Built ${targets[*]} in $build_dir."
