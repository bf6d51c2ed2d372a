# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 40 s
# A target that many users of the kernel share by size. A pipe has an array of buffers in it, so its
# call site must show exactly as many allocations and frees as there are pipes.
. /lab/scenarios/lib.sh

load_all
cache=kmalloc-cg-1k
[ -n "$(slab_field $cache 1)" ] || cache=kmalloc-1k
size=$(slab_field $cache 4)

tarnctl hunt --device /dev/tarn_memcheck --cache $cache --seconds $((3 * LAB_SLOW)) --json >hunted 2>errors &
hunt=$!
await 10 grep -q 1 $parameters/slub_track_flag
background leak holder pipe 400 >taken
leak closer pipe 300 closed >/dev/null
await 10 grep -q taken taken
wait "$hunt" || fail "hunt: $? $(cat errors)"

grep -q "\"cache\": \"$cache\"" hunted || fail "another cache: $(head -n 5 hunted)"
equal "object size" "$(sed -n 's/^  "object_size": \([0-9]*\),/\1/p' hunted)" "$size"
callers hunted >records
seen() { # KIND COMM CALL_SITE
	awk -F '|' -v kind="$1" -v comm="$2" -v site="$3" \
		'$1 == kind && $6 == comm && index($7, site) == 1 { n += $2 } END { print n + 0 }' records
}
equal "pipes held, allocated" "$(seen alloc holder alloc_pipe_info+)" 400
equal "pipes held, freed" "$(seen free holder free_pipe_info+)" 0
equal "pipes closed, allocated" "$(seen alloc closer alloc_pipe_info+)" 300
equal "pipes closed, freed" "$(seen free closer free_pipe_info+)" 300
equal "dropped" "$(sed -n 's/^    "dropped": \([0-9]*\)/\1/p' hunted)" 0
