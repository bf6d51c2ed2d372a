# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 90 s
# Loads the modules in the order of their dependencies and unloads them, fifty times, and shows that
# nothing of them stays.
. /lab/scenarios/lib.sh

undo "echo 0 >/sys/kernel/rcu_expedited"
# The kernel that checks itself takes ten times as long over a round.
rounds=$((LAB_DEBUG ? 15 : 50))
round=0
while [ "$round" -lt "$rounds" ]; do
	# Short grace periods in four rounds of five: another timing, and less of a wait.
	echo $((round % 5 != 0)) >/sys/kernel/rcu_expedited
	load_all
	unload_all
	round=$((round + 1))
	# What the first rounds leave (depot, caches of the loader) is there for good.
	[ "$round" -ne 10 ] || slab_before=$(memory SUnreclaim)
done
for left in /sys/kernel/mm_event /dev/tarn_memcheck /sys/kernel/debug/ember; do
	[ ! -e "$left" ] || fail "$left is left"
done
! grep -q slub_track_cache /proc/slabinfo || fail "the node cache is left"
! grep -q '^slub-' /proc/[0-9]*/comm || fail "a drain thread is left"
# A leak of two pages a round would show; 200 KiB is what the rest of the guest may do meanwhile. Where
# the kernel checks itself it keeps what was freed for a while, and searches for leaks in the end.
[ "$LAB_DEBUG" = 1 ] ||
	between "growth of unreclaimable slab, KiB" $(($(memory SUnreclaim) - slab_before)) -100000 200

load_all
equal "who holds the adapter" "$(ls /sys/module/tarn_mem_adapter/holders)" tarn_client
refused rmmod tarn_mem_adapter
refused rmmod ember
refused rmmod hook_bridge

# Loaded without a client, the adapter starts neither channel nor trackers.
unload tarn_client
expect_line "[a-z_]*" 'netlink_kernel_release\.'
refused tarnctl watch --seconds 1
! grep -q slub_track_cache /proc/slabinfo || fail "the node cache outlives its client"
