# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 60 s
# Objects that the kernel frees in bulk: what an epoll set watches is freed some seconds after its
# last use, hundreds in one call and without a tracepoint. Nobody else in the guest uses epoll, so
# allocations and frees must be the same, one for each object.
. /lab/scenarios/lib.sh

load_all
recorded() { # 1: allocations, 2: frees
	cut -d , -f "$1" $parameters/slub_recorded
}
all_freed() {
	[ "$(recorded 2)" -ge 2000 ]
}

set_target eventpoll_epi
memcheck prepare slab
memcheck on slab
leak watcher epoll 2000 closed >/dev/null
equal "allocations" "$(recorded 1)" 2000
await 20 all_freed
memcheck off slab
memcheck read >text
equal "frees" "$(recorded 2)" 2000
for missing in dropped lost skipped; do
	equal "$missing" "$(cat $parameters/slub_$missing)" 0,0
done

grep -q 'c:(2000/2000) (p:[0-9]*-[0-9]*) watcher' text || fail "the allocations: $(cat text)"
awk '/^@@@@@/ { frees = /SLUB_FREE/ } frees' text >frees
# The first frame is the caller of the bulk call, without the exception that caught it.
awk '/^\[/ { getline; print $1 }' frees >first
grep -q -v -E '^(kvfree_rcu_bulk|kfree_rcu_work|kfree_rcu_monitor|kvfree_rcu_drain_ready)\+' first &&
	fail "call sites of frees: $(cat first)"
! grep -q -E 'el1h_64|brk_handler|kprobe' text || fail "frames of an exception: $(cat text)"
