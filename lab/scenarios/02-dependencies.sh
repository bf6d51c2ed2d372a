# SPDX-License-Identifier: GPL-2.0-only
# The adapter refuses to load without the modules that it hangs on, and the loader finds them by
# itself. It does load without the hooks.
. /lab/scenarios/lib.sh

adapter=/lib/modules/$(uname -r)/tarn_mem_adapter.ko

load tarn_smmu hook_bridge
refused insmod "$adapter"
log_has "tarn_mem_adapter: Unknown symbol cdev_tevent_" || fail "ember is not missed"

unload_all
load ember hook_bridge
refused insmod "$adapter"
log_has "tarn_mem_adapter: Unknown symbol tarn_iommu_" || fail "tarn_smmu is not missed"

# A kernel without the hooks: what rests on them stays off, and is said to, the rest works. By file,
# since the loader would bring the hooks along.
unload_all
load ember tarn_smmu
forget_log
insmod "$adapter"
insmod "${adapter%/*}/tarn_client.ko"
! loaded hook_bridge || fail "hook_bridge was loaded along"
for hook in update_page_mapcount customize_alloc_gfp slab_alloc_node slab_free save_vmalloc_stack \
	show_stack_hash vmscan_kswapd_done alloc_pages_slowpath mm_direct_reclaim_enter \
	madvise_cold_or_pageout_abort compact_finished; do
	log_has "tarn_mem_adapter: the kernel has no hook android_vh_$hook: what rests on it stays off$" ||
		fail "$hook is not missed"
done
equal "hooks that are missed" "$(log_count 'no hook ')" 11
expect_line tarn_mem_adapter_init "tarn_updata_page_mapcount register fail, ret -2\."
expect_line tarn_mem_adapter_init "vh_customize_alloc_gfp register fail, ret -2\."
expect_line register_abort_mm_opt_vendor_hooks ".*madvise_cold_or_pageout_abort failed! ret=-2"
no_line abort_mm_opt_init 'init succeed!'
equal "memory tracking" "$(cat "$parameters"/memtrack_init_state)" 0
expect_line tarn_memtrack_init "slub_track_init fail"
refused memcheck on slab
memcheck read >text
[ ! -s text ] || fail "records without a tracker: $(cat text)"
tarnctl pages >text
between "free pages" "$(sed -n 's/^free //p' text)" 1 $(($(memory MemTotal) / 4))
echo 1 >/sys/kernel/mm_event/enabled
await 5 grep -q 'event 1000' "$events"
tarnctl thresholds set slab_k=0 >/dev/null
equal "thresholds" "$(memcheck leaks)" 1
unload_all

# The loader finds all that the client needs.
modprobe tarn_client || fail "modprobe tarn_client"
for module in ember tarn_smmu hook_bridge tarn_mem_adapter; do
	loaded "$module" || fail "$module was not loaded along"
done
