#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Builds the lab's kernel from Debian's source package, once for each configuration, and prints the
# directory of the build (what KDIR wants) as its last line. With an argument "debug" it is the
# kernel that checks itself. Everything lands in the cache, outside the checkout.
set -eu

flavour=${1:-plain}
lab=$(cd "$(dirname "$0")" && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tarn-lab
package=linux-source-6.12
cross=aarch64-linux-gnu-
# Functions that the hooks stand on stay functions that a kprobe finds.
kcflags=-fno-inline-functions-called-once

fragments=$lab/kernel.config
[ "$flavour" = plain ] || fragments="$fragments $lab/kernel.$flavour.config"

version=$(dpkg-query -W -f '${Version}' "$package")
# shellcheck disable=SC2086 # a list of files
key=$({ echo "$version $kcflags"; ${cross}gcc --version; cat $fragments; } | sha256sum | cut -c1-12)
source=$cache/source-$version
build=$cache/kernel-$flavour-$key

if [ ! -e "$build/complete" ]; then
	mkdir -p "$cache"
	exec 9>"$cache/lock"
	flock 9
fi
if [ ! -e "$build/complete" ]; then
	if [ ! -e "$source/complete" ]; then
		echo "lab: unpacking the kernel source $version" >&2
		rm -rf "$source"
		mkdir -p "$source"
		tar -xf "/usr/src/$package.tar.xz" -C "$source" --strip-components=1
		touch "$source/complete"
	fi
	echo "lab: building the $flavour kernel, ten minutes and more on two cores;" \
	     "the log is $build.log" >&2
	rm -rf "$build"
	mkdir -p "$build"
	make_kernel() {
		make -C "$source" O="$build" ARCH=arm64 CROSS_COMPILE=$cross KCFLAGS=$kcflags \
			KBUILD_BUILD_USER=lab KBUILD_BUILD_HOST=lab "$@"
	}
	fail() {
		tail -n 20 "$build.log" >&2
		echo "lab: $1" >&2
		exit 1
	}
	# shellcheck disable=SC2086 # a list of files
	{
		make_kernel tinyconfig &&
		"$source/scripts/kconfig/merge_config.sh" -m -O "$build" "$build/.config" \
			$fragments &&
		make_kernel olddefconfig
	} >"$build.log" 2>&1 || fail "the kernel cannot be configured"
	# shellcheck disable=SC2086 # a list of files
	for option in $(grep -h '^CONFIG' $fragments); do
		grep -qx "$option" "$build/.config" || fail "the kernel refuses $option"
	done
	make_kernel -j"$(nproc)" Image modules >>"$build.log" 2>&1 ||
		fail "the kernel does not build"
	touch "$build/complete"
fi
echo "$build"
