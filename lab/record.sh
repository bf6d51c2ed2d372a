#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: record.sh RECORDING OUTPUT
# Boots the lab's kernel, runs lab/recordings/RECORDING.sh in it and saves the trace, compressed, as
# OUTPUT (.xz). The examples were made with it. It needs the lab's kernel and programs; run "make
# lab-build" first.
set -euo pipefail

if [ $# -ne 2 ]; then
	sed -n 3p "$0" | cut -c3- >&2
	exit 2
fi
lab=$(cd "$(dirname "$0")" && pwd)
recording=$1 output=$2
if [ ! -e "$lab/recordings/$recording.sh" ]; then
	echo "record: no recording named $recording in $lab/recordings" >&2
	exit 2
fi
kernel=$("$lab/build_kernel.sh" plain)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/no_modules"
"$lab/build_initramfs.sh" "$kernel" "$work/no_modules" "$lab/../build/arm64/bin" "$work/initramfs.gz"
timeout -k 10 240 qemu-system-aarch64 -M virt -cpu max -smp 4 -m 512 -display none -monitor none \
	-nic none -no-reboot -kernel "$kernel/arch/arm64/boot/Image" -initrd "$work/initramfs.gz" \
	-append "console=ttyAMA0 rdinit=/init panic=-1 lab_mode=record lab_record=$recording" \
	-device virtio-serial-device \
	-chardev "file,id=trace,path=$work/trace" -device virtconsole,chardev=trace \
	-serial "file:$work/console" </dev/null
if ! grep -q '^# tracer:' "$work/trace"; then
	tail -n 20 "$work/console" >&2
	echo "record: the guest left no trace" >&2
	exit 1
fi
sed -i 's/\r$//' "$work/trace"
xz -9e -c "$work/trace" >"$output"
echo "$output: $(grep -c '[)]*: k' "$work/trace") events, $(stat -c %s "$output") bytes"
