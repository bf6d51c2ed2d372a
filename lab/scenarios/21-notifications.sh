# SPDX-License-Identifier: GPL-2.0-only
# limit: 40 s
# The channel to lmkd: who is notified, with which numbers, and what happens when lmkd dies and
# returns.
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

# Nobody has registered, so the message goes to the kernel's own end.
memcheck notify 1
expect_line lmkd_notify "port:0 type: 18, value: 1, ret: 0"
expect_line tarn_netlink_lmkd_ready "type: 18 not supported"

watch first --count 3 --seconds 20
expect_line tarn_netlink_lmkd_ready "NETLINK_LMKD_INIT: lmkd_nl_pid: $(port first)"
for value in 5 4294967295; do
	memcheck notify $value
done
# Many threads want the slab notification; it is sent once.
tarnctl thresholds set slab_leak_k=1 >/dev/null
wait "$watcher" || fail "watch: $(cat first)"
tarnctl thresholds set slab_leak_k=4294967295 >/dev/null
# The first sequence number went to the message that nobody received.
for wanted in "5 1" "4294967295 2" "8 3"; do
	value=${wanted% *}
	sequence=${wanted#* }
	grep -E "(^|[^0-9])$value([^0-9]|\$)" first | grep -E -q "(^|[^0-9])$sequence([^0-9]|\$)" ||
		fail "value $value, number $sequence: $(cat first)"
done
grep -q -i 'slab leak' first || fail "8 is not named: $(cat first)"

# lmkd is dead. Sends to its port fail, which only the log shows.
memcheck notify 6
expect_line lmkd_notify "port:$(port first) type: 18, value: 6, ret: -111"

# It returns on another port; the last registration wins.
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
grep -q -i 'vmalloc leak' third || fail "16 is not named: $(cat third)"
kill -0 "$second" || fail "the previous one was notified too: $(cat second)"
kill -INT "$second"
wait "$second" || true
equal "told to the one before" "$(wc -l <second)" 1

# A watch that receives fewer notifications than requested fails.
refused tarnctl watch --count 1 --seconds 1

# The channel's socket keeps the adapter loaded.
watch last --seconds 20
unload tarn_client
refused rmmod tarn_mem_adapter
kill -INT "$watcher"
wait "$watcher" || fail "interrupted watch: $?"
expect_line tarn_memory_netlink_exit 'netlink_kernel_release\.'
