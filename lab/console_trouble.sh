#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: console_trouble.sh CONSOLE_LOG
# Prints the lines of a guest's console that report a problem, each after the name of the scenario
# that caused it. Lines that the scenario declares ("# expect-log: EXTENDED REGEX") are left out.
set -eu

lab=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

tr -d '\r' <"$1" | awk -v work="$work" '
	BEGIN { name = "boot" }
	match($0, /lab: begin [^ ]+$/) { name = substr($0, RSTART + 11) }
	{ print >(work "/" name) }'
for part in "$work"/*; do
	name=${part##*/}
	script=$lab/scenarios/$name.sh
	[ -e "$script" ] || script=/dev/null
	sed -n 's/^# expect-log: //p' "$script" >"$work/.expected"
	grep -E -f "$lab/kernel_trouble" "$part" | grep -v -E -f "$work/.expected" |
		sed "s/^/$name: /" || true
done
