# SPDX-License-Identifier: GPL-2.0-only
# limit: 40 s
# The channel to lmkd: who is told, with which numbers; the death of lmkd and its return.
. /lab/scenarios/lib.sh

load_all
high="slab_leak_k=4294967295 vmalloc_leak_k=4294967295"
# shellcheck disable=SC2086 # several settings
tarnctl thresholds set $high >/dev/null

watch() { # FILE TARNCTL_WATCH_OPTION...
	file=$1
	shift
	tarnctl watch "$@" >"$file" 2>&1 &
	watcher=$!
	await 10 grep -q -i regist "$file"
}

port() {
	sed -n '1s/[^0-9]*\([0-9]*\).*/\1/p' "$1"
}

# Nobody has registered: the kernel's own end hears it.
memcheck notify 1
expect_line lmkd_notify "port:0 type: 18, value: 1, ret: 0"
expect_line tarn_netlink_lmkd_ready "type: 18 not supported"

watch first --count 3 --seconds 20
expect_line tarn_netlink_lmkd_ready "NETLINK_LMKD_INIT: lmkd_nl_pid: $(port first)"
for value in 5 4294967295; do
	memcheck notify $value
done
# One of many threads that all want the slab notification: it comes once.
tarnctl thresholds set slab_leak_k=1 >/dev/null
wait "$watcher" || fail "watch: $(cat first)"
tarnctl thresholds set slab_leak_k=4294967295 >/dev/null
# The sequence began with the message that nobody got.
for wanted in "5 1" "4294967295 2" "8 3"; do
	value=${wanted% *}
	sequence=${wanted#* }
	grep -E "(^|[^0-9])$value([^0-9]|\$)" first | grep -E -q "(^|[^0-9])$sequence([^0-9]|\$)" ||
		fail "value $value, number $sequence: $(cat first)"
done
grep -q -i 'slab leak' first || fail "8 has no name: $(cat first)"

# lmkd is dead. Sends to its port fail, and only the log tells.
memcheck notify 6
expect_line lmkd_notify "port:$(port first) type: 18, value: 6, ret: -111"

# It returns under another port, and the last one wins.
watch second --count 1 --seconds 20
second=$watcher
watch third --count 2 --seconds 20
third=$watcher
memcheck notify 7
tarnctl thresholds set vmalloc_leak_k=0 >/dev/null
add_zram
echo 1M >/sys/block/zram"$zram"/disksize
wait "$third" || fail "watch: $(cat third)"
# shellcheck disable=SC2086 # several settings
tarnctl thresholds set $high >/dev/null
grep -q -i 'vmalloc leak' third || fail "16 has no name: $(cat third)"
kill -0 "$second" || fail "the one before was told, too: $(cat second)"
kill -INT "$second"
wait "$second" || true
equal "told to the one before" "$(wc -l <second)" 1

# A watch that is told less than it counts to fails.
refused tarnctl watch --count 1 --seconds 1

# The channel's socket keeps the adapter in place.
watch last --seconds 20
unload tarn_client
refused rmmod tarn_mem_adapter
kill -INT "$watcher"
wait "$watcher" || fail "interrupted watch: $?"
expect_line tarn_memory_netlink_exit 'netlink_kernel_release\.'
