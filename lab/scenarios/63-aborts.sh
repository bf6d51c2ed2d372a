# SPDX-License-Identifier: GPL-2.0-only
# limit: 40 s
# The switches that end madvise passes and compaction early: with them off the kernel does its work,
# with them on it does none.
. /lab/scenarios/lib.sh

add_zram
echo 64M >/sys/block/zram"$zram"/disksize
mkswap /dev/zram"$zram" >/dev/null
swapon /dev/zram"$zram"
undo "swapoff /dev/zram$zram"
load ember tarn_smmu hook_bridge tarn_mem_adapter
expect_line abort_mm_opt_init 'init succeed!'

scanned() {
	awk '/^compact_migrate_scanned|^compact_free_scanned/ { sum += $2 } END { print sum }' /proc/vmstat
}
compaction() {
	before=$(scanned)
	echo 1 >/proc/sys/vm/compact_memory
	echo $(($(scanned) - before))
}
madvise_line=$(adapter_line should_abort_madvise 'set abort_madvise_opt success!')
compact_line=$(adapter_line should_abort_compact 'set abort_compact_opt success!')

forget_log
at_least "KiB paged out" "$(page_out 8)" 4096
pages=$(compaction)
at_least "pages scanned" "$pages" 1000
! log_has "$madvise_line|$compact_line" || fail "aborts with the switches off"

echo 5 >$parameters/abort_madvise
equal "KiB paged out with the switch on" "$(page_out 8)" 0
at_least "lines" "$(log_count "$madvise_line")" 1
equal "lines of the other" "$(log_count "$compact_line")" 0
echo 0 >$parameters/abort_madvise
at_least "KiB paged out again" "$(page_out 8)" 4096

echo 1 >$parameters/abort_compact
[ "$(compaction)" -lt $((pages / 2)) ] || fail "compaction goes on with the switch on"
at_least "lines" "$(log_count "$compact_line")" 1
echo 0 >$parameters/abort_compact
forget_log
at_least "pages scanned again" "$(compaction)" $((pages / 2))
equal "lines" "$(log_count "$compact_line")" 0
