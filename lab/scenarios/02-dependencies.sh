# SPDX-License-Identifier: GPL-2.0-only
# The adapter does not load without the modules it depends on, and modprobe finds those by itself.
# It does load without the hooks.
. /lab/scenarios/lib.sh

adapter=/lib/modules/$(uname -r)/tarn_mem_adapter.ko

load tarn_smmu hook_bridge
refused insmod "$adapter"
log_has "tarn_mem_adapter: Unknown symbol cdev_tevent_" || fail "loading does not fail for lack of ember"

unload_all
load ember hook_bridge
refused insmod "$adapter"
log_has "tarn_mem_adapter: Unknown symbol tarn_iommu_" || fail "loading does not fail for lack of tarn_smmu"

# A kernel without the hooks: the adapter logs each missing hook and leaves off what needs it; the
# rest works. Load by file, since modprobe would load the hooks too.
unload_all
load ember tarn_smmu
forget_log
insmod "$adapter"
insmod "${adapter%/*}/tarn_client.ko"
! loaded hook_bridge || fail "hook_bridge was loaded too"
for hook in update_page_mapcount customize_alloc_gfp slab_alloc_node slab_free save_vmalloc_stack \
	show_stack_hash vmscan_kswapd_done alloc_pages_slowpath mm_direct_reclaim_enter \
	madvise_cold_or_pageout_abort compact_finished; do
	log_has "tarn_mem_adapter: the kernel has no hook android_vh_$hook: features that need it stay off$" ||
		fail "$hook is not reported as missing"
done
equal "missing hooks" "$(log_count 'no hook ')" 11
expect_line tarn_mem_adapter_init "tarn_updata_page_mapcount register fail, ret -2\."
expect_line tarn_mem_adapter_init "vh_customize_alloc_gfp register fail, ret -2\."
expect_line register_abort_mm_opt_vendor_hooks ".*madvise_cold_or_pageout_abort failed! ret=-2"
no_line abort_mm_opt_init 'init succeed!'
equal "memory tracking" "$(cat "$parameters"/memtrack_init_state)" 0
expect_line tarn_memtrack_init "slub_track_init fail"
refused memcheck on slab
memcheck read >text
[ ! -s text ] || fail "readout without a tracker: $(cat text)"
tarnctl pages >text
between "free pages" "$(sed -n 's/^free //p' text)" 1 $(($(memory MemTotal) / 4))
echo 1 >/sys/kernel/mm_event/enabled
await 5 grep -q 'event 1000' "$events"
tarnctl thresholds set slab_k=0 >/dev/null
equal "thresholds" "$(memcheck leaks)" 1
unload_all

# modprobe finds everything that the client needs.
modprobe tarn_client || fail "modprobe tarn_client"
for module in ember tarn_smmu hook_bridge tarn_mem_adapter; do
	loaded "$module" || fail "$module was not loaded"
done
