# SPDX-License-Identifier: GPL-2.0-only
# Checks which parameters exist, with their permissions and values, before and after the client
# starts the subsystems; and the exports, all of which the client links to.
. /lab/scenarios/lib.sh

load ember tarn_smmu hook_bridge tarn_mem_adapter

cat >wanted <<END
644 abort_compact 0
644 abort_madvise 0
644 cma_show_backtrace 0
644 cma_target linux,cma
444 cma_unrecorded 0
644 cma_warn_limit_permillage 850
444 memtrack_init_state 0
444 netlink_init 0
644 slab_k 1048576
644 slab_leak_k 1048576
444 slub_dropped 0,0
444 slub_lost 0,0
444 slub_recorded 0,0
444 slub_skipped 0,0
644 slub_track_flag 0
644 specified_target (null)
644 vmalloc_k 1048576
644 vmalloc_leak_k 1048576
644 vmalloc_track_flag 0
END
show_parameters() {
	for parameter in "$parameters"/*; do
		echo "$(stat -c %a "$parameter") ${parameter##*/} $(cat "$parameter")"
	done
}
show_parameters >got
diff wanted got || fail "parameters at load"

load tarn_client
twelfth=$(($(memory MemTotal) / 12))
sed -i "s/ 1048576/ $twelfth/; s/netlink_init 0/netlink_init 1/; s/init_state 0/init_state 1/" wanted
show_parameters >got
diff wanted got || fail "parameters after the start"

for name in netlink_init memtrack_init_state; do
	refused sh -c "echo 5 >$parameters/$name"
	equal "$name after a write" "$(cat "$parameters"/$name)" 1
done
refused sh -c "echo many >$parameters/slab_k"
refused sh -c "echo 4294967296 >$parameters/slab_k"
refused sh -c "echo -1 >$parameters/slab_k"
equal slab_k "$(cat "$parameters"/slab_k)" "$twelfth"
echo 4294967295 >"$parameters"/slab_k
equal slab_k "$(cat "$parameters"/slab_k)" 4294967295
equal "slab_k by tarnctl" "$(tarnctl thresholds | grep '^slab_k ')" "slab_k 4294967295 kB"

tarnctl thresholds set slab_k=4096 vmalloc_leak_k=0 >/dev/null
equal "set by tarnctl" \
	"$(cat "$parameters"/slab_k "$parameters"/vmalloc_leak_k "$parameters"/vmalloc_k | tr '\n' ' ')" \
	"4096 0 $twelfth "

# Values given at load last until the client starts.
unload tarn_client tarn_mem_adapter
modprobe tarn_mem_adapter slab_k=77 specified_target=filp
equal "slab_k given at load" "$(cat "$parameters"/slab_k)" 77
equal "target given at load" "$(cat "$parameters"/specified_target)" filp

# The lists of exports were made when the initramfs was built.
sort >wanted <<END
find_task_mm
lmkd_notify
tarn_change_page_flag
tarn_change_secpage_range
tarn_compact
tarn_cpa_get_zram_watermark_page
tarn_direct_kill
tarn_drop_pagecache
tarn_drop_slabcache
tarn_get_anon_page
tarn_get_file_page
tarn_get_free_page
tarn_get_totalreserve_pages
tarn_get_zram_page
tarn_gfp_zone
tarn_heap_dma_map
tarn_heap_dma_unmap
tarn_meminfo_parameter_exit
tarn_meminfo_parameter_init
tarn_memory_event_report gpl
tarn_memory_netlink_exit
tarn_memory_netlink_init
tarn_memtrack_exit
tarn_memtrack_init
tarn_process_get_val
tarn_process_leak_detect
tarn_process_leak_read
tarn_process_set_th
tarn_reclaim
tarn_should_detect_slab_leak
tarn_should_detect_vmalloc_leak
tarn_should_dump_unreclaim_slab
tarn_should_dump_vmalloc
tarn_zone_watermark_ok
END
diff wanted /lab/exports || fail "exports"
while read -r name _; do
	grep -q -x "$name" /lab/client_needs || fail "tarn_client does not link $name"
done <wanted
