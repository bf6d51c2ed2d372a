# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 60 s
# Objects that the kernel frees in bulk: what an epoll set watches is freed some seconds after its
# last use, hundreds in one call and without a tracepoint. Each of them must be counted once, as an
# allocation and as a free. The kernel frees a few of them one by one, and it may have merged their
# cache with another one: a difference of 100 is tolerated.
. /lab/scenarios/lib.sh

load_all
cache=eventpoll_epi
if [ -z "$(slab_field $cache 1)" ]; then
	refused tarnctl hunt --device /dev/tarn_memcheck --cache $cache --seconds 1
	cache=$(sed -n 's/.*has merged the cache "eventpoll_epi" with "\([^"]*\)".*/\1/p' refused)
	[ -n "$cache" ] || fail "not told the name of the merged cache: $(cat refused)"
fi

recorded() { # 1: allocations, 2: frees
	cut -d , -f "$1" $parameters/slub_recorded
}
all_freed() {
	[ "$(recorded 2)" -ge 2000 ]
}
set_target "$cache"
memcheck prepare slab
memcheck on slab
leak watcher epoll 2000 closed >/dev/null
# The kernel collects such objects for five seconds and then waits for a grace period.
sleep 7
await 20 all_freed
memcheck off slab
at_least "allocations" "$(recorded 1)" 2000
between "allocations less frees" $(($(recorded 1) - $(recorded 2))) -100 100
for missing in dropped lost skipped; do
	equal "$missing" "$(cat $parameters/slub_$missing)" 0,0
done

# KIND|COUNT|TASK|CALL SITE
memcheck read >text
awk '
	/^@@@@@/ { kind = $2 }
	/^\[/ { split($0, part, /c:\(|\/|\) /); count = part[2]; task = $NF; getline; print kind "|" count "|" task "|" $1 }
' text >records
seen() { # KIND TASK CALL_SITE, as regular expressions
	awk -F '|' -v kind="$1" -v task="$2" -v site="$3" \
		'$1 ~ kind && $3 ~ task && $4 ~ site { n += $2 } END { print n + 0 }' records
}
equal "watched" "$(seen ALLOC '^watcher\]$' '^(do_epoll_ctl|ep_insert)[+]')" 2000
# The call site is the caller of the bulk call, not the exception that caught it.
between "freed in bulk" "$(seen FREE . '^(kvfree_rcu_bulk|kfree_rcu_work|kfree_rcu_monitor)[+]')" 1900 2100
! grep -q -E 'el1h_64|brk_handler|kprobe' text || fail "frames of an exception: $(cat text)"
