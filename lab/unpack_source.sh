#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: unpack_source.sh PACKAGE
# Unpacks one of Debian's kernel source packages into the cache, once a version, and prints its
# directory.
set -eu

package=$1
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tarn-lab
version=$(dpkg-query -W -f '${Version}' "$package")
source=$cache/source-$version

if [ ! -e "$source/complete" ]; then
	mkdir -p "$cache"
	exec 8>"$source.lock"
	flock 8
fi
if [ ! -e "$source/complete" ]; then
	echo "lab: unpacking the kernel source $version" >&2
	rm -rf "$source"
	mkdir -p "$source"
	tar -xf "/usr/src/$package.tar.xz" -C "$source" --strip-components=1
	touch "$source/complete"
fi
echo "$source"
