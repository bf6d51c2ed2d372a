#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: other_kernels.sh OUT_DIR [PACKAGE...]
# Compiles the module for several of Debian's kernels, with GCC and with Clang, and checks that
# these export what it calls. Their trees are prepared, not built, so nothing is loaded.
set -euo pipefail
export LC_ALL=C

out=$1
shift
[ $# -gt 0 ] || set -- linux-source-6.1 linux-source-6.12
lab=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$out"

# What the source exports, and what a macro of it lets a module refer to.
exports() { # SOURCE
	(cd "$1" && grep -rhoE '\bEXPORT_(TRACEPOINT_)?(PER_CPU_)?SYMBOL[A-Z_]*\([a-zA-Z0-9_]+' \
		arch/arm64 block drivers/base fs init kernel lib mm net) |
		sed -E 's/.*TRACEPOINT.*\(/__tracepoint_/; s/.*\(//'
	printf '%s\n' param_ops_int param_ops_uint __this_module
}

status=0
for package; do
	for tools in gcc llvm; do
		case $tools in
		gcc) flags=CROSS_COMPILE=aarch64-linux-gnu- ;;
		llvm) flags=LLVM=-19 ;;
		esac
		tree=$("$lab/prepare_tree.sh" "$package" $tools)
		objects=$out/${package#linux-source-}-$tools
		"$lab/../scripts/build_ko.sh" --objects "$tree" "$objects" ARCH=arm64 "$flags" \
			TARN_PLATFORM=n || {
			status=1
			continue
		}
		exports "$("$lab/unpack_source.sh" "$package")" | sort -u >"$objects/exports"
		# Weak references are hooks, which a kernel may lack; the others that it does not
		# export are the platform's.
		aarch64-linux-gnu-nm -u "$objects/tarn_mem_adapter.o" |
			awk '$1 == "U" && $2 !~ /^(cdev_tevent_|tarn_iommu_)/ {print $2}' | sort -u |
			comm -23 - "$objects/exports" >"$objects/missing"
		if [ -s "$objects/missing" ]; then
			echo "other_kernels: $package does not export: $(tr '\n' ' ' <"$objects/missing")" >&2
			status=1
		else
			echo "$package, $tools: compiles, and all it calls is exported"
		fi
	done
done
exit $status
