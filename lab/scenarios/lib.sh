# SPDX-License-Identifier: GPL-2.0-only
# shellcheck shell=sh disable=SC2034
# Code shared by the scenarios. A scenario runs under "sh -eu": a failed check ends it, and the trap
# below then undoes what it has set up.

parameters=/sys/module/tarn_mem_adapter/parameters
events=/sys/kernel/debug/ember/events
tracing=/sys/kernel/tracing
modules="ember tarn_smmu hook_bridge tarn_mem_adapter tarn_client"

fail() {
	echo "FAIL: $*"
	exit 1
}

equal() { # WHAT GOT WANTED
	[ "$2" = "$3" ] || fail "$1: got '$2', wanted '$3'"
}

at_least() { # WHAT GOT WANTED
	[ "$2" -ge "$3" ] || fail "$1: got $2, wanted at least $3"
}

# The range includes LOW and HIGH.
between() { # WHAT GOT LOW HIGH
	if [ "$2" -lt "$3" ] || [ "$2" -gt "$4" ]; then
		fail "$1: got $2, wanted $3 to $4"
	fi
}

# Runs a command that must fail and saves its output in the file "refused".
refused() {
	if "$@" >refused 2>&1; then
		fail "did not fail: $*"
	fi
}

# Commands that clean up at the end of the scenario, run in reverse order.
undo_list=
undo() {
	undo_list="$*
$undo_list"
}

# Starts a command in the background; it is killed and waited for at the end.
background() {
	"$@" &
	undo "kill $! 2>/dev/null && wait $!; true"
}

take_back() {
	status=$?
	trap - EXIT
	set +e
	eval "$undo_list" 2>/dev/null
	unload_all || status=1
	exit "$status"
}
trap take_back EXIT

load() {
	for module in "$@"; do
		modprobe "$module" || fail "modprobe $module: $?"
	done
}

load_all() {
	# shellcheck disable=SC2086 # a list of modules
	load $modules
}

unload() {
	for module in "$@"; do
		rmmod "$module" || return 1
	done
}

loaded() {
	[ -e "/sys/module/$1/refcnt" ]
}

unload_all() {
	for module in tarn_client tarn_mem_adapter hook_bridge tarn_smmu ember; do
		! loaded "$module" || rmmod "$module" || return 1
	done
}

# Waits up to SECONDS for a command to succeed.
await() { # SECONDS COMMAND...
	tries=$(($1 * 10 * LAB_SLOW))
	shift
	while ! "$@"; do
		tries=$((tries - 1))
		[ "$tries" -gt 0 ] || fail "timed out waiting for: $*"
		sleep 0.1
	done
}

# The kernel log since the scenario began, or since the last forget_log.
forget_log() {
	dmesg -c >/dev/null
}

# A log line without a newline stays open, and invisible, until the next line arrives.
klog() {
	echo "lab: look" >/dev/kmsg
	dmesg
}

log_has() { # EXTENDED REGEX
	klog | grep -E -q -- "$1"
}

log_count() { # EXTENDED REGEX
	klog | grep -E -c -- "$1" || true
}

# Regex for a line of the adapter: the function that logs it, then its text.
adapter_line() { # FUNCTION TEXT
	echo "\[MEM_ADAPTER\] $1:[0-9]+: $2"
}

expect_line() { # FUNCTION TEXT
	log_has "$(adapter_line "$1" "$2")" || {
		klog | tail -n 30
		fail "missing from the kernel log: $1: $2"
	}
}

no_line() { # FUNCTION TEXT
	! log_has "$(adapter_line "$1" "$2")" || fail "unexpected in the kernel log: $1: $2"
}

# Sets the target of the next hunt; without a name the module chooses one. The kernel would keep a
# newline as part of the name, so none is written. Writing nothing has no effect, so an empty name
# is written as a lone newline, which matches no cache.
set_target() {
	printf '%s' "${1:-
}" >$parameters/specified_target
}

# Adds a swap device and puts its number in $zram. When the device gets a size, its table is
# allocated: a vmalloc area of at least 16 bytes per page.
add_zram() {
	zram=$(cat /sys/class/zram-control/hot_add)
	undo "echo $zram >/sys/class/zram-control/hot_remove"
}

# Allocates memory until only so much is free. The tables of swap devices do that faster than a
# process could. The devices are smaller near the end: on the debugging kernel, the table of a 4 GiB
# device takes 90 MiB.
tables=
fill_memory() { # KiB
	while [ "$(memory MemFree)" -gt "$1" ]; do
		size=4G
		[ "$(memory MemFree)" -gt $(($1 + (LAB_DEBUG ? 150000 : 30000))) ] || size=512M
		add_zram
		echo $size >/sys/block/zram"$zram"/disksize
		tables="$tables $zram"
	done
}
release_memory() {
	for zram in $tables; do
		echo 1 >/sys/block/zram"$zram"/reset
	done
}

memory() { # FIELD of /proc/meminfo, KiB
	awk -v field="$1:" '$1 == field { print $2 }' /proc/meminfo
}

slab_field() { # CACHE FIELD of /proc/slabinfo
	awk -v cache="$1" -v field="$2" '$1 == cache { print $field }' /proc/slabinfo
}

# Size of all slabs of a cache in bytes.
footprint() { # CACHE
	awk -v cache="$1" '$1 == cache { print $3 * $4 }' /proc/slabinfo
}

# Converts the records of "tarnctl hunt --json" to one per line:
# alloc|COUNT|TOTAL|PID_MIN|PID_MAX|COMM|FRAME FRAME ...
callers() { # FILE
	awk '
		/^  "/ { kind = "" }
		/^  "(alloc|free)": \[/ { split($0, part, "\""); kind = part[2]; next }
		kind == "" { next }
		/^    \{/ { frames = ""; in_frames = 0; next }
		/"frames": \[/ { in_frames = !/\]/; next }
		in_frames && /^ *\]/ { in_frames = 0; next }
		in_frames { split($0, part, "\""); frames = frames part[2] " "; next }
		/^ *"[a-z_]*": / {
			split($0, part, "\"")
			value = $0
			sub(/^[^:]*: "?/, "", value)
			sub(/"?,?$/, "", value)
			field[part[2]] = value
			next
		}
		/^    \}/ {
			print kind "|" field["count"] "|" field["total"] "|" field["pid_min"] "|" \
				field["pid_max"] "|" field["comm"] "|" frames
		}
	' "$1"
}
