# SPDX-License-Identifier: GPL-2.0-only
# lane: 4
# limit: 60 s
# The watermark check for every zone and the orders 0 to 10, against the rule worked out from
# /proc/zoneinfo and /proc/pagetypeinfo, in a guest with a normal and a movable zone. A zone's
# count and its true number of free pages differ by what two processors keep to themselves, at most
# 125 pages each: answers within 250 pages of a mark do not count, nor those whose state changes
# around them. At most one in four may be left open that way.
. /lab/scenarios/lib.sh

load_all
services gfp

# What the marks are made of: a least amount, and a share of each zone in 10000 between two marks.
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

# Nothing below the 32-bit zone is ever judged: 22 answers are always yes.
set_marks 1024 10
compare "low marks"
at_least "low marks: room" "$yes" 33
at_least "low marks: no room" "$no" 2

# Free memory mostly in single pages, in all zones above the 32-bit one.
kib=$(awk '$1 == "Node" { zone = $4 } zone != "DMA32" && $1 == "managed" { n += $2 * 4 }
	END { print n }' /proc/zoneinfo)
background fragment $((kib / 1024)) >fragments
await 30 grep -q ready fragments
compare "fragmented"
at_least "fragmented: no room" "$no" 5

set_marks 1024 3000
compare "high marks"
equal "high marks: room" "$yes" 22

# The command line tells by its status.
tarnctl watermark --zone 0 --order 9 >result
grep -q '^zones up to 0, order 9: room$' result || fail "$(cat result)"
status=0
tarnctl watermark --zone 1 --json >result || status=$?
equal "status without room" "$status" 1
grep -q '"room": false' result || fail "$(cat result)"
refused tarnctl watermark --zone 99
