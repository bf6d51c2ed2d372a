# SPDX-License-Identifier: GPL-2.0-only
# limit: 30 s
# Checks the four threshold predicates against the kernel's own memory counts.
. /lab/scenarios/lib.sh

load_all
low="slab_k=0 vmalloc_k=0 slab_leak_k=0 vmalloc_leak_k=0"
high="slab_k=4294967295 vmalloc_k=4294967295 slab_leak_k=4294967295 vmalloc_leak_k=4294967295"

# shellcheck disable=SC2086 # several settings
{
	tarnctl thresholds set $high >/dev/null
	equal "nothing passed" "$(memcheck leaks)" 0
	tarnctl thresholds set $low >/dev/null
	equal "all passed" "$(memcheck leaks)" 15
	tarnctl thresholds set $high >/dev/null
}

# Thresholds 2 MiB below and above the kernel's own numbers, which is more than the guest changes
# meanwhile.
slab=$(memory SUnreclaim)
tarnctl thresholds set slab_k=$((slab - 2048)) slab_leak_k=$((slab + 2048)) >/dev/null
equal "between the slab thresholds" "$(memcheck leaks)" 1
tarnctl thresholds set slab_k=$((slab + 2048)) slab_leak_k=$((slab - 2048)) >/dev/null
equal "between the slab thresholds, the other way" "$(memcheck leaks)" 4
tarnctl thresholds set slab_leak_k=4294967295 >/dev/null

add_zram
echo 2G >/sys/block/zram"$zram"/disksize
vmalloc=$(memory VmallocUsed)
tarnctl thresholds set vmalloc_k=$((vmalloc - 2048)) vmalloc_leak_k=$((vmalloc + 2048)) >/dev/null
equal "between the vmalloc thresholds" "$(memcheck leaks)" 2
tarnctl thresholds set vmalloc_k=$((vmalloc + 2048)) vmalloc_leak_k=$((vmalloc - 2048)) >/dev/null
equal "between the vmalloc thresholds, the other way" "$(memcheck leaks)" 8

for bad in slab_k slab_k= slab_k=-1 slab_k=4294967296 slab_k=12x heap_k=1; do
	refused tarnctl thresholds set "$bad"
done
