# SPDX-License-Identifier: GPL-2.0-only
# limit: 90 s
# Loads and unloads the modules while eight processes allocate and free as fast as they can, CMA
# ranges come and go, a page is pinned over and over, and tracking is switched on and off, read and
# abandoned all the time.
. /lab/scenarios/lib.sh

# The adapter probes a function of this module, so this module is unloaded after it.
load pin_bridge
undo "unload_all; rmmod pin_bridge"
# Start this first: it fills the memory to find its page.
fill_memory 120000
background pin pinner storm camera >pinned
await 20 grep -q 0x pinned
release_memory
background dma_heap mix linux,cma 4000000000 1 >held
background churn 8 >busy
await 10 grep -q busy busy

round=0
while [ "$round" -lt 4 ]; do
	forget_log
	load_all
	case $round in
	0) set_target filp ;;
	1) set_target vm_area_struct ;;
	2) set_target names_cache ;;
	3) set_target ;;
	esac
	memcheck on vmalloc
	: >text
	cycles=0
	while [ "$cycles" -lt 3 ] || { [ "$round" -lt 3 ] && ! grep -q '@@@@@' text; }; do
		[ "$cycles" -lt 20 ] || fail "round $round: nothing recorded"
		memcheck prepare slab
		memcheck on slab
		cat /proc/vmallocinfo >/dev/null
		memcheck off slab
		memcheck read 4096 >>text
		cycles=$((cycles + 1))
	done
	cat "/sys/kernel/debug/tarn_cma/linux,cma/show" >/dev/null
	expect_line show_info 'linux,cma \['
	expect_line show_pinner 'pinner try_grab_folio \[0x'
	memcheck prepare slab
	memcheck on slab
	# Every second time the adapter is unloaded while it records, otherwise with records left.
	[ $((round % 2)) -eq 0 ] || memcheck off slab
	unload_all || fail "round $round: cannot unload"
	round=$((round + 1))
done

# Several processes switch tracking at once.
load_all
set_target filp
for _ in 1 2 3 4; do
	(
		for _ in 1 2 3 4 5; do
			memcheck prepare slab
			memcheck on slab
			memcheck read 65536 >/dev/null
			memcheck off slab
		done
	) &
	switchers="${switchers:-} $!"
done
for switcher in $switchers; do
	wait "$switcher" || fail "a switch failed"
done
equal "tracking at the end" "$(cat "$parameters"/slub_track_flag)" 0
equal "drain threads" "$(cat /proc/[0-9]*/comm 2>/dev/null | grep -c '^slub-')" 2
