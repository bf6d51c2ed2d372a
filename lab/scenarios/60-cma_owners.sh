# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 40 s
# Who holds CMA memory: records and their stacks, failures, the usage warning and its target. Ranges
# are allocated through the kernel's own CMA files and a DMA heap.
. /lab/scenarios/lib.sh

cma=/sys/kernel/debug/cma
tarn=/sys/kernel/debug/tarn_cma
cat $cma/linux,cma/bitmap >before
load ember tarn_smmu hook_bridge tarn_mem_adapter

field() { # AREA NAME
	cat "$cma/$1/$2"
}
show() { # AREA
	forget_log
	equal "what $1/show reads" "$(cat "$tarn/$1/show")" 0
}
records() { # AREA
	log_count "$(adapter_line show_info "$1 \[[0-9]+-[0-9]+\] count:")"
}
equal "directories" "$(echo "$tarn"/*)" "$tarn/camera $tarn/linux,cma"
equal "permissions" "$(stat -c %a "$tarn/camera/show")" 444
for area in linux,cma camera; do
	show $area
	base=$(field $area base_pfn)
	count=$(field $area count)
	used=$(field $area used)
	expect_line show_brief "$area valid_pfn=\[$base-$((base + count - 1))\] count:$count used:$used req:0 lasttry-pfn:0x0"
	equal "records of $area" "$(records $area)" 0
done

# Allocate and free ranges; the areas are independent.
for pages in 16 32 64; do
	echo $pages >$cma/linux,cma/alloc
done
echo 8 >$cma/camera/alloc
mkfifo keep
(dma_heap hold linux,cma 5 7 <keep >held) &
exec 5>keep
await 5 grep -q held held
show linux,cma
equal "records" "$(records linux,cma)" 5
equal "records of the other area" "$(records camera)" 0
expect_line show_info ' +dma_heap_ioctl'
expect_line show_info ' +cma_alloc_write'
klog | cma_agree linux,cma before >/dev/null || fail "records and bitmap differ"
exec 5>&-
wait
echo 64 >$cma/linux,cma/free
show linux,cma
equal "records after a release" "$(records linux,cma)" 2
klog | cma_agree linux,cma before >/dev/null || fail "records and bitmap differ"
show camera
equal "records of the other area" "$(records camera)" 1

# Allocate more than there is: each failure logs the summary, and the listing comes once per
# interval.
forget_log
for i in 1 2 3; do
	refused sh -c "echo $(($(field camera count) + 1 - i)) >$cma/camera/alloc"
done
equal "failures" "$(log_count "$(adapter_line vh_cma_alloc 'detect cma_alloc fail, ret=-[0-9]+')")" 3
equal "summaries" "$(log_count "$(adapter_line show_brief 'camera .*req:[1-9]')")" 3
equal "listings" "$(records camera)" 1

# The warning comes once, at the first allocation that exceeds the limit.
limit=$(($(field linux,cma count) / 1024 * 850))
warning=$(adapter_line cma_show_when_exceed 'cma warn linux,cma has been used exceed 850/1024')
fill() { # PAGES
	while [ "$1" -gt "$(field linux,cma used)" ]; do
		left=$(($1 - $(field linux,cma used)))
		echo $((left > 512 ? 512 : left)) >$cma/linux,cma/alloc
	done
}
forget_log
fill "$limit"
equal "warnings at the limit" "$(log_count "$warning")" 0
echo 1 >$cma/linux,cma/alloc
equal "warnings above it" "$(log_count "$warning")" 1
echo 1 >$cma/linux,cma/alloc
equal "warnings later" "$(log_count "$warning")" 1

# A new target is looked up and checked at its next allocation. When the first target is set again,
# it warns again.
printf camera >$parameters/cma_target
echo 300 >$parameters/cma_warn_limit_permillage
forget_log
while [ "$(field camera used)" -le $((4 * 300)) ]; do
	no_line cma_show_when_exceed 'cma warn'
	echo 256 >$cma/camera/alloc
done
expect_line cma_show_when_exceed 'cma warn camera has been used exceed 300/1024'
printf nobody >$parameters/cma_target
forget_log
echo 1 >$cma/camera/alloc
echo 1 >$cma/linux,cma/alloc
no_line cma_show_when_exceed 'cma warn'
printf linux,cma >$parameters/cma_target
echo 1 >$cma/linux,cma/alloc
expect_line cma_show_when_exceed 'cma warn linux,cma has been used exceed 300/1024'

# On request, each step is logged with its stack.
forget_log
echo 1 >$parameters/cma_show_backtrace
echo 2 >$cma/camera/alloc
echo 2 >$cma/camera/free
expect_line add_cma_stackinfo 'camera \[[0-9]+-[0-9]+\] add'
expect_line __check_and_del 'camera \[[0-9]+-[0-9]+\] del'
expect_line get_track_stack_handle ' +cma_free_write'

# tarnctl's picture of the area: all used pages are tracked and have one owner, and the map, with
# one character for four pages, matches the kernel's bitmap.
show camera
base=$(field camera base_pfn)
count=$(field camera count)
used=$(field camera used)
ranges=$(records camera)
tarnctl cma camera >picture
in_picture() { # EXTENDED REGEX of a line
	grep -E -q -x -- "$1" picture || {
		cat picture
		fail "missing from the picture: $1"
	}
}
at_least "ranges" "$ranges" 4
in_picture "  range    pfn $base to $((base + count - 1)): $count pages, $((count * 4)) KiB"
in_picture "  used     $used pages, [0-9.]+ %"
in_picture "  tracked  $used pages in $ranges ranges"
in_picture " *$used pages in $ranges ranges"
in_picture ' +cma_alloc_write\+0x[0-9a-f]+/0x[0-9a-f]+'
in_picture '  a character stands for 4 pages \(16 KiB\); \. free; # tracked.*'
equal "map" "$(sed -n 's/^  *[0-9]*  \([.#+x?]*\)$/\1/p' picture | tr -d '\n')" \
	"$(tr ' ' '\n' <$cma/camera/bitmap | grep . | awk '{
		word = $1
		for (cell = 0; cell < 8; cell++) {
			four = word % 16
			word = (word - four) / 16
			printf four == 15 ? "#" : four ? "+" : "."
		}
	}')"

# Without a name, every area is shown.
equal "areas" "$(tarnctl cma | sed -n 's/^CMA area //p' | tr '\n' ' ')" "camera linux,cma "

# An untracked page is older than the module, unless the module had no memory to record it.
equal "unrecorded ranges" "$(cat "$parameters/cma_unrecorded")" 0
unload tarn_mem_adapter
load tarn_mem_adapter
tarnctl cma camera >picture
in_picture "  tracked  0 pages in 0 ranges; $used pages used but not tracked: allocated before the module was loaded"

for area in linux,cma camera; do
	# Free everything that these files allocated; the kernel's own allocations remain.
	field $area count >$cma/$area/free
	show $area
	equal "records of $area" "$(records $area)" 0
done
