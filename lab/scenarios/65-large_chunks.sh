# SPDX-License-Identifier: GPL-2.0-only
# lane: 5
# kernel: phone
# limit: 40 s
# An area of contiguous memory whose bitmap has a bit for each 2 MiB, as the one for huge pages.
# Records are in pages; the usage in the log and the limit of the warning are in bits. 512 bits are
# so few that the limit is 0.
. /lab/scenarios/lib.sh

cma=/sys/kernel/debug/cma/hugetlb0
tarn=/sys/kernel/debug/tarn_cma/hugetlb0
pool=/sys/kernel/mm/hugepages/hugepages-32768kB/nr_hugepages
pages=$((32 << 8)) # in one huge page
bits=16

equal "order of a bit" "$(cat $cma/order_per_bit)" 9
cp $cma/bitmap before
load ember tarn_smmu hook_bridge tarn_mem_adapter
undo "echo 0 >$pool"
printf hugetlb0 >$parameters/cma_target
echo 250 >$parameters/cma_warn_limit_permillage

warning=$(adapter_line cma_show_when_exceed 'cma warn hugetlb0 has been used exceed 250/1024')
forget_log
echo 1 >$pool
equal "warnings at the first page" "$(log_count "$warning")" 1
echo 9 >$pool
equal "huge pages" "$(cat $pool)" 9
equal "used pages" "$(cat $cma/used)" $((9 * pages))
equal "warnings later" "$(log_count "$warning")" 1

forget_log
equal "what show reads" "$(cat $tarn/show)" 0
expect_line show_brief "hugetlb0 valid_pfn=.* used:$((9 * bits)) "
equal "records" "$(log_count "$(adapter_line show_info "hugetlb0 \[[0-9]+-[0-9]+\] count:$pages")")" 9
klog | cma_agree hugetlb0 before >/dev/null || fail "records and bitmap differ"
tarnctl cma --json >cma.json
grep -q '"name": "hugetlb0"' cma.json || fail "$(cat cma.json)"

echo 0 >$pool
forget_log
equal "what show reads" "$(cat $tarn/show)" 0
klog | cma_agree hugetlb0 before >/dev/null || fail "records and bitmap differ at the end"
no_line show_info 'hugetlb0 '
