# SPDX-License-Identifier: GPL-2.0-only
# lane: 4
# limit: 60 s
# Compares the watermark check for every zone and the orders 0 to 10 with the same rule computed
# from /proc/zoneinfo and /proc/pagetypeinfo, in a guest with a normal and a movable zone. A zone's
# count can differ from its true number of free pages by what two processors have not added yet, at
# most 125 pages each. Answers within 250 pages of a mark therefore do not count, nor do answers
# whose state changed meanwhile. At most one answer in four may be left open for these reasons.
. /lab/scenarios/lib.sh

load_all
services gfp

# Sets what the watermarks are computed from: a minimum, and the distance between two marks in
# 10000ths of a zone.
set_marks() { # KIB SHARE
	echo "$1" >/proc/sys/vm/min_free_kbytes
	echo "$2" >/proc/sys/vm/watermark_scale_factor
}
undo "set_marks $(cat /proc/sys/vm/min_free_kbytes) $(cat /proc/sys/vm/watermark_scale_factor)"

compare() { # WHAT
	watermarks 250 >result || fail "$1: $(cat result)"
	echo "$1: $(cat result)"
	yes=$(sed -n 's/^yes \([0-9]*\) .*/\1/p' result)
	no=$(sed -n 's/.* no \([0-9]*\) .*/\1/p' result)
	open=$(sed -n 's/.* open \([0-9]*\)$/\1/p' result)
	at_least "$1: answers that count" "$((yes + no))" "$((open * 3))"
}

# Zones below the 32-bit one are never judged: 22 answers are always yes.
set_marks 1024 10
compare "low marks"
at_least "low marks: room" "$yes" 28
at_least "low marks: no room" "$no" 2

# Leave free memory mostly in single pages, in all zones above the 32-bit one.
kib=$(awk '$1 == "Node" { zone = $4 } zone != "DMA32" && $1 == "managed" { n += $2 * 4 }
	END { print n }' /proc/zoneinfo)
background fragment $((kib / 1024)) >fragments
await 30 grep -q ready fragments
compare "fragmented"
at_least "fragmented: no room" "$no" 5

set_marks 1024 3000
compare "high marks"
equal "high marks: room" "$yes" 22

# tarnctl reports the answer in its exit status.
tarnctl watermark --zone 0 --order 9 >result
grep -q '^zones up to 0, order 9: room$' result || fail "$(cat result)"
status=0
tarnctl watermark --zone 1 --json >result || status=$?
equal "status without room" "$status" 1
grep -q '"room": false' result || fail "$(cat result)"
refused tarnctl watermark --zone 99
