#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: build_initramfs.sh KERNEL_BUILD KO_DIR BIN_DIR OUTPUT
# Packs the guest's root file system: a static busybox (downloaded once into the cache), the modules
# in KO_DIR with their dependencies resolved, the arm64 programs in BIN_DIR, and the scenarios.
set -eu

if [ $# -ne 4 ]; then
	sed -n 3p "$0" | cut -c3- >&2
	exit 2
fi
kernel=$1 modules=$2 programs=$3 output=$4
lab=$(cd "$(dirname "$0")" && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tarn-lab

# Uses a private apt state directory, so that the host's package manager does not learn of the
# guest's architecture.
fetch_busybox() {
	state=$(mktemp -d)
	mkdir -p "$state/lists/partial" "$state/archives/partial"
	: >"$state/status"
	set -- -qq -o Dir::State::Lists="$state/lists" -o Dir::State::status="$state/status" \
		-o Dir::Cache="$state" -o APT::Architecture=arm64 -o APT::Architectures=arm64 \
		-o Acquire::Languages=none -o APT::Sandbox::User=root
	apt-get "$@" update >&2
	(cd "$state" && apt-get "$@" download busybox-static >&2)
	dpkg -x "$state"/busybox-static_*.deb "$state/tree"
	mkdir -p "$cache"
	install -m 755 "$state/tree/bin/busybox" "$cache/busybox-arm64.new"
	mv "$cache/busybox-arm64.new" "$cache/busybox-arm64"
	rm -rf "$state"
}

[ -x "$cache/busybox-arm64" ] || fetch_busybox

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/bin" "$root/sbin" "$root/proc" "$root/sys" "$root/dev" "$root/tmp" "$root/lab"
cp "$cache/busybox-arm64" "$root/bin/busybox"
ln -s busybox "$root/bin/sh"
for program in "$programs"/*; do
	[ -f "$program" ] && install -m 755 "$program" "$root/bin/"
done

release=$(cat "$kernel/include/config/kernel.release")
tree=$root/lib/modules/$release
mkdir -p "$tree"
for module in "$modules"/*.ko; do
	[ -e "$module" ] && cp "$module" "$tree/"
done
for list in modules.builtin modules.builtin.modinfo; do
	[ -e "$kernel/$list" ] && cp "$kernel/$list" "$tree/"
done
: >"$tree/modules.order"
depmod -b "$root" "$release"

# Lists the adapter's exports (marking those for GPL modules) and the symbols that the client links
# to, for the guest to compare.
if [ -e "$tree/tarn_mem_adapter.ko" ] && [ -e "$tree/tarn_client.ko" ]; then
	aarch64-linux-gnu-objdump -t "$tree/tarn_mem_adapter.ko" | awk '
		$3 ~ /^__ksymtab(_gpl)?$/ && sub("^__ksymtab_", "", $NF) {
			print $NF ($3 ~ /gpl/ ? " gpl" : "")
		}' | sort >"$root/lab/exports"
	aarch64-linux-gnu-nm -u "$tree/tarn_client.ko" | awk '{ print $2 }' | sort \
		>"$root/lab/client_needs"
fi

cp "$lab/init" "$root/init"
cp "$lab/kernel_trouble" "$root/lab/"
cp -r "$lab/scenarios" "$lab/recordings" "$root/lab/"
chmod 755 "$root/init"
mkdir -p "$(dirname "$output")"
(cd "$root" && find . | sort | cpio -o -H newc -R 0:0 --quiet) | gzip -1 >"$output"
