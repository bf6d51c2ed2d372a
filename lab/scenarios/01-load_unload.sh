# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 90 s
# Loads the modules in the order of their dependencies and unloads them, fifty times, and checks
# that nothing of them remains.
. /lab/scenarios/lib.sh

kprobes=/sys/kernel/debug/kprobes/list

# The debugging kernel keeps freed memory for a while, up to a share of all memory. Shrinking a
# cache releases what is kept for that cache.
unreclaimable() { # KiB
	if [ "$LAB_DEBUG" = 1 ]; then
		for cache in /sys/kernel/slab/*/shrink; do
			echo 1 >"$cache"
		done
	fi
	memory SUnreclaim
}

undo "echo 0 >/sys/kernel/rcu_expedited"
# The debugging kernel takes ten times as long per round.
rounds=$((LAB_DEBUG ? 20 : 50))
round=0
while [ "$round" -lt "$rounds" ]; do
	# Use short grace periods in four rounds out of five: this varies the timing and shortens
	# the wait.
	echo $((round % 5 != 0)) >/sys/kernel/rcu_expedited
	load_all
	unload_all
	round=$((round + 1))
	# The first rounds leave permanent things behind (depot, caches of the loader).
	[ "$round" -ne 10 ] || slab_before=$(unreclaimable)
done
for left in /sys/kernel/mm_event /dev/tarn_memcheck /sys/kernel/debug/ember /sys/kernel/debug/tarn_cma \
	/sys/module/tarn_mem_adapter; do
	[ ! -e "$left" ] || fail "$left still exists"
done
equal "kprobes that are left" "$(cat $kprobes)" ""
! grep -q slub_track_cache /proc/slabinfo || fail "the node cache still exists"
! grep -q '^slub-' /proc/[0-9]*/comm || fail "a drain thread is still running"
# A leak of two pages per round would show (ten on the debugging kernel, which runs fewer rounds).
# The rest of the limit allows for what the guest does meanwhile.
between "growth of unreclaimable slab, KiB" $(($(unreclaimable) - slab_before)) -100000 \
	$((LAB_DEBUG ? 400 : 200))

load_all
# The things that must be gone above do exist while the modules are loaded.
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

# Without a client, the adapter starts neither the channel nor the trackers.
unload tarn_client
expect_line "[a-z_]*" 'netlink_kernel_release\.'
refused tarnctl watch --seconds 1
! grep -q slub_track_cache /proc/slabinfo || fail "the node cache outlives its client"
