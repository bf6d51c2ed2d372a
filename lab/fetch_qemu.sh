#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Downloads, once into the cache, a QEMU that emulates memory tags correctly (Debian 12's own shares
# a tag between neighbours), and prints the program's path. It comes from Debian's backports, with an
# apt state of its own: the host's package lists stay as they are.
set -eu

cache=${XDG_CACHE_HOME:-$HOME/.cache}/tarn-lab
tree=$cache/qemu-10

fail() {
	echo "lab: QEMU 10 cannot be had from Debian's backports ($1); run without MTE=1" >&2
	exit 2
}

if [ ! -x "$tree/run" ]; then
	state=$(mktemp -d)
	trap 'rm -rf "$state"' EXIT
	mkdir -p "$state/lists/partial" "$state/archives/partial" "$cache"
	mirror=$(apt-get indextargets --format '$(SITE)' 'Codename: bookworm' 'Component: main' |
		head -n 1)
	[ -n "$mirror" ] || fail "no mirror of Debian 12 is set up"
	for suite in bookworm bookworm-backports; do
		echo "deb $mirror $suite main"
	done >"$state/sources.list"
	# What the host has installed counts, so that only QEMU itself is downloaded.
	set -- -qq -o Dir::State::Lists="$state/lists" -o Dir::Etc::sourcelist="$state/sources.list" \
		-o Dir::Etc::sourceparts=/dev/null -o Dir::Cache="$state" -o Debug::NoLocking=1 \
		-o Acquire::Languages=none -o APT::Sandbox::User=root
	echo "lab: downloading QEMU 10" >&2
	apt-get "$@" update >&2 || fail "its package list"
	apt-get "$@" -y --no-install-recommends --download-only -t bookworm-backports \
		install qemu-system-arm >&2 || fail "its packages"
	for package in "$state"/archives/*.deb; do
		dpkg -x "$package" "$state/tree" || fail "its contents"
	done
	# It would also look for its optional parts where the host's version keeps them.
	cat >"$state/tree/run" <<-'end'
		#!/bin/bash
		tree=$(dirname "$0")/usr
		export QEMU_MODULE_DIR=$tree/lib/x86_64-linux-gnu/qemu
		exec "$tree/bin/qemu-system-aarch64" -L "$tree/share/qemu" "$@" \
			2> >(grep -vE 'initialize module|same build' >&2)
	end
	chmod 755 "$state/tree/run"
	rm -rf "$tree"
	mv "$state/tree" "$tree"
fi
echo "$tree/run"
