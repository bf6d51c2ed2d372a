# SPDX-License-Identifier: GPL-2.0-only
# lane: 3
# limit: 60 s
# After ten thousand random allocations and releases, the records of an area cover exactly the bits
# that are set in the kernel's bitmap. No tolerance: bits from before the adapter was loaded are
# left out, and nobody else uses the area.
. /lab/scenarios/lib.sh

cat "/sys/kernel/debug/cma/linux,cma/bitmap" >before
load ember tarn_smmu hook_bridge tarn_mem_adapter
mkfifo keep
(dma_heap mix linux,cma 10000 1 <keep >held) &
exec 5>keep
await 50 grep -q held held
forget_log
equal "what show reads" "$(cat "/sys/kernel/debug/tarn_cma/linux,cma/show")" 0
klog | cma_agree linux,cma before >agreed || fail "$(cat held)"
[ "$(cut -d ' ' -f 1 agreed)" -gt 100 ] || fail "too few ranges for a meaningful comparison: $(cat agreed)"
exec 5>&-
wait
forget_log
cat "/sys/kernel/debug/tarn_cma/linux,cma/show" >/dev/null
equal "records at the end" "$(klog | cma_agree linux,cma before)" "0 bits"
