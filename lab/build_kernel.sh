#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: build_kernel.sh [plain|debug|phone]
# Builds the lab's kernel from Debian's source package, once for each configuration, and prints the
# build directory (a KDIR) as its last line. plain is built with GCC, debug checks itself, and phone
# is built with Clang and enforces what a phone's kernel does. Everything is stored in the cache,
# outside the checkout.
set -eu

flavour=${1:-plain}
lab=$(cd "$(dirname "$0")" && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tarn-lab
package=linux-source-6.12

# The flags keep the functions that the hooks probe from being inlined.
case $flavour in
plain | debug)
	compiler=aarch64-linux-gnu-gcc
	set -- CROSS_COMPILE=aarch64-linux-gnu- KCFLAGS=-fno-inline-functions-called-once
	;;
phone)
	compiler=clang-19
	set -- LLVM=-19 CFLAGS_compaction.o=-finline-hint-functions
	;;
*)
	echo "build_kernel: there is no kernel flavour \"$flavour\"; there are plain, debug, phone" >&2
	exit 2
	;;
esac

fragments=$lab/kernel.config
[ "$flavour" = plain ] || fragments="$fragments $lab/kernel.$flavour.config"

version=$(dpkg-query -W -f '${Version}' "$package")
# shellcheck disable=SC2086 # a list of files
key=$({
	echo "$version $*"
	$compiler --version
	grep -hE '^(# )?CONFIG_' $fragments
} | sha256sum | cut -c1-12)
build=$cache/kernel-$flavour-$key

if [ ! -e "$build/complete" ]; then
	mkdir -p "$cache"
	exec 9>"$cache/lock"
	flock 9
fi
if [ ! -e "$build/complete" ]; then
	source=$("$lab/unpack_source.sh" "$package")
	echo "lab: building the $flavour kernel (at least ten minutes on two cores);" \
	     "see $build.log" >&2
	rm -rf "$build"
	mkdir -p "$build"
	make_kernel() {
		make -C "$source" O="$build" ARCH=arm64 KBUILD_BUILD_USER=lab KBUILD_BUILD_HOST=lab "$@"
	}
	fail() {
		tail -n 20 "$build.log" >&2
		echo "lab: $1" >&2
		exit 1
	}
	# shellcheck disable=SC2086 # a list of files
	{
		make_kernel "$@" tinyconfig &&
		"$source/scripts/kconfig/merge_config.sh" -m -O "$build" "$build/.config" \
			$fragments &&
		make_kernel "$@" olddefconfig
	} >"$build.log" 2>&1 || fail "configuring the kernel failed"
	# shellcheck disable=SC2086 # a list of files
	for option in $(grep -h '^CONFIG' $fragments); do
		grep -qx "$option" "$build/.config" || fail "the kernel's configuration rejects $option"
	done
	make_kernel "$@" -j"$(nproc)" Image modules >>"$build.log" 2>&1 ||
		fail "building the kernel failed"
	touch "$build/complete"
fi
echo "$build"
