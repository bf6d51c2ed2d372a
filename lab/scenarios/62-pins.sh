# SPDX-License-Identifier: GPL-2.0-only
# lane: 3
# limit: 60 s
# Pins CMA pages with the kernel's own pin test. The adapter logs at most one line per 5 s, so pins
# that must not be reported come first, while a line could still be logged.
. /lab/scenarios/lib.sh

reported() { # TASK FUNCTION PAGE
	klog | grep -E -q "$(adapter_line show_pinner "$1 $2 \[$3-$3\]")" || {
		klog | tail -n 20
		fail "not reported: $1 $2 $3"
	}
}
next_interval() {
	sleep 5.1
}

fill_memory 120000

# This kernel has no try_grab_page: the probe before it stays, the one after it is not tried.
load ember tarn_smmu hook_bridge tarn_mem_adapter
expect_line pin_track_init 'folio_add_pin_kp Planted kprobe at 0x'
log_has 'try_grab_page_kp register_kprobe failed, returned -2$' || fail "no try_grab_page_kp line"
! log_has 'try_grab_folio_kp' || fail "try_grab_folio_kp was tried"
unload tarn_mem_adapter
forget_log

# With a function of that name all three probes are there.
load pin_bridge tarn_mem_adapter
undo "rmmod tarn_mem_adapter; rmmod pin_bridge"
for probe in folio_add_pin try_grab_page try_grab_folio; do
	expect_line pin_track_init "${probe}_kp Planted kprobe at 0x"
done
background tarnctl pins --count 1 --json >followed
follower=$!
follows() {
	for fd in "/proc/$follower/fd"/*; do
		[ "$(readlink "$fd")" != /dev/kmsg ] || return 0
	done
	return 1
}
await 10 follows
pin app get >/dev/null
pin app movable >/dev/null
for task in fio crash_dump64 "Signal Catcher" RenderThread; do
	pin "$task" pin >/dev/null
done
no_line show_pinner .

page=$(pin app pin)
reported app try_grab_folio "$page"
await 10 grep -q . followed
equal "what tarnctl pins says" "$(sed 's/"time_us":[1-9][0-9]*,//' followed)" \
	"{\"task\":\"app\",\"function\":\"try_grab_folio\",\"first_pfn\":$((page)),\"last_pfn\":$((page)),\"pages\":1}"
wait $follower || fail "tarnctl pins: exit status $?"
pin late pin >/dev/null
no_line show_pinner 'late '
next_interval
reported fio2 folio_add_pin "$(pin fio2 add)"
next_interval
reported RenderThread2 try_grab_page "$(pin RenderThread2 page)"
