#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: run.sh [--kernel FLAVOUR] [--tags] [--shell] [--out DIR] KERNEL_BUILD KO_DIR BIN_DIR [WORD...]
# Boots the lab's guests and runs the scenarios whose names contain one of the words (all without a
# word), printing one line of TAP each. The exit status is 1 if a scenario fails, hangs or leaves
# something in the kernel log. --kernel: plain, debug (a debugging kernel, which gets more memory and
# time) or phone (more processors). --tags: a processor with memory tags. --shell: open a shell in a
# guest with everything loaded. --out: directory for the consoles (default build/lab).
#
# Up to five guests run side by side. A scenario chooses its guest ("# lane: 2", default 1), and may
# run on one flavour only ("# kernel: phone").
# Scenarios that mostly wait share guests of their own, since the machine may have only two
# processors. The fourth guest has memory above the first 4 GiB of addresses, and therefore zones
# above the one for 32-bit devices. The fifth has a contiguous area for huge pages.
set -euo pipefail

usage() {
	sed -n 3p "$0" | cut -c3- >&2
	exit 2
}

lab=$(cd "$(dirname "$0")" && pwd)
out=$lab/../build/lab
flavour=plain
shell=0
tags=0
while [[ ${1:-} == --* ]]; do
	case $1 in
	--kernel)
		[ $# -gt 1 ] || usage
		flavour=$2
		shift
		;;
	--shell) shell=1 ;;
	--tags) tags=1 ;;
	--out)
		[ $# -gt 1 ] || usage
		out=$2
		shift
		;;
	*) usage ;;
	esac
	shift
done
[ $# -ge 3 ] || usage
kernel=$1 modules=$2 programs=$3
shift 3

memory=256 # MiB
upper=256  # memory of the fourth guest above the first 4 GiB of addresses
movable=128
slow=1
run_limit=240 # seconds
processors=2
cpu=max
arguments="console=ttyAMA0 rdinit=/init panic=-1 loglevel=7 printk.devkmsg=on zram.num_devices=2"
# Report real stalls, but not a guest that a busy host keeps waiting.
patient="rcupdate.rcu_cpu_stall_timeout=120 watchdog_thresh=60"
case $flavour in
plain) ;;
debug)
	memory=1280
	# The kernel's own tables are at the upper end.
	upper=1280
	movable=960
	slow=8
	run_limit=2700
	arguments+=" kmemleak=on lab_debug=1 $patient"
	;;
phone)
	# Without the short cut, QEMU computes each pointer's code with the architected cipher.
	cpu=max,pauth-impdef=on
	memory=512
	slow=4
	run_limit=1200
	arguments+=" $patient"
	;;
*) usage ;;
esac

qemu=(qemu-system-aarch64)
machine_type=virt
if [ "$tags" = 1 ]; then
	qemu=("$("$lab/fetch_qemu.sh")")
	machine_type=virt,mte=on
	slow=8
	run_limit=1800
fi

mkdir -p "$out"
out=$(cd "$out" && pwd)
initramfs=$out/initramfs.gz
"$lab/build_initramfs.sh" "$kernel" "$modules" "$programs" "$initramfs"

dtc=$kernel/scripts/dtc/dtc

# describe NAME MACHINE...: writes the machine's device tree, with our areas of contiguous memory
# added, to NAME.dtb.
describe() {
	local tree=$out/$1.dtb

	shift
	"${qemu[@]}" "${@/virt/virt,dumpdtb=$tree}" -display none -nic none >/dev/null 2>&1
	"$dtc" -q -I dtb -O dts "$tree" | cat - "$lab/reserved_memory.dts" |
		"$dtc" -q -I dts -O dtb -o "$tree" -
}

# boot NAME ARGUMENT...: runs a guest; its virtual console is our standard input and output, its
# kernel's console goes to NAME.log.
boot() {
	local name=$1
	local machine=(-M "$machine_type" -cpu "$cpu" -smp "$processors" -m "$memory")

	shift
	describe "$name" "${machine[@]}"
	rm -f "$out/$name.log"
	exec timeout --foreground -k 10 "$run_limit" "${qemu[@]}" "${machine[@]}" \
		-dtb "$out/$name.dtb" -display none -monitor none -nic none -no-reboot \
		-pidfile "$out/$name.pid" \
		-kernel "$kernel/arch/arm64/boot/Image" -initrd "$initramfs" \
		-append "$arguments lab_kernel=$flavour lab_slow=$slow $*" \
		-chardev stdio,id=tap,signal=off -device virtio-serial-device \
		-device virtconsole,chardev=tap \
		-chardev "file,id=kernel,path=$out/$name.log" -serial chardev:kernel
}

if [ "$shell" = 1 ]; then
	run_limit=0
	echo "The kernel's console goes to $out/shell.log."
	boot shell lab_mode=shell
fi

# wanted NAME WORD...: succeeds if NAME contains one of the words, or if there are none.
wanted() {
	local word

	[ $# -gt 1 ] || return 0
	for word in "${@:2}"; do
		[[ $1 != *"$word"* ]] || return 0
	done
	return 1
}

scenarios=()
declare -A lane_of=() runs=()
for script in "$lab"/scenarios/[0-9]*.sh; do
	name=$(basename "$script" .sh)
	wanted "$name" "$@" || continue
	only=$(sed -n 's/^# kernel: //p' "$script")
	[ "${only:-$flavour}" = "$flavour" ] || continue
	lane=$(sed -n 's/^# lane: //p' "$script")
	lane=${lane:-1}
	scenarios+=("$name")
	lane_of[$name]=$lane
	runs[$lane]+=${runs[$lane]:+,}$name
done
if [ ${#scenarios[@]} -eq 0 ]; then
	echo "no scenario matches: $*" >&2
	exit 2
fi
# The debugging kernel searches for leaks at the end of each lane.
for lane in "${!runs[@]}"; do
	[ "$flavour" = debug ] || continue
	scenarios+=("kmemleak-$lane")
	lane_of[kmemleak-$lane]=$lane
done

# Prints each line of a guest's output after the number of its lane.
run_lanes() {
	local lane

	for lane in "${!runs[@]}"; do
		{
			status=0
			(
				# Memory starts at 1 GiB, hence the 3 GiB below the boundary. The
				# host backs only the pages that are touched.
				if [ "$lane" = 4 ]; then
					memory=$((3072 + upper))
					arguments+=" movablecore=${movable}M"
				fi
				if [ "$flavour" = phone ]; then
					case $lane in
					1) arguments+=" slab_nomerge" ;;
					3) processors=8 ;;
					5)
						# An area of this kind starts at a gigabyte.
						memory=3072
						arguments+=" hugetlb_cma=1G"
						;;
					esac
				fi
				boot "lane$lane" "lab_lane=$lane" "lab_run=${runs[$lane]}"
			) </dev/null 2>&1 || status=$?
			echo "ended $status"
		} | sed -u "s/^/$lane /" &
	done
	wait
}

number=0
failed=0
declare -A verdict=() running=() deadline=() ended=()

report() { # VERDICT NAME COMMENT
	number=$((number + 1))
	verdict[$2]=$1
	[ "$1" = ok ] || failed=$((failed + 1))
	echo "$1 $number - $2 # $3"
}

hear() { # LANE LINE
	local lane=$1 line=$2 name seconds rest

	case $line in
	"begin "*)
		read -r _ name rest <<<"$line"
		running[$lane]=$name
		deadline[$lane]=$((SECONDS + rest + 15))
		;;
	"ok "*)
		read -r _ name seconds <<<"$line"
		report ok "$name" "$seconds s"
		;;
	"not ok "*)
		read -r _ _ name seconds rest <<<"$line"
		report "not ok" "$name" "$seconds s: $rest"
		;;
	"ended 0" | "done") unset "deadline[$lane]" ;;
	"ended 124") ended[$lane]="the guest did not finish within $run_limit s" ;;
	"ended "*) ended[$lane]="QEMU ended with status ${line#ended }" ;;
	*) echo "# ${line#\# }" ;;
	esac
}

# Stops a guest that can no longer enforce its own time limits.
stop_late_lanes() {
	local lane

	for lane in "${!deadline[@]}"; do
		[ "$SECONDS" -gt "${deadline[$lane]}" ] || continue
		echo "# lane $lane: the guest does not respond"
		unset "deadline[$lane]"
		kill "$(cat "$out/lane$lane.pid")" || true
	done
}

echo "TAP version 13"
echo "1..${#scenarios[@]}"
exec 4< <(run_lanes)
while true; do
	status=0
	IFS= read -r -t 5 -u 4 line || status=$?
	if [ "$status" -eq 0 ]; then
		line=${line%$'\r'}
		hear "${line%% *}" "${line#* }"
	elif [ "$status" -le 128 ]; then
		break
	fi
	stop_late_lanes
done

console_tail() { # LANE
	tail -n 40 "$out/lane$1.log" 2>/dev/null | tr -d '\r' | sed 's/^/# /'
}

for name in "${scenarios[@]}"; do
	[ -z "${verdict[$name]:-}" ] || continue
	lane=${lane_of[$name]}
	if [ "${running[$lane]:-}" = "$name" ]; then
		report "not ok" "$name" "the guest died: ${ended[$lane]:-it left early}"
		console_tail "$lane"
	else
		report "not ok" "$name" "never ran${running[$lane]:+: see ${running[$lane]}}"
		[ -n "${running[$lane]:-}" ] || console_tail "$lane"
	fi
done

# The guest's own search of its log may have missed something, such as the last lines before it
# died, so search the consoles too.
for lane in "${!runs[@]}"; do
	found=$("$lab/console_trouble.sh" "$out/lane$lane.log") || true
	[ -n "$found" ] || continue
	failed=$((failed + 1))
	echo "# lane $lane: trouble on the kernel's console ($out/lane$lane.log):"
	head -n 40 <<<"$found" | sed 's/^/# /'
done

[ "$failed" -eq 0 ]
