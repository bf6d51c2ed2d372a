#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: prepare_tree.sh PACKAGE gcc|llvm
# Configures a kernel source package as the lab does and prepares it for compiling modules, without
# building the kernel. Prints the directory (a KDIR for build_ko.sh --objects). It is kept in the
# cache, one for each configuration.
set -eu

package=$1
lab=$(cd "$(dirname "$0")" && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tarn-lab
fragments=$lab/kernel.config

# With Clang as on a phone, where most of the flags are.
case $2 in
gcc)
	set -- gcc aarch64-linux-gnu-gcc CROSS_COMPILE=aarch64-linux-gnu-
	;;
llvm)
	set -- llvm clang-19 LLVM=-19
	fragments="$fragments $lab/kernel.phone.config"
	;;
*)
	echo "prepare_tree: there is no tool chain \"$2\"; there are gcc and llvm" >&2
	exit 2
	;;
esac
name=${package#linux-source-}-$1
compiler=$2
shift 2

# Older kernels have a choice of allocators, of which tinyconfig takes another.
slub=CONFIG_SLUB=y

# shellcheck disable=SC2086 # a list of files
key=$({
	dpkg-query -W -f '${Version}' "$package"
	echo "$*"
	$compiler --version
	echo $slub
	grep -hE '^(# )?CONFIG_' $fragments
} | sha256sum | cut -c1-12)
build=$cache/prepared-$name-$key

if [ ! -e "$build/complete" ]; then
	mkdir -p "$cache"
	exec 9>"$build.lock"
	flock 9
fi
if [ ! -e "$build/complete" ]; then
	source=$("$lab/unpack_source.sh" "$package")
	echo "lab: preparing $build; see $build.log" >&2
	rm -rf "$build"
	mkdir -p "$build"
	make_kernel() {
		make -C "$source" O="$build" ARCH=arm64 "$@"
	}
	echo $slub >"$build/slub.config"
	# shellcheck disable=SC2086 # a list of files
	{
		make_kernel "$@" tinyconfig &&
		"$source/scripts/kconfig/merge_config.sh" -m -O "$build" "$build/.config" \
			$fragments "$build/slub.config" &&
		make_kernel "$@" olddefconfig &&
		make_kernel "$@" -j"$(nproc)" modules_prepare
	} >"$build.log" 2>&1 || {
		tail -n 20 "$build.log" >&2
		echo "lab: preparing $build failed" >&2
		exit 1
	}
	touch "$build/complete"
fi
echo "$build"
