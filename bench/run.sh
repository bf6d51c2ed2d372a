#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: run.sh BUILD_DIR [BENCHMARK_OPTION...]
# Runs the benchmarks with their repetitions interleaved, so that other work on the machine affects
# both sides of a row equally. Prints the medians and writes them to BUILD_DIR/bench.json.
set -euo pipefail

build_dir=$1
shift
example=$(dirname "$0")/../examples/fd-leak.ftrace.xz
xz -dc "$example" >"$build_dir/example.ftrace"
exec "$build_dir/bin/bench" "$build_dir/bench.json" "$example" "$build_dir/example.ftrace" \
	--benchmark_enable_random_interleaving=true --benchmark_repetitions=9 "$@"
