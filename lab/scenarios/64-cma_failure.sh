# SPDX-License-Identifier: GPL-2.0-only
# lane: 3
# limit: 40 s
# What is logged about the pages of a failed allocation: the free blocks up to the first page in
# use, and three pages from there on, as the kernel dumps them. The kernel moves pages that are in
# the way of an allocation, so the test holds one in its place.
. /lab/scenarios/lib.sh

cma=/sys/kernel/debug/cma/camera
load ember tarn_smmu hook_bridge tarn_mem_adapter
fill_memory 120000
background pin holder hold camera >pinned
pid=$!
await 20 grep -q 0x pinned
release_memory
held=$(($(cat pinned)))
base=$(cat $cma/base_pfn)
count=$(cat $cma/count)
equal "pages used before" "$(cat $cma/used)" 0

forget_log
refused sh -c "echo $count >$cma/alloc"
expect_line vh_cma_alloc 'detect cma_alloc fail, ret=-16$'
expect_line show_brief "camera .* used:0 req:$count lasttry-pfn:$(printf 0x%x "$base")\$"
klog >log
sed -n 's/.*\[MEM_ADAPTER\] show_cma_pages:[0-9]*: FreePage:\[\(0x[0-9a-f]*\)-\(0x[0-9a-f]*\)\]$/\1 \2/p' \
	log >blocks
next=$base
while read -r first last; do
	equal "first page of a free block" "$((first))" "$next"
	next=$((last + 1))
	# A block has 2^n pages and is aligned to its size.
	size=$((next - first))
	equal "pages of a free block" $((size & (size - 1) | (first & (size - 1)))) 0
done <blocks
at_least "free blocks" "$(wc -l <blocks)" 1
equal "first page that is not free" "$(printf 0x%x "$next")" "$(printf 0x%x $held)"
equal "pages shown" "$(sed -n 's/.*page: refcount:.* pfn:\(0x[0-9a-f]*\)$/\1/p' log | tr '\n' ' ')" \
	"$(printf '0x%x 0x%x 0x%x ' $held $((held + 1)) $((held + 2)))"
equal "reasons" "$(log_count 'page dumped because: cma_alloc fail$')" 3

# Nothing else is in the way.
kill $pid
wait $pid || true
forget_log
echo "$count" >$cma/alloc
echo "$count" >$cma/free
no_line show_cma_pages .
