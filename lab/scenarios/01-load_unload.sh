# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 90 s
# Loads the modules in the order of their dependencies and unloads them, fifty times, and shows that
# nothing of them stays.
. /lab/scenarios/lib.sh

kprobes=/sys/kernel/debug/kprobes/list

# The kernel that checks itself keeps what was freed for a while, up to a share of the memory; it lets
# go of that for a cache that is shrunk.
unreclaimable() { # KiB
	if [ "$LAB_DEBUG" = 1 ]; then
		for cache in /sys/kernel/slab/*/shrink; do
			echo 1 >"$cache"
		done
	fi
	memory SUnreclaim
}

undo "echo 0 >/sys/kernel/rcu_expedited"
# The kernel that checks itself takes ten times as long over a round.
rounds=$((LAB_DEBUG ? 20 : 50))
round=0
while [ "$round" -lt "$rounds" ]; do
	# Short grace periods in four rounds of five: another timing, and less of a wait.
	echo $((round % 5 != 0)) >/sys/kernel/rcu_expedited
	load_all
	unload_all
	round=$((round + 1))
	# What the first rounds leave (depot, caches of the loader) is there for good.
	[ "$round" -ne 10 ] || slab_before=$(unreclaimable)
done
for left in /sys/kernel/mm_event /dev/tarn_memcheck /sys/kernel/debug/ember /sys/kernel/debug/tarn_cma \
	/sys/module/tarn_mem_adapter; do
	[ ! -e "$left" ] || fail "$left is left"
done
equal "kprobes that are left" "$(cat $kprobes)" ""
! grep -q slub_track_cache /proc/slabinfo || fail "the node cache is left"
! grep -q '^slub-' /proc/[0-9]*/comm || fail "a drain thread is left"
# A leak of two pages a round would show, of ten where the kernel checks itself and goes fewer rounds;
# the rest is what the guest may do meanwhile.
between "growth of unreclaimable slab, KiB" $(($(unreclaimable) - slab_before)) -100000 \
	$((LAB_DEBUG ? 400 : 200))

load_all
# What was looked for above is there while it should be.
for there in /sys/kernel/mm_event /sys/kernel/debug/ember /sys/kernel/debug/tarn_cma/linux,cma; do
	[ -e "$there" ] || fail "$there is missing"
done
for function in folio_add_pin __compact_finished; do
	grep -q "$function" $kprobes || fail "no probe at $function: $(cat $kprobes)"
done
equal "who holds the adapter" "$(ls /sys/module/tarn_mem_adapter/holders)" tarn_client
refused rmmod tarn_mem_adapter
refused rmmod ember
refused rmmod hook_bridge

# Loaded without a client, the adapter starts neither channel nor trackers.
unload tarn_client
expect_line "[a-z_]*" 'netlink_kernel_release\.'
refused tarnctl watch --seconds 1
! grep -q slub_track_cache /proc/slabinfo || fail "the node cache outlives its client"
