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

# A kernel without the hooks: what rests on them stays off, and is said to, the rest works.
unload_all
modprobe tarn_client || fail "modprobe tarn_client"
for module in ember tarn_smmu tarn_mem_adapter; do
	loaded "$module" || fail "$module was not loaded along"
done
if ! loaded hook_bridge; then
	log_has "no hook android_vh_slab_alloc_node" || fail "the hooks are not missed"
	equal "memory tracking" "$(cat "$parameters"/memtrack_init_state)" 0
	expect_line tarn_memtrack_init "slub_track_init fail"
	refused memcheck on slab
	memcheck read >text
	[ ! -s text ] || fail "records without a tracker: $(cat text)"
	echo 1 >/sys/kernel/mm_event/enabled
	await 5 grep -q 'event 1000' "$events"
	tarnctl thresholds set slab_k=0 >/dev/null
	equal "thresholds" "$(memcheck leaks)" 1
fi
