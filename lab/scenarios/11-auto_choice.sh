# SPDX-License-Identifier: GPL-2.0-only
# limit: 30 s
# Without a name the module chooses the cache with the largest footprint in /proc/slabinfo, except
# caches that the kernel can shrink. A name overrides the choice.
. /lab/scenarios/lib.sh

load_all

# Ties are broken by the order of a list that is not visible, so every cache with the largest
# footprint is acceptable.
largest() {
	tail -n +3 /proc/slabinfo | while read -r name _ objects size _; do
		case $name in
		kmemleak_*) continue ;;
		esac
		read -r reclaimable <"/sys/kernel/slab/$name/reclaim_account"
		[ "$reclaimable" = 1 ] || echo "$((objects * size)) $name"
	done | sort -rn | awk 'NR == 1 { most = $1 } $1 == most { print $2 }'
}

chosen() {
	memcheck prepare slab
	memcheck on slab
	memcheck off slab
	klog | sed -n 's/.*tarn_slub_track_on:[0-9]*: slub name\[\(.*\)\] ok$/\1/p' | tail -n 1
}

# Footprints change all the time, so the choice counts only if it was made between two equal
# readings.
agrees() {
	before=$(largest)
	choice=$(chosen)
	[ "$before" = "$(largest)" ] || return 1
	echo "$before" | grep -q -x "$choice" || fail "chosen: $choice, largest: $before"
}

# The growth that is reported for a cache that nobody uses meanwhile.
growth_told() { # CACHE
	kib=$(($(footprint "$1") / 1024))
	forget_log
	equal "the choice" "$(chosen)" "$1"
	log_has "$(adapter_line tarn_slub_track_off "$kib\+0=${kib}kB")"
}

hoard() { # KIND CACHE: enough objects for a quarter more than the largest cache has
	leak "$1" "$1" $((most * 5 / 4 / $(slab_field "$2" 4))) >"taken_$1" &
	hoarder=$!
	undo "kill $hoarder && wait $hoarder; true"
	await 20 grep -q taken "taken_$1"
	at_least "footprint of $2" "$(footprint "$2")" "$most"
}

set_target
await 2 agrees
no_line get_max_slub "slub track specify target"

# Now with caches that are made the largest on purpose. The debugging kernel would take minutes.
if [ "$LAB_DEBUG" = 0 ]; then
	most=$(footprint "$(largest | head -n 1)")
	echo 16G >/sys/block/zram1/disksize
	undo "echo 1 >/sys/block/zram1/reset"
	hoard index radix_tree_node
	await 2 agrees
	kill "$hoarder"
	wait "$hoarder" || true

	hoard file filp
	equal "the largest" "$(largest)" filp
	await 2 growth_told filp
fi

# A cache that the kernel can shrink is chosen only by name.
for cache in radix_tree_node kmalloc-64 filp; do
	set_target "$cache"
	equal "the choice" "$(chosen)" "$cache"
done
expect_line get_max_slub "slub track specify target radix_tree_node"
equal "radix_tree_node" "$(cat /sys/kernel/slab/radix_tree_node/reclaim_account)" 1

# A name that matches no cache leaves the choice to the module.
set_target no_such_cache
await 2 agrees

# While tracking is on, it keeps its target.
set_target filp
memcheck prepare slab
memcheck on slab
set_target radix_tree_node
memcheck prepare slab
memcheck on slab
leak kept file 90 closed >/dev/null
memcheck off slab
memcheck read >text
grep -q '(90/.* kept\]$' text || fail "no longer tracked: $(cat text)"

# A cache with objects as large as the tracker's nodes is a target like any other: the kernel does
# not merge the two. It may be merged with a third one, whose name the hunt then tells.
if ! tarnctl hunt --device /dev/tarn_memcheck --cache vmap_area --seconds 1 >hunted 2>errors; then
	grep -q 'merged the cache "vmap_area" with' errors || fail "vmap_area: $(cat errors)"
fi
