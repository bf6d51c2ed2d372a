# SPDX-License-Identifier: GPL-2.0-only
# lane: 3
# limit: 80 s
# While memory is above its threshold, lmkd is notified of slab and of vmalloc memory once per
# interval (7500 jiffies, or 30 s): again when the interval is over, not before and not much later,
# no matter how much is allocated.
. /lab/scenarios/lib.sh

load_all
add_zram
tarnctl watch --count 4 --seconds $((60 * LAB_SLOW)) >heard 2>&1 &
watcher=$!
await 10 grep -q -i regist heard
tarnctl thresholds set slab_leak_k=1 vmalloc_leak_k=1 >/dev/null
# A few allocations of both kinds per second; other guests need the processors.
while kill -0 "$watcher" 2>/dev/null; do
	echo 1M >/sys/block/zram"$zram"/disksize
	echo 1 >/sys/block/zram"$zram"/reset
	sleep 0.3
done
wait "$watcher" || fail "watch: $(cat heard)"
tarnctl thresholds set slab_leak_k=4294967295 vmalloc_leak_k=4294967295 >/dev/null

# The times of the two notifications of one kind, in milliseconds.
for kind in "slab leak" "vmalloc leak"; do
	grep "$kind" heard | sed 's/^[^T]*T\([0-9]*\):\([0-9]*\):\([0-9.]*\)Z.*/\1 \2 \3/' |
		awk '{ now = ($1 * 60 + $2) * 60 + $3; if (NR > 1) print int((now - last) * 1000); last = now }' \
			>distance
	equal "$kind, notifications after the first" "$(wc -l <distance)" 1
	between "$kind, milliseconds between" "$(cat distance)" 29900 $((31000 + 1000 * LAB_SLOW))
done

# Both are counted, for the next report to the event service.
echo 1 >/sys/kernel/mm_event/enabled
await 5 grep -q 'event 1000' "$events"
equal "events of slots 6 and 7" "$(sed 's/.*\(record_event=[0-9]* record_event=[0-9]*\)$/\1/' "$events")" \
	"record_event=2 record_event=2"
