#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: build_ko.sh [--objects] KERNEL_TREE OUT_DIR [MAKE_VARIABLE=...]...
# Builds the module and the platform's modules for a configured kernel tree into OUT_DIR. With
# TARN_PLATFORM=n it builds only the module; KBUILD_EXTRA_SYMBOLS then names the Module.symvers of
# the platform's own ember and tarn_smmu. With --objects it only compiles and joins the module's
# objects, for which the kernel need not have been built.
set -euo pipefail

target=modules
if [ "$1" = --objects ]; then
	target=tarn_mem_adapter.o
	shift
fi
kernel=$1
if [ -z "$kernel" ]; then
	echo "usage: make ko KDIR=<configured kernel tree> [ARCH=arm64 CROSS_COMPILE=<prefix>]" >&2
	exit 2
fi
mkdir -p "$2"
out=$(cd "$2" && pwd)
shift 2
root=$(cd "$(dirname "$0")/.." && pwd)

if [ ! -e "$kernel/.config" ] || { [ $target = modules ] && [ ! -e "$kernel/Module.symvers" ]; }; then
	echo "build_ko: $kernel is not a configured and built kernel tree:" \
		"it needs .config and Module.symvers" >&2
	exit 2
fi

# Objects built for another kernel would look up to date.
if [ -e "$out/.kernel" ] && [ "$(cat "$out/.kernel")" != "$kernel $*" ]; then
	find "$out" -mindepth 1 -delete
fi
echo "$kernel $*" >"$out/.kernel"

# The kernel's build puts objects beside their sources; a mirror of symbolic links keeps them out of
# the checkout.
for part in drivers kernel/include kernel/linux platform/include platform/linux include; do
	[ -d "$root/$part" ] || continue
	mkdir -p "$out/$part"
	cp -rsf "$root/$part/." "$out/$part/"
done
find "$out" -xtype l -delete
ln -sf kernel/linux/Kbuild "$out/Kbuild"

log=$out/build.log
echo "Building the modules for $kernel in $out."
make -C "$kernel" M="$out" "$@" $target >"$log" 2>&1 || {
	grep -E '(error|ERROR|\*\*\*|undefined)' "$log" >&2 || tail -n 30 "$log" >&2
	echo "build_ko: building the modules for $kernel failed; see $log" >&2
	exit 1
}
grep -A 3 'warning:' "$log" >&2 || true

# The kernel's loader knows no global offset table, so it would refuse such a module.
built=("$out"/*.ko)
[ $target = modules ] || built=("$out/$target")
for module in "${built[@]}"; do
	if readelf -rW "$module" | grep 'R_AARCH64_[A-Z0-9_]*GOT' >&2; then
		echo "build_ko: $(basename "$module") addresses a symbol through a global offset" \
			"table, which the kernel refuses to load" >&2
		exit 1
	fi
done
