# SPDX-License-Identifier: GPL-2.0-only
# limit: 60 s
# Checks reclaim, drops and compaction against /proc/meminfo, mincore and /proc/buddyinfo. A drop
# skips pages that a processor still holds in the batch for the LRU lists: at most 31 per processor,
# 62 pages here. Other counts change by less than 1 MiB through the guest's own activity.
. /lab/scenarios/lib.sh

load_all
echo 32M >/sys/block/zram1/disksize
undo "echo 1 >/sys/block/zram1/reset"
# Only reclaim writes back pages. Without min_ratio a new device could have only a few dirty pages.
echo 90 >/sys/block/zram1/bdi/min_ratio
undo "echo 0 >/sys/block/zram1/bdi/min_ratio"
for knob in dirty_writeback_centisecs dirty_expire_centisecs; do
	undo "echo $(cat /proc/sys/vm/$knob) >/proc/sys/vm/$knob"
done
echo 0 >/proc/sys/vm/dirty_writeback_centisecs
echo 360000 >/proc/sys/vm/dirty_expire_centisecs

part() { # NAME of the last result of cache_parts
	sed -n "s/^$1 //p" parts
}
shown() { # before|after NAME of tarnctl's last result
	awk -v when="\"$1\":" -v name="\"$2\":" '
		$1 == when { on = 1 }
		on && $1 == name { print $2 + 0; exit }' result
}

# The page cache of a block device: clean pages are dropped, mapped and dirty ones stay.
cache_parts /dev/zram1 drop >parts
for name in clean mapped dirty; do
	equal "$name before the drop" "$(part ${name}_before)" 2048
done
between "clean after the drop" "$(part clean_after)" 0 62
equal "mapped after the drop" "$(part mapped_after)" 2048
equal "dirty after the drop" "$(part dirty_after)" 2048

# Reclaim takes clean pages and reports how many; try several orders.
trace=$tracing/events/vmscan/mm_vmscan_direct_reclaim_begin/enable
echo >"$tracing"/trace
echo 1 >"$trace"
undo "echo 0 >$trace; echo >$tracing/trace"
for bytes in 4096 4097 4194304; do
	stolen=$(awk '$1 == "pgsteal_direct" { print $2 }' /proc/vmstat)
	cache_parts /dev/zram1 reclaim $bytes >parts
	stolen=$(($(awk '$1 == "pgsteal_direct" { print $2 }' /proc/vmstat) - stolen))
	at_least "reclaimed for $bytes" "$(part reclaimed)" 1
	# The reported number includes slab pages. For a large block that compaction can provide,
	# reclaim takes nothing and reports 1.
	between "reclaimed for $bytes, by the kernel" "$stolen" $((bytes < 65536)) "$(part reclaimed)"
	equal "PF_MEMALLOC after the reclaim" "$(part memalloc)" 0
done
equal "orders" "$(sed -n 's/.*cache_parts-.*order=\([0-9]*\) .*/\1/p' "$tracing"/trace | tr '\n' ' ')" \
	"0 1 10 "
equal "flags of the reclaim" "$(grep -c "cache_parts-.*GFP_HIGHUSER_MOVABLE" "$tracing"/trace)" 3
tarnctl reclaim 4K >result || equal "status of a reclaim without result" $? 1
grep -q '^asked for 4096 bytes, reclaimed [0-9]* pages$' result || fail "$(cat result)"
refused tarnctl reclaim much

# Slab: a walk through sysfs leaves dentries and inodes behind. They are freed after a grace period.
find /sys/devices /sys/kernel /sys/module >/dev/null
tarnctl drop slab --json >result
before=$(shown before SReclaimable)
slab_before=$(shown before Slab)
dropped() { # KIB
	[ $((before - $(memory SReclaimable))) -ge "$1" ] && [ $((slab_before - $(memory Slab))) -ge "$1" ]
}
await 5 dropped 1024

# The page cache in the kernel's totals, on a device that stays open.
exec 5</dev/zram1
undo "exec 5<&-"
cat <&5 >/dev/null
tarnctl drop pages --json >result
dropped=$(($(shown before Buffers) - $(shown after Buffers)))
at_least "page cache dropped, KiB" "$dropped" $((32768 - 62 * 4))
refused tarnctl drop everything
tarnctl drop all >result
grep -q '^dropped: all$' result || fail "$(cat result)"

# Single free pages are scattered all over memory; compaction must make large blocks of at least a
# third of them. Freed pages first go to per-CPU lists, which must not keep thousands of them.
fraction=/proc/sys/vm/percpu_pagelist_high_fraction
undo "echo $(cat $fraction) >$fraction"
echo 100000 >$fraction
large_blocks() { # FILE: free pages in blocks of 512 and more
	awk '$4 == "DMA32" || $4 == "Normal" { n += $14 * 512 + $15 * 1024 } END { print n + 0 }' "$1"
}
mib=$(($(memory MemFree) * 3 / 4 / 1024))
[ "$mib" -le 160 ] || mib=160
background fragment "$mib" >fragments
await 30 grep -q ready fragments
cat /proc/buddyinfo >before
runs=$(awk '$1 == "compact_isolated" { print $2 }' /proc/vmstat)
tarnctl compact >result
cat /proc/buddyinfo >after
grep -E '^(compact|pgmigrate)_' /proc/vmstat
cat before after
echo "free pages in large blocks: $(large_blocks before) -> $(large_blocks after) of $((mib * 128))"
at_least "large blocks" "$(large_blocks after)" $(($(large_blocks before) + mib * 128 / 3))
[ "$(awk '$1 == "compact_isolated" { print $2 }' /proc/vmstat)" -gt "$runs" ] ||
	fail "nothing was moved"
grep -q 'DMA32 free blocks after:  [0-9 ]*$' result || fail "$(cat result)"
