#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: quiet_build.sh BUILD_DIR TARGET... -- CMAKE_FLAG...
# Configures and builds without printing every file; prints the log on failure.
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
echo "Building ${targets[*]} in $build_dir."
cmake -S . -B "$build_dir" "$@" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
cmake --build "$build_dir" --target "${targets[@]}" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
